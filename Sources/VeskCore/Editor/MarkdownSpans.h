// The line-by-line styling of the editor: what each piece of a line is, and which characters are syntax. No
// tree, and no state between lines but whether a code fence is open. Not the index's reader. Offsets are
// UTF-16 units over the whole text. Linear in its input. Pure; any thread.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>
#include <vector>

#include "VeskCore/Editor/MarkdownTable.h"
#include "VeskCore/Markdown/MarkdownSpan.h"
#include "VeskCore/Support/TextRange.h"

namespace vesk::MarkdownSpans {

/// A longer line, terminator included, is shown plain.
constexpr std::size_t longLineLimit = 5000;

/// The spans of the lines that the range touches, or of all. `inFence` is whether the first of them starts
/// inside a fence; `frontmatter` is what `frontmatterRange` gives; `tables` are those that cover the range,
/// in order; without them they are looked for.
std::vector<Span> spans(std::u16string_view text, std::optional<TextRange> range = {}, bool inFence = false,
                        std::optional<TextRange> frontmatter = {},
                        const std::vector<MarkdownTable>* tables = nullptr);

/// From 0 to the end of the closing line; none if the text has no frontmatter or it never closes.
std::optional<TextRange> frontmatterRange(std::u16string_view text);

/// Whether the line that holds the offset starts inside a fence.
bool isInsideFence(std::u16string_view text, std::size_t offset, std::optional<TextRange> frontmatter = {});

/// What a line's kind gives to its start or its whole.
struct BlockSpan {
    TextRange range;
    Style style;
    std::optional<TextRange> marker;
};
/// None for a paragraph or a blank line. `lineEnd` is the line's length without its terminator.
std::optional<BlockSpan> blockSpan(std::u16string_view line, std::size_t lineEnd, std::size_t lineStart);

// The spans of one line; `lineStart` is added to every offset.
std::vector<Span> blockSpans(std::u16string_view line, std::size_t lineStart);
std::vector<Span> inlineSpans(std::u16string_view line, std::size_t lineStart, bool wholeLine);
/// Of a table cell, where an image tag stays readable.
std::vector<Span> inlineSpans(std::u16string_view text, std::size_t start);
std::vector<Span> tableRowSpans(const MarkdownTable& table, std::size_t row, std::u16string_view text);

/// The inline code of a line, in order.
std::vector<TextRange> codeRanges(std::u16string_view line);

/// "[text](target)" with the ranges of its two pieces.
struct LinkMatch {
    TextRange range, text, target;
};
/// The links of a line from left to right; with `images` those that begin with "!", which is then part of
/// them.
std::vector<LinkMatch> linkMatches(std::u16string_view line, bool images);

/// True if `range` shares a unit with one of `ranges`, which are in order and apart.
bool intersectsAny(const std::vector<TextRange>& ranges, TextRange range);

}  // namespace vesk::MarkdownSpans
