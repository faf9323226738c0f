// The pane at the right: links and the assistant, one at a time.
#pragma once

#include <functional>

#include "Vesk/Views/Toolkit.h"

namespace vesk::views {

class InspectorTabs final : public Gtk::Box {
public:
    InspectorTabs();
    /// With the first tab the switcher stays away; it comes with the second.
    void add(Gtk::Widget& page, const char* name, const char* title);
    void show(const char* name);
    std::string shown() const { return stack_.get_visible_child_name(); }
    std::function<void()> onChanged;

private:
    Gtk::StackSwitcher switcher_;
    Gtk::Stack stack_;
    int tabs_ = 0;
};

}  // namespace vesk::views
