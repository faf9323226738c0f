// Where the notes live that are most like one: shown to the model, and a vote that its answer is held
// against. Pure; any thread.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "VeskCore/Brain/Filing/FilingTaxonomy.h"

namespace vesk {

/// A filed note to compare with.
struct FilingPoolNote {
    std::string path, title, folder;
    std::vector<float> vector;
    bool operator==(const FilingPoolNote&) const = default;
};

struct FilingHint {
    std::string path, title, folder;
    double score = 0;  ///< cosine similarity
    bool operator==(const FilingHint&) const = default;
};

namespace FilingHints {

/// The notes fit to compare with: those in a folder that is a home.
std::vector<FilingPoolNote> pool(std::vector<FilingPoolNote> notes, const FilingTaxonomy& taxonomy);
/// Why a vote of these notes says little; none if it says enough.
std::optional<std::string> poolShortfall(const std::vector<FilingPoolNote>& pool);
/// The `k` nearest, the nearest first, without the note at `excluding`.
std::vector<FilingHint> neighbours(std::span<const float> vector, std::string_view excluding,
                                   const std::vector<FilingPoolNote>& pool, int k);
/// The folder of more than half of them.
std::optional<std::string> vote(const std::vector<FilingHint>& hints);
/// As the model reads them.
std::string lines(const std::vector<FilingHint>& hints);

}  // namespace FilingHints

}  // namespace vesk
