#include "VeskCore/Editor/MarkdownTableGrid.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include "VeskCore/Editor/EditorLines.h"
#include "VeskCore/Editor/MarkdownSpans.h"
#include "VeskCore/Support/Ensure.h"
#include "VeskCore/Support/Match.h"
#include "VeskCore/Support/Pattern.h"

namespace vesk::MarkdownTableGrid {

namespace {

using MarkdownSpans::Span;
using MarkdownSpans::Style;
using Plain = RunStyle::Plain;

constexpr double narrowestGrid = 100;
constexpr double widestWordShare = 0.4;
constexpr double heightTolerance = 0.5;

double sum(const std::vector<double>& values) {
    return std::accumulate(values.begin(), values.end(), 0.0);
}

/// A cell's source on its way to its display text.
class CellBuilder {
public:
    explicit CellBuilder(std::u16string_view source)
        : source_(source), removed_(source.size()), breaks_(source.size()) {}

    void remove(TextRange range) {
        for (std::size_t i = range.location; i < range.end(); ++i) removed_[i] = true;
    }
    void addRun(TextRange range, RunStyle style) { runs_.push_back({range, style}); }

    void readBreaks() {
        static const Pattern lineBreak(R"(<br\s*/?>)", Pattern::Case::insensitive);
        if (source_.find(u'<') == source_.npos) return;
        for (const Pattern::Match& match : lineBreak.matches(source_)) {
            remove({match.range().location + 1, match.range().length - 1});
            breaks_[match.range().location] = true;
            breakRanges_.push_back(match.range());
        }
    }

    void readSpan(const Span& span) {
        // Before the markers go: an image's sign stands right before the first of them.
        const std::size_t start = span.markers.empty() ? span.range.location : span.markers.front().location;
        const bool image = start > 0 && source_[start - 1] == u'!' && !removed_[start - 1];
        for (const TextRange& marker : span.markers) remove(marker);
        match(
            span.style, [](const Style::Heading&) {}, [](const Style::Callout&) {}, [](const Style::Task&) {},
            [](const Style::Table&) {},
            [&](const Style::HtmlStyled& html) { addHtmlRuns(span.range, html.style); },
            [&](const Style::Plain& plain) { addPlainRun(span.range, plain, image, start); });
    }

    void finish(Cell& cell) {
        std::vector<std::size_t> offsets;
        offsets.reserve(source_.size() + 1);
        for (std::size_t i = 0; i < source_.size(); ++i) {
            offsets.push_back(cell.text.size());
            if (breaks_[i]) {
                cell.text += u'\n';
            } else if (!removed_[i]) {
                cell.text += source_[i];
            }
        }
        offsets.push_back(cell.text.size());
        repairPairs(cell.text);
        for (Run& run : runs_) {
            const std::size_t start = offsets[run.range.location];
            run.range = {start, offsets[run.range.end()] - start};
            if (!run.range.empty()) cell.runs.push_back(run);
        }
    }

private:
    static void repairPairs(std::u16string& text) {
        const auto isHigh = [](char16_t c) { return c >= 0xD800 && c <= 0xDBFF; };
        const auto isLow = [](char16_t c) { return c >= 0xDC00 && c <= 0xDFFF; };
        for (std::size_t i = 0; i < text.size(); ++i) {
            if (isHigh(text[i]) && i + 1 < text.size() && isLow(text[i + 1])) {
                ++i;
            } else if (isHigh(text[i]) || isLow(text[i])) {
                text[i] = 0xFFFD;
            }
        }
    }

    void addHtmlRuns(TextRange range, const HTMLStyle& style) {
        if (style.bold) addRun(range, {Plain::bold});
        if (style.italic) addRun(range, {Plain::italic});
        if (style.underline) addRun(range, {Plain::underline});
        if (style.strikethrough) addRun(range, {Plain::strikethrough});
        if (style.monospace) addRun(range, {Plain::code});
        if (style.scale != 1) addRun(range, {RunStyle::Scale{style.scale}});
        if (style.baseline == HTMLStyle::Baseline::sub) addRun(range, {Plain::sub});
        if (style.baseline == HTMLStyle::Baseline::sup) addRun(range, {Plain::sup});
        if (style.color) addRun(range, {RunStyle::Color{*style.color}});
        if (style.background && style.background->alpha > 0) addRun(range, {Plain::highlight});
    }

