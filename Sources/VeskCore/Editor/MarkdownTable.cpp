#include "VeskCore/Editor/MarkdownTable.h"

#include <algorithm>

#include "VeskCore/Editor/BlockModel.h"
#include "VeskCore/Editor/EditorLines.h"
#include "VeskCore/Editor/MarkdownSpans.h"

namespace vesk {

namespace {

using EditorLines::Line;
using EditorLines::piece;
using Row = MarkdownTable::Row;

constexpr bool isBlankUnit(char16_t c) {
    return c == u' ' || c == u'\t';
}

constexpr std::size_t columnsOfCode = 4;

/// Calls `pipe(offset, escaped)` for each pipe; an odd run of backslashes before it escapes it.
template <class Visit>
void visitPipes(std::u16string_view text, TextRange range, Visit visit) {
    std::size_t backslashes = 0;
    for (std::size_t at = range.location; at < range.end(); ++at) {
        if (text[at] == u'|') visit(at, backslashes % 2 == 1);
        backslashes = text[at] == u'\\' ? backslashes + 1 : 0;
    }
}

TextRange trimmedBlanks(std::u16string_view text, TextRange range) {
    std::size_t start = range.location, end = range.end();
    while (end > start && isBlankUnit(text[end - 1])) --end;
    while (start < end && isBlankUnit(text[start])) ++start;
    return {start, end - start};
}

/// The row in a line, or none where the line can't be one.
std::optional<Row> split(std::u16string_view text, const Line& line) {
    std::size_t indentation = 0;
    for (std::size_t at = line.content.location; at < line.content.end() && isBlankUnit(text[at]); ++at) {
        indentation += text[at] == u'\t' ? columnsOfCode : 1;
        if (indentation >= columnsOfCode) return std::nullopt;
    }
    const TextRange shown = trimmedBlanks(text, line.content);
    if (shown.empty()) return std::nullopt;

    Row row;
    row.line = line.content;
    row.fullLine = line.full;
    visitPipes(text, shown, [&](std::size_t at, bool escaped) {
        if (!escaped) row.pipes.push_back({at, 1});
    });
    if (row.pipes.empty()) return std::nullopt;

    const bool outerLeft = row.pipes.front().location == shown.location;
    const bool outerRight = row.pipes.back().end() == shown.end() && !(outerLeft && row.pipes.size() == 1);
    const std::size_t innerEnd = row.pipes.size() - (outerRight ? 1 : 0);
    std::size_t start = shown.location + (outerLeft ? 1 : 0);
    const auto addCell = [&](std::size_t end) {
        MarkdownTable::Cell cell;
        cell.column = row.cells.size();
        cell.slot = {start, end - start};
        cell.content = trimmedBlanks(text, cell.slot);
        visitPipes(text, cell.content, [&](std::size_t at, bool) { cell.escapes.push_back({at - 1, 1}); });
        row.cells.push_back(std::move(cell));
    };
    for (std::size_t i = outerLeft ? 1 : 0; i < innerEnd; ++i) {
        addCell(row.pipes[i].location);
        start = row.pipes[i].end();
    }
    addCell(shown.end() - (outerRight ? 1 : 0));
    return row;
}

std::optional<TableAlignment> alignment(std::u16string_view cell) {
    if (cell.empty()) return std::nullopt;
    const bool left = cell.front() == u':';
    const bool right = cell.size() > 1 && cell.back() == u':';
    if (left) cell.remove_prefix(1);
    if (right) cell.remove_suffix(1);
    if (cell.empty() || cell.find_first_not_of(u'-') != cell.npos) return std::nullopt;
    if (left && right) return TableAlignment::center;
    if (left) return TableAlignment::left;
    return right ? TableAlignment::right : TableAlignment::none;
}

std::optional<std::vector<TableAlignment>> alignmentsOf(std::u16string_view text, const Row& row) {
    std::vector<TableAlignment> result;
    for (const MarkdownTable::Cell& cell : row.cells) {
        const auto read = alignment(piece(text, cell.content));
        if (!read) return std::nullopt;
        result.push_back(*read);
    }
    return result;
}

std::optional<Row> paragraphRow(std::u16string_view text, const Line& line) {
    if (!BlockModel::isParagraph(piece(text, line.content))) return std::nullopt;
    return split(text, line);
}

/// The delimiter row in a line, with what it says.
struct Delimiter {
    Row row;
    std::vector<TableAlignment> alignments;
};

std::optional<Delimiter> delimiterRow(std::u16string_view text, const Line& line) {
    // Nearly every line fails at its first letter.
    const std::u16string_view source = piece(text, line.content);
    if (source.find_first_not_of(u" \t|:-") != source.npos) return std::nullopt;
    auto row = split(text, line);
    if (!row) return std::nullopt;
    auto alignments = alignmentsOf(text, *row);
    if (!alignments || !BlockModel::isParagraph(source)) return std::nullopt;
    row->kind = TableRowKind::delimiter;
    return Delimiter{*std::move(row), *std::move(alignments)};
}

}  // namespace

bool MarkdownTable::isDelimiterRow(std::u16string_view line) {
    const TextRange whole{0, line.size()};
    return delimiterRow(line, {whole, whole}).has_value();
}

bool MarkdownTable::couldBeRow(std::u16string_view text, TextRange line,
                               std::optional<TextRange> frontmatter) {
    if (frontmatter && line.location < frontmatter->end()) return false;
    bool pipe = false;
    visitPipes(text, line, [&](std::size_t, bool escaped) { pipe = pipe || !escaped; });
    return pipe && !EditorLines::isFence(piece(text, line)) && BlockModel::isParagraph(piece(text, line));
}

bool MarkdownTable::isColumnPadded() const {
    const auto samePlaces = [&](const Row& row) {
        return std::equal(row.pipes.begin(), row.pipes.end(), header().pipes.begin(), header().pipes.end(),
                          [&](const TextRange& a, const TextRange& b) {
                              return a.location - row.line.location == b.location - header().line.location;
                          });
    };
    return rows.size() < 2 || std::all_of(rows.begin(), rows.end(), samePlaces);
}

std::size_t MarkdownTable::caretOffset(std::size_t displayRow, std::size_t column) const {
    const std::size_t shown = std::min(displayRow, bodyRowCount());
    const Row& row = rows[shown == 0 ? 0 : shown + 1];
    if (column >= row.cells.size()) return row.line.end();
    const Cell& cell = row.cells[column];
    if (!cell.content.empty()) return cell.content.end();
    return cell.slot.location + (cell.slot.empty() ? 0 : 1);
}

std::vector<MarkdownTable> MarkdownTable::tables(std::u16string_view text, std::optional<TextRange> range,
                                                 std::optional<TextRange> frontmatter,
                                                 std::optional<bool> inFence) {
    const TextRange wanted = EditorLines::clipped(range.value_or(TextRange{0, text.size()}), text);
    const TextRange examined = widened(wanted, text, frontmatter);
    std::vector<MarkdownTable> result;
    if (piece(text, examined).find(u'|') == std::u16string_view::npos) return result;

    const TextRange whole = EditorLines::lineRange(text, examined);
    const TextRange wantedLines = EditorLines::lineRange(text, wanted);
    const std::size_t bodyStart = frontmatter ? frontmatter->end() : 0;
    bool fenced = inFence ? *inFence : MarkdownSpans::isInsideFence(text, whole.location, frontmatter);

    std::size_t at = whole.location;
    for (Line next = EditorLines::lineFrom(text, at); at < whole.end();) {
        const Line line = next;
        at = line.full.end();
        next = EditorLines::lineFrom(text, at);
        if (line.full.end() <= bodyStart) continue;
        if (EditorLines::isFence(piece(text, line.full))) {
            fenced = !fenced;
            continue;
        }
        if (fenced || at >= whole.end()) continue;
        // The delimiter is the rarer of the two and cheap to tell.
        auto delimiter = delimiterRow(text, next);
        if (!delimiter) continue;
        auto header = paragraphRow(text, line);
        if (!header || header->cells.size() != delimiter->alignments.size()) continue;

        MarkdownTable table;
        table.alignments = std::move(delimiter->alignments);
        header->kind = RowKind::header;
        table.rows.push_back(*std::move(header));
        table.rows.push_back(std::move(delimiter->row));
        at = next.full.end();
        while (at < whole.end()) {
            const Line body = EditorLines::lineFrom(text, at);
            if (EditorLines::isFence(piece(text, body.full))) break;
            auto row = paragraphRow(text, body);
            if (!row) break;
            table.rows.push_back(*std::move(row));
            at = body.full.end();
        }
        next = EditorLines::lineFrom(text, at);
        table.range = {line.full.location, at - line.full.location};
        const bool tooLong = std::any_of(table.rows.begin(), table.rows.end(), [](const Row& row) {
            return row.fullLine.length > MarkdownSpans::longLineLimit;
        });
        if (!tooLong && table.range.intersects(wantedLines)) result.push_back(std::move(table));
    }
    return result;
}

std::optional<MarkdownTable> MarkdownTable::table(std::size_t offset, std::u16string_view text,
                                                  std::optional<TextRange> frontmatter) {
    for (MarkdownTable& table : tables(text, TextRange{offset, 0}, frontmatter)) {
        const bool unterminated = table.lastRow().fullLine == table.lastRow().line;
        if (table.range.contains(offset) || (offset == table.range.end() && unterminated)) return table;
    }
    return std::nullopt;
}

bool MarkdownTable::mightContainTable(std::u16string_view text, TextRange range) {
    return piece(text, EditorLines::lineRange(text, range)).find(u'|') != std::u16string_view::npos;
}

TextRange MarkdownTable::widened(TextRange range, std::u16string_view text,
                                 std::optional<TextRange> frontmatter) {
    range = EditorLines::clipped(range, text);
    std::size_t start = range.location, end = range.end();
    while (start > 0) {
        const std::size_t lineStart = EditorLines::lineStart(text, start - 1);
        const TextRange line = EditorLines::lineFrom(text, lineStart).full;
        if (!couldBeRow(text, line, frontmatter)) break;
        start = lineStart;
    }
    while (end < text.size()) {
        const TextRange line = EditorLines::lineFrom(text, EditorLines::lineStart(text, end)).full;
        if (!couldBeRow(text, line, frontmatter)) break;
        end = line.end();
    }
    return {start, end - start};
}

TextRange MarkdownTable::widenedToPipeRuns(TextRange range, std::u16string_view text,
                                           std::optional<TextRange> frontmatter) {
    return widened(EditorLines::clipped(range, text), text, frontmatter);
}

TextRange MarkdownTable::restyleRange(TextRange range, std::u16string_view text,
                                      std::optional<TextRange> frontmatter) {
    range = EditorLines::clipped(range, text);
    const std::size_t start = range.location - std::min<std::size_t>(range.location, 1);
    const std::size_t end = std::min(range.end() + 1, text.size());
    return widened({start, end - start}, text, frontmatter);
}

TextRange MarkdownTable::contentRange(TextRange lineRange, std::u16string_view text) {
    lineRange = EditorLines::clipped(lineRange, text);
    const Line line = EditorLines::lineFrom(piece(text, lineRange), 0);
    return {lineRange.location, line.content.length};
}

}  // namespace vesk
