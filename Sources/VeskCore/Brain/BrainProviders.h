// Every provider that the user can choose from, made of the seams of one program.
#pragma once

#include <memory>
#include <stop_token>
#include <vector>

#include "VeskCore/Brain/AppleProvider.h"
#include "VeskCore/Brain/BrainProvider.h"
#include "VeskCore/Brain/CustomEndpoint.h"
#include "VeskCore/Brain/Keychain.h"
#include "VeskCore/Brain/LocalServerModel.h"
#include "VeskCore/Brain/LocalServerProbe.h"
#include "VeskCore/Brain/OpenAICompatibleProvider.h"
#include "VeskCore/Brain/ProviderSelection.h"
#include "VeskCore/Index/EmbeddingProvider.h"

namespace vesk {

/// Any thread. Borrows the seams, which outlive the workers of `background`; the providers outlive neither.
class BrainProviders {
public:
    BrainProviders(HttpTransport& transport, SecretStore& secrets, UserDefaults& defaults, Clock& clock,
                   Background& background);

    /// A new provider with the settings as they are now; null for a custom endpoint without an address. Never
    /// waits: a local server is asked in the background if that is due.
    std::shared_ptr<BrainProvider> make(BrainProviderID id) const;
    std::shared_ptr<OpenAICompatibleProvider> ollama() const;
    std::shared_ptr<OpenAICompatibleProvider> lmStudio() const;
    std::shared_ptr<OpenAICompatibleProvider> openAI() const;
    std::shared_ptr<OpenAICompatibleProvider> custom() const;
    std::shared_ptr<EmbeddingProvider> geminiEmbedding() const;
    const std::shared_ptr<ProbeCache>& probes() const { return probes_; }

    /// The rows of the model picker, each ready or with the reason why not, by what is known now. A custom
    /// endpoint comes last, once it has an address.
    std::vector<ProviderOption> options() const;
    /// The row of a provider that was made here and may know more models since.
    static ProviderOption option(std::shared_ptr<BrainProvider> provider);
    /// Asks the local servers, the on-device one among them, as far as that is due, all at the same time.
    /// Blocks for a few seconds at most. Throws BrainError (cancelled).
    void probeLocalServers(bool force, std::stop_token stop) const;

private:
    HttpTransport& transport_;
    UserDefaults& defaults_;
    Clock& clock_;
    const Keychain keychain_;
    const std::shared_ptr<ProbeCache> probes_;
    const std::unique_ptr<LocalServerModel> onDeviceModel_;
};

}  // namespace vesk
