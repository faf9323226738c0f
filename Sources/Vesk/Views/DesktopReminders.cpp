// The bell of the open note.
#include <locale.h>

#include <algorithm>

#include "Vesk/Views/DesktopApplication.h"

namespace vesk::views {
namespace {

/// As the person's times are written: "en_GB", without encoding and variant.
std::string timeLocale() {
    const char* name = setlocale(LC_TIME, nullptr);
    std::string locale = name ? name : "";
    locale.resize(std::min(locale.find_first_of(".@"), locale.size()));
    return locale.empty() || locale == "C" || locale == "POSIX" ? "en_US" : locale;
}

}  // namespace

void DesktopApplication::connectReminder() {
    auto& panel = window_->reminder();
    panel.menu = [this]() -> std::optional<ReminderMenu> {
        if (!openNote()) return {};
        return ReminderMenu::of(surface()->text(),
                                ReminderMenu::silencedCopyOf(*openNote(), workspace_.notes.get()),
                                seams_.clock.now(), Calendar::system(), timeLocale());
    };
    panel.reading = [this](const std::string& phrase) {
        return ReminderMenu::reading(phrase, seams_.clock.now(), Calendar::system(), timeLocale());
    };
    panel.onSet = [this](TimePoint date, std::optional<NoteReminder::Repeat> rule) {
        if (const auto path = openNote()) workspace_.setReminder(*path, date, rule);
    };
    panel.onRemove = [this] {
        if (const auto path = openNote()) workspace_.removeReminder(*path);
    };
    panel.onFlagged = [this](bool flagged) {
        if (const auto path = openNote()) workspace_.setPriority(*path, flagged);
    };
}

}  // namespace vesk::views
