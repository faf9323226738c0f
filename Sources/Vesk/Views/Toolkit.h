// The toolkit's headers in one place, precompiled: GTK through gtkmm, libadwaita in C.
#pragma once

#include <adwaita.h>
#include <glib/gi18n.h>
#include <gtkmm.h>

#include <functional>
#include <memory>
#include <utility>

namespace vesk::views {

/// Calls the handler at a signal whose arguments don't matter, as long as the object lives.
inline void onSignal(gpointer object, const char* signal, std::function<void()> handler) {
    g_signal_connect_data(
        object, signal, G_CALLBACK(+[](gpointer data) { (*static_cast<std::function<void()>*>(data))(); }),
        new std::function<void()>(std::move(handler)),
        +[](gpointer data, GClosure*) { delete static_cast<std::function<void()>*>(data); },
        G_CONNECT_SWAPPED);
}

/// The C widget of a gtkmm one.
inline GtkWidget* raw(Gtk::Widget& widget) {
    return widget.gobj();
}

/// The name that assistive technology reads for a control without a text.
inline void setAccessibleName(Gtk::Widget& widget, const char* name) {
    gtk_accessible_update_property(GTK_ACCESSIBLE(widget.gobj()), GTK_ACCESSIBLE_PROPERTY_LABEL, name, -1);
}

/// One of the pages that lie in a box. What a stack covers is still read out by assistive technology.
inline void showOnly(Gtk::Box& pages, Gtk::Widget& page) {
    for (auto* other = pages.get_first_child(); other; other = other->get_next_sibling())
        other->set_visible(other == &page);
}

/// GTK 4.8 has no call of its own for it.
inline void setPlaceholder(Gtk::SearchEntry& entry, const char* words) {
    auto* text = gtk_editable_get_delegate(GTK_EDITABLE(entry.gobj()));
    if (GTK_IS_TEXT(text)) gtk_text_set_placeholder_text(GTK_TEXT(text), words);
}

}  // namespace vesk::views
