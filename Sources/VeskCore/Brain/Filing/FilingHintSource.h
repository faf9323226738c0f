// Where the vectors come from by which notes are compared. On this machine alone: no model of a provider is
// asked.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

#include "VeskCore/Index/LocalEmbedding.h"
#include "VeskCore/Index/NoteIndex.h"
#include "VeskCore/Platform/LanguageRecogniser.h"

namespace vesk {

/// A note to be compared.
struct FilingSubject {
    std::string path, title;
    std::string excerpt;  ///< VaultOrganiser::excerpt() of its body
    std::string contentHash;
    std::string embeddingText() const { return title + "\n" + excerpt; }
    bool operator==(const FilingSubject&) const = default;
};

/// Any thread.
class FilingHintSource {
public:
    virtual ~FilingHintSource() = default;
    /// Why there are no vectors, as a part of a sentence; none as long as nothing speaks against them.
    virtual std::optional<std::string> unavailableReason() const = 0;
    /// By path; a subject without a vector has no entry. Blocks a worker. Throws OperationCancelled, and what
    /// embedding throws.
    virtual std::map<std::string, std::vector<float>> vectors(const std::vector<FilingSubject>& subjects,
                                                              std::stop_token stop) = 0;
};

class NoHintSource final : public FilingHintSource {
public:
    explicit NoHintSource(std::string reason) : reason_(std::move(reason)) {}
    static std::shared_ptr<NoHintSource> indexBusy();
    std::optional<std::string> unavailableReason() const override { return reason_; }
    std::map<std::string, std::vector<float>> vectors(const std::vector<FilingSubject>&,
                                                      std::stop_token) override {
        return {};
    }

private:
    const std::string reason_;
};

/// Embeds whole notes in the language that most of them are in. Keeps what it embedded in the index.
class FreshHintSource final : public FilingHintSource {
public:
    /// `index` may be none. `embeddings` and `languages` outlive this.
    FreshHintSource(std::shared_ptr<NoteIndex> index, SentenceEmbeddingSource& embeddings,
                    LanguageRecogniser& languages, std::optional<std::string> forcedLanguage = {});
    std::optional<std::string> unavailableReason() const override;
    std::map<std::string, std::vector<float>> vectors(const std::vector<FilingSubject>& subjects,
                                                      std::stop_token stop) override;
    /// "en"; none before the first vectors.
    std::optional<std::string> language() const;

    static std::string dominantLanguage(const std::vector<FilingSubject>& subjects,
                                        LanguageRecogniser& languages);
    static std::string noModelReason(std::string_view language);

private:
    std::shared_ptr<LocalEmbedding> embedder(const std::vector<FilingSubject>& subjects);

    const std::shared_ptr<NoteIndex> index_;
    SentenceEmbeddingSource& embeddings_;
    LanguageRecogniser& languages_;
    const std::optional<std::string> forcedLanguage_;
    mutable std::mutex lock_;  // guards the three below; never held while texts are embedded
    std::shared_ptr<LocalEmbedding> embedder_;
    std::optional<std::string> language_, reason_;
};

/// Takes the vectors of the notes' passages as they stand in the index.
class IndexHintSource final : public FilingHintSource {
public:
    explicit IndexHintSource(std::shared_ptr<const NoteIndex> index) : index_(std::move(index)) {}
    std::optional<std::string> unavailableReason() const override;
    std::map<std::string, std::vector<float>> vectors(const std::vector<FilingSubject>& subjects,
                                                      std::stop_token stop) override;

private:
    const std::shared_ptr<const NoteIndex> index_;
};

}  // namespace vesk
