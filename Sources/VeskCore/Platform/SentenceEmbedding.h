// The platform's sentence model for one language.
#pragma once

#include <memory>
#include <optional>
#include <span>
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
    /// Tells which sentences vector() is asked for next, in this order. A model that is faster with several
    /// at a time works on them together when the first is asked for. Only remembers; the results are the
    /// same.
    virtual void expect(std::span<const std::string_view> /*sentences*/) {}
};

/// Where models come from.
class SentenceEmbeddingSource {
public:
    virtual ~SentenceEmbeddingSource() = default;
    /// The model of a language ("en"), or none.
    virtual std::unique_ptr<SentenceEmbedding> sentenceEmbedding(std::string_view language) = 0;
    /// Why there is none, as a sentence for the user; empty if there is one.
    virtual std::string absenceReason(std::string_view /*language*/) {
        return "The sentence model isn't installed.";
    }
};

/// A platform without any model.
class NoSentenceEmbeddings final : public SentenceEmbeddingSource {
public:
    std::unique_ptr<SentenceEmbedding> sentenceEmbedding(std::string_view) override { return nullptr; }
};

}  // namespace vesk
