#include <gtest/gtest.h>

#include "VeskCore/Support/DisplayWidth.h"
#include "VeskCore/Support/Unicode.h"

namespace vesk::test {
namespace {

TEST(DisplayWidth, CountsColumns) {
    const struct {
        const char16_t* text;
        std::size_t columns;
    } rows[] = {
        {u"", 0},         {u"abc", 3},
        {u"äöü", 3},      {u"e\u0301", 1},
        {u"日本", 4},     {u"ｆｕ", 4},
        {u"한글", 4},     {u"\u1112\u1161\u11AB", 2},
        {u"😀", 2},        {u"👨‍👩‍👧", 2},
        {u"🇩🇪🇫🇷", 4},     {u"❤\uFE0F", 2},
        {u"a\u200Bb", 2},
    };
    for (const auto& row : rows) EXPECT_EQ(displayColumns(row.text), row.columns) << utf8(row.text);
}

TEST(Occurrences, AreFoundOverlappingAndInLinearTime) {
    using Ranges = std::vector<TextRange>;
    EXPECT_EQ(occurrences(u"ababa", u"aba"), (Ranges{{0, 3}, {2, 3}}));
    EXPECT_EQ(occurrences(u"aba", u""), Ranges());
    EXPECT_EQ(CaselessHaystack(u"ßSs").all(u"ss"), (Ranges{{0, 1}, {1, 2}}));
    const std::u16string text(200'000, u'a');
    EXPECT_EQ(occurrences(text, text.substr(0, 100'000)).size(), 100'001u);
}

}  // namespace
}  // namespace vesk::test
