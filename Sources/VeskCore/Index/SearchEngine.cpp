#include "VeskCore/Index/SearchEngine.h"

#include <algorithm>
#include <unordered_map>
#include <unordered_set>

#include "VeskCore/Index/QueryText.h"
#include "VeskCore/Index/SearchLists.h"
#include "VeskCore/Index/WordMatcher.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"

namespace vesk {

namespace {

constexpr int likeWindow = 240;         // UTF-16 units of a snippet that is cut here
constexpr int lineFilterOverfetch = 4;  // hits fetched for each one wanted when lines are filtered
constexpr int hybridPool = 30;          // hits fused at least
constexpr double titleMatchScore = 20;  // a word in the title against one match in the body
constexpr std::string_view rank = "bm25(notes_fts, 8.0, 1.0)";

double likeScoreOf(std::string_view title, std::string_view body, const std::vector<std::string>& words,
                   const std::vector<WordMatcher>& matchers) {
    if (words.empty()) return 0;
    const std::string folded = caseAndDiacriticFolded(body);
    double score = 0;
    for (std::size_t i = 0; i < words.size(); ++i) {
        score += static_cast<double>(matchers[i].count(folded));
        if (containsIgnoringCase(title, words[i])) score += titleMatchScore;
    }
    return score;
}

std::vector<SearchHit> stylesheetsLast(std::vector<SearchHit> hits) {
    return stylesheetsLast(std::move(hits),
                           [](const SearchHit& hit) { return std::string_view(hit.notePath); });
}

/// A body's lines as they stand and folded for a quick look: folding keeps the line ends.
struct FoldedLines {
    std::string folded;
    std::vector<std::string_view> lines, foldedLines;

    explicit FoldedLines(std::string_view body)
        : folded(caseFolded(body)), lines(split(body, '\n')), foldedLines(split(folded, '\n')) {}
    FoldedLines(const FoldedLines&) = delete;
    FoldedLines& operator=(const FoldedLines&) = delete;

