#include <gtest/gtest.h>

#include "VeskCore/Editor/Outline.h"

namespace vesk {
namespace {

TEST(Outline, ListsTheHeadingsThatAReaderSees) {
    const std::u16string text =
        u"---\n# no\n---\n# \U0001F600 One \r\n```\n# no\n~~~\n\u2028 ### Two\n####### no\n# " +
        std::u16string(5000, u'x') + u"\n## #";
    const std::vector<OutlineHeading> expected{
        {1, "\U0001F600 One", {13, 9}, 3}, {3, "Two", {38, 8}, 8}, {2, "#", {5061, 4}, 11}};
    const auto found = outline(text);
    ASSERT_EQ(found.size(), expected.size());
    for (std::size_t i = 0; i < found.size(); ++i) {
        EXPECT_EQ(found[i].text, expected[i].text);
        EXPECT_EQ(found[i].level, expected[i].level);
        EXPECT_EQ(found[i].range.location, expected[i].range.location) << found[i].text;
        EXPECT_EQ(found[i].range.length, expected[i].range.length) << found[i].text;
        EXPECT_EQ(found[i].line, expected[i].line) << found[i].text;
    }
    EXPECT_TRUE(outline(u"").empty());
}

}  // namespace
}  // namespace vesk
