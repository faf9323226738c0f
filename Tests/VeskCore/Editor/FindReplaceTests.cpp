#include "MarkedText.h"
#include "VeskCore/Editor/FindReplace.h"

namespace vesk::test {
namespace {

using Query = Finder::Query;
using Replacement = Finder::Replacement;

/// The text with each match in angle brackets.
std::string shown(const Finder& finder, std::u16string text, std::optional<TextRange> within = {}) {
    const auto found = finder.all(text, within).ranges;
    for (auto range = found.rbegin(); range != found.rend(); ++range) {
        text.insert(range->end(), u">");
        text.insert(range->location, u"<");
    }
    return utf8(text);
}

TEST(FindReplace, FindsPlainTextAndExpressions) {
    const struct {
        const char* name;
        Query query;
        const char16_t* text;
        const char* expected;
    } rows[] = {
        {"case", {u"ab"}, u"ab AB aB", "<ab> <AB> <aB>"},
        {"matching case", {u"ab", false, true}, u"ab AB", "<ab> AB"},
        {"folding that changes the length", {u"STRASSE"}, u"Straße", "<Straße>"},
        {"not overlapping", {u"aa"}, u"aaaaa", "<aa><aa>a"},
        {"signs mean themselves", {u"a.*("}, u"axx a.*(", "axx <a.*(>"},
        {"no half character", {u"e"}, u"e\u0301e", "e\u0301<e>"},
        {"whole words", {u"ab", false, false, true}, u"ab abc _ab ab- 1ab", "<ab> abc _ab <ab>- 1ab"},
        {"whole words end in signs", {u"b!", false, false, true}, u"a b!c b!", "a <b!>c <b!>"},
        {"expression", {u"a+(b|c)", true}, u"aab ac A", "<aab> <ac> A"},
        {"expression on whole words", {u"a|ab", true, false, true}, u"ab a abc", "<ab> <a> abc"},
        {"lines", {u"^.", true}, u"ab\ncd\r\nef", "<a>b\n<c>d\r\n<e>f"},
        {"empty matches", {u"x*", true}, u"axb", "<>a<x><>b<>"},
        {"nothing", {u""}, u"abc", "abc"},
    };
    for (const auto& row : rows) EXPECT_EQ(shown(Finder(row.query), row.text), row.expected) << row.name;
    EXPECT_EQ(shown(Finder({u"a"}), u"a a a", TextRange{1, 3}), "a <a> a");
    EXPECT_EQ(shown(Finder({u"\\ba", true}), u"aa a a", TextRange{1, 4}), "aa <a> a")
        << "what stands outside the range is seen";
}

TEST(FindReplace, StepsThroughMatchesAndWraps) {
    const Finder finder({u"a"}), empty({u"^", true});
    const std::u16string text = u"a b a\na";
    const auto next = [&](TextRange from) { return finder.next(text, from); };
    using Step = Finder::Step;
    EXPECT_EQ(next({0, 0}), (Step{{0, 1}, false}));
    EXPECT_EQ(next({0, 1}), (Step{{4, 1}, false}));
    EXPECT_EQ(next({6, 1}), (Step{{0, 1}, true}));
    EXPECT_EQ(finder.previous(text, {4, 1}), (Step{{0, 1}, false}));
    EXPECT_EQ(finder.previous(text, {0, 1}), (Step{{6, 1}, true}));
    EXPECT_EQ(finder.next(text, {4, 1}, TextRange{0, 5}), (Step{{0, 1}, true})) << "within the selection";
    EXPECT_EQ(empty.next(text, {0, 0}), (Step{{6, 0}, false})) << "an empty match is left behind";
    EXPECT_EQ(Finder({u"z"}).next(text, {0, 0}), std::nullopt);
}

TEST(FindReplace, ReplacesAll) {
    const struct {
        const char* name;
        Query query;
        Replacement replacement;
        const char *text, *expected;
    } rows[] = {
        {"plain, no groups", {u"a"}, {u"$1\\n"}, "a‸ba", "$1\\n‸b$1\\n"},
        {"groups", {u"(\\w)(\\w)", true}, {u"$2$1$0"}, "ab‸cd", "baab‸dccd"},
        {"group and digit", {u"(.)", true}, {u"$12"}, "a‸", "a2‸"},
        {"named group", {u"(?<y>\\d+)", true}, {u"${y}!$"}, "‸1", "‸1!$"},
        {"escapes", {u"a", true}, {u"\\$1\\t\\\\\\n\\d"}, "a‸", "$1\t\\\n\\d‸"},
        {"group without a part", {u"a(x)?", true}, {u"[$1]"}, "a‸", "[]‸"},
        {"empty matches", {u"^", true}, {u"> "}, "‸a\nb", "> ‸a\n> b"},
        {"nothing put in", {u"a"}, {u""}, "xa‸ya", "x‸y"},
        {"case", {u"word"}, {u"term", true}, "«word Word WORD»", "«term Term TERM»"},
        {"case of one letter", {u"a"}, {u"ein", true}, "A‸ a", "Ein‸ ein"},
        {"capitals that were meant", {u"phone"}, {u"iPhone", true}, "phone‸", "iPhone‸"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(after(row.text,
                        [&](std::u16string_view text, TextRange selection) -> std::optional<TextEdit> {
                            const auto all = Finder(row.query).replaceAll(text, selection, row.replacement);
                            if (!all) return std::nullopt;
                            return all->edit;
                        }),
                  row.expected)
            << row.name;
    }
    const auto some = Finder({u"a"}).replaceAll(u"aaaa", {0, 0}, {u"b"}, TextRange{1, 2});
    ASSERT_TRUE(some);
    EXPECT_EQ(some->edit.applied(u"aaaa"), u"abba");
    EXPECT_EQ(some->count, 2u);
    EXPECT_EQ(Finder({u"z"}).replaceAll(u"a", {0, 0}, {u"b"}), std::nullopt);
}

TEST(FindReplace, ReplacesOneAndGoesOn) {
    const auto replace = [](const char* marked, Query query, Replacement replacement) {
        return after(marked, [&](std::u16string_view text, TextRange selection) {
            return Finder(query).replaceOne(text, selection, replacement);
        });
    };
    EXPECT_EQ(replace("‸a b a", {u"a"}, {u"xa"}), "«a» b a") << "first the match is shown";
    EXPECT_EQ(replace("«a» b a", {u"a"}, {u"xa"}), "xa b «a»");
    EXPECT_EQ(replace("xa b «a»", {u"a"}, {u"y"}), "x«a» b y");
    EXPECT_EQ(replace("«a»", {u"a"}, {u"b"}), "b‸");
    EXPECT_EQ(replace("«ab» ac", {u"a(?=b)\\w|ac", true}, {u"-"}), "- «ac»");
    EXPECT_EQ(replace("x‸", {u"a"}, {u"b"}), "none");
}

TEST(FindReplace, SaysWhatIsWrongWithAnExpression) {
    const auto said = [](const auto& work) -> std::string {
        try {
            work();
        } catch (const InvalidExpression& error) {
            return error.description();
        }
        return "";
    };
    const auto compile = [&](const char16_t* expression, bool words = false) {
        return said([&] { Finder({expression, true, false, words}); });
    };
    EXPECT_EQ(compile(u"(a"), "This expression can't be read: a parenthesis has no partner (character 2).");
    EXPECT_EQ(compile(u"a)(b", true),
              "This expression can't be read: a parenthesis has no partner (character 2).");
    EXPECT_EQ(compile(u"*a"),
              "This expression can't be read: a sign stands where it has no meaning (character 1).");
    EXPECT_EQ(compile(u"[a"), "This expression can't be read: a “[” isn't closed (character 2).");
    EXPECT_EQ(said([] {
                  Finder({u"a", true}).replaceAll(u"a", {0, 0}, {u"$1"});
              }),
              "The replacement names group 1, which the expression doesn't have.");
    EXPECT_EQ(said([] {
                  Finder({u"a", true}).replaceAll(u"a", {0, 0}, {u"${n}"});
              }),
              "The replacement names group “n”, which the expression doesn't have.");
}

TEST(FindReplace, GivesUpOnAnExpressionThatNeverEnds) {
    std::u16string text(200, u'a');
    text += u"!\nb";
    const auto found = Finder({u"(a+)+$|b", true}).all(text);
    EXPECT_FALSE(found.complete);
    const auto honest = Finder({u"a+", true}).all(text);
    EXPECT_TRUE(honest.complete);
    EXPECT_EQ(honest.ranges.size(), 1u);
}

}  // namespace
}  // namespace vesk::test
