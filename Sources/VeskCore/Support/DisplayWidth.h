// How wide text stands in a fixed-width font. Pure; any thread.
#pragma once

#include <cstddef>
#include <string_view>

namespace vesk {

/// The columns that the text takes: two for a wide or full-width character (UAX #11) and for an emoji, none
/// for what has no width of its own, one for any other.
std::size_t displayColumns(std::u16string_view text);

}  // namespace vesk
