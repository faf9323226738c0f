// What the conversation's own files hand to workers and get back. Private to them.
#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Vesk/AI/BrainSession.h"

namespace vesk {

/// Who was chosen to answer when the question was put. It goes to no other, whoever is chosen meanwhile.
struct BrainSession::Answering {
    std::shared_ptr<BrainProvider> provider;
    bool isOnDevice = false;
    std::string modelID, label;
    std::optional<BrainModel> model;
};

/// What was found for a question.
struct BrainSession::Gathered {
    std::uint64_t number = 0;
    Answering by;
    std::string question;
    AIScope about = AIScope::vault;
    std::vector<BrainMessage> history;
    bool ignoringRetrieval = false;
    std::vector<RetrievedChunk> chunks;
    std::optional<std::string> coverageLine;  ///< none where nothing was packed
    std::optional<VaultContext::Coverage> coverage;
};

/// A request that goes out, and what its reply is for.
struct BrainSession::Streaming {
    Answering by;
    BrainRequest request;
    AIScope about = AIScope::vault;
    bool withoutContext = false;
    std::optional<Rewrite> rewrite;
};

/// Events on their way from a worker to the main thread.
struct BrainSession::Mailbox {
    std::mutex lock;  // guards all but `text`, `stopReason` and `rewrite`
    std::vector<BrainEvent> events;
    bool isPosted = false;
    bool isEnded = false;
    bool wasCancelled = false;
    std::optional<std::string> failure;

    // Of the main thread
    std::string text;
    std::optional<std::string> stopReason;
    std::optional<Rewrite> rewrite;
};

/// The turns with the last one changed, if that is the assistant's.
template <class Change>
bool changeLastAnswer(Observable<std::vector<ChatTurn>>& turns, Change change) {
    if (turns->empty() || turns->back().role != ChatTurn::Role::assistant) return false;
    turns.modify([&](std::vector<ChatTurn>& list) { change(list.back()); });
    return true;
}

}  // namespace vesk
