// Search by meaning.
#include "VeskCore/Index/SearchEngine.h"
#include "VeskCore/Support/Characters.h"

namespace vesk {

namespace {

constexpr std::size_t snippetCharacters = 400;

}  // namespace

std::vector<NoteIndex::Neighbour> SearchEngine::nearestOrNone(std::span<const float> vector,
                                                              int limit) const {
    try {
        return index_.nearestChunks(vector, std::nullopt, limit, 0);
    } catch (const Error& error) {
        log_.line(LogLevel::error, "search", "Semantic scan failed: {}", {logPrivate(error.description())});
        return {};
    }
}

std::vector<SearchHit> SearchEngine::semantic(std::span<const float> vector,
                                              const std::optional<std::string>& provider, int limit,
                                              double minimumScore) const {
    try {
        std::vector<SearchHit> hits;
        for (const auto& neighbour : index_.nearestChunks(vector, provider, limit, minimumScore)) {
            const auto passage = index_.passage(neighbour.path, neighbour.ordinal);
            if (!passage) continue;
            hits.push_back({.notePath = neighbour.path,
                            .title = passage->title,
                            .snippet = std::string(characterPrefix(passage->text, snippetCharacters)),
                            .score = neighbour.score,
                            .mode = SearchHit::Mode::semantic,
                            .chunkOrdinal = neighbour.ordinal});
        }
        return hits;
    } catch (const Error& error) {
        log_.line(LogLevel::error, "search", "Semantic scan failed: {}", {logPrivate(error.description())});
        return {};
    }
}

}  // namespace vesk
