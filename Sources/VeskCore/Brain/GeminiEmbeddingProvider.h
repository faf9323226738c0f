// Gemini's embeddings, for searching by meaning with a key.
#pragma once

#include <string>
#include <vector>

#include "VeskCore/Brain/Keychain.h"
#include "VeskCore/Index/EmbeddingProvider.h"
#include "VeskCore/Platform/HttpTransport.h"
#include "VeskCore/Support/Time.h"

namespace vesk {

/// Any thread. Borrows the transport and the clock.
class GeminiEmbeddingProvider final : public EmbeddingProvider {
public:
    enum class Task { query, document };

    GeminiEmbeddingProvider(HttpTransport& transport, Keychain keychain, Clock& clock)
        : transport_(transport), keychain_(keychain), clock_(clock) {}

    std::string id() const override { return "gemini-embedding-001@768"; }
    std::string displayName() const override { return "Gemini Embeddings"; }
    int dimensions() const override { return 768; }
    bool isConfigured() const override;
    int maxChunkCharacters() const override { return 6000; }
    /// The texts as documents. Vectors come at unit length.
    std::vector<std::vector<float>> embed(const std::vector<std::string>& texts,
                                          std::stop_token stop) override {
        return embed(texts, Task::document, std::move(stop));
    }
    std::vector<std::vector<float>> embed(const std::vector<std::string>& texts, Task task,
                                          std::stop_token stop);

private:
    HttpReply sendWithRetry(const HttpRequest& request, const std::stop_token& stop);

    HttpTransport& transport_;
    const Keychain keychain_;
    Clock& clock_;
};

}  // namespace vesk
