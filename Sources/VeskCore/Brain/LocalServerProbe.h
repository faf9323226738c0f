// Whether a model server runs on this machine, and which models it has.
#pragma once

#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <span>
#include <stop_token>
#include <string>
#include <vector>

#include "VeskCore/Brain/BrainModel.h"
#include "VeskCore/Brain/ChatModels.h"
#include "VeskCore/Platform/HttpTransport.h"
#include "VeskCore/Support/Executors.h"
#include "VeskCore/Support/Time.h"

namespace vesk {

/// What a server answered.
struct ProbeResult {
    bool reachable = false;
    std::vector<BrainModel> models;
    bool operator==(const ProbeResult&) const = default;
};

namespace LocalServerProbe {

inline constexpr std::string_view ollamaAddress = "http://127.0.0.1:11434/v1";
inline constexpr std::string_view lmStudioAddress = "http://127.0.0.1:1234/v1";

/// The chat models that a server lists under `baseURL`, embedding models left out; none if it doesn't answer
/// with a list within two seconds. `key` goes into the Authorization header. Throws BrainError (cancelled).
std::optional<std::vector<std::string>> modelIDs(HttpTransport& transport, const std::string& baseURL,
                                                 const std::optional<std::string>& key, std::stop_token stop);
/// What LM Studio's own list says, by model; empty if it says nothing.
std::map<std::string, LoadedModelInfo> loadedModels(HttpTransport& transport, const std::string& baseURL,
                                                    std::stop_token stop);

/// "Connected · 2 models"; none for a server that doesn't answer.
std::optional<std::string> status(const ProbeResult& result);

}  // namespace LocalServerProbe

/// The last answer of each address, shared by all who ask. Any thread. Borrows what it is made of, for as
/// long as `background` runs jobs.
class ProbeCache : public std::enable_shared_from_this<ProbeCache> {
public:
    struct Server {
        std::string baseURL;
        bool tellsLoadedModels = false;  ///< LM Studio's further list is asked too
    };

    ProbeCache(HttpTransport& transport, const Clock& clock, Background& background)
        : transport_(transport), clock_(clock), background_(background) {}

    /// The last result, however old.
    std::optional<ProbeResult> last(const std::string& baseURL) const;
    /// Sees to it that a fresh result comes, without waiting for it.
    void start(const Server& server);
    /// A result younger than 30 seconds as it stands, unless `force`; else asks the server and waits. While
    /// somebody else asks, the last result; where there is none, theirs. Throws BrainError (cancelled).
    ProbeResult probe(const Server& server, bool force, std::stop_token stop);
    /// The same for several servers at the same time, as far as there are workers for it.
    void probeAll(std::span<const Server> servers, bool force, std::stop_token stop);

private:
    struct Entry {
        ProbeResult result;
        Duration date{};  ///< on the monotonic clock
    };
    bool isFresh(const std::string& baseURL) const;
    ProbeResult ask(const Server& server, const std::stop_token& stop);

    HttpTransport& transport_;
    const Clock& clock_;
    Background& background_;
    mutable std::mutex entriesLock_;  // guards the three below
    std::condition_variable_any answered_;
    std::map<std::string, Entry> entries_;
    std::set<std::string> inFlight_;
};

}  // namespace vesk
