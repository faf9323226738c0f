#include <gtest/gtest.h>

#include "StyledText.h"
#include "VeskCore/Editor/MarkdownHighlighter.h"

namespace vesk {
namespace {

using test::InMemoryAttributedText;
using test::shown;

/// A highlighter at work on a text.
struct Note {
    explicit Note(std::u16string text, std::optional<TextRange> caret = {}) : storage(std::move(text)) {
        storage.setDidEdit([this](TextRange edited, std::ptrdiff_t delta) {
            passes.clear();
            highlighter.didProcessEditing(storage, edited, delta);
        });
        highlighter.didShow = [this](TextRange range) { passes.push_back(range); };
        highlighter.reveal(caret, storage);
        restyle();
    }
    void restyle() { highlighter.highlight(storage, {0, storage.text().size()}, false); }
    bool moveCaret(std::size_t offset) {
        passes.clear();
        return highlighter.reveal(TextRange{offset, 0}, storage);
    }
    std::string pass(std::size_t number) const {
        return std::to_string(passes.at(number).location) + "+" + std::to_string(passes.at(number).length);
    }
    std::string all() const { return shown(storage); }

    InMemoryAttributedText storage;
    MarkdownHighlighter highlighter;
    std::vector<TextRange> passes;
};

TEST(MarkdownHighlighter, StylesEachKindOfLine) {
    struct Row {
        std::u16string text;
        std::string away, inside;
    };
    const Row rows[] = {
        {u"# Title\n", "[# ]hidden [Title\\n]26 bold", "[# ]26 bold faint [Title\\n]26 bold"},
        {u"## Two", "[## ]hidden [Two]21 bold", "[## ]21 bold faint [Two]21 bold"},
        {u" ### a", "[ ### ]hidden [a]18 semibold", "[ ### ]18 semibold faint [a]18 semibold"},
        {u"#### a", "[#### ]hidden [a]16 semibold", "[#### ]16 semibold faint [a]16 semibold"},
        {u"##### a", "[##### ]hidden [a]15 semibold", "[##### ]15 semibold faint [a]15 semibold"},
        {u"###### a", "[###### ]hidden [a]semibold", "[###### ]semibold faint [a]semibold"},
        {u"####### a", "[####### a]", "[####### a]"},
        {u"- a", "[- ]accent [a]", "[- ]accent [a]"},
        {u"  12) a\n", "[  12) ]accent [a\\n]", "[  12) ]accent [a\\n]"},
        {u"- [ ] open", "[- [ ] ]accent [open]", "[- [ ] ]accent [open]"},
        {u"- [x] a **b**\n",
         "[- [x] ]accent [a ]faint struck [**]hidden struck [b]bold faint struck "
         "[**]hidden struck [\\n]faint struck",
         "[- [x] ]accent [a **]faint struck [b]bold faint struck [**\\n]faint struck"},
        {u"> q **b**",
         "[> ]hidden indent 16 [q ]faint indent 16 [**]hidden indent 16 "
         "[b]bold faint indent 16 [**]hidden indent 16",
         "[> q **]faint indent 16 [b]bold faint indent 16 [**]faint indent 16"},
        {u" >q", "[ >]hidden indent 16 [q]faint indent 16", "[ >q]faint indent 16"},
        {u"> [!TIP] t\n", "[> ]hidden indent 16 [[!TIP]]accent indent 16 [ t\\n]faint indent 16",
         "[> ]faint indent 16 [[!TIP]]accent indent 16 [ t\\n]faint indent 16"},
        {u"a\n***\n", "[a\\n] [***\\n]faint", "[a\\n] [***\\n]faint"},
        {u"```c\nx *y*\n~~~\n*z*", "[```c\\n]hidden [x *y*\\n]mono [~~~\\n*]hidden [z]italic [*]hidden",
         "[```c\\n]mono faint [x *y*\\n]mono [~~~\\n]mono faint [*]faint [z]italic [*]faint"},
        {u"---\na: *b*\n---\n*z*", "[---\\na: *b*\\n---\\n]faint [*]hidden [z]italic [*]hidden",
         "[---\\na: *b*\\n---\\n*]faint [z]italic [*]faint"},
        {u"", "", ""},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(Note(row.text).all(), row.away);
        EXPECT_EQ(Note(row.text, TextRange{0, row.text.size()}).all(), row.inside);
    }
}

TEST(MarkdownHighlighter, StylesInsideLines) {
    struct Row {
        std::u16string text;
        std::string expected;
    };
    const Row rows[] = {
        {u"a **b *c* d** e", "[a **b ] [*]hidden [c]italic [*]hidden [ d** e]"},
        {u"# a ==b== `c`",
         "[# ]hidden [a ]26 bold [==]hidden [b]26 bold on highlight [==]hidden [ ]26 bold [`]hidden on code "
         "[c]mono on code [`]hidden on code"},
        {u"~~a~~ ==b==", "[~~]hidden [a]struck [~~]hidden [ ] [==]hidden [b]on highlight [==]hidden"},
        {u"`a *b*`", "[`]hidden on code [a *b*]mono on code [`]hidden on code"},
        {u"![[p.png]] #tag", "[![[]hidden [p.png]accent []]]hidden [ ] [#tag]accent"},
        {u"see ![x](y) [a](b)",
         "[see ] [![]hidden [x]accent [](y)]hidden [ ] [[]hidden [a]accent [](b)]hidden"},
        {u"- ***x***", "[- ]accent [*] [**]hidden [x]bold [**]hidden [*]"},
        {u"<b>a *b*</b> <br>", "[<b>]hidden [a ]bold [*]hidden [b]bold italic [*</b>]hidden [ ] [<br>]faint"},
        {u"<u>a</u><s>b</s><sup>c</sup><sub>d</sub>",
         "[<u>]hidden [a]underlined [</u><s>]hidden [b]struck [</s><sup>]hidden [c]10.5 raised "
         "[</sup><sub>]hidden [d]10.5 lowered [</sub>]hidden"},
        {u"<span style=\"color: navy; background: #ff0\">a</span>",
         "[<span style=\"color: navy; background: #ff0\">]hidden [a]rgb(0,0,0.5019607843137255) on "
         "rgb(1,1,0) [</span>]hidden"},
        {u"## x <code>y</code>", "[## ]hidden [x ]21 bold [<code>]hidden [y]mono 19.5 bold [</code>]hidden"},
        {u"<h3>a</h3>", "[<h3>]hidden [a]18 semibold [</h3>]hidden"},
        {u"<!-- x -->", "[<!-- x -->]hidden"},
    };
    for (const Row& row : rows) EXPECT_EQ(Note(row.text).all(), row.expected);
}

TEST(MarkdownHighlighter, ShowsATableAsAGridOrAsSource) {
    const std::u16string text = u"a|b\n-|-\n\\|c|`d`\nx";
    Note note(text);
    const std::string source =
        "[a] [|]hidden [b\\n] [-|-]hidden [\\n] [\\]hidden [|c] [|]hidden [`]hidden on code [d]mono on code "
        "[`]hidden on code [\\nx]";
    EXPECT_EQ(note.all(), source);
    EXPECT_TRUE(note.moveCaret(13));
    EXPECT_EQ(note.all(),
              "[a] [|]faint [b\\n] [-|-]faint [\\n] [\\]faint [|c] [|]faint [`]mono faint on code "
              "[d]mono on code [`]mono faint on code [\\nx]")
        << "the caret in one row shows the source of all";
    EXPECT_TRUE(note.moveCaret(17)) << "it leaves a table";
    EXPECT_EQ(note.all(), source);
    EXPECT_FALSE(note.moveCaret(17));

    bool focused = true;
    note.highlighter.isFocused = [&] { return focused; };
    note.highlighter.gridLayout = [](const MarkdownTable& table) {
        return table.columnCount() == 2 ? std::optional(MarkdownTableGrid::Layout{}) : std::nullopt;
    };
    const auto tables = MarkdownTable::tables(text);
    note.highlighter.restyleTables(tables, note.storage);
    const std::string grid = "[a|b\\n-|-\\n\\|c|`d`\\n]hidden [x]";
    EXPECT_EQ(note.all(), grid);
    note.moveCaret(9);
    EXPECT_EQ(note.all().substr(0, 14), "[a] [|]faint [");
    focused = false;
    note.highlighter.restyleTables(tables, note.storage);
    EXPECT_EQ(note.all(), grid) << "without the keyboard nothing is revealed";
    note.storage.edit({10, 7}, u"");
    EXPECT_EQ(note.all(), "[a|b\\n-|-\\n]hidden [\\|]") << "an escaped pipe makes no row";
    note.highlighter.restyleTables(tables, note.storage);  // it no longer fits

    EXPECT_EQ(
        Note(u"a  |b\n---|-\n*c*|d").all(),
        "[a  ]mono [|]hidden [b\\n]mono [---|-]hidden [\\n]mono [*]hidden [c]mono italic [*|]hidden [d]mono")
        << "columns that are in line stay so";
}

TEST(MarkdownHighlighter, ShowsMarkersWhereTheCaretIs) {
    Note note(u"*a*\n*b*\n\n", TextRange{1, 0});
    EXPECT_EQ(note.all(), "[*]faint [a]italic [*]faint [\\n] [*]hidden [b]italic [*]hidden [\\n\\n]");
    note.moveCaret(7);
    EXPECT_EQ(note.all(), "[*]hidden [a]italic [*]hidden [\\n] [*]faint [b]italic [*]faint [\\n\\n]");
    EXPECT_EQ(note.pass(0), "0+4");
    EXPECT_EQ(note.pass(1), "4+4");
    note.moveCaret(4);
    EXPECT_EQ(note.passes.size(), 1U) << "the same line twice is one pass";
    note.moveCaret(9);
    EXPECT_EQ(note.all(), "[*]hidden [a]italic [*]hidden [\\n] [*]hidden [b]italic [*]hidden [\\n\\n]");
    note.highlighter.reveal(TextRange{2, 3}, note.storage);
    EXPECT_EQ(note.all(), "[*]faint [a]italic [*]faint [\\n] [*]faint [b]italic [*]faint [\\n\\n]");
    note.passes.clear();
    note.highlighter.reveal({}, note.storage);
    EXPECT_EQ(note.pass(0), "0+8");
    EXPECT_EQ(note.passes.size(), 1U);
    note.highlighter.reveal(TextRange{90, 1}, note.storage);
    EXPECT_EQ(note.passes.size(), 1U) << "a selection outside the text shows nothing";
}

TEST(MarkdownHighlighter, TellsWhetherTheLayoutChanged) {
    Note note(u"> *a*\nb");
    const TextRange first{0, 5};
    EXPECT_FALSE(note.highlighter.highlight(note.storage, first, true));
    EXPECT_TRUE(note.highlighter.highlight(note.storage, first, false));
    note.storage.setAttributes(first, {{first, {}}}, false);
    EXPECT_TRUE(note.highlighter.highlight(note.storage, first, true)) << "markers went";
    EXPECT_EQ(note.all(), "[> *]hidden [a]italic faint [*]hidden [\\n]faint indent 16 [b]")
        << "the indent is preserved as it stood";
    EXPECT_EQ(MarkdownHighlighter::shownPieces(note.storage, {0, 7}),
              (std::vector<TextRange>{{3, 1}, {5, 2}}));
}

TEST(MarkdownHighlighter, RestylesWhatAnEditCanHaveChanged) {
    struct Row {
        std::string name;
        std::u16string before;
        TextRange range;
        std::u16string replacement;
        std::string pass, after;
    };
    const Row rows[] = {
        {"a letter", u"a\n*b*\nc", {3, 0}, u"x", "2+5", "[a\\n] [*]faint [xb]italic [*]faint [\\nc]"},
        {"a fence opens", u"a\n``\n*b*\nc", {4, 0}, u"`", "2+9", "[a\\n] [```\\n]mono faint [*b*\\nc]mono"},
        {"a fence closes to nothing",
         u"a\n```\n*b*\nc",
         {2, 1},
         u"",
         "2+8",
         "[a\\n``\\n] [*]hidden [b]italic [*]hidden [\\nc]"},
        {"a word behind the fence's signs",
         u"```\n*b*\n```\n*c*",
         {3, 0},
         u"c",
         "0+5",
         "[```c\\n]mono faint [*b*\\n]mono [```\\n*]hidden [c]italic [*]hidden"},
        {"the frontmatter breaks",
         u"---\n*a*\n---\n*b*",
         {8, 1},
         u"",
         "0+11",
         "[---\\n]faint [*]hidden [a]italic [*]hidden [\\n--\\n] [*]hidden [b]italic [*]hidden"},
        {"the frontmatter comes",
         u"---\n*a*\n--\n*b*",
         {8, 0},
         u"-",
         "0+12",
         "[---\\n*a*\\n---\\n]faint [*]hidden [b]italic [*]hidden"},
        {"a fence leaves the frontmatter",
         u"---\n```\n---\n*b*",
         {0, 0},
         u"\n",
         "0+16",
         "[\\n] [---\\n]faint [```\\n]hidden [---\\n*b*]mono"},
        {"a line splits", u"# ab", {3, 0}, u"\n", "0+5", "[# ]26 bold faint [a\\n]26 bold [b]"},
        {"lines join",
         u"# a\n*b*\nc",
         {3, 1},
         u"",
         "0+7",
         "[# ]26 bold faint [a]26 bold [*]26 bold faint [b]26 bold italic [*]26 bold faint [\\n]26 bold [c]"},
        {"a table loses its header", u"x\na|b\n-|-\nc|d\ny", {3, 1}, u"", "2+11", "[x\\nab\\n-|-\\nc|d\\ny]"},
        {"a table comes",
         u"a|b\n-|\nc|d\ny",
         {6, 0},
         u"-",
         "0+12",
         "[a]mono [|]mono faint [b\\n]mono [-|-]mono faint [\\nc]mono [|]mono faint [d\\n]mono [y]"},
        {"all goes", u"# a", {0, 3}, u"", "", ""},
    };
    for (const Row& row : rows) {
        Note note(row.before);
        note.storage.edit(row.range, row.replacement);
        EXPECT_EQ(note.passes.empty() ? "" : note.pass(0), row.pass) << row.name;
        EXPECT_EQ(note.all(), row.after) << row.name;
    }
}

TEST(MarkdownHighlighter, RestylesTheLineThatLosesTheCaret) {
    Note note(u"*a*\nb\n\nc", TextRange{0, 0});
    note.storage.edit({7, 1}, u"*d*");
    EXPECT_EQ(note.all(), "[*]hidden [a]italic [*]hidden [\\nb\\n\\n] [*]faint [d]italic [*]faint");
    EXPECT_EQ(note.highlighter.revealRange(), (TextRange{7, 3}));
    note.storage.edit({5, 1}, u"x\ny\n");
    EXPECT_EQ(note.highlighter.revealRange(), std::nullopt) << "an edit over two paragraphs";
    EXPECT_EQ(note.all(), "[*]hidden [a]italic [*]hidden [\\nbx\\ny\\n\\n] [*]hidden [d]italic [*]hidden");
}

TEST(MarkdownHighlighter, HidesAFirstHeadingThatRepeatsTheTitle) {
    Note note(u"---\nk: v\n---\n\n#  My STRASSE \n# my straße\n");
    note.highlighter.titleHeading = " my straße";
    note.restyle();
    const std::string hidden =
        "[---\\nk: v\\n---\\n]faint [\\n] [#  My STRASSE \\n# ]hidden [my straße\\n]26 bold";
    EXPECT_EQ(note.all(), hidden);
    EXPECT_EQ(note.storage.cleared.back(), (TextRange{14, 17}));
    note.moveCaret(16);
    EXPECT_EQ(note.all(),
              "[---\\nk: v\\n---\\n]faint [\\n] [# ]26 bold faint [ My STRASSE \\n]26 bold [# ]hidden [my "
              "straße\\n]26 bold");
    note.moveCaret(13);
    EXPECT_EQ(note.all(), hidden);
    note.storage.edit({13, 0}, u"x");
    EXPECT_EQ(note.all(),
              "[---\\nk: v\\n---\\n]faint [x\\n] [# ]hidden [ My STRASSE \\n]26 bold [# ]hidden [my "
              "straße\\n]26 bold")
        << "it is no longer the first line";
    note.storage.edit({13, 1}, u"");
    EXPECT_EQ(note.all(), hidden);
    note.storage.edit({15, 0}, u"#");
    EXPECT_EQ(note.all(),
              "[---\\nk: v\\n---\\n]faint [\\n] [## ]21 bold faint [ My STRASSE \\n]21 bold [# ]hidden [my "
              "straße\\n]26 bold")
        << "level 2 is no title";
}

TEST(MarkdownHighlighter, ShowsTheFormerTitleWhenTheFrontmatterBreaks) {
    Note note(u"---\n# t\n---\n# t\n");
    note.highlighter.titleHeading = "t";
    note.restyle();
    EXPECT_EQ(note.all(), "[---\\n# t\\n---\\n]faint [# t\\n]hidden");
    note.storage.edit({0, 4}, u"");
    EXPECT_EQ(note.all(), "[# ]26 bold faint [t\\n]26 bold [---\\n]faint [# ]hidden [t\\n]26 bold");
    note.moveCaret(4);
    EXPECT_EQ(note.all(), "[# t\\n]hidden [---\\n]faint [# ]hidden [t\\n]26 bold");
}

TEST(MarkdownHighlighter, LeavesALongLineAsItIs) {
    const std::u16string fill(4992, u'x');
    Note note(u"```" + fill + u"\n*a*\n");  // 4,996 units with the end
    EXPECT_EQ(note.storage.runs().back().attributes.font.family, TextAttributes::FontFamily::mono);
    note.storage.edit({3, 0}, u"12345");
    EXPECT_EQ(note.all(), "[```12345" + std::string(4992, 'x') + "\\n] [*]hidden [a]italic [*]hidden [\\n]");
    note.storage.edit({3, 1}, u"");
    EXPECT_EQ(note.all(), "[```2345" + std::string(4992, 'x') + "\\n]mono faint [*a*\\n]mono");

    Note ended(u"*a*" + std::u16string(4996, u'x') + u"\r\n");  // one unit too many
    EXPECT_EQ(ended.storage.runs().size(), 1U);
    ended.storage.edit({5000, 0}, u"x");
    EXPECT_EQ(ended.all().substr(0, 24), "[*]hidden [a]italic [*]h") << "the CR ends the line alone";
}

}  // namespace
}  // namespace vesk
