#include "VeskCore/Vault/TextReload.h"

#include <algorithm>

namespace vesk::TextReload {

namespace {

constexpr bool isHighSurrogate(char16_t unit) {
    return unit >= 0xD800 && unit <= 0xDBFF;
}
constexpr bool isLowSurrogate(char16_t unit) {
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

}  // namespace

TextRange mapSelection(TextRange selection, std::u16string_view from, std::u16string_view to) {
    const std::size_t shorter = std::min(from.size(), to.size());
    std::size_t prefix = 0;
    while (prefix < shorter && from[prefix] == to[prefix]) ++prefix;
    if (prefix > 0 && isHighSurrogate(from[prefix - 1])) --prefix;
    std::size_t suffix = 0;
    while (suffix < shorter - prefix && from[from.size() - 1 - suffix] == to[to.size() - 1 - suffix])
        ++suffix;
    if (suffix > 0 && isLowSurrogate(from[from.size() - suffix])) --suffix;

    const auto mapped = [&](std::size_t position) {
        std::size_t place;
        if (position <= prefix) {
            place = position;
        } else if (position >= from.size() - suffix) {
            place = to.size() - (from.size() - position);
        } else {
            place = prefix + std::min(position - prefix, to.size() - suffix - prefix);
        }
        place = std::min(place, to.size());
        const bool isInsidePair =
            place > 0 && place < to.size() && isHighSurrogate(to[place - 1]) && isLowSurrogate(to[place]);
        return isInsidePair ? place - 1 : place;
    };
    const std::size_t start = std::min(selection.location, from.size());
    const std::size_t end = start + std::min(selection.length, from.size() - start);
    const std::size_t newStart = mapped(start);
    return {newStart, std::max(mapped(end), newStart) - newStart};
}

}  // namespace vesk::TextReload
