#include "VeskCore/Index/LocalEmbedding.h"

#include <algorithm>
#include <cmath>

#include "VeskCore/Support/BrainError.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"
#include "VeskNLGuard/VeskNLGuard.h"

namespace vesk {

namespace {

constexpr int toleratedFailures = 7;

constexpr const char* stoppedResponding =
    "On-device semantic search stopped responding and has been switched off for this session. Keyword search "
    "is unaffected. Restarting Vesk re-enables it.";

std::string noModel(const std::string& language) {
    return "macOS has no text model for " + languageDisplayName(language) +
           ", so semantic search is off for these notes. Everything else in Vesk still works, and keyword "
           "search is unaffected.";
}

}  // namespace

LocalEmbedding::LocalEmbedding(std::string language, SentenceEmbeddingSource& source)
    : language_(std::move(language)),
      embedding_(source.sentenceEmbedding(language_)),
      dimensions_(embedding_ ? embedding_->dimension() : 0) {}

std::string LocalEmbedding::id() const {
    return "nl-sentence-" + language_ + "@" + std::to_string(dimensions_);
}

std::string LocalEmbedding::displayName() const {
    return "On-device (Apple NaturalLanguage)";
}

bool LocalEmbedding::isDisabled() const {
    std::lock_guard guard(failureLock_);
    return disabled_;
}

std::vector<std::vector<float>> LocalEmbedding::embed(const std::vector<std::string>& texts,
                                                      std::stop_token stop) {
    if (isDisabled()) throw BrainError(BrainError::Unavailable{stoppedResponding});
    if (!embedding_) throw BrainError(BrainError::Unavailable{noModel(language_)});
    std::vector<std::vector<float>> vectors;
    vectors.reserve(texts.size());
    for (const std::string& text : texts) {
        if (stop.stop_requested()) throw BrainError(BrainError::Cancelled{});
        vectors.push_back(vectorFor(text));
    }
    return vectors;
}

std::vector<float> LocalEmbedding::vectorFor(std::string_view text) {
    const auto dimensions = static_cast<std::size_t>(dimensions_);
    std::vector<double> sum(dimensions, 0.0);
    int count = 0;
    std::vector<std::string_view> parts;
    for (std::string_view part : sentences(text)) {
        part = trim(part);
        if (!part.empty()) parts.push_back(part);
    }

    std::lock_guard guard(lock_);
    expect(parts);
    for (std::string_view part : parts) {
        if (isDisabled()) break;
        auto vector = guardedVector(part);
        if (!vector || vector->size() != dimensions) continue;
        for (std::size_t i = 0; i < dimensions; ++i) sum[i] += (*vector)[i];
        ++count;
    }
    if (count == 0 && !isDisabled()) {
        auto vector = guardedVector(text);
        if (vector && vector->size() == dimensions) {
            sum = std::move(*vector);
            count = 1;
        }
    }
    return count > 0 ? normalised(sum) : std::vector<float>(dimensions, 0.0F);
}

void LocalEmbedding::expect(const std::vector<std::string_view>& parts) {
    try {
        if (!isDisabled()) embedding_->expect(parts);
    } catch (...) {  // without the announcement the model takes them one by one
    }
}

std::optional<std::vector<double>> LocalEmbedding::guardedVector(std::string_view text) {
    bool threw = false;
    std::vector<double> values(static_cast<std::size_t>(dimensions_));
    std::string terminated(text);
    // The guard takes C's strings: what stands behind a NUL is text all the same.
    std::replace(terminated.begin(), terminated.end(), '\0', ' ');
    std::size_t size =
        VeskNLSafeVector(embedding_.get(), terminated.c_str(), values.data(), values.size(), &threw);
    if (size == 0 && !threw)
        return std::nullopt;  // a text the model can't place says nothing about the model

    std::lock_guard guard(failureLock_);
    if (threw) {
        if (++consecutiveFailures_ > toleratedFailures) disabled_ = true;
        return std::nullopt;
    }
    consecutiveFailures_ = 0;
    values.resize(size);
    return values;
}

std::vector<float> LocalEmbedding::normalised(const std::vector<double>& sum) {
    double squares = 0;
    for (double value : sum) squares += value * value;
    std::vector<float> result(sum.size(), 0.0F);
    if (!(squares > 0)) return result;
    double length = std::sqrt(squares);
    std::transform(sum.begin(), sum.end(), result.begin(),
                   [length](double value) { return static_cast<float>(value / length); });
    return result;
}

}  // namespace vesk
