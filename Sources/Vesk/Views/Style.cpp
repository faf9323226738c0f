#include "Vesk/Views/Style.h"

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
.find-bar { margin: 6px 12px; }
.inspector { background-color: @window_bg_color; }
.picker-entry { margin: 12px; min-height: 40px; font-size: 12pt; }
.completion > contents { padding: 4px; }
)css";

}  // namespace

void installStyle() {
    auto* provider = gtk_css_provider_new();
    gtk_css_provider_load_from_data(provider, sheet, -1);
    gtk_style_context_add_provider_for_display(gdk_display_get_default(), GTK_STYLE_PROVIDER(provider),
                                               GTK_STYLE_PROVIDER_PRIORITY_APPLICATION);
    g_object_unref(provider);
    gtk_icon_theme_add_resource_path(gtk_icon_theme_get_for_display(gdk_display_get_default()),
                                     "/com/tarnlight/vesk/icons");
}

}  // namespace vesk::views
