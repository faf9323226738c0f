#include "VeskLinux/FolderStack.h"

#include <sys/stat.h>

namespace vesk::linuxfiles {

namespace {

constexpr std::size_t heldDescriptors = 64;
constexpr int folderFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NONBLOCK;

Descriptor openFolder(int parent, const char* name, bool follows) {
    return Descriptor(
        uninterrupted([&] { return ::openat(parent, name, folderFlags | (follows ? 0 : O_NOFOLLOW)); }));
}

}  // namespace

bool FolderStack::start(const FilePath& root, bool followsRoot) {
    levels_.clear();
    root_ = root;
    followsRoot_ = followsRoot;
    return push({}, openFolder(AT_FDCWD, root.c_str(), followsRoot));
}

bool FolderStack::enter(const std::string& name) {
    const int parent = descriptor();
    return parent >= 0 && push(name, openFolder(parent, name.c_str(), false));
}

bool FolderStack::push(std::string name, Descriptor folder) {
    struct stat now {};
    if (!folder || ::fstat(folder.get(), &now) != 0) return false;
    Level level{
        .name = std::move(name), .folder = std::move(folder), .device = now.st_dev, .fileID = now.st_ino};
    if (!level.entries.readAll(level.folder.get())) return false;
    levels_.push_back(std::move(level));
    if (levels_.size() > heldDescriptors) levels_[levels_.size() - 1 - heldDescriptors].folder.reset();
    return true;
}

FilePath FolderStack::path() const {
    std::string path = root_.native();
    for (const Level& level : levels_) {
        if (!level.name.empty()) path += "/" + level.name;
    }
    return path;
}

int FolderStack::descriptor() {
    std::size_t at = levels_.size();
    while (at > 0 && !levels_[at - 1].folder) --at;
    // Opening a whole run of closed folders at once keeps a deep tree from being gone down anew for each of
    // them.
    for (; at < levels_.size(); ++at) {
        Level& level = levels_[at];
        Descriptor folder = at == 0 ? openFolder(AT_FDCWD, root_.c_str(), followsRoot_)
                                    : openFolder(levels_[at - 1].folder.get(), level.name.c_str(), false);
        struct stat now {};
        if (!folder || ::fstat(folder.get(), &now) != 0) return -1;
        if (now.st_dev != level.device || now.st_ino != level.fileID) {
            errno = ENOENT;
            return -1;
        }
        level.folder = std::move(folder);
        if (at >= heldDescriptors) levels_[at - heldDescriptors].folder.reset();
    }
    return levels_.back().folder.get();
}

}  // namespace vesk::linuxfiles
