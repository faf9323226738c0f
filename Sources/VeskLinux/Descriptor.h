// What the Linux file code shares: owned descriptors, calls that are interrupted, and reading a folder's
// entries.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "VeskCore/Platform/FileSystem.h"

struct statx;

namespace vesk::linuxfiles {

/// Owns an open file descriptor, or none (-1).
class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int number) : number_(number) {}
    ~Descriptor() { reset(); }
    Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        if (this != &other) {
            reset();
            number_ = std::exchange(other.number_, -1);
        }
        return *this;
    }

    int get() const { return number_; }
    explicit operator bool() const { return number_ >= 0; }
    int release() { return std::exchange(number_, -1); }
    void reset() {
        // Linux frees the number also when close fails: never a second try.
        if (number_ >= 0) ::close(std::exchange(number_, -1));
    }

private:
    int number_ = -1;
};

/// Calls again as long as a signal interrupts.
template <class Call>
auto uninterrupted(Call call) {
    auto result = call();
    while (result < 0 && errno == EINTR) result = call();
    return result;
}

[[noreturn]] inline void fail(const char* operation, const FilePath& path, int code = errno) {
    throw SystemError(code, operation, path.native());
}

/// True for the errors that mean "there is no such item": also a loop of links leads to none.
inline bool meansAbsent(int code) {
    return code == ENOENT || code == ENOTDIR || code == ELOOP || code == ENAMETOOLONG;
}

/// An XDG base directory: the variable's absolute path, else a path below the home
/// folder.
FilePath baseDirectory(const char* variable, const char* belowHome);

/// The extended attribute that keeps the creation date.
inline constexpr const char* createdAttribute = "user.vesk.created";

/// What statx told, with the creation date that an attribute keeps, if there is one.
FileInfo fileInfo(const struct statx& status, std::optional<TimePoint> keptCreated);
/// The date in the attribute's bytes, if it is one.
std::optional<TimePoint> parsedCreated(std::string_view bytes);
/// statx with all that fileInfo() needs; false with errno set.
bool status(int folder, const char* name, int flags, struct statx& result);

/// The entries of one folder as read, "." and ".." left out. Each is a type (DT_…), the name and a NUL.
class FolderEntries {
public:
    struct Entry {
        unsigned char type = 0;
        const char* name = "";  ///< lives as long as the FolderEntries
    };

    /// Reads all of an open folder from its start; false with errno set, keeping what was read so far.
    bool readAll(int folder);
    /// The next entry, or none at the end.
    std::optional<Entry> next();

private:
    std::string bytes_;
    std::size_t position_ = 0;
};

}  // namespace vesk::linuxfiles
