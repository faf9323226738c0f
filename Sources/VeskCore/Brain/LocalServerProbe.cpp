#include "VeskCore/Brain/LocalServerProbe.h"

#include <limits>

#include "VeskCore/Brain/EndpointURL.h"
#include "VeskCore/Brain/WireJson.h"
#include "VeskCore/Support/BrainError.h"
#include "VeskCore/Support/Localised.h"

namespace vesk {

namespace {

constexpr auto patience = std::chrono::seconds(2);
constexpr auto freshness = std::chrono::seconds(30);
constexpr std::size_t largestList = std::size_t{8} << 20;

/// None for anything but a JSON object with status 200.
std::optional<Json> list(HttpTransport& transport, const std::string& url,
                         const std::optional<std::string>& key, const std::stop_token& stop) {
    HttpRequest request{.url = url,
                        .headers = {{"Accept", "application/json"}},
                        .connectTimeout = patience,
                        .idleTimeout = patience,
                        .totalTimeout = patience,
                        .maxBody = largestList,
                        .allowsCompression = true};
    if (key) request.headers.push_back({"Authorization", "Bearer " + *key});
    try {
        const auto reply = transport.fetch(request, stop);
        return reply.head.status == 200 ? parsedJson(reply.body) : std::nullopt;
    } catch (const HttpError&) {
        if (stop.stop_requested()) throw BrainError(BrainError::Cancelled{});
        return std::nullopt;
    }
}

std::optional<int> tokens(const Json& entry, std::string_view key) {
    const auto number = entry.integer(key);
    return number && *number > 0 && *number <= std::numeric_limits<int>::max()
               ? std::optional(static_cast<int>(*number))
               : std::nullopt;
}

}  // namespace

std::optional<std::vector<std::string>> LocalServerProbe::modelIDs(HttpTransport& transport,
                                                                   const std::string& baseURL,
                                                                   const std::optional<std::string>& key,
                                                                   std::stop_token stop) {
    const auto reply = list(transport, EndpointURL::appending(baseURL, "models"), key, stop);
    const Json* data = reply ? reply->find("data") : nullptr;
    // A server without any model may write null for the empty list.
    if (data && data->isNull()) return std::vector<std::string>();
    const auto* entries = data ? data->asArray() : nullptr;
    if (!entries) return std::nullopt;
    std::vector<std::string> ids;
    for (const auto& entry : *entries) {
        auto id = entry.string("id");
        if (id && !id->empty() && !ChatModels::isEmbeddingModel(*id)) ids.push_back(std::move(*id));
    }
    return ids;
}

std::map<std::string, LoadedModelInfo> LocalServerProbe::loadedModels(HttpTransport& transport,
                                                                      const std::string& baseURL,
                                                                      std::stop_token stop) {
    std::map<std::string, LoadedModelInfo> loaded;
    const auto reply = list(transport, EndpointURL::withPath(baseURL, "/api/v0/models"), std::nullopt, stop);
    const Json* data = reply ? reply->find("data") : nullptr;
    const auto* entries = data ? data->asArray() : nullptr;
    for (std::size_t i = 0; entries && i < entries->size(); ++i) {
        const Json& entry = (*entries)[i];
        if (const auto id = entry.string("id")) {
            loaded[*id] = {.state = entry.string("state").value_or(""),
                           .maxContextLength = tokens(entry, "max_context_length"),
                           .loadedContextLength = tokens(entry, "loaded_context_length")};
        }
    }
    return loaded;
}

std::optional<std::string> LocalServerProbe::status(const ProbeResult& result) {
    if (!result.reachable) return std::nullopt;
    if (result.models.empty()) return localised("Running, but no models loaded");
    return localisedCount("Connected · {} model", "Connected · {} models", result.models.size(),
                          result.models.size());
}

bool ProbeCache::isFresh(const std::string& baseURL) const {
    const auto entry = entries_.find(baseURL);
    return entry != entries_.end() && clock_.monotonic() - entry->second.date < freshness;
}

std::optional<ProbeResult> ProbeCache::last(const std::string& baseURL) const {
    const std::lock_guard guard(entriesLock_);
    const auto entry = entries_.find(baseURL);
    return entry != entries_.end() ? std::optional(entry->second.result) : std::nullopt;
}

void ProbeCache::start(const Server& server) {
    {
        const std::lock_guard guard(entriesLock_);
        if (isFresh(server.baseURL) || inFlight_.count(server.baseURL) > 0) return;
    }
    background_.run(Priority::userInitiated, [self = shared_from_this(), server](std::stop_token stop) {
        try {
            self->probe(server, false, stop);
        } catch (const BrainError&) {
            // Stopped with the program; nobody waits for the result any more.
        }
    });
}

ProbeResult ProbeCache::probe(const Server& server, bool force, std::stop_token stop) {
    {
        std::unique_lock guard(entriesLock_);
        const auto isFree = [&] { return inFlight_.count(server.baseURL) == 0; };
        const auto known = [&]() -> std::optional<ProbeResult> {
            const auto entry = entries_.find(server.baseURL);
            return entry != entries_.end() ? std::optional(entry->second.result) : std::nullopt;
        };
        while (!isFree()) {
            if (auto result = known()) return *result;
            if (!answered_.wait(guard, stop, isFree)) throw BrainError(BrainError::Cancelled{});
            if (auto result = known()) return *result;
        }
        if (!force && isFresh(server.baseURL)) return *known();
        inFlight_.insert(server.baseURL);
    }
    // Leaves the address free again whatever happens, and wakes those who wait for it.
    struct Landing {
        ProbeCache& cache;
        const std::string& address;
        ~Landing() {
            const std::lock_guard guard(cache.entriesLock_);
            cache.inFlight_.erase(address);
            cache.answered_.notify_all();
        }
    } landing{*this, server.baseURL};
    auto result = ask(server, stop);
    const std::lock_guard guard(entriesLock_);
    entries_[server.baseURL] = {.result = result, .date = clock_.monotonic()};
    return result;
}

void ProbeCache::probeAll(std::span<const Server> servers, bool force, std::stop_token stop) {
    // Whoever comes first asks a server: a worker, or the caller where all workers are busy.
    struct Shared {
        explicit Shared(std::size_t count) : taken(count) {}
        bool take(std::size_t number, bool isWorker) {
            const std::lock_guard guard(takenLock);
            if (taken[number]) return false;
            taken[number] = true;
            if (isWorker) ++running;
            return true;
        }
        void end() {
            const std::lock_guard guard(takenLock);
            --running;
            ended.notify_all();
        }
        std::mutex takenLock;  // guards the three below
        std::condition_variable_any ended;
        std::vector<bool> taken;
        int running = 0;
    };
    const auto shared = std::make_shared<Shared>(servers.size());
    std::vector<TaskHandle> workers;
    for (std::size_t number = 1; number < servers.size(); ++number) {
        const auto job = [self = shared_from_this(), shared, server = servers[number], force,
                          number](std::stop_token workerStop) {
            if (!shared->take(number, true)) return;
            try {
                self->probe(server, force, std::move(workerStop));
            } catch (const BrainError&) {
                // Stopped, and with it whoever waits for the result.
            }
            shared->end();
        };
        workers.push_back(background_.run(Priority::userInitiated, job));
    }
    const std::stop_callback ending(stop, [&workers] {
        for (auto& worker : workers) worker.cancel();
    });
    for (std::size_t number = 0; number < servers.size(); ++number) {
        if (shared->take(number, false)) probe(servers[number], force, stop);
    }
    std::unique_lock guard(shared->takenLock);
    if (!shared->ended.wait(guard, stop, [&] { return shared->running == 0; })) {
        throw BrainError(BrainError::Cancelled{});
    }
}

ProbeResult ProbeCache::ask(const Server& server, const std::stop_token& stop) {
    const auto ids = LocalServerProbe::modelIDs(transport_, server.baseURL, std::nullopt, stop);
    if (!ids) return {};
    std::map<std::string, LoadedModelInfo> loaded;
    if (server.tellsLoadedModels && !ids->empty()) {
        loaded = LocalServerProbe::loadedModels(transport_, server.baseURL, stop);
    }
    ProbeResult result{.reachable = true, .models = {}};
    for (const auto& id : *ids) {
        const auto info = loaded.find(id);
        result.models.push_back(
            ChatModels::chatModel(id, info != loaded.end() ? std::optional(info->second) : std::nullopt));
    }
    return result;
}

}  // namespace vesk
