// The folders from a tree's root down to the one being looked at, for code that goes through a tree without
// recursion.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "VeskLinux/Descriptor.h"

namespace vesk::linuxfiles {

/// Holds only so many descriptors: those of outer folders are closed and opened again by name, never through
/// a symbolic link, when they are needed once more. One thread.
class FolderStack {
public:
    /// False with errno set if the root can't be opened or read. A root that is a symbolic link is followed
    /// only if `followsRoot`.
    bool start(const FilePath& root, bool followsRoot);
    /// Goes into a folder of the innermost one; false with errno set if it can't be opened or read, or is no
    /// folder.
    bool enter(const std::string& name);
    /// Back to the outer folder. At the root the stack becomes empty.
    void leave() { levels_.pop_back(); }

    bool empty() const { return levels_.empty(); }
    std::size_t depth() const { return levels_.size(); }
    FolderEntries& entries() { return levels_.back().entries; }
    /// The innermost folder's name in its parent; empty at the root.
    const std::string& name() const { return levels_.back().name; }
    /// The innermost folder's path.
    FilePath path() const;
    /// The innermost folder, open; -1 with errno set if it is no longer where it was.
    int descriptor();

private:
    struct Level {
        std::string name;
        Descriptor folder;
        std::uint64_t device = 0, fileID = 0;
        FolderEntries entries;
    };
    bool push(std::string name, Descriptor folder);

    FilePath root_;
    bool followsRoot_ = false;
    std::vector<Level> levels_;
};

}  // namespace vesk::linuxfiles
