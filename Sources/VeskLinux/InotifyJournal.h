// Events on their way out: numbered, gathered to batches, and the latest of them kept for those who ask
// again.
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "VeskCore/Platform/FileEvents.h"

namespace vesk::inotify {

/// One thread at a time; the counter may be read from any.
class EventJournal {
public:
    using Counter = std::atomic<std::uint64_t>;
    /// What outlives the run.
    struct History {
        std::uint64_t lastID = 0;
        std::uint64_t completeAfter = 0;  ///< every event with a greater id is in `events`
        std::deque<RawEvent> events;
        bool operator==(const History&) const = default;
    };

    EventJournal(FilePath root, std::shared_ptr<Counter> lastID);

    /// What is told before is for nobody.
    void startAfter(History history);
    /// Puts the events after `id` into the batch again; false if they are no longer known.
    bool repeatAfter(std::uint64_t id);

    void tell(std::string_view relativePath, std::optional<std::uint64_t> fileID, FileKind kind,
              std::uint32_t flags);
    /// Of the root: events lost, root changed, history told.
    void tellRoot(std::uint32_t flags);

    bool hasBatch() const { return !batch_.empty(); }
    std::vector<RawEvent> takeBatch();
    /// The batch counts as part of it.
    History history();

private:
    std::string root_;
    std::shared_ptr<Counter> lastID_;
    bool isStarted_ = false;
    History history_;
    std::vector<RawEvent> batch_;
    // Of the batch: where each path was told of last, and who was deleted.
    std::unordered_map<std::string, std::size_t> places_;
    std::unordered_map<std::uint64_t, std::size_t> removals_;
};

}  // namespace vesk::inotify
