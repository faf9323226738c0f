#include <gtest/gtest.h>

#include "VeskCore/Editor/MarkdownSpans.h"
#include "VeskCore/Editor/MarkdownTable.h"
#include "VeskCore/Support/Unicode.h"

namespace vesk {
namespace {

/// Each table as its rows of cell contents: "a,b/-,-".
std::string shown(std::u16string_view text, const std::vector<MarkdownTable>& tables) {
    std::string result;
    for (const MarkdownTable& table : tables) {
        if (!result.empty()) result += ";";
        for (std::size_t row = 0; row < table.rows.size(); ++row) {
            if (row > 0) result += "/";
            for (const auto& cell : table.rows[row].cells) {
                if (cell.column > 0) result += ",";
                result += utf8(text.substr(cell.content.location, cell.content.length));
            }
        }
    }
    return result;
}

std::string found(std::u16string_view text) {
    return shown(text, MarkdownTable::tables(text, {}, MarkdownSpans::frontmatterRange(text)));
}

TEST(MarkdownTable, FindsTables) {
    struct Row {
        std::u16string_view text;
        std::string expected;
    };
    const Row rows[] = {
        {u"a | b\n--- | ---", "a,b/---,---"},
        {u"| a | b |\r\n|-|-|\r\nc|\r\n|d|e|f|\r\nend", "a,b/-,-/c/d,e,f"},
        {u"|\n|-|", "/-"},
        {u"|||\n|-|-|", ",/-,-"},
        {u"a|b|c\n-|-", ""},
        {u"a|b\n:-|-:\n\n1|2", "a,b/:-,-:"},
        {u"a|b\n::|-", ""},
        {u"a|b\n:|-", ""},
        {u"a|b\n-|-\n- x|y", "a,b/-,-"},
        {u"a|b\n-|-\n    c|d", "a,b/-,-"},
        {u"\ta|b\n-|-", ""},
        {u"a\\|b\\\\|c\n-|-", "a\\|b\\\\,c/-,-"},
        {u"```\na|b\n-|-\n~~~\na|b\n-|-", "a,b/-,-"},
        {u"---\na|b\n-|-\n---\n", ""},
        {u"x|y\na|b\n-|-\nc|d\n-|-\n", "a,b/-,-/c,d/-,-"},
        {u"a|b\u2028-|-\u0085c|d", "a,b/-,-/c,d"},
    };
    for (const Row& row : rows) EXPECT_EQ(found(row.text), row.expected) << utf8(row.text);
}

TEST(MarkdownTable, ReadsAlignmentsAndPlaces) {
    const std::u16string_view text = u"\n| a\\|b |  |\n|:-:|-:|\n";
    const MarkdownTable table = MarkdownTable::tables(text).at(0);
    EXPECT_EQ(table.range, (TextRange{1, 21}));
    EXPECT_EQ(table.alignments, (std::vector{TableAlignment::center, TableAlignment::right}));
    EXPECT_EQ(table.header().pipes, (std::vector<TextRange>{{1, 1}, {8, 1}, {11, 1}}));
    EXPECT_EQ(table.header().cells[0].slot, (TextRange{2, 6}));
    EXPECT_EQ(table.header().cells[0].escapes, (std::vector<TextRange>{{4, 1}}));
    EXPECT_FALSE(table.isColumnPadded());
    EXPECT_EQ(table.caretOffset(0, 0), 7U);
    EXPECT_EQ(table.caretOffset(0, 1), 10U);
    EXPECT_EQ(table.caretOffset(5, 9), 12U);
    EXPECT_TRUE(MarkdownTable::tables(u"|a|b|\n|-|-|\n|1|2|")[0].isColumnPadded());
}

TEST(MarkdownTable, DropsATableWithAnOverlongRow) {
    const std::u16string fits = u"|" + std::u16string(4997, u'x') + u"|\n|-|\n";
    const std::u16string over = u"|" + std::u16string(4998, u'x') + u"|\n|-|\n";
    EXPECT_EQ(MarkdownTable::tables(fits).size(), 1U);
    EXPECT_EQ(MarkdownTable::tables(over).size(), 0U);
}

TEST(MarkdownTable, FindsTheTableAtAnOffset) {
    const std::u16string_view ended = u"x\na|b\n-|-\n", open = u"x\na|b\n-|-";
    for (std::size_t at = 2; at < 10; ++at) EXPECT_TRUE(MarkdownTable::table(at, ended)) << at;
    EXPECT_FALSE(MarkdownTable::table(1, ended));
    EXPECT_FALSE(MarkdownTable::table(10, ended));
    EXPECT_TRUE(MarkdownTable::table(9, open));
    EXPECT_FALSE(MarkdownTable::table(0, u""));
}

TEST(MarkdownTable, WidensAnEditOverTheRowsAroundIt) {
    const std::u16string_view text = u"x\na|b\n-|-\nc|d\ny\n";
    EXPECT_EQ(MarkdownTable::widened({7, 0}, text), (TextRange{2, 12}));
    EXPECT_EQ(MarkdownTable::widened({0, 1}, text), (TextRange{0, 1}));
    EXPECT_EQ(MarkdownTable::restyleRange({14, 1}, text), (TextRange{2, 14}));
    EXPECT_EQ(MarkdownTable::widenedToPipeRuns({90, 9}, text), (TextRange{16, 0}));
    EXPECT_EQ(MarkdownTable::restyleRange({0, 0}, u""), (TextRange{0, 0}));
    EXPECT_TRUE(MarkdownTable::mightContainTable(text, {2, 0}));
    EXPECT_FALSE(MarkdownTable::mightContainTable(text, {14, 1}));
}

}  // namespace
}  // namespace vesk
