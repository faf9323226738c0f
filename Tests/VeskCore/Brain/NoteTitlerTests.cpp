#include <gtest/gtest.h>

#include "VeskCore/Brain/NoteTitler.h"
#include "VeskCore/Brain/QuickAction.h"
#include "VeskCore/Brain/SlashCommand.h"

namespace vesk::test {
namespace {

using Text = std::optional<std::string>;

TEST(Titles, ComeFromANotesWords) {
    struct Row {
        std::string_view name, text, excerpt;
        bool enough;
    };
    const Row rows[] = {
        {"words", "The roses need pruning", "The roses need pruning", true},
        {"frontmatter and headings go", "---\nk: v\n---\n# Untitled\n\n## Plans\nThe roses\n", "The roses",
         false},
        {"headings stay alone", "# Untitled\n\n## Roses and lavender\n", "Roses and lavender", true},
        {"pictures and links", "![a](b.png) See [the plan](c.pdf) ![](d", "See the plan ![](d", false},
        {"a picture that is a link", "The roses [![a](b.png)](c.html) need [pruning](d)",
         "The roses  need pruning", true},
        {"labels in labels", "![a [b](c.png) roses [x [y](z)", "roses x [y", false},
        {"lists and boxes", "- [ ] buy soil\n  2) dig\n• plant\n-no list", "buy soil\ndig\nplant\n-no list",
         true},
        {"three words", "# Untitled\nonly three words", "only three words", true},
        {"11 letters", "abc def ghi jk", "abc def ghi jk", false},
        {"12 letters", "abc def ghi jkl", "abc def ghi jkl", true},
        {"other scripts", "庭のバラを剪定する計画です", "庭のバラを剪定する計画です", true},
        {"nothing", "# Untitled\n\n", "", false},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(NoteTitler::excerpt(row.text), row.excerpt) << row.name;
        EXPECT_EQ(NoteTitler::hasEnoughText(row.text), row.enough) << row.name;
    }
    EXPECT_EQ(NoteTitler::excerpt(std::string(2000, 'x')).size(), 1500U);
    EXPECT_EQ(NoteTitler::userMessage("x"), "Name this note.\n\nx");
}

TEST(Titles, AreTakenFromReplies) {
    struct Row {
        std::string_view name, reply;
        Text title;
    };
    const Row rows[] = {
        {"plain", "Pruning the roses", "Pruning the roses"},
        {"label and full stop", "Title: Pruning the roses.", "Pruning the roses"},
        {"dressed up", "\n\n## **“Pruning  the roses”**\n", "Pruning the roses"},
        {"a list", "1. Pruning the roses\n2. Roses", "Pruning the roses"},
        {"a bullet", "• Pruning the roses", "Pruning the roses"},
        {"a plus that is no bullet", "+ Pruning", "+ Pruning"},
        {"a box that is no list", "- [x] Pruning", "[x] Pruning"},
        {"an introduction", "Here is a title:\nPruning the roses!", "Pruning the roses"},
        {"a colon inside", "Roses: a plan", "Roses - a plan"},
        {"characters that files can't have", "Roses / lavender?", "Roses - lavender"},
        {"an echo, then a title", "The title only, no quotes\nRoses", "Roses"},
        {"an echo", "Reply with the title only: two to eight words, plain text.", std::nullopt},
        {"an echo of its end", "among a hundred others", std::nullopt},
        {"curly apostrophes", "In the note’s own language", std::nullopt},
        {"more than an echo", "Plain text formats", "Plain text formats"},
        {"punctuation alone", "。！？", std::nullopt},
        {"what it was called", "Untitled", std::nullopt},
        {"empty", " \n ", std::nullopt},
        {"81 characters",
         "Pruning the roses in the garden behind the house before the first frost of winters",
         "Pruning the roses in the garden behind the house before the first frost of"},
        {"80 characters", "Pruning the roses in the garden behind the house before the first frost of winte",
         "Pruning the roses in the garden behind the house before the first frost of winte"},
        {"one long word",
         std::string_view("xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx"
                          "xxxxxxxxxxxxxxxxxxxxx"),
         "xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx"},
    };
    for (const auto& row : rows) EXPECT_EQ(NoteTitler::parse(row.reply), row.title) << row.name;
}

TEST(SlashCommands, StandForTheScopesTheyBegin) {
    using Parsed = SlashCommand::Parsed;
    using Strings = std::vector<std::string>;
    const Strings commands{"vault", "note", "selection"};
    const struct {
        std::string_view text;
        std::optional<Parsed> parsed;
        Strings completions;
    } rows[] = {
        {"/note", Parsed{"note", "", false}, {"note"}},
        {"  /NO", Parsed{"note", "", false}, {"note"}},
        {"/s what now? ", Parsed{"selection", "what now?", true}, {}},
        {"/", std::nullopt, commands},
        {"/ x", std::nullopt, {}},
        {"/etc is a folder", std::nullopt, {}},
        {"note", std::nullopt, {}},
        {"a /note", std::nullopt, {}},
        {"/vault\n", Parsed{"vault", "", true}, {}},
        {"", std::nullopt, {}},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(SlashCommand::parse(row.text, commands), row.parsed) << row.text;
        EXPECT_EQ(SlashCommand::completions(row.text, commands), row.completions) << row.text;
    }
    EXPECT_EQ(SlashCommand::parse("/no", {"note", "notes"}), std::nullopt);
    EXPECT_EQ(SlashCommand::parse("/Note", {"notes", "note"}), (Parsed{"note", "", false}));
}

TEST(QuickActions, AreKnownByTheirNames) {
    for (const auto action : allQuickActions) EXPECT_EQ(quickAction(rawValue(action)), action);
    EXPECT_EQ(quickAction("delete"), std::nullopt);
    EXPECT_EQ(title(QuickAction::clarify), "Rewrite Clearly");
    EXPECT_FALSE(rewritesNote(QuickAction::summarise));
    EXPECT_TRUE(rewritesNote(QuickAction::deepen));
}

}  // namespace
}  // namespace vesk::test
