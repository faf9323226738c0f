#include "Vesk/Views/InspectorTabs.h"

namespace vesk::views {

InspectorTabs::InspectorTabs() : Gtk::Box(Gtk::Orientation::VERTICAL) {
    add_css_class("inspector");
    switcher_.set_stack(stack_);
    switcher_.set_halign(Gtk::Align::FILL);
    switcher_.add_css_class("inspector-switcher");
    switcher_.set_visible(false);
    stack_.set_vexpand(true);
    // What stands in it would take room from the note.
    set_hexpand(false);
    stack_.set_hhomogeneous(false);
    stack_.property_visible_child().signal_changed().connect([this] {
        if (onChanged) onChanged();
    });
    append(switcher_);
    append(stack_);
}

void InspectorTabs::add(Gtk::Widget& page, const char* name, const char* title) {
    stack_.add(page, name, title);
    switcher_.set_visible(++tabs_ > 1);
    // The buttons of the switcher share its width.
    for (auto* button = switcher_.get_first_child(); button; button = button->get_next_sibling())
        button->set_hexpand(true);
}

void InspectorTabs::show(const char* name) {
    stack_.set_visible_child(name);
}

}  // namespace vesk::views
