// Keyword, semantic and hybrid search over the index, and the retrieval of passages for the assistant.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "VeskCore/Index/NoteIndex.h"
#include "VeskCore/Index/RetrievedChunk.h"
#include "VeskCore/Index/SearchQuery.h"
#include "VeskCore/Support/Executors.h"
#include "VeskCore/Support/Log.h"
#include "VeskCore/Support/TextRange.h"

namespace vesk {

struct SearchHit {
    enum class Mode { keyword, semantic, hybrid };

    std::string notePath, title, snippet;
    std::vector<TextRange> matchRanges;  ///< in the snippet, UTF-16 units
    double score = 0;                    ///< higher is better
    Mode mode = Mode::keyword;
    std::optional<int> chunkOrdinal;

    /// The path, with "#" and the ordinal when there is one.
    std::string id() const;
    /// The snippet as one plain line for a result row; none if it adds nothing to the title.
    std::optional<std::string> passage() const;
    bool operator==(const SearchHit&) const = default;
};
std::string_view rawValue(SearchHit::Mode mode);

/// Borrows the index. Any thread; the calls block. None throws: a failure is logged and gives an empty list.
class SearchEngine {
public:
    SearchEngine(const NoteIndex& index, Log& log);

    std::vector<SearchHit> keyword(std::string_view raw, int limit) const;
    std::vector<SearchHit> keyword(const SearchQuery& query, int limit) const;
    /// Any of the terms; FTS5 only.
    std::vector<SearchHit> keywordAny(const SearchQuery& query, int limit) const;
    /// One hit per passage. Without a provider the vectors of all are looked at.
    std::vector<SearchHit> semantic(std::span<const float> vector, const std::optional<std::string>& provider,
                                    int limit, double minimumScore) const;
    /// May be longer than `limit` without an embedding.
    std::vector<SearchHit> hybrid(std::string_view query, std::span<const float> embedding,
                                  const std::optional<std::string>& provider, int limit) const;
    /// The passages most worth quoting; an empty embedding leaves the semantic arm out.
    std::vector<RetrievedChunk> retrieveSync(std::string_view query, std::span<const float> embedding,
                                             int limit) const;
    /// retrieveSync() on the search queue ("com.tarnlight.vesk.search"); `done` is called on it.
    void retrieve(std::string query, std::vector<float> embedding, int limit, SerialQueue& searchQueue,
                  std::function<void(std::vector<RetrievedChunk>)> done) const;

    /// The positive terms' document counts, lower-cased, and the number of notes.
    struct Rarity {
        std::map<std::string, int> counts;
        int total = 0;
        std::map<std::string, double> weights() const;
    };
    Rarity rarity(const SearchQuery& query) const;
    SearchQuery informativeTerms(const SearchQuery& query, const Rarity& rarity) const;
    SearchQuery rarestTerms(const SearchQuery& query, const Rarity& rarity) const;

    // Pure parts

    struct Snippet {
        std::string text;
        std::vector<TextRange> matchRanges;
        bool operator==(const Snippet&) const = default;
    };
    /// A stretch of at most `window` UTF-16 units of the body around the first match.
    static Snippet makeSnippet(std::string_view body, const std::vector<std::string>& words, int window);
    /// The text without the markers U+0001 and U+0002, and the ranges between them.
    static Snippet parseMarkedSnippet(std::string_view marked);
    static double likeScore(std::string_view title, std::string_view body, const std::vector<std::string>& words);
    /// Identifiers by 1 / (k + rank) summed over the lists, best first.
    static std::vector<std::pair<std::string, double>> reciprocalRankFusion(
        const std::vector<std::vector<std::string>>& lists, double k = 60);
    static bool isPictureOnly(std::string_view text);

private:
    std::vector<SearchHit> candidates(const SearchQuery& query, int limit) const;
    std::vector<SearchHit> fullText(const SearchQuery& query, const std::string& expression, int limit) const;
    std::vector<SearchHit> like(const SearchQuery& query, int limit) const;
    std::vector<SearchHit> metadataOnly(const SearchQuery& query, int limit) const;
    std::vector<SearchHit> applyLineFilter(std::vector<SearchHit> hits, const SearchQuery& query) const;
    std::vector<RetrievedChunk> bestChunks(std::string_view path, std::string_view title,
                                           const std::vector<std::string>& words,
                                           const std::map<std::string, double>& weights, int take,
                                           bool padUnmatched) const;

    const NoteIndex& index_;
    Log& log_;
};

}  // namespace vesk
