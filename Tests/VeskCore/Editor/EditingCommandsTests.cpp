#include "MarkedText.h"
#include "VeskCore/Editor/EditingCommands.h"

namespace vesk::test {
namespace {

using namespace EditingCommands;
using Kind = MarkdownBlock::Kind;

struct Row {
    const char* name;
    const char* text;
    const char* expected;
};

template <class Command, std::size_t count>
void expectRows(const Row (&rows)[count], Command command) {
    for (const Row& row : rows) EXPECT_EQ(after(row.text, command), row.expected) << row.name;
}

TEST(EditingCommands, ReturnGoesOnWithTheLine) {
    const Row rows[] = {
        {"paragraph", "ab‸c", "ab\n‸c"},
        {"bullet", "* item‸", "* item\n- ‸"},
        {"split", "- it‸em\nx", "- it\n- ‸em\nx"},
        {"at the start of the text", "- ‸item", "- \n- ‸item"},
        {"in front of the item", "‸- item", "\n‸- item"},
        {"in the marker", "1‸. item", "\n1‸. item"},
        {"ordered, renumbering what follows", "1. a‸\n2. b\n  7. x\n3. c\n\n4. d",
         "1. a\n2. ‸\n3. b\n  7. x\n4. c\n\n4. d"},
        {"what stands above keeps its numbers", "7. a\n7. b‸\n7. c", "7. a\n7. b\n8. ‸\n9. c"},
        {"parenthesis", "2) x‸", "2) x\n3. ‸"},
        {"wider number", "9. a‸\n10. b", "9. a\n10. ‸\n11. b"},
        {"nested ordered stops at the outer item", "1. a\n  1. b‸\n  2. c\n5. d",
         "1. a\n  1. b\n  2. ‸\n  3. c\n5. d"},
        {"task", "- [x] done‸", "- [x] done\n- [ ] ‸"},
        {"task split", "- [x] do‸ne", "- [x] do\n- [ ] ‸ne"},
        {"quote", "> a‸", "> a\n> ‸"},
        {"callout", "> [!NOTE] Ti‸tle", "> [!NOTE] Ti\n> ‸tle"},
        {"callout without a title", "> [!NOTE]‸", "> [!NOTE]\n‸"},
        {"selection goes first", "- a«bc\n- d»e", "- a\n- ‸e"},
        {"heading", "# a‸b", "# a\n‸b"},
        {"line end of the text", "- a\r\n- b‸", "- a\r\n- b\r\n- ‸"},
        {"frontmatter", "---\ntags:\n  - a‸\n---\n", "---\ntags:\n  - a\n‸\n---\n"},
        {"fence keeps the indent", "```\n    - a‸b\n```", "```\n    - a\n    ‸b\n```"},
        {"behind a fence", "```\nx\n```\n- a‸", "```\nx\n```\n- a\n- ‸"},
        {"emoji", "- 😀‸😀", "- 😀\n- ‸😀"},
        {"last number", "9223372036854775807. a‸", "9223372036854775807. a\n9223372036854775807. ‸"},
    };
    expectRows(rows, insertNewline);
}

TEST(EditingCommands, ReturnLeavesAnEmptyItem) {
    const Row rows[] = {
        {"bullet", "- a\n- ‸", "- a\n‸"},
        {"ordered", "1. a\n2. ‸\n3. b", "1. a\n‸\n3. b"},
        {"task", "- [ ] ‸", "‸"},
        {"nested goes out one level", "- a\n  - ‸", "- a\n- ‸"},
        {"nested ordered joins the outer list", "1. a\n  1. b\n  2. ‸\n2. c", "1. a\n  1. b\n2. ‸\n3. c"},
        {"quote", "> a\n> ‸", "> a\n‸"},
        {"caret before the marker", "‸- ", "‸"},
    };
    expectRows(rows, insertNewline);
}

TEST(EditingCommands, TabMovesItemsInAndOut) {
    const Row in[] = {
        {"item", "- a\n- b‸", "- a\n  - b‸"},
        {"ordered starts a count and shifts the rest", "1. a\n2. ‸b\n3. c", "1. a\n  1. ‸b\n2. c"},
        {"joins a nested list", "1. a\n  1. b\n2. c‸\n3. d", "1. a\n  1. b\n  2. c‸\n2. d"},
        {"first item keeps its number", "5. a‸\n6. b", "  5. a‸\n6. b"},
        {"selection, blank lines left alone", "«- a\n\ntext\n»- b", "«  - a\n\n  text\n»- b"},
        {"plain line", "te‸xt", "none"},
        {"code, no selection", "```\n- a‸\n```", "none"},
        {"code, selected", "```\n«1. a\n\tb»\n```", "```\n«  1. a\n  \tb»\n```"},
        {"tab becomes blanks", "\t- a‸", "    - a‸"},
        {"quoted list is a quote", "> - a‸", "none"},
        {"line ends", "- a\r\n- b‸\r\n", "- a\r\n  - b‸\r\n"},
    };
    expectRows(in, indent);
    const Row out[] = {
        {"item", "- a\n    - b‸", "- a\n  - b‸"},
        {"ordered takes its number from the outer list", "1. a\n  1. b‸\n  2. c\n2. d",
         "1. a\n2. b‸\n  2. c\n3. d"},
        {"outermost", "- a‸", "none"},
        {"one blank", " - a‸", "- a‸"},
        {"paragraph", "    a‸", "  a‸"},
        {"code", "```\n«\ta\n   b»\n```", "```\n«a\n b»\n```"},
    };
    expectRows(out, outdent);
}

TEST(EditingCommands, BackspaceTakesTheMarker) {
    const Row rows[] = {
        {"bullet", "- ‸a", "‸a"},
        {"task", "- [x] ‸a", "‸a"},
        {"ordered", "10. ‸a", "‸a"},
        {"quote", "> ‸a", "‸a"},
        {"quote in a quote", "> > ‸a", "> ‸a"},
        {"item in a quote", "> - [ ] ‸a", "> ‸a"},
        {"empty quote in a quote", "> > ‸", "> ‸"},
        {"outer quote", "> ‸> a", "‸> a"},
        {"nested", "- a\n  - ‸b", "- a\n- ‸b"},
        {"nested ordered", "1. a\n  1. ‸b\n2. c", "1. a\n2. ‸b\n3. c"},
        {"empty", "- ‸", "‸"},
        {"inside the text", "- a‸", "none"},
        {"inside the marker", "-‸ a", "none"},
        {"heading", "# ‸a", "none"},
        {"code", "```\n- ‸a\n```", "none"},
        {"selection", "- «a»", "none"},
    };
    expectRows(rows, deleteBackward);
}

TEST(EditingCommands, TogglesEmphasis) {
    struct StyleRow {
        const char* name;
        InlineStyle style;
        const char *text, *on, *off;  ///< off is what a second toggle gives, null where it gives `text`
    };
    const StyleRow rows[] = {
        {"selection", InlineStyle::bold, "a «b c» d", "a **«b c»** d", nullptr},
        {"word at the caret", InlineStyle::bold, "a wo‸rd", "a **wo‸rd**", nullptr},
        {"start of a word", InlineStyle::highlight, "‸word", "==‸word==", nullptr},
        {"end of a word", InlineStyle::strikethrough, "word‸.", "~~word‸~~.", nullptr},
        {"accents belong to words", InlineStyle::italic, "cafe\u0301‸ x", "*cafe\u0301‸* x", nullptr},
        {"an apostrophe in a word", InlineStyle::bold, "'don’‸t'", "'**don’‸t**'", nullptr},
        {"no word", InlineStyle::bold, "a ‸ b", "a **‸** b", nullptr},
        {"no word, italic in bold", InlineStyle::italic, "**‸**", "***‸***", nullptr},
        {"bold in italic", InlineStyle::bold, "*«a»*", "***«a»***", nullptr},
        {"italic in bold", InlineStyle::italic, "**«a»**", "***«a»***", nullptr},
        {"blanks stay outside", InlineStyle::bold, "« a »b", " **«a»** b", " «a» b"},
        {"signs selected too", InlineStyle::bold, "«**a**»", "«a»", "**«a»**"},
        {"inside, part selected", InlineStyle::italic, "*a «b» c*", "a «b» c", "a *«b»* c"},
        {"styled words within", InlineStyle::bold, "«a **b** c»", "**«a b c»**", "«a b c»"},
        {"reaching into styled words", InlineStyle::bold, "**a «b** c»", "**«a b c»**", "«a b c»"},
        {"lines", InlineStyle::bold, "«# a\n- [ ] b\n\n> c»", "# **«a**\n- [ ] **b**\n\n> **c»**",
         "# «a\n- [ ] b\n\n> c»"},
        {"lines, one styled already", InlineStyle::italic, "«*a*\nb»", "«*a*\n*b»*", "«a\nb»"},
        {"cells", InlineStyle::bold, "|a|b|\n|-|-|\n«|x|y|»", "|a|b|\n|-|-|\n|**«x**|**y»**|",
         "|a|b|\n|-|-|\n|«x|y»|"},
        {"code", InlineStyle::code, "«a b»", "`«a b»`", nullptr},
        {"code with a backtick", InlineStyle::code, "«a`b»", "``«a`b»``", nullptr},
        {"code that ends with one", InlineStyle::code, "«a`»", "`` «a`» ``", nullptr},
        {"caret in code", InlineStyle::code, "`a b‸ c`", "a b‸ c", "a `b‸` c"},
        {"around code", InlineStyle::bold, "«a `b» c`", "**«a `b c`»**", "«a `b c`»"},
        {"in code", InlineStyle::bold, "`a «b» c`", "none", nullptr},
        {"signs of others at both ends", InlineStyle::bold, "**«a** b **c»**", "**«a b c»**", "«a b c»"},
        {"italic and bold words", InlineStyle::italic, "«*a* **b**»", "*«a **b**»*", "«a **b**»"},
        {"around italic words", InlineStyle::bold, "«**a *b* c**»", "«a *b* c»", "**«a *b* c»**"},
        {"a wikilink is held whole", InlineStyle::bold, "a [[No‸te|n]] b", "a **[[No‸te|n]]** b", nullptr},
        {"into a wikilink", InlineStyle::code, "«a [[No»te]]", "`«a [[Note]]»`", "«a [[Note]]»"},
        {"a link's text", InlineStyle::italic, "[a «b»](u)", "[a *«b»*](u)", nullptr},
        {"into a link's target", InlineStyle::bold, "[a «b](u»rl)", "**«[a b](url)»**", "«[a b](url)»"},
        {"a tag is held whole", InlineStyle::highlight, "#ta‸g/x", "==#ta‸g/x==", nullptr},
        {"in a fence", InlineStyle::bold, "```\na‸\n```", "none", nullptr},
        {"in frontmatter", InlineStyle::bold, "---\na: «b»\n---", "none", nullptr},
        {"in a marker", InlineStyle::bold, "-‸ a", "none", nullptr},
        {"blanks only", InlineStyle::bold, "a« »b", "none", nullptr},
    };
    for (const StyleRow& row : rows) {
        const auto command = [&](std::u16string_view text, TextRange selection) {
            return toggle(row.style, text, selection);
        };
        EXPECT_EQ(after(row.text, command), row.on) << row.name;
        if (std::string_view(row.on) != "none") {
            EXPECT_EQ(after(row.on, command), row.off ? row.off : row.text) << row.name << ", again";
        }
    }
}

TEST(EditingCommands, MakesLinks) {
    const Row link[] = {
        {"selection", "see «this page» x", "see [this page](‸) x"},
        {"word", "see th‸is", "see [this](‸)"},
        {"nothing", "a ‸ b", "a [‸]() b"},
        {"address", "«https://a.b/c(d)»", "[‸](https://a.b/c%28d%29)"},
        {"off at the caret", "a [b ‸c](u) d", "a b ‸c d"},
        {"off with the link selected", "«[b](u)»", "«b»"},
        {"off in a wikilink", "a [[No‸te]]", "a No‸te"},
        {"an alias stays", "«[[Note|the note]]»", "«the note»"},
        {"an alias in a row", "|[[a\\|b‸]]|\n|-|", "|b‸|\n|-|"},
        {"cells are no alias", "|[[a|b‸]]|\n|-|-|", "none"},
        {"address at the caret", "see https://x.y‸z/a.", "see [‸](https://x.yz/a)."},
        {"an image is none", "![b‸](u)", "none"},
        {"an embed is none", "![[b‸]]", "none"},
        {"no link in a link", "«a [b](u)» c", "none"},
        {"lines", "«a\nb»", "none"},
        {"code", "`a‸`", "none"},
    };
    expectRows(link, toggleLink);
    struct PasteRow {
        const char *name, *text, *pasted, *expected;
    };
    const PasteRow rows[] = {
        {"address", "a «b c» d", "https://x.y/z", "a [b c](https://x.y/z)‸ d"},
        {"its line end goes", "«b»", "HTTP://x.y\n", "[b](HTTP://x.y)‸"},
        {"parentheses and blanks", "«b»", "https://x/a b_(c)", "[b](https://x/a%20b_%28c%29)‸"},
        {"mail", "«b»", "mailto:a@b.c", "[b](mailto:a@b.c)‸"},
        {"another scheme", "«b»", "note://x", "none"},
        {"scheme alone", "«b»", "https://", "none"},
        {"no selection", "b‸", "https://x.y", "none"},
        {"address over an address", "«https://a.b»", "https://x.y", "none"},
        {"two lines", "«b»", "https://x.y\nhttps://x.z", "none"},
        {"code", "`«b»`", "https://x.y", "none"},
        {"a link's text", "[a «b»](u)", "https://x.y", "none"},
        {"a link's target", "[a](«u»)", "https://x.y", "none"},
        {"a wikilink", "[[«b»]]", "https://x.y", "none"},
        {"a tag", "«#b»", "https://x.y", "[#b](https://x.y)‸"},
        {"table", "a‸", "x\ty\n1\t2", "a\n\n| x   | y   |\n| --- | --- |\n| 1   | 2   |‸"},
    };
    for (const PasteRow& row : rows) {
        EXPECT_EQ(
            after(row.text, [&](std::u16string_view text,
                                TextRange selection) { return paste(text, selection, utf16(row.pasted)); }),
            row.expected)
            << row.name;
    }
}

TEST(EditingCommands, WrapsTheSelection) {
    struct WrapRow {
        const char* name;
        char16_t typed;
        const char *text, *expected;
    };
    const WrapRow rows[] = {
        {"star", u'*', "a «b» c", "a *«b»* c"},
        {"twice", u'~', "~«b»~", "~~«b»~~"},
        {"bracket", u'[', "«b»", "[«b»]"},
        {"twice for a wikilink", u'[', "[«b»]", "[[«b»]]"},
        {"quotes over lines", u'"', "«a\nb»", "\"«a\nb»\""},
        {"emphasis over lines", u'_', "«- a\n- b»", "- _«a_\n- _b»_"},
        {"bracket in code", u'(', "```\n«a»\n```", "```\n(«a»)\n```"},
        {"emphasis in code", u'*', "```\n«a»\n```", "none"},
        {"letter", u'x', "«a»", "none"},
        {"no selection", u'*', "a‸", "none"},
    };
    for (const WrapRow& row : rows) {
        EXPECT_EQ(
            after(row.text, [&](std::u16string_view text,
                                TextRange selection) { return wrapSelection(text, selection, row.typed); }),
            row.expected)
            << row.name;
    }
}

TEST(EditingCommands, TicksTasks) {
    const Row rows[] = {
        {"open", "- [ ] a‸", "- [x] a‸"},
        {"done", "* [X] a‸", "* [ ] a‸"},
        {"another sign", "- [?] a‸", "- [ ] a‸"},
        {"numbered", "1. [ ] a‸", "1. [x] a‸"},
        {"quoted", "> - [ ] a‸", "> - [x] a‸"},
        {"bullet", "* a‸", "- [ ] a‸"},
        {"paragraph, blanks at its end", "  a ‸ ", "  - [ ] a ‸ "},
        {"empty line", "‸", "- [ ] ‸"},
        {"some done", "«- [x] a\n- [ ] b»", "«- [x] a\n- [x] b»"},
        {"all done", "«- [x] a\n- [x] b»", "«- [ ] a\n- [ ] b»"},
        {"some no tasks", "«- [x] a\nb»", "«- [x] a\n- [ ] b»"},
        {"code", "```\n- [ ] a‸\n```", "none"},
        {"table", "|a|\n|-|\n|b‸|", "none"},
    };
    expectRows(rows, toggleTask);
    EXPECT_EQ(after("- [ ] a\n‸b", [](std::u16string_view text,
                                      TextRange selection) { return toggleTaskAt(text, 3, selection); }),
              "- [x] a\n‸b");
}

TEST(EditingCommands, TurnsLinesIntoAnyKind) {
    struct KindRow {
        const char* name;
        Kind kind;
        const char *text, *expected;
    };
    const KindRow rows[] = {
        {"heading", {Kind::Heading{2}}, "- a‸", "## a‸"},
        {"text", {Kind::Plain::paragraph}, "  - [x] a‸  ", "  a‸  "},
        {"ordered, counted on", {Kind::Ordered{}}, "1. x\n«a\n\nb\nc»", "1. x\n«2. a\n\n1. b\n2. c»"},
        {"ordered shifts what follows", {Kind::Ordered{}}, "1. x\na‸\n2. y", "1. x\n2. a‸\n3. y"},
        {"callout goes on as a quote", {Kind::Callout{u"TIP"}}, "«a\nb»", "«> [!TIP] a\n> b»"},
        {"fence around one line", {Kind::Code{}}, "- a‸", "```\na‸\n```"},
        {"fence around lines", {Kind::Code{}}, "«- a\n  b»\nc", "```\n«- a\n  b»\n```\nc"},
        {"no fence in a fence", {Kind::Code{}}, "«a\n```\nb\n```»", "none"},
        {"divider leaves the text", {Kind::Plain::divider}, "a‸\nb", "a‸\n\n---\nb"},
        {"divider on an empty line", {Kind::Plain::divider}, "a\n‸\nb", "a\n---‸\nb"},
        {"divider at the start opens no frontmatter", {Kind::Plain::divider}, "‸\na", "***‸\na"},
        {"marker on an empty line", {Kind::Plain::bullet}, "‸", "- ‸"},
        {"already so", {Kind::Plain::quote}, "> a‸", "none"},
        {"code and tables are left out",
         {Kind::Plain::bullet},
         "«a\n```\nx\n```\n|b|\n|-|»",
         "«- a\n```\nx\n```\n|b|\n|-|»"},
        {"no table", {Kind::Plain::table}, "a‸", "none"},
    };
    for (const KindRow& row : rows) {
        EXPECT_EQ(after(row.text, [&](std::u16string_view text,
                                      TextRange selection) { return turnInto(text, selection, row.kind); }),
                  row.expected)
            << row.name;
    }
}

TEST(EditingCommands, MovesAndDuplicatesBlocks) {
    const auto move = [](bool up) {
        return [up](std::u16string_view text, TextRange selection) { return moveBlock(text, selection, up); };
    };
    const Row up[] = {
        {"line", "a\nb‸c\nd", "b‸c\na\nd"},
        {"unterminated", "a\r\nb‸", "b‸\r\na"},
        {"selection of blocks", "a\n«b\nc»\nd", "«b\nc»\na\nd"},
        {"fence", "a\n```\nx‸\n```\nb", "```\nx‸\n```\na\nb"},
        {"numbers follow", "4. a\n5. b‸\n6. c", "4. b‸\n5. a\n6. c"},
        {"nested numbers", "1. a\n  3. x\n  4. y‸", "1. a\n  3. y‸\n  4. x"},
        {"first", "a‸\nb", "none"},
        {"not into frontmatter", "---\na: 1\n---\nb‸", "none"},
        {"frontmatter stays", "---\na: 1‸\n---\nb", "none"},
    };
    expectRows(up, move(true));
    const Row down[] = {
        {"line", "a‸\nb\n", "b\na‸\n"},
        {"table", "‸|a|\n|-|\n\nb", "\n‸|a|\n|-|\nb"},
        {"last", "a\nb‸", "none"},
    };
    expectRows(down, move(false));
    const Row copies[] = {
        {"line", "a‸b\nc", "ab\na‸b\nc"},
        {"last line", "x\r\na‸", "x\r\na\r\na‸"},
        {"numbers follow", "1. a‸\n2. b", "1. a\n2. a‸\n3. b"},
        {"selection", "«a\nb»\nc", "a\nb\n«a\nb»\nc"},
    };
    expectRows(copies, duplicateBlock);
}

TEST(EditingCommands, SelectionsAreKeptOffHalfCharacters) {
    const std::u16string text = u"- 😀\r\nx";
    const auto edit = toggle(InlineStyle::bold, text, {3, 1});
    ASSERT_TRUE(edit);
    EXPECT_EQ(utf8(edit->applied(text)), "- **😀**\r\nx");
    const auto split = insertNewline(text, {5, 0});
    ASSERT_TRUE(split);
    EXPECT_EQ(utf8(split->applied(text)), "- 😀\r\n- \r\nx");
    const auto outside = insertNewline(text, {90, 4});
    ASSERT_TRUE(outside);
    EXPECT_EQ(utf8(outside->applied(text)), "- 😀\r\nx\r\n");
}

}  // namespace
}  // namespace vesk::test
