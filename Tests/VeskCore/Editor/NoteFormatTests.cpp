#include <gtest/gtest.h>

#include "VeskCore/Editor/NoteFormat.h"
#include "VeskCore/Support/Unicode.h"

namespace vesk::test {
namespace {

TEST(NoteFormat, PutsNumbersAndTablesInOrder) {
    const struct {
        const char* name;
        const char16_t *text, *expected;
    } rows[] = {
        {"numbers", u"1. a\n1. b\n   1) c\n   1) d\n1. e", u"1. a\n2. b\n   1) c\n   2) d\n3. e"},
        {"a list keeps its first number", u"7. a\n7. b", u"7. a\n8. b"},
        {"a year is no count", u"1986. A year.\n\n1. a", u"1986. A year.\n\n1. a"},
        {"loose list", u"1. a\n\n2. b\n\n3. c", u"1. a\n\n2. b\n\n3. c"},
        {"a bullet ends nested counts", u"1. a\n  1. b\n- c\n  1. d\n1. e",
         u"1. a\n  1. b\n- c\n  1. d\n2. e"},
        {"tabs and blanks stay", u"\t1.  a  \n\t1.  b", u"\t1.  a  \n\t2.  b"},
        {"leading zeros", u"01. a\n02. b\n02. c", u"01. a\n02. b\n3. c"},
        {"table", u"a|b\n-|-:\nlong|x\r\n", u"| a    |   b |\n| ---- | --: |\n| long |   x |\r\n"},
        {"frontmatter", u"---\n1. a\n1. b\n---\n1. a\n1. b", u"---\n1. a\n1. b\n---\n1. a\n2. b"},
        {"fence", u"```\n1. a\n1. b\na|b\n-|-\n```\n1. a\n1. b",
         u"```\n1. a\n1. b\na|b\n-|-\n```\n1. a\n2. b"},
        {"fence in a longer fence", u"````\n```\n1. a\n1. b\n```\n````\n1. a\n1. b",
         u"````\n```\n1. a\n1. b\n```\n````\n1. a\n2. b"},
        {"fence in the other fence", u"~~~\n```\n1. a\n1. b\n~~~", u"~~~\n```\n1. a\n1. b\n~~~"},
        {"all else stays", u"#  A \n\n\n*  x\n+ y  \n_z_", u"#  A \n\n\n*  x\n+ y  \n_z_"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(utf8(NoteFormat::formatted(row.text)), utf8(row.expected)) << row.name;
        EXPECT_EQ(utf8(NoteFormat::formatted(row.expected)), utf8(row.expected)) << row.name << ", again";
    }
}

}  // namespace
}  // namespace vesk::test
