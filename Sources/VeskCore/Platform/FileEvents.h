// The stream of what happens to the files below one folder, and where it was left off.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "VeskCore/Platform/FileSystem.h"
#include "VeskCore/Support/Executors.h"

namespace vesk {

/// One event as the system tells it.
struct RawEvent {
    std::optional<std::string> path;  ///< absolute, raw bytes; a folder may have one trailing "/"
    std::optional<std::uint64_t> fileID;
    std::uint32_t flags = 0;  ///< of FileEventFlag
    std::uint64_t id = 0;     ///< rising; noEventID for an event outside the count
    bool operator==(const RawEvent&) const = default;
};

namespace FileEventFlag {
inline constexpr std::uint32_t mustScanSubDirs = 0x1;  ///< events were lost
inline constexpr std::uint32_t historyDone = 0x10;
inline constexpr std::uint32_t rootChanged = 0x20;  ///< the root itself was moved, replaced or unmounted
inline constexpr std::uint32_t itemCreated = 0x100;
inline constexpr std::uint32_t itemRemoved = 0x200;
inline constexpr std::uint32_t itemRenamed = 0x800;
inline constexpr std::uint32_t itemModified = 0x1000;
inline constexpr std::uint32_t itemIsFile = 0x10000;
inline constexpr std::uint32_t itemIsDir = 0x20000;
}  // namespace FileEventFlag

/// "From now on" as a resume point, and the id of events outside the count.
inline constexpr std::uint64_t noEventID = ~std::uint64_t{0};

/// A running stream. Dropping it stops it.
class FileEventStream {
public:
    virtual ~FileEventStream() = default;
    /// False if the folder can't be watched. Doesn't wait for a large tree to be gone through; what happens
    /// once it has returned is told.
    virtual bool start() = 0;
    /// No event is delivered after it returns, but one that its queue is running. Leaves the state from which
    /// a later stream resumes.
    virtual void stop() = 0;
};

/// Where streams come from. Any thread.
class FileEventSource {
public:
    virtual ~FileEventSource() = default;
    /// The id of the latest event of a folder.
    virtual std::uint64_t currentEventID(const FilePath& root) = 0;
    /// A stream of events below `root` (its real path), delivered in batches on `queue`. With a resume id
    /// what changed since is told first, as ordinary events. None if it can't be made. `queue` outlives the
    /// stream.
    virtual std::unique_ptr<FileEventStream> stream(const FilePath& root, std::uint64_t sinceEventID,
                                                    SerialQueue& queue,
                                                    std::function<void(std::vector<RawEvent>)> deliver) = 0;
};

}  // namespace vesk
