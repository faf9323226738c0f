#include "VeskLinux/InotifySnapshot.h"

#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <utility>

#include "VeskCore/Support/Digest.h"
#include "VeskLinux/FolderStack.h"

namespace vesk::inotify {

using namespace linuxfiles;

namespace {

constexpr std::string_view magic = "vesk file events 2\n";
constexpr std::size_t digestSize = 32;
// More than the longest root, the numbers behind it and the digest of both need.
constexpr std::size_t mostHead = 8192;
// Longer than the steps in which a kernel or a file server keeps times.
constexpr std::chrono::milliseconds freshTime{2500};

std::int64_t nanoseconds(const struct statx_timestamp& time) {
    return time.tv_sec * 1'000'000'000 + time.tv_nsec;
}

FileKind kindOf(unsigned mode) {
    if (S_ISREG(mode)) return FileKind::regular;
    if (S_ISDIR(mode)) return FileKind::directory;
    return S_ISLNK(mode) ? FileKind::symbolicLink : FileKind::other;
}

/// Numbers of 8 bytes, low byte first, and strings behind their length.
class Writer {
public:
    explicit Writer(std::string& bytes) : bytes_(bytes) {}
    void number(std::uint64_t value) {
        for (int shift = 0; shift < 64; shift += 8) bytes_ += static_cast<char>((value >> shift) & 0xFF);
    }
    void number(std::int64_t value) { number(static_cast<std::uint64_t>(value)); }
    void text(std::string_view value) {
        number(value.size());
        bytes_ += value;
    }

private:
    std::string& bytes_;
};

/// Past the end it reads nothing but zeros and is no longer valid.
class Reader {
public:
    explicit Reader(std::string_view bytes) : rest_(bytes) {}
    std::uint64_t number() {
        const std::string_view bytes = take(8);
        std::uint64_t value = 0;
        for (std::size_t at = 0; at < bytes.size(); ++at)
            value |= std::uint64_t{static_cast<unsigned char>(bytes[at])} << (8 * at);
        return value;
    }
    std::int64_t signedNumber() { return static_cast<std::int64_t>(number()); }
    std::string text() { return std::string(take(number())); }
    std::string_view digest() { return take(digestSize); }
    std::size_t left() const { return rest_.size(); }
    bool isValid() const { return isValid_; }
    bool isAtEnd() const { return rest_.empty(); }

private:
    std::string_view take(std::uint64_t count) {
        isValid_ = isValid_ && count <= rest_.size();
        if (!isValid_) return {};
        const std::string_view bytes = rest_.substr(0, count);
        rest_.remove_prefix(count);
        return bytes;
    }
    std::string_view rest_;
    bool isValid_ = true;
};

std::string digestOf(std::string_view bytes) {
    const Sha256Digest digest = sha256(bytes);
    return std::string(digest.begin(), digest.end());
}

}  // namespace

bool ItemState::isSameItem(const ItemState& other) const {
    if (kind != other.kind || fileID != other.fileID) return false;
    if (born != 0 && other.born != 0) return born == other.born;
    // Without a birth time only the contents' date tells a file from the next one under its number.
    return kind == FileKind::directory || (size == other.size && modified == other.modified);
}

std::optional<ItemState> itemState(int folder, const char* name, bool followsLink) {
    struct statx result {};
    if (!status(folder, name, followsLink ? 0 : AT_SYMLINK_NOFOLLOW, result)) return {};
    return ItemState{.kind = kindOf(result.stx_mode),
                     .fileID = result.stx_ino,
                     .born = result.stx_mask & STATX_BTIME ? nanoseconds(result.stx_btime) : 0,
                     .size = result.stx_size,
                     .modified = nanoseconds(result.stx_mtime),
                     .touched = nanoseconds(result.stx_ctime)};
}

std::optional<Listing> listTree(const FilePath& root, const FolderNames& skipped,
                                const std::stop_token& stop) {
    FolderStack folders;
    if (!folders.start(root, true)) return {};
    Listing items;
    std::string path;  // of the innermost folder, with a "/" behind it, then of the entry
    while (!folders.empty()) {
        if (stop.stop_requested()) return {};
        const std::size_t prefix = path.size();
        const auto entry = folders.entries().next();
        if (!entry) {
            if (folders.depth() > 1) path.resize(prefix - folders.name().size() - 1);
            folders.leave();
            continue;
        }
        const auto state = itemState(folders.descriptor(), entry->name);
        const bool isFolder = state && state->kind == FileKind::directory;
        if (!state || (isFolder && skipped.contains(entry->name))) continue;
        path += entry->name;
        items.emplace_hint(items.end(), path, *state);
        if (isFolder) {
            if (folders.enter(entry->name)) {
                path += '/';
                continue;
            }
            // A folder left out for want of descriptors would look as if its files were gone.
            if (errno == EMFILE || errno == ENFILE || errno == ENOMEM) return {};
        }
        path.resize(prefix);
    }
    return items;
}

std::int64_t stampOfNow() {
    timespec now{};
    // Files are stamped by the clock's last tick.
    ::clock_gettime(CLOCK_REALTIME_COARSE, &now);
    return std::int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

void forgetFreshTimes(Listing& items) {
    const auto now = std::chrono::system_clock::now() - freshTime;
    const std::int64_t limit =
        std::chrono::duration_cast<std::chrono::nanoseconds>(now.time_since_epoch()).count();
    for (auto& [path, state] : items) {
        if (state.modified >= limit) state.modified = 0;
    }
}

void tellDifferences(const Listing& before, const Listing& after, EventJournal& journal) {
    std::multimap<std::uint64_t, Listing::const_iterator> left;  // by file id
    for (auto item = before.begin(); item != before.end(); ++item) {
        const auto now = after.find(item->first);
        if (now == after.end() || !now->second.isSameItem(item->second))
            left.emplace(item->second.fileID, item);
    }
    std::vector<Listing::const_iterator> came;
    std::vector<std::pair<Listing::const_iterator, Listing::const_iterator>> moved;
    for (auto item = after.begin(); item != after.end(); ++item) {
        const ItemState& state = item->second;
        if (const auto old = before.find(item->first); old != before.end() && state.isSameItem(old->second)) {
            const bool isChanged = state.size != old->second.size || state.modified != old->second.modified;
            if (isChanged && state.kind != FileKind::directory)
                journal.tell(item->first, state.fileID, state.kind, FileEventFlag::itemModified);
            continue;
        }
        const auto [first, last] = left.equal_range(state.fileID);
        const auto source = std::find_if(
            first, last, [&](const auto& candidate) { return state.isSameItem(candidate.second->second); });
        if (source == last) {
            came.push_back(item);
        } else {
            moved.emplace_back(source->second, item);
            left.erase(source);
        }
    }
    // Deletions before arrivals, so that a number that was given anew is known for one.
    for (const auto& [fileID, item] : left) {
        // Of a path that holds another item now, the arrival tells.
        if (!after.contains(item->first))
            journal.tell(item->first, fileID, item->second.kind, FileEventFlag::itemRemoved);
    }
    for (const auto& [from, to] : moved) {
        journal.tell(from->first, to->second.fileID, to->second.kind, FileEventFlag::itemRenamed);
        journal.tell(to->first, to->second.fileID, to->second.kind, FileEventFlag::itemRenamed);
    }
    for (const auto item : came)
        journal.tell(item->first, item->second.fileID, item->second.kind, FileEventFlag::itemCreated);
}

void tellTouched(const Listing& items, std::int64_t stamp, bool rootIsWatched, EventJournal& journal) {
    std::set<std::string_view> arrived;  // folders that may be new here with all they hold
    bool isUnsure = false;
    for (const auto& [path, state] : items) {
        const std::size_t slash = path.rfind('/');
        const bool isTop = slash == path.npos;
        const bool isWithin = !isTop && arrived.contains(std::string_view(path).substr(0, slash));
        if (!isWithin && state.touched < stamp) continue;
        const bool isChanged = state.modified >= stamp || state.modified == 0;
        if (state.kind == FileKind::directory) {
            // A name or a place of its own changes no folder's contents' date.
            if (!isWithin && state.born < stamp && isChanged) {
                isUnsure = true;
                continue;
            }
            arrived.insert(path);
        }
        if (isTop && rootIsWatched) continue;
        journal.tell(path, state.fileID, state.kind,
                     isWithin || state.born >= stamp ? FileEventFlag::itemCreated
                     : isChanged                     ? FileEventFlag::itemModified
                                                     : FileEventFlag::itemRenamed);
    }
    if (isUnsure) journal.tellRoot(FileEventFlag::mustScanSubDirs);
}

void save(const Snapshot& snapshot, const FilePath& file) {
    std::string bytes(magic);
    Writer writer(bytes);
    writer.text(snapshot.root.native());
    writer.number(snapshot.rootID);
    writer.number(snapshot.history.lastID);
    bytes += digestOf(bytes);
    writer.number(snapshot.history.completeAfter);
    writer.number(snapshot.history.events.size());
    for (const RawEvent& event : snapshot.history.events) {
        writer.text(event.path.value_or(""));
        writer.number(std::uint64_t{event.fileID.has_value()});
        writer.number(event.fileID.value_or(0));
        writer.number(std::uint64_t{event.flags});
        writer.number(event.id);
    }
    writer.number(snapshot.items.size());
    for (const auto& [path, state] : snapshot.items) {
        writer.text(path);
        writer.number(static_cast<std::uint64_t>(state.kind));
        writer.number(state.fileID);
        writer.number(state.born);
        writer.number(state.size);
        writer.number(state.modified);
    }
    bytes += digestOf(bytes);

    std::error_code error;
    std::filesystem::create_directories(file.parent_path(), error);
    const FilePath temporary = file.native() + ".new";
    std::ofstream stream(temporary, std::ios::binary | std::ios::trunc);
    stream.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    stream.close();
    if (!stream) {
        const int code = errno;
        ::unlink(temporary.c_str());
        fail("write", temporary, code);
    }
    if (::rename(temporary.c_str(), file.c_str()) != 0) fail("rename", file);
}

std::optional<Snapshot> loadSnapshot(const FilePath& file) {
    std::ifstream stream(file, std::ios::binary);
    if (!stream) return {};
    const std::string all{std::istreambuf_iterator<char>(stream), {}};
    if (stream.bad() || all.size() < magic.size() + digestSize || !all.starts_with(magic)) return {};
    const std::string_view bytes = std::string_view(all).substr(0, all.size() - digestSize);
    if (digestOf(bytes) != all.substr(bytes.size())) return {};

    Reader reader(bytes.substr(magic.size()));
    Snapshot snapshot;
    snapshot.root = reader.text();
    snapshot.rootID = reader.number();
    snapshot.history.lastID = reader.number();
    reader.digest();
    snapshot.history.completeAfter = reader.number();
    for (std::uint64_t count = reader.number(); count > 0 && reader.isValid(); --count) {
        RawEvent event;
        event.path = reader.text();
        const bool hasFileID = reader.number() != 0;
        const std::uint64_t fileID = reader.number();
        if (hasFileID) event.fileID = fileID;
        event.flags = static_cast<std::uint32_t>(reader.number());
        event.id = reader.number();
        snapshot.history.events.push_back(std::move(event));
    }
    for (std::uint64_t count = reader.number(); count > 0 && reader.isValid(); --count) {
        std::string path = reader.text();
        ItemState state;
        state.kind = static_cast<FileKind>(reader.number());
        state.fileID = reader.number();
        state.born = reader.signedNumber();
        state.size = reader.number();
        state.modified = reader.signedNumber();
        snapshot.items.emplace_hint(snapshot.items.end(), std::move(path), state);
    }
    if (!reader.isValid() || !reader.isAtEnd()) return {};
    return snapshot;
}

std::optional<std::uint64_t> loadLastID(const FilePath& file, const FilePath& root) {
    std::ifstream stream(file, std::ios::binary);
    std::string head(mostHead, '\0');
    stream.read(head.data(), mostHead);
    head.resize(static_cast<std::size_t>(stream.gcount()));
    if (!head.starts_with(magic)) return {};
    Reader reader(std::string_view(head).substr(magic.size()));
    const std::string ownRoot = reader.text();
    reader.number();
    const std::uint64_t lastID = reader.number();
    const std::size_t size = head.size() - reader.left();
    const std::string_view digest = reader.digest();
    if (!reader.isValid() || ownRoot != root.native() || digestOf(head.substr(0, size)) != digest) return {};
    return lastID;
}

}  // namespace vesk::inotify