    void addPlainRun(TextRange range, Style::Plain plain, bool image, std::size_t start) {
        switch (plain) {
            case Style::Plain::bold:
                return addRun(range, {Plain::bold});
            case Style::Plain::italic:
                return addRun(range, {Plain::italic});
            case Style::Plain::strikethrough:
                return addRun(range, {Plain::strikethrough});
            case Style::Plain::highlight:
                return addRun(range, {Plain::highlight});
            case Style::Plain::code:
                return addRun(range, {Plain::code});
            case Style::Plain::tag:
                return addRun(range, {Plain::link});
            case Style::Plain::link:
                if (image) remove({start - 1, 1});
                return addRun(range, {image ? Plain::faint : Plain::link});
            case Style::Plain::htmlInert:
                if (!std::binary_search(breakRanges_.begin(), breakRanges_.end(), range, isBefore)) {
                    addRun(range, {Plain::faint});
                }
                return;
            case Style::Plain::htmlMarkup:
            case Style::Plain::fence:
            case Style::Plain::codeBlock:
            case Style::Plain::quote:
            case Style::Plain::listMarker:
            case Style::Plain::divider:
            case Style::Plain::frontmatter:
                return;
        }
    }

    static bool isBefore(const TextRange& a, const TextRange& b) {
        return a.location != b.location ? a.location < b.location : a.length < b.length;
    }

