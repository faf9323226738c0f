#include "VeskCore/Brain/WordDiff.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <unordered_map>

#include "VeskCore/Support/Text.h"

namespace vesk::WordDiff {

namespace {

using Pieces = std::vector<std::string_view>;

constexpr std::size_t mostLines = 4000;   // of both sides that are lined up by line
constexpr std::size_t mostTokens = 2000;  // of both sides that are lined up by word

/// The lines with their line ends.
Pieces lines(std::string_view text) {
    Pieces found;
    while (!text.empty()) {
        const auto feed = text.find('\n');
        const auto size = feed == text.npos ? text.size() : feed + 1;
        found.push_back(text.substr(0, size));
        text.remove_prefix(size);
    }
    return found;
}

/// The stretch of white space, or of anything else, that begins at `offset`.
std::string_view stretch(std::string_view text, std::size_t offset) {
    std::size_t end = offset;
    const bool isSpace = isSpaceOrNewline(nextCodePoint(text, end));
    for (std::size_t next = end; next < text.size(); end = next) {
        if (isSpaceOrNewline(nextCodePoint(text, next)) != isSpace) break;
    }
    return text.substr(offset, end - offset);
}

/// Stretches of white space and of anything else, in turn; none if there are more than `most`.
std::optional<Pieces> tokenised(std::string_view text, std::size_t most) {
    Pieces tokens;
    for (std::size_t offset = 0; offset < text.size(); offset += tokens.back().size()) {
        if (tokens.size() == most) return std::nullopt;
        tokens.push_back(stretch(text, offset));
    }
    return tokens;
}

std::size_t wordCount(std::string_view text) {
    std::size_t count = 0;
    bool inWord = false;
    for (std::size_t offset = 0; offset < text.size();) {
        const bool isSpace = isSpaceOrNewline(nextCodePoint(text, offset));
        if (!isSpace && !inWord) ++count;
        inWord = !isSpace;
    }
    return count;
}

/// Neighbouring pieces of one text as one.
std::string_view joined(const Pieces& pieces, std::size_t from, std::size_t to) {
    if (from == to) return {};
    const char* const begin = pieces[from].data();
    return {begin, static_cast<std::size_t>(pieces[to - 1].data() + pieces[to - 1].size() - begin)};
}

/// Which pieces of either side have no partner on the other.
struct ChangeMap {
    std::vector<char> removed, inserted;
};

/// The pieces as numbers, the same number for the same text.
class Numbering {
public:
    std::vector<std::uint32_t> of(const Pieces& pieces) {
        std::vector<std::uint32_t> numbers;
        numbers.reserve(pieces.size());
        for (const auto piece : pieces) {
            numbers.push_back(
                known_.try_emplace(piece, static_cast<std::uint32_t>(known_.size())).first->second);
        }
        return numbers;
    }
    std::size_t size() const { return known_.size(); }

private:
    std::unordered_map<std::string_view, std::uint32_t> known_;
};

/// The places of those numbers that the other side has too: no other can have a partner there.
std::vector<std::size_t> placesInBoth(const std::vector<std::uint32_t>& numbers,
                                      const std::vector<std::uint32_t>& others, std::size_t kinds) {
    std::vector<char> has(kinds);
    for (const auto number : others) has[number] = true;
    std::vector<std::size_t> places;
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        if (has[numbers[i]]) places.push_back(i);
    }
    return places;
}

/// A shortest edit script by Myers's greedy walk along the diagonals, every step of which is kept for the way
/// back: time and memory of (length × differences), which the gates bound.
ChangeMap changeMap(const Pieces& oldPieces, const Pieces& newPieces) {
    Numbering numbering;
    const auto oldNumbers = numbering.of(oldPieces);
    const auto newNumbers = numbering.of(newPieces);
    ChangeMap map{.removed = std::vector<char>(oldPieces.size(), true),
                  .inserted = std::vector<char>(newPieces.size(), true)};
    const auto oldPlaces = placesInBoth(oldNumbers, newNumbers, numbering.size());
    const auto newPlaces = placesInBoth(newNumbers, oldNumbers, numbering.size());
    const auto n = static_cast<std::ptrdiff_t>(oldPlaces.size());
    const auto m = static_cast<std::ptrdiff_t>(newPlaces.size());
    const auto oldAt = [&](std::ptrdiff_t i) { return oldNumbers[oldPlaces[static_cast<std::size_t>(i)]]; };
    const auto newAt = [&](std::ptrdiff_t i) { return newNumbers[newPlaces[static_cast<std::size_t>(i)]]; };

    // For each number of differences d, how far each of the diagonals -d, -d + 2, …, d reaches on the old
    // side.
    std::vector<std::vector<std::int32_t>> reached;
    const auto reach = [&](std::ptrdiff_t d, std::ptrdiff_t k) -> std::ptrdiff_t {
        return reached[static_cast<std::size_t>(d)][static_cast<std::size_t>((k + d) / 2)];
    };
    // Whether the best way to diagonal k with d differences ends with an insertion.
    const auto inserts = [&](std::ptrdiff_t d, std::ptrdiff_t k) {
        return k == -d || (k != d && reach(d - 1, k - 1) < reach(d - 1, k + 1));
    };
    std::ptrdiff_t differences = 0;
    for (bool done = false; !done; ++differences) {
        const auto d = differences;
        std::vector<std::int32_t> row(static_cast<std::size_t>(d + 1));
        for (std::ptrdiff_t k = -d; k <= d; k += 2) {
            std::ptrdiff_t x = d == 0 ? 0 : inserts(d, k) ? reach(d - 1, k + 1) : reach(d - 1, k - 1) + 1;
            std::ptrdiff_t y = x - k;
            while (x < n && y < m && y >= 0 && oldAt(x) == newAt(y)) ++x, ++y;
            row[static_cast<std::size_t>((k + d) / 2)] = static_cast<std::int32_t>(x);
            if (x >= n && y >= m) {
                done = true;
                break;
            }
        }
        reached.push_back(std::move(row));
    }
    std::ptrdiff_t x = n, y = m;
    const auto keepBackTo = [&](std::ptrdiff_t start) {
        for (; x > start; --x, --y) {
            map.removed[oldPlaces[static_cast<std::size_t>(x - 1)]] = false;
            map.inserted[newPlaces[static_cast<std::size_t>(y - 1)]] = false;
        }
    };
    for (std::ptrdiff_t d = differences - 1; d > 0; --d) {
        const std::ptrdiff_t k = x - y;
        const bool inserted = inserts(d, k);
        const std::ptrdiff_t before = inserted ? reach(d - 1, k + 1) : reach(d - 1, k - 1);
        keepBackTo(inserted ? before : before + 1);
        inserted ? --y : --x;
    }
    keepBackTo(0);
    return map;
}

class Builder {
public:
    void emit(Kind kind, std::string_view text) {
        if (text.empty()) return;
        if (runs_.empty() || runs_.back().kind != kind) {
            runs_.push_back({.id = static_cast<int>(runs_.size()), .kind = kind, .text = {}});
        }
        runs_.back().text += text;
    }

