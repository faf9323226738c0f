// What the kernel tells of a watched tree, turned into changes of the tree and events for the journal.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "VeskLinux/InotifyTree.h"

struct inotify_event;

namespace vesk::inotify {

/// One thread at a time.
class InotifyReader {
public:
    using Instant = std::chrono::steady_clock::time_point;

    InotifyReader(InotifyTree& tree, EventJournal& journal) : tree_(tree), journal_(journal) {}

    /// Takes what is there for a later read(), before the kernel has no more room for it.
    void drain();
    bool hasUnread() const { return !buffer_.empty(); }
    /// Reads and handles what is there, up to a bound; true if more waits.
    bool read();
    /// Forgets what was read: the tree begins anew.
    void reset();

    /// Events were lost or the tree is no longer known to be right.
    bool isLost() const { return isLost_; }
    /// Something happened that may have put another folder, or none, in the root's place.
    bool takeRootDoubt() { return std::exchange(isRootDoubtful_, false); }

    /// The kernel tells of a rename in two events. While the second is outstanding, when to stop waiting for
    /// it.
    std::optional<Instant> deadline() const { return deadline_; }
    /// What left without arriving has left the tree.
    void giveUpWaiting();

private:
    struct Departure {
        std::string path;
        FileKind kind = FileKind::regular;
        std::unique_ptr<TreeNode> node;  // none if it was gone before it could be looked at
    };

    void handle(const inotify_event& event, std::string_view name);
    void arrive(TreeNode& folder, std::string_view name, std::uint32_t flags);
    void arriveFrom(TreeNode& folder, std::string_view name, Departure departure);
    void depart(TreeNode& folder, std::string_view name, std::uint32_t cookie, bool isFolder);
    void remove(TreeNode& folder, std::string_view name, bool isFolder);
    void change(TreeNode& folder, std::string_view name);
    void leave(Departure departure);
    void enter(TreeNode& folder);

    InotifyTree& tree_;
    EventJournal& journal_;
    std::string buffer_;
    std::size_t position_ = 0;
    std::map<std::uint32_t, Departure> departures_;  // by the cookie that both events of a rename have
    std::optional<Instant> deadline_;
    bool isLost_ = false, isRootDoubtful_ = false;
};

}  // namespace vesk::inotify
