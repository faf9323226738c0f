#include <gtest/gtest.h>

#include "Program.h"

namespace vesk::test {
namespace {

TEST(FormatCommand, PutsNotesInOrderAndChangesNothingElse) {
    Program program;
    const std::string tidy = "1. a\n2. b\n";
    program.vault.write("tidy.md", tidy);
    program.vault.write("list.md",
                        "---\r\nn: 1\r\n---\r\n1. a\r\n1. b\r\n\r\n```\r\n1. c\r\n1. d\r\n```\r\n");
    program.vault.write("In/table.md", "a|b\n-|-\n");

    const auto checked = program.run({"format", "--check", "tidy.md", "list.md", "In/table.md"});
    EXPECT_EQ(checked.status, 1);
    EXPECT_EQ(checked.out, "list.md\nIn/table.md\n");
    EXPECT_EQ(checked.err, "vesk: 2 notes would change.\n");
    EXPECT_EQ(program.vault.read("In/table.md"), "a|b\n-|-\n");

    const auto ran = program.run({"format", "tidy.md", "list.md", "In/table.md"});
    EXPECT_EQ(ran.status, 0) << ran.err;
    EXPECT_EQ(ran.out, "list.md\nIn/table.md\n");
    EXPECT_EQ(program.vault.read("tidy.md"), tidy);
    EXPECT_EQ(program.vault.read("list.md"),
              "---\r\nn: 1\r\n---\r\n1. a\r\n2. b\r\n\r\n```\r\n1. c\r\n1. d\r\n```\r\n");
    EXPECT_EQ(program.vault.read("In/table.md"), "| a   | b   |\n| --- | --- |\n");

    const auto again = program.run({"format", "--check", "tidy.md", "list.md", "In/table.md"});
    EXPECT_EQ(again.status, 0) << again.out;
}

TEST(FormatCommand, SaysWhatStayedAsItWas) {
    Program program;
    program.vault.write("a.md", "1. a\n1. b\n");
    program.vault.write("page.html", "<p>1. a");
    const auto some = program.run({"format", "missing.md", "a.md", "page.html", "../x.md"});
    EXPECT_EQ(some.status, 1);
    EXPECT_EQ(some.out, "a.md\n") << "the others don't wait for the one that fails";
    EXPECT_EQ(some.err.find("vesk: There is no note at “missing.md”.\n"), 0u) << some.err;
    EXPECT_NE(some.err.find("vesk: 3 of 4 notes stayed as they were.\n"), std::string::npos) << some.err;
    EXPECT_EQ(program.vault.read("a.md"), "1. a\n2. b\n");
    const auto one = program.run({"format", "missing.md"});
    EXPECT_EQ(one.status, 1);
    EXPECT_EQ(one.err, "vesk: There is no note at “missing.md”.\n");
    EXPECT_EQ(program.run({"format"}).status, 2);
}

}  // namespace
}  // namespace vesk::test
