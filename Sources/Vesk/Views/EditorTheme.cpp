#include "Vesk/Views/EditorTheme.h"

#include "Vesk/Views/Toolkit.h"

namespace vesk::views {
namespace {

GdkRGBA parsed(const char* text) {
    GdkRGBA color{};
    gdk_rgba_parse(&color, text);
    return color;
}

std::string familyOf(const char* fontName) {
    PangoFontDescription* font = pango_font_description_from_string(fontName);
    const char* family = pango_font_description_get_family(font);
    std::string name = family ? family : "";
    pango_font_description_free(font);
    return name;
}

}  // namespace

EditorTheme EditorTheme::current(double bodyPoints) {
    AdwStyleManager* manager = adw_style_manager_get_default();
    EditorTheme theme;
    theme.bodyPoints = bodyPoints;
    theme.isDark = adw_style_manager_get_dark(manager);
    const bool isStrong = adw_style_manager_get_high_contrast(manager);
    if (theme.isDark) {
        theme.text = parsed("rgba(255,255,255,0.92)");
        theme.faint = parsed(isStrong ? "rgba(255,255,255,0.9)" : "rgba(255,255,255,0.45)");
        theme.accent = parsed("#78aeed");
        theme.codeBackground = parsed("rgba(255,255,255,0.1)");
        theme.codeBlockBackground = parsed("rgba(255,255,255,0.05)");
        theme.highlight = parsed("rgba(248,228,92,0.28)");
        theme.rule = parsed(isStrong ? "rgba(255,255,255,0.6)" : "rgba(255,255,255,0.2)");
        theme.background = parsed("#1e1e1e");
        theme.gridLine = parsed(isStrong ? "rgba(255,255,255,0.6)" : "rgba(255,255,255,0.16)");
        theme.gridHeader = parsed("rgba(255,255,255,0.06)");
    } else {
        theme.text = parsed("rgba(0,0,0,0.85)");
        theme.faint = parsed(isStrong ? "rgba(0,0,0,0.75)" : "rgba(0,0,0,0.42)");
        theme.accent = parsed("#1c71d8");
        theme.codeBackground = parsed("rgba(0,0,0,0.06)");
        theme.codeBlockBackground = parsed("rgba(0,0,0,0.035)");
        theme.highlight = parsed("rgba(245,194,17,0.28)");
        theme.rule = parsed(isStrong ? "rgba(0,0,0,0.6)" : "rgba(0,0,0,0.18)");
        theme.background = parsed("#ffffff");
        theme.gridLine = parsed(isStrong ? "rgba(0,0,0,0.6)" : "rgba(0,0,0,0.14)");
        theme.gridHeader = parsed("rgba(0,0,0,0.04)");
    }
    if (isStrong) {
        const bool isDark = theme.isDark;
        theme.text = parsed(isDark ? "#ffffff" : "#000000");
        theme.accent = parsed(isDark ? "#b4d2f7" : "#134a8e");
        theme.codeBackground = parsed(isDark ? "rgba(255,255,255,0.18)" : "rgba(0,0,0,0.14)");
        theme.codeBlockBackground = parsed(isDark ? "rgba(255,255,255,0.14)" : "rgba(0,0,0,0.09)");
        theme.highlight = parsed(isDark ? "rgba(248,228,92,0.28)" : "rgba(245,194,17,0.4)");
    }
    char* interfaceFont = nullptr;
    if (GtkSettings* settings = gtk_settings_get_default())
        g_object_get(settings, "gtk-font-name", &interfaceFont, nullptr);
    theme.bodyFamily = interfaceFont ? familyOf(interfaceFont) : "Sans";
    g_free(interfaceFont);
    theme.monoFamily = "Monospace";
    return theme;
}

const GdkRGBA* EditorTheme::color(TextAttributes::ColorRole role) const {
    static constexpr GdkRGBA nothing{0, 0, 0, 0};
    switch (role) {
        case TextAttributes::ColorRole::text:
            return nullptr;
        case TextAttributes::ColorRole::faint:
            return &faint;
        case TextAttributes::ColorRole::accent:
            return &accent;
        case TextAttributes::ColorRole::clear:
            return &nothing;
        case TextAttributes::ColorRole::codeBackground:
            return &codeBackground;
        case TextAttributes::ColorRole::highlight:
            return &highlight;
    }
    return nullptr;
}

GdkRGBA rgba(const CSSColor& color) {
    return {static_cast<float>(color.red), static_cast<float>(color.green), static_cast<float>(color.blue),
            static_cast<float>(color.alpha)};
}

}  // namespace vesk::views
