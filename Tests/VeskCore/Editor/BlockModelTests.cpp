#include <gtest/gtest.h>

#include "VeskCore/Editor/BlockModel.h"
#include "VeskCore/Support/Match.h"
#include "VeskCore/Support/Unicode.h"

namespace vesk {
namespace {

using Kind = MarkdownBlock::Kind;

std::string shown(const Kind& kind) {
    return match(
        kind, [](const Kind::Heading& k) { return "h" + std::to_string(k.level); },
        [](const Kind::Ordered& k) { return "ordered " + std::to_string(k.number); },
        [](const Kind::Task& k) { return std::string(k.done ? "done" : "open"); },
        [](const Kind::Callout& k) { return "callout " + utf8(k.type); },
        [](const Kind::Code& k) { return "code " + utf8(k.language.value_or(u"-")); },
        [](const Kind::Plain& k) { return Kind{k}.displayName(); });
}

TEST(BlockModel, ClassifiesALine) {
    struct Row {
        std::u16string_view line;
        std::string expected;
    };
    const Row rows[] = {
        {u"   # x", "h1:x"},
        {u"###### x", "h6:x"},
        {u"####### x", "Text:####### x"},
        {u"#x", "Text:#x"},
        {u"# ", "Text:#"},
        {u"  \t ", "Empty:"},
        {u"---", "Divider:"},
        {u"----", "Text:----"},
        {u"---|---", "Text:---|---"},
        {u"-", "Bulleted list:"},
        {u">", "Quote:"},
        {u"1.", "ordered 1:"},
        {u"1) a", "ordered 1:a"},
        {u"1.a", "Text:1.a"},
        {u"99999999999999999999. a", "Text:99999999999999999999. a"},
        {u"- [x] a", "done:a"},
        {u"+ [?]a", "done:a"},
        {u"* [ ] a", "open:a"},
        {u"- [] a", "Bulleted list:[] a"},
        {u"- [\U0001F600] a", "done:a"},
        {u"- [x]\u0301", "Bulleted list:[x]\u0301"},
        {u"- [x\u0301] a", "done:a"},
        {u"> [!NOTE] Title", "callout NOTE:Title"},
        {u"> [!NOTE", "Quote:[!NOTE"},
        {u">x\r\n", "Quote:x"},
        {u"\u00A0plain \u2028", "Text:plain"},
    };
    for (const Row& row : rows) {
        const auto got = BlockModel::classify(row.line);
        EXPECT_EQ(shown(got.kind) + ":" + utf8(got.content), row.expected) << utf8(row.line);
    }
}

TEST(BlockModel, ContinuesAndLeavesLists) {
    struct Row {
        std::u16string_view line, continuation;
        bool exits;
    };
    const Row rows[] = {
        {u"* item", u"- ", false},
        {u"2) x", u"3. ", false},
        {u"\t- [x] done", u"  - [ ] ", false},
        {u"1. ", u"", true},
        {u"- [ ] ", u"", true},
        {u"> said", u"> ", false},
        {u"> [!TIP] t", u"> ", false},
        {u"> ", u"", false},
        {u"# h", u"", false},
        {u"9223372036854775807. x", u"9223372036854775807. ", false},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(BlockModel::continuation(row.line).value_or(u""), row.continuation) << utf8(row.line);
        EXPECT_EQ(BlockModel::shouldExitList(row.line), row.exits) << utf8(row.line);
    }
}

TEST(BlockModel, TurnsAndIndentsLines) {
    using Plain = Kind::Plain;
    EXPECT_EQ(BlockModel::turnInto(u"  - x", {Plain::paragraph}), u"  x");
    EXPECT_EQ(BlockModel::turnInto(u"  - x", {Kind::Code{}}), u"```\nx\n```");
    EXPECT_EQ(BlockModel::turnInto(u"  - x", {Kind::Ordered{}}, 7), u"  7. x");
    EXPECT_EQ(BlockModel::turnInto(u"x", {Kind::Heading{9}}), u"###### x");
    EXPECT_EQ(BlockModel::turnInto(u"x", {Kind::Callout{u"TIP"}}), u"> [!TIP] x");
    EXPECT_EQ(BlockModel::indent(u"\t - x"), u"    - x");
    EXPECT_EQ(BlockModel::outdent(u"   - x"), u"- x");
    EXPECT_EQ(BlockModel::outdent(u" x"), u"x");
}

TEST(BlockModel, RenumbersOnlyLists) {
    struct Row {
        std::string_view name;
        std::u16string_view text, expected;
    };
    const Row rows[] = {
        {"nested", u"1. a\n1. b\n  5. c\n1. d\n  7. e", u"1. a\n2. b\n  1. c\n3. d\n  1. e"},
        {"blank line", u"3. a\n\n3. b", u"1. a\n\n1. b"},
        {"bullet between", u"1. a\n- x\n1. b", u"1. a\n- x\n2. b"},
        {"line ends and blanks at the end", u"4) a  \r\n9. b\r\n", u"1. a  \r\n2. b\r\n"},
        {"fence", u"7. a\n```\n7. b\n~~~\n7. c\n```\n7. d", u"1. a\n```\n7. b\n~~~\n7. c\n```\n1. d"},
        {"frontmatter", u"---\n5. x\n---\n5. y", u"---\n5. x\n---\n1. y"},
        {"empty item", u"2.\n2. ", u"1. \n2. "},
    };
    for (const Row& row : rows)
        EXPECT_EQ(BlockModel::renumberOrderedLists(row.text), row.expected) << row.name;
}

TEST(BlockModel, FindsBlocksAcrossLines) {
    const std::u16string_view text =
        u"---\na | b\n---\n``` swift\r\nx\r\ny\r\n```\r\na | b\n---|---\n1 | 2\n\n  - c\n~~~\nopen";
    std::string got;
    for (const auto& block : BlockModel::blocks(text)) {
        got += shown(block.kind) + " " + std::to_string(block.lineRange.location) + "+" +
               std::to_string(block.lineRange.length) + " " + utf8(block.content) + ";";
    }
    EXPECT_EQ(got,
              "Divider 0+1 ;Text 1+1 a | b;Divider 2+1 ;code swift 3+4 x\r\ny;Table 7+3 a | b;Empty 10+1 ;"
              "Bulleted list 11+1 c;code - 12+2 open;");
}

TEST(BlockModel, MovesAndDuplicatesBlocks) {
    using BlockModel::Edit;
    using Result = std::optional<Edit>;
    EXPECT_EQ(BlockModel::moveBlock(u"a\nb", 0, true), Result());
    EXPECT_EQ(BlockModel::moveBlock(u"a\nb", 1, false), Result());
    EXPECT_EQ(BlockModel::moveBlock(u"a\nb", 2, true), Result());
    EXPECT_EQ(BlockModel::moveBlock(u"a\r\n```\r\nx\r\n```", 2, true),
              Result(Edit{u"```\r\nx\r\n```\r\na", {0, 3}}));
    EXPECT_EQ(BlockModel::moveBlock(u"a\n```\nx\n```\nb", 0, false),
              Result(Edit{u"```\nx\n```\na\nb", {3, 1}}));
    EXPECT_EQ(BlockModel::duplicateBlock(u"a\r\nb", 1), Result(Edit{u"a\r\nb\r\nb", {2, 1}}));
    EXPECT_EQ(BlockModel::duplicateBlock(u"a\nb\n", 0), Result(Edit{u"a\na\nb\n", {1, 1}}));
}

}  // namespace
}  // namespace vesk
