// Going through trees: the walk and the removal of a folder with all it holds.
#include <dirent.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include "VeskLinux/FolderStack.h"
#include "VeskLinux/LinuxFileSystem.h"

namespace vesk {

using namespace linuxfiles;

namespace {

/// The creation date kept for an entry of an open folder. Before getxattrat (Linux 6.13) an attribute can be
/// had by path alone, and /proc/self/fd makes one that is short and that no rename above the folder can
/// break.
std::optional<TimePoint> keptCreated(int folder, const char* name) {
    std::string path = "/proc/self/fd/" + std::to_string(folder) + "/" + name;
    char bytes[32];
    const ssize_t size = ::getxattr(path.c_str(), createdAttribute, bytes, sizeof bytes);
    if (size < 0) return {};
    return parsedCreated({bytes, static_cast<std::size_t>(size)});
}

class Entry final : public WalkEntry {
public:
    Entry(FolderStack& folders, std::string_view path, std::size_t nameOffset, const char* rawName,
          bool isFolder)
        : folders_(folders), path_(path), nameOffset_(nameOffset), rawName_(rawName), isFolder_(isFolder) {}

    std::string_view relativePath() const override { return path_; }
    std::string_view name() const override { return path_.substr(nameOffset_); }
    bool isDirectory() const override { return isFolder_; }
    std::optional<FileInfo> info() const override {
        const int folder = folders_.descriptor();
        struct statx result {};
        if (folder < 0 || !status(folder, rawName_, 0, result)) return {};
        return fileInfo(result, keptCreated(folder, rawName_));
    }

private:
    FolderStack& folders_;
    std::string_view path_;
    std::size_t nameOffset_;
    const char* rawName_;
    bool isFolder_;
};

bool isFolder(FolderStack& folders, const FolderEntries::Entry& entry) {
    if (entry.type != DT_UNKNOWN) return entry.type == DT_DIR;
    const int folder = folders.descriptor();
    struct statx result {};
    return folder >= 0 && status(folder, entry.name, AT_SYMLINK_NOFOLLOW, result) && S_ISDIR(result.stx_mode);
}

/// A folder left out for want of descriptors or memory would look as if its notes were gone.
void requireResources(const FilePath& path) {
    if (errno == EMFILE || errno == ENFILE || errno == ENOMEM) fail("open", path);
}

}  // namespace

void LinuxFileSystem::walk(const FilePath& root,
                           const std::function<WalkStep(const WalkEntry&)>& visit) const {
    FolderStack folders;
    if (!folders.start(root, true)) return requireResources(root);
    std::string path;  // of the innermost folder, with a "/" behind it, then of the entry
    while (!folders.empty()) {
        const std::size_t prefix = path.size();
        const auto entry = folders.entries().next();
        if (!entry) {
            // The name and its "/"; the root has neither.
            if (folders.depth() > 1) path.resize(prefix - folders.name().size() - 1);
            folders.leave();
            continue;
        }
        path += entry->name;
        const bool isDirectory = isFolder(folders, *entry);
        const WalkStep step = visit(Entry(folders, path, prefix, entry->name, isDirectory));
        if (step == WalkStep::stop) return;
        if (isDirectory && step == WalkStep::descend) {
            if (folders.enter(entry->name)) {
                path += '/';
                continue;
            }
            requireResources(root / path);
        }
        path.resize(prefix);
    }
}

void LinuxFileSystem::removeTree(const FilePath& path) {
    FolderStack folders;
    if (!folders.start(path, false)) {
        if (errno == ENOENT) return;
        // A file or a link, or a folder that can't be read but may be empty.
        if (errno == ENOTDIR || errno == ELOOP) return remove(path);
        const int code = errno;
        if (::rmdir(path.c_str()) != 0) fail("remove", path, code);
        return;
    }
    while (!folders.empty()) {
        if (const auto entry = folders.entries().next()) {
            if (isFolder(folders, *entry) && folders.enter(entry->name)) continue;
            // A folder that can't be read goes if it is empty.
            const int code = errno;
            const int flags = isFolder(folders, *entry) ? AT_REMOVEDIR : 0;
            if (::unlinkat(folders.descriptor(), entry->name, flags) != 0 && errno != ENOENT) {
                fail("remove", folders.path() / entry->name, flags != 0 ? code : errno);
            }
            continue;
        }
        const std::string name = folders.name();
        folders.leave();
        const bool wasRoot = folders.empty();
        const int gone =
            wasRoot ? ::rmdir(path.c_str()) : ::unlinkat(folders.descriptor(), name.c_str(), AT_REMOVEDIR);
        if (gone != 0 && errno != ENOENT) fail("remove", wasRoot ? path : folders.path() / name);
    }
}

}  // namespace vesk
