#include <gtest/gtest.h>

#include "VeskCore/Brain/ChatRewrite.h"
#include "VeskCore/Brain/NoteEdit.h"
#include "VeskCore/Brain/NoteRefinement.h"

namespace vesk::test {
namespace {

using Text = std::optional<std::string>;

TEST(ChatRewrites, ComeFromTheFirstClosedBlock) {
    struct Row {
        std::string_view name, reply;
        Text extracted;
        std::string_view rest;
    };
    const Row rows[] = {
        {"a block", "Shorter now.\n\n```replacement\n# A\n\nb\n```", "# A\n\nb", "Shorter now."},
        {"words behind it", "One.\n```replacement\na\n```\nTwo.", "a", "One.\n\nTwo."},
        {"an empty block", "Gone.\n```replacement\n```", "", "Gone."},
        {"a blank line", "```replacement\n\n```", "", ""},
        {"more on the opening line", "```replacement markdown\na\n```", "a", ""},
        {"never closed", "So:\n```replacement\na\nb", std::nullopt, "So:"},
        {"no line end", "So: ```replacement", std::nullopt, "So:"},
        {"no block", "Just\n```\ncode\n```", std::nullopt, "Just\n```\ncode\n```"},
        {"a replacement that begins with code", "```replacement\n```swift\nlet a = 1\n```",
         "```swift\nlet a = 1", ""},
        {"blanks behind the fence of an empty block", "```replacement\n``` \nDone.", "", "Done."},
        {"the first of two", "```replacement\na\n```\n```replacement\nb\n```", "a", "```replacement\nb\n```"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(ChatRewrite::extract(row.reply), row.extracted) << row.name;
        EXPECT_EQ(ChatRewrite::removing(row.reply), row.rest) << row.name;
    }
    EXPECT_TRUE(ChatRewrite::looksLikeReplacement("x ```replacement"));
    EXPECT_FALSE(ChatRewrite::looksLikeReplacement("x ``` replacement"));
}

TEST(Refinements, UnwrapAnswers) {
    struct Row {
        std::string_view name, reply, expected;
    };
    const Row rows[] = {
        {"bare", "  # A\n\nb\n", "# A\n\nb"},
        {"one line", "```", "```"},
        {"a fence", "```\na\nb\n```", "a\nb"},
        {"a Markdown fence", "```Markdown \n\na\n\n```\n", "a"},
        {"code that is the note", "```swift\nlet a = 1\n```", "```swift\nlet a = 1\n```"},
        {"a sentence behind the fence", "```md\na\n```\n\nI kept every link.", "a"},
        {"two lines behind it", "```md\na\n```\nDone.\nKept all.", "a"},
        {"three lines behind it", "```md\na\n```\nb\nc\nd", "```md\na\n```\nb\nc\nd"},
        {"a list behind it", "```md\na\n```\n- b", "```md\na\n```\n- b"},
        {"a numbered list behind it", "```md\na\n```\n1. b", "```md\na\n```\n1. b"},
        {"a number without a blank behind it", "```md\na\n```\n1.5 times shorter.", "a"},
        {"a numbered list with a wide blank", "```md\na\n```\n1.\u3000b", "```md\na\n```\n1.\u3000b"},
        {"a numbered list in other digits", "```md\na\n```\n١. b", "```md\na\n```\n١. b"},
        {"a link behind it", "```md\na\n```\nSee [b](c.md).", "```md\na\n```\nSee [b](c.md)."},
        {"code inside the fence", "```md\na\n```\nb\n```\nDone.", "a\n```\nb"},
        {"a long line behind it",
         "```md\na\n```\n" /* 161 characters */
         "0123456789012345678901234567890123456789012345678901234567890123456789012345"
         "67890123456789012345678901234567890123456789012345678901234567890123456789012"
         "34567890",
         "```md\na\n```"
         "\n0123456789012345678901234567890123456789012345678901234567890123456789012345678901234"
         "5678901234567890123456789012345678901234567890123456789012345678901234567890"},
        {"never closed", "```md\na\nb", "```md\na\nb"},
    };
    for (const auto& row : rows) EXPECT_EQ(NoteRefinement::clean(row.reply), row.expected) << row.name;
}

TEST(Refinements, FindFilesOfANote) {
    using References = std::vector<NoteRefinement::FileReference>;
    struct Row {
        std::string_view name, text;
        References expected;
    };
    const Row rows[] = {
        {"an image", "a ![x](p.png) b", {{"p.png", 0}}},
        {"an image elsewhere", "![](https://a.b/c.png)", {{"https://a.b/c.png", 0}}},
        {"a file", "\n[plan](docs/plan.pdf \"The plan\")", {{"docs/plan.pdf", 1}}},
        {"angle brackets", "[x]( <a.pdf> )", {{"a.pdf", 0}}},
        {"a note", "[x](a.md) [y](b)", {}},
        {"an address", "[x](https://a.b/c.pdf) [y](mailto:a@b.pdf)", {}},
        {"an embed", "![[a b.png|300]] ![[c.pdf#page=2]] [[d.png]]", {{"a b.png", 0}, {"c.pdf", 0}}},
        {"a link in a label", "[a [b](c.pdf)", {{"c.pdf", 0}}},
        {"two in a row", "![](a.png)![](b.png)", {{"a.png", 0}, {"b.png", 0}}},
        {"unfinished", "![a](b.png ![[c ![](d.png)", {{"d.png", 0}}},
        {"words after the target", "[a](b.pdf c)", {}},
    };
    for (const auto& row : rows)
        EXPECT_EQ(NoteRefinement::fileReferences(row.text), row.expected) << row.name;
}

TEST(Refinements, PutLostFilesBack) {
    struct Row {
        std::string_view name, rewritten, original, expected;
    };
    const Row rows[] = {
        {"none lost", "New ![](a.png)", "Old\n![](a.png)", "New ![](a.png)"},
        {"below the surviving line", "# T\n\nNew words.\n\nEnd.", "# T\n\nOld words.\n\n![](a.png)\n\nEnd.",
         "# T\n\n![](a.png)\n\nNew words.\n\nEnd."},
        {"behind the paragraph", "Same line.\nMore.\n\nEnd.", "Same line.\n![](a.png)\n\nEnd.",
         "Same line.\nMore.\n![](a.png)\n\nEnd."},
        {"below a line that grew", "A longer line, and more of it.\n\nEnd", "A longer line\n\n![](a.png)\n",
         "A longer line, and more of it.\n\n![](a.png)\n\nEnd"},
        {"not below a short one", "Ab, and more\n\nEnd\n\nX", "Ab\n\n![](a.png)\n\nX",
         "Ab, and more\n\nEnd\n\nX\n\n![](a.png)"},
        {"two, in order", "Same line.\n\nEnd", "Same line.\n![](a.png)\n![](b.png)\n\nEnd",
         "Same line.\n![](a.png)\n![](b.png)\n\nEnd"},
        {"at the top", "New\n", "![](a.png)\nOld", "![](a.png)\nNew\n"},
        {"nothing to go by", "New", "Old\n![](a.png)", "New\n![](a.png)"},
        {"a file's name in the words", "New, see a.pdf", "Old [x](a.pdf)", "New, see a.pdf"},
        {"the last of equal lines", "Twice here\n\nTwice here\n\nEnd", "Twice here\n![[a.png]]",
         "Twice here\n\nTwice here\n![[a.png]]\n\nEnd"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(NoteRefinement::restoringFiles(row.rewritten, row.original), row.expected) << row.name;
    }
}

TEST(Refinements, ProposeOnlyWhatIsNew) {
    struct Row {
        std::string_view name, reply, original;
        Text expected;
    };
    const Row rows[] = {
        {"new", "New words", "\n\nOld words\n", "\n\nNew words\n"},
        {"other line breaks", "b", "\r\na\u2028", "\r\nb\u2028"},
        {"the same", "\n```\nSame\n```\n", "Same\n\n", std::nullopt},
        {"nothing", " \n", "Old", std::nullopt},
        {"an emptied fence", "```\n```", "Old", std::nullopt},
        {"all but a picture lost", "\n", "Old\n![](a.png)", "![](a.png)"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(NoteRefinement::proposal(row.reply, row.original), row.expected) << row.name;
}

TEST(Refinements, LeaveFrontmatterAside) {
    using Parts = std::pair<std::string_view, std::string_view>;
    struct Row {
        std::string_view text;
        Parts expected;
    };
    const Row rows[] = {
        {"", {"", ""}},
        {"a\nb", {"", "a\nb"}},
        {"---\nk: v\n---\n\n# A\n", {"---\nk: v\n---\n", "\n# A\n"}},
        {"---\nk: v\n---", {"---\nk: v\n---", ""}},
        {"---\nk: v\n", {"", "---\nk: v\n"}},
        {"---\r\nk: v\r\n---\r\na\n", {"", "---\r\nk: v\r\n---\r\na\n"}},
    };
    for (const auto& row : rows) EXPECT_EQ(NoteRefinement::split(row.text), row.expected) << row.text;
}

NoteEdit edit(std::string original, bool isSelection, Text atAsk, std::optional<std::size_t> location) {
    return {.id = "1",
            .notePath = "a.md",
            .noteTitle = "a",
            .action = "AI edit",
            .original = std::move(original),
            .replacement = "NEW",
            .isSelectionOnly = isSelection,
            .noteTextAtAsk = std::move(atAsk),
            .selectionLocation = location,
            .subjectDescription = {}};
}

TEST(NoteEdits, AreAppliedWhereTheyAreSafe) {
    const struct {
        std::string_view name;
        NoteEdit edit;
        std::string_view current;
        Text expected;
    } rows[] = {
        {"a whole note", edit("old", false, "old", {}), "anything", "NEW"},
        {"a note whose frontmatter was left out", edit("old\n", false, "---\nk: 1\n---\nold\n", {}),
         "---\nk: 1\nremind: 2026-01-01\n---\nolder\n", "---\nk: 1\nremind: 2026-01-01\n---\nNEW"},
        {"a note asked about with its frontmatter",
         edit("---\nk: 1\n---\nold", false, "---\nk: 1\n---\nold", {}), "---\nk: 1\n---\nold", "NEW"},
        {"the second of two, at its place", edit("b", true, "b a b", 4), "b a b", "b a NEW"},
        {"places in UTF-16 units", edit("b", true, "😀b b", 2), "😀b b", "😀NEW b"},
        {"inside a character", edit("😀", true, "😀😀", 1), "😀😀", std::nullopt},
        {"something else at its place", edit("b", true, "b a b", 2), "b a b", std::nullopt},
        {"a place behind the end", edit("b", true, "b", 7), "b", std::nullopt},
        {"nothing selected, at its place", edit("", true, "ab", 1), "ab", "aNEWb"},
        {"one occurrence in a changed note", edit("b", true, "b a", 0), "a b c", "a NEW c"},
        {"two occurrences in a changed note", edit("b", true, "b a", 0), "b a b", std::nullopt},
        {"occurrences that overlap", edit("aa", true, {}, {}), "aaa", std::nullopt},
        {"gone", edit("b", true, "b a", 0), "a c", std::nullopt},
        {"nothing selected in a changed note", edit("", true, "ab", 1), "abc", std::nullopt},
    };
    for (const auto& row : rows) EXPECT_EQ(row.edit.applied(row.current), row.expected) << row.name;
}

}  // namespace
}  // namespace vesk::test
