// Editing a pipe table by cells, rows and columns. Each command takes the text and the selection, whose start
// says which cell is meant, and gives one edit; none outside a table and where it can't be done. Every cell's
// text stays as it is written, escaped pipes included. Row commands touch only their lines; column commands
// write the whole table anew as `tidy` does. Linear in the table. UTF-16 offsets. Pure; any thread.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "VeskCore/Editor/MarkdownTable.h"
#include "VeskCore/Editor/TextEdit.h"

namespace vesk::TableEditing {

/// Whether the commands have a table to work on.
bool isInTable(std::u16string_view text, TextRange selection);

// The caret moves to the end of the cell's text.
/// Behind the last cell a new row.
std::optional<TextEdit> nextCell(std::u16string_view text, TextRange selection);
std::optional<TextEdit> previousCell(std::u16string_view text, TextRange selection);
/// The same column one row below; below the last row a new row. In a last row that is empty, the row goes
/// and the caret leaves the table.
std::optional<TextEdit> cellBelow(std::u16string_view text, TextRange selection);

enum class Side { before, after };

/// Next to the caret's row; on the header or the delimiter the first body row.
std::optional<TextEdit> insertRow(std::u16string_view text, TextRange selection, Side side);
/// Body rows only.
std::optional<TextEdit> deleteRow(std::u16string_view text, TextRange selection);
std::optional<TextEdit> moveRow(std::u16string_view text, TextRange selection, Side towards);
std::optional<TextEdit> insertColumn(std::u16string_view text, TextRange selection, Side side);
/// None for the only column.
std::optional<TextEdit> deleteColumn(std::u16string_view text, TextRange selection);
std::optional<TextEdit> moveColumn(std::u16string_view text, TextRange selection, Side towards);
std::optional<TextEdit> alignColumn(std::u16string_view text, TextRange selection, TableAlignment alignment);

/// Pads the columns of the caret's table.
std::optional<TextEdit> tidy(std::u16string_view text, TextRange selection);
/// The table's lines with padded columns, or with single blanks where padding would make them too long; as it
/// stands where even that would. Tidying twice changes nothing more.
std::u16string tidied(const MarkdownTable& table, std::u16string_view text);

/// An empty table of so many body rows and columns in the place of the selection, on lines of its own. None
/// for no column, and where the lines would be too long.
std::optional<TextEdit> insertTable(std::u16string_view text, TextRange selection, std::size_t bodyRows,
                                    std::size_t columns);
/// Rows of cells with tabs between them as a table, the first row its header; none for any other text.
std::optional<std::u16string> tableFromTabs(std::u16string_view pasted, std::u16string_view lineEnd = u"\n");
/// The same in the place of the selection.
std::optional<TextEdit> pasteTable(std::u16string_view text, TextRange selection, std::u16string_view pasted);

}  // namespace vesk::TableEditing
