#include "Vesk/Views/Toasts.h"

namespace vesk::views {
namespace {

constexpr std::size_t longToast = 80;  // bytes that take longer to read than a toast usually stays
constexpr guint longToastSeconds = 10;

void describe(GtkWidget* widget, const char* words) {
    if (words) {
        gtk_accessible_update_property(GTK_ACCESSIBLE(widget), GTK_ACCESSIBLE_PROPERTY_DESCRIPTION, words,
                                       -1);
    } else {
        gtk_accessible_reset_property(GTK_ACCESSIBLE(widget), GTK_ACCESSIBLE_PROPERTY_DESCRIPTION);
    }
}

}  // namespace

AdwToast* plainToast(const std::string& words) {
    auto* toast = adw_toast_new("");
    auto* label = GTK_WIDGET(g_object_new(GTK_TYPE_LABEL, "accessible-role", GTK_ACCESSIBLE_ROLE_ALERT,
                                          "label", words.c_str(), nullptr));
    gtk_accessible_update_property(GTK_ACCESSIBLE(label), GTK_ACCESSIBLE_PROPERTY_LABEL, words.c_str(), -1);
    gtk_label_set_wrap(GTK_LABEL(label), TRUE);
    gtk_label_set_wrap_mode(GTK_LABEL(label), PANGO_WRAP_WORD_CHAR);
    gtk_label_set_xalign(GTK_LABEL(label), 0);
    gtk_label_set_max_width_chars(GTK_LABEL(label), 60);
    adw_toast_set_custom_title(toast, label);
    if (words.size() > longToast) adw_toast_set_timeout(toast, longToastSeconds);
    // What was just done isn't kept waiting by a reason that still stands; that one comes back.
    adw_toast_set_priority(toast, ADW_TOAST_PRIORITY_HIGH);
    return toast;
}

std::function<void()> announce(GtkWindow* window, const std::string& words) {
    // A description that changes is read. An entry has the keyboard in a part of its own, which is none to
    // assistive technology.
    auto* focus = gtk_window_get_focus(window);
    if (focus && GTK_IS_TEXT(focus)) focus = gtk_widget_get_parent(focus);
    if (!focus) return [] {};
    describe(focus, words.c_str());
    const std::shared_ptr<GWeakRef> described(new GWeakRef, [](GWeakRef* reference) {
        g_weak_ref_clear(reference);
        delete reference;
    });
    g_weak_ref_init(described.get(), focus);
    return [described] {
        auto* widget = static_cast<GtkWidget*>(g_weak_ref_get(described.get()));
        if (!widget) return;
        // The toolkit describes a control by its tooltip.
        describe(widget, gtk_widget_get_tooltip_text(widget));
        g_object_unref(widget);
    };
}

AdwToast* reasonToast(GtkWindow* window, const std::string& words) {
    auto* toast = plainToast(words);
    adw_toast_set_timeout(toast, 0);
    onSignal(toast, "dismissed", announce(window, words));
    return toast;
}

}  // namespace vesk::views
