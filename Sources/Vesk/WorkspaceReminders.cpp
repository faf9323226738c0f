// Reminders and priorities changed from rows and notifications, also for notes that aren't here yet.
#include <algorithm>

#include "Vesk/Reminders/ReminderAnswer.h"
#include "Vesk/WorkspaceTasks.h"
#include "VeskCore/Platform/FilePlatform.h"
#include "VeskCore/Support/Localised.h"
#include "VeskCore/Support/PathText.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Vault/AtomicWrite.h"
#include "VeskCore/Vault/VaultWriteError.h"

namespace vesk {

namespace {

std::string quotedName(std::string_view path) {
    return "“" + decodedText(std::string(stem(path))) + "”";
}

std::string_view verbOf(ReminderAction::Kind kind) {
    switch (kind) {
        case ReminderAction::Kind::done:
            return "marked done";
        case ReminderAction::Kind::snooze:
            return "snoozed";
    }
    return {};
}

std::string saidMark(ReminderAction::Kind kind, const std::string& path) {
    return std::string(verbOf(kind)) + "\n" + path;
}

bool isEmptyButSized(const Vault& vault, const std::string& path, const std::string& text) {
    if (!text.empty()) return false;
    const auto info = FilePlatform::current().files->info(vault.absolutePath(path));
    return info && info->size > 0;
}

}  // namespace

std::string Workspace::titleOf(const std::string& path) const {
    const auto listed = note(path);
    return listed ? listed->title : decodedText(std::string(lastComponent(path)));
}

bool Workspace::waitingForIndex(std::function<void()> action) {
    if (!session.get() || !session.get()->indexing.get()) return false;
    waitingForIndex_.push_back(std::move(action));
    return true;
}

void Workspace::applyReminderAction(const std::string& path, ReminderAction::Kind kind, TimePoint tappedAt,
                                    bool retrying) {
    if (!session.get()) return;
    if (waitingForIndex([=, this] { applyReminderAction(path, kind, tappedAt, retrying); })) return;
    services_.bridge.flushAllPendingSaves();
    const auto couldnt = localised("Couldn't update that reminder: ");
    const auto name = quotedName(path);
    std::optional<std::string> text;
    try {
        text = CoordinatedIO::readForSave(vault.get()->absolutePath(path));
        if (text && isEmptyButSized(*vault.get(), path, *text)) {
            if (needsDownload(UbiquityStatus::of(vault.get()->absolutePath(path))))
                return oweReminderAction(path, {kind, tappedAt});
            forgetOwedReminderAction(path);
            return fail(couldnt + localised("{} couldn't be read.", name));
        }
    } catch (const VaultWriteError& error) {
        if (error.kind == VaultWriteError::Kind::notCurrent) return oweReminderAction(path, {kind, tappedAt});
        forgetOwedReminderAction(path);
        return fail(couldnt + error.description());
    } catch (const Error&) {
        if (UbiquityStatus::isEvictionError(std::current_exception()))
            return oweReminderAction(path, {kind, tappedAt});
        forgetOwedReminderAction(path);
        return fail(couldnt + describe(std::current_exception()));
    }
    if (!text) {
        if (!retrying) return;
        forgetOwedReminderAction(path);
        return fail(localised(kind == ReminderAction::Kind::done
                                  ? marked("{} was moved or deleted on another device before the reminder "
                                           "could be marked done, so it wasn't changed.")
                                  : marked("{} was moved or deleted on another device before the reminder "
                                           "could be snoozed, so it wasn't changed."),
                              name));
    }
    forgetOwedReminderAction(path);

    using Outcome = NoteReminder::ActionOutcome;
    const TimePoint moment = ReminderAnswer::moment(tappedAt, services_.clock.now());
    match(
        NoteReminder::applying(kind, *text, moment, services_.calendar()),
        [&](const Outcome::Write& write) {
            try {
                const ForeignEdit::Disk expected{ForeignEdit::Disk::Text{*text}};
                if (write.text != *text)
                    session.get()->write(write.text, vault.get()->absolutePath(path), &expected);
            } catch (const std::exception&) {
                return fail(couldnt + describe(std::current_exception()));
            }
            if (kind == ReminderAction::Kind::done) services_.reminderCenter.cancelSnooze(path);
        },
        [&](const Outcome::LocalSnooze& snooze) {
            services_.reminderCenter.snooze(path, snooze.date, titleOf(path),
                                            NoteReminder::summary(*text, ReminderCenter::summaryLength));
        },
        [](const Outcome::Nothing&) {});
}

void Workspace::openFromReminder(const std::string& path, const std::string& root) {
    if (root.empty() || isOpen(root)) return select(path);
    openAndRemember(root, [this, path](bool opened) {
        if (opened) select(path);
    });
}

void Workspace::oweReminderAction(const std::string& path, OwedAction action) {
    owedReminderActions_.insert_or_assign(path, action);
    session.get()->awaitCurrentVersion(path);
    if (!owedReminderSaid_.insert(saidMark(action.kind, path)).second) return;
    fail(localised(action.kind == ReminderAction::Kind::done
                       ? marked("A newer version of {} is still downloading from iCloud. The reminder will "
                                "be marked done once it arrives.")
                       : marked("A newer version of {} is still downloading from iCloud. The reminder will "
                                "be snoozed once it arrives."),
                   quotedName(path)));
}

void Workspace::forgetOwedReminderAction(const std::string& path) {
    owedReminderActions_.erase(path);
    for (const auto kind : {ReminderAction::Kind::done, ReminderAction::Kind::snooze})
        owedReminderSaid_.erase(saidMark(kind, path));
}

void Workspace::retryOwedReminderActions() {
    const auto owed = std::exchange(owedReminderActions_, {});
    std::vector<std::pair<std::string, OwedAction>> inOrder(owed.begin(), owed.end());
    std::stable_sort(inOrder.begin(), inOrder.end(),
                     [](const auto& a, const auto& b) { return a.second.tappedAt < b.second.tappedAt; });
    for (const auto& [path, action] : inOrder) applyReminderAction(path, action.kind, action.tappedAt, true);
}

void Workspace::rewriteFromRow(const std::string& path, std::string_view what,
                               const std::function<std::string(const std::string&)>& change) {
    services_.bridge.flushAllPendingSaves();
    const auto couldnt = [&](std::string_view why) {
        fail(localised("Couldn't change {}: “{}” {}", what, titleOf(path), why));
    };
    const auto file = vault.get()->absolutePath(path);
    try {
        const auto text = CoordinatedIO::readForSave(file);
        if (!text) return couldnt(localised("is no longer there."));
        if (isEmptyButSized(*vault.get(), path, *text)) {
            if (needsDownload(UbiquityStatus::of(file)))
                return fail(
                    localised("That note hasn't downloaded from iCloud yet — try again in a moment."));
            return couldnt(localised("couldn't be read."));
        }
        const auto changed = change(*text);
        const ForeignEdit::Disk expected{ForeignEdit::Disk::Text{*text}};
        if (changed != *text) session.get()->write(changed, file, &expected);
    } catch (const VaultWriteError& error) {
        if (error.kind == VaultWriteError::Kind::notCurrent)
            return fail(localised("That note hasn't downloaded from iCloud yet — try again in a moment."));
        couldnt(localised("couldn't be read."));
    } catch (const std::exception&) {
        couldnt(localised("couldn't be read."));
    }
}

void Workspace::setReminder(const std::string& path, std::optional<TimePoint> date,
                            std::optional<NoteReminder::Repeat> repeat) {
    if (!date) return removeReminder(path);
    if (waitingForIndex([=, this] { setReminder(path, date, repeat); }) || !session.get()) return;
    services_.reminderCenter.requestPermissionIfNeeded();
    rewriteFromRow(path, localised("the reminder"), [&](const std::string& text) {
        return NoteReminder::setting(date, repeat, text, services_.calendar());
    });
}

void Workspace::removeReminder(const std::string& path) {
    if (waitingForIndex([=, this] { removeReminder(path); }) || !session.get()) return;
    rewriteFromRow(path, localised("the reminder"), [&](const std::string& text) {
        return NoteReminder::setting(std::nullopt, text, services_.calendar());
    });
    services_.reminderCenter.cancelSnooze(path);
}

void Workspace::setPriority(const std::string& path, bool flagged) {
    if (waitingForIndex([=, this] { setPriority(path, flagged); }) || !session.get()) return;
    rewriteFromRow(path, localised("the priority"),
                   [&](const std::string& text) { return NotePriority::setting(flagged, text); });
}

}  // namespace vesk
