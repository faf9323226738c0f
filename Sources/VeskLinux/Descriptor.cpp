#include "VeskLinux/Descriptor.h"

#include <dirent.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <chrono>
#include <cstring>
#include <memory>

#include "VeskCore/Support/Text.h"

namespace vesk::linuxfiles {

namespace {

using std::chrono::duration_cast;
using std::chrono::floor;
using std::chrono::microseconds;
using std::chrono::nanoseconds;
using std::chrono::seconds;

/// File systems keep years that a TimePoint of nanoseconds can't hold: these are moved to its ends.
TimePoint timePoint(const statx_timestamp& stamp) {
    constexpr auto last = duration_cast<seconds>(nanoseconds::max()).count() - 1;
    if (stamp.tv_sec >= last) return TimePoint(seconds(last));
    if (stamp.tv_sec <= -last) return TimePoint(seconds(-last));
    return TimePoint(seconds(stamp.tv_sec) + nanoseconds(stamp.tv_nsec));
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
    if (keptCreated) {
        info.created = *keptCreated;
    } else {
        // The attribute holds microseconds; a date of that precision stays equal over the first save.
        const auto& birth = (status.stx_mask & STATX_BTIME) != 0 ? status.stx_btime : status.stx_mtime;
        info.created = floor<microseconds>(timePoint(birth));
    }
    info.fileID = status.stx_ino;
    info.device = makedev(status.stx_dev_major, status.stx_dev_minor);
    return info;
}

std::optional<TimePoint> parsedCreated(std::string_view bytes) {
    const auto count = parseInteger(bytes);
    constexpr auto last = duration_cast<microseconds>(nanoseconds::max()).count();
    if (!count || *count > last || *count < -last) return {};
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
