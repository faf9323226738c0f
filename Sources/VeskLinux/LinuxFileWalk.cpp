// Going through trees: the walk and the removal of a folder with all it holds.
#include <dirent.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/xattr.h>

#include "VeskLinux/FolderStack.h"
#include "VeskLinux/LinuxFileSystem.h"

namespace vesk {

using namespace linuxfiles;

namespace {

/// Reads the creation dates that a walk's entries keep. The look-up costs as much as the statx beside it, so
/// it takes the shortest road there is and is left out on a device that has no attributes.
class KeptDates {
public:
    explicit KeptDates(const FilePath& root) : path_(root.native() + "/"), rootSize_(path_.size()) {}

    std::optional<TimePoint> of(int folder, const char* name, std::string_view relativePath, dev_t device) {
        if (device == deviceWithout_) return {};
        char bytes[32];
        const ssize_t size = read(folder, name, relativePath, bytes, sizeof bytes);
        if (size >= 0) return parsedCreated({bytes, static_cast<std::size_t>(size)});
        if (errno == ENOTSUP) deviceWithout_ = device;
        return {};
    }

private:
    ssize_t read(int folder, const char* name, std::string_view relativePath, char* bytes, std::size_t size) {
        if (hasCall_) {
            // getxattrat, since Linux 6.13; older headers know neither its number nor its structure.
            constexpr long number = 464;
            struct {
                alignas(8) std::uint64_t value;
                std::uint32_t size, flags;
            } arguments{reinterpret_cast<std::uintptr_t>(bytes), static_cast<std::uint32_t>(size), 0};
            const long result =
                ::syscall(number, folder, name, 0, createdAttribute, &arguments, sizeof arguments);
            // EPERM is how sandboxes refuse a call that they don't know.
            if (result >= 0 || (errno != ENOSYS && errno != EPERM)) return result;
            hasCall_ = false;
        }
        path_.resize(rootSize_);
        path_ += relativePath;
        return ::getxattr(path_.c_str(), createdAttribute, bytes, size);
    }

    std::string path_;
    std::size_t rootSize_;
    bool hasCall_ = true;
    std::optional<dev_t> deviceWithout_;
};

class Entry final : public WalkEntry {
public:
    Entry(FolderStack& folders, KeptDates& dates, std::string_view path, const char* rawName, bool isFolder)
        : folders_(folders), dates_(dates), path_(path), rawName_(rawName), isFolder_(isFolder) {}

    std::string_view relativePath() const override { return path_; }
    std::string_view name() const override { return rawName_; }
    bool isDirectory() const override { return isFolder_; }
    std::optional<FileInfo> info() const override {
        const int folder = folders_.descriptor();
        struct statx result {};
        if (folder < 0 || !status(folder, rawName_, 0, result)) return {};
        const dev_t device = makedev(result.stx_dev_major, result.stx_dev_minor);
        return fileInfo(result, dates_.of(folder, rawName_, path_, device));
    }

private:
    FolderStack& folders_;
    KeptDates& dates_;
    std::string_view path_;
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
    KeptDates dates(root);
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
        const WalkStep step = visit(Entry(folders, dates, path, entry->name, isDirectory));
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
