#include "VeskLinux/InotifyReader.h"

#include <sys/inotify.h>

#include <algorithm>
#include <cstring>
#include <utility>

namespace vesk::inotify {

namespace {

using namespace std::chrono_literals;

constexpr std::size_t readSize = 64 * 1024;
// The kernel's queue is short; it is emptied again after so many events, before it can overflow.
constexpr int eventsBetweenReads = 256;
constexpr int eventsInOneGo = 20'000;
// The two events of a rename stand next to each other but for what other processors put between them.
constexpr auto renameWait = 10ms;

FileKind kindOf(bool isFolder) {
    return isFolder ? FileKind::directory : FileKind::regular;
}

}  // namespace

void InotifyReader::drain() {
    while (true) {
        const std::size_t size = buffer_.size();
        buffer_.resize(size + readSize);
        const ssize_t count = linuxfiles::uninterrupted(
            [&] { return ::read(tree_.descriptor(), buffer_.data() + size, readSize); });
        buffer_.resize(size + static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
        if (count <= 0) return;
    }
}

bool InotifyReader::read() {
    drain();
    for (int handled = 0; position_ < buffer_.size() && handled < eventsInOneGo && !isLost_; ++handled) {
        inotify_event event;
        std::memcpy(&event, buffer_.data() + position_, sizeof event);
        // The name is filled up with NULs.
        const std::string name =
            event.len > 0 ? std::string(buffer_.data() + position_ + sizeof event) : std::string();
        position_ += sizeof event + event.len;
        handle(event, name);
        if (handled % eventsBetweenReads == eventsBetweenReads - 1) {
            buffer_.erase(0, std::exchange(position_, 0));
            drain();
        }
    }
    buffer_.erase(0, std::exchange(position_, 0));
    if (departures_.empty()) {
        deadline_.reset();
    } else if (!deadline_) {
        deadline_ = std::chrono::steady_clock::now() + renameWait;
    }
    return !buffer_.empty();
}

void InotifyReader::reset() {
    buffer_.clear();
    position_ = 0;
    departures_.clear();
    deadline_.reset();
    isLost_ = isRootDoubtful_ = false;
}

void InotifyReader::handle(const inotify_event& event, std::string_view name) {
    if (event.mask & IN_Q_OVERFLOW) {
        isLost_ = true;
        return;
    }
    if (const std::string* watchedName = tree_.nameAboveRoot(event.wd)) {
        if (name.empty() || name == *watchedName) isRootDoubtful_ = true;
        if (event.mask & IN_IGNORED) tree_.watchEnded(event.wd);
        return;
    }
    TreeNode* folder = tree_.folderOf(event.wd);
    if (!folder) return;
    if (event.mask & IN_UNMOUNT && !tree_.isRoot(*folder)) {
        // What the mount hid has come to light.
        isLost_ = true;
        return;
    }
    if (event.mask & IN_IGNORED) {
        if (tree_.isRoot(*folder)) isRootDoubtful_ = true;
        tree_.watchEnded(event.wd);
        return;
    }
    if (name.empty()) {
        if (tree_.isRoot(*folder) && event.mask & (IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT))
            isRootDoubtful_ = true;
        return;
    }
    if (!tree_.isAttached(*folder)) {
        // The folder is between its old place and its new one.
        isLost_ = true;
        return;
    }
    const bool isFolder = event.mask & IN_ISDIR;
    if (isFolder && tree_.isSkipped(name)) {
        if (auto departure = departures_.extract(event.cookie)) leave(std::move(departure.mapped()));
        return;
    }
    if (event.mask & IN_CREATE) {
        arrive(*folder, name, FileEventFlag::itemCreated);
    } else if (event.mask & IN_MOVED_FROM) {
        depart(*folder, name, event.cookie, isFolder);
    } else if (event.mask & IN_MOVED_TO) {
        auto departure = departures_.extract(event.cookie);
        if (departure.empty()) {
            arrive(*folder, name, FileEventFlag::itemCreated | FileEventFlag::itemRenamed);
        } else {
            arriveFrom(*folder, name, std::move(departure.mapped()));
        }
    } else if (event.mask & IN_DELETE) {
        remove(*folder, name, isFolder);
    } else if (event.mask & (IN_MODIFY | IN_CLOSE_WRITE | IN_ATTRIB)) {
        change(*folder, name);
    }
}

void InotifyReader::enter(TreeNode& folder) {
    const bool isSound = tree_.scan(folder, [this](TreeNode& item) {
        journal_.tell(tree_.pathOf(item), item.state.fileID, item.state.kind, FileEventFlag::itemCreated);
    });
    if (!isSound) isLost_ = true;
}

void InotifyReader::arrive(TreeNode& folder, std::string_view name, std::uint32_t flags) {
    const std::string path = tree_.childPath(folder, name);
    const auto state = tree_.look(path);
    // Gone already: an event that is still to be read tells how.
    if (!state || (state->kind == FileKind::directory && tree_.isSkipped(name))) return;
    const auto known = folder.children.find(name);
    TreeNode* node = known == folder.children.end() ? nullptr : known->second.get();
    if (node && node->state.isSameItem(*state)) {
        node->state = *state;
    } else {
        node = &tree_.put(folder, name, *state);
    }
    journal_.tell(path, state->fileID, state->kind, flags);
    if (node->isFolder() && node->watch < 0) enter(*node);
}

void InotifyReader::arriveFrom(TreeNode& folder, std::string_view name, Departure departure) {
    const std::string path = tree_.childPath(folder, name);
    if (departure.node) {
        // If the item known by the old name still has it, it is a later one, which came to that name between
        // the rename and our looking; who was renamed isn't known then.
        const auto atOldPlace = tree_.look(departure.path);
        if (atOldPlace && atOldPlace->isSameItem(departure.node->state)) {
            const std::size_t slash = departure.path.rfind('/');
            const bool isTop = slash == std::string::npos;
            if (TreeNode* parent = tree_.find(isTop ? "" : std::string_view(departure.path).substr(0, slash)))
                tree_.attach(*parent, std::string_view(departure.path).substr(isTop ? 0 : slash + 1),
                             std::move(departure.node));
            else
                isLost_ = true;
        }
    }
    if (!departure.node) {
        const auto state = tree_.look(path);
        const auto fileID = state ? std::optional(state->fileID) : std::nullopt;
        journal_.tell(departure.path, fileID, departure.kind, FileEventFlag::itemRenamed);
        if (state) {
            arrive(folder, name, FileEventFlag::itemRenamed);
        } else {
            journal_.tell(path, {}, departure.kind, FileEventFlag::itemRenamed);
        }
        return;
    }
    TreeNode& node = *departure.node;
    tree_.attach(folder, name, std::move(departure.node));
    journal_.tell(departure.path, node.state.fileID, node.state.kind, FileEventFlag::itemRenamed);
    journal_.tell(path, node.state.fileID, node.state.kind, FileEventFlag::itemRenamed);
    if (node.isFolder() && node.watch < 0) enter(node);
}

void InotifyReader::depart(TreeNode& folder, std::string_view name, std::uint32_t cookie, bool isFolder) {
    Departure departure{.path = tree_.childPath(folder, name), .kind = kindOf(isFolder)};
    departure.node = tree_.take(folder, name);
    if (departure.node) departure.kind = departure.node->state.kind;
    departures_.insert_or_assign(cookie, std::move(departure));
}

void InotifyReader::leave(Departure departure) {
    std::optional<std::uint64_t> fileID;
    if (departure.node) {
        fileID = departure.node->state.fileID;
        tree_.unwatch(*departure.node);
    }
    journal_.tell(departure.path, fileID, departure.kind, FileEventFlag::itemRenamed);
}

void InotifyReader::giveUpWaiting() {
    for (auto& [cookie, departure] : departures_) leave(std::move(departure));
    departures_.clear();
    deadline_.reset();
}

void InotifyReader::remove(TreeNode& folder, std::string_view name, bool isFolder) {
    const auto node = tree_.take(folder, name);
    const auto fileID = node ? std::optional(node->state.fileID) : std::nullopt;
    if (node) tree_.unwatch(*node);
    journal_.tell(tree_.childPath(folder, name), fileID, node ? node->state.kind : kindOf(isFolder),
                  FileEventFlag::itemRemoved);
}

void InotifyReader::change(TreeNode& folder, std::string_view name) {
    const auto known = folder.children.find(name);
    if (known == folder.children.end()) return arrive(folder, name, FileEventFlag::itemModified);
    TreeNode& node = *known->second;
    if (node.isFolder()) {
        // Rights may have come that let us in.
        if (node.watch < 0) enter(node);
        return;
    }
    node.isChanged = true;
    journal_.tell(tree_.childPath(folder, name), node.state.fileID, node.state.kind,
                  FileEventFlag::itemModified);
}

}  // namespace vesk::inotify
