#include "Vesk/AI/ProviderSettings.h"

#include <charconv>
#include <utility>

#include "VeskCore/Brain/EndpointURL.h"
#include "VeskCore/Support/BrainError.h"
#include "VeskCore/Support/Text.h"

namespace vesk {

namespace {

constexpr int leastContext = 512, mostContext = 100'000'000;  // tokens

std::string noAddress(std::string_view typed) {
    return localised("“{}” is no address of a server.", typed);
}

std::vector<ProviderSettings::Server> servers(const BrainProviders& providers) {
    using LocalServerProbe::lmStudioAddress, LocalServerProbe::ollamaAddress;
    std::vector<ProviderSettings::Server> rows;
    for (const auto id : {BrainProviderID::lmstudio, BrainProviderID::ollama, BrainProviderID::apple}) {
        const auto option = BrainProviders::option(providers.make(id));
        auto state = option.blockedReason.value_or(localised("Ready"));
        if (id != BrainProviderID::apple) {
            const auto address = id == BrainProviderID::lmstudio ? lmStudioAddress : ollamaAddress;
            const auto last = providers.probes()->last(std::string(address));
            if (const auto status = last ? LocalServerProbe::status(*last) : std::nullopt) state = *status;
        }
        rows.push_back({.provider = id, .isReady = option.isReady, .state = std::move(state)});
    }
    return rows;
}

}  // namespace

const std::vector<BrainProviderID>& ProviderSettings::keyed() {
    static const std::vector<BrainProviderID> providers{BrainProviderID::anthropic, BrainProviderID::gemini,
                                                        BrainProviderID::openai, BrainProviderID::custom};
    return providers;
}

std::shared_ptr<ProviderSettings> ProviderSettings::make(const BrainProviders& providers,
                                                         SecretStore& secrets, UserDefaults& defaults,
                                                         MainQueue& mainQueue, Background& background) {
    return std::shared_ptr<ProviderSettings>(
        new ProviderSettings(providers, secrets, defaults, mainQueue, background));
}

ProviderSettings::ProviderSettings(const BrainProviders& providers, SecretStore& secrets,
                                   UserDefaults& defaults, MainQueue& mainQueue, Background& background)
    : providers_(providers),
      secrets_(secrets),
      keychain_(secrets),
      defaults_(defaults),
      mainQueue_(mainQueue),
      background_(background),
      keys_(background.serialQueue("com.tarnlight.vesk.keys", Priority::userInitiated)) {}

void ProviderSettings::refresh() {
    const auto number = ++check_;
    state.modify([](State& now) { now.checking = true; });
    const auto weak = weak_from_this();
    keys_->post([weak, keychain = keychain_, &mainQueue = mainQueue_]() mutable {
        std::vector<Key> found;
        for (const auto provider : keyed()) found.push_back({provider, keychain.masked(rawValue(provider))});
        mainQueue.post([weak, found = std::move(found)] {
            const auto self = weak.lock();
            if (self) self->state.modify([&](State& now) { now.keys = found; });
        });
    });
    background_.run(Priority::userInitiated,
                    [weak, number, &providers = providers_, &mainQueue = mainQueue_](std::stop_token stop) {
                        try {
                            providers.probeLocalServers(true, stop);
                        } catch (const BrainError&) {
                            return;  // the program ends
                        }
                        mainQueue.post([weak, number, rows = servers(providers)] {
                            const auto self = weak.lock();
                            if (!self || self->check_ != number) return;
                            self->state.modify([&](State& now) {
                                now.servers = rows;
                                now.checking = false;
                            });
                        });
                    });
}

void ProviderSettings::setKey(BrainProviderID provider, std::string_view key) {
    if (const auto trimmed = trim(key); !trimmed.empty()) keep(provider, std::string(trimmed));
}

void ProviderSettings::removeKey(BrainProviderID provider) {
    keep(provider, std::nullopt);
}

void ProviderSettings::keep(BrainProviderID provider, const std::optional<std::string>& key) {
    keys_->post([weak = weak_from_this(), keychain = keychain_, provider, key, &secrets = secrets_,
                 &mainQueue = mainQueue_]() mutable {
        const auto account = rawValue(provider);
        keychain.set(key, account);
        // The keychain tells of no failure; the store itself does.
        bool isDone = false;
        try {
            isDone = secrets.get(Keychain::service, account) == key;
        } catch (const SecretStoreError&) {
        }
        mainQueue.post([weak, isDone, isRemoval = !key, masked = keychain.masked(account), provider] {
            const auto self = weak.lock();
            if (!self) return;
            self->state.modify([&](State& now) {
                for (auto& row : now.keys)
                    if (row.provider == provider) row.masked = masked;
            });
            if (!isDone) return self->problem.send(localised(isRemoval ? keyNotRemoved : keyNotKept));
            if (self->onChanged) self->onChanged();
        });
    });
}

void ProviderSettings::changed() {
    if (onChanged) onChanged();
    refresh();
}

std::string ProviderSettings::customAddress() const {
    return CustomEndpoint(defaults_).baseURL().value_or("");
}

std::string ProviderSettings::customModel() const {
    return CustomEndpoint(defaults_).model();
}

std::optional<std::string> ProviderSettings::setCustom(std::string_view address, std::string_view model) {
    CustomEndpoint endpoint(defaults_);
    const auto typed = trim(address);
    const auto url = CustomEndpoint::normalise(typed);
    if (!typed.empty() && !url) return noAddress(typed);
    endpoint.setBaseURL(url);
    endpoint.setModel(trim(model));
    changed();
    return std::nullopt;
}

std::string ProviderSettings::onDeviceAddress() const {
    return defaults_.string(LocalServerModel::baseURLKey).value_or("");
}

std::string ProviderSettings::onDeviceModel() const {
    return defaults_.string(LocalServerModel::modelKey).value_or("");
}

std::optional<int> ProviderSettings::onDeviceContext() const {
    const auto stored = defaults_.number(LocalServerModel::contextSizeKey);
    if (!stored || !(*stored >= leastContext) || !(*stored <= mostContext)) return std::nullopt;
    return static_cast<int>(*stored);
}

std::optional<std::string> ProviderSettings::setOnDevice(std::string_view address, std::string_view model,
                                                         std::string_view contextTokens) {
    const auto typed = trim(address), tokens = trim(contextTokens);
    if (typed.empty()) {
        for (const auto key :
             {LocalServerModel::baseURLKey, LocalServerModel::modelKey, LocalServerModel::contextSizeKey})
            defaults_.remove(key);
        changed();
        return std::nullopt;
    }
    std::string full(typed);
    if (full.find("://") == std::string::npos) full.insert(0, "http://");
    const auto url = CustomEndpoint::normalise(full);
    if (!url) return noAddress(typed);
    if (!EndpointURL::isLoopback(*url)) return localised("“{}” is not on this machine.", typed);
    int context = 0;
    const auto* end = tokens.data() + tokens.size();
    const auto [last, failure] = std::from_chars(tokens.data(), end, context);
    if (!tokens.empty() &&
        (failure != std::errc() || last != end || context < leastContext || context > mostContext))
        return localised("“{}” is no number of tokens. It is 512 or more.", tokens);
    defaults_.set(LocalServerModel::baseURLKey, Json(*url));
    defaults_.set(LocalServerModel::modelKey, Json(std::string(trim(model))));
    if (tokens.empty()) {
        defaults_.remove(LocalServerModel::contextSizeKey);
    } else {
        defaults_.set(LocalServerModel::contextSizeKey, Json(context));
    }
    changed();
    return std::nullopt;
}

}  // namespace vesk
