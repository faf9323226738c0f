// The door through which text reaches the vault, and telling own writes from foreign ones.
#include <utility>

#include "Vesk/SessionTasks.h"
#include "VeskCore/Support/Match.h"
#include "VeskCore/Support/PathText.h"
#include "VeskCore/Vault/AtomicWrite.h"

namespace vesk {

namespace {

/// The watcher's ignore window and half a second more.
constexpr auto echoWindow = std::chrono::duration_cast<Duration>(Seconds{2.5});
constexpr auto versionPeriod = std::chrono::duration_cast<Duration>(Seconds{1});
constexpr int versionRounds = 60;

bool stillDownloading(const VaultWriteError& error) {
    return error.kind == VaultWriteError::Kind::notCurrent;
}

}  // namespace

/// What became of a file that this session wrote, or tried to write, once its events are told again.
enum class VaultSession::Echo { alone, changed, gone };

/// As far as that can be told. A write that failed has written nothing that is known.
VaultSession::Echo VaultSession::echoOf(const Vault& vault, const FilePath& file,
                                        const std::optional<std::string>& wrote) {
    try {
        if (!vault.isNameTaken(file)) return Echo::gone;
        if (!wrote || needsDownload(UbiquityStatus::of(file))) return Echo::changed;
        const auto text = CoordinatedIO::read(file);
        return text && *text != LineEndings::normalized(*wrote) ? Echo::changed : Echo::alone;
    } catch (const Error&) {
        return Echo::alone;
    }
}

void VaultSession::write(const std::string& text, const FilePath& path, const ForeignEdit::Disk* expected) {
    using Disk = ForeignEdit::Disk;
    watcher_->ignore(path);
    const auto relativePath = vault_.relativePath(path);
    try {
        if (expected) {
            match(
                *expected,
                [&](const Disk::Text& found) { CoordinatedIO::replaceText(path, text, found.text); },
                [&](Disk::Plain found) {
                    switch (found) {
                        case Disk::Plain::unreadable:
                            CoordinatedIO::writeText(path, text);
                            return;
                        case Disk::Plain::gone:
                            CoordinatedIO::replaceText(path, text, std::nullopt);
                            return;
                    }
                });
        } else {
            CoordinatedIO::writeText(path, text);
        }
    } catch (...) {
        // The watcher is deaf to the path all the same, whatever others do to it meanwhile.
        if (relativePath) recheckAfterEchoWindow(*relativePath, std::nullopt);
        throw;
    }
    if (!relativePath) return;
    reindexOne(*relativePath, &text);
    notesChanged({*relativePath});
    recheckAfterEchoWindow(*relativePath, text);
    if (isNoteLike(*relativePath) && onNoteWritten) onNoteWritten(*relativePath);
}

void VaultSession::recheckAfterEchoWindow(const std::string& path, const std::optional<std::string>& wrote) {
    if (tasks_->stopped) return;
    auto& check = tasks_->echoWindowChecks[path];
    check.cancel();
    check.number = ++tasks_->waitNumber;
    check.wrote = wrote;
    check.timer =
        services_.mainQueue.postAfter(echoWindow, [weak = weak_from_this(), path, number = check.number] {
            auto session = weak.lock();
            if (!session) return;
            auto& due = session->tasks_->echoWindowChecks[path];
            due.job = session->services_.background.run(
                Priority::utility, [&mainQueue = session->services_.mainQueue, weak, path, wrote = due.wrote,
                                    number, vault = session->vault_](const std::stop_token& stop) {
                    if (stop.stop_requested()) return;
                    const auto echo = echoOf(vault, vault.absolutePath(path), wrote);
                    postTo(mainQueue, weak, [path, number, echo](VaultSession& back) {
                        back.recheckEnded(path, number, echo);
                    });
                });
        });
}

void VaultSession::recheckEnded(const std::string& path, std::uint64_t number, Echo echo) {
    const auto check = tasks_->echoWindowChecks.find(path);
    if (check == tasks_->echoWindowChecks.end() || check->second.number != number) return;
    tasks_->echoWindowChecks.erase(check);
    switch (echo) {
        case Echo::alone:
            return;
        case Echo::changed:
            return announce(path);
        case Echo::gone:
            // Nobody told: the watcher took its going for the echo of the write.
            return apply({{vault_.absolutePath(path), path, {FileChange::Kind::Plain::deleted}}});
    }
}

void VaultSession::textShown(const std::string& path, std::string_view text) {
    const auto check = tasks_->echoWindowChecks.find(path);
    if (check != tasks_->echoWindowChecks.end() && check->second.wrote != text) check->second.wrote.reset();
}

ForeignEdit::Outcome VaultSession::saveEditorText(const std::string& text, const std::string& path,
                                                  const std::optional<std::string>& baseline,
                                                  bool waitingForNewerVersion) {
    auto outcome = saveOrKeepCopy(text, path, baseline, waitingForNewerVersion);
    noteOutcome(outcome, path);
    return outcome;
}

ForeignEdit::Outcome VaultSession::saveOrKeepCopy(const std::string& text, const std::string& path,
                                                  const std::optional<std::string>& baseline,
                                                  bool waitingForNewerVersion) {
    const ForeignEdit::Effects effects{
        .readDisk = [this](const std::string& place) { return editorDisk(place); },
        .write =
            [this](const std::string& content, const std::string& place, const ForeignEdit::Disk& expected) {
                write(content, vault_.absolutePath(place), &expected);
            },
        .exists =
            [this, &path](const std::string& place) {
                return vault_.isNameTaken(vault_.absolutePath(place)) ||
                       (place != path && reservedNames_.contains(place));
            },
    };
    try {
        return ForeignEdit::save(text, path, baseline, effects, ForeignEdit::Departures(departures_));
    } catch (const NewerVersionDownloading&) {
        if (waitingForNewerVersion) throw;
        const auto copy = ForeignEdit::recoveredCopyPath(path, effects.exists);
        effects.write(text, copy, {ForeignEdit::Disk::Plain::gone});
        return {ForeignEdit::Outcome::KeptAsCopy{copy}};
    }
}

void VaultSession::noteOutcome(const ForeignEdit::Outcome& outcome, const std::string& path) {
    using Outcome = ForeignEdit::Outcome;
    match(
        outcome, [&](const Outcome::DiskWins&) { departures_.arrived(path); },
        [&](const Outcome::Merged&) { departures_.arrived(path); },
        [&](const Outcome::KeptBoth&) {
            departures_.arrived(path);
            externalChange();
        },
        [&](const Outcome::FollowedMove& followed) {
            const auto& inner = followed.inner->value;
            const auto* plain = std::get_if<Outcome::Plain>(&inner);
            const bool settledElsewhere = std::holds_alternative<Outcome::KeptAsCopy>(inner) ||
                                          std::holds_alternative<Outcome::FollowedMove>(inner) ||
                                          (plain && *plain == Outcome::Plain::noteTrashed);
            if (!settledElsewhere) departures_.arrived(followed.to);
            externalChange();
        },
        [&](const Outcome::KeptAsCopy& kept) {
            departures_.moved(path, kept.copyPath);
            externalChange();
        },
        [&](Outcome::Plain plain) {
            if (plain != Outcome::Plain::noteTrashed) departures_.arrived(path);
        });
}

ForeignEdit::Disk VaultSession::editorDisk(const std::string& path) {
    using Disk = ForeignEdit::Disk;
    const FilePath file = vault_.absolutePath(path);
    if (!vault_.isNameTaken(file)) return {Disk::Plain::gone};
    const auto waitForVersion = [&] {
        awaitCurrentVersion(path);
        return NewerVersionDownloading(path);
    };
    try {
        auto text = CoordinatedIO::readForSave(file);
        if (!text) return {Disk::Plain::gone};
        // A save can give way to it, or leave it as it is.
        textShown(path, *text);
        return {Disk::Text{std::move(*text)}};
    } catch (const VaultWriteError& error) {
        if (!stillDownloading(error)) throw;
        throw waitForVersion();
    } catch (const SystemError&) {
        if (!UbiquityStatus::isEvictionError(std::current_exception())) throw;
        throw waitForVersion();
    }
}

void VaultSession::awaitCurrentVersion(const std::string& path) {
    if (tasks_->stopped || tasks_->currentVersionWaits.contains(path)) return;
    UbiquityStatus::requestDownload(vault_.absolutePath(path));
    auto& wait = tasks_->currentVersionWaits[path];
    wait.number = ++tasks_->waitNumber;
    versionRound(path);
}

void VaultSession::versionRound(const std::string& path) {
    auto& wait = tasks_->currentVersionWaits.at(path);
    ++wait.round;
    wait.timer =
        services_.mainQueue.postAfter(versionPeriod, [weak = weak_from_this(), path, number = wait.number] {
            auto session = weak.lock();
            if (!session) return;
            session->tasks_->currentVersionWaits.at(path).job = session->services_.background.run(
                Priority::utility, [&mainQueue = session->services_.mainQueue, weak, path, number,
                                    file = session->vault_.absolutePath(path)](const std::stop_token&) {
                    const bool here = !needsDownload(UbiquityStatus::of(file));
                    postTo(mainQueue, weak, [path, number, here](VaultSession& back) {
                        back.versionLooked(path, number, here);
                    });
                });
        });
}

void VaultSession::versionLooked(const std::string& path, std::uint64_t number, bool here) {
    const auto wait = tasks_->currentVersionWaits.find(path);
    if (wait == tasks_->currentVersionWaits.end() || wait->second.number != number) return;
    if (!here && wait->second.round < versionRounds) return versionRound(path);
    tasks_->currentVersionWaits.erase(wait);
    if (here) {
        announce(path);
    } else {
        parkPending(path);
    }
}

}  // namespace vesk
