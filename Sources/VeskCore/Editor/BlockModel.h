// What kind of block a line of Markdown is, and the editing commands that follow from it. A line is judged by
// itself: a list item is one wherever it stands. Every reader of the editor leans on `classify`. Linear in
// its input. Pure; any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "VeskCore/Editor/MarkdownBlock.h"
#include "VeskCore/Support/TextRange.h"

namespace vesk::BlockModel {

struct Classified {
    MarkdownBlock::Kind kind;
    std::u16string_view content;  ///< a piece of the line
    bool operator==(const Classified&) const = default;
};

/// Never `code` or `table`, which only `blocks` can tell. A terminator at the end does not matter.
Classified classify(std::u16string_view line);
/// True if `classify` gives a paragraph, without making the rest of the answer.
bool isParagraph(std::u16string_view line);

/// The blocks in order; together they hold every line. Lines end at LF here.
std::vector<MarkdownBlock> blocks(std::u16string_view text);

int indentLevel(std::u16string_view line);
std::u16string indentString(int level);

/// The line's content and level under another kind.
std::u16string turnInto(std::u16string_view line, const MarkdownBlock::Kind& kind, std::int64_t number = 1);
/// What the editor inserts on the next line after Return, or none.
std::optional<std::u16string> continuation(std::u16string_view line);
/// True of an empty list item: Return there leaves the list.
bool shouldExitList(std::u16string_view line);
std::u16string indent(std::u16string_view line);
std::u16string outdent(std::u16string_view line);

/// Frontmatter, fenced code and line ends stay as they are, as does all that follows an item's marker.
std::u16string renumberOrderedLists(std::u16string_view text);

struct Edit {
    std::u16string text;
    TextRange lines;  ///< where the block now stands, in lines
    bool operator==(const Edit&) const = default;
};
/// The block that holds the line changes places with its neighbour; none at the edge. Line ends keep their
/// places, so that a mixed or unterminated text stays one.
std::optional<Edit> moveBlock(std::u16string_view text, std::size_t containingLine, bool up);
/// A copy of the block right behind it.
std::optional<Edit> duplicateBlock(std::u16string_view text, std::size_t containingLine);

}  // namespace vesk::BlockModel
