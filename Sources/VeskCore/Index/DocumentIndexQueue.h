// Saved pages and stylesheets indexed one at a time, off the session's path.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>

#include "VeskCore/Index/NoteIndex.h"
#include "VeskCore/Support/Executors.h"

namespace vesk {

/// Owned by the session; every call and callback on the main thread. Repeated requests for a path that still
/// waits share one run. A run goes on after its caller has gone away.
class DocumentIndexQueue {
public:
    using Outcome = NoteIndex::DocumentIndexOutcome;
    using Outcomes = std::map<std::string, Outcome>;

    /// Indexes for real. `index` outlives the queue's runs: the queue shares it.
    DocumentIndexQueue(std::shared_ptr<NoteIndex> index, Vault vault, MainQueue& mainQueue,
                       Background& background);
    /// With any operation; it runs on the queue's own serial queue.
    DocumentIndexQueue(std::function<Outcome(const std::string&)> runOne, MainQueue& mainQueue,
                       Background& background);
    ~DocumentIndexQueue();

    /// Calls `done` once all the paths have been run. An empty set is done at once, on the next turn of the
    /// queue.
    void enqueue(const std::set<std::string>& paths, std::function<void(Outcomes)> done);

    int runs() const;      ///< runs started
    int requests() const;  ///< paths asked for

private:
    struct State;
    std::shared_ptr<State> state_;
};

}  // namespace vesk
