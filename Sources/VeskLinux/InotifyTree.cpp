#include "VeskLinux/InotifyTree.h"

#include <sys/inotify.h>

#include <utility>
#include <vector>

#include "VeskLinux/FolderStack.h"

namespace vesk::inotify {

using namespace linuxfiles;

namespace {

constexpr std::uint32_t rootMask = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_MODIFY |
                                   IN_CLOSE_WRITE | IN_ATTRIB | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR |
                                   IN_EXCL_UNLINK;
constexpr std::uint32_t folderMask = (rootMask & ~std::uint32_t{IN_MOVE_SELF}) | IN_DONT_FOLLOW;
constexpr std::uint32_t aboveMask =
    IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;

/// A node and all below it, each before what it holds.
template <class Visit>
void forEach(TreeNode& top, Visit visit) {
    std::vector<TreeNode*> waiting{&top};
    while (!waiting.empty()) {
        TreeNode& node = *waiting.back();
        waiting.pop_back();
        visit(node);
        for (auto& [name, child] : node.children) waiting.push_back(child.get());
    }
}

}  // namespace

InotifyTree::InotifyTree(FilePath root, FolderNames skipped, std::size_t mostWatches)
    : rootPath_(std::move(root)), skipped_(std::move(skipped)), mostWatches_(mostWatches) {}

void InotifyTree::close() {
    folders_.clear();
    above_.clear();
    root_.reset();
    rootID_ = 0;
    inotify_.reset();
}

bool InotifyTree::open() {
    close();
    inotify_ = Descriptor(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
    hasEnoughWatches_ = static_cast<bool>(inotify_);
    if (!inotify_) return false;
    watchAbove();
    const auto state = itemState(AT_FDCWD, rootPath_.c_str(), true);
    if (!state || state->kind != FileKind::directory) return hasEnoughWatches_;
    root_ = std::make_unique<TreeNode>();
    root_->state = *state;
    rootID_ = state->fileID;
    watch(*root_, {});
    if (root_->watch < 0) root_.reset();
    return hasEnoughWatches_;
}

bool InotifyTree::fill(const std::function<bool()>& goesOn) {
    if (root_)
        scan(
            *root_, [](TreeNode&) {}, goesOn);
    return hasEnoughWatches_;
}

void InotifyTree::watchAbove() {
    // From the top down, so that what appears meanwhile is met by one or the other.
    FilePath folder = rootPath_.root_path();
    for (const FilePath& name : rootPath_.relative_path()) {
        // A folder that may not be read, or isn't there, tells nothing.
        if (const int number = addWatch(folder, aboveMask); number >= 0) above_[number] = name.native();
        folder /= name;
    }
}

bool InotifyTree::isRootInPlace() const {
    const auto state = itemState(AT_FDCWD, rootPath_.c_str(), true);
    const bool isFolder = state && state->kind == FileKind::directory;
    return root_ ? isFolder && state->isSameItem(root_->state) : !isFolder;
}

TreeNode* InotifyTree::folderOf(int watch) const {
    const auto found = folders_.find(watch);
    return found == folders_.end() ? nullptr : found->second;
}

bool InotifyTree::isAttached(const TreeNode& node) const {
    const TreeNode* top = &node;
    while (top->parent) top = top->parent;
    return top == root_.get();
}

const std::string* InotifyTree::nameAboveRoot(int watch) const {
    const auto found = above_.find(watch);
    return found == above_.end() ? nullptr : &found->second;
}

std::string InotifyTree::pathOf(const TreeNode& node) const {
    std::vector<const TreeNode*> chain;
    for (const TreeNode* at = &node; at->parent; at = at->parent) chain.push_back(at);
    std::string path;
    for (auto at = chain.rbegin(); at != chain.rend(); ++at) {
        if (!path.empty()) path += '/';
        path += (*at)->name;
    }
    return path;
}

std::string InotifyTree::childPath(const TreeNode& folder, std::string_view name) const {
    std::string path = pathOf(folder);
    if (!path.empty()) path += '/';
    return path.append(name);
}

FilePath InotifyTree::absolute(std::string_view path) const {
    return path.empty() ? rootPath_ : rootPath_ / path;
}

std::optional<ItemState> InotifyTree::look(const std::string& path) const {
    return itemState(AT_FDCWD, absolute(path).c_str(), path.empty());
}

TreeNode* InotifyTree::find(std::string_view path) const {
    TreeNode* node = root_.get();
    while (node && !path.empty()) {
        const std::size_t slash = path.find('/');
        const auto child = node->children.find(path.substr(0, slash));
        node = child == node->children.end() ? nullptr : child->second.get();
        path = slash == path.npos ? std::string_view() : path.substr(slash + 1);
    }
    return node;
}

TreeNode& InotifyTree::put(TreeNode& folder, std::string_view name, const ItemState& state) {
    auto node = std::make_unique<TreeNode>();
    node->state = state;
    TreeNode& result = *node;
    attach(folder, name, std::move(node));
    return result;
}

void InotifyTree::attach(TreeNode& folder, std::string_view name, std::unique_ptr<TreeNode> node) {
    if (const auto former = take(folder, name)) unwatch(*former);
    node->name = name;
    node->parent = &folder;
    folder.children.emplace(std::string(name), std::move(node));
}

std::unique_ptr<TreeNode> InotifyTree::take(TreeNode& folder, std::string_view name) {
    const auto found = folder.children.find(name);
    if (found == folder.children.end()) return nullptr;
    auto node = std::move(found->second);
    folder.children.erase(found);
    node->parent = nullptr;
    return node;
}

void InotifyTree::forgetWatches(TreeNode& node, const std::function<void(int)>& ended) {
    forEach(node, [&](TreeNode& each) {
        if (each.watch < 0) return;
        const int number = std::exchange(each.watch, -1);
        folders_.erase(number);
        ended(number);
    });
}

void InotifyTree::unwatch(TreeNode& node) {
    forgetWatches(node, [this](int number) { ::inotify_rm_watch(inotify_.get(), number); });
}

void InotifyTree::watchEnded(int watch) {
    above_.erase(watch);
    const auto found = folders_.find(watch);
    if (found == folders_.end()) return;
    found->second->watch = -1;
    folders_.erase(found);
}

int InotifyTree::addWatch(const FilePath& path, std::uint32_t mask) {
    int number = -1;
    if (folders_.size() + above_.size() < mostWatches_) {
        number = ::inotify_add_watch(inotify_.get(), path.c_str(), mask);
    } else {
        errno = ENOSPC;
    }
    if (number < 0 && (errno == ENOSPC || errno == ENOMEM)) hasEnoughWatches_ = false;
    return number;
}

InotifyTree::WatchResult InotifyTree::watch(TreeNode& folder, const std::string& path) {
    const int number = addWatch(absolute(path), isRoot(folder) ? rootMask : folderMask);
    if (number < 0) return WatchResult::failed;
    TreeNode*& known = folders_[number];
    if (known && known != &folder) {
        // The kernel has one watch for each folder, and this one has another place in the tree: it was moved,
        // and that is still to be read, or it is mounted at both places.
        if (!isAttached(*known) || isRoot(*known)) return WatchResult::confused;
        const auto former = look(pathOf(*known));
        if (former && former->isSameItem(folder.state)) return WatchResult::failed;
        const auto moved = take(*known->parent, known->name);
        forgetWatches(*moved, [](int) {});
        folders_[number] = &folder;
    } else {
        known = &folder;
    }
    folder.watch = number;
    return WatchResult::watched;
}

bool InotifyTree::scan(TreeNode& folder, const std::function<void(TreeNode&)>& found,
                       const std::function<bool()>& goesOn) {
    std::string path = pathOf(folder);
    // The watch comes first: what is made after the folder was read is told by the kernel then.
    if (const auto result = watch(folder, path); result != WatchResult::watched)
        return result == WatchResult::failed;
    FolderStack folders;
    if (!folders.start(absolute(path), isRoot(folder))) return true;
    if (!path.empty()) path += '/';
    TreeNode* at = &folder;
    while (!folders.empty() && hasEnoughWatches_) {
        if (goesOn && !goesOn()) return true;
        const std::size_t prefix = path.size();
        const auto entry = folders.entries().next();
        if (!entry) {
            if (folders.depth() > 1) path.resize(prefix - at->name.size() - 1);
            at = at->parent;
            folders.leave();
            continue;
        }
        const auto state = itemState(folders.descriptor(), entry->name);
        const bool isFolder = state && state->kind == FileKind::directory;
        if (!state || (isFolder && isSkipped(entry->name))) continue;
        const auto known = at->children.find(std::string_view(entry->name));
        TreeNode* child = known == at->children.end() ? nullptr : known->second.get();
        const bool isNew = !child || !child->state.isSameItem(*state);
        if (isNew) child = &put(*at, entry->name, *state);
        path += entry->name;
        if (isFolder && child->watch < 0) {
            const auto result = watch(*child, path);
            if (result == WatchResult::confused) return false;
            // What happened in it until now was not watched.
            if (const auto now = itemState(folders.descriptor(), entry->name)) {
                child->state.modified = now->modified;
                child->state.touched = now->touched;
            }
            if (isNew) found(*child);
            if (result == WatchResult::watched && folders.enter(entry->name)) {
                path += '/';
                at = child;
                continue;
            }
        } else if (isNew) {
            found(*child);
        }
        path.resize(prefix);
    }
    return true;
}

void InotifyTree::refresh() {
    if (!root_) return;
    forEach(*root_, [this](TreeNode& node) {
        if (!node.isChanged) return;
        node.isChanged = false;
        // Something else under the name is told of by an event that is still to be read.
        if (const auto now = look(pathOf(node));
            now && now->fileID == node.state.fileID && now->kind == node.state.kind)
            node.state = *now;
        else
            node.isChanged = true;
    });
}

Listing InotifyTree::listing() const {
    Listing items;
    if (!root_) return items;
    forEach(*root_, [&](TreeNode& node) {
        if (!node.parent) return;
        ItemState state = node.state;
        if (node.isChanged) state.modified = 0;
        items.emplace(pathOf(node), state);
    });
    return items;
}

}  // namespace vesk::inotify
