// Keeping the selection sensible when a foreign edit replaces the text on screen. Pure.
#pragma once

#include <string_view>

#include "VeskCore/Support/TextRange.h"

namespace vesk::TextReload {

/// UTF-16 units; never ends inside a surrogate pair nor past the new text.
TextRange mapSelection(TextRange selection, std::u16string_view from, std::u16string_view to);

}  // namespace vesk::TextReload
