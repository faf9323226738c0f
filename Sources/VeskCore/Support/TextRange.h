// A stretch of text by location and length.
#pragma once

#include <cstddef>

namespace vesk {

/// A half-open stretch. The unit (UTF-16 units, characters or bytes) is told where a range is used.
struct TextRange {
    std::size_t location = 0;
    std::size_t length = 0;

    constexpr std::size_t end() const { return location + length; }
    constexpr bool empty() const { return length == 0; }
    constexpr bool contains(std::size_t offset) const { return offset >= location && offset < end(); }
    /// True when the two share at least one unit; an empty range shares none.
    constexpr bool intersects(const TextRange& other) const {
        return location < other.end() && other.location < end() && !empty() && !other.empty();
    }
    bool operator==(const TextRange&) const = default;
};

}  // namespace vesk
