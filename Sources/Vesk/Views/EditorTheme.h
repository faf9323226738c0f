// How the vocabulary of attributed text looks on screen: fonts, colours of light and dark, sizes in points.
#pragma once

#include <gdk/gdk.h>

#include <string>

#include "VeskCore/Editor/AttributedText.h"

namespace vesk::views {

/// A value; made anew when the system's colours, its contrast or the font size change.
struct EditorTheme {
    std::string bodyFamily, monoFamily;
    double bodyPoints = 12;  ///< what the vocabulary's 14 points are on screen
    bool isDark = false;
    GdkRGBA text{}, faint{}, accent{}, codeBackground{}, codeBlockBackground{}, highlight{}, rule{},
        background{};
    GdkRGBA gridLine{}, gridHeader{};

    /// By the style manager, the user's interface font and the size of body text.
    static EditorTheme current(double bodyPoints);

    double points(double size) const { return size / 14 * bodyPoints; }
    /// None for the colour that the text has by itself.
    const GdkRGBA* color(TextAttributes::ColorRole role) const;
};

GdkRGBA rgba(const CSSColor& color);

}  // namespace vesk::views
