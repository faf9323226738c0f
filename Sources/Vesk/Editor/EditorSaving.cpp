// The editor's side of saving: what each outcome means for the text on screen, and text that can't be saved.
#include <fmt/format.h>

#include <algorithm>
#include <system_error>
#include <utility>

#include "Vesk/Editor/EditorSurface.h"
#include "VeskCore/Support/Localised.h"
#include "VeskCore/Support/Match.h"
#include "VeskCore/Support/PathText.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Vault/VaultTrash.h"

namespace vesk {

namespace {

/// Of the failure being handled. The notice names the note, so that what the system calls the file is left
/// out.
std::string reasonInWords() {
    try {
        throw;
    } catch (const SystemError& error) {
        return std::generic_category().message(error.code) + ".";
    } catch (const std::exception&) {
        return describe(std::current_exception());
    }
}

using Outcome = ForeignEdit::Outcome;

bool endsInTrash(const Outcome& outcome) {
    if (const auto* followed = std::get_if<Outcome::FollowedMove>(&outcome.value))
        return endsInTrash(*followed->inner);
    const auto* plain = std::get_if<Outcome::Plain>(&outcome.value);
    return plain && *plain == Outcome::Plain::noteTrashed;
}

/// Where the text of a save at `path` lies after it.
std::string placeAfter(const Outcome& outcome, const std::string& path) {
    if (const auto* followed = std::get_if<Outcome::FollowedMove>(&outcome.value))
        return placeAfter(*followed->inner, followed->to);
    const auto* kept = std::get_if<Outcome::KeptAsCopy>(&outcome.value);
    return kept ? kept->copyPath : path;
}

std::string nameOf(std::string_view path) {
    return decodedText(std::string(stem(path)));
}

}  // namespace

void EditorSurface::write(const std::string& text, const std::string& path, bool waitingForNewerVersion) {
    const auto baseline = baselineOf(path);
    std::string place = path;
    const bool isShown = loadedPath_ == path;
    bool arrivesAtShown = false;
    std::optional<SaveNotice> trouble;
    try {
        const auto outcome = session_->saveEditorText(text, path, baseline, waitingForNewerVersion);
        if (text != baseline) keepUnlessTrashed(outcome, text, path);
        letGoOf(path);
        record(outcome, text, path);
        show(std::nullopt, path);
        place = placeAfter(outcome, path);
        arrivesAtShown = !isShown && place != path;
        if (loadedPath_ == path && olderCopyPath.get() == path) olderCopyPath.set(std::nullopt);
        saved.send(path, text, outcome);
    } catch (const ForeignEdit::CopyKeptButSaveFailed& error) {
        ledger_.baselines.insert_or_assign(path, holdsNow(text, path) ? text : error.preservedText);
        trouble = SaveNotice{path, SaveNotice::Failed{error.description()}};
    } catch (const NewerVersionDownloading& error) {
        trouble = SaveNotice{path, SaveNotice::Waiting{error.description()}};
    } catch (const std::exception&) {
        trouble = SaveNotice{path, SaveNotice::Failed{reasonInWords()}};
        // What failed last may have been only the way to stable storage: what stands in the file then is no
        // other device's text.
        if (holdsNow(text, path)) ledger_.baselines.insert_or_assign(path, text);
    }
    if (trouble) {
        hold(text, path);
        show(std::move(trouble), std::nullopt);
    }
    // Another note's text that came to the place of the shown one is news to it.
    if (loadedPath_ == place && !arrivesAtShown) ledger_.seenRevision = session_->diskRevisionOf(place);
}

std::optional<std::string> EditorSurface::baselineOf(const std::string& path) const {
    const auto known = ledger_.baselines.find(path);
    return known == ledger_.baselines.end() ? std::nullopt : std::optional(known->second);
}

bool EditorSurface::holdsNow(const std::string& text, const std::string& path) const {
    try {
        return CoordinatedIO::readForSave(session_->vault().absolutePath(path)) == text;
    } catch (const std::exception&) {
        return false;
    }
}

/// Text for a note in the trash stays with the note: what the trashed file doesn't hold goes beside it.
void EditorSurface::keepUnlessTrashed(const Outcome& outcome, const std::string& text,
                                      const std::string& path) {
    if (!endsInTrash(outcome)) return;
    const auto moved = session_->departures().destination(path);
    VaultTrash(session_->vault()).keepMissingText(text, moved.value_or(path));
}

void EditorSurface::record(const Outcome& outcome, const std::string& text, const std::string& path) {
    const auto baseline = [&](const std::string& at, const std::string& value) {
        ledger_.baselines.insert_or_assign(at, value);
    };
    match(
        outcome, [&](const Outcome::DiskWins& disk) { takeOver(disk.text, text, path); },
        [&](const Outcome::Merged& merged) { takeOver(merged.text, text, path); },
        [&](const Outcome::KeptBoth& kept) {
            baseline(path, text);
            show(SaveNotice{path, SaveNotice::KeptBoth{kept.copyPath}}, std::nullopt);
        },
        [&](const Outcome::FollowedMove& followed) {
            // The shown text is at its new place before the inner outcome may replace it.
            if (loadedPath_ == path) makeWayFor(path, followed.to);
            const bool isOpenThere = loadedPath_ == followed.to || ledger_.unsaved.contains(followed.to);
            const auto openThere = baselineOf(followed.to);
            followShown(path, followed.to);
            if (const auto own = baselineOf(path)) baseline(followed.to, *own);
            record(*followed.inner, text, followed.to);
            if (const auto there = baselineOf(followed.to)) baseline(path, *there);
            // A note that is edited at the new path too was read before this text came: its own save has to
            // meet this text as another's.
            if (isOpenThere) {
                if (openThere) {
                    baseline(followed.to, *openThere);
                } else {
                    ledger_.baselines.erase(followed.to);
                }
            }
            const auto& inner = followed.inner->value;
            if (std::holds_alternative<Outcome::KeptBoth>(inner) ||
                std::holds_alternative<Outcome::KeptAsCopy>(inner))
                return;
            show(SaveNotice{path, SaveNotice::Followed{followed.to}}, std::nullopt);
        },
        [&](const Outcome::KeptAsCopy& kept) {
            const auto openThere = baselineOf(kept.copyPath);
            makeWayFor(path, kept.copyPath);
            baseline(path, text);
            // A note that was shown at the copy's place and went has to meet the copy as another's text.
            const bool isOpenThere = loadedPath_ == kept.copyPath && openThere;
            baseline(kept.copyPath, isOpenThere ? *openThere : text);
            followShown(path, kept.copyPath);
            show(SaveNotice{path, SaveNotice::Recovered{kept.copyPath}}, std::nullopt);
        },
        [&](Outcome::Plain plain) {
            if (plain != Outcome::Plain::noteTrashed) baseline(path, text);
        });
}

/// The note holds `disk` now, not the text that was saved.
void EditorSurface::takeOver(const std::string& disk, const std::string& text, const std::string& path) {
    if (loadedPath_ != path) {
        ledger_.baselines.insert_or_assign(path, disk);
        return;
    }
    // A buffer that has moved on keeps its baseline, so that its own save meets the other text anew.
    if (text_ != text || coordinator_.hasUnsavedEdit()) return;
    ledger_.baselines.insert_or_assign(path, disk);
    if (disk != text_) replaceText(disk);
}

/// On a later turn, so that the notice of the note being left outlives the load of the next.
void EditorSurface::show(std::optional<SaveNotice> next, const std::optional<std::string>& ifUnsavedFor) {
    services_.mainQueue.post([weak = weak_from_this(), next = std::move(next), ifUnsavedFor] {
        auto surface = weak.lock();
        if (!surface) return;
        if (ifUnsavedFor) {
            const auto& present = surface->notice.get();
            const bool unsaved = present && present->notePath == *ifUnsavedFor &&
                                 (std::holds_alternative<SaveNotice::Failed>(present->kind) ||
                                  std::holds_alternative<SaveNotice::Waiting>(present->kind));
            if (!unsaved) return;
        }
        surface->notice.setIfChanged(next);
    });
}

void EditorSurface::dismissNotice() {
    notice.setIfChanged(std::nullopt);
}

void EditorSurface::hold(const std::string& text, const std::string& path) {
    ledger_.unsaved.insert_or_assign(path, text);
    session_->heldText().keep(text, path, ownerOf(path), baselineOf(path));
    // While it holds text the handle keeps the surface, which is all that can save it.
    auto self = weak_from_this().lock();
    if (!self) return;
    handle_->retryHeld = [self] { return self->retryHeldBeforeLeaving(); };
    handle_->heldText = [self] { return self->ledger_.unsaved; };
    handle_->letGo = [self] {
        self->ledger_.unsaved.clear();
        self->ledger_.owners.clear();
    };
    bridge_.hold(handle_);
}

void EditorSurface::letGoOf(const std::string& path) {
    ledger_.unsaved.erase(path);
    session_->heldText().discard(path, ownerOf(path));
    ledger_.owners.erase(path);
}

const std::string& EditorSurface::ownerOf(const std::string& path) {
    if (const auto known = ledger_.owners.find(path); known != ledger_.owners.end()) return known->second;
    const auto isTaken = [&](const std::string& owner) {
        return std::any_of(ledger_.owners.begin(), ledger_.owners.end(),
                           [&](const auto& entry) { return entry.second == owner; });
    };
    std::string owner = ledger_.id;
    for (int number = 2; isTaken(owner); ++number) owner = fmt::format("{} {}", ledger_.id, number);
    return ledger_.owners[path] = std::move(owner);
}

/// A note has gone from a place that another comes to now. What was typed into it and not saved can't be
/// saved there any more and becomes a copy.
void EditorSurface::makeWayFor(const std::string& from, const std::string& to) {
    const auto isDisplaced = [&](const std::string& path) {
        return isAtOrBelow(path, to) && !isAtOrBelow(path, from);
    };
    if (loadedPath_ && isDisplaced(*loadedPath_) && isLoaded() && baselineOf(*loadedPath_) != text_)
        ledger_.unsaved.insert_or_assign(*loadedPath_, text_);
    const auto unsaved = ledger_.unsaved;
    for (const auto& [path, text] : unsaved) {
        if (!isDisplaced(path)) continue;
        const auto copy = ForeignEdit::recoveredCopyPath(path, [&](const std::string& candidate) {
            try {
                return ledger_.unsaved.contains(candidate) ||
                       session_->vault().isNameTaken(session_->vault().absolutePath(candidate));
            } catch (const Error&) {
                return false;  // the save looks again
            }
        });
        session_->reserveName(copy);
        const std::string owner = ownerOf(path);
        // It begins anew under the copy's name: nothing that is known of either path is followed.
        ledger_.unsaved.erase(path);
        ledger_.baselines.erase(copy);
        followShown(path, copy);
        write(text, copy, false);
        const bool isUnsaved = ledger_.unsaved.contains(copy);
        if (!isUnsaved) show(SaveNotice{path, SaveNotice::Recovered{copy}}, std::nullopt);
        // Where the store's disk refuses, what it has of the text stays under the old name.
        if (isUnsaved && !session_->heldText().keep(text, copy, ownerOf(copy), std::nullopt)) continue;
        session_->heldText().discard(path, owner);
        ledger_.owners.erase(path);
    }
    std::erase_if(ledger_.baselines, [&](const auto& entry) { return isDisplaced(entry.first); });
}

std::vector<std::string> EditorSurface::retryHeldBeforeLeaving() {
    const auto held = ledger_.unsaved;
    for (const auto& [path, text] : held) {
        // One that another's save made way for has been tried under its new name.
        const auto now = ledger_.unsaved.find(path);
        if (now != ledger_.unsaved.end() && now->second == text) write(text, path, false);
    }
    std::vector<std::string> names;
    for (const auto& entry : ledger_.unsaved) names.emplace_back(stem(entry.first));
    std::sort(names.begin(), names.end());
    return names;
}

void EditorSurface::retrySave() {
    const auto present = notice.get();
    if (!present || !(std::holds_alternative<SaveNotice::Failed>(present->kind) ||
                      std::holds_alternative<SaveNotice::Waiting>(present->kind)))
        return;
    const std::string path = present->notePath;
    if (loadedPath_ == path && isLoaded()) {
        // A second save of the same text would meet what the first has merged.
        coordinator_.dropSave();
        return write(std::string(text_), path, true);
    }
    if (const auto held = ledger_.unsaved.find(path); held != ledger_.unsaved.end())
        write(std::string(held->second), path, true);
}

EditorSurface::Banner EditorSurface::banner(const SaveNotice& notice, bool noteIsShown) {
    const auto name = nameOf(notice.notePath);
    const auto retry = [&] {
        return std::vector<std::string>{localised(noteIsShown ? marked("Try Again") : marked("Open Note"))};
    };
    return match(
        notice.kind,
        [&](const SaveNotice::KeptBoth& kept) -> Banner {
            return {
                localised("“{}” also changed on another device", name),
                localised(
                    "Nothing was lost. Your text is in the note, and the other version is beside it as {}",
                    nameOf(kept.copyPath)),
                {localised("Show Other Version"), localised("Dismiss")}};
        },
        [&](const SaveNotice::Failed& failure) -> Banner {
            return {localised("Couldn't save “{}”", name),
                    localised("{} Your text is still here. Vesk tries again the next time you type, or "
                              "now with Try Again.",
                              failure.message),
                    retry()};
        },
        [&](const SaveNotice::Waiting& waiting) -> Banner {
            return {localised("Waiting for iCloud before saving “{}”", name),
                    localised(
                        noteIsShown
                            ? marked("{} Your text is safe here, and is saved against the newer version when "
                                     "it arrives.")
                            : marked("{} Your text is kept in Vesk, and goes back into the note when you "
                                     "open it."),
                        waiting.message),
                    retry()};
        },
        [&](const SaveNotice::Followed& followed) -> Banner {
            return {localised("“{}” was moved or renamed while you were typing", name),
                    localised("Nothing was lost. Your text went with it, to “{}”", decodedText(followed.to)),
                    {localised("Show Note"), localised("Dismiss")}};
        },
        [&](const SaveNotice::Recovered& recovered) -> Banner {
            return {localised("“{}” was moved or deleted elsewhere while you were typing", name),
                    localised("Nothing was lost. It isn't brought back where it was; your text is kept as "
                              "“{}”",
                              nameOf(recovered.copyPath)),
                    {localised("Show Note"), localised("Dismiss")}};
        });
}

}  // namespace vesk
