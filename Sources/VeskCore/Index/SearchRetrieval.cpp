// The passages most worth quoting for a question: keyword, rare words and meaning, fused by rank.
#include <algorithm>
#include <array>
#include <cmath>
#include <iterator>
#include <limits>
#include <unordered_map>
#include <unordered_set>

#include "VeskCore/Index/QueryText.h"
#include "VeskCore/Index/SearchEngine.h"
#include "VeskCore/Index/SearchLists.h"
#include "VeskCore/Index/WordMatcher.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"

namespace vesk {

namespace {

constexpr int poolFactor = 3;              // candidates looked at for each passage wanted
constexpr std::size_t passagesOfNote = 2;  // taken from one note by an arm
constexpr int notesForRarity = 12;         // in a smaller vault no word counts as common
constexpr int commonShare = 3;             // a word in more than a third of the notes is common
constexpr int rareAnyway = 3;              // a word in this many notes is rare whatever the others do
constexpr std::array<std::string_view, 7> contractionEndings{"s", "re", "m", "ll", "ve", "d", "t"};

bool isContraction(std::string_view term) {
    std::string straight = replaceAll(term, "\u2019", "'");
    straight = lowercased(replaceAll(straight, "\u2018", "'"));
    const std::size_t apostrophe = straight.rfind('\'');
    if (apostrophe == std::string::npos) return false;
    const std::string_view ending = std::string_view(straight).substr(apostrophe + 1);
    return std::find(contractionEndings.begin(), contractionEndings.end(), ending) !=
           contractionEndings.end();
}

/// The query with only those of its positive terms that `keep` takes, or as it was if that keeps none or all.
template <class Keep>
SearchQuery narrowed(const SearchQuery& query, const Keep& keep) {
    std::vector<SearchQuery::Term> kept, negated;
    std::size_t positive = 0;
    for (const auto& term : query.terms) {
        if (term.isNegated) {
            negated.push_back(term);
        } else {
            ++positive;
            if (keep(term)) kept.push_back(term);
        }
    }
    if (kept.empty() || kept.size() == positive) return query;
    SearchQuery result = query;
    result.terms = std::move(kept);
    result.terms.insert(result.terms.end(), negated.begin(), negated.end());
    return result;
}

/// The words that passages are measured by.
struct WeighedWords {
    std::vector<WordMatcher> matchers;
    std::vector<double> weights;

    WeighedWords(const std::vector<std::string>& words, const std::map<std::string, double>& termWeights) {
        for (const auto& word : words) {
            WordMatcher matcher(word);
            if (matcher.empty()) continue;
            const auto weight = termWeights.find(lowercased(word));
            matchers.push_back(std::move(matcher));
            weights.push_back(weight == termWeights.end() ? 1.0 : weight->second);
        }
    }
    double score(std::string_view folded) const {
        double sum = 0;
        for (std::size_t i = 0; i < matchers.size(); ++i) {
            sum += weights[i] * static_cast<double>(matchers[i].count(folded));
        }
        return sum;
    }
};

/// The passages of notes, each note read once and each text folded once for a whole retrieval.
class Passages {
public:
    struct Passage {
        IndexedChunk chunk;
        std::string folded;
    };
    explicit Passages(const NoteIndex& index) : index_(index) {}

    const std::vector<Passage>& of(const std::string& path) {
        const auto [entry, isNew] = passages_.try_emplace(path);
        if (isNew) {
            for (auto& chunk : index_.chunks(path)) {
                std::string folded = caseAndDiacriticFolded(chunk.text);
                entry->second.push_back({std::move(chunk), std::move(folded)});
            }
        }
        return entry->second;
    }
    const Passage* find(const std::string& path, int ordinal) {
        for (const auto& passage : of(path)) {
            if (passage.chunk.ordinal == ordinal) return &passage;
        }
        return nullptr;
    }

private:
    const NoteIndex& index_;
    std::unordered_map<std::string, std::vector<Passage>> passages_;
};

/// The passages of one note that match best; a stand-in, if any, when none does.
std::vector<const Passages::Passage*> bestPassages(const std::vector<Passages::Passage>& passages,
                                                   std::string_view path, std::string_view title,
                                                   const WeighedWords& words, bool padUnmatched) {
    std::vector<const Passages::Passage*> best;
    if (passages.empty()) return best;
    const bool isStylesheet = isStylesheetPath(path);
    if (words.matchers.empty()) {
        if (isStylesheet) return best;
        for (const auto& passage : passages) best.push_back(&passage);
    } else {
        std::vector<std::pair<double, const Passages::Passage*>> scored;
        for (const auto& passage : passages) {
            if (const double score = words.score(passage.folded); score > 0)
                scored.emplace_back(score, &passage);
        }
        std::stable_sort(scored.begin(), scored.end(),
                         [](const auto& a, const auto& b) { return a.first > b.first; });
        for (const auto& entry : scored) best.push_back(entry.second);
        if (best.empty() && !isStylesheet) {
            const std::string foldedTitle = caseAndDiacriticFolded(title);
            const bool standsFor = padUnmatched || std::any_of(words.matchers.begin(), words.matchers.end(),
                                                               [&](const WordMatcher& word) {
                                                                   return word.isPartOf(foldedTitle);
                                                               });
            if (standsFor) best.push_back(&passages.front());
        }
    }
    if (best.size() > passagesOfNote) best.resize(passagesOfNote);
    return best;
}

/// One retrieval: the passages found so far, by key, and the ranked list of each arm.
class Collection {
public:
    Collection(Passages& passages, const std::map<std::string, double>& weights)
        : passages_(passages), weights_(weights) {}

