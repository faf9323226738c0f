// Looking, reading and attributes. LinuxFileWalk.cpp goes through trees, LinuxFileWriting.cpp writes.
#include "VeskLinux/LinuxFileSystem.h"

#include <pwd.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <new>
#include <stdexcept>

#include "VeskLinux/Descriptor.h"

namespace vesk {

using namespace linuxfiles;

namespace {

std::optional<FileInfo> infoOf(const FilePath& path, int flags) {
    struct statx result {};
    if (!status(AT_FDCWD, path.c_str(), flags, result)) {
        if (meansAbsent(errno)) return {};
        fail("stat", path);
    }
    std::optional<TimePoint> kept;
    // A link itself has no such attribute.
    if (!S_ISLNK(result.stx_mode)) {
        char bytes[32];
        const ssize_t size = ::getxattr(path.c_str(), createdAttribute, bytes, sizeof bytes);
        if (size >= 0) kept = parsedCreated({bytes, static_cast<std::size_t>(size)});
    }
    return fileInfo(result, kept);
}

Descriptor openForReading(const FilePath& path) {
    constexpr int flags = O_RDONLY | O_CLOEXEC | O_NOCTTY;
    // Without O_NONBLOCK the opening of a FIFO waits for someone who writes.
    Descriptor file(uninterrupted([&] { return ::open(path.c_str(), flags | O_NONBLOCK); }));
    struct stat now {};
    if (!file && errno == EWOULDBLOCK && ::stat(path.c_str(), &now) == 0 && S_ISREG(now.st_mode)) {
        // Another program holds a lease on the file, which the kernel takes back while a blocking call waits.
        file = Descriptor(uninterrupted([&] { return ::open(path.c_str(), flags); }));
    }
    if (!file) fail("open", path);
    if (::fstat(file.get(), &now) != 0) fail("stat", path);
    if (!S_ISREG(now.st_mode)) fail("read", path, S_ISDIR(now.st_mode) ? EISDIR : EINVAL);
    return file;
}

std::string attributeName(std::string_view name) {
    return "user." + std::string(name);
}

FilePath homeDirectory() {
    if (const char* home = std::getenv("HOME"); home && *home == '/') return home;
    passwd record{}, *found = nullptr;
    std::string buffer(16 * 1024, '\0');
    ::getpwuid_r(::getuid(), &record, buffer.data(), buffer.size(), &found);
    if (found && found->pw_dir && *found->pw_dir == '/') return found->pw_dir;
    return "/";
}

}  // namespace

FilePath linuxfiles::baseDirectory(const char* variable, const char* belowHome) {
    // A relative path in such a variable is invalid and ignored (XDG base directories).
    if (const char* chosen = std::getenv(variable); chosen && *chosen == '/') return chosen;
    return homeDirectory() / belowHome;
}

std::optional<FileInfo> LinuxFileSystem::info(const FilePath& path) const {
    return infoOf(path, 0);
}

std::optional<FileInfo> LinuxFileSystem::linkInfo(const FilePath& path) const {
    return infoOf(path, AT_SYMLINK_NOFOLLOW);
}

bool LinuxFileSystem::isWritable(const FilePath& path) const {
    return ::faccessat(AT_FDCWD, path.c_str(), W_OK, AT_EACCESS) == 0;
}

std::optional<FilePath> LinuxFileSystem::realPath(const FilePath& path) const {
    const std::unique_ptr<char, decltype(&std::free)> resolved(::realpath(path.c_str(), nullptr), &std::free);
    if (resolved) return FilePath(resolved.get());
    if (meansAbsent(errno)) return {};
    fail("resolve", path);
}

std::vector<std::string> LinuxFileSystem::list(const FilePath& folder) const {
    const Descriptor open(
        uninterrupted([&] { return ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
    if (!open) fail("open", folder);
    FolderEntries entries;
    if (!entries.readAll(open.get())) fail("list", folder);
    std::vector<std::string> names;
    while (const auto entry = entries.next()) names.emplace_back(entry->name);
    return names;
}

std::string LinuxFileSystem::read(const FilePath& path, std::optional<std::size_t> limit) const {
    const Descriptor file = openForReading(path);
    struct stat now {};
    if (::fstat(file.get(), &now) != 0) fail("stat", path);
    const std::size_t most = limit.value_or(std::string::npos);
    std::string bytes;
    std::size_t filled = 0;
    try {
        // The size is a guess: the file may grow or shrink while it is read. One byte more lets the end be
        // met without growing.
        bytes.resize(std::min(most, static_cast<std::size_t>(now.st_size) + 1));
        while (filled < most) {
            if (filled == bytes.size())
                bytes.resize(std::min(most, filled + std::max(filled, std::size_t{64 * 1024})));
            const ssize_t count = uninterrupted(
                [&] { return ::read(file.get(), bytes.data() + filled, bytes.size() - filled); });
            if (count < 0) fail("read", path);
            if (count == 0) break;
            filled += static_cast<std::size_t>(count);
        }
        bytes.resize(filled);
    } catch (const std::bad_alloc&) {
        fail("read", path, ENOMEM);
    } catch (const std::length_error&) {
        fail("read", path, ENOMEM);
    }
    return bytes;
}

std::optional<std::string> LinuxFileSystem::attribute(const FilePath& path, std::string_view name) const {
    const std::string full = attributeName(name);
    while (true) {
        const ssize_t size = ::lgetxattr(path.c_str(), full.c_str(), nullptr, 0);
        if (size >= 0) {
            std::string value(static_cast<std::size_t>(size), '\0');
            const ssize_t got = ::lgetxattr(path.c_str(), full.c_str(), value.data(), value.size());
            if (got >= 0) {
                value.resize(static_cast<std::size_t>(got));
                return value;
            }
            // It grew between the two calls.
            if (errno == ERANGE) continue;
        }
        if (errno == ENODATA || errno == ENOTSUP || meansAbsent(errno)) return {};
        fail("read attribute", path);
    }
}

void LinuxFileSystem::setAttribute(const FilePath& path, std::string_view name, std::string_view value) {
    if (::lsetxattr(path.c_str(), attributeName(name).c_str(), value.data(), value.size(), 0) != 0) {
        fail("set attribute", path);
    }
}

FilePath LinuxFileSystem::applicationSupportDirectory() const {
    return baseDirectory("XDG_DATA_HOME", ".local/share");
}

}  // namespace vesk
