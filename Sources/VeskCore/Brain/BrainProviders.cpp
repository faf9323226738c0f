#include "VeskCore/Brain/BrainProviders.h"

#include <algorithm>
#include <array>

#include "VeskCore/Brain/AnthropicProvider.h"
#include "VeskCore/Brain/EndpointURL.h"
#include "VeskCore/Brain/GeminiEmbeddingProvider.h"
#include "VeskCore/Brain/GeminiProvider.h"
#include "VeskCore/Support/Localised.h"

namespace vesk {

namespace {

constexpr std::array pickerOrder{BrainProviderID::lmstudio,  BrainProviderID::ollama, BrainProviderID::apple,
                                 BrainProviderID::anthropic, BrainProviderID::gemini, BrainProviderID::openai,
                                 BrainProviderID::custom};

/// Why a local server can't be asked; none if it can.
std::optional<std::string> blocked(const OpenAICompatibleProvider& server) {
    const auto reachable = server.lastReachable();
    if (!reachable) return localised("Looking for {}…", server.displayName());
    if (!*reachable) {
        return server.id() == BrainProviderID::lmstudio ? localised(
                                                              "LM Studio's local server isn't answering. "
                                                              "Open LM Studio → Developer → Start Server.")
                                                        : localised(
                                                              "Ollama isn't answering. Start it from the "
                                                              "menu bar, or run `ollama serve` in Terminal.");
    }
    if (server.models().empty()) {
        return localised("{} is running but has no model loaded. Load one and try again.",
                         server.displayName());
    }
    return std::nullopt;
}

}  // namespace

BrainProviders::BrainProviders(HttpTransport& transport, SecretStore& secrets, UserDefaults& defaults,
                               Clock& clock, Background& background)
    : transport_(transport),
      defaults_(defaults),
      clock_(clock),
      keychain_(secrets),
      probes_(std::make_shared<ProbeCache>(transport, clock, background)),
      onDeviceModel_(std::make_unique<LocalServerModel>(transport, defaults, probes_)) {}

std::shared_ptr<OpenAICompatibleProvider> BrainProviders::ollama() const {
    return OpenAICompatibleProvider::ollama(transport_, keychain_, probes_);
}
std::shared_ptr<OpenAICompatibleProvider> BrainProviders::lmStudio() const {
    return OpenAICompatibleProvider::lmStudio(transport_, keychain_, probes_);
}
std::shared_ptr<OpenAICompatibleProvider> BrainProviders::openAI() const {
    return OpenAICompatibleProvider::openAI(transport_, keychain_);
}
std::shared_ptr<OpenAICompatibleProvider> BrainProviders::custom() const {
    return OpenAICompatibleProvider::custom(transport_, keychain_, CustomEndpoint(defaults_));
}
std::shared_ptr<EmbeddingProvider> BrainProviders::geminiEmbedding() const {
    return std::make_shared<GeminiEmbeddingProvider>(transport_, keychain_, clock_);
}

std::shared_ptr<BrainProvider> BrainProviders::make(BrainProviderID id) const {
    switch (id) {
        case BrainProviderID::anthropic:
            return std::make_shared<AnthropicProvider>(transport_, keychain_);
        case BrainProviderID::gemini:
            return std::make_shared<GeminiProvider>(transport_, keychain_);
        case BrainProviderID::openai:
            return openAI();
        case BrainProviderID::ollama:
            return ollama();
        case BrainProviderID::lmstudio:
            return lmStudio();
        case BrainProviderID::apple:
            return std::make_shared<AppleProvider>(*onDeviceModel_);
        case BrainProviderID::custom:
            return custom();
    }
    return nullptr;
}

ProviderOption BrainProviders::option(std::shared_ptr<BrainProvider> provider) {
    ProviderOption option{.providerID = provider->id(),
                          .provider = provider,
                          .blockedReason = {},
                          .models = provider->models()};
    switch (provider->id()) {
        case BrainProviderID::ollama:
        case BrainProviderID::lmstudio:
            if (const auto* server = dynamic_cast<const OpenAICompatibleProvider*>(provider.get())) {
                option.blockedReason = blocked(*server);
            }
            break;
        case BrainProviderID::apple:
            if (const auto* onDevice = dynamic_cast<const AppleProvider*>(provider.get())) {
                option.blockedReason = onDevice->unavailableReason();
            }
            break;
        case BrainProviderID::anthropic:
        case BrainProviderID::gemini:
        case BrainProviderID::openai:
            if (!provider->isConfigured()) {
                option.blockedReason =
                    localised("No API key for {}. Add one in Settings → AI.", provider->displayName());
            }
            break;
        case BrainProviderID::custom:
            if (option.models.empty()) {
                option.blockedReason = localised("No model selected for {}. Pick one in Settings → AI.",
                                                 provider->displayName());
            }
            break;
    }
    option.isReady = !option.blockedReason;
    return option;
}

std::vector<ProviderOption> BrainProviders::options() const {
    std::vector<ProviderOption> rows;
    for (const auto id : pickerOrder) {
        if (auto provider = make(id)) rows.push_back(option(std::move(provider)));
    }
    return rows;
}

void BrainProviders::probeLocalServers(bool force, std::stop_token stop) const {
    std::vector<ProbeCache::Server> servers{
        {.baseURL = std::string(LocalServerProbe::lmStudioAddress), .tellsLoadedModels = true},
        {.baseURL = std::string(LocalServerProbe::ollamaAddress)}};
    if (const auto url = onDeviceModel_->baseURL()) {
        // One of the two may play the on-device model as well; what it tells of itself stays.
        const bool isAsked = std::any_of(servers.begin(), servers.end(),
                                         [&](const auto& server) { return server.baseURL == *url; });
        if (!isAsked) servers.push_back({.baseURL = *url});
    }
    probes_->probeAll(servers, force, std::move(stop));
}

}  // namespace vesk
