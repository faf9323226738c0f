// A file-event source whose events the test tells.
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "VeskCore/Platform/FileEvents.h"

namespace vesk::test {

/// Used by one thread. Streams deliver on their queue, as real ones do: what was sent before a stop and has
/// not run by then is dropped.
class ScriptedFileEvents final : public FileEventSource {
public:
    std::uint64_t latestID = 100;
    bool makesNoStream = false, refusesToStart = false;
    std::vector<std::uint64_t> since;  ///< what each stream was asked to resume from
    int running = 0;                   ///< streams that were started and not stopped

    /// Posts one batch to the running stream's queue; nothing if there is none.
    void send(std::vector<RawEvent> events);

    std::uint64_t currentEventID(const FilePath&) override { return latestID; }
    std::unique_ptr<FileEventStream> stream(const FilePath& root, std::uint64_t sinceEventID,
                                            SerialQueue& queue,
                                            std::function<void(std::vector<RawEvent>)> deliver) override;

private:
    class Stream;
    Stream* current_ = nullptr;
};

}  // namespace vesk::test