    std::vector<std::string> collect(const std::vector<SearchHit>& hits,
                                     const std::vector<std::string>& words, bool padUnmatched) {
        std::vector<std::string> keys;
        const WeighedWords weighed(words, weights_);
        for (const auto& hit : hits) {
            for (const auto* passage :
                 bestPassages(passages_.of(hit.notePath), hit.notePath, hit.title, weighed, padUnmatched)) {
                keys.push_back(add(*passage, hit.title));
            }
        }
        return keys;
    }
    /// A passage that is read when it is needed.
    std::string add(const NoteIndex::Neighbour& neighbour) {
        RetrievedChunk chunk;
        chunk.notePath = neighbour.path;
        chunk.ordinal = neighbour.ordinal;
        std::string key = chunk.id();
        if (found_.try_emplace(key, std::move(chunk)).second) unread_.insert(key);
        return key;
    }
    std::string add(const Passages::Passage& passage, std::string_view title) {
        RetrievedChunk chunk{.notePath = passage.chunk.notePath,
                             .noteTitle = std::string(title),
                             .ordinal = passage.chunk.ordinal,
                             .text = passage.chunk.text,
                             .score = 0};
        std::string key = chunk.id();
        found_.try_emplace(key, std::move(chunk));
        return key;
    }
    /// A passage of the keyword arms.
    const RetrievedChunk& at(const std::string& key) const { return found_.at(key); }
    /// None if the passage is not in the index any more.
    std::optional<RetrievedChunk> read(const std::string& key, const NoteIndex& index) const {
        RetrievedChunk chunk = found_.at(key);
        if (!unread_.contains(key)) return chunk;
        auto passage = index.passage(chunk.notePath, chunk.ordinal);
        if (!passage) return std::nullopt;
        chunk.noteTitle = std::move(passage->title);
        chunk.text = std::move(passage->text);
        return chunk;
    }

private:
    Passages& passages_;
    const std::map<std::string, double>& weights_;
    std::unordered_map<std::string, RetrievedChunk> found_;
    std::unordered_set<std::string> unread_;
};

}  // namespace

std::map<std::string, double> SearchEngine::Rarity::weights() const {
    std::map<std::string, double> result;
    for (const auto& [term, count] : counts) {
        const double share =
            static_cast<double>(std::max(total, 1)) / static_cast<double>(std::max(count, 1));
        result.emplace(lowercased(term.text), std::log(share + 1));
    }
    return result;
}

int SearchEngine::Rarity::count(const SearchQuery::Term& term) const {
    const auto entry = counts.find(term);
    return entry == counts.end() ? 0 : entry->second;
}

SearchEngine::Rarity SearchEngine::rarity(const SearchQuery& query) const {
    Rarity rarity;
    for (const auto& term : query.terms) {
        if (!term.isNegated) rarity.counts.emplace(term, 0);
    }
    auto number = [&](std::string_view sql, const SQLBindings& bindings) {
        int result = 0;
        index_.query(sql, bindings, [&](const Row& row) { result = static_cast<int>(row.integer(0)); });
        return result;
    };
    try {
        rarity.total = number("SELECT COUNT(*) FROM notes", {});
        if (index_.keywordBackend() != KeywordBackend::fts5) return rarity;
        for (auto& [term, count] : rarity.counts) {
            const std::string quoted = term.isPhrase ? ftsPhrase(term.text) : ftsPrefix(term.text);
            count =
                number("SELECT COUNT(*) FROM notes_fts WHERE notes_fts MATCH ?", {SQLValue::text(quoted)});
        }
    } catch (const Error&) {
        // Without counts every word weighs the same; the search that follows reports what is wrong.
        for (auto& entry : rarity.counts) entry.second = 0;
    }
    return rarity;
}

SearchQuery SearchEngine::informativeTerms(const SearchQuery& query, const Rarity& rarity) const {
    if (index_.keywordBackend() != KeywordBackend::fts5 || rarity.total < notesForRarity) return query;
    return narrowed(query,
                    [&](const auto& term) { return rarity.count(term) <= rarity.total / commonShare; });
}

SearchQuery SearchEngine::rarestTerms(const SearchQuery& query, const Rarity& rarity) const {
    if (index_.keywordBackend() != KeywordBackend::fts5) return query;
    auto isCandidate = [&](const SearchQuery::Term& term) {
        return rarity.count(term) >= 1 && !isContraction(term.text);
    };
    std::optional<int> lowest;
    for (const auto& term : query.terms) {
        if (!term.isNegated && isCandidate(term))
            lowest = std::min(lowest.value_or(rarity.count(term)), rarity.count(term));
    }
    if (!lowest) return query;
    const int most = std::max(2 * *lowest, rareAnyway);
    return narrowed(query, [&](const auto& term) { return isCandidate(term) && rarity.count(term) <= most; });
}

std::vector<RetrievedChunk> SearchEngine::retrieveSync(std::string_view raw, std::span<const float> embedding,
                                                       int limit) const {
    if (limit < 1) return {};
    try {
        return retrieved(SearchQuery::parse(raw), embedding, limit);
    } catch (const Error& error) {
        log_.line(LogLevel::error, "search", "Keyword search failed: {}", {logPrivate(error.description())});
        return {};
    }
}

std::vector<RetrievedChunk> SearchEngine::retrieved(const SearchQuery& query,
                                                    std::span<const float> embedding, int limit) const {
    const int pool = limit > std::numeric_limits<int>::max() / poolFactor ? limit : limit * poolFactor;
    const Rarity rarity = this->rarity(query);
    const auto weights = rarity.weights();

    // All informative words first; any of them if that finds nothing.
    const SearchQuery strict = informativeTerms(query, rarity);
    auto words = query.highlightWords();
    auto primary = keyword(strict, pool, Snippets::none);
    bool padUnmatched = true;
    if (primary.empty() && (!strict.positiveTerms().empty() || !strict.lineGroups.empty())) {
        primary = keywordAny(strict, pool, Snippets::none);
        words = strict.highlightWords();
        padUnmatched = false;
    }

    // The words that tell most, whatever else was asked.
    const SearchQuery rare = rarestTerms(query, rarity);
    const bool hasRareWords = rare.positiveTerms().size() < query.positiveTerms().size();
    const auto rareWords = hasRareWords ? rare.highlightWords() : std::vector<std::string>{};
    const auto secondary = hasRareWords ? keywordAny(rare, pool, Snippets::none) : std::vector<SearchHit>{};

    Passages passages(index_);
    Collection collection(passages, weights);
    std::vector<std::vector<std::string>> lists(3);
    lists[0] = collection.collect(primary, words, padUnmatched);
    lists[1] = collection.collect(secondary, rareWords, false);

    if (!padUnmatched && !secondary.empty()) {
        std::unordered_set<std::string_view> rareNotes;
        for (const auto& hit : secondary) rareNotes.insert(hit.notePath);
        const auto matchers = WordMatcher::all(rareWords);
        std::erase_if(lists[0], [&](const std::string& key) {
            const RetrievedChunk& chunk = collection.at(key);
            if (rareNotes.contains(chunk.notePath)) return false;
            const auto* passage = passages.find(chunk.notePath, chunk.ordinal);
            return std::none_of(matchers.begin(), matchers.end(),
                                [&](const WordMatcher& word) { return word.occursIn(passage->folded); });
        });
    }
    const bool capsNotes = !lists[0].empty() || !lists[1].empty();
    std::unordered_map<std::string_view, std::size_t> taken;
    const auto neighbours = nearestOrNone(embedding, pool);
    for (const auto& neighbour : neighbours) {
        if (capsNotes && taken[neighbour.path] >= passagesOfNote) continue;
        lists[2].push_back(collection.add(neighbour));
        ++taken[neighbour.path];
    }

    std::vector<RetrievedChunk> prose, pictures, stylesheets;
    for (const auto& [key, score] : reciprocalRankFusion(lists)) {
        if (prose.size() == static_cast<std::size_t>(limit)) break;
        auto chunk = collection.read(key, index_);
        if (!chunk) continue;
        chunk->score = score;
        auto& group = isStylesheetPath(chunk->notePath) ? stylesheets
                      : isPictureOnly(chunk->text)      ? pictures
                                                        : prose;
        group.push_back(*std::move(chunk));
    }
    for (auto* group : {&pictures, &stylesheets}) {
        std::move(group->begin(), group->end(), std::back_inserter(prose));
    }
    truncate(prose, limit);
    return prose;
}

void SearchEngine::retrieve(std::string query, std::vector<float> embedding, int limit,
                            SerialQueue& searchQueue,
                            std::function<void(std::vector<RetrievedChunk>)> done) const {
    searchQueue.post([this, query = std::move(query), embedding = std::move(embedding), limit,
                      done = std::move(done)] { done(retrieveSync(query, embedding, limit)); });
}

bool SearchEngine::isPictureOnly(std::string_view text) {
    bool hasPicture = false;
    for (std::string_view line : split(text, '\n')) {
        line = trim(line);
        if (line.empty()) continue;
        if (line.starts_with("![") && line.ends_with(')')) {
            hasPicture = true;
            continue;
        }
        const std::string_view bare = trimCharacters(line, "#-*_ ");
        if (!bare.empty() && !equalsIgnoringCase(bare, "attachments")) return false;
    }
    return hasPicture;
}

}  // namespace vesk
