// Watching without the kernel's help: the whole tree is listed every few seconds.
#pragma once

#include <chrono>
#include <optional>

#include "VeskLinux/InotifySnapshot.h"

namespace vesk::inotify {

/// One thread at a time.
class InotifyPoller {
public:
    InotifyPoller(FilePath root, FolderNames skipped, std::chrono::milliseconds interval);

    /// Begins with the tree as it is. Not if `stop` comes first or the tree can't be read now: isListed()
    /// tells.
    void open(const std::stop_token& stop);
    bool isListed() const { return items_.has_value(); }
    std::chrono::steady_clock::time_point due() const { return due_; }
    /// Lists the tree and tells the journal what has changed.
    void poll(EventJournal& journal, const std::stop_token& stop);
    /// Zero while there is no root.
    std::uint64_t rootID() const { return root_ ? root_->fileID : 0; }
    /// Of the root, by stampOfNow(); zero while there is none.
    std::int64_t rootTouched() const { return root_ ? root_->touched : 0; }
    /// Empty while it isn't listed.
    const Listing& listing() const;

private:
    std::optional<Listing> list(const std::stop_token& stop);

    const FilePath rootPath_;
    const FolderNames skipped_;
    const std::chrono::milliseconds interval_;
    std::optional<ItemState> root_;
    std::optional<Listing> items_;
    std::chrono::steady_clock::time_point due_;
};

}  // namespace vesk::inotify
