// Writing, replacing and moving, so that a power cut at any moment leaves the old or the new.
#include <sys/stat.h>
#include <sys/xattr.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include "VeskCore/Support/Uuid.h"
#include "VeskLinux/Descriptor.h"
#include "VeskLinux/LinuxFileSystem.h"

namespace vesk {

using namespace linuxfiles;

namespace {

void writeAll(int file, std::string_view bytes, const FilePath& path) {
    while (!bytes.empty()) {
        const ssize_t count = uninterrupted([&] { return ::write(file, bytes.data(), bytes.size()); });
        if (count < 0) fail("write", path);
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
}

void sync(int file, const FilePath& path) {
    if (uninterrupted([&] { return ::fsync(file); }) != 0) fail("fsync", path);
}

/// A folder whose entries are about to change, opened before, so that a want of descriptors fails the change
/// and not only what comes after it.
class ChangingFolder {
public:
    explicit ChangingFolder(const FilePath& path) : path_(path.empty() ? FilePath(".") : path) {
        folder_ = Descriptor(
            uninterrupted([&] { return ::open(path_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
        // A folder may be open to changes but not to reading; the change is then not held up by what can't be
        // had.
        if (!folder_ && errno != EACCES) fail("open", path_);
    }

    /// Brings the change to stable storage. A failure means that the change stands but may not outlast a
    /// power cut, and is reported; a file system that has no such call is not at fault.
    void sync() const {
        if (!folder_ || uninterrupted([&] { return ::fsync(folder_.get()); }) == 0) return;
        if (errno != EINVAL && errno != ENOTSUP && errno != ENOSYS) fail("fsync", path_);
    }

    bool isSame(const ChangingFolder& other) const {
        struct stat mine {
        }, its{};
        return folder_ && other.folder_ && ::fstat(folder_.get(), &mine) == 0 &&
               ::fstat(other.folder_.get(), &its) == 0 && mine.st_dev == its.st_dev &&
               mine.st_ino == its.st_ino;
    }

    bool lists(const std::string& name) const {
        FolderEntries entries;
        if (!folder_ || !entries.readAll(folder_.get())) return true;
        while (const auto entry = entries.next()) {
            if (name == entry->name) return true;
        }
        return false;
    }

private:
    FilePath path_;
    Descriptor folder_;
};

/// The names of an item's extended attributes.
std::vector<std::string> attributeNames(const FilePath& path) {
    std::string list;
    while (true) {
        const ssize_t size = ::llistxattr(path.c_str(), nullptr, 0);
        if (size <= 0) break;
        list.resize(static_cast<std::size_t>(size));
        const ssize_t got = ::llistxattr(path.c_str(), list.data(), list.size());
        if (got >= 0) {
            list.resize(static_cast<std::size_t>(got));
            break;
        }
        list.clear();
        if (errno != ERANGE) break;
    }
    std::vector<std::string> names;
    for (std::size_t at = 0; at < list.size(); at += names.back().size() + 1)
        names.emplace_back(list.c_str() + at);
    return names;
}

std::optional<std::string> rawAttribute(const FilePath& path, const std::string& name) {
    std::string value;
    while (true) {
        const ssize_t size = ::lgetxattr(path.c_str(), name.c_str(), nullptr, 0);
        if (size < 0) return {};
        value.resize(static_cast<std::size_t>(size));
        const ssize_t got = ::lgetxattr(path.c_str(), name.c_str(), value.data(), value.size());
        if (got >= 0) {
            value.resize(static_cast<std::size_t>(got));
            return value;
        }
        if (errno != ERANGE) return {};
    }
}

constexpr const char* accessList = "system.posix_acl_access";

/// True for what was measured or granted for the old bytes and must not vouch for the new ones.
bool belongsToTheOldBytes(const std::string& name) {
    return name == "security.capability" || name == "security.ima" || name == "security.evm";
}

/// Copies attributes; false with errno set if one that others keep in the file can't be carried.
bool copyAttributes(const FilePath& target, const std::vector<std::string>& names, int temporary) {
    const bool keepsOwnDate = ::fgetxattr(temporary, createdAttribute, nullptr, 0) >= 0;
    for (const std::string& name : names) {
        if (belongsToTheOldBytes(name) || (keepsOwnDate && name == createdAttribute)) continue;
        const auto value = rawAttribute(target, name);
        if (!value || ::fsetxattr(temporary, name.c_str(), value->data(), value->size(), 0) == 0) continue;
        // Without attributes on this file system there is nothing to fail for; labels and lists of the system
        // are its own affair.
        if (errno != ENOTSUP && name.starts_with("user.")) return false;
    }
    return true;
}

void carryAttributes(const FilePath& target, int temporary, const FilePath& temporaryPath) {
    const auto names = attributeNames(target);
    if (!copyAttributes(target, names, temporary)) {
        if (errno != ENOSPC && errno != EDQUOT) fail("set attribute", temporaryPath);
        // The room for attributes is small, and the old file's had enough: our own date gives way. All of
        // them go in anew, since what is in already decides what fits beside it.
        for (const std::string& name : names) {
            if (name.starts_with("user.")) ::fremovexattr(temporary, name.c_str());
        }
        ::fremovexattr(temporary, createdAttribute);
        if (!copyAttributes(target, names, temporary)) fail("set attribute", temporaryPath);
    }
    // A list that the folder gave to the new file would let people in whom the old file kept out.
    if (std::find(names.begin(), names.end(), accessList) == names.end())
        ::fremovexattr(temporary, accessList);
}

bool meansNotPermitted(int code) {
    // EINVAL: an owner without a number in this user name space.
    return code == EPERM || code == EACCES || code == EINVAL || code == ENOTSUP || code == ENOSYS;
}

void carryOwnerAndMode(const struct stat& target, int temporary, const FilePath& temporaryPath) {
    struct stat own {};
    if (::fstat(temporary, &own) != 0) fail("stat", temporaryPath);
    // Programs that run as their owner are not made by saving text: the kernel too drops these bits at a
    // write.
    mode_t mode = target.st_mode & (S_IRWXU | S_IRWXG | S_IRWXO | S_ISVTX);
    if (own.st_uid != target.st_uid || own.st_gid != target.st_gid) {
        if (::fchown(temporary, target.st_uid, target.st_gid) != 0) {
            if (!meansNotPermitted(errno)) fail("chown", temporaryPath);
            if (own.st_gid != target.st_gid &&
                ::fchown(temporary, static_cast<uid_t>(-1), target.st_gid) != 0) {
                if (!meansNotPermitted(errno)) fail("chown", temporaryPath);
                // The rights were another group's: this one gets what everybody has.
                const mode_t others = mode & S_IRWXO;
                mode = (mode & ~mode_t{S_IRWXG}) | (mode & (others << 3));
            }
        }
    }
    if (::fchmod(temporary, mode) != 0 && !meansNotPermitted(errno)) fail("chmod", temporaryPath);
}

bool isSameItem(const FileInfo& left, const FileInfo& right) {
    return left.fileID == right.fileID && left.device == right.device;
}

bool renamedToFreeName(const FilePath& from, const FilePath& to) {
    return ::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0;
}

/// Gives an item another spelling of its name in a folder that takes both for one.
void respell(const FilePath& from, const FilePath& to, const ChangingFolder& folder) {
    if (::rename(from.c_str(), to.c_str()) != 0) fail("move", to);
    if (folder.lists(to.filename().native())) return;
    // Some file systems see one file in both and leave it as it is: it goes by way of a third name, in plain
    // sight and with its extension in case the power goes just now.
    const FilePath between = to.parent_path() / (randomUuid().substr(0, 8) + "-" + to.filename().native());
    if (::rename(from.c_str(), between.c_str()) != 0) fail("move", to);
    if (::rename(between.c_str(), to.c_str()) != 0) {
        const int code = errno;
        ::rename(between.c_str(), from.c_str());
        fail("move", to, code);
    }
}

}  // namespace

void LinuxFileSystem::createDirectories(const FilePath& path) {
    std::vector<FilePath> missing;
    for (FilePath folder = standardised(path);; folder = folder.parent_path()) {
        const auto there = info(folder);
        if (there && there->kind != FileKind::directory) fail("create folder", folder, ENOTDIR);
        if (there) break;
        missing.push_back(folder);
        if (!folder.has_relative_path()) fail("create folder", folder, ENOENT);
    }
    for (auto folder = missing.rbegin(); folder != missing.rend(); ++folder) {
        const ChangingFolder parent(folder->parent_path());
        if (::mkdir(folder->c_str(), 0777) != 0) {
            const int code = errno;
            // Someone else may have made it meanwhile.
            const auto there = info(*folder);
            if (code != EEXIST || !there || there->kind != FileKind::directory)
                fail("create folder", *folder, code);
        }
        parent.sync();
    }
}

void LinuxFileSystem::writeNew(const FilePath& path, std::string_view bytes) {
    Descriptor file(uninterrupted(
        [&] { return ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0666); }));
    if (!file) fail("create", path);
    try {
        writeAll(file.get(), bytes, path);
        sync(file.get(), path);
        // Some network file systems tell of a failed write only now.
        if (::close(file.release()) != 0 && errno != EINTR) fail("close", path);
    } catch (...) {
        ::unlink(path.c_str());
        throw;
    }
}

void LinuxFileSystem::carryMetadata(const FilePath& target, const FilePath& temporary) {
    const Descriptor file(uninterrupted(
        [&] { return ::open(temporary.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK); }));
    if (!file) fail("open", temporary);
    struct stat old {};
    if (::lstat(target.c_str(), &old) == 0) {
        if (!S_ISREG(old.st_mode)) fail("replace", target, S_ISDIR(old.st_mode) ? EISDIR : EINVAL);
        // The mode comes last: attributes need a file that may be written, and a change of owner drops bits.
        carryAttributes(target, file.get(), temporary);
        carryOwnerAndMode(old, file.get(), temporary);
    } else if (errno != ENOENT) {
        fail("stat", target);
    }
    // What was noted on the file since it was written has to be there before the name is.
    sync(file.get(), temporary);
}

void LinuxFileSystem::replace(const FilePath& target, const FilePath& temporary) {
    // A target that was taken away meanwhile leaves a free place, which the new text takes.
    carryMetadata(target, temporary);
    const ChangingFolder folder(target.parent_path());
    if (::rename(temporary.c_str(), target.c_str()) != 0) fail("rename", target);
    folder.sync();
}

bool LinuxFileSystem::exchange(const FilePath& target, const FilePath& temporary) {
    const ChangingFolder folder(target.parent_path()), other(temporary.parent_path());
    if (::renameat2(AT_FDCWD, target.c_str(), AT_FDCWD, temporary.c_str(), RENAME_EXCHANGE) != 0) {
        if (errno == EINVAL || errno == ENOSYS || errno == ENOTSUP) return false;
        fail("exchange", target);
    }
    folder.sync();
    if (!folder.isSame(other)) other.sync();
    return true;
}

void LinuxFileSystem::move(const FilePath& from, const FilePath& to) {
    const ChangingFolder source(from.parent_path()), destination(to.parent_path());
    const bool staysInFolder = source.isSame(destination);
    if (!renamedToFreeName(from, to)) {
        const bool isUnknownCall = errno == EINVAL || errno == ENOSYS;
        if (errno != EEXIST && !isUnknownCall) fail("move", errno == ENOENT || errno == EXDEV ? from : to);
        const auto item = linkInfo(from), occupant = linkInfo(to);
        if (!item) fail("move", from, ENOENT);
        if (occupant) {
            if (!staysInFolder || !isSameItem(*item, *occupant)) fail("move", to, EEXIST);
            if (from.filename() == to.filename()) return;
            // Either the folder takes both spellings for one name, or these are two links to one file, which
            // rename would leave both standing.
            if (destination.lists(to.filename().native())) fail("move", to, EEXIST);
            respell(from, to, destination);
        } else if (!isUnknownCall) {
            fail("move", to, EEXIST);
        } else if (::rename(from.c_str(), to.c_str()) != 0) {
            fail("move", to);
        }
    }
    destination.sync();
    if (!staysInFolder) source.sync();
}

void LinuxFileSystem::remove(const FilePath& path) {
    if (::unlink(path.c_str()) != 0 && errno != ENOENT && errno != ENOTDIR) fail("remove", path);
}

void LinuxFileSystem::setCreationDate(const FilePath& path, TimePoint created) {
    const auto count = std::chrono::floor<std::chrono::microseconds>(created).time_since_epoch().count();
    const std::string text = std::to_string(count);
    if (::setxattr(path.c_str(), createdAttribute, text.data(), text.size(), 0) != 0)
        fail("set attribute", path);
}

}  // namespace vesk
