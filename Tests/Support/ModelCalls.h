// Asking a provider in a test: what comes back as words, and where the requests would have gone.
#pragma once

#include <functional>
#include <mutex>
#include <set>
#include <stop_token>
#include <string>
#include <vector>

#include "Support/Fakes.h"
#include "Support/ModelServer.h"
#include "VeskCore/Brain/BrainProvider.h"
#include "VeskCore/Brain/Keychain.h"
#include "VeskCore/Brain/ModelStream.h"
#include "VeskCore/Support/BrainError.h"
#include "VeskCore/Support/Match.h"
#include "VeskLinux/CurlTransport.h"

namespace vesk::test {

/// "text: Hi", "thinking: hm", "usage: 3 in, 4 out", "done", "done: max_tokens".
inline std::string words(const BrainEvent& event) {
    return match(
        event, [](const BrainEvent::Text& text) { return "text: " + text.text; },
        [](const BrainEvent::Thinking& thinking) { return "thinking: " + thinking.text; },
        [](const BrainEvent::Usage& usage) {
            return "usage: " + std::to_string(usage.inputTokens) + " in, " +
                   std::to_string(usage.outputTokens) + " out";
        },
        [](const BrainEvent::Done& done) {
            return done.stopReason ? "done: " + *done.stopReason : std::string("done");
        });
}

/// What `call` emits, and "failed: …" in the user's words if it throws.
inline std::vector<std::string> heard(const std::function<void(const BrainProvider::Sink&)>& call) {
    std::vector<std::string> events;
    try {
        call([&](const BrainEvent& event) { events.push_back(words(event)); });
    } catch (const BrainError& error) {
        events.push_back("failed: " + error.description());
    }
    return events;
}

inline std::vector<std::string> ask(const BrainProvider& provider, const BrainRequest& request,
                                    const std::string& model, std::stop_token stop = {}) {
    return heard([&](const BrainProvider::Sink& sink) { provider.stream(request, model, sink, stop); });
}

inline BrainRequest question(std::string text, int maxTokens = 100) {
    return {.messages = {{.role = BrainMessage::Role::user, .text = std::move(text)}},
            .maxTokens = maxTokens};
}

/// The keys sorted, so that two texts of the same JSON are equal.
inline std::string sorted(std::string_view json) {
    return Json::parse(json).dump(Json::Style::sortedPretty);
}

/// Notes the scheme and host of every request before it passes it on.
class RecordingTransport final : public HttpTransport {
public:
    explicit RecordingTransport(HttpTransport& next) : next_(next) {}
    void send(const HttpRequest& request, const Sink& sink, std::stop_token stop) override {
        {
            const std::lock_guard guard(addressesLock_);
            addresses_.insert(request.url.substr(0, request.url.find('/', request.url.find("://") + 3)));
        }
        next_.send(request, sink, stop);
    }
    std::set<std::string> addresses() const {
        const std::lock_guard guard(addressesLock_);
        return addresses_;
    }

private:
    HttpTransport& next_;
    mutable std::mutex addressesLock_;
    std::set<std::string> addresses_;
};

/// A scripted service that stands in for every other, behind the real transport, and keys for all.
struct ModelWorld {
    ModelServer server;
    CurlTransport curl{server.address()};
    RecordingTransport transport{curl};
    MemorySecretStore secrets;
    Keychain keychain{secrets};
};

}  // namespace vesk::test