    std::u16string_view source_;
    std::vector<bool> removed_, breaks_;
    std::vector<TextRange> breakRanges_;
    std::vector<Run> runs_;
};

/// The greatest of what `measure` gives for the cells of each column.
template <class Measure>
std::vector<double> greatestOfColumns(const Cells& cells, std::size_t columns, Measure measure) {
    std::vector<double> greatest(columns);
    for (const std::vector<Cell>& row : cells) {
        for (std::size_t c = 0; c < std::min(columns, row.size()); ++c)
            greatest[c] = std::max(greatest[c], measure(row[c]));
    }
    return greatest;
}

std::vector<double> columnWidths(const Cells& cells, std::size_t columns, double available,
                                 const Policy& policy, const Measurer& measurer) {
    const double narrowest = policy.minColumnEm * policy.em;
    std::vector<double> ideal = greatestOfColumns(
        cells, columns, [&](const Cell& cell) { return measurer.size(cell, std::nullopt).width; });
    for (double& width : ideal) width = 2 * policy.padX + std::ceil(width);
    if (sum(ideal) <= available) return ideal;

    // Laying text out is what a decision costs, so words are measured only where the columns are too wide.
    std::vector<double> floors =
        greatestOfColumns(cells, columns, [&](const Cell& cell) { return measurer.longestWordWidth(cell); });
    for (std::size_t c = 0; c < columns; ++c) {
        const double word = std::min(2 * policy.padX + floors[c], widestWordShare * available);
        floors[c] = std::min(ideal[c], std::max(narrowest, word));
    }
    if (const double excess = sum(floors) - available; excess > 0) {
        double slack = 0;
        for (const double floor : floors) slack += std::max(floor - narrowest, 0.0);
        const double share = slack > 0 ? excess / slack : 0;
        for (double& floor : floors) {
            if (floor > narrowest) floor -= share * (floor - narrowest);
        }
    }
    const double spare = std::max(available - sum(floors), 0.0);
    const double wanted = sum(ideal) - sum(floors);
    std::vector<double> widths(columns);
    for (std::size_t c = 0; c < columns; ++c) {
        const double extra = wanted > 0 ? spare * (ideal[c] - floors[c]) / wanted : 0;
        widths[c] = std::floor(floors[c] + extra);
    }
    widths.back() += available - sum(widths);
    return widths;
}

}  // namespace

Policy Policy::iOS(double bodySize) {
    Policy policy(bodySize);
    policy.maxHeight = 2400;
    return policy;
}

Rect Layout::cellRect(std::size_t row, std::size_t column) const {
    VESK_ENSURE(row < rowHeights.size() && column < columnWidths.size());
    const auto before = [](const std::vector<double>& sizes, std::size_t count) {
        return std::accumulate(sizes.begin(), sizes.begin() + static_cast<std::ptrdiff_t>(count), 0.0);
    };
    return {before(columnWidths, column), before(rowHeights, row), columnWidths[column], rowHeights[row]};
}

std::optional<Position> Layout::cell(Point point) const {
    if (rowHeights.empty() || columnWidths.empty()) return std::nullopt;
    if (!(point.x >= 0 && point.y >= 0 && point.x <= size.width && point.y <= size.height))
        return std::nullopt;
    const auto index = [](const std::vector<double>& sizes, double coordinate) {
        double end = 0;
        for (std::size_t i = 0; i < sizes.size(); ++i) {
            end += sizes[i];
            if (end > coordinate) return i;
        }
        return sizes.size() - 1;
    };
    return Position{index(rowHeights, point.y), index(columnWidths, point.x)};
}

TextRange Layout::rows(double top, double bottom) const {
    std::size_t first = 0;
    double end = 0;
    while (first < rowHeights.size() && end + rowHeights[first] <= top) end += rowHeights[first++];
    std::size_t last = first;
    while (last < rowHeights.size() && end < bottom) end += rowHeights[last++];
    return {first, last - first};
}

Cell displayCell(const MarkdownTable::Cell& cell, std::u16string_view text, TableAlignment alignment,
                 bool isHeader) {
    const std::u16string_view source = EditorLines::piece(text, cell.content);
    CellBuilder builder(source);
    for (const TextRange& escape : cell.escapes) {
        builder.remove({escape.location - cell.content.location, escape.length});
    }
    std::vector<Span> spans = MarkdownSpans::inlineSpans(source, std::size_t{0});
    builder.readBreaks();
    for (const Span& span : spans) builder.readSpan(span);
    Cell result;
    result.alignment = alignment;
    result.isHeader = isHeader;
    builder.finish(result);
    return result;
}

Cells cells(const MarkdownTable& table, std::u16string_view text) {
    Cells result;
    for (const MarkdownTable::Row& row : table.rows) {
        if (row.kind == TableRowKind::delimiter) continue;
        const bool isHeader = row.kind == TableRowKind::header;
        std::vector<Cell>& shown = result.emplace_back();
        for (std::size_t c = 0; c < table.columnCount(); ++c) {
            shown.push_back(c < row.cells.size()
                                ? displayCell(row.cells[c], text, table.alignments[c], isHeader)
                                : Cell{{}, {}, table.alignments[c], isHeader});
        }
    }
    return result;
}

std::optional<Reason> precheck(const MarkdownTable& table, const Policy& policy) {
    if (table.columnCount() > policy.maxColumns) return Reason::tooManyColumns;
    if (table.bodyRowCount() > policy.maxBodyRows) return Reason::tooManyRows;
    if (table.columnCount() * (table.bodyRowCount() + 1) > policy.maxCells) return Reason::tooManyCells;
    for (const MarkdownTable::Row& row : table.rows) {
        if (row.fullLine.length > MarkdownSpans::longLineLimit) return Reason::longLine;
    }
    return std::nullopt;
}

std::optional<Reason> precheck(const MarkdownTable& table, double availableWidth, const Policy& policy) {
    if (const auto reason = precheck(table, policy)) return reason;
    if (!(availableWidth >= narrowestGrid)) return Reason::noWidth;
    const double narrowest = policy.minColumnEm * policy.em * static_cast<double>(table.columnCount());
    if (availableWidth < narrowest) return Reason::tooNarrow;
    return std::nullopt;
}

Decision decide(const MarkdownTable& table, const Cells& cells, double availableWidth, const Policy& policy,
                const Measurer& measurer) {
    if (const auto reason = precheck(table, availableWidth, policy)) return {*reason};
    Layout layout;
    layout.columnWidths = columnWidths(cells, table.columnCount(), availableWidth, policy, measurer);
    const double tallest = measurer.lineHeight() * static_cast<double>(policy.maxCellLines) + heightTolerance;
    for (const std::vector<Cell>& row : cells) {
        double height = 0;
        for (std::size_t c = 0; c < std::min(row.size(), layout.columnWidths.size()); ++c) {
            const double cell = measurer.size(row[c], layout.columnWidths[c] - 2 * policy.padX).height;
            if (cell > tallest) return {Reason::cellTooTall};
            height = std::max(height, cell);
        }
        layout.rowHeights.push_back(std::ceil(height) + 2 * policy.padY);
    }
    layout.size = {sum(layout.columnWidths), sum(layout.rowHeights)};
    if (policy.maxHeight && layout.size.height > *policy.maxHeight) return {Reason::gridTooTall};
    layout.reservedHeight = layout.size.height + policy.marginTop + policy.marginBottom;
    return {std::move(layout)};
}

}  // namespace vesk::MarkdownTableGrid