    /// Lines up two texts by word. True if they were too large for that.
    bool word(std::string_view oldText, std::string_view newText) {
        const auto oldTokens = tokenised(oldText, mostTokens);
        const auto newTokens = oldTokens ? tokenised(newText, mostTokens - oldTokens->size()) : std::nullopt;
        if (!newTokens) {
            emit(Kind::removed, oldText);
            emit(Kind::added, newText);
            return true;
        }
        const auto map = changeMap(*oldTokens, *newTokens);
        std::size_t i = 0, j = 0;
        while (i < oldTokens->size() || j < newTokens->size()) {
            if (i < oldTokens->size() && map.removed[i]) {
                emit(Kind::removed, (*oldTokens)[i++]);
            } else if (j < newTokens->size() && map.inserted[j]) {
                emit(Kind::added, (*newTokens)[j++]);
            } else {
                emit(Kind::same, (*oldTokens)[i++]);
                ++j;
            }
        }
        return false;
    }

    /// Lines up two texts by line, and changed lines by word. True if some change was too large for that.
    bool hunk(const Pieces& oldLines, const Pieces& newLines) {
        const auto map = changeMap(oldLines, newLines);
        bool coarse = false;
        std::size_t i = 0, j = 0;
        while (i < oldLines.size() || j < newLines.size()) {
            const auto oldStart = i, newStart = j;
            while (i < oldLines.size() && map.removed[i]) ++i;
            while (j < newLines.size() && map.inserted[j]) ++j;
            if (i > oldStart || j > newStart) {
                coarse |= word(joined(oldLines, oldStart, i), joined(newLines, newStart, j));
            } else {
                emit(Kind::same, oldLines[i++]);
                ++j;
            }
        }
        return coarse;
    }

    Result result(bool coarse) && {
        Result made{.runs = std::move(runs_), .coarse = coarse};
        for (const auto& run : made.runs) {
            if (run.kind == Kind::same) continue;
            made.hasChanges = true;
            (run.kind == Kind::added ? made.added : made.removed) += wordCount(run.text);
        }
        return made;
    }

private:
    std::vector<Run> runs_;
};

}  // namespace

Result compare(std::string_view oldText, std::string_view newText) {
    const auto oldLines = lines(oldText), newLines = lines(newText);
    const auto shorter = std::min(oldLines.size(), newLines.size());
    std::size_t leading = 0, trailing = 0;
    while (leading < shorter && oldLines[leading] == newLines[leading]) ++leading;
    while (trailing < shorter - leading &&
           oldLines[oldLines.size() - 1 - trailing] == newLines[newLines.size() - 1 - trailing]) {
        ++trailing;
    }
    const auto middle = [&](const Pieces& all) {
        return Pieces(all.begin() + static_cast<std::ptrdiff_t>(leading),
                      all.end() - static_cast<std::ptrdiff_t>(trailing));
    };
    const auto oldMiddle = middle(oldLines), newMiddle = middle(newLines);

    Builder builder;
    builder.emit(Kind::same, joined(oldLines, 0, leading));
    const bool coarse =
        oldMiddle.size() + newMiddle.size() <= mostLines
            ? builder.hunk(oldMiddle, newMiddle)
            : builder.word(joined(oldMiddle, 0, oldMiddle.size()), joined(newMiddle, 0, newMiddle.size()));
    builder.emit(Kind::same, joined(oldLines, oldLines.size() - trailing, oldLines.size()));
    return std::move(builder).result(coarse);
}

}  // namespace vesk::WordDiff
