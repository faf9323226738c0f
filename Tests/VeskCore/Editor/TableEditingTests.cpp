#include "MarkedText.h"
#include "VeskCore/Editor/MarkdownSpans.h"
#include "VeskCore/Editor/TableEditing.h"

namespace vesk::test {
namespace {

using namespace TableEditing;

using Command = std::optional<TextEdit> (*)(std::u16string_view, TextRange);

Command insertBefore(bool row) {
    if (row) return [](std::u16string_view t, TextRange s) { return insertRow(t, s, Side::before); };
    return [](std::u16string_view t, TextRange s) { return insertColumn(t, s, Side::before); };
}
Command insertAfter(bool row) {
    if (row) return [](std::u16string_view t, TextRange s) { return insertRow(t, s, Side::after); };
    return [](std::u16string_view t, TextRange s) { return insertColumn(t, s, Side::after); };
}
Command move(bool row, bool forward) {
    if (row && forward) return [](std::u16string_view t, TextRange s) { return moveRow(t, s, Side::after); };
    if (row) return [](std::u16string_view t, TextRange s) { return moveRow(t, s, Side::before); };
    if (forward) return [](std::u16string_view t, TextRange s) { return moveColumn(t, s, Side::after); };
    return [](std::u16string_view t, TextRange s) { return moveColumn(t, s, Side::before); };
}
Command align(bool right) {
    if (right) {
        return [](std::u16string_view t, TextRange s) { return alignColumn(t, s, TableAlignment::right); };
    }
    return [](std::u16string_view t, TextRange s) { return alignColumn(t, s, TableAlignment::center); };
}

struct Row {
    const char* name;
    Command command;
    const char *text, *expected;
};

TEST(TableEditing, MovesTheCaretByCells) {
    const Row rows[] = {
        {"next", nextCell, "|a‸|bc|\n|-|-|\n|x|y|", "|a|bc‸|\n|-|-|\n|x|y|"},
        {"next row, over the delimiter", nextCell, "|a|b‸|\n|-|-|\n|x|y|", "|a|b|\n|-|-|\n|x‸|y|"},
        {"from the delimiter", nextCell, "|a|b|\n|-‸|-|\n|x|y|", "|a|b|\n|-|-|\n|x‸|y|"},
        {"new row", nextCell, "|a|bcd|\n|-|-|\n|x| y‸|\nz", "|a|bcd|\n|-|-|\n|x| y|\n| ‸ |  |\nz"},
        {"new row without an end", nextCell, "|a|\r\n|-|\r\n|x‸|", "|a|\r\n|-|\r\n|x|\r\n| ‸ |"},
        {"missing cell", nextCell, "a|b|c\n-|-|-\nx‸", "none"},
        {"missing cell of a row", nextCell, "|a|b|\n|-|-|\n|x‸|", "|a|b|\n|-|-|\n|x| ‸ |"},
        {"escaped pipe", nextCell, "|a\\|‸|b|\n|-|-|", "|a\\||b‸|\n|-|-|"},
        {"previous", previousCell, "|a|b|\n|-|-|\n|x|y‸|", "|a|b|\n|-|-|\n|x‸|y|"},
        {"previous row", previousCell, "|a|b|\n|-|-|\n|x‸|y|", "|a|b‸|\n|-|-|\n|x|y|"},
        {"first", previousCell, "| a‸ |b|\n|-|-|", "| a‸ |b|\n|-|-|"},
        {"below", cellBelow, "|a|b‸|\n|-|-|\n|x| y |", "|a|b|\n|-|-|\n|x| y‸ |"},
        {"below the last", cellBelow, "|a|b|\n|-|-|\n|x|y‸|", "|a|b|\n|-|-|\n|x|y|\n|  | ‸ |"},
        {"below the delimiter", cellBelow, "|a|b|\n|-|-|‸", "|a|b|\n|-|-|\n| ‸ |  |"},
        {"out of an empty last row", cellBelow, "|a|\n|-|\n| ‸ |\nz", "|a|\n|-|\n‸\nz"},
        {"in front of the table", cellBelow, "‸|a|\n|-|", "none"},
        {"no table", nextCell, "a | b‸", "none"},
        {"code", nextCell, "```\n|a‸|\n|-|\n```", "none"},
    };
    for (const Row& row : rows) EXPECT_EQ(after(row.text, row.command), row.expected) << row.name;
}

TEST(TableEditing, ChangesRowsAndColumns) {
    const Row rows[] = {
        {"row above", insertBefore(true), "|a|\n|-|\n|x‸|", "|a|\n|-|\n| ‸ |\n|x|"},
        {"row below", insertAfter(true), "|a|\n|-|\n|x‸|\n|y|", "|a|\n|-|\n|x|\n| ‸ |\n|y|"},
        {"row at the header", insertBefore(true), "|a‸|\n|-|\n|x|", "|a|\n|-|\n| ‸ |\n|x|"},
        {"delete", deleteRow, "|a|\n|-|\n|x‸|\n|y|\nz", "|a|\n|-|\n|y‸|\nz"},
        {"delete the last", deleteRow, "|a|\n|-|\n|x|\n|y‸|", "|a|\n|-|\n|x‸|"},
        {"no header goes", deleteRow, "|a‸|\n|-|\n|x|", "none"},
        {"row down", move(true, true), "|a|\n|-|\n|x‸|\n|yy|", "|a|\n|-|\n|yy|\n|x‸|"},
        {"row up", move(true, false), "|a|\n|-|\n|x|\r\n|y‸|", "|a|\n|-|\n|y‸|\r\n|x|"},
        {"no row into the header", move(true, false), "|a|\n|-|\n|x‸|", "none"},
        {"column before", insertBefore(false), "a‸|b\n-|-:\nx|y",
         "| ‸    | a   |   b |\n| --- | --- | --: |\n|     | x   |   y |"},
        {"column after", insertAfter(false), "|a|\n|-|\n|x‸|",
         "| a   |     |\n| --- | --- |\n| x   | ‸    |"},
        {"column after, short and long rows", insertAfter(false), "|a|b‸|\n|-|-|\n|x|\n|1|2|3|",
         "| a   | b   | ‸    |\n| --- | --- | --- |\n| x   |\n| 1   | 2   |     | 3 |"},
        {"delete column", deleteColumn, "|a|b‸|c|\n|-|:-|-|\n|1|2|3|\n|4|",
         "| a   | c‸   |\n| --- | --- |\n| 1   | 3   |\n| 4   |"},
        {"only column", deleteColumn, "|a‸|\n|-|", "none"},
        {"column right", move(false, true), "|a‸|b|\n|:-|-|\n|1|\n",
         "| b   | a‸   |\n| --- | :-- |\n|     | 1   |\n"},
        {"column left", move(false, false), "|a|b‸|\n|-|-|", "| b‸   | a   |\n| --- | --- |"},
        {"first column", move(false, false), "|a‸|b|\n|-|-|", "none"},
        {"align right", align(true), "|a|b|\n|-|-|\n|x|long‸|",
         "| a   |    b |\n| --- | ---: |\n| x   | long‸ |"},
        {"align to the centre", align(false), "|abcd|\n|-|\n|x‸|", "| abcd |\n| :--: |\n|  x‸   |"},
    };
    for (const Row& row : rows) EXPECT_EQ(after(row.text, row.command), row.expected) << row.name;
}

TEST(TableEditing, TidiesByDisplayWidth) {
    const Row rows[] = {
        {"widths", tidy, "a|b‸\n-|-\n日本語|e\u0301\n😀|🇩🇪",
         "| a      | b‸   |\n| ------ | --- |\n| 日本語 | e\u0301   |\n| 😀     | 🇩🇪  |"},
        {"escapes and code", tidy, "|a‸|b|\n|-|-|\n|x \\| y|`c\\|d`|",
         "| a‸      | b      |\n| ------ | ------ |\n| x \\| y | `c\\|d` |"},
        {"indent and line ends", tidy, "  |a‸|\r\n|:-|\r\nb|\n", "  | a‸   |\r\n  | :-- |\r\n  | b   |\n"},
        {"rows keep their cells", tidy, "|a‸|b|\n|-|-|\n|x|\n|1|2|3|\n|",
         "| a‸   | b   |\n| --- | --- |\n| x   |\n| 1   | 2   | 3 |\n|     |"},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(after(row.text, row.command), row.expected) << row.name;
        EXPECT_EQ(after(row.expected, row.command), "none") << row.name << ", again";
    }
}

TEST(TableEditing, NeverPadsATableOutOfBeingOne) {
    // Each half of the columns is wide in a row of its own.
    constexpr int columns = 200;
    std::u16string text;
    for (int i = 0; i < columns; ++i) text += u"|x";
    text += u"\n";
    for (int i = 0; i < columns; ++i) text += u"|-";
    for (const bool first : {true, false}) {
        text += u"\n";
        for (int i = 0; i < columns; ++i)
            text += u"|" + std::u16string((i < columns / 2) == first ? 40 : 1, u'w');
    }
    const auto table = MarkdownTable::table(0, text);
    ASSERT_TRUE(table);
    const std::u16string tidy = tidied(*table, text);
    EXPECT_TRUE(tidy.starts_with(u"| x | x | x ")) << "single blanks, since padding would be too long";
    const auto again = MarkdownTable::table(0, tidy);
    ASSERT_TRUE(again);
    EXPECT_EQ(again->columnCount(), std::size_t{columns});
    EXPECT_EQ(tidied(*again, tidy), tidy);
}

TEST(TableEditing, MakesTables) {
    const auto insert = [](std::size_t rows, std::size_t columns) {
        return [=](std::u16string_view text, TextRange selection) {
            return insertTable(text, selection, rows, columns);
        };
    };
    EXPECT_EQ(after("‸", insert(1, 2)), "| ‸    |     |\n| --- | --- |\n|     |     |");
    EXPECT_EQ(after("a‸b", insert(0, 1)), "a\n\n| ‸    |\n| --- |\n\nb");
    EXPECT_EQ(after("a\r\n‸\r\nb", insert(0, 1)), "a\r\n\r\n| ‸    |\r\n| --- |\r\n\r\nb");
    EXPECT_EQ(after("‸", insert(1, 0)), "none");
    EXPECT_EQ(after("‸", insert(1, 1000)), "none");
    EXPECT_EQ(after("```\n‸\n```", insert(1, 1)), "none");

    struct TabRow {
        const char *name, *pasted, *expected;
    };
    const TabRow rows[] = {
        {"rows", "a\tb\nc\td\n", "| a   | b   |\n| --- | --- |\n| c   | d   |"},
        {"empty corner", "\tb\r\nc\td", "|     | b   |\n| --- | --- |\n| c   | d   |"},
        {"pipes", "a|b\tc\\|d\ne\tf", "| a\\|b | c\\\\\\|d |\n| ---- | ------ |\n| e    | f      |"},
        {"one row", "a\tb", ""},
        {"uneven", "a\tb\nc", ""},
        {"indented code", "\ta\n\tb", ""},
        {"no tab", "a\nb", ""},
    };
    for (const TabRow& row : rows)
        EXPECT_EQ(utf8(tableFromTabs(utf16(row.pasted)).value_or(u"")), row.expected) << row.name;
}

}  // namespace
}  // namespace vesk::test
