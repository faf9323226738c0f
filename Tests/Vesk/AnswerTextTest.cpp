#include <gtest/gtest.h>

#include <random>

#include "Vesk/AI/AnswerText.h"
#include "Vesk/AI/Citations.h"
#include "VeskCore/Support/Unicode.h"

namespace vesk::test {
namespace {

/// "bold[two]", "link:Note[name]" for the runs, with the plain text between them.
std::string told(const AnswerLine& line) {
    std::string out;
    std::size_t at = 0;
    for (const auto& run : line.runs) {
        out += line.text.substr(at, run.range.location - at);
        at = run.range.end();
        if (run.bold) out += "bold ";
        if (run.italic) out += "italic ";
        if (run.struck) out += "struck ";
        if (run.highlighted) out += "marked ";
        if (run.code) out += "code ";
        if (run.link) out += (run.link->kind == AnswerLink::Kind::note ? "note:" : "to:") + run.link->target;
        out += "[" + line.text.substr(run.range.location, run.range.length) + "]";
    }
    return out + line.text.substr(at);
}

std::string told(const AnswerBlock& block) {
    using Kind = AnswerBlock::Kind;
    switch (block.kind) {
        case Kind::paragraph:
            return "p " + told(block.line);
        case Kind::heading:
            return "h" + std::to_string(block.level) + " " + told(block.line);
        case Kind::item:
            return std::to_string(block.level) + " " +
                   (block.done ? (*block.done ? "done" : "open") : block.marker) + " " + told(block.line);
        case Kind::quote:
            return "quote " + told(block.line);
        case Kind::code:
            return (block.continues ? "more " : "code ") + told(block.line);
        case Kind::divider:
            return "divider";
        case Kind::table:
            break;
    }
    std::string out = "table";
    for (const auto& row : block.rows) {
        out += " /";
        for (const auto& cell : row) out += " " + told(cell);
    }
    return out;
}

std::vector<std::string> told(const AnswerText& text) {
    std::vector<std::string> out;
    for (const auto& block : text.blocks()) out.push_back(told(block));
    return out;
}

struct ReplyCase {
    const char* name;
    std::string reply;
    std::vector<std::string> blocks;
};

class Replies : public ::testing::TestWithParam<ReplyCase> {};

TEST_P(Replies, AreTakenApart) {
    AnswerText text;
    text.update(GetParam().reply);
    EXPECT_EQ(told(text), GetParam().blocks);
}

// Whatever the pieces a reply comes in, it reads in the end as if it had come whole.
TEST_P(Replies, ReadTheSameHoweverTheyComeIn) {
    const auto& reply = GetParam().reply;
    for (std::size_t step = 1; step < 6; ++step) {
        AnswerText text;
        std::vector<std::string> known;
        for (std::size_t at = 0; at <= reply.size(); at += step) {
            const auto prefix = utf8(utf16(std::string_view(reply).substr(0, at)));
            const auto first = text.update(prefix);
            const auto now = told(text);
            for (std::size_t index = 0; index < first; ++index)
                ASSERT_EQ(now.at(index), known.at(index)) << "a settled block changed at byte " << at;
            known = now;
        }
        text.update(reply);
        EXPECT_EQ(told(text), GetParam().blocks) << "in pieces of " << step;
    }
}

INSTANTIATE_TEST_SUITE_P(
    AnswerText, Replies,
    ::testing::Values(
        ReplyCase{"Styles",
                  "One **two** and *three*, `four` ~~five~~ ==six==.",
                  {"p One bold [two] and italic [three], code [four] struck [five] marked [six]."}},
        ReplyCase{"Paragraphs", "One\ntwo\n\nthree", {"p One\ntwo", "p three"}},
        ReplyCase{"Lists",
                  "Then:\n- one\n  - **inner**\n3. third\n- [x] did\n- [ ] do\n",
                  {"p Then:", "0 • one", "1 • bold [inner]", "0 3. third", "0 done did", "0 open do"}},
        ReplyCase{"HeadingsQuotesDividers",
                  "## Plan\n> said *so*\n> again\n\n---\nafter",
                  {"h2 Plan", "quote said italic [so]\nagain", "divider", "p after"}},
        ReplyCase{"Links",
                  "See [[Garden calendar]], [[Plan|the plan]] and [here](https://example.org/a).",
                  {"p See note:Garden calendar[Garden calendar], note:Plan[the plan] and "
                   "to:https://example.org/a[here]."}},
        ReplyCase{"LinksThatStartProgramsAreNone",
                  "[run](file:///usr/bin/true) [it](javascript:x) [note](Folder/Note.md)",
                  {"p run it note:Folder/Note.md[note]"}},
        ReplyCase{"Code",
                  "Before\n```sh\nls *\n\n# no heading\n```\nafter",
                  {"p Before", "code ls *\n\n# no heading", "p after"}},
        ReplyCase{"CodeThatNeverEnds", "```\none\ntwo", {"code one\ntwo"}},
        ReplyCase{"Table",
                  "| A | B |\n|---|---|\n| *1* | x\\|y |\n\nafter",
                  {"table / A B / italic [1] x|y", "p after"}},
        ReplyCase{"Nested", "**a [[b]] c**", {"p bold [a ]bold note:b[b]bold [ c]"}},
        ReplyCase{"Umlauts", "Übung: **Größe** 😀 *é*", {"p Übung: bold [Größe] 😀 italic [é]"}},
        ReplyCase{"Nothing", "\n \n", {}}),
    [](const auto& row) { return std::string(row.param.name); });

TEST(AnswerTextLimits, LongCodeStandsInPiecesThatJoin) {
    std::string reply = "```\n";
    for (int line = 0; line < 95; ++line) reply += "line\n";
    AnswerText text;
    text.update(reply);
    ASSERT_EQ(text.blocks().size(), 3u);
    EXPECT_FALSE(text.blocks()[0].continues);
    EXPECT_TRUE(text.blocks()[1].continues);
    EXPECT_TRUE(text.blocks()[2].continues);
    // What comes now touches the last piece only.
    EXPECT_EQ(text.update(reply + "more\n"), 2u);
    EXPECT_TRUE(text.blocks()[2].line.text.ends_with("line\nmore"));
}

TEST(AnswerTextLimits, ATextThatWasReplacedIsReadAfresh) {
    AnswerText text;
    text.update("One\n\ntwo\n\nthree");
    EXPECT_EQ(text.update("Other\n\nwords"), 0u);
    EXPECT_EQ(told(text), (std::vector<std::string>{"p Other", "p words"}));
}

TEST(AnswerTextLimits, ANulIsShownInsteadOfEndingTheText) {
    AnswerText text;
    text.update(std::string_view("a\0b", 3));
    EXPECT_EQ(told(text), (std::vector<std::string>{"p a\uFFFDb"}));
}

// The panel lists what an answer was drawn from by note.
TEST(CitationsTest, GroupByNoteInTheOrderTheyCame) {
    const auto found = Citations::notes({
        {.notePath = "b.md", .noteTitle = "B", .ordinal = 0, .text = "Trail > Deep\n\n- **First** words"},
        {.notePath = "a.md", .noteTitle = "A", .ordinal = 4, .text = "# Only a heading"},
        {.notePath = "b.md", .noteTitle = "B", .ordinal = 1, .text = "later"},
        {.notePath = "p.html", .noteTitle = "P", .ordinal = 0, .text = "A sentence.\n\nAnother."},
        {.notePath = "current note", .noteTitle = "", .ordinal = 0, .text = "typed"},
    });
    ASSERT_EQ(found.size(), 3u);
    EXPECT_EQ(found[0].path, "b.md");
    EXPECT_EQ(found[0].excerpt, "First words");
    EXPECT_EQ(found[0].passages, 2);
    EXPECT_EQ(found[1].excerpt, "Only a heading");
    EXPECT_EQ(found[2].excerpt, "A sentence.");
    EXPECT_EQ(found[2].documentLabel, "web page");
}

TEST(CitationsTest, FindThePassageInTheNoteAsItStands) {
    const std::string note = "---\nx: 1\n---\n# Größe\n\nFirst paragraph here.\nIts second line stands.\n";
    struct {
        const char* name;
        std::string passage;
        std::optional<TextRange> expected;
    } rows[] = {
        {"whole", "First paragraph here.\nIts second line stands.", TextRange{22, 45}},
        {"behind its trail", "Größe > Part\n\nFirst paragraph here.\nIts second line stands.",
         TextRange{22, 45}},
        {"changed since", "First paragraph was.\nIts second line stands.\n", TextRange{44, 23}},
        {"gone", "Nothing of this is there.", std::nullopt},
        {"empty", "", std::nullopt},
    };
    for (const auto& row : rows) EXPECT_EQ(Citations::passage(note, row.passage), row.expected) << row.name;
}

}  // namespace
}  // namespace vesk::test
