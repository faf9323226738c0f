#include "VeskCore/Editor/AttributedText.h"

#include "VeskCore/Editor/EditorLines.h"

namespace vesk {

TextRange AttributedText::paragraphRange(TextRange range) const {
    return EditorLines::lineRange(text(), EditorLines::clipped(range, text()));
}

}  // namespace vesk
