// The file events of Linux, from inotify.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <stop_token>
#include <string>

#include "VeskCore/Platform/FileEvents.h"
#include "VeskCore/Support/Log.h"
#include "VeskLinux/InotifyJournal.h"

namespace vesk {

/// Streams for one vault, of which one runs at a time. A stream watches every folder below its root on a
/// thread of its own; links are not followed. At its end it leaves "events.snapshot" in the state folder,
/// from which the next one tells what changed meanwhile. Once a stream tells events there is no such file, so
/// that after a crash the next one knows that it can't tell and asks for a scan.
///
/// start() takes the same short time for every tree: the folders below the root are gone through on the
/// stream's thread, and the first batch comes after that. What changed meanwhile differs from the snapshot.
/// Without a resume id it is known by its time stamps, which don't tell of what left a folder that wasn't
/// watched yet: a folder whose contents changed is a reason to ask for a scan then.
///
/// Where the system allows too few watches, the tree is listed every few seconds instead. A deleted file
/// whose number a new file has got is told without its file id, since the two would be taken for one.
class InotifyEventSource final : public FileEventSource {
public:
    /// What tests make small or slow.
    struct Limits {
        std::size_t watches = std::numeric_limits<std::size_t>::max();
        std::chrono::milliseconds pollInterval{3000};
        std::function<void()> beforeRead;  ///< on the reading thread
        /// On the reading thread, before the whole tree is gone through and before each of its items, with
        /// the count of those before. The token is the stream's end.
        std::function<void(std::size_t, const std::stop_token&)> duringScan;
    };

    /// Folders with a name of `skippedFolders`, at any depth, are left out with all they hold.
    InotifyEventSource(FilePath stateFolder, std::set<std::string, std::less<>> skippedFolders, Log& log,
                       Limits limits);
    InotifyEventSource(FilePath stateFolder, std::set<std::string, std::less<>> skippedFolders, Log& log)
        : InotifyEventSource(std::move(stateFolder), std::move(skippedFolders), log, Limits()) {}

    std::uint64_t currentEventID(const FilePath& root) override;
    std::unique_ptr<FileEventStream> stream(const FilePath& root, std::uint64_t sinceEventID,
                                            SerialQueue& queue,
                                            std::function<void(std::vector<RawEvent>)> deliver) override;

private:
    const FilePath snapshotFile_;
    const std::set<std::string, std::less<>> skippedFolders_;
    Log& log_;
    const Limits limits_;
    std::mutex runningLock_;                                                     // guards running_
    std::map<FilePath, std::weak_ptr<inotify::EventJournal::Counter>> running_;  // last ids by root
};

}  // namespace vesk
