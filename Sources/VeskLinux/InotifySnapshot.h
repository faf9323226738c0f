// The state of a watched tree as a plain listing, kept in a file from one run to the next: what differs from
// it at the next start has changed meanwhile.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <stop_token>
#include <string>

#include "VeskCore/Platform/FileEvents.h"
#include "VeskLinux/InotifyJournal.h"

namespace vesk::inotify {

using FolderNames = std::set<std::string, std::less<>>;

struct ItemState {
    FileKind kind = FileKind::regular;
    std::uint64_t fileID = 0;
    std::int64_t born = 0;  ///< nanoseconds since 1970; 0 where the file system doesn't tell
    std::uint64_t size = 0;
    std::int64_t modified = 0;  ///< nanoseconds since 1970; 0 if it may have changed since it was looked at
    std::int64_t touched =
        0;  ///< the same of the last change of any kind, also of the name; not kept in a file

    /// The same item, and not another one that was given the number of a deleted one.
    bool isSameItem(const ItemState& other) const;
    bool operator==(const ItemState&) const = default;
};

/// Of the item itself, not of a link's target. None with errno set if there is none.
std::optional<ItemState> itemState(int folder, const char* name, bool followsLink = false);

using Listing = std::map<std::string, ItemState, std::less<>>;  ///< by path below the root

/// All that is below the root but for the folders with a name of `skipped`. None if it can't be read now, or
/// `stop` came first.
std::optional<Listing> listTree(const FilePath& root, const FolderNames& skipped,
                                const std::stop_token& stop);
/// The time in nanoseconds since 1970 that an item of a local disk is stamped with if it changes now; of what
/// changed just before, too.
std::int64_t stampOfNow();
/// Takes the modification time off what changed so lately that a further change might leave the time as it
/// is.
void forgetFreshTimes(Listing& items);
/// Tells what leads from one listing to the other as ordinary events.
void tellDifferences(const Listing& before, const Listing& after, EventJournal& journal);
/// Where there is no listing to compare with: tells of what changed or came at `stamp` or later, and asks for
/// a scan if something may have left a folder, since it isn't known what. What stands in the root itself is
/// passed over if `rootIsWatched`, which tells of it.
void tellTouched(const Listing& items, std::int64_t stamp, bool rootIsWatched, EventJournal& journal);

struct Snapshot {
    FilePath root;
    std::uint64_t rootID = 0;
    EventJournal::History history;
    Listing items;
};

/// Throws SystemError. A file that is cut short by a crash is known by its digest, so it isn't waited for the
/// disk.
void save(const Snapshot& snapshot, const FilePath& file);
/// None if the file is missing or damaged.
std::optional<Snapshot> loadSnapshot(const FilePath& file);
/// The last id in the file, if it is one of `root`. Reads no more than the beginning, so that the size of the
/// tree doesn't count; a file that is damaged further on isn't known for one.
std::optional<std::uint64_t> loadLastID(const FilePath& file, const FilePath& root);

}  // namespace vesk::inotify
