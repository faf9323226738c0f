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
            index_.query(
                "SELECT c.text, n.title FROM chunks c\nJOIN notes n ON n.relative_path = c.note_path\n"
                "WHERE c.note_path = ? AND c.ordinal = ?",
                {SQLValue::text(neighbour.path), SQLValue::integer(neighbour.ordinal)}, [&](const Row& row) {
                    hits.push_back(
                        {.notePath = neighbour.path,
                         .title = row.text(1),
                         .snippet = std::string(characterPrefix(row.textView(0), snippetCharacters)),
                         .score = neighbour.score,
                         .mode = SearchHit::Mode::semantic,
                         .chunkOrdinal = neighbour.ordinal});
                });
        }
        return hits;
    } catch (const Error& error) {
        log_.line(LogLevel::error, "search", "Semantic scan failed: {}", {logPrivate(error.description())});
        return {};
    }
}

}  // namespace vesk
