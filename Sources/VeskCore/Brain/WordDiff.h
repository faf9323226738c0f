// Two texts compared word by word, for the review of a rewrite. Pure; any thread.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace vesk::WordDiff {

enum class Kind { same, removed, added };

struct Run {
    int id = 0;  ///< counts up from 0
    Kind kind = Kind::same;
    std::string text;
    bool operator==(const Run&) const = default;
};

struct Result {
    /// Neighbours differ in kind. Without the added ones they make the old text, without the removed ones the
    /// new.
    std::vector<Run> runs;
    bool coarse = false;                 ///< a part changed too much to be lined up and stands whole
    std::size_t added = 0, removed = 0;  ///< words
    bool hasChanges = false;
    bool operator==(const Result&) const = default;
};

/// Lines first, then words within changed lines. The sizes beyond which it is coarse bound its cost.
Result compare(std::string_view oldText, std::string_view newText);

}  // namespace vesk::WordDiff
