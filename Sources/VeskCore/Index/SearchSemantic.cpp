// Search by meaning: one pass over the stored vectors.
#include <algorithm>

#include "VeskCore/Index/SearchEngine.h"
#include "VeskCore/Support/Characters.h"
#include "VeskCore/Support/VectorMath.h"

namespace vesk {

namespace {

constexpr std::size_t snippetCharacters = 400;
constexpr double scanError = 1e-5;  // CosineScan's distance from the exact cosine, with room to spare

/// The best few of a stream of rows. Of equal scores the earlier row stays ahead.
class BestRows {
public:
    explicit BestRows(std::size_t capacity) : capacity_(capacity) {}

    /// What a row has to exceed to be taken.
    double threshold(double minimum) const {
        return rows_.size() < capacity_ ? minimum : rows_.front().score;
    }

    void insert(double score, std::string_view path, int ordinal) {
        if (rows_.size() == capacity_) {
            std::pop_heap(rows_.begin(), rows_.end(), before);
            rows_.back() = {score, arrivals_++, std::string(path), ordinal};
        } else {
            rows_.push_back({score, arrivals_++, std::string(path), ordinal});
        }
        std::push_heap(rows_.begin(), rows_.end(), before);
    }

    std::vector<SearchEngine::Neighbour> sorted() && {
        std::sort(rows_.begin(), rows_.end(), before);
        std::vector<SearchEngine::Neighbour> result;
        result.reserve(rows_.size());
        for (auto& row : rows_) result.push_back({std::move(row.path), row.ordinal, row.score});
        return result;
    }

private:
    struct Kept {
        double score;
        std::size_t arrival;
        std::string path;
        int ordinal;
    };
    static bool before(const Kept& a, const Kept& b) {
        return a.score != b.score ? a.score > b.score : a.arrival < b.arrival;
    }

    std::size_t capacity_;
    std::size_t arrivals_ = 0;
    std::vector<Kept> rows_;  // a heap with the worst row in front
};

}  // namespace

std::vector<SearchEngine::Neighbour> SearchEngine::nearest(std::span<const float> vector,
                                                           const std::optional<std::string>& provider,
                                                           int limit, double minimumScore) const {
    if (vector.empty() || limit < 1) return {};
    std::string sql = "SELECT note_path, ordinal, vector FROM chunks WHERE vector IS NOT NULL";
    SQLBindings bindings;
    if (provider) {
        sql += " AND embed_provider = ?";
        bindings.push_back(SQLValue::text(*provider));
    }
    const VectorMath::CosineScan scan(vector);
    BestRows best(static_cast<std::size_t>(limit));
    index_.query(sql, bindings, [&](const Row& row) {
        const std::string_view blob = row.blob(2);
        const std::size_t count = blob.size() / sizeof(float);
        if (count != vector.size()) return;
        // The fast cosine only rules rows out; what is kept and in which order is decided by the exact one.
        const double threshold = best.threshold(minimumScore);
        if (scan(blob.data(), count) + scanError <= threshold) return;
        const double score = VectorMath::cosine(vector, VectorBlob::decode(blob));
        if (score > threshold) best.insert(score, row.textView(0), static_cast<int>(row.integer(1)));
    });
    return std::move(best).sorted();
}

std::vector<SearchEngine::Neighbour> SearchEngine::nearestOrNone(std::span<const float> vector,
                                                                 int limit) const {
    try {
        return nearest(vector, std::nullopt, limit, 0);
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
        for (const auto& neighbour : nearest(vector, provider, limit, minimumScore)) {
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
