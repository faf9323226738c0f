// Whether a table can be drawn as a grid in a given width, and with what columns and rows; and the cells to
// draw, as text with styled runs. No drawing: text is measured through a seam. Sizes are in points. Pure; any
// thread.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "VeskCore/Editor/MarkdownTable.h"
#include "VeskCore/Markdown/HTMLStyle.h"
#include "VeskCore/Support/TextRange.h"

namespace vesk::MarkdownTableGrid {

struct RunStyle {
    struct Scale {
        double factor = 1;
        bool operator==(const Scale&) const = default;
    };
    struct Color {
        CSSColor color;
        bool operator==(const Color&) const = default;
    };
    enum class Plain { bold, italic, strikethrough, underline, highlight, code, link, faint, sub, sup };
    std::variant<Scale, Color, Plain> value = Plain::bold;
    bool operator==(const RunStyle&) const = default;
};

struct Run {
    TextRange range;  ///< UTF-16 units of the cell's text
    RunStyle style;
    bool operator==(const Run&) const = default;
};

struct Cell {
    std::u16string text;
    std::vector<Run> runs;
    TableAlignment alignment = TableAlignment::none;
    bool isHeader = false;
    bool operator==(const Cell&) const = default;
};
using Cells = std::vector<std::vector<Cell>>;

/// The limits of a grid.
struct Policy {
    explicit Policy(double bodyPointSize) : em(bodyPointSize) {}
    static Policy iOS(double bodySize);

    double em;
    double padX = 8, padY = 5;
    double marginTop = 6, marginBottom = 10;
    double minColumnEm = 4;
    std::size_t maxColumns = 12;
    std::size_t maxBodyRows = 200;
    std::size_t maxCells = 400;  ///< columns times rows, header included
    std::size_t maxCellLines = 8;
    std::optional<double> maxHeight;
    bool operator==(const Policy&) const = default;
};

/// Why a table stays source text. Not shown to the user.
enum class Reason {
    noWidth,
    tooManyColumns,
    tooManyRows,
    tooManyCells,
    longLine,
    tooNarrow,
    cellTooTall,
    gridTooTall,
};

struct Size {
    double width = 0, height = 0;
    bool operator==(const Size&) const = default;
};
struct Point {
    double x = 0, y = 0;
};
struct Rect {
    double x = 0, y = 0, width = 0, height = 0;
    bool operator==(const Rect&) const = default;
};
struct Position {
    std::size_t row = 0, column = 0;
    bool operator==(const Position&) const = default;
};

struct Layout {
    std::vector<double> columnWidths, rowHeights;
    Size size;
    double reservedHeight = 0;  ///< with both margins
    bool operator==(const Layout&) const = default;

    /// `row` and `column` are inside the grid.
    Rect cellRect(std::size_t row, std::size_t column) const;
    std::optional<Position> cell(Point point) const;
    /// The rows that overlap the band, as a range of row indices.
    TextRange rows(double top, double bottom) const;
};

struct Decision {
    std::variant<Layout, Reason> value = Reason::noWidth;
    bool operator==(const Decision&) const = default;
};

/// What the drawing side knows of text.
class Measurer {
public:
    virtual ~Measurer() = default;
    /// Wrapped to the width, or on unbounded lines.
    virtual Size size(const Cell& cell, std::optional<double> width) const = 0;
    virtual double longestWordWidth(const Cell& cell) const = 0;
    virtual double lineHeight() const = 0;
};

/// The header, then the body; each row has the table's columns.
Cells cells(const MarkdownTable& table, std::u16string_view text);
Cell displayCell(const MarkdownTable::Cell& cell, std::u16string_view text, TableAlignment alignment,
                 bool isHeader);
std::optional<Reason> precheck(const MarkdownTable& table, const Policy& policy);
/// Every reason that needs no cell.
std::optional<Reason> precheck(const MarkdownTable& table, double availableWidth, const Policy& policy);
Decision decide(const MarkdownTable& table, const Cells& cells, double availableWidth, const Policy& policy,
                const Measurer& measurer);

}  // namespace vesk::MarkdownTableGrid
