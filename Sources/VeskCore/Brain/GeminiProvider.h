// Gemini, over the generate-content API.
#pragma once

#include <string>
#include <string_view>

#include "VeskCore/Brain/BrainProvider.h"
#include "VeskCore/Brain/Keychain.h"
#include "VeskCore/Platform/HttpTransport.h"
#include "VeskCore/Support/Json.h"

namespace vesk {

/// Any thread. Borrows the transport.
class GeminiProvider final : public BrainProvider {
public:
    static constexpr std::string_view defaultModel = "gemini-3.7-flash";
    static constexpr std::string_view cheapModel = "gemini-3.5-flash-lite";

    GeminiProvider(HttpTransport& transport, Keychain keychain)
        : transport_(transport), keychain_(keychain) {}

    BrainProviderID id() const override { return BrainProviderID::gemini; }
    std::string displayName() const override { return std::string(vesk::displayName(id())); }
    bool isConfigured() const override;
    std::vector<BrainModel> models() const override;
    void stream(const BrainRequest& request, const std::string& model, const Sink& sink,
                std::stop_token stop) const override;

    /// The request's body. Throws BrainError if there is nothing to ask.
    static Json encodeBody(const BrainRequest& request, const std::string& model);
    /// "gemini-3.7-flash:streamGenerateContent?alt=sse". Throws BrainError for an id that is no part of a
    /// path.
    static std::string streamCall(const std::string& model);

private:
    HttpTransport& transport_;
    const Keychain keychain_;
};

}  // namespace vesk
