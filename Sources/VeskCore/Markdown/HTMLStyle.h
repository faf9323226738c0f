// The style that inline HTML can give to text in the editor, and its colours. Pure values.
#pragma once

#include <optional>
#include <string_view>

namespace vesk {

/// Each component from 0 to 1, not premultiplied, in sRGB.
struct CSSColor {
    double red = 0, green = 0, blue = 0, alpha = 1;
    bool operator==(const CSSColor&) const = default;

    /// A named colour (CSS Color Module Level 4), "transparent", #rgb, #rgba, #rrggbb, #rrggbbaa, rgb(),
    /// rgba(), hsl(), hsla(); none for anything else.
    static std::optional<CSSColor> parse(std::string_view text);

    /// This colour blended over the background and, where the contrast (WCAG 2) would be under 3.0, made
    /// lighter or darker until it reads.
    CSSColor legible(const CSSColor& background) const;

    static const CSSColor lightEditorBackground;
    static const CSSColor darkEditorBackground;
};

/// The contrast ratio of two opaque colours, from 1 to 21 (WCAG 2).
double contrastRatio(const CSSColor& a, const CSSColor& b);

struct HTMLStyle {
    enum class Baseline { normal, sub, sup };

    std::optional<CSSColor> color, background;
    bool bold = false, italic = false, underline = false, strikethrough = false, monospace = false;
    Baseline baseline = Baseline::normal;
    double scale = 1;  ///< of the font size

    bool operator==(const HTMLStyle&) const = default;

    /// The text colour to use on `background`: this style's colour made legible on its own background if it
    /// has one, else on the editor's. None if the style has no colour.
    std::optional<CSSColor> textColor(const CSSColor& editorBackground) const;
};

}  // namespace vesk
