// The bell at a note, and the panel behind it.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "Vesk/Reminders/ReminderMenu.h"
#include "Vesk/Views/Toolkit.h"

namespace vesk::views {

class ReminderPopover final : public Gtk::Popover {
public:
    ReminderPopover();

    /// Asked for each time that the panel opens, and when something in it was set; none without a note.
    std::function<std::optional<ReminderMenu>()> menu;
    std::function<ReminderMenu::Reading(const std::string& phrase)> reading;
    std::function<void(TimePoint date, std::optional<NoteReminder::Repeat> rule)> onSet;
    std::function<void()> onRemove;
    std::function<void(bool flagged)> onFlagged;

private:
    void fill();
    void read();
    void enter();
    void set(TimePoint date);
    std::optional<NoteReminder::Repeat> chosenRule() const;

    Gtk::Box page_{Gtk::Orientation::VERTICAL, 6};
    Gtk::Label headline_, summary_, silenced_, read_;
    Gtk::Entry phrase_;
    Gtk::Box picks_{Gtk::Orientation::VERTICAL};
    Gtk::DropDown rules_;
    Gtk::CheckButton flagged_{_("High priority")};
    Gtk::Button remove_{ReminderMenu::removeLabel};
    std::optional<ReminderMenu> shown_;
    bool isFilling_ = false;
};

}  // namespace vesk::views
