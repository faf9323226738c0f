#include "VeskCore/Index/VectorCache.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <queue>
#include <utility>

#include "VeskCore/Support/HalfVectors.h"

namespace vesk {

namespace {

constexpr std::size_t blockVectors = 4096;
/// More changes than this are read again with everything else.
constexpr std::size_t mostTouched = 20'000;

}  // namespace

void VectorCache::forget() {
    *this = {};
}

void VectorCache::begin() {
    forget();
    loaded_ = true;
}

std::uint16_t VectorCache::numberOf(std::string_view provider) {
    const auto found = std::find(providers_.begin(), providers_.end(), provider);
    if (found == providers_.end()) {
        providers_.emplace_back(provider);
        return static_cast<std::uint16_t>(providers_.size() - 1);
    }
    return static_cast<std::uint16_t>(found - providers_.begin());
}

void VectorCache::add(std::int64_t row, std::string_view provider, std::span<const float> vector) {
    double squares = 0;
    for (const float value : vector) squares += static_cast<double>(value) * static_cast<double>(value);
    if (!(squares > 0) || !std::isfinite(squares)) return;
    const double length = std::sqrt(squares);
    std::vector<float> unit(vector.size());
    std::transform(vector.begin(), vector.end(), unit.begin(),
                   [&](float value) { return static_cast<float>(static_cast<double>(value) / length); });

    Table& table = tables_[vector.size()];
    table.size = vector.size();
    std::size_t place = table.rows.size();
    if (!table.freePlaces.empty()) {
        place = table.freePlaces.back();
        table.freePlaces.pop_back();
    } else {
        if (place % blockVectors == 0) {
            table.blocks.push_back(
                std::make_unique_for_overwrite<std::uint16_t[]>(blockVectors * table.size));
        }
        table.rows.push_back(0);
        table.providers.push_back(0);
    }
    table.rows[place] = row;
    table.providers[place] = numberOf(provider);
    VectorMath::halfVectors().narrow(
        unit.data(), unit.size(),
        table.blocks[place / blockVectors].get() + place % blockVectors * table.size);
}

void VectorCache::touched(std::int64_t row) {
    if (!loaded_ || tooManyTouched_) return;
    if (touched_.size() == mostTouched) {
        tooManyTouched_ = true;
        touched_.clear();
    } else if (touched_.empty() || touched_.back() != row) {
        touched_.push_back(row);
    }
}

std::optional<std::vector<std::int64_t>> VectorCache::takeTouched() {
    if (tooManyTouched_) return {};
    std::vector<std::int64_t> rows = std::exchange(touched_, {});
    std::sort(rows.begin(), rows.end());
    rows.erase(std::unique(rows.begin(), rows.end()), rows.end());
    if (rows.empty()) return rows;
    for (auto& [size, table] : tables_) {
        for (std::size_t place = 0; place < table.rows.size(); ++place) {
            if (table.rows[place] == 0 || !std::binary_search(rows.begin(), rows.end(), table.rows[place]))
                continue;
            table.rows[place] = 0;
            table.freePlaces.push_back(place);
        }
    }
    return rows;
}

std::vector<VectorCache::Candidate> VectorCache::candidates(std::span<const float> query,
                                                            const std::optional<std::string>& provider,
                                                            std::size_t limit, double minimum) const {
    const auto found = tables_.find(query.size());
    if (found == tables_.end() || limit == 0) return {};
    const Table& table = found->second;
    std::optional<std::size_t> wanted;
    if (provider) {
        const auto known = std::find(providers_.begin(), providers_.end(), *provider);
        if (known == providers_.end()) return {};
        wanted = static_cast<std::size_t>(known - providers_.begin());
    }

    double squares = 0;
    for (const float value : query) squares += static_cast<double>(value) * static_cast<double>(value);
    const double length = std::sqrt(squares);
    std::vector<float> unit(query.size());
    std::transform(query.begin(), query.end(), unit.begin(),
                   [&](float value) { return static_cast<float>(static_cast<double>(value) / length); });
    std::vector<float> scores(table.rows.size());
    for (std::size_t block = 0; block < table.blocks.size(); ++block) {
        const std::size_t from = block * blockVectors;
        VectorMath::halfVectors().dots(unit.data(), unit.size(), table.blocks[block].get(),
                                       std::min(blockVectors, scores.size() - from), scores.data() + from);
    }

    // The score of the last of the best; what is within two errors of it may have its place.
    constexpr auto error = static_cast<float>(VectorMath::halfPrecisionError);
    float least = static_cast<float>(minimum) - error;
    const auto counts = [&](std::size_t place) {
        return table.rows[place] != 0 && (!wanted || table.providers[place] == *wanted);
    };
    std::priority_queue<float, std::vector<float>, std::greater<>> best;
    for (std::size_t place = 0; place < scores.size(); ++place) {
        if (scores[place] < least || !counts(place)) continue;
        best.push(scores[place]);
        if (best.size() > limit) best.pop();
        if (best.size() == limit) least = std::max(least, best.top() - 2 * error);
    }
    std::vector<Candidate> result;
    for (std::size_t place = 0; place < scores.size(); ++place) {
        if (scores[place] >= least && counts(place)) {
            result.push_back({table.rows[place], static_cast<double>(scores[place])});
        }
    }
    std::sort(result.begin(), result.end(),
              [](const Candidate& a, const Candidate& b) { return a.row < b.row; });
    return result;
}

}  // namespace vesk
