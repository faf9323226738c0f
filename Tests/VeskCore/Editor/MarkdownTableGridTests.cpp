#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "VeskCore/Editor/MarkdownTableGrid.h"
#include "VeskCore/Editor/TableGridCache.h"
#include "VeskCore/Support/Match.h"
#include "VeskCore/Support/Unicode.h"

namespace vesk {
namespace {

using namespace MarkdownTableGrid;

/// Ten points a unit, twenty a line; wraps anywhere.
class FixedMeasurer : public Measurer {
public:
    Size size(const Cell& cell, std::optional<double> width) const override {
        const double natural = 10.0 * static_cast<double>(cell.text.size());
        if (!width) return {natural, 20};
        return {std::min(natural, *width), 20 * std::max(1.0, std::ceil(natural / *width))};
    }
    double longestWordWidth(const Cell& cell) const override {
        std::size_t longest = 0, word = 0;
        for (const char16_t c : cell.text) longest = std::max(longest, word = c == u' ' ? 0 : word + 1);
        return 10.0 * static_cast<double>(longest);
    }
    double lineHeight() const override { return 20; }
};

MarkdownTable tableIn(std::u16string_view text) {
    return MarkdownTable::tables(text).at(0);
}

Decision decided(std::u16string_view text, double width, Policy policy = Policy(10)) {
    const MarkdownTable table = tableIn(text);
    return decide(table, cells(table, text), width, policy, FixedMeasurer());
}

std::u16string grid(std::size_t columns, std::size_t bodyRows) {
    std::u16string header, delimiter, text;
    for (std::size_t i = 0; i < columns; ++i) header += u"|a", delimiter += u"|-";
    text = header + u"|\n" + delimiter + u"|\n";
    for (std::size_t i = 0; i < bodyRows; ++i) text += header + u"|\n";
    return text;
}

std::string shown(const Cell& cell) {
    constexpr std::string_view names[] = {"bold", "italic", "strike", "underline", "highlight",
                                          "code", "link",   "faint",  "sub",       "sup"};
    std::string text = utf8(cell.text);
    for (const Run& run : cell.runs) {
        text += " " + std::to_string(run.range.location) + "+" + std::to_string(run.range.length) + " " +
                match(
                    run.style, [](const RunStyle::Scale&) { return std::string("scale"); },
                    [](const RunStyle::Color&) { return std::string("color"); },
                    [&](const RunStyle::Plain& plain) {
                        return std::string(names[static_cast<std::size_t>(plain)]);
                    });
    }
    return text;
}

TEST(MarkdownTableGrid, ShowsCellsWithoutTheirSyntax) {
    struct Row {
        std::u16string_view source;
        std::string expected;
    };
    const Row rows[] = {
        {u"a<br>b<BR/>c<br />d", "a\nb\nc\nd"},
        {u"`a<br>b`", "a\nb 0+3 code"},
        {u"![x](y)", "x 0+1 faint"},
        {u"![[x]] [y](z) #t", "x y #t 0+1 link 2+1 link 4+2 link"},
        {u"a\\|**b\\|c**", "a|b|c 2+3 bold"},
        {u"<sub>a</sub><span style='color:red;background:blue'>b</span>",
         "ab 0+1 scale 0+1 sub 1+1 color 1+1 highlight"},
        {u"<img src=a> <hr>", "<img src=a> <hr> 0+11 faint 12+4 faint"},
        {u"\xD800x", "\uFFFDx"},
    };
    for (const Row& row : rows) {
        const std::u16string text = u"|" + std::u16string(row.source) + u"|\n|-:|";
        EXPECT_EQ(shown(cells(tableIn(text), text).at(0).at(0)), row.expected) << utf8(row.source);
    }
}

TEST(MarkdownTableGrid, PadsShortRowsAndIgnoresCellsBeyondTheColumns) {
    const std::u16string text = u"|a|b|\n|-|-:|\n|c|\n|d|e|f|";
    const Cells all = cells(tableIn(text), text);
    ASSERT_EQ(all.size(), 3U);
    EXPECT_EQ(all[1][1], (Cell{u"", {}, TableAlignment::right, false}));
    EXPECT_EQ(all[2].size(), 2U);
    EXPECT_TRUE(all[0][1].isHeader);
}

TEST(MarkdownTableGrid, RefusesWhatIsOverALimit) {
    Policy low(10);
    low.maxHeight = 59;
    struct Row {
        std::string_view name;
        std::u16string text;
        double width;
        std::optional<Reason> expected;
        Policy policy = Policy(10);
    };
    const Row rows[] = {
        {"12 columns", grid(12, 1), 1000, std::nullopt},
        {"13 columns", grid(13, 1), 1000, Reason::tooManyColumns},
        {"200 rows", grid(1, 200), 1000, std::nullopt},
        {"201 rows", grid(1, 201), 1000, Reason::tooManyRows},
        {"402 cells", grid(2, 200), 1000, Reason::tooManyCells},
        {"no width", grid(1, 1), 99, Reason::noWidth},
        {"too narrow", grid(3, 1), 119, Reason::tooNarrow},
        {"as narrow as it gets", grid(3, 1), 120, std::nullopt},
        {"eight lines", u"|" + std::u16string(64, u'x') + u"|\n|-|", 96, Reason::noWidth},
        {"nine lines", u"|" + std::u16string(73, u'x') + u"|\n|-|", 100, Reason::cellTooTall},
        {"too tall", grid(1, 1), 100, Reason::gridTooTall, low},
    };
    for (const Row& row : rows) {
        const Decision got = decided(row.text, row.width, row.policy);
        const Reason* reason = std::get_if<Reason>(&got.value);
        EXPECT_EQ(reason ? std::optional(*reason) : std::nullopt, row.expected) << row.name;
    }
    EXPECT_EQ(Policy::iOS(12).maxHeight, std::optional(2400.0));
}

TEST(MarkdownTableGrid, SharesTheWidthOut) {
    struct Row {
        std::u16string_view text;
        double width;
        std::vector<double> columns, rows;
    };
    const Row rows[] = {
        {u"|aaa|b|\n|-|-|", 300, {46, 26}, {30}},
        // The floors are 40 and 96 (one word of eight); what is spare goes to the longer column.
        {u"|aaaa|bbbbbbbb bbbbbbbb bbbbbbbb|\n|-|-|", 240, {56, 184}, {50}},
        // Floors of 100 and 100 where 150 are to be had shrink alike.
        {u"|aaaaaaaaaaaaaaaa|bbbbbbbbbbbbbbbb|\n|-|-|", 151, {75, 76}, {70}},
        // Floors of 36, 60 and 60 where 150 are to be had: only what is above 40 shrinks.
        {u"|aa|bbbbbbbbbb|cccccccccc|\n|-|-|-|", 150, {36, 57, 57}, {70}},
    };
    for (const Row& row : rows) {
        const Decision got = decided(row.text, row.width);
        const Layout* layout = std::get_if<Layout>(&got.value);
        ASSERT_TRUE(layout) << utf8(row.text);
        EXPECT_EQ(layout->columnWidths, row.columns) << utf8(row.text);
        EXPECT_EQ(layout->rowHeights, row.rows) << utf8(row.text);
        EXPECT_EQ(layout->reservedHeight, layout->size.height + 16);
    }
}

TEST(MarkdownTableGrid, FindsCellsByPlace) {
    const Layout layout{{40, 60}, {20, 30}, {100, 50}, 66};
    EXPECT_EQ(layout.cellRect(1, 1), (Rect{40, 20, 60, 30}));
    EXPECT_EQ(layout.cell({40, 19.5}), std::optional(Position{0, 1}));
    EXPECT_EQ(layout.cell({100, 50}), std::optional(Position{1, 1}));
    EXPECT_EQ(layout.cell({-1, 5}), std::nullopt);
    EXPECT_EQ(layout.cell({5, 50.5}), std::nullopt);
    EXPECT_EQ(layout.rows(20, 21), (TextRange{1, 1}));
    EXPECT_EQ(layout.rows(0, 99), (TextRange{0, 2}));
    EXPECT_TRUE(layout.rows(50, 99).empty());
}

TEST(TableGridCache, RoundsWidthsAndDropsTheLeastRecentlyUsed) {
    const FixedMeasurer measurer;
    const std::u16string text = u"|a|\n|-|\n";
    const MarkdownTable table = tableIn(text);
    TableGridCache cache(2);
    const auto used = [&](double width) {
        return cache.decision(table, text, width, Policy(10), measurer).used;
    };
    EXPECT_EQ(cache.decision(table, text, 99.4, Policy(10), measurer).decision, (Decision{Reason::noWidth}));
    EXPECT_EQ(cache.decision(table, text, 99.6, Policy(10), measurer).cells.size(), 1U);
    EXPECT_EQ(used(99), 3U);
    used(200);  // 100 goes
    EXPECT_EQ(cache.size(), 2U);
    EXPECT_EQ(used(99.2), 5U);
    EXPECT_EQ(cache.decision(table, text, 100, Policy(10), measurer).cells.size(), 1U);

    TableGridCache least(0);
    least.decision(table, text, 100, Policy(10), measurer);
    least.decision(table, text, 200, Policy(10), measurer);
    EXPECT_EQ(least.size(), 1U);
}

}  // namespace
}  // namespace vesk
