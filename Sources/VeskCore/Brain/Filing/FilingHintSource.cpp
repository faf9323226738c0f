#include "VeskCore/Brain/Filing/FilingHintSource.h"

#include <algorithm>

#include "VeskCore/Support/Characters.h"
#include "VeskCore/Support/Localised.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"
#include "VeskCore/Vault/AtomicWrite.h"

namespace vesk {

namespace {

constexpr std::size_t textsAtOnce = 32;
constexpr std::size_t sampleOfEach = 200, wholeSample = 4000;  // characters

void checkStop(const std::stop_token& stop) {
    if (stop.stop_requested()) throw OperationCancelled();
}

}  // namespace

std::shared_ptr<NoHintSource> NoHintSource::indexBusy() {
    return std::make_shared<NoHintSource>(localised("the index hasn't finished reading your notes yet"));
}

FreshHintSource::FreshHintSource(std::shared_ptr<NoteIndex> index, SentenceEmbeddingSource& embeddings,
                                 LanguageRecogniser& languages, std::optional<std::string> forcedLanguage)
    : index_(std::move(index)),
      embeddings_(embeddings),
      languages_(languages),
      forcedLanguage_(std::move(forcedLanguage)) {}

std::optional<std::string> FreshHintSource::unavailableReason() const {
    const std::lock_guard guard(lock_);
    return reason_;
}

std::optional<std::string> FreshHintSource::language() const {
    const std::lock_guard guard(lock_);
    return language_;
}

std::string FreshHintSource::noModelReason(std::string_view language) {
    return localised("your notes' language ({}) has no on-device model", languageDisplayName(language));
}

std::string FreshHintSource::dominantLanguage(const std::vector<FilingSubject>& subjects,
                                              LanguageRecogniser& languages) {
    std::string sample;
    std::size_t characters = 0;
    for (const auto& subject : subjects) {
        const auto text = subject.embeddingText();
        const auto piece = characterPrefix(text, sampleOfEach);
        sample += piece;
        sample += '\n';
        characters += characterCount(piece) + 1;
        if (characters >= wholeSample) break;
    }
    const auto text = trim(sample);
    return text.empty() ? "en" : languages.dominantLanguage(text).value_or("en");
}

std::shared_ptr<LocalEmbedding> FreshHintSource::embedder(const std::vector<FilingSubject>& subjects) {
    const std::lock_guard guard(lock_);
    if (!embedder_) {
        language_ = forcedLanguage_ ? *forcedLanguage_ : dominantLanguage(subjects, languages_);
        embedder_ = std::make_shared<LocalEmbedding>(*language_, embeddings_);
    }
    if (!embedder_->isConfigured()) {
        reason_ = noModelReason(*language_);
        return nullptr;
    }
    return embedder_;
}

std::map<std::string, std::vector<float>> FreshHintSource::vectors(const std::vector<FilingSubject>& subjects,
                                                                   std::stop_token stop) {
    const auto embedding = embedder(subjects);
    if (!embedding) return {};
    const auto provider = embedding->id();
    std::map<std::string, std::vector<float>> found;
    std::vector<const FilingSubject*> rest;
    for (const auto& subject : subjects) {
        std::optional<std::vector<float>> known;
        try {
            if (index_) known = index_->noteVector(subject.path, subject.contentHash, provider);
        } catch (const Error&) {  // embedded anew
        }
        if (known) {
            found.insert_or_assign(subject.path, std::move(*known));
        } else {
            rest.push_back(&subject);
        }
    }
    for (std::size_t from = 0; from < rest.size(); from += textsAtOnce) {
        checkStop(stop);
        const auto to = std::min(from + textsAtOnce, rest.size());
        std::vector<std::string> texts;
        for (auto at = from; at < to; ++at) texts.push_back(rest[at]->embeddingText());
        auto embedded = embedding->embed(texts, stop);
        std::vector<NoteIndex::NoteVector> stored;
        for (std::size_t i = 0; i < embedded.size() && from + i < to; ++i) {
            const auto& subject = *rest[from + i];
            stored.push_back({subject.path, subject.contentHash, embedded[i]});
            found.insert_or_assign(subject.path, std::move(embedded[i]));
        }
        try {
            if (index_) index_->storeNoteVectors(stored, provider);
        } catch (const Error&) {  // embedded again the next time
        }
    }
    return found;
}

std::optional<std::string> IndexHintSource::unavailableReason() const {
    if (index_->hasChunkVectors()) return {};
    return localised("the index has no embeddings yet");
}

std::map<std::string, std::vector<float>> IndexHintSource::vectors(const std::vector<FilingSubject>& subjects,
                                                                   std::stop_token stop) {
    std::map<std::string, std::vector<float>> found;
    for (const auto& subject : subjects) {
        checkStop(stop);
        const auto passages = index_->chunkVectors(subject.path);
        if (passages.empty() || passages.front().empty()) continue;
        std::vector<double> sum(passages.front().size());
        double count = 0;
        for (const auto& passage : passages) {
            if (passage.size() != sum.size()) continue;
            for (std::size_t i = 0; i < sum.size(); ++i) sum[i] += double{passage[i]};
            ++count;
        }
        std::vector<float> mean;
        mean.reserve(sum.size());
        for (const auto value : sum) mean.push_back(static_cast<float>(value / count));
        found.insert_or_assign(subject.path, std::move(mean));
    }
    return found;
}

}  // namespace vesk
