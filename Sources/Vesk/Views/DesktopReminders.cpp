// The bell of the open note.
#include <locale.h>

#include <algorithm>

#include "Vesk/Views/DesktopApplication.h"
#include "VeskCore/Support/PathText.h"
#include "VeskCore/Vault/ForeignEdit.h"

namespace vesk::views {
namespace {

/// As the person's times are written: "en_GB", without encoding and variant.
std::string timeLocale() {
    const char* name = setlocale(LC_TIME, nullptr);
    std::string locale = name ? name : "";
    locale.resize(std::min(locale.find_first_of(".@"), locale.size()));
    return locale.empty() || locale == "C" || locale == "POSIX" ? "en_US" : locale;
}

/// The title of the note that one is a kept copy of: only that one's reminder rings.
std::optional<std::string> silencedCopyOf(const Workspace& workspace, const std::string& path) {
    const auto name = stem(path);
    if (!ForeignEdit::isKeptCopy(name)) return {};
    for (auto end = name.find(" ("); end != name.npos; end = name.find(" (", end + 1)) {
        const auto original = joinedPath(parentFolder(path), name.substr(0, end));
        for (const char* extension : {".md", ".markdown"})
            if (const auto note = workspace.note(original + extension)) return note->title;
    }
    return {};
}

}  // namespace

void DesktopApplication::connectReminder() {
    auto& panel = window_->reminder();
    panel.menu = [this]() -> std::optional<ReminderMenu> {
        if (!openNote()) return {};
        return ReminderMenu::of(surface()->text(), silencedCopyOf(workspace_, *openNote()),
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
