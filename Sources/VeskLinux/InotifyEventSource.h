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
#include <string>

#include "VeskCore/Platform/FileEvents.h"
#include "VeskCore/Support/Log.h"
#include "VeskLinux/InotifyJournal.h"

namespace vesk {

/// Streams for one vault, of which one runs at a time. A stream watches every folder below its root on a
/// thread of its own; links are not followed. At its end it leaves "events.snapshot" in the state folder,
/// from which the next one tells what changed meanwhile. While a stream runs there is no such file, so that
/// after a crash the next one knows that it can't tell and asks for a scan.
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
