// The numbers of ordered lists. Unlike BlockModel's renumbering, which writes whole items anew, only digits
// change: a list keeps the number it begins with, its signs and its indents, so that no year at the start of
// a line is ever lost to a count. Linear in its input. Pure; any thread.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string_view>
#include <vector>

#include "VeskCore/Editor/TextEdit.h"

namespace vesk {

/// Counts the items of one list and of those nested in it, line by line.
class ListNumbering {
public:
    /// The line is no item of a list: all counts end.
    void reset() { counters_.clear(); }
    /// The digits to put in, if the line is an ordered item with another number than its place gives it. The
    /// first item of a list gives its own number, or `opening` if that is given.
    std::optional<TextDraft::Replacement> next(std::u16string_view line, std::size_t lineStart,
                                               std::optional<std::int64_t> opening = {});

private:
    std::map<int, std::int64_t> counters_;  // by indent level
};

}  // namespace vesk
