#include "VeskLinux/Descriptor.h"

#include <dirent.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <chrono>
#include <cstring>
#include <memory>
#include <type_traits>

#include "VeskCore/Support/Text.h"

namespace vesk::linuxfiles {

namespace {

using std::chrono::floor;
using std::chrono::microseconds;
using std::chrono::nanoseconds;
using std::chrono::seconds;

// The years 1 to 9999, the ones that a person can mean. Dates at the ends of what the types hold would
// overflow as soon as someone reckons with them.
constexpr seconds earliest{-62'135'596'800};
constexpr seconds latest{253'402'300'799};

/// A file system may keep any year: these are moved to the nearest that counts.
TimePoint timePoint(const statx_timestamp& stamp) {
    if (stamp.tv_sec >= latest.count()) return TimePoint(latest);
    if (stamp.tv_sec < earliest.count()) return TimePoint(earliest);
    return TimePoint(seconds(stamp.tv_sec) + floor<TimePoint::duration>(nanoseconds(stamp.tv_nsec)));
}

FileKind kind(unsigned mode) {
    if (S_ISREG(mode)) return FileKind::regular;
    if (S_ISDIR(mode)) return FileKind::directory;
    if (S_ISLNK(mode)) return FileKind::symbolicLink;
    return FileKind::other;
}

}  // namespace

FileInfo fileInfo(const struct statx& status, std::optional<TimePoint> keptCreated) {
    FileInfo info;
    info.kind = kind(status.stx_mode);
    info.size = status.stx_size;
    info.modified = timePoint(status.stx_mtime);
    const auto& birth = (status.stx_mask & STATX_BTIME) != 0 ? status.stx_btime : status.stx_mtime;
    info.created = keptCreated.value_or(timePoint(birth));
    info.fileID = status.stx_ino;
    info.device = makedev(status.stx_dev_major, status.stx_dev_minor);
    return info;
}

std::optional<TimePoint> parsedCreated(std::string_view bytes) {
    static_assert(std::is_same_v<TimePoint::duration, microseconds>, "the attribute would cut dates");
    const auto count = parseInteger(bytes);
    if (!count || *count < microseconds(earliest).count() || *count > microseconds(latest).count()) return {};
    return TimePoint(microseconds(*count));
}

bool status(int folder, const char* name, int flags, struct statx& result) {
    return uninterrupted([&] {
               return ::statx(folder, name, flags | AT_NO_AUTOMOUNT, STATX_BASIC_STATS | STATX_BTIME,
                              &result);
           }) == 0;
}

bool FolderEntries::readAll(int folder) {
    bytes_.clear();
    position_ = 0;
    if (::lseek(folder, 0, SEEK_SET) != 0) return false;
    constexpr std::size_t capacity = 64 * 1024;
    thread_local const auto buffer = std::make_unique<char[]>(capacity);
    while (true) {
        const ssize_t count = uninterrupted([&] { return ::getdents64(folder, buffer.get(), capacity); });
        if (count < 0) return false;
        if (count == 0) return true;
        for (ssize_t at = 0; at < count;) {
            const auto* entry = reinterpret_cast<const dirent64*>(buffer.get() + at);
            const char* name = entry->d_name;
            if (std::strcmp(name, ".") != 0 && std::strcmp(name, "..") != 0) {
                bytes_ += static_cast<char>(entry->d_type);
                bytes_.append(name, std::strlen(name) + 1);
            }
            at += entry->d_reclen;
        }
    }
}

std::optional<FolderEntries::Entry> FolderEntries::next() {
    if (position_ >= bytes_.size()) return {};
    Entry entry{static_cast<unsigned char>(bytes_[position_]), bytes_.data() + position_ + 1};
    position_ += std::strlen(entry.name) + 2;
    return entry;
}

}  // namespace vesk::linuxfiles
