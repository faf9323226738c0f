#include "VeskCore/Editor/TableEditing.h"

#include <algorithm>
#include <vector>

#include "VeskCore/Editor/EditorLines.h"
#include "VeskCore/Editor/MarkdownSpans.h"
#include "VeskCore/Editor/NoteLines.h"
#include "VeskCore/Support/DisplayWidth.h"

namespace vesk::TableEditing {

using EditorLines::piece;
using Row = MarkdownTable::Row;

namespace {

constexpr std::size_t shortestDelimiter = 3;
/// A wider cell stands out of its column rather than pad all others to it.
constexpr std::size_t widestPadding = 80;

/// The caret's table with the cell that is meant. The delimiter counts as a row.
struct Place {
    MarkdownTable table;
    std::size_t row = 0, column = 0;

    const Row& here() const { return table.rows[row]; }
    bool isBody() const { return row >= 2; }
};

std::optional<Place> placeAt(std::u16string_view text, TextRange selection) {
    const std::size_t caret = TextDraft::snapped(text, selection).location;
    if (!MarkdownTable::mightContainTable(text, {caret, 0})) return std::nullopt;
    auto table = MarkdownTable::table(caret, text, MarkdownSpans::frontmatterRange(text));
    if (!table) return std::nullopt;
    Place place{*std::move(table)};
    const auto row = std::partition_point(place.table.rows.begin(), place.table.rows.end(),
                                          [&](const Row& one) { return one.line.end() < caret; });
    if (row == place.table.rows.end() || caret < row->line.location) return std::nullopt;
    place.row = static_cast<std::size_t>(row - place.table.rows.begin());
    const auto cell =
        std::partition_point(row->cells.begin(), row->cells.end(),
                             [&](const MarkdownTable::Cell& one) { return one.slot.end() < caret; });
    place.column = std::min(static_cast<std::size_t>(cell - row->cells.begin()), row->cells.size() - 1);
    return place;
}

std::size_t caretIn(const MarkdownTable::Cell& cell) {
    if (!cell.content.empty()) return cell.content.end();
    return cell.slot.location + std::min<std::size_t>(cell.slot.length, 1);
}

std::optional<TextEdit> movedTo(std::u16string_view text, TextRange selection,
                                const MarkdownTable::Cell& cell) {
    TextDraft draft(text, selection);
    draft.select({caretIn(cell), 0});
    // A caret that is there already is an answer all the same: the key has no other effect here.
    if (auto edit = draft.finish()) return edit;
    return TextEdit{{caretIn(cell), 0}, {}, {caretIn(cell), 0}};
}

/// A table as it is to be written.
struct Source {
    std::u16string indent;
    std::vector<TableAlignment> alignments;
    std::vector<std::vector<std::u16string_view>> rows;  ///< header and body
};

Source sourceOf(const MarkdownTable& table, std::u16string_view text) {
    Source source;
    const std::u16string_view line = piece(text, table.header().line);
    source.indent = line.substr(0, std::min(line.find_first_not_of(u" \t"), line.size()));
    source.alignments = table.alignments;
    for (const Row& row : table.rows) {
        if (row.kind == TableRowKind::delimiter) continue;
        auto& cells = source.rows.emplace_back();
        cells.reserve(row.cells.size());
        for (const auto& cell : row.cells) cells.push_back(piece(text, cell.content));
    }
    return source;
}

std::u16string delimiter(TableAlignment alignment, std::size_t width) {
    std::u16string signs(width, u'-');
    if (alignment == TableAlignment::left || alignment == TableAlignment::center) signs.front() = u':';
    if (alignment == TableAlignment::right || alignment == TableAlignment::center) signs.back() = u':';
    return signs;
}

/// A line of the table that is made, and where its cells' texts end in it.
struct WrittenRow {
    std::u16string line;
    std::vector<std::size_t> carets;
};

struct Written {
    std::vector<WrittenRow> rows;  ///< header, delimiter, body
};

/// How wide each column's text is padded; zeros for a table that is not padded.
std::vector<std::size_t> columnWidths(const Source& source, bool padded) {
    std::vector<std::size_t> widths(source.alignments.size(), 0);
    if (!padded) return widths;
    std::fill(widths.begin(), widths.end(), shortestDelimiter);
    for (const auto& row : source.rows) {
        for (std::size_t i = 0; i < std::min(row.size(), widths.size()); ++i)
            widths[i] = std::min(std::max(widths[i], displayColumns(row[i])), widestPadding);
    }
    return widths;
}

/// None where a line would be too long for the editor to know it as a row.
std::optional<Written> written(const Source& source, bool padded) {
    const std::vector<std::size_t> widths = columnWidths(source, padded);
    Written result;
    constexpr std::size_t longestLineEnd = 2;
    const auto fits = [&] {
        return result.rows.back().line.size() + longestLineEnd <= MarkdownSpans::longLineLimit;
    };
    for (std::size_t r = 0; r < source.rows.size(); ++r) {
        WrittenRow& row = result.rows.emplace_back();
        row.line = source.indent + u"|";
        for (std::size_t i = 0; i < source.rows[r].size(); ++i) {
            const std::u16string_view cell = source.rows[r][i];
            std::size_t before = 0, behind = 0;
            if (i < widths.size()) {
                const std::size_t columns = padded ? displayColumns(cell) : 0;
                const std::size_t missing = widths[i] > columns ? widths[i] - columns : 0;
                if (source.alignments[i] == TableAlignment::right) before = missing;
                if (source.alignments[i] == TableAlignment::center) before = missing / 2;
                behind = missing - before;
            }
            row.line.append(before + 1, u' ').append(cell);
            // The caret of an empty cell stands at its start.
            row.carets.push_back(cell.empty() ? row.line.size() - before : row.line.size());
            row.line.append(behind + 1, u' ').push_back(u'|');
        }
        if (!fits()) return std::nullopt;
        if (r > 0) continue;
        WrittenRow& signs = result.rows.emplace_back();
        signs.line = source.indent + u"|";
        for (std::size_t i = 0; i < widths.size(); ++i) {
            signs.line.append(u" ").append(
                delimiter(source.alignments[i], std::max(widths[i], shortestDelimiter)));
            signs.carets.push_back(signs.line.size());
            signs.line.append(u" |");
        }
        if (!fits()) return std::nullopt;
    }
    return result;
}

std::optional<Written> written(const Source& source) {
    if (auto padded = written(source, true)) return padded;
    return written(source, false);
}

/// The edit that writes the table anew, with the caret in the cell. The rows are as many as before.
std::optional<TextEdit> rewritten(std::u16string_view text, TextRange selection, const MarkdownTable& table,
                                  const Source& source, std::size_t row, std::size_t column) {
    const auto lines = written(source);
    if (!lines) return std::nullopt;
    TextDraft draft(text, selection);
    std::vector<TextDraft::Replacement> pieces;
    std::size_t grown = 0, caret = 0;
    for (std::size_t i = 0; i < table.rows.size(); ++i) {
        const TextRange line = table.rows[i].line;
        const WrittenRow& now = lines->rows[i];
        if (i == row && !now.carets.empty())
            caret = line.location + grown + now.carets[std::min(column, now.carets.size() - 1)];
        grown += now.line.size() - line.length;
        pieces.push_back({line, now.line});
    }
    draft.replace(pieces);
    draft.select({caret, 0});
    return draft.finish();
}

/// A body row without text whose pipes stand where those of `model` do.
std::u16string emptyRow(std::u16string_view text, const MarkdownTable& table, const Row& model) {
    const std::u16string_view header = piece(text, table.header().line);
    std::u16string line(header.substr(0, std::min(header.find_first_not_of(u" \t"), header.size())));
    line += u'|';
    for (std::size_t i = 0; i < table.columnCount(); ++i) {
        std::size_t width = 2;
        if (i < model.cells.size())
            width = std::clamp<std::size_t>(displayColumns(piece(text, model.cells[i].slot)), width,
                                            widestPadding + 2);
        line.append(width, u' ').push_back(u'|');
    }
    return line;
}

/// A new row behind the row `index`, with the caret in its cell.
std::optional<TextEdit> insertedBehind(std::u16string_view text, TextRange selection,
                                       const MarkdownTable& table, std::size_t index, std::size_t column) {
    const std::u16string line = emptyRow(text, table, table.rows[index]);
    if (line.size() + 2 > MarkdownSpans::longLineLimit) return std::nullopt;
    const std::u16string end = NoteLines::lineEnd(text, {table.rows[index].line, table.rows[index].fullLine});
    const std::size_t at = table.rows[index].line.end();
    std::size_t caret = line.find(u'|') + 1;
    for (std::size_t i = 0; i < std::min(column, table.columnCount() - 1); ++i)
        caret = line.find(u'|', caret) + 1;
    TextDraft draft(text, selection);
    draft.replace({{{at, 0}, end + line}});
    draft.select({at + end.size() + caret + 1, 0});
    return draft.finish();
}

/// Cells at the end of a short row, up to the column, with the caret in the last.
std::optional<TextEdit> lengthened(std::u16string_view text, TextRange selection, const Row& row,
                                   std::size_t column) {
    const std::u16string_view line = piece(text, row.line);
    const std::size_t shownEnd = row.line.location + line.find_last_not_of(u" \t") + 1;
    const bool closed = row.cells.back().slot.end() < shownEnd;
    std::u16string more = closed ? u"" : u" |";
    for (std::size_t i = row.cells.size(); i <= column; ++i) more += u"  |";
    if (row.fullLine.length + more.size() > MarkdownSpans::longLineLimit) return std::nullopt;
    TextDraft draft(text, selection);
    draft.replace({{{shownEnd, 0}, more}});
    draft.select({shownEnd + more.size() - 2, 0});
    return draft.finish();
}

std::optional<TextEdit> toCell(std::u16string_view text, TextRange selection, const MarkdownTable& table,
                               std::size_t row, std::size_t column) {
    const Row& wanted = table.rows[row];
    if (column < wanted.cells.size()) return movedTo(text, selection, wanted.cells[column]);
    return lengthened(text, selection, wanted, column);
}

bool isEmptyRow(const Row& row) {
    return std::all_of(row.cells.begin(), row.cells.end(),
                       [](const MarkdownTable::Cell& cell) { return cell.content.empty(); });
}

/// The lines of two rows exchanged, their ends staying where they are; the caret goes with the first.
std::optional<TextEdit> exchanged(std::u16string_view text, TextRange selection, const Row& moved,
                                  const Row& other) {
    TextDraft draft(text, selection);
    const std::u16string mine(piece(text, moved.line)), theirs(piece(text, other.line));
    const std::size_t offset = draft.selection().location - moved.line.location;
    const bool down = moved.line.location < other.line.location;
    std::vector<TextDraft::Replacement> pieces{{moved.line, theirs}, {other.line, mine}};
    if (!down) std::swap(pieces[0], pieces[1]);
    draft.replace(pieces);
    const std::size_t start = down ? other.line.location + theirs.size() - mine.size() : other.line.location;
    draft.select({start + std::min(offset, mine.size()), 0});
    return draft.finish();
}

/// Text on lines of its own in the place of the selection. The caret goes to `caret` in it.
TextEdit onOwnLines(std::u16string_view text, TextRange selection, std::u16string_view lines,
                    std::size_t caret) {
    const EditorLines::Line first =
        EditorLines::lineFrom(text, EditorLines::lineStart(text, selection.location));
    const std::u16string end = NoteLines::lineEnd(text, first);
    const auto isBlank = [&](std::size_t from, std::size_t to) {
        return EditorLines::trimmed(text.substr(from, to - from)).empty();
    };
    const EditorLines::Line last = EditorLines::lineFrom(text, EditorLines::lineStart(text, selection.end()));
    std::u16string before;
    // A line of text right above would be the header's, one right below a row.
    if (!isBlank(first.content.location, selection.location)) {
        before = end + end;
    } else if (first.full.location > 0) {
        const EditorLines::Line above =
            EditorLines::lineFrom(text, EditorLines::lineStart(text, first.full.location - 1));
        if (!isBlank(above.content.location, above.content.end())) before = end;
    }
    std::u16string behind;
    if (!isBlank(selection.end(), last.content.end())) {
        behind = end + end;
    } else if (last.full.end() < text.size()) {
        const EditorLines::Line below = EditorLines::lineFrom(text, last.full.end());
        if (!isBlank(below.content.location, below.content.end())) behind = end;
    }
    TextDraft draft(text, selection);
    std::u16string all = before;
    all.append(lines).append(behind);
    draft.replace({{selection, all}});
    draft.select({selection.location + before.size() + caret, 0});
    return draft.finish().value_or(TextEdit{{selection.location, 0}, {}, draft.selection()});
}

bool isProse(std::u16string_view text, TextRange selection) {
    const auto lines = NoteLines::selected(text, selection);
    return lines.front().isProse() && lines.back().isProse();
}

std::u16string joined(const Written& table, std::u16string_view end) {
    std::u16string lines;
    for (const WrittenRow& row : table.rows) {
        if (!lines.empty()) lines += end;
        lines += row.line;
    }
    return lines;
}

/// A cell's text as a row holds it: a pipe escaped, and the backslashes before it kept from escaping it.
std::u16string escapedCell(std::u16string_view cell) {
    std::u16string escaped;
    std::size_t backslashes = 0;
    for (const char16_t unit : EditorLines::trimmed(cell)) {
        if (unit == u'|') escaped.append(backslashes + 1, u'\\');
        backslashes = unit == u'\\' ? backslashes + 1 : 0;
        escaped += unit;
    }
    return escaped;
}

}  // namespace

bool isInTable(std::u16string_view text, TextRange selection) {
    return placeAt(text, selection).has_value();
}

std::optional<TextEdit> nextCell(std::u16string_view text, TextRange selection) {
    const auto place = placeAt(text, selection);
    if (!place) return std::nullopt;
    const MarkdownTable& table = place->table;
    if (place->row != 1) {
        const std::size_t columns = std::max(table.columnCount(), place->here().cells.size());
        if (place->column + 1 < columns) return toCell(text, selection, table, place->row, place->column + 1);
    }
    const std::size_t below = std::max<std::size_t>(place->row + 1, 2);
    if (below < table.rows.size()) return movedTo(text, selection, table.rows[below].cells.front());
    return insertedBehind(text, selection, table, table.rows.size() - 1, 0);
}

std::optional<TextEdit> previousCell(std::u16string_view text, TextRange selection) {
    const auto place = placeAt(text, selection);
    if (!place) return std::nullopt;
    const MarkdownTable& table = place->table;
    if (place->row != 1 && place->column > 0)
        return movedTo(text, selection, place->here().cells[place->column - 1]);
    if (place->row == 0) return movedTo(text, selection, table.header().cells.front());
    const std::size_t above = place->row <= 2 ? 0 : place->row - 1;
    return movedTo(text, selection, table.rows[above].cells.back());
}

std::optional<TextEdit> cellBelow(std::u16string_view text, TextRange selection) {
    const auto place = placeAt(text, selection);
    if (!place) return std::nullopt;
    const MarkdownTable& table = place->table;
    // In front of the table Return makes room above it.
    if (TextDraft::snapped(text, selection).location == table.range.location) return std::nullopt;
    if (place->isBody() && place->row + 1 == table.rows.size() && isEmptyRow(place->here())) {
        TextDraft draft(text, selection);
        draft.replace({{place->here().line, {}}});
        return draft.finish();
    }
    const std::size_t below = std::max<std::size_t>(place->row + 1, 2);
    const std::size_t column = place->row == 1 ? 0 : place->column;
    if (below < table.rows.size()) return toCell(text, selection, table, below, column);
    return insertedBehind(text, selection, table, table.rows.size() - 1, column);
}

std::optional<TextEdit> insertRow(std::u16string_view text, TextRange selection, Side side) {
    const auto place = placeAt(text, selection);
    if (!place) return std::nullopt;
    // Above the first body row stands the delimiter.
    std::size_t behind = std::max<std::size_t>(place->row, 1);
    if (place->isBody() && side == Side::before) --behind;
    return insertedBehind(text, selection, place->table, behind, place->column);
}

std::optional<TextEdit> deleteRow(std::u16string_view text, TextRange selection) {
    const auto place = placeAt(text, selection);
    if (!place || !place->isBody()) return std::nullopt;
    const MarkdownTable& table = place->table;
    const Row& row = place->here();
    const Row& above = table.rows[place->row - 1];
    const bool last = place->row + 1 == table.rows.size();
    const auto& target = last ? above : table.rows[place->row + 1];
    const std::size_t column = std::min(place->column, target.cells.size() - 1);
    std::size_t caret = caretIn(target.cells[column]);
    // A last line without an end leaves none behind.
    TextRange gone = row.fullLine;
    if (row.fullLine == row.line) gone = {above.line.end(), row.line.end() - above.line.end()};
    if (!last) caret -= gone.length;
    TextDraft draft(text, selection);
    draft.replace({{gone, {}}});
    draft.select({caret, 0});
    return draft.finish();
}

std::optional<TextEdit> moveRow(std::u16string_view text, TextRange selection, Side towards) {
    const auto place = placeAt(text, selection);
    if (!place || !place->isBody()) return std::nullopt;
    const bool up = towards == Side::before;
    if (up ? place->row == 2 : place->row + 1 == place->table.rows.size()) return std::nullopt;
    return exchanged(text, selection, place->here(), place->table.rows[up ? place->row - 1 : place->row + 1]);
}

std::optional<TextEdit> insertColumn(std::u16string_view text, TextRange selection, Side side) {
    const auto place = placeAt(text, selection);
    if (!place) return std::nullopt;
    Source source = sourceOf(place->table, text);
    const std::size_t at =
        std::min(place->column + (side == Side::after ? 1 : 0), place->table.columnCount());
    const auto step = static_cast<std::ptrdiff_t>(at);
    source.alignments.insert(source.alignments.begin() + step, TableAlignment::none);
    for (auto& row : source.rows) {
        // A short row has its missing cells at its end.
        if (row.size() >= at) row.insert(row.begin() + step, std::u16string_view());
    }
    return rewritten(text, selection, place->table, source, place->row, at);
}

std::optional<TextEdit> deleteColumn(std::u16string_view text, TextRange selection) {
    const auto place = placeAt(text, selection);
    if (!place || place->column >= place->table.columnCount() || place->table.columnCount() == 1)
        return std::nullopt;
    Source source = sourceOf(place->table, text);
    const auto step = static_cast<std::ptrdiff_t>(place->column);
    source.alignments.erase(source.alignments.begin() + step);
    for (auto& row : source.rows) {
        if (row.size() > place->column) row.erase(row.begin() + step);
        if (row.empty()) row.emplace_back();
    }
    const std::size_t column = std::min(place->column, source.alignments.size() - 1);
    return rewritten(text, selection, place->table, source, place->row, column);
}

std::optional<TextEdit> moveColumn(std::u16string_view text, TextRange selection, Side towards) {
    const auto place = placeAt(text, selection);
    if (!place) return std::nullopt;
    const std::size_t columns = place->table.columnCount();
    const bool left = towards == Side::before;
    if (place->column >= columns || (left ? place->column == 0 : place->column + 1 == columns))
        return std::nullopt;
    const std::size_t other = left ? place->column - 1 : place->column + 1;
    Source source = sourceOf(place->table, text);
    std::swap(source.alignments[place->column], source.alignments[other]);
    for (auto& row : source.rows) {
        if (row.size() <= std::min(place->column, other)) continue;
        row.resize(std::max(row.size(), std::max(place->column, other) + 1));
        std::swap(row[place->column], row[other]);
    }
    return rewritten(text, selection, place->table, source, place->row, other);
}

std::optional<TextEdit> alignColumn(std::u16string_view text, TextRange selection, TableAlignment alignment) {
    const auto place = placeAt(text, selection);
    if (!place || place->column >= place->table.columnCount()) return std::nullopt;
    Source source = sourceOf(place->table, text);
    source.alignments[place->column] = alignment;
    return rewritten(text, selection, place->table, source, place->row, place->column);
}

std::optional<TextEdit> tidy(std::u16string_view text, TextRange selection) {
    const auto place = placeAt(text, selection);
    if (!place) return std::nullopt;
    return rewritten(text, selection, place->table, sourceOf(place->table, text), place->row, place->column);
}

std::u16string tidied(const MarkdownTable& table, std::u16string_view text) {
    const auto lines = written(sourceOf(table, text));
    if (!lines) return std::u16string(piece(text, table.range));
    std::u16string result;
    for (std::size_t i = 0; i < table.rows.size(); ++i) {
        const Row& row = table.rows[i];
        result.append(lines->rows[i].line)
            .append(piece(text, {row.line.end(), row.fullLine.end() - row.line.end()}));
    }
    return result;
}

std::optional<TextEdit> insertTable(std::u16string_view text, TextRange selection, std::size_t bodyRows,
                                    std::size_t columns) {
    constexpr std::size_t mostRows = 10'000;
    if (columns == 0 || columns > MarkdownSpans::longLineLimit || bodyRows > mostRows) return std::nullopt;
    selection = TextDraft::snapped(text, selection);
    if (!isProse(text, selection)) return std::nullopt;
    Source source;
    source.alignments.assign(columns, TableAlignment::none);
    source.rows.assign(1, std::vector<std::u16string_view>(columns));
    auto table = written(source, true);
    if (!table) return std::nullopt;
    table->rows.insert(table->rows.end(), bodyRows, WrittenRow(table->rows.front()));
    const EditorLines::Line line =
        EditorLines::lineFrom(text, EditorLines::lineStart(text, selection.location));
    return onOwnLines(text, selection, joined(*table, NoteLines::lineEnd(text, line)),
                      table->rows.front().carets.front());
}

std::optional<std::u16string> tableFromTabs(std::u16string_view pasted, std::u16string_view lineEnd) {
    if (pasted.find(u'\t') == pasted.npos) return std::nullopt;
    std::vector<std::vector<std::u16string>> cells;
    bool startsEmpty = true;
    for (std::size_t at = 0; at < pasted.size();) {
        const EditorLines::Line line = EditorLines::lineFrom(pasted, at);
        at = line.full.end();
        const std::u16string_view shown = piece(pasted, line.content);
        if (shown.empty() && at == pasted.size()) break;
        auto& row = cells.emplace_back();
        for (std::size_t start = 0; start <= shown.size();) {
            const std::size_t tab = std::min(shown.find(u'\t', start), shown.size());
            row.push_back(escapedCell(shown.substr(start, tab - start)));
            start = tab + 1;
        }
        if (row.size() < 2 || row.size() != cells.front().size()) return std::nullopt;
        startsEmpty = startsEmpty && row.front().empty();
    }
    // Lines that all begin with a tab are indented, not rows.
    if (cells.size() < 2 || startsEmpty) return std::nullopt;
    Source source;
    source.alignments.assign(cells.front().size(), TableAlignment::none);
    for (const auto& row : cells) source.rows.emplace_back(row.begin(), row.end());
    const auto table = written(source);
    if (!table) return std::nullopt;
    return joined(*table, lineEnd);
}

std::optional<TextEdit> pasteTable(std::u16string_view text, TextRange selection,
                                   std::u16string_view pasted) {
    selection = TextDraft::snapped(text, selection);
    const EditorLines::Line line =
        EditorLines::lineFrom(text, EditorLines::lineStart(text, selection.location));
    const auto table = tableFromTabs(pasted, NoteLines::lineEnd(text, line));
    if (!table || !isProse(text, selection)) return std::nullopt;
    return onOwnLines(text, selection, *table, table->size());
}

}  // namespace vesk::TableEditing
