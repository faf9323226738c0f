#include "VeskLinux/InotifyPoller.h"

#include <fcntl.h>

#include <algorithm>
#include <utility>

namespace vesk::inotify {

namespace {

using SteadyClock = std::chrono::steady_clock;

// Listing takes at most one part in so many of the time.
constexpr int restFactor = 50;

}  // namespace

InotifyPoller::InotifyPoller(FilePath root, FolderNames skipped, std::chrono::milliseconds interval)
    : rootPath_(std::move(root)), skipped_(std::move(skipped)), interval_(interval) {}

std::optional<Listing> InotifyPoller::list(const std::stop_token& stop) {
    const auto begin = SteadyClock::now();
    auto items = listTree(rootPath_, skipped_, stop);
    const auto end = SteadyClock::now();
    due_ = end + std::max<SteadyClock::duration>(interval_, restFactor * (end - begin));
    if (items) forgetFreshTimes(*items);
    return items;
}

void InotifyPoller::open(const std::stop_token& stop) {
    root_ = itemState(AT_FDCWD, rootPath_.c_str(), true);
    items_ = list(stop);
}

const Listing& InotifyPoller::listing() const {
    static const Listing none;
    return items_ ? *items_ : none;
}

void InotifyPoller::poll(EventJournal& journal, const std::stop_token& stop) {
    const auto root = itemState(AT_FDCWD, rootPath_.c_str(), true);
    auto items = list(stop);
    const bool isSameRoot = root && root_ ? root->isSameItem(*root_) : !root && !root_;
    if (!isSameRoot) {
        // A new root that can't be read yet is tried again.
        if (root && !items) return;
        journal.tellRoot(FileEventFlag::rootChanged);
        root_ = root;
        items_ = root ? std::move(items) : Listing{};
    } else if (items) {
        if (items_) {
            tellDifferences(*items_, *items, journal);
        } else {
            journal.tellRoot(FileEventFlag::mustScanSubDirs);
        }
        items_ = std::move(items);
    }
}

}  // namespace vesk::inotify
