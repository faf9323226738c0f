// Finds the sentence model that is installed.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "VeskCore/Platform/FileSystem.h"
#include "VeskCore/Platform/SentenceEmbedding.h"

namespace vesk {

/// The first of some files that exists is the model; English is the only language. Any thread.
class SentenceModelSource final : public SentenceEmbeddingSource {
public:
    explicit SentenceModelSource(std::vector<FilePath> candidates = defaultLocations());

    /// Where the model is looked for: the user's data folder, beside the program as it is installed or built,
    /// the folder that Vesk was configured to be installed in, and the system's data folders.
    static std::vector<FilePath> defaultLocations();

    std::unique_ptr<SentenceEmbedding> sentenceEmbedding(std::string_view language) override;
    std::string absenceReason(std::string_view language) override;

private:
    std::unique_ptr<SentenceEmbedding> find(std::string_view language, std::string& reason) const;

    std::vector<FilePath> candidates_;
};

}  // namespace vesk
