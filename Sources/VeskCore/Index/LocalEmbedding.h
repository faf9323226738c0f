// The on-device member of the embedding providers, over the platform's sentence model.
#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "VeskCore/Index/EmbeddingProvider.h"
#include "VeskCore/Platform/SentenceEmbedding.h"

namespace vesk {

/// Shared between tasks. A model that fails eight times in a row is switched off until the process ends.
class LocalEmbedding final : public EmbeddingProvider {
public:
    LocalEmbedding(std::string language, SentenceEmbeddingSource& source);

    std::string id() const override;  ///< "nl-sentence-en@512"
    std::string displayName() const override;
    int dimensions() const override { return dimensions_; }
    bool isConfigured() const override { return embedding_ != nullptr; }
    int maxChunkCharacters() const override { return 1500; }
    /// A text that the model can't place gets a vector of zeros.
    std::vector<std::vector<float>> embed(const std::vector<std::string>& texts,
                                          std::stop_token stop) override;

    /// The values at unit length, in double precision, then narrowed; zeros for a vector without length.
    static std::vector<float> normalised(const std::vector<double>& sum);

private:
    std::vector<float> vectorFor(std::string_view text);
    void expect(const std::vector<std::string_view>& parts);
    std::optional<std::vector<double>> guardedVector(std::string_view text);
    bool isDisabled() const;

    const std::string language_;
    const std::unique_ptr<SentenceEmbedding> embedding_;
    const int dimensions_;
    std::mutex lock_;                 // guards all use of embedding_; held for one text at a time
    mutable std::mutex failureLock_;  // guards the two below; taken inside lock_, never the other way round
    int consecutiveFailures_ = 0;
    bool disabled_ = false;
};

}  // namespace vesk
