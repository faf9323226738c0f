// What a session has under way. Private to VaultSession's own files; main thread.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "Vesk/VaultSession.h"

namespace vesk {

struct VaultSession::Tasks {
    /// A loop that sleeps and looks. An answer counts only while its number is the loop's.
    struct Loop {
        TimerHandle timer;
        TaskHandle job;
        std::uint64_t number = 0;
        int round = 0;

        /// Ends what runs and begins a new life, whose number it returns.
        std::uint64_t restart() {
            cancel();
            round = 0;
            return ++number;
        }
        void cancel() {
            timer.cancel();
            job.cancel();
            ++number;
        }
    };

    bool stopped = false;

    // Indexing
    TaskHandle reindex;
    bool reindexAgain = false;  ///< asked for once more while one runs
    std::vector<std::function<void()>> reindexDone, nextReindexDone;
    Loop embedding;
    bool reEmbedding = false;
    /// What was saved, moved or removed while a reindex held the index: the main thread never waits for one.
    std::set<std::string> owedToIndex;
    bool isPayingIndex = false;
    bool scanningConflicts = false, scanConflictsAgain = false;

    // The status line
    std::vector<std::string> listedPages;
    int reindexedCount = 0;
    bool statusShowsCounts = false;

    // Waiting for files
    Loop pendingPoll, documentPoll;
    struct EchoCheck : Loop {
        std::optional<std::string> wrote;
    };
    std::map<std::string, EchoCheck> echoWindowChecks;
    std::map<std::string, Loop> currentVersionWaits;
    std::uint64_t waitNumber = 0;  ///< of the loops in the maps, which come and go

    // Revisions
    int revisionCounter = 0, everythingRevision = 0;
    std::map<std::string, int, std::less<>> noteRevisions;
};

/// From a worker back to the session, if it is still open then.
template <class Job>
void postTo(MainQueue& mainQueue, std::weak_ptr<VaultSession> weak, Job job) {
    mainQueue.post([weak = std::move(weak), job = std::move(job)]() mutable {
        if (auto session = weak.lock()) job(*session);
    });
}

}  // namespace vesk
