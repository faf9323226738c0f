#include "Vesk/Views/Inspector.h"

namespace vesk::views {

Inspector::Inspector() : Gtk::Box(Gtk::Orientation::VERTICAL) {
    add_css_class("inspector");
    page_.set_margin(12);
    page_.set_spacing(6);
    build(backlinks_, "Linked From");
    build(outgoing_, "Links To");
    scroller_.set_policy(Gtk::PolicyType::NEVER, Gtk::PolicyType::AUTOMATIC);
    scroller_.set_child(page_);
    scroller_.set_vexpand(true);
    message_ = ADW_STATUS_PAGE(adw_status_page_new());
    gtk_widget_add_css_class(GTK_WIDGET(message_), "compact");
    stack_.add(scroller_, "links");
    gtk_stack_add_named(stack_.gobj(), GTK_WIDGET(message_), "message");
    stack_.set_vexpand(true);
    append(stack_);
}

void Inspector::build(List& list, const char* heading) {
    list.heading.set_text(heading);
    list.heading.add_css_class("heading");
    list.heading.set_xalign(0);
    list.heading.set_margin_top(8);
    list.rows.add_css_class("boxed-list");
    list.rows.set_selection_mode(Gtk::SelectionMode::NONE);
    setAccessibleName(list.rows, heading);
    list.rows.signal_row_activated().connect([this, &list](Gtk::ListBoxRow* row) {
        const auto chosen = list.shown[static_cast<std::size_t>(row->get_index())];
        if (onOpen) onOpen(chosen.path, chosen.title);
    });
    list.nothing.add_css_class("dim-label");
    list.nothing.set_wrap(true);
    list.nothing.set_max_width_chars(24);
    list.nothing.set_xalign(0);
    page_.append(list.heading);
    page_.append(list.rows);
    page_.append(list.nothing);
}

void Inspector::fill(List& list, const std::vector<LinkRow>& rows, const std::string& nothing) {
    list.shown = rows;
    while (auto* row = list.rows.get_row_at_index(0)) list.rows.remove(*row);
    for (const auto& link : rows) {
        auto* row = ADW_ACTION_ROW(adw_action_row_new());
        adw_preferences_row_set_use_markup(ADW_PREFERENCES_ROW(row), FALSE);
        adw_preferences_row_set_title(ADW_PREFERENCES_ROW(row), link.title.c_str());
        char* detail = g_markup_escape_text(link.detail.c_str(), -1);
        adw_action_row_set_subtitle(row, detail);
        g_free(detail);
        adw_action_row_set_title_lines(row, 1);
        adw_action_row_set_subtitle_lines(row, 2);
        gtk_list_box_row_set_activatable(GTK_LIST_BOX_ROW(row), TRUE);
        if (link.path.empty()) gtk_widget_add_css_class(GTK_WIDGET(row), "dim-label");
        gtk_list_box_append(list.rows.gobj(), GTK_WIDGET(row));
    }
    list.rows.set_visible(!rows.empty());
    list.nothing.set_visible(rows.empty());
    list.nothing.set_text(nothing);
}

void Inspector::showMessage(const char* icon, const std::string& title, const std::string& words) {
    adw_status_page_set_icon_name(message_, icon);
    adw_status_page_set_title(message_, title.c_str());
    adw_status_page_set_description(message_, words.c_str());
    stack_.set_visible_child("message");
}

void Inspector::showLinks(const std::vector<LinkRow>& backlinks, const std::vector<LinkRow>& outgoing,
                          const std::string& noBacklinks) {
    fill(backlinks_, backlinks, noBacklinks);
    fill(outgoing_, outgoing, "This note doesn't link anywhere.");
    stack_.set_visible_child("links");
}

}  // namespace vesk::views
