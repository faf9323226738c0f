#include "VeskCore/Editor/HighlighterTheme.h"

#include <algorithm>
#include <array>

namespace vesk {

HighlighterTheme::Font HighlighterTheme::heading(int level) {
    constexpr std::array<double, 6> sizes{26, 21, 18, 16, 15, 14};
    const int held = std::clamp(level, 1, 6);
    using Weight = TextAttributes::FontWeight;
    return {.size = sizes[static_cast<std::size_t>(held - 1)],
            .weight = held <= 2 ? Weight::bold : Weight::semibold};
}

HighlighterTheme::Font HighlighterTheme::hidden() {
    return {.size = 0.001};
}

TextAttributes HighlighterTheme::base() const {
    TextAttributes attributes;
    attributes.font = body;
    return attributes;
}

}  // namespace vesk
