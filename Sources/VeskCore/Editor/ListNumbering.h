// The numbers of ordered lists. Unlike BlockModel's renumbering, which writes whole items anew, only digits
// change: a list keeps the number it begins with, its signs and its indents, so that a year at the start of a
// line never becomes a count. Linear in its input. Pure; any thread.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string_view>

#include "VeskCore/Editor/MarkdownBlock.h"
#include "VeskCore/Editor/TextEdit.h"

namespace vesk {

/// Counts the items of one list and of those nested in it, line by line.
class ListNumbering {
public:
    /// The next line is no item of these lists.
    void reset() { counters_.clear(); }
    /// The digits to put in, if the line is an ordered item with another number than its place gives it. The
    /// first item of a list has its own number, or `opening` if that is given.
    std::optional<TextDraft::Replacement> next(std::u16string_view line, std::size_t lineStart,
                                               std::optional<std::int64_t> opening = {});
    /// The next line, with whatever number it has.
    void note(std::u16string_view line);

    static bool isItem(const MarkdownBlock::Kind& kind);

    struct Touched {
        TextRange lines;  ///< whole lines of the draft
        int level = 0;    ///< the outermost that changed; what stands further out stays
        std::map<int, std::int64_t> openings = {};  ///< by level: the first number of a list that begins here
        bool keepsFirst = false;                    ///< the first line is only where the counting goes on
    };
    /// Numbers the lines that a command has changed and those behind them in their list. `text` is what the
    /// draft began with, and stands before the touched lines unchanged.
    static void renumber(TextDraft& draft, std::u16string_view text, const Touched& touched);

private:
    std::map<int, std::int64_t> counters_;  // by indent level
};

}  // namespace vesk
