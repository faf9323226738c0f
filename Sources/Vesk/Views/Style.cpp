#include "Vesk/Views/Style.h"

#include <string>

#include "Vesk/Views/Toolkit.h"

namespace vesk::views {
namespace {

constexpr const char* sheet = R"css(
textview.vesk-editor, textview.vesk-editor text { background-color: transparent; }
.note-page { background-color: @view_bg_color; color: @view_fg_color; }
.note-title { font-size: 20pt; font-weight: 800; min-height: 0; padding: 18px 0 6px 0; background: none; box-shadow: none; outline: none; }
.note-banner { margin: 8px 12px 4px 12px; padding: 12px 14px; border-radius: 12px; background-color: alpha(@accent_bg_color, 0.12); }
.sidebar-pane { background-color: @window_bg_color; }
.sidebar-pane listview { background: none; }
.sidebar-pane listview.navigation-sidebar > row { margin-top: 0; margin-bottom: 0; min-height: 32px; padding: 0 8px; }
.sidebar-pane .row-entry { min-height: 26px; padding: 0 6px; }
.sidebar-pane .section-row { margin-top: 10px; }
.pane-handle { background-color: @borders; min-width: 1px; }
.status-line { padding: 6px 14px; font-size: 9pt; }
.folder-red { color: #e01b24; } .folder-orange { color: #ff7800; } .folder-yellow { color: #d6a000; }
.folder-green { color: #2ec27e; } .folder-teal { color: #1ba5a5; } .folder-blue { color: #3584e4; }
.folder-indigo { color: #5c5cd6; } .folder-purple { color: #9141ac; } .folder-pink { color: #d56199; }
.folder-brown { color: #986a44; } .folder-gray { color: #77767b; }
.swatch { min-width: 18px; min-height: 18px; border-radius: 9px; box-shadow: inset 0 0 0 1px @borders; }
.swatch.colored { background-color: currentColor; box-shadow: none; }
.charm { font-size: 18pt; min-width: 34px; min-height: 34px; }
.search-snippet { font-size: 9.5pt; }
.search-results > row { padding: 8px 10px; }
.search-modes { margin: 0 8px 6px 8px; }
.search-modes button { min-height: 26px; padding: 0 6px; font-size: 9.5pt; font-weight: normal; }
.find-bar { margin: 6px 12px; }
.inspector { background-color: @window_bg_color; }
.inspector-switcher { margin: 6px 8px 2px 8px; }
.assistant-bar { padding: 4px 6px; }
.assistant-turns { padding: 6px 12px 14px 12px; }
.assistant-question { padding: 8px 12px; border-radius: 14px 14px 4px 14px; background-color: alpha(@accent_bg_color, 0.16); }
.assistant-answer { border-spacing: 8px; }
.assistant-answer .answer-code { font-family: monospace; font-size: 92%; padding: 8px 10px; border-radius: 8px; background-color: alpha(currentColor, 0.07); }
.assistant-answer .answer-code.continues { margin-top: -14px; border-radius: 0 0 8px 8px; padding-top: 6px; }
.assistant-answer .answer-quote { padding-left: 10px; border-left: 3px solid alpha(currentColor, 0.25); }
.assistant-answer .answer-item { margin-top: -3px; }
.assistant-answer .answer-table { border-spacing: 10px 4px; }
.assistant-failure { padding: 8px 10px; border-radius: 10px; background-color: alpha(@warning_bg_color, 0.20); }
.assistant-small { min-height: 26px; padding: 0 8px; font-size: 9pt; font-weight: normal; }
.assistant-notices { padding: 0 14px 4px 14px; border-spacing: 2px; }
.assistant-composer { margin: 2px 10px 10px 10px; border-radius: 12px; background-color: @view_bg_color; box-shadow: inset 0 0 0 1px alpha(currentColor, 0.15); }
.assistant-composer.focused { box-shadow: inset 0 0 0 2px alpha(@accent_color, 0.6); }
.assistant-composer textview, .assistant-composer textview text { background: none; }
.assistant-composer button.circular { min-width: 28px; min-height: 28px; padding: 0; }
.assistant-picker > contents { padding: 0; }
.assistant-picker scrolledwindow { padding: 6px; }
.assistant-picker-bar { padding: 6px; }
.assistant-picker button { font-weight: normal; padding: 6px 8px; }
.diff-count { padding: 2px 10px; border-radius: 99px; font-size: 9pt; font-weight: 600; }
.diff-added { background-color: alpha(#2ec27e, 0.22); }
.diff-removed { background-color: alpha(#e01b24, 0.16); }
.diff-text { font-size: 11.5pt; }
.plan-side { border-radius: 8px; background-color: alpha(currentColor, 0.05); }
.plan-side .plan-text { padding: 8px 10px; font-size: 10pt; }
.plan-blocked .title { opacity: 0.6; }
.sheet-list { background: none; padding: 8px 18px 18px 18px; }
.sheet-list > row, .sheet-list > row:hover, .sheet-list > row:active { padding: 0; background: none; }
.sheet-list .details-arrow > image { -gtk-icon-transform: rotate(180deg); transition: -gtk-icon-transform 150ms ease; }
.sheet-list .details-arrow.open > image { -gtk-icon-transform: none; }
.sheet-heading { margin: 12px 0 8px 0; }
.sheet-row { padding: 8px 12px; min-height: 38px; background-color: @card_bg_color; color: @card_fg_color; border: 1px solid alpha(currentColor, 0.09); border-top-width: 0; }
.sheet-row.first { margin-top: 1px; border-top-width: 1px; border-top-left-radius: 12px; border-top-right-radius: 12px; }
.sheet-row.last { border-bottom-left-radius: 12px; border-bottom-right-radius: 12px; }
.picker-entry { margin: 12px; min-height: 40px; font-size: 12pt; }
.completion > contents { padding: 4px; }
)css";

// Folder colours that can be told from a dark ground.
constexpr const char* onDark = R"css(
.folder-red { color: #ff7b7b; } .folder-orange { color: #ffa348; } .folder-yellow { color: #f8e45c; }
.folder-green { color: #57e389; } .folder-teal { color: #5fd7d7; } .folder-blue { color: #99c1f1; }
.folder-indigo { color: #a9a9f5; } .folder-purple { color: #dc8add; } .folder-pink { color: #f5a6c8; }
.folder-brown { color: #cdab8f; } .folder-gray { color: #c0bfbc; }
)css";
// For high contrast: words of at least 7 : 1 on their ground, symbols and lines of at least 3 : 1 also where
// the row is chosen, and lines round what else only a tint sets off.
constexpr const char* strongOnLight = R"css(
@define-color window_fg_color #000000;
@define-color view_fg_color #000000;
@define-color headerbar_fg_color #000000;
@define-color card_fg_color #000000;
@define-color dialog_fg_color #000000;
@define-color popover_fg_color #000000;
@define-color accent_color #134a8e;
@define-color accent_bg_color #134a8e;
@define-color destructive_color #8f1520;
@define-color destructive_bg_color #a51d2d;
@define-color error_color #8f1520;
.folder-red { color: #a51d2d; } .folder-orange { color: #9c4500; } .folder-yellow { color: #7a5c00; }
.folder-green { color: #1b6e43; } .folder-teal { color: #0d6161; } .folder-blue { color: #1a5fb4; }
.folder-indigo { color: #3b3ba8; } .folder-purple { color: #613583; } .folder-pink { color: #99385f; }
.folder-brown { color: #63452c; } .folder-gray { color: #3d3846; }
)css";
constexpr const char* strongOnDark = R"css(
@define-color accent_color #b4d2f7;
@define-color accent_bg_color #99c1f1;
@define-color accent_fg_color #000000;
@define-color destructive_color #ffb3b0;
@define-color destructive_bg_color #ffb3b0;
@define-color destructive_fg_color #000000;
@define-color error_color #ffb3b0;
)css";
constexpr const char* strong = R"css(
.note-banner, .assistant-question, .assistant-failure, .assistant-composer, .assistant-answer .answer-code, .plan-side, .diff-count { box-shadow: inset 0 0 0 1px currentColor; }
.assistant-answer .answer-quote { border-left-color: currentColor; }
.pane-handle { background-color: currentColor; }
.swatch { box-shadow: inset 0 0 0 1px currentColor; }
.plan-blocked .title { opacity: 1; }
.sheet-row { border-color: currentColor; }
entry.error { color: currentColor; }
)css";

/// What of the style depends on the desktop's looks.
void follow(GtkCssProvider* provider) {
    auto* manager = adw_style_manager_get_default();
    const bool isDark = adw_style_manager_get_dark(manager);
    const bool isStrong = adw_style_manager_get_high_contrast(manager);
    const std::string rules = std::string(isDark     ? onDark
                                          : isStrong ? strongOnLight
                                                     : "") +
                              (isStrong ? strong : "") + (isStrong && isDark ? strongOnDark : "");
    gtk_css_provider_load_from_data(provider, rules.data(), static_cast<gssize>(rules.size()));
}

}  // namespace

void installStyle() {
    auto* provider = gtk_css_provider_new();
    gtk_css_provider_load_from_data(provider, sheet, -1);
    gtk_style_context_add_provider_for_display(gdk_display_get_default(), GTK_STYLE_PROVIDER(provider),
                                               GTK_STYLE_PROVIDER_PRIORITY_APPLICATION);
    g_object_unref(provider);
    auto* looks = gtk_css_provider_new();  // stays for the life of the display
    gtk_style_context_add_provider_for_display(gdk_display_get_default(), GTK_STYLE_PROVIDER(looks),
                                               GTK_STYLE_PROVIDER_PRIORITY_APPLICATION + 1);
    follow(looks);
    for (const char* change : {"notify::dark", "notify::high-contrast"})
        onSignal(adw_style_manager_get_default(), change, [looks] { follow(looks); });
    gtk_icon_theme_add_resource_path(gtk_icon_theme_get_for_display(gdk_display_get_default()),
                                     "/com/tarnlight/vesk/icons");
}

}  // namespace vesk::views
