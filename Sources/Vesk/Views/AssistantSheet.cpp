#include "Vesk/Views/AssistantSheet.h"

namespace vesk::views {

AssistantSheet::AssistantSheet(GtkWindow* parent, const std::string& title, int width, int height)
    : window_(ADW_WINDOW(adw_window_new())), title_(ADW_WINDOW_TITLE(adw_window_title_new("", ""))) {
    auto* window = GTK_WINDOW(window_);
    gtk_window_set_transient_for(window, parent);
    gtk_window_set_modal(window, TRUE);
    int parentWidth = 0, parentHeight = 0;
    gtk_window_get_default_size(parent, &parentWidth, &parentHeight);
    gtk_window_set_default_size(window, parentWidth > 360 ? std::min(width, parentWidth) : width,
                                parentHeight > 300 ? std::min(height, parentHeight) : height);
    gtk_window_set_title(window, title.c_str());
    adw_window_title_set_title(title_, title.c_str());
    promise_.add_css_class("dim-label");
    promise_.add_css_class("caption");
    promise_.set_margin(10);
    promise_.set_wrap(true);
    promise_.set_justify(Gtk::Justification::CENTER);
    auto* escape = gtk_shortcut_controller_new();
    gtk_shortcut_controller_add_shortcut(
        GTK_SHORTCUT_CONTROLLER(escape),
        gtk_shortcut_new(gtk_keyval_trigger_new(GDK_KEY_Escape, static_cast<GdkModifierType>(0)),
                         gtk_named_action_new("window.close")));
    gtk_widget_add_controller(GTK_WIDGET(window_), escape);
    g_object_set_data_full(G_OBJECT(window_), "vesk-sheet", this,
                           [](gpointer self) { delete static_cast<AssistantSheet*>(self); });
}

void AssistantSheet::present(Gtk::Widget& page, Gtk::Widget& focus) {
    auto* bar = ADW_HEADER_BAR(adw_header_bar_new());
    adw_header_bar_set_show_start_title_buttons(bar, FALSE);
    adw_header_bar_set_show_end_title_buttons(bar, FALSE);
    adw_header_bar_set_title_widget(bar, GTK_WIDGET(title_));
    adw_header_bar_pack_start(bar, raw(no_));
    adw_header_bar_pack_end(bar, raw(yes_));
    auto* box = gtk_box_new(GTK_ORIENTATION_VERTICAL, 0);
    gtk_box_append(GTK_BOX(box), GTK_WIDGET(bar));
    page.set_vexpand(true);
    gtk_box_append(GTK_BOX(box), raw(page));
    gtk_box_append(GTK_BOX(box), raw(promise_));
    adw_window_set_content(window_, box);
    gtk_window_present(GTK_WINDOW(window_));
    focus.grab_focus();
}

void AssistantSheet::close() {
    gtk_widget_set_visible(GTK_WIDGET(window_), FALSE);
    // It goes with its buttons, one of which may be what closes it.
    g_idle_add(
        [](gpointer window) -> gboolean {
            gtk_window_destroy(GTK_WINDOW(window));
            g_object_unref(window);
            return G_SOURCE_REMOVE;
        },
        g_object_ref(window_));
}

Gtk::Label& sheetText(const std::string& words, std::initializer_list<const char*> classes) {
    auto* label = Gtk::make_managed<Gtk::Label>(words);
    label->set_wrap(true);
    label->set_wrap_mode(Pango::WrapMode::WORD_CHAR);
    label->set_xalign(0);
    for (const auto* name : classes) label->add_css_class(name);
    return *label;
}

}  // namespace vesk::views
