// How file changes become index changes, and how those who watch hear of them.
#include <algorithm>
#include <utility>

#include "Vesk/SessionTasks.h"
#include "VeskCore/Platform/FilePlatform.h"
#include "VeskCore/Support/Match.h"
#include "VeskCore/Support/PathText.h"
#include "VeskCore/Vault/AtomicWrite.h"

namespace vesk {

namespace {

/// The index is a cache: what it refuses now, the next full reindex mends.
template <class Work>
void leniently(Work work) {
    try {
        work();
    } catch (const Error&) {
    }
}

/// With more changes at once the main thread would stand still for long: a full reindex in the background,
/// which reads only what is new, takes their place.
constexpr std::size_t bulkChanges = 100;

/// What one batch of changes comes to.
struct Batch {
    std::vector<std::string> notes;
    std::set<std::string> documents, removedDocuments;
};

}  // namespace

bool VaultSession::isNoteLike(std::string_view path) {
    return !Vault::isDocument(path);
}

void VaultSession::apply(const std::vector<FileChange>& changes) {
    Batch batch;
    const bool isBulk = changes.size() > bulkChanges;
    const auto appeared = [&](const std::string& path) {
        if (isNoteLike(path)) {
            if (!isBulk) reindexNote(path, nullptr);
            batch.notes.push_back(path);
        } else {
            batch.documents.insert(path);
        }
    };
    const auto left = [&](const std::string& path) {
        if (!isBulk) removeFromIndex(path);
        if (!isNoteLike(path)) batch.removedDocuments.insert(path);
    };
    const auto isHere = [&](const std::string& path) {
        bool here = false;
        leniently([&] { here = FilePlatform::current().files->exists(vault_.absolutePath(path)); });
        return here;
    };
    for (const auto& change : changes) {
        match(
            change.kind,
            [&](const FileChange::Kind::Renamed& renamed) {
                const auto& from = renamed.fromRelativePath;
                if (isNoteLike(from) && Vault::isSameKind(from, change.relativePath)) {
                    departures_.moved(from, change.relativePath);
                    heldText_.moved(from, change.relativePath);
                } else {
                    left(from);
                }
                appeared(change.relativePath);
            },
            [&](FileChange::Kind::Plain kind) {
                switch (kind) {
                    case FileChange::Kind::Plain::created:
                    case FileChange::Kind::Plain::modified:
                        appeared(change.relativePath);
                        return;
                    case FileChange::Kind::Plain::deleted:
                        // A file that is back may have come with an own write, which nobody tells of.
                        if (!isBulk && isHere(change.relativePath)) return appeared(change.relativePath);
                        left(change.relativePath);
                        return;
                }
            });
    }
    if (!batch.removedDocuments.empty()) {
        auto pending = pendingDocuments.get();
        std::erase_if(pending,
                      [&](const std::string& path) { return batch.removedDocuments.contains(path); });
        pendingDocuments.setIfChanged(std::move(pending));
        documentChanges.send(batch.removedDocuments);
    }
    indexDocuments(batch.documents);
    if (isBulk) {
        rebuildIndex();
    } else {
        refreshReminders(false);
    }
    refreshConflicts();
    notesChanged(batch.notes);
    changed.send();
    externalChange();
}

void VaultSession::reindexOne(const std::string& path, const std::string* written) {
    if (isNoteLike(path)) {
        if (reindexNote(path, written)) refreshReminders(false);
    } else {
        indexDocuments({path});
    }
}

/// False if there is no text to index yet.
bool VaultSession::reindexNote(const std::string& path, const std::string* written) {
    const FilePath file = vault_.absolutePath(path);
    std::optional<std::string> text;
    if (written) {
        text = *written;
    } else {
        const auto state = UbiquityStatus::of(file);
        if (needsDownload(state)) {
            if (state == UbiquityState::stale) UbiquityStatus::requestDownload(file);
            parkPending(path);
            return false;
        }
        try {
            text = CoordinatedIO::read(file);
        } catch (const Error&) {
            if (needsDownload(UbiquityStatus::of(file))) parkPending(path);
            return false;
        }
    }
    if (!text) {
        parkPending(path);
        return false;
    }
    if (isIndexBusy()) {
        tasks_->owedToIndex.insert(path);
    } else {
        leniently([&] { indexText(*index_, vault_, path, *text, services_.clock.now()); });
    }
    return true;
}

void VaultSession::removeFromIndex(const std::string& path) {
    if (isIndexBusy()) {
        tasks_->owedToIndex.insert(path);
    } else {
        leniently([&] { index_->removeNote(path); });
    }
}

bool VaultSession::isIndexBusy() const {
    return indexing && !tasks_->isPayingIndex;
}

/// After a reindex: the notes that changed while it ran, as they stand now.
void VaultSession::payIndex() {
    const auto owed = std::exchange(tasks_->owedToIndex, {});
    if (owed.size() > bulkChanges) {
        tasks_->reindexAgain = true;
        return;
    }
    tasks_->isPayingIndex = true;
    bool isAnyGone = false;
    const auto pay = [&](const std::string& path) {
        if (!isNoteLike(path) || !FilePlatform::current().files->exists(vault_.absolutePath(path))) {
            removeFromIndex(path);
            isAnyGone = true;
        } else {
            reindexNote(path, nullptr);
        }
    };
    for (const auto& path : owed) leniently([&] { pay(path); });
    if (isAnyGone) leniently([&] { index_->resolveLinks(); });
    tasks_->isPayingIndex = false;
}

void VaultSession::indexText(NoteIndex& index, const Vault& vault, const std::string& path,
                             const std::string& text, TimePoint now) {
    Note note{.relativePath = path,
              .path = vault.absolutePath(path),
              .title = {},
              .modified = now,
              .created = now,
              .size = static_cast<std::int64_t>(text.size())};
    note.title = note.name();
    leniently([&] {
        if (const auto info = FilePlatform::current().files->info(note.path)) {
            note.modified = info->modified;
            note.created = info->created;
            note.size = static_cast<std::int64_t>(info->size);
        }
    });
    index.reindexText(note, text);
}

void VaultSession::indexDocuments(const std::set<std::string>& paths) {
    if (paths.empty() || tasks_->stopped) return;
    documentIndexQueue_.enqueue(paths,
                                [weak = weak_from_this()](const DocumentIndexQueue::Outcomes& outcomes) {
                                    if (auto session = weak.lock()) session->documentsIndexed(outcomes);
                                });
}

void VaultSession::documentsIndexed(const DocumentIndexQueue::Outcomes& outcomes) {
    if (tasks_->stopped) return;
    using Outcome = NoteIndex::DocumentIndexOutcome;
    std::set<std::string> settled;
    std::vector<std::string> waiting;
    for (const auto& entry : outcomes) {
        const std::string& path = entry.first;
        match(
            entry.second, [&](const Outcome::Pending&) { waiting.push_back(path); },
            [&](Outcome::Plain outcome) {
                if (outcome == Outcome::Plain::vanished) removeFromIndex(path);
                settled.insert(path);
            });
    }
    auto pending = pendingDocuments.get();
    std::erase_if(pending, [&](const std::string& path) { return settled.contains(path); });
    for (auto& path : waiting) {
        if (std::find(pending.begin(), pending.end(), path) == pending.end())
            pending.push_back(std::move(path));
    }
    pendingDocuments.setIfChanged(std::move(pending));
    if (!settled.empty()) documentChanges.send(settled);
}

/// A note's file is not what it was: whoever shows it looks again.
void VaultSession::announce(const std::string& path) {
    reindexOne(path, nullptr);
    notesChanged({path});
    externalChange();
}

void VaultSession::noteMoved(const std::string& from, const std::string& to) {
    departures_.moved(from, to);
    heldText_.moved(from, to);
    removeFromIndex(from);
    auto pending = pendingDownload.get();
    std::replace(pending.begin(), pending.end(), from, to);
    pendingDownload.setIfChanged(std::move(pending));
    reindexOne(to, nullptr);
    if (!isIndexBusy()) {
        leniently([&] { index_->resolveLinks(); });
        startEmbeddingBackfill();
    }
    changed.send();
}

void VaultSession::notesMoved(const std::map<std::string, std::string>& moves) {
    for (const auto& [from, to] : moves) {
        departures_.moved(from, to);
        heldText_.moved(from, to);
    }
}

void VaultSession::notesTrashed(const std::vector<std::string>& paths) {
    for (const auto& path : paths) departures_.trashed(path);
    heldText_.markTrashed(paths);
}

void VaultSession::refreshConflicts() {
    if (tasks_->stopped) return;
    // One scan at a time: it walks the whole vault.
    if (std::exchange(tasks_->scanningConflicts, true)) {
        tasks_->scanConflictsAgain = true;
        return;
    }
    services_.background.run(
        Priority::utility, [&mainQueue = services_.mainQueue, &versions = services_.fileVersions,
                            weak = weak_from_this(), vault = vault_](const std::stop_token&) {
            std::optional<std::vector<NoteConflict>> found;
            try {
                found = ConflictResolver(versions).scan(vault);
            } catch (const std::exception&) {  // the list stays as it was
            }
            postTo(mainQueue, weak, [found = std::move(found)](VaultSession& session) mutable {
                session.tasks_->scanningConflicts = false;
                if (session.tasks_->stopped) return;
                if (found) session.conflicts.set(std::move(*found));
                if (std::exchange(session.tasks_->scanConflictsAgain, false)) session.refreshConflicts();
            });
        });
}

}  // namespace vesk
