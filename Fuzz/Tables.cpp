// Tables of any text: rows, cells and pipes stand where they say, a range finds the tables that the whole
// has, and a grid fills the width that it was given.
#include <algorithm>
#include <cmath>
#include <cstdint>

#include "VeskCore/Editor/EditorLines.h"
#include "VeskCore/Editor/MarkdownSpans.h"
#include "VeskCore/Editor/MarkdownTableGrid.h"
#include "VeskCore/Editor/TableGridCache.h"
#include "VeskCore/Support/Ensure.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"

using namespace vesk;

namespace {

/// Seven points a unit, wrapped anywhere, seventeen points a line.
class UnitMeasurer : public MarkdownTableGrid::Measurer {
public:
    MarkdownTableGrid::Size size(const MarkdownTableGrid::Cell& cell,
                                 std::optional<double> width) const override {
        const double natural = static_cast<double>(cell.text.size()) * 7;
        if (!width) return {natural, lineHeight()};
        return {std::min(natural, *width),
                std::max(std::ceil(natural / std::max(*width, 7.0)), 1.0) * lineHeight()};
    }
    double longestWordWidth(const MarkdownTableGrid::Cell& cell) const override {
        return static_cast<double>(std::min<std::size_t>(cell.text.size(), 12)) * 7;
    }
    double lineHeight() const override { return 17; }
};

bool inside(TextRange inner, TextRange outer) {
    return inner.location >= outer.location && inner.end() <= outer.end();
}

void check(const MarkdownTable& table, std::u16string_view text) {
    VESK_ENSURE(table.rows.size() >= 2 && table.rows[0].cells.size() == table.columnCount());
    std::size_t at = table.range.location;
    for (const MarkdownTable::Row& row : table.rows) {
        VESK_ENSURE(row.fullLine.location == at && inside(row.line, row.fullLine));
        at = row.fullLine.end();
        std::size_t last = row.line.location;
        for (const TextRange& pipe : row.pipes) {
            VESK_ENSURE(pipe.location >= last && inside(pipe, row.line) && text[pipe.location] == u'|');
            last = pipe.end();
        }
        last = row.line.location;
        for (std::size_t i = 0; i < row.cells.size(); ++i) {
            const MarkdownTable::Cell& cell = row.cells[i];
            VESK_ENSURE(cell.column == i && cell.slot.location >= last && inside(cell.slot, row.line));
            VESK_ENSURE(inside(cell.content, cell.slot));
            for (const TextRange& escape : cell.escapes) {
                VESK_ENSURE(inside(escape, cell.content) && text[escape.location] == u'\\');
            }
            last = cell.slot.end();
        }
    }
    VESK_ENSURE(at == table.range.end() && at <= text.size());
    for (std::size_t row = 0; row < table.rows.size(); ++row) {
        for (std::size_t column = 0; column <= table.columnCount(); ++column) {
            const std::size_t caret = table.caretOffset(row, column);
            VESK_ENSURE(caret >= table.range.location && caret <= table.range.end());
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    const double width = 80 + static_cast<double>(*data) * 4;
    const std::u16string text =
        utf16(decodedText(std::string(reinterpret_cast<const char*>(data + 1), size - 1)));
    const auto frontmatter = MarkdownSpans::frontmatterRange(text);
    const auto all = MarkdownTable::tables(text, {}, frontmatter);
    const MarkdownTableGrid::Policy policy(14);
    const UnitMeasurer measurer;
    TableGridCache cache(2);
    for (const MarkdownTable& table : all) {
        check(table, text);
        const TableGridCache::Entry& entry = cache.decision(table, text, width, policy, measurer);
        const auto* layout = std::get_if<MarkdownTableGrid::Layout>(&entry.decision.value);
        if (!layout) continue;
        VESK_ENSURE(layout->columnWidths.size() == table.columnCount());
        VESK_ENSURE(layout->rowHeights.size() == table.bodyRowCount() + 1);
        VESK_ENSURE(layout->size.width <= width + 1e-6);
        for (const double column : layout->columnWidths) VESK_ENSURE(column > 0);
        VESK_ENSURE(layout->cell({layout->size.width / 2, layout->size.height / 2}));
    }

    const std::size_t step = std::max<std::size_t>(text.size() / 16, 1);
    for (std::size_t at = 0; at <= text.size(); at += step) {
        const TextRange line = EditorLines::lineRange(text, {at, 0});
        std::vector<MarkdownTable> expected;
        std::copy_if(all.begin(), all.end(), std::back_inserter(expected),
                     [&](const MarkdownTable& table) { return table.range.intersects(line); });
        VESK_ENSURE(MarkdownTable::tables(text, TextRange{at, 0}, frontmatter) == expected);
    }
    return 0;
}
