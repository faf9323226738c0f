// The fonts of the highlighter. Its colours are roles, which the text view paints as its desktop does; only a
// colour that a note names is judged here, against the background it stands on.
#pragma once

#include "VeskCore/Editor/AttributedText.h"
#include "VeskCore/Markdown/HTMLStyle.h"

namespace vesk {

struct HighlighterTheme {
    using Font = TextAttributes::Font;

    Font body{Font{.family = TextAttributes::FontFamily::body, .size = 14}};
    Font mono{Font{.family = TextAttributes::FontFamily::mono, .size = 13}};
    CSSColor editorBackground = CSSColor::lightEditorBackground;

    /// Levels outside 1 to 6 count as the nearest of them.
    static Font heading(int level);
    /// Of a marker that the reader does not see.
    static Font hidden();
    /// What a line has before anything is styled.
    TextAttributes base() const;
    bool operator==(const HighlighterTheme&) const = default;
};

}  // namespace vesk
