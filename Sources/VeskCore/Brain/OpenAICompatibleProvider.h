// Every service that speaks the chat completions protocol: OpenAI, Ollama, LM Studio and a server of the
// user's.
#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "VeskCore/Brain/BrainProvider.h"
#include "VeskCore/Brain/CustomEndpoint.h"
#include "VeskCore/Brain/Keychain.h"
#include "VeskCore/Brain/LocalServerProbe.h"
#include "VeskCore/Platform/HttpTransport.h"
#include "VeskCore/Support/BrainError.h"
#include "VeskCore/Support/Json.h"

namespace vesk {

/// Any thread. Borrows the transport.
class OpenAICompatibleProvider final : public BrainProvider {
public:
    static constexpr std::string_view openAIDefaultModel = "gpt-5-mini";

    static std::shared_ptr<OpenAICompatibleProvider> openAI(HttpTransport& transport, Keychain keychain);
    /// The local ones start a probe where none is fresh, and know the models of the last one.
    static std::shared_ptr<OpenAICompatibleProvider> ollama(
        HttpTransport& transport, Keychain keychain, std::shared_ptr<ProbeCache> probes,
        std::string_view baseURL = LocalServerProbe::ollamaAddress);
    static std::shared_ptr<OpenAICompatibleProvider> lmStudio(
        HttpTransport& transport, Keychain keychain, std::shared_ptr<ProbeCache> probes,
        std::string_view baseURL = LocalServerProbe::lmStudioAddress);
    /// None as long as the endpoint has no address.
    static std::shared_ptr<OpenAICompatibleProvider> custom(HttpTransport& transport, Keychain keychain,
                                                            const CustomEndpoint& endpoint);

    BrainProviderID id() const override { return id_; }
    std::string displayName() const override { return displayName_; }
    /// A local server: whether it answered the last probe.
    bool isConfigured() const override;
    std::vector<BrainModel> models() const override;
    void stream(const BrainRequest& request, const std::string& model, const Sink& sink,
                std::stop_token stop) const override;
    int preferredChoiceBatchSize() const override { return id_ == BrainProviderID::openai ? 20 : 5; }

    const std::string& baseURL() const { return baseURL_; }
    const std::string& unreachableAdvice() const { return unreachableAdvice_; }
    /// The local server's last answer, without asking it.
    std::optional<bool> lastReachable() const;
    /// Asks the server unless that was done just now. Blocks for two seconds at most. Throws BrainError
    /// (cancelled).
    bool isReachable(std::stop_token stop) const;
    /// Brings the list of models up to date; with `force` also where it is fresh. A server that doesn't
    /// answer leaves it as it is. Throws BrainError (cancelled).
    void refresh(bool force, std::stop_token stop);

    /// The request's body for a model of this provider.
    Json body(const BrainRequest& request, const std::string& model) const;

private:
    struct Settings {
        BrainProviderID id = BrainProviderID::openai;
        std::string displayName, baseURL;
        std::optional<std::string> keychainAccount;
        std::string defaultModel;
        bool usesOpenAIParameterRules = false, requestsUsage = false;
        std::string unreachableAdvice;
        std::vector<BrainModel> knownModels;
        std::shared_ptr<ProbeCache> probes;  ///< of a local server
    };
    OpenAICompatibleProvider(HttpTransport& transport, Keychain keychain, Settings settings);

    std::optional<std::string> key() const;
    ProbeCache::Server server() const;
    std::string modelToAsk(const std::string& model) const;
    BrainError readable(const HttpError& error) const;

    HttpTransport& transport_;
    const Keychain keychain_;
    const BrainProviderID id_;
    const std::string displayName_, baseURL_;
    const std::optional<std::string> keychainAccount_;
    const std::string defaultModel_;
    const bool usesOpenAIParameterRules_, requestsUsage_;
    const std::string unreachableAdvice_;
    const std::shared_ptr<ProbeCache> probes_;
    mutable std::mutex modelsLock_;  // guards knownModels_
    std::vector<BrainModel> knownModels_;
};

}  // namespace vesk
