// The pictures of the icons that notes wear: emoji, which every desktop draws. Pure.
#pragma once

#include <string_view>

namespace vesk::views {

/// The emoji for a symbol's name; empty for a name that isn't in the catalogue.
std::string_view glyph(std::string_view symbol);

}  // namespace vesk::views
