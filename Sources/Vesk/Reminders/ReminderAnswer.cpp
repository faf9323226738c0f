#include "Vesk/Reminders/ReminderAnswer.h"

#include <cerrno>

#include "VeskCore/Platform/FilePlatform.h"
#include "VeskCore/Support/Match.h"
#include "VeskCore/Support/PathText.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Vault/AtomicWrite.h"

namespace vesk {

TimePoint ReminderAnswer::moment(TimePoint tappedAt, TimePoint now) {
    return Seconds(now - tappedAt) < tapHolds ? tappedAt : now;
}

void ReminderAnswer::carryOut(const ReminderAction& action, TimePoint tappedAt, TimePoint now,
                              const Calendar& calendar, NotificationService& service) {
    const Vault vault(action.vault);
    AtomicWrite::refuseDocument(FilePath(action.path));
    // A vault on a disk that isn't there now hasn't lost its notes.
    if (!FilePlatform::current().files->info(vault.root()))
        throw SystemError(ENOENT, "open", vault.root().native());
    const auto file = vault.absolutePath(action.path);
    const auto text = CoordinatedIO::readForSave(file);
    if (!text) return;
    const auto title = decodedText(std::string(stem(action.path)));
    const auto body = [](const std::string& note) {
        return NoteReminder::summary(note, ReminderCenter::summaryLength);
    };
    using Outcome = NoteReminder::ActionOutcome;
    match(
        NoteReminder::applying(action.kind, *text, moment(tappedAt, now), calendar),
        [&](const Outcome::Write& write) {
            CoordinatedIO::replaceText(file, write.text, *text);
            if (action.kind == ReminderAction::Kind::done)
                service.removePending({NoteReminder::snoozeIdentifier(action.path)});
            const auto date = NoteReminder::reminder(write.text, calendar);
            if (!date) return;
            const NoteReminder::Reminder next{.path = action.path,
                                              .title = title,
                                              .date = *date,
                                              .repeatRule = NoteReminder::repeatRule(write.text)};
            for (const auto& wanted : NoteReminder::requests(next, now, calendar))
                service.add(ReminderCenter::request(
                    wanted.identifier, vault.root(), wanted.path, wanted.title, body(write.text),
                    ReminderCenter::trigger(wanted.components, wanted.repeats)));
        },
        [&](const Outcome::LocalSnooze& snooze) {
            service.add(ReminderCenter::request(
                NoteReminder::snoozeIdentifier(action.path), vault.root(), action.path, title, body(*text),
                ReminderCenter::trigger(NoteReminder::calendarFields(snooze.date, calendar), false)));
        },
        [](const Outcome::Nothing&) {});
}

}  // namespace vesk
