// The files of this machine: the lowest layer under every read and write of a vault. Blocking; safe on any
// thread.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "VeskCore/Support/Error.h"
#include "VeskCore/Support/Time.h"

namespace vesk {

using FilePath = std::filesystem::path;

enum class FileKind { regular, directory, symbolicLink, other };

struct FileInfo {
    FileKind kind = FileKind::regular;
    std::uint64_t size = 0;  ///< bytes
    TimePoint modified;
    /// When the item was made: kept over saves where the file system can (setCreationDate), else its birth
    /// time, else the modification time.
    TimePoint created;
    std::uint64_t fileID = 0;  ///< inode number
    std::uint64_t device = 0;
    bool operator==(const FileInfo&) const = default;
};

/// One item met by a walk.
class WalkEntry {
public:
    virtual ~WalkEntry() = default;
    /// Relative to the walk's root, raw bytes, "/" separators.
    virtual std::string_view relativePath() const = 0;
    virtual std::string_view name() const = 0;
    /// A folder. A symbolic link to a folder is none and is not descended into.
    virtual bool isDirectory() const = 0;
    /// Asks the file system; a symbolic link answers for its target. None if the item is gone or the link
    /// dangles.
    virtual std::optional<FileInfo> info() const = 0;
};

enum class WalkStep { descend, skip, stop };

/// Failures are thrown as SystemError unless told otherwise. Paths are absolute.
class FileSystem {
public:
    virtual ~FileSystem() = default;

    // Looking

    /// Of the item itself or, through symbolic links, of its target. None if there is nothing (or a link
    /// dangles).
    virtual std::optional<FileInfo> info(const FilePath& path) const = 0;
    /// Of the item itself; a symbolic link is not followed.
    virtual std::optional<FileInfo> linkInfo(const FilePath& path) const = 0;
    bool exists(const FilePath& path) const { return info(path).has_value(); }
    virtual bool isWritable(const FilePath& path) const = 0;
    /// The path with every symbolic link resolved; none if it does not exist.
    virtual std::optional<FilePath> realPath(const FilePath& path) const = 0;
    /// The names in a folder, raw bytes, no order; throws.
    virtual std::vector<std::string> list(const FilePath& folder) const = 0;
    /// Every item below `root`, depth first, each folder before what it holds. A folder that can't be read is
    /// met but not entered; a root that can't be read gives nothing. The answer for a folder says whether to
    /// enter it; for another item only `stop` counts.
    virtual void walk(const FilePath& root, const std::function<WalkStep(const WalkEntry&)>& visit) const = 0;

    // Reading

    /// The whole file, or its first `limit` bytes. Only regular files are read: opening anything else fails.
    virtual std::string read(const FilePath& path, std::optional<std::size_t> limit = {}) const = 0;

    // Writing

    virtual void createDirectories(const FilePath& path) = 0;
    /// Makes a file that was not there, with all of `bytes` on stable storage. On failure nothing stays
    /// behind.
    virtual void writeNew(const FilePath& path, std::string_view bytes) = 0;
    /// Puts `temporary` in the place of the regular file `target` in one step, on stable storage when it
    /// returns. Mode, owner where permitted, and extended attributes of `target` go over first.
    virtual void replace(const FilePath& target, const FilePath& temporary) = 0;
    /// Swaps two items of one volume in one step, on stable storage when it returns: whatever stands at
    /// `target` at that moment is at `temporary` afterwards, and nothing is overwritten. False, with nothing
    /// changed, where the file system has no such step; ENOENT if there is nothing at `target`.
    virtual bool exchange(const FilePath& target, const FilePath& temporary) = 0;
    /// Mode, owner where permitted, and extended attributes of the regular file `target` go over to
    /// `temporary`, on stable storage when it returns. Nothing goes over from a target that isn't there.
    virtual void carryMetadata(const FilePath& target, const FilePath& temporary) = 0;
    /// Moves an item to a path where nothing is; EEXIST if something is, other than the item itself under
    /// another spelling. On stable storage when it returns.
    virtual void move(const FilePath& from, const FilePath& to) = 0;
    /// Removes a file or a symbolic link; no failure if there is none.
    virtual void remove(const FilePath& path) = 0;
    /// Removes a folder with all it holds, following no link.
    virtual void removeTree(const FilePath& path) = 0;
    /// Notes `created` as the item's creation date, to survive later saves. Throws where it can't be kept.
    virtual void setCreationDate(const FilePath& path, TimePoint created) = 0;

    // Extended attributes; names without the platform's prefix

    virtual std::optional<std::string> attribute(const FilePath& path, std::string_view name) const = 0;
    virtual void setAttribute(const FilePath& path, std::string_view name, std::string_view value) = 0;

    // Places

    /// Where the application keeps what belongs to this device: `$XDG_DATA_HOME`, else ~/.local/share.
    virtual FilePath applicationSupportDirectory() const = 0;
};

/// A path normalised without asking the disk ("." and ".." resolved, no trailing "/").
FilePath standardised(const FilePath& path);
/// `root` / `relativePath`. The relative path is never absolute: a leading "/" is dropped.
FilePath appending(const FilePath& root, std::string_view relativePath);

}  // namespace vesk
