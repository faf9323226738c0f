// Which model answers: a button with a list of every provider, its models with their prices, or why it can't
// be asked.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Vesk/AI/BrainSession.h"
#include "Vesk/Views/Toolkit.h"

namespace vesk::views {

class AssistantPicker final {
public:
    AssistantPicker(std::shared_ptr<BrainSession> brain, std::function<void()> openSettings);
    AssistantPicker(const AssistantPicker&) = delete;
    AssistantPicker& operator=(const AssistantPicker&) = delete;
    Gtk::MenuButton& button() { return button_; }

private:
    void refresh();
    void fill();
    void addProvider(const ProviderOption& option);

    struct Choice {
        BrainProviderID provider;
        std::string model;
    };
    std::shared_ptr<BrainSession> brain_;
    Gtk::MenuButton button_;
    Gtk::Box shown_;
    Gtk::Label summary_;
    Gtk::Popover popover_;
    Gtk::Box page_{Gtk::Orientation::VERTICAL}, list_{Gtk::Orientation::VERTICAL},
        bar_{Gtk::Orientation::HORIZONTAL, 6};
    Gtk::ScrolledWindow scroller_;
    Gtk::Spinner spinner_;
    Gtk::Button settings_, again_;
    std::vector<Subscription> subscriptions_;
};

}  // namespace vesk::views
