// Claude, over the Messages API.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "VeskCore/Brain/BrainProvider.h"
#include "VeskCore/Brain/Keychain.h"
#include "VeskCore/Platform/HttpTransport.h"
#include "VeskCore/Support/Json.h"

namespace vesk {

/// One call is one request: nothing is tried again. Any thread. Borrows the transport.
class AnthropicProvider final : public BrainProvider {
public:
    /// How much the newer models may think.
    enum class Effort { low, medium, high, xhigh, max };
    static std::string_view rawValue(Effort effort);
    static std::string_view displayName(Effort effort);

    AnthropicProvider(HttpTransport& transport, Keychain keychain, std::optional<Effort> effort = {});

    BrainProviderID id() const override { return BrainProviderID::anthropic; }
    std::string displayName() const override { return std::string(vesk::displayName(id())); }
    bool isConfigured() const override;
    std::vector<BrainModel> models() const override;
    void stream(const BrainRequest& request, const std::string& model, const Sink& sink,
                std::stop_token stop) const override;

    /// The request's body. Throws BrainError if there is nothing to ask. The system prompt and the retrieved
    /// notes give the same bytes in every request of a conversation, so that the service finds them in its
    /// cache.
    static Json body(const BrainRequest& request, const std::string& model, std::optional<Effort> effort);

private:
    HttpTransport& transport_;
    Keychain keychain_;
    std::optional<Effort> effort_;
};

}  // namespace vesk