    bool someHoldsAll(const std::vector<std::string>& words,
                      const std::vector<std::string>& foldedWords) const {
        for (std::size_t i = 0; i < lines.size(); ++i) {
            const bool looksRight = std::all_of(
                foldedWords.begin(), foldedWords.end(),
                [&](const std::string& word) { return foldedLines[i].find(word) != std::string_view::npos; });
            if (looksRight && std::all_of(words.begin(), words.end(), [&](const std::string& word) {
                    return containsIgnoringCase(lines[i], word);
                })) {
                return true;
            }
        }
        return false;
    }
};

}  // namespace

SearchEngine::SearchEngine(const NoteIndex& index, Log& log) : index_(index), log_(log) {}

std::vector<SearchHit> SearchEngine::keyword(std::string_view raw, int limit) const {
    return keyword(SearchQuery::parse(raw), limit);
}

std::vector<SearchHit> SearchEngine::keyword(const SearchQuery& query, int limit) const {
    return keyword(query, limit, Snippets::made);
}

std::vector<SearchHit> SearchEngine::keywordAny(const SearchQuery& query, int limit) const {
    return keywordAny(query, limit, Snippets::made);
}

std::vector<SearchHit> SearchEngine::keyword(const SearchQuery& query, int limit, Snippets snippets) const {
    if (query.empty() || limit < 1) return {};
    try {
        const std::int64_t fetched =
            query.lineGroups.empty() ? limit : std::int64_t{limit} * lineFilterOverfetch;
        auto hits = stylesheetsLast(applyLineFilter(candidates(query, fetched, snippets), query));
        truncate(hits, limit);
        return hits;
    } catch (const Error& error) {
        log_.line(LogLevel::error, "search", "Keyword search failed: {}", {logPrivate(error.description())});
        return {};
    }
}

std::vector<SearchHit> SearchEngine::keywordAny(const SearchQuery& query, int limit,
                                                Snippets snippets) const {
    if (index_.keywordBackend() != KeywordBackend::fts5 || limit < 1) return {};
    const auto expression = query.ftsAnyExpression();
    if (!expression) return {};
    try {
        return fullText(query, *expression, limit, snippets);
    } catch (const Error& error) {
        log_.line(LogLevel::error, "search", "Any-term search failed: {}", {logPrivate(error.description())});
        return {};
    }
}

std::vector<SearchHit> SearchEngine::candidates(const SearchQuery& query, std::int64_t limit,
                                                Snippets snippets) const {
    if (index_.keywordBackend() == KeywordBackend::fts5) {
        if (const auto expression = query.ftsExpression())
            return fullText(query, *expression, limit, snippets);
    }
    const bool asksForText = !query.terms.empty() || !query.lineGroups.empty();
    return asksForText ? like(query, limit, snippets) : metadataOnly(query, limit);
}

std::vector<SearchHit> SearchEngine::fullText(const SearchQuery& query, const std::string& expression,
                                              std::int64_t limit, Snippets snippets) const {
    const std::string snippet =
        snippets == Snippets::made ? "snippet(notes_fts, 1, '\x01', '\x02', '…', 14)" : "NULL";
    auto [filter, filterBindings] = query.filterClause("n");
    const std::string weight(rank);
    const std::string sql = "SELECT n.relative_path, n.title, n.excerpt, " + weight + ",\n       " + snippet +
                            "\n"
                            "FROM notes_fts\n"
                            "JOIN note_text t ON t.rowid = notes_fts.rowid\n"
                            "JOIN notes n ON n.relative_path = t.note_path\n"
                            "WHERE notes_fts MATCH ?" +
                            filter + "\nORDER BY " + Vault::sqlIsStylesheet("n.relative_path") + ", " +
                            weight + "\nLIMIT ?";
    SQLBindings bindings{SQLValue::text(expression)};
    bindings.insert(bindings.end(), filterBindings.begin(), filterBindings.end());
    bindings.push_back(SQLValue::integer(limit));

    std::vector<SearchHit> hits;
    index_.query(sql, bindings, [&](const Row& row) {
        Snippet shown = parseMarkedSnippet(row.textView(4));
        if (shown.text.empty()) shown = {.text = row.text(2), .matchRanges = {}};
        hits.push_back({.notePath = row.text(0),
                        .title = row.text(1),
                        .snippet = std::move(shown.text),
                        .matchRanges = std::move(shown.matchRanges),
                        .score = -row.real(3)});
    });
    return hits;
}

std::vector<SearchHit> SearchEngine::like(const SearchQuery& query, std::int64_t limit,
                                          Snippets snippets) const {
    std::vector<std::string> clauses;
    SQLBindings bindings;
    auto bindPattern = [&](const std::string& text, int times) {
        const SQLValue pattern = SQLValue::text("%" + likeEscaped(text) + "%");
        bindings.insert(bindings.end(), static_cast<std::size_t>(times), pattern);
    };
    for (const auto& term : query.positiveTerms()) {
        clauses.emplace_back("(t.title LIKE ? ESCAPE '\\' OR t.body LIKE ? ESCAPE '\\')");
        bindPattern(term.text, 2);
    }
    for (const auto& group : query.lineGroups) {
        for (const auto& word : group) {
            clauses.emplace_back("t.body LIKE ? ESCAPE '\\'");
            bindPattern(word, 1);
        }
    }
    for (const auto& term : query.negatedTerms()) {
        clauses.emplace_back("(t.title NOT LIKE ? ESCAPE '\\' AND t.body NOT LIKE ? ESCAPE '\\')");
        bindPattern(term.text, 2);
    }
    auto [filter, filterBindings] = query.filterClause("n");
    bindings.insert(bindings.end(), filterBindings.begin(), filterBindings.end());
    bindings.push_back(SQLValue::integer(limit));
    const std::string sql =
        "SELECT n.relative_path, n.title, n.excerpt, t.body\n"
        "FROM notes n JOIN note_text t ON t.note_path = n.relative_path\n"
        "WHERE " +
        (clauses.empty() ? "1" : join(clauses, " AND ")) + filter + "\nORDER BY " +
        Vault::sqlIsStylesheet("n.relative_path") + ", n.modified DESC\nLIMIT ?";

    const auto words = query.highlightWords();
    const auto matchers = WordMatcher::all(words);
    std::vector<SearchHit> hits;
    index_.query(sql, bindings, [&](const Row& row) {
        const std::string_view title = row.textView(1);
        const std::string_view body = row.textView(3);
        Snippet snippet = snippets == Snippets::made ? makeSnippet(body, words, likeWindow) : Snippet{};
        if (snippet.text.empty()) snippet = {.text = row.text(2), .matchRanges = {}};
        hits.push_back({.notePath = row.text(0),
                        .title = std::string(title),
                        .snippet = std::move(snippet.text),
                        .matchRanges = std::move(snippet.matchRanges),
                        .score = likeScoreOf(title, body, words, matchers)});
    });
    std::stable_sort(hits.begin(), hits.end(),
                     [](const SearchHit& a, const SearchHit& b) { return a.score > b.score; });
    return hits;
}

std::vector<SearchHit> SearchEngine::metadataOnly(const SearchQuery& query, std::int64_t limit) const {
    auto [filter, bindings] = query.filterClause("n");
    bindings.push_back(SQLValue::integer(limit));
    const std::string sql =
        "SELECT n.relative_path, n.title, n.excerpt\n"
        "FROM notes n\n"
        "WHERE 1" +
        filter + "\nORDER BY " + Vault::sqlIsStylesheet("n.relative_path") + ", n.modified DESC\nLIMIT ?";
    std::vector<SearchHit> hits;
    index_.query(sql, bindings, [&](const Row& row) {
        hits.push_back({.notePath = row.text(0), .title = row.text(1), .snippet = row.text(2)});
    });
    return hits;
}

std::vector<SearchHit> SearchEngine::applyLineFilter(std::vector<SearchHit> hits,
                                                     const SearchQuery& query) const {
    if (query.lineGroups.empty()) return hits;
    auto foldedGroups = query.lineGroups;
    for (auto& group : foldedGroups) {
        for (auto& word : group) word = caseFolded(word);
    }
    std::erase_if(hits, [&](const SearchHit& hit) {
        const auto body = index_.body(hit.notePath);
        if (!body) return true;
        const FoldedLines lines(*body);
        for (std::size_t i = 0; i < foldedGroups.size(); ++i) {
            if (!lines.someHoldsAll(query.lineGroups[i], foldedGroups[i])) return true;
        }
        return false;
    });
    return hits;
}

std::vector<SearchHit> SearchEngine::hybrid(std::string_view query, std::span<const float> embedding,
                                            const std::optional<std::string>& provider, int limit) const {
    const int pool = std::max(limit, hybridPool);
    auto keywordHits = keyword(query, pool);
    if (embedding.empty()) return keywordHits;

    std::vector<SearchHit> semanticHits;  // the best passage of each note
    std::unordered_set<std::string> seen;
    for (auto& hit : semantic(embedding, provider, pool, 0)) {
        if (seen.insert(hit.notePath).second) semanticHits.push_back(std::move(hit));
    }

    std::vector<std::vector<std::string>> lists(2);
    std::unordered_map<std::string, SearchHit*> byPath;
    auto enter = [&](std::vector<SearchHit>& hits, std::vector<std::string>& list) {
        for (auto& hit : hits) {
            list.push_back(hit.notePath);
            byPath.emplace(hit.notePath, &hit);  // a keyword hit came first and stays
        }
    };
    enter(keywordHits, lists[0]);
    enter(semanticHits, lists[1]);

    auto fused = stylesheetsLast(reciprocalRankFusion(lists),
                                 [](const auto& entry) { return std::string_view(entry.first); });
    truncate(fused, limit);
    std::vector<SearchHit> hits;
    hits.reserve(fused.size());
    for (const auto& [path, score] : fused) {
        hits.push_back(std::move(*byPath.at(path)));
        hits.back().score = score;
        hits.back().mode = SearchHit::Mode::hybrid;
    }
    return hits;
}

double SearchEngine::likeScore(std::string_view title, std::string_view body,
                               const std::vector<std::string>& words) {
    return likeScoreOf(title, body, words, WordMatcher::all(words));
}

std::vector<std::pair<std::string, double>> SearchEngine::reciprocalRankFusion(
    const std::vector<std::vector<std::string>>& lists, double k) {
    std::vector<std::pair<std::string, double>> fused;  // in the order first seen
    std::unordered_map<std::string_view, std::size_t> positions;
    for (const auto& list : lists) {
        double rankInList = 0;
        for (const auto& identifier : list) {
            rankInList += 1;
            const auto [entry, isNew] = positions.emplace(identifier, fused.size());
            if (isNew) fused.emplace_back(identifier, 0.0);
            fused[entry->second].second += 1 / (k + rankInList);
        }
    }
    std::stable_sort(fused.begin(), fused.end(),
                     [](const auto& a, const auto& b) { return a.second > b.second; });
    return fused;
}

}  // namespace vesk
