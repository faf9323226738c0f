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

    /// False if the root can't be read.
    bool open();
    std::chrono::steady_clock::time_point due() const { return due_; }
    /// Lists the tree and tells the journal what has changed.
    void poll(EventJournal& journal);
    /// Zero while there is no root.
    std::uint64_t rootID() const { return root_ ? root_->fileID : 0; }
    const Listing& listing() const { return items_; }

private:
    std::optional<Listing> list();

    const FilePath rootPath_;
    const FolderNames skipped_;
    const std::chrono::milliseconds interval_;
    std::optional<ItemState> root_;
    Listing items_;
    std::chrono::steady_clock::time_point due_;
};

}  // namespace vesk::inotify
