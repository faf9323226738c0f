// The passages nearest to a vector: one pass over all of them, in the table or in memory.
#include <algorithm>
#include <cmath>
#include <utility>

#include "VeskCore/Index/NoteIndexImplementation.h"
#include "VeskCore/Support/VectorMath.h"

namespace vesk {

namespace {

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

    std::vector<NoteIndex::Neighbour> sorted() && {
        std::sort(rows_.begin(), rows_.end(), before);
        std::vector<NoteIndex::Neighbour> result;
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

bool hasLength(std::span<const float> vector) {
    double squares = 0;
    for (const float value : vector) squares += static_cast<double>(value) * static_cast<double>(value);
    return squares > 0 && std::isfinite(squares);
}

}  // namespace

std::vector<NoteIndex::Neighbour> NoteIndex::nearestChunks(std::span<const float> vector,
                                                           const std::optional<std::string>& provider,
                                                           int limit, double minimumScore) const {
    if (vector.empty() || limit < 1) return {};
    std::lock_guard guard(implementation_->lock);
    // A program that asks once is served sooner, and with less memory, by the table. So is what the cache
    // leaves out: what has no length, whose cosine is 0.
    const bool once = !std::exchange(implementation_->askedForNearest, true);
    if (once || minimumScore < 0 || !hasLength(vector)) {
        return implementation_->nearestInTable(vector, provider, limit, minimumScore);
    }
    return implementation_->nearestInMemory(vector, provider, limit, minimumScore);
}

std::vector<NoteIndex::Neighbour> NoteIndex::Implementation::nearestInTable(
    std::span<const float> vector, const std::optional<std::string>& provider, int limit,
    double minimumScore) const {
    std::string sql = "SELECT note_path, ordinal, vector FROM chunks WHERE vector IS NOT NULL";
    if (provider) sql += " AND embed_provider = ?";
    const VectorMath::CosineScan scan(vector);
    BestRows rows(static_cast<std::size_t>(limit));
    const auto look = [&](const Row& row) {
        const std::string_view blob = row.blob(2);
        const std::size_t count = blob.size() / sizeof(float);
        if (count != vector.size()) return;
        // The fast cosine only rules rows out; what is kept and in which order is decided by the exact one.
        const double threshold = rows.threshold(minimumScore);
        if (scan(blob.data(), count) + scanError <= threshold) return;
        const double score = VectorMath::cosine(vector, VectorBlob::decode(blob));
        if (score > threshold) rows.insert(score, row.textView(0), static_cast<int>(row.integer(1)));
    };
    if (provider) {
        read(sql, look, *provider);
    } else {
        read(sql, look);
    }
    return std::move(rows).sorted();
}

std::vector<NoteIndex::Neighbour> NoteIndex::Implementation::nearestInMemory(
    std::span<const float> vector, const std::optional<std::string>& provider, int limit,
    double minimumScore) {
    refreshVectors();
    BestRows rows(static_cast<std::size_t>(limit));
    for (const auto& candidate :
         vectors.candidates(vector, provider, static_cast<std::size_t>(limit), minimumScore)) {
        const double least = rows.threshold(minimumScore);
        readCached(
            "SELECT note_path, ordinal, vector FROM chunks WHERE rowid = ?",
            [&](const Row& row) {
                const double score = VectorMath::cosine(vector, VectorBlob::decode(row.blob(2)));
                if (score > least) rows.insert(score, row.textView(0), static_cast<int>(row.integer(1)));
            },
            candidate.row);
    }
    return std::move(rows).sorted();
}

void NoteIndex::Implementation::refreshVectors() {
    std::int64_t version = 0;
    readCached("PRAGMA data_version", [&](const Row& row) { version = row.integer(0); });
    const auto add = [&](const Row& row) {
        vectors.add(row.integer(0), row.textView(1), VectorBlob::decode(row.blob(2)));
    };
    if (vectors.isLoaded() && version == vectorsDataVersion) {
        if (const auto rows = vectors.takeTouched()) {
            for (const std::int64_t row : *rows) {
                readCached(
                    "SELECT rowid, embed_provider, vector FROM chunks WHERE rowid = ? AND vector IS NOT NULL",
                    add, row);
            }
            return;
        }
    }
    vectors.begin();
    vectorsDataVersion = version;
    try {
        read("SELECT rowid, embed_provider, vector FROM chunks WHERE vector IS NOT NULL", add);
    } catch (...) {
        vectors.forget();
        throw;
    }
}

}  // namespace vesk
