// The vectors of all passages in memory, for passes over them at the speed of memory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace vesk {

/// Unit vectors in half precision, a kilobyte for 512 dimensions; the rows of the table keep the exact ones.
/// Not thread-safe by itself.
class VectorCache {
public:
    bool isLoaded() const { return loaded_; }
    /// Empty and not loaded.
    void forget();
    /// Empty and loaded, so that from now on touched() collects.
    void begin();

    /// A row's vector. What has no length stays away, as its cosine with anything is 0 or no number.
    void add(std::int64_t row, std::string_view provider, std::span<const float> vector);

    /// Notes that a row was inserted, changed or deleted.
    void touched(std::int64_t row);
    /// The touched rows, taken out of the cache and no longer told; none if they are too many to be worth it.
    std::optional<std::vector<std::int64_t>> takeTouched();

    struct Candidate {
        std::int64_t row = 0;
        double cosine = 0;  ///< approximate, within VectorMath::halfPrecisionError
    };
    /// The rows that can be among the best `limit` of those whose cosine with the query exceeds `minimum`, by
    /// row. Few more than `limit`, unless many are about as near. The query has a length.
    std::vector<Candidate> candidates(std::span<const float> query,
                                      const std::optional<std::string>& provider, std::size_t limit,
                                      double minimum) const;

private:
    /// Vectors of one size, in blocks, so that growing neither moves nor doubles them.
    struct Table {
        std::size_t size = 0;
        std::vector<std::int64_t> rows;  // 0 for a free place
        std::vector<std::uint16_t> providers;
        std::vector<std::unique_ptr<std::uint16_t[]>> blocks;
        std::vector<std::size_t> freePlaces;
    };
    std::uint16_t numberOf(std::string_view provider);

    bool loaded_ = false;
    std::map<std::size_t, Table> tables_;  // by the vectors' size
    std::vector<std::string> providers_;
    std::vector<std::int64_t> touched_;
    bool tooManyTouched_ = false;
};

}  // namespace vesk
