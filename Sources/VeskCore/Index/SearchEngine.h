// Keyword, semantic and hybrid search over the index, and the retrieval of passages for the assistant.
#pragma once

#include <cstdint>
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
    /// The snippet as plain text for a result row, cut so that its first match shows; none if it adds nothing
    /// to the title.
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
    /// retrieveSync() on the search queue ("com.tarnlight.vesk.search"); `done` is called on it. The engine
    /// outlives the queue's jobs.
    void retrieve(std::string query, std::vector<float> embedding, int limit, SerialQueue& searchQueue,
                  std::function<void(std::vector<RetrievedChunk>)> done) const;

    /// How many notes each positive term is found in, and how many there are.
    struct Rarity {
        std::map<SearchQuery::Term, int> counts;
        int total = 0;
        /// 0 for a term that was not counted.
        int count(const SearchQuery::Term& term) const;
        /// By lower-cased term: the fewer notes, the higher.
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
    static double likeScore(std::string_view title, std::string_view body,
                            const std::vector<std::string>& words);
    /// Identifiers by 1 / (k + rank) summed over the lists, best first.
    static std::vector<std::pair<std::string, double>> reciprocalRankFusion(
        const std::vector<std::vector<std::string>>& lists, double k = 60);
    static bool isPictureOnly(std::string_view text);

private:
    /// Snippets cost more than the search; who doesn't show the hits goes without.
    enum class Snippets { made, none };
    std::vector<SearchHit> keyword(const SearchQuery& query, int limit, Snippets snippets) const;
    std::vector<SearchHit> keywordAny(const SearchQuery& query, int limit, Snippets snippets) const;
    std::vector<SearchHit> candidates(const SearchQuery& query, std::int64_t limit, Snippets snippets) const;
    std::vector<SearchHit> fullText(const SearchQuery& query, const std::string& expression,
                                    std::int64_t limit, Snippets snippets) const;
    std::vector<SearchHit> like(const SearchQuery& query, std::int64_t limit, Snippets snippets) const;
    std::vector<SearchHit> metadataOnly(const SearchQuery& query, std::int64_t limit) const;
    std::vector<SearchHit> applyLineFilter(std::vector<SearchHit> hits, const SearchQuery& query) const;
    std::vector<NoteIndex::Neighbour> nearestOrNone(std::span<const float> vector, int limit) const;
    std::vector<RetrievedChunk> retrieved(const SearchQuery& query, std::span<const float> embedding,
                                          int limit) const;

    const NoteIndex& index_;
    Log& log_;
};

}  // namespace vesk
