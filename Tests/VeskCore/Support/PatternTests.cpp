#include <gtest/gtest.h>

#include <thread>

#include "VeskCore/Support/Pattern.h"
#include "VeskCore/Support/Unicode.h"

namespace vesk {
namespace {

std::vector<TextRange> ranges(const std::vector<Pattern::Match>& matches) {
    std::vector<TextRange> list;
    for (const Pattern::Match& match : matches) list.push_back(match.range());
    return list;
}

TEST(Pattern, TellsMatchesAndGroupsInUtf16Units) {
    static const Pattern link("\\[\\[([^\\]|]+)(?:\\|([^\\]]+))?\\]\\]");
    const std::u16string_view text = u"😀 [[a]] é [[b|ü😀]]";
    const std::vector<Pattern::Match> matches = link.matches(text);
    ASSERT_EQ(matches.size(), 2U);
    EXPECT_EQ(matches[0].groups,
              (std::vector<std::optional<TextRange>>{TextRange{3, 5}, TextRange{5, 1}, std::nullopt}));
    EXPECT_EQ(matches[1].groups,
              (std::vector<std::optional<TextRange>>{TextRange{11, 9}, TextRange{13, 1}, TextRange{15, 3}}));
    EXPECT_EQ(link.matchCount(text), 2U);
    EXPECT_EQ(link.firstMatch(text)->range(), (TextRange{3, 5}));
    EXPECT_EQ(link.firstMatch(u"none"), std::nullopt);
}

TEST(Pattern, FollowsItsFlags) {
    struct Row {
        const char* name;
        std::string_view expression;
        Pattern::Case caseMode;
        bool multiline;
        std::u16string_view text;
        std::vector<TextRange> expected;
    };
    using enum Pattern::Case;
    const std::vector<Row> rows{
        {"case counts", "ab", sensitive, false, u"AB ab", {{3, 2}}},
        {"case does not count", "ab", insensitive, false, u"AB ab", {{0, 2}, {3, 2}}},
        {"Unicode case", "ä", insensitive, false, u"Ä", {{0, 1}}},
        {"anchors at the text's ends", "^.", sensitive, false, u"a\nb", {{0, 1}}},
        {"anchors at lines",
         "^.",
         sensitive,
         true,
         u"a\nb\r\nc\u2028d\u0085e",
         {{0, 1}, {2, 1}, {5, 1}, {7, 1}, {9, 1}}},
        {"no line begins inside CR LF", "$", sensitive, true, u"a\r\nb", {{1, 0}, {4, 0}}},
        {"empty matches go on", "x*", sensitive, false, u"axb", {{0, 0}, {1, 1}, {2, 0}, {3, 0}}},
        {"a full stop takes a whole pair", ".", sensitive, false, u"😀", {{0, 2}}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(ranges(Pattern(row.expression, row.caseMode, row.multiline).matches(row.text)),
                  row.expected);
    }
}

TEST(Pattern, SeesTheTextOutsideItsRange) {
    const std::u16string_view text = u"xab ab";
    EXPECT_EQ(ranges(Pattern("\\bab").matches(text, TextRange{1, 5})), (std::vector<TextRange>{{4, 2}}));
    EXPECT_EQ(ranges(Pattern("(?<=x)a").matches(text, TextRange{1, 2})), (std::vector<TextRange>{{1, 1}}));
    EXPECT_EQ(ranges(Pattern("^a").matches(text, TextRange{1, 2})), std::vector<TextRange>{});
    EXPECT_EQ(ranges(Pattern("b$").matches(text, TextRange{0, 3})), std::vector<TextRange>{});
    EXPECT_EQ(ranges(Pattern("ab").matches(text, TextRange{0, 2})), std::vector<TextRange>{});
    EXPECT_EQ(ranges(Pattern("ab").matches(text, TextRange{3, 99})), (std::vector<TextRange>{{4, 2}}));
    EXPECT_EQ(ranges(Pattern("ab").matches(text, TextRange{99, 1})), std::vector<TextRange>{});
    EXPECT_EQ(Pattern("a").firstMatch(text, TextRange{2, 4})->range(), (TextRange{4, 1}));
    EXPECT_EQ(ranges(Pattern("a").matches(std::u16string_view())), std::vector<TextRange>{});
}

TEST(Pattern, WorksOnUtf8) {
    const Pattern key("^(\\w+):\\s*(.*?)(#.*)?$", Pattern::Case::sensitive, true);
    EXPECT_TRUE(key.occursIn("näme: 😀 x"));
    EXPECT_FALSE(key.occursIn("no key"));
    EXPECT_EQ(key.firstGroups("näme: 😀 x"), (std::vector<std::string>{"näme: 😀 x", "näme", "😀 x", ""}));
    EXPECT_EQ(key.firstGroups("-"), std::nullopt);
}

TEST(Pattern, ReplacesEveryMatch) {
    EXPECT_EQ(Pattern("(\\w+)@(\\w+)").replacingAll("a@b, ü@😀, c@d", "$2 at $1"), "b at a, ü@😀, d at c");
    EXPECT_EQ(Pattern("\\s+").replacingAll(" a \n b ", " "), " a b ");
    EXPECT_EQ(Pattern("x").replacingAll("axb", "\\$"), "a$b");
    EXPECT_EQ(Pattern("x").replacingAll("abc", "y"), "abc");
    EXPECT_EQ(Pattern("x").replacingAll("axb", "$7"), "axb");
    EXPECT_EQ(Pattern("x*").replacingAll("abc", "-"), "-a-b-c-");
}

TEST(Pattern, AnEscapedTextMatchesOnlyItself) {
    for (const std::string text :
         {"a.b", "\\d+", "[x]", "(?i)", "a|b", "^$", "{2}", "-#&~/", "\\Q\\E", "ä😀", "a b", ""}) {
        const Pattern pattern("^" + Pattern::escaped(text) + "$");
        EXPECT_TRUE(pattern.occursIn(text)) << text;
        EXPECT_FALSE(pattern.occursIn(text + "x")) << text;
        if (!text.empty()) {
            EXPECT_EQ(Pattern("[" + Pattern::escaped(text) + "]").matchCount(utf16(text)),
                      utf16(text).size() - (text == "ä😀" ? 1 : 0))
                << text;
        }
    }
    EXPECT_FALSE(Pattern(Pattern::escaped("a.b")).occursIn("axb"));
}

TEST(Pattern, RefusesWhatDoesNotCompile) {
    for (const std::string_view bad : {"(", "[", "a{2", "\\", "(?<=a*)b", "*"}) {
        EXPECT_FALSE(Pattern::compile(bad).has_value()) << bad;
    }
    EXPECT_TRUE(Pattern::compile("a+")->occursIn("caat"));
    EXPECT_DEATH(Pattern("("), "broken assumption");
}

TEST(Pattern, GivesUpOnCatastrophicBacktrackingAndKeepsWhatItFound) {
    const Pattern pattern("x|(a+)+$");
    const std::u16string text = u"x" + std::u16string(5000, u'a') + u"b";
    EXPECT_EQ(ranges(pattern.matches(text)), (std::vector<TextRange>{{0, 1}}));
    const std::string utf8Text = utf8(text);
    EXPECT_EQ(pattern.replacingAll(utf8Text, "y"), "y" + utf8Text.substr(1));
}

TEST(Pattern, FinishesHonestWorkOnALongText) {
    std::u16string text;
    for (int i = 0; i < 100'000; ++i) text += u"some (words) and [[a link|with text]] here\n";
    EXPECT_EQ(Pattern("\\[\\[([^\\]|]*?)\\|(.*?)\\]\\]").matchCount(text), 100'000U);
    EXPECT_EQ(Pattern("(?s).*").firstMatch(text)->range().length, text.size());
}

TEST(Pattern, IsSharedBetweenThreads) {
    static const Pattern pattern("(\\d+)-(\\d+)");
    std::vector<std::thread> threads;
    std::vector<int> found(4);
    for (std::size_t i = 0; i < found.size(); ++i) {
        threads.emplace_back([&found, i] {
            const Pattern copy = pattern;
            for (int round = 0; round < 500; ++round) {
                const std::string text = "a" + std::to_string(round) + "-" + std::to_string(i);
                if (copy.firstGroups(text)->at(2) == std::to_string(i)) ++found[i];
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(found, (std::vector<int>{500, 500, 500, 500}));
}

}  // namespace
}  // namespace vesk
