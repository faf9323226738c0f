#include "VeskCore/Index/DocumentIndexQueue.h"

#include <utility>
#include <vector>

namespace vesk {

namespace {

using Outcome = DocumentIndexQueue::Outcome;

/// What one enqueue() waits for.
struct Request {
    std::size_t missing = 0;
    DocumentIndexQueue::Outcomes outcomes;
    std::function<void(DocumentIndexQueue::Outcomes)> done;
};

}  // namespace

struct DocumentIndexQueue::State {
    State(std::function<Outcome(const std::string&)> operation, MainQueue& queue, Background& background)
        : runOne(std::make_shared<const std::function<Outcome(const std::string&)>>(std::move(operation))),
          mainQueue(queue),
          work(background.serialQueue("com.tarnlight.vesk.document-index", Priority::utility)) {}

    void ended(const std::string& path, const Outcome& outcome) {
        auto run = waiting.extract(path);
        for (const auto& request : run.mapped()) {
            request->outcomes.emplace(path, outcome);
            if (--request->missing == 0) request->done(std::move(request->outcomes));
        }
    }

    const std::shared_ptr<const std::function<Outcome(const std::string&)>> runOne;
    MainQueue& mainQueue;
    std::map<std::string, std::vector<std::shared_ptr<Request>>> waiting;  // runs not ended, by path
    int runs = 0, requests = 0;
    const std::unique_ptr<SerialQueue> work;  // runs them one by one, in the order they were asked for
};

DocumentIndexQueue::DocumentIndexQueue(std::shared_ptr<NoteIndex> index, Vault vault, MainQueue& mainQueue,
                                       Background& background)
    : DocumentIndexQueue([index = std::move(index), vault = std::move(vault)](
                             const std::string& path) { return index->indexDocument(path, vault); },
                         mainQueue, background) {}

DocumentIndexQueue::DocumentIndexQueue(std::function<Outcome(const std::string&)> runOne,
                                       MainQueue& mainQueue, Background& background)
    : state_(std::make_shared<State>(std::move(runOne), mainQueue, background)) {}

DocumentIndexQueue::~DocumentIndexQueue() = default;

void DocumentIndexQueue::enqueue(const std::set<std::string>& paths, std::function<void(Outcomes)> done) {
    if (paths.empty()) {
        state_->mainQueue.post([done = std::move(done)] { done({}); });
        return;
    }
    auto request = std::make_shared<Request>();
    request->missing = paths.size();
    request->done = std::move(done);
    for (const std::string& path : paths) {
        ++state_->requests;
        auto [run, isNew] = state_->waiting.try_emplace(path);
        run->second.push_back(request);
        if (!isNew) continue;
        ++state_->runs;
        // The worker holds no state, so that the queue is never dropped by its own job.
        state_->work->post([runOne = state_->runOne, &mainQueue = state_->mainQueue,
                            weak = std::weak_ptr<State>(state_), path] {
            Outcome outcome{Outcome::Pending{"couldn't be indexed"}};
            try {
                outcome = (*runOne)(path);
            } catch (const std::exception&) {
                // The outcome says so.
            }
            mainQueue.post([weak, path, outcome] {
                if (auto state = weak.lock()) state->ended(path, outcome);
            });
        });
    }
}

int DocumentIndexQueue::runs() const {
    return state_->runs;
}

int DocumentIndexQueue::requests() const {
    return state_->requests;
}

}  // namespace vesk
