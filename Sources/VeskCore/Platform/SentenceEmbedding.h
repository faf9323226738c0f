// The platform's sentence model for one language.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vesk {

/// One loaded model. May throw anything from `vector`: VeskNLGuard stands around it. One thread at a time.
class SentenceEmbedding {
public:
    virtual ~SentenceEmbedding() = default;
    virtual int dimension() const = 0;
    /// The vector of one sentence, or none for a text the model can't place.
    virtual std::optional<std::vector<double>> vector(std::string_view sentence) = 0;
};

/// Where models come from.
class SentenceEmbeddingSource {
public:
    virtual ~SentenceEmbeddingSource() = default;
    /// The model of a language ("en"), or none.
    virtual std::unique_ptr<SentenceEmbedding> sentenceEmbedding(std::string_view language) = 0;
};

/// A platform without any model.
class NoSentenceEmbeddings final : public SentenceEmbeddingSource {
public:
    std::unique_ptr<SentenceEmbedding> sentenceEmbedding(std::string_view) override { return nullptr; }
};

}  // namespace vesk
