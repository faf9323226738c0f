// What becomes of text that an earlier run could not save.
#include "VeskCore/Reminders/NoteReminder.h"
#include "VeskCore/Support/Match.h"
#include "VeskCore/Vault/HeldTextStore.h"

namespace vesk {

namespace {

using Recovery = HeldTextStore::Recovery;
using NoteOnDisk = HeldTextStore::NoteOnDisk;

/// The text with its reminder taken off: a copy must not ring a second time.
std::string bareText(const std::string& text, const Calendar& calendar) {
    return NoteReminder::setting(std::nullopt, std::nullopt, text, calendar);
}

Recovery asCopy(const std::string& text, const Calendar& calendar) {
    std::string bare = bareText(text, calendar);
    const bool leftOff = bare != text;
    return {Recovery::Copy{std::move(bare), leftOff}};
}

Recovery againstNote(const HeldTextStore::Entry& entry, const std::string& note, const Calendar& calendar) {
    if (note == entry.text) return {Recovery::Plain::alreadyInNote};
    if (entry.baseline) {
        auto change = ForeignEdit::reminderKeyChange(*entry.baseline, entry.text);
        if (change &&
            ForeignEdit::reminderKeyValues(note) == ForeignEdit::reminderKeyValues(*entry.baseline)) {
            return {Recovery::ApplyKeys{std::move(*change)}};
        }
    }
    if (ForeignEdit::reminderKeyChange(note, entry.text)) return {Recovery::Plain::onlyReminderKeys};
    return asCopy(entry.text, calendar);
}

Recovery ofTrashedNote(const HeldTextStore::Entry& entry, const NoteOnDisk& note, const Calendar& calendar) {
    const auto* gone = std::get_if<NoteOnDisk::Gone>(&note.value);
    if (gone && gone->trashedText == entry.text) return {Recovery::Plain::noteTrashed};
    return {Recovery::KeepInTrash{bareText(entry.text, calendar)}};
}

}  // namespace

HeldTextStore::Recovery HeldTextStore::recovery(const Entry& entry, const NoteOnDisk& note,
                                                const Calendar& calendar) {
    if (entry.trashed) return ofTrashedNote(entry, note, calendar);
    return match(
        note, [](const NoteOnDisk::NotCurrent&) -> Recovery { return {Recovery::Plain::wait}; },
        [&](const NoteOnDisk::Gone& gone) -> Recovery {
            if (gone.inTrash) return {Recovery::KeepInTrash{bareText(entry.text, calendar)}};
            return asCopy(entry.text, calendar);
        },
        [&](const NoteOnDisk::Text& disk) -> Recovery { return againstNote(entry, disk.text, calendar); });
}

}  // namespace vesk
