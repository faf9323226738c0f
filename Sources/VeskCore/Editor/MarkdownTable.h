// A pipe table in a note: where each cell, pipe and escape stands. Nothing of the text changes; offsets are
// UTF-16 units over the whole text. Linear in its input. Pure; any thread.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>
#include <vector>

#include "VeskCore/Markdown/MarkdownSpan.h"
#include "VeskCore/Support/TextRange.h"

namespace vesk {

enum class TableAlignment { none, left, center, right };

struct MarkdownTable {
    using RowKind = TableRowKind;

    struct Cell {
        std::size_t column = 0;
        TextRange slot;                  ///< between the pipes
        TextRange content;               ///< the slot without spaces and tabs at both ends
        std::vector<TextRange> escapes;  ///< the backslash before each escaped pipe
        bool operator==(const Cell&) const = default;
    };
    struct Row {
        RowKind kind = RowKind::body;
        TextRange line;      ///< without the terminator
        TextRange fullLine;  ///< with it
        std::vector<Cell> cells;
        std::vector<TextRange> pipes;  ///< every unescaped pipe, the outer ones included
        bool operator==(const Row&) const = default;
    };

    TextRange range;
    std::vector<TableAlignment> alignments;  ///< one for each column
    std::vector<Row> rows;                   ///< header, delimiter, body; a body row may be short or long

    bool operator==(const MarkdownTable&) const = default;

    std::size_t columnCount() const { return alignments.size(); }
    const Row& header() const { return rows.front(); }
    const Row& lastRow() const { return rows.back(); }
    std::size_t bodyRowCount() const { return rows.size() - 2; }
    /// True when the pipes of all rows stand in the same places.
    bool isColumnPadded() const;
    /// Where the caret goes for a cell of the drawn grid, whose rows leave the delimiter out.
    std::size_t caretOffset(std::size_t displayRow, std::size_t column) const;

    /// The tables that touch the lines of the range, or all. Without `inFence` the state at the range's first
    /// line is worked out from the text.
    static std::vector<MarkdownTable> tables(std::u16string_view text, std::optional<TextRange> range = {},
                                             std::optional<TextRange> frontmatter = {},
                                             std::optional<bool> inFence = {});
    static std::optional<MarkdownTable> table(std::size_t offset, std::u16string_view text,
                                              std::optional<TextRange> frontmatter = {});
    /// Whether the line, its terminator left out, is a delimiter row wherever it stands.
    static bool isDelimiterRow(std::u16string_view line);
    /// Whether the line that holds the range could be a row of a table, its neighbours aside.
    static bool couldBeRow(std::u16string_view text, TextRange line, std::optional<TextRange> frontmatter);
    /// A fast filter: whether the range's lines hold a pipe at all.
    static bool mightContainTable(std::u16string_view text, TextRange range);
    /// The range grown over the lines around it that could be rows of one table with it.
    static TextRange widened(TextRange range, std::u16string_view text,
                             std::optional<TextRange> frontmatter = {});
    static TextRange widenedToPipeRuns(TextRange range, std::u16string_view text,
                                       std::optional<TextRange> frontmatter = {});
    /// What to examine anew after an edit of the range.
    static TextRange restyleRange(TextRange range, std::u16string_view text,
                                  std::optional<TextRange> frontmatter = {});
    static TextRange contentRange(TextRange lineRange, std::u16string_view text);
};

}  // namespace vesk
