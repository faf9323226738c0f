// Turning texts into vectors.
#pragma once

#include <stop_token>
#include <string>
#include <vector>

namespace vesk {

/// Any thread; embed() blocks a worker.
class EmbeddingProvider {
public:
    virtual ~EmbeddingProvider() = default;
    /// The stamp of this provider's vectors: those of different stamps are never compared.
    virtual std::string id() const = 0;
    virtual std::string displayName() const = 0;
    virtual int dimensions() const = 0;
    /// Whether embed() can work at all.
    virtual bool isConfigured() const = 0;
    /// The longest text the provider takes, in characters.
    virtual int maxChunkCharacters() const = 0;
    /// One vector per text, in order; throws BrainError (cancelled when stopped).
    virtual std::vector<std::vector<float>> embed(const std::vector<std::string>& texts,
                                                  std::stop_token stop) = 0;
};

}  // namespace vesk
