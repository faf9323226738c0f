// The lines that change how others read: those that open or close a code fence, those that can close the
// frontmatter, and those that can make a table of the lines around them. Kept up with each edit at the cost
// of the edited lines, so that no keystroke reads the whole note. Offsets are UTF-16 units.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>
#include <vector>

#include "VeskCore/Support/TextRange.h"

namespace vesk {

class LineLandmarks {
public:
    void rebuild(std::u16string_view text);
    /// The whole lines `lines` of the new text stand where lines of `oldLength` units stood.
    void replace(TextRange lines, std::size_t oldLength, std::u16string_view text);

    /// The length of the text that is known.
    std::size_t textLength() const { return textLength_; }
    /// As MarkdownSpans::frontmatterRange.
    std::optional<TextRange> frontmatter(std::u16string_view text) const;
    /// Fence lines that begin before the offset, those in the frontmatter included.
    std::size_t fencesBefore(std::size_t offset) const;
    /// Whether a delimiter row stands in the lines or right behind them.
    bool hasDelimiter(TextRange lines) const;
    /// The first delimiter row at or behind the offset.
    std::optional<std::size_t> delimiterFrom(std::size_t offset) const;
    /// Whether a table can touch the lines: a delimiter row stands among them, right behind them, or above
    /// them with rows between.
    bool mightTouchTable(TextRange lines, std::u16string_view text) const;
    /// Whether the line that begins at `offset` starts inside a fence.
    bool isInsideFence(std::size_t offset, std::optional<TextRange> frontmatter) const;

private:
    std::vector<std::size_t> fences_;   // starts of lines, ascending
    std::vector<std::size_t> closers_;  // of the lines "---" and "..."
    std::vector<std::size_t> delimiters_;
    bool opens_ = false;  // the first line is "---"
    std::size_t textLength_ = 0;
};

}  // namespace vesk
