// Remembers which tables are drawn as grids, and how. Belongs to one editor, on the main thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>

#include "VeskCore/Editor/MarkdownTableGrid.h"

namespace vesk {

/// Two tables with the same text share an entry. At capacity the entry that was not asked for the longest
/// goes.
class TableGridCache {
public:
    static constexpr std::size_t editorCapacity = 64;

    struct Key {
        std::u16string source;
        std::int64_t width = 0;  ///< whole points
        MarkdownTableGrid::Policy policy;
        bool operator==(const Key&) const = default;
    };
    struct Entry {
        MarkdownTableGrid::Decision decision;
        MarkdownTableGrid::Cells cells;  ///< none unless the decision is a grid
        std::uint64_t used = 0;          ///< the clock when it was last asked for
    };

    /// At least 1 whatever is given.
    explicit TableGridCache(std::size_t capacity = editorCapacity);

    /// The width is rounded to whole points first. The entry stands until the next call.
    const Entry& decision(const MarkdownTable& table, std::u16string_view text, double width,
                          const MarkdownTableGrid::Policy& policy,
                          const MarkdownTableGrid::Measurer& measurer);

    std::size_t size() const { return entries_.size(); }

private:
    struct KeyHash {
        std::size_t operator()(const Key& key) const;
    };
    std::unordered_map<Key, Entry, KeyHash> entries_;
    std::uint64_t clock_ = 0;
    std::size_t capacity_;
};

}  // namespace vesk
