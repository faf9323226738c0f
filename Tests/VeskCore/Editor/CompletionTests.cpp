#include "MarkedText.h"
#include "VeskCore/Editor/Completion.h"

namespace vesk::test {
namespace {

using namespace Completion;

std::string shown(const char* marked) {
    const MarkedText before(marked);
    const auto prefix = prefixAt(before.text, before.selection.location);
    if (!prefix) return "none";
    const char* kinds[] = {"note", "heading", "tag"};
    std::string result = kinds[static_cast<int>(prefix->kind)];
    result += " " + utf8(prefix->typed);
    if (prefix->kind == Prefix::Kind::heading) result += " of " + utf8(prefix->note);
    return result;
}

TEST(Completion, KnowsWhatIsTyped) {
    const struct {
        const char *text, *expected;
    } rows[] = {
        {"see [[No‸", "note No"},
        {"[[‸", "note "},
        {"[[a]] [[b‸]] x", "note b"},
        {"[[a‸ [[b]]", "note a"},
        {"![[pic‸]]", "note pic"},
        {"[[Note#Head‸", "heading Head of Note"},
        {"[[#‸]]", "heading  of "},
        {"[[Note#^a‸", "none"},
        {"[[Note|al‸ias]]", "none"},
        {"[[a]]‸", "none"},
        {"[a‸", "none"},
        {"[[a\nb‸", "none"},
        {"`[[a‸`", "none"},
        {"```\n[[a‸", "none"},
        {"---\na: [[b‸\n---\n", "none"},
        {"see #ta‸g", "tag ta"},
        {"(#ä/b‸", "tag ä/b"},
        {"x #‸", "tag "},
        {"#‸", "none"},
        {"#a‸", "tag a"},
        {"a#b‸", "none"},
        {"http://x/#b‸", "none"},
        {"[[a|#b‸", "none"},
        {"`#a‸`", "none"},
    };
    for (const auto& row : rows) EXPECT_EQ(shown(row.text), row.expected) << row.text;
}

TEST(Completion, PutsTheChosenOneIn) {
    const struct {
        const char *text, *chosen, *expected;
    } rows[] = {
        {"a [[No‸ b", "Novel", "a [[Novel]]‸ b"},           {"a [[No‸te]] b", "Novel", "a [[Novel]]‸ b"},
        {"[[No‸te|alias]]", "Novel", "[[Novel‸|alias]]"},   {"[[No‸te#Part]]", "Novel", "[[Novel‸#Part]]"},
        {"[[Note#P‸art|x]]", "Other", "[[Note#Other‸|x]]"}, {"[[No‸ [[b]]", "Novel", "[[Novel]]‸ [[b]]"},
        {"see #ta‸x y", "tag/sub", "see #tag/sub‸ y"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(after(row.text,
                        [&](std::u16string_view text, TextRange selection) -> std::optional<TextEdit> {
                            const auto prefix = prefixAt(text, selection.location);
                            if (!prefix) return std::nullopt;
                            return insertion(text, *prefix, utf16(row.chosen));
                        }),
                  row.expected);
    }
}

TEST(Completion, RanksCandidates) {
    const Candidates candidates({{"Garden", 1},
                                 {"Rose garden", 5},
                                 {"Gardening", 9},
                                 {"garden", 0},
                                 {"Grey dancing bear den", 3},
                                 {"Gärten", 0},
                                 {"Ungardened", 2},
                                 {"Notes", 7}});
    const auto best = [&](const char* typed, std::size_t limit) {
        std::string result;
        for (const std::size_t index : candidates.matching(typed, limit))
            result += candidates[index].text + ";";
        return result;
    };
    EXPECT_EQ(best("garden", 9), "Garden;garden;Gardening;Rose garden;Grey dancing bear den;Ungardened;");
    EXPECT_EQ(best("garden", 2), "Garden;garden;");
    EXPECT_EQ(best("GART", 9), "Gärten;") << "case and accents don't matter";
    EXPECT_EQ(best("", 3), "Gardening;Notes;Rose garden;") << "the latest first";
    EXPECT_EQ(best("xyz", 9), "");
}

}  // namespace
}  // namespace vesk::test
