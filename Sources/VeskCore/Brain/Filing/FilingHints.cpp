#include "VeskCore/Brain/Filing/FilingHints.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <set>

#include "VeskCore/Brain/VaultPlanner.h"
#include "VeskCore/Support/Localised.h"
#include "VeskCore/Support/PathText.h"
#include "VeskCore/Support/Text.h"

namespace vesk::FilingHints {

namespace {

constexpr std::size_t fewestNotes = 10, fewestFolders = 2;

double length(std::span<const float> vector) {
    double sum = 0;
    for (const auto value : vector) sum += double{value} * double{value};
    return std::sqrt(sum);
}

double cosine(std::span<const float> a, double lengthOfA, std::span<const float> b) {
    if (a.size() != b.size()) return 0;
    double dot = 0, square = 0;
    for (std::size_t i = 0; i < a.size(); ++i) {
        dot += double{a[i]} * double{b[i]};
        square += double{b[i]} * double{b[i]};
    }
    const auto both = lengthOfA * std::sqrt(square);
    return both > 0 ? dot / both : 0;
}

}  // namespace

std::vector<FilingPoolNote> pool(std::vector<FilingPoolNote> notes, const FilingTaxonomy& taxonomy) {
    std::erase_if(notes, [&](FilingPoolNote& note) {
        note.folder = parentFolder(note.path);
        const auto folder = VaultPlanner::normaliseFolder(note.folder);
        return note.vector.empty() || folder.empty() || taxonomy.rules.isProtected(folder) ||
               taxonomy.rules.isStaging(folder);
    });
    return notes;
}

std::optional<std::string> poolShortfall(const std::vector<FilingPoolNote>& pool) {
    if (pool.empty()) return localised("there are no filed notes to compare against");
    std::set<std::string_view> folders;
    for (const auto& note : pool) folders.insert(note.folder);
    if (pool.size() < fewestNotes)
        return localised(
            "too few filed notes to compare against — {} so far, and hints need at least {} across {} "
            "folders",
            pool.size(), fewestNotes, fewestFolders);
    if (folders.size() < fewestFolders)
        return localised(
            "too few filed notes to compare against — all {} are in one folder, and hints need at least {}",
            pool.size(), fewestFolders);
    return {};
}

std::vector<FilingHint> neighbours(std::span<const float> vector, std::string_view excluding,
                                   const std::vector<FilingPoolNote>& pool, int k) {
    if (k < 1 || vector.empty()) return {};
    const auto own = length(vector);
    std::vector<std::pair<double, const FilingPoolNote*>> scored;
    scored.reserve(pool.size());
    for (const auto& note : pool)
        if (note.path != excluding) scored.emplace_back(cosine(vector, own, note.vector), &note);
    const auto count = std::min(static_cast<std::size_t>(k), scored.size());
    std::partial_sort(scored.begin(), scored.begin() + static_cast<std::ptrdiff_t>(count), scored.end(),
                      [](const auto& a, const auto& b) {
                          return a.first != b.first ? a.first > b.first : a.second->path < b.second->path;
                      });
    std::vector<FilingHint> hints;
    for (std::size_t i = 0; i < count; ++i) {
        const auto& [score, note] = scored[i];
        hints.push_back({.path = note->path, .title = note->title, .folder = note->folder, .score = score});
    }
    return hints;
}

std::optional<std::string> vote(const std::vector<FilingHint>& hints) {
    std::map<std::string_view, std::size_t> votes;
    for (const auto& hint : hints)
        if (++votes[hint.folder] * 2 > hints.size()) return hint.folder;
    return {};
}

std::string lines(const std::vector<FilingHint>& hints) {
    std::vector<std::string> made;
    for (const auto& hint : hints) made.push_back(fmt::format("- \"{}\" is in {}/", hint.title, hint.folder));
    return join(made, "\n");
}

}  // namespace vesk::FilingHints
