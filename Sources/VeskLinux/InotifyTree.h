// The watched tree in memory: what stands where, and which kernel watch belongs to which folder.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

#include "VeskLinux/Descriptor.h"
#include "VeskLinux/InotifySnapshot.h"

namespace vesk::inotify {

struct TreeNode {
    std::string name;
    TreeNode* parent = nullptr;  ///< none for the root and for a node that was taken out
    ItemState state;
    bool isChanged = false;  ///< since the state was looked at
    int watch = -1;
    std::map<std::string, std::unique_ptr<TreeNode>, std::less<>> children;

    bool isFolder() const { return state.kind == FileKind::directory; }
};

/// One thread at a time.
class InotifyTree {
public:
    /// `mostWatches` is for tests: the kernel's own limit is met in the same way.
    InotifyTree(FilePath root, FolderNames skipped, std::size_t mostWatches);

    /// Begins anew: drops all and watches the root and the folders above it. Without a root only those above
    /// are watched. Takes the same short time however large the tree is. False if the kernel gives no more
    /// watches.
    bool open();
    /// Watches all that is below the root, until `goesOn`, which is asked at each item, says no. False if
    /// the kernel gives no more watches.
    bool fill(const std::function<bool()>& goesOn);
    /// Gives all watches back.
    void close();
    bool hasRoot() const { return root_ != nullptr; }
    /// Whether the root's path leads to the folder that was opened, or still to none.
    bool isRootInPlace() const;
    std::uint64_t rootID() const { return rootID_; }
    int descriptor() const { return inotify_.get(); }
    /// False once the kernel refused a watch, or all of them, for want of room.
    bool hasEnoughWatches() const { return hasEnoughWatches_; }

    TreeNode* folderOf(int watch) const;
    bool isRoot(const TreeNode& node) const { return &node == root_.get(); }
    /// True if the node hangs below the root, not below a folder that was taken out.
    bool isAttached(const TreeNode& node) const;
    /// The name below a folder above the root whose comings and goings may move the root; none for other
    /// watches.
    const std::string* nameAboveRoot(int watch) const;
    bool isSkipped(std::string_view name) const { return skipped_.contains(name); }

    std::string pathOf(const TreeNode& node) const;
    std::string childPath(const TreeNode& folder, std::string_view name) const;
    /// What stands at a path of the tree on the disk now.
    std::optional<ItemState> look(const std::string& path) const;
    TreeNode* find(std::string_view path) const;

    /// Puts an item into a folder in place of what the tree had there.
    TreeNode& put(TreeNode& folder, std::string_view name, const ItemState& state);
    void attach(TreeNode& folder, std::string_view name, std::unique_ptr<TreeNode> node);
    std::unique_ptr<TreeNode> take(TreeNode& folder, std::string_view name);
    /// Ends the watches of a node that was taken out, and of all below it.
    void unwatch(TreeNode& node);
    /// The kernel has ended a watch.
    void watchEnded(int watch);

    /// Watches a folder and what is below it, and puts in what the tree doesn't have yet, telling of each.
    /// False if a folder turned up that the tree has at a place where it no longer is and can't be taken
    /// from: only open() helps.
    bool scan(TreeNode& folder, const std::function<void(TreeNode&)>& found,
              const std::function<bool()>& goesOn = {});

    /// Looks again at what has changed.
    void refresh();
    Listing listing() const;

private:
    enum class WatchResult { watched, failed, confused };
    WatchResult watch(TreeNode& folder, const std::string& path);
    int addWatch(const FilePath& path, std::uint32_t mask);
    void watchAbove();
    void forgetWatches(TreeNode& node, const std::function<void(int)>& ended);
    FilePath absolute(std::string_view path) const;

    const FilePath rootPath_;
    const FolderNames skipped_;
    const std::size_t mostWatches_;
    linuxfiles::Descriptor inotify_;
    std::unique_ptr<TreeNode> root_;
    std::uint64_t rootID_ = 0;
    bool hasEnoughWatches_ = true;
    std::unordered_map<int, TreeNode*> folders_;
    std::unordered_map<int, std::string> above_;
};

}  // namespace vesk::inotify
