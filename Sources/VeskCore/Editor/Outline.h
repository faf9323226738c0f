// The headings of a note, as its outline shows them. Those in frontmatter, fences and lines too long to be
// styled are none. Offsets are UTF-16 units. Linear in its input. Pure; any thread.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "VeskCore/Support/TextRange.h"

namespace vesk {

struct OutlineHeading {
    int level = 1;
    std::string text;      ///< without the signs and the white space around it
    TextRange range;       ///< the line without its terminator
    std::size_t line = 0;  ///< counted from 0
    bool operator==(const OutlineHeading&) const = default;
};

std::vector<OutlineHeading> outline(std::u16string_view text);

}  // namespace vesk
