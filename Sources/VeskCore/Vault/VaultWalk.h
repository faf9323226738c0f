// A snapshot of the vault for the passes that refresh it, and what differs between two. Walks block; the rest
// is pure.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "VeskCore/Support/Time.h"
#include "VeskCore/Vault/SyncTrigger.h"
#include "VeskCore/Vault/UbiquityStatus.h"
#include "VeskCore/Vault/Vault.h"

namespace vesk {

/// What tells one state of a file from another without opening it.
struct NoteStamp {
    TimePoint modified;
    std::int64_t size = 0;
    bool needsDownload = false;
    bool operator==(const NoteStamp&) const = default;
};
/// By relative path.
using NoteStamps = std::map<std::string, NoteStamp>;

/// The application's own act on a file.
struct OwnWrite {
    std::optional<NoteStamp> stamp;  ///< none if the act removed the file
    TimePoint at;
    bool operator==(const OwnWrite&) const = default;
};
using OwnWrites = std::map<std::string, OwnWrite>;

struct VaultListing {
    std::vector<Note> notes;
    NoteStamps stamps;
    std::vector<std::string> folders;
    int stubCount = 0, owedCount = 0, requested = 0;
    std::vector<VaultDocument> documents;
    NoteStamps documentStamps;
    int documentOwedCount = 0, documentRequested = 0;
    TimePoint takenAt;  ///< when the walk began
    Seconds duration{0};

    /// As it would be had the walk seen the application's own acts since it began.
    VaultListing puttingBack(const OwnWrites& ownWrites) const;
};

struct ListingChanges {
    std::set<std::string> notes, documents;
    bool foldersChanged = false;

    bool isEmpty() const { return notes.empty() && documents.empty() && !foldersChanged; }
    bool operator==(const ListingChanges&) const = default;
};

namespace VaultWalk {

/// A document above this size is asked for only when an older copy of it is here: 5 MiB.
inline constexpr std::int64_t documentAskCeiling = 0x500000;

using RequestDownload = std::function<void(const FilePath&)>;

/// One query of the status per file in an iCloud vault, none elsewhere. A request that throws isn't counted.
VaultListing walk(const Vault& vault, DownloadAsk notes, DownloadAsk documents, const Clock& clock,
                  const RequestDownload& requestDownload = UbiquityStatus::startDownload);
bool asksForDocument(UbiquityState status, std::optional<std::int64_t> knownSize, DownloadAsk ask);
/// How many of the listed paths aren't pending.
std::size_t countedNotes(const std::vector<std::string>& listed, const std::vector<std::string>& pending);
std::set<std::string> changedPaths(const NoteStamps& from, const NoteStamps& to);
/// None without a former listing to compare with.
std::optional<ListingChanges> listingChanges(const VaultListing* from, const VaultListing& to,
                                             const OwnWrites& ownWrites);
/// The stamps of what the notes themselves tell.
NoteStamps stamps(const std::vector<Note>& notes);
/// None if neither the file nor its stub is there.
std::optional<NoteStamp> stamp(const Vault& vault, std::string_view relativePath);

}  // namespace VaultWalk

/// What a pass redoes.
struct SyncPlan {
    bool publishTree = false, reindex = false, conflicts = false, nudgeOpenNote = false;

    /// Without `changes` there was nothing to compare with.
    static SyncPlan refresh(SyncTrigger trigger, const std::optional<ListingChanges>& changes,
                            const std::optional<std::string>& openNote, int pollTick, int pendingFromICloud);
    bool operator==(const SyncPlan&) const = default;
};

}  // namespace vesk
