#include "VeskCore/Vault/VaultWalk.h"

#include <algorithm>
#include <tuple>
#include <unordered_set>

#include "VeskCore/Platform/FilePlatform.h"

namespace vesk {

namespace {

FileSystem& files() {
    return *FilePlatform::current().files;
}

bool isThere(const FilePath& path) {
    try {
        return files().exists(path);
    } catch (const Error&) {  // what can't be asked about is there
        return true;
    }
}

bool asks(UbiquityState status, DownloadAsk ask) {
    switch (ask) {
        case DownloadAsk::nothing:
            return false;
        case DownloadAsk::staleOnly:
            return status == UbiquityState::stale;
        case DownloadAsk::everythingOwed:
            return needsDownload(status);
    }
    return false;
}

int request(const VaultWalk::RequestDownload& requestDownload, const FilePath& path) {
    try {
        requestDownload(path);
        return 1;
    } catch (const std::exception&) {  // still owed; the next pass asks again
        return 0;
    }
}

std::set<std::string> asSet(const std::vector<std::string>& paths) {
    return {paths.begin(), paths.end()};
}

std::optional<NoteStamp> find(const NoteStamps& stamps, const std::string& path) {
    const auto found = stamps.find(path);
    return found == stamps.end() ? std::nullopt : std::optional(found->second);
}

}  // namespace

VaultListing VaultListing::puttingBack(const OwnWrites& ownWrites) const {
    VaultListing listing = *this;
    for (const auto& [path, own] : ownWrites) {
        if (own.at < takenAt) continue;
        if (own.stamp) {
            listing.stamps.insert_or_assign(path, *own.stamp);
        } else {
            listing.stamps.erase(path);
        }
    }
    return listing;
}

namespace VaultWalk {

VaultListing walk(const Vault& vault, DownloadAsk notes, DownloadAsk documents, const Clock& clock,
                  const RequestDownload& requestDownload) {
    const Duration start = clock.monotonic();
    VaultListing listing;
    listing.takenAt = clock.now();
    std::tie(listing.notes, listing.documents) = vault.enumerateNotesAndDocuments();
    const bool isInICloud = vault.provider() == SyncProvider::iCloudDrive;
    for (const Note& note : listing.notes) {
        NoteStamp stamp{.modified = note.modified, .size = note.size};
        if (isInICloud) {
            if (!isThere(note.path)) ++listing.stubCount;
            const UbiquityState status = UbiquityStatus::of(note.path);
            stamp.needsDownload = needsDownload(status);
            if (stamp.needsDownload) ++listing.owedCount;
            if (asks(status, notes)) listing.requested += request(requestDownload, note.path);
        }
        listing.stamps.insert_or_assign(note.relativePath, stamp);
    }
    for (const VaultDocument& document : listing.documents) {
        NoteStamp stamp{.modified = document.modified, .size = document.size};
        if (isInICloud) {
            const UbiquityState status = UbiquityStatus::of(document.path);
            stamp.needsDownload = needsDownload(status);
            if (stamp.needsDownload) ++listing.documentOwedCount;
            // A stub's size is its own and says nothing of the document's.
            const auto knownSize = isThere(document.path) ? std::optional(document.size) : std::nullopt;
            if (asksForDocument(status, knownSize, documents)) {
                listing.documentRequested += request(requestDownload, document.path);
            }
        }
        listing.documentStamps.insert_or_assign(document.relativePath, stamp);
    }
    listing.folders = vault.emptyFolderPaths();
    listing.duration = clock.monotonic() - start;
    return listing;
}

bool asksForDocument(UbiquityState status, std::optional<std::int64_t> knownSize, DownloadAsk ask) {
    if (status != UbiquityState::stale && knownSize && *knownSize > documentAskCeiling) return false;
    return asks(status, ask);
}

std::size_t countedNotes(const std::vector<std::string>& listed, const std::vector<std::string>& pending) {
    const std::unordered_set<std::string> waiting(pending.begin(), pending.end());
    return static_cast<std::size_t>(std::count_if(
        listed.begin(), listed.end(), [&](const std::string& path) { return !waiting.contains(path); }));
}

std::set<std::string> changedPaths(const NoteStamps& from, const NoteStamps& to) {
    std::set<std::string> changed;
    for (const auto& [path, stamp] : from) {
        if (find(to, path) != stamp) changed.insert(path);
    }
    for (const auto& [path, stamp] : to) {
        if (!from.contains(path)) changed.insert(path);
    }
    return changed;
}

std::optional<ListingChanges> listingChanges(const VaultListing* from, const VaultListing& to,
                                             const OwnWrites& ownWrites) {
    if (!from) return {};
    const NoteStamps adjusted = to.puttingBack(ownWrites).stamps;
    ListingChanges changes{.notes = changedPaths(from->stamps, adjusted),
                           .documents = changedPaths(from->documentStamps, to.documentStamps),
                           .foldersChanged = asSet(from->folders) != asSet(to.folders)};
    for (const auto& [path, own] : ownWrites) {
        if (find(adjusted, path) == own.stamp) changes.notes.erase(path);
    }
    return changes;
}

NoteStamps stamps(const std::vector<Note>& notes) {
    NoteStamps result;
    for (const Note& note : notes) {
        result.insert_or_assign(note.relativePath, NoteStamp{.modified = note.modified, .size = note.size});
    }
    return result;
}

std::optional<NoteStamp> stamp(const Vault& vault, std::string_view relativePath) {
    const FilePath path = vault.absolutePath(relativePath);
    try {
        auto info = files().info(path);
        if (!info) info = files().linkInfo(UbiquityStatus::stubPath(path));
        if (!info) return {};
        return NoteStamp{.modified = info->modified,
                         .size = static_cast<std::int64_t>(info->size),
                         .needsDownload = needsDownload(UbiquityStatus::of(path))};
    } catch (const Error&) {
        return {};
    }
}

}  // namespace VaultWalk

SyncPlan SyncPlan::refresh(SyncTrigger trigger, const std::optional<ListingChanges>& changes,
                           const std::optional<std::string>& openNote, int pollTick, int pendingFromICloud) {
    const bool changed = !changes || !changes->isEmpty();
    const bool notesChanged = !changes || !changes->notes.empty();
    const bool documentsChanged = !changes || !changes->documents.empty();
    const bool quarterTick = trigger == SyncTrigger::poll && pollTick >= 1 && pollTick % 4 == 0;
    const bool wholeVault = trigger == SyncTrigger::adopt || trigger == SyncTrigger::pull;
    return {
        .publishTree = wholeVault || changed || quarterTick,
        .reindex = wholeVault || trigger == SyncTrigger::foreground || notesChanged || documentsChanged ||
                   pendingFromICloud > 0,
        .conflicts = trigger == SyncTrigger::pull || (changes && !changes->isEmpty()) || quarterTick,
        .nudgeOpenNote =
            openNote && (trigger == SyncTrigger::pull || !changes || changes->notes.contains(*openNote)),
    };
}

}  // namespace vesk
