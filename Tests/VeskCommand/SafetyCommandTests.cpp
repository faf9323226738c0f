#include <gtest/gtest.h>
#include <sys/xattr.h>

#include "VeskCommand/Program.h"
#include "VeskCore/Support/Json.h"

namespace vesk::test {
namespace {

TEST(SafetyCommand, PutsNotesInTheTrashAndBackAndEmptiesItOnlyWhenSure) {
    Program program;
    program.vault.write("Plans/a.md", "kept\n");
    program.vault.write("list.md", "named like a command\n");
    EXPECT_EQ(program.run({"trash", "Plans/a.md"}).out, ".trash/a.md\n");
    EXPECT_FALSE(program.vault.exists("Plans/a.md"));
    EXPECT_EQ(program.run({"trash", "list"}).out, "a.md\n");
    EXPECT_EQ(program.run({"trash", "put", "list.md"}).status, 0);
    EXPECT_EQ(program.run({"trash", "restore", "Plans/a.md"}).out, "Plans/a.md\n");
    EXPECT_EQ(program.vault.read("Plans/a.md"), "kept\n");
    const auto unsure = program.run({"trash", "empty"});
    EXPECT_EQ(unsure.status, 1);
    EXPECT_NE(unsure.err.find("forever?"), std::string::npos) << unsure.err;
    EXPECT_TRUE(program.vault.exists(".trash/list.md"));
    EXPECT_EQ(program.run({"trash", "empty", "--yes"}).status, 0);
    EXPECT_FALSE(program.vault.exists(".trash/list.md"));
    EXPECT_EQ(program.run({"trash"}).status, 2);
}

TEST(SafetyCommand, SettlesAConflictFileOfASyncService) {
    Program program;
    // The folder's place names the service.
    std::filesystem::create_directory(program.vault.path() / ".stfolder");
    program.vault.write("a.md", "here\n");
    program.vault.write("a.sync-conflict-20260102-030405-ABCDEFG.md", "there\n");
    const auto listed = Json::parse(program.run({"conflicts", "--json"}).out);
    ASSERT_EQ(listed.asArray()->size(), 1u);
    EXPECT_EQ(listed.asArray()->front().string("path"), "a.md");
    EXPECT_EQ(program.run({"conflicts", "resolve", "b.md"}).status, 1);
    EXPECT_EQ(program.run({"conflicts", "resolve"}).out, "a.md\n");
    EXPECT_EQ(program.vault.read("a.md"), "here\n");
    EXPECT_EQ(Json::parse(program.run({"conflicts", "--json"}).out).asArray()->size(), 0u);
    bool isKept = false;
    for (const auto& entry : std::filesystem::directory_iterator(program.vault.path())) {
        if (entry.is_regular_file())
            isKept |= program.vault.read(entry.path().filename().string()) == "there\n";
    }
    EXPECT_TRUE(isKept);
}

TEST(SafetyCommand, ActsOnARemindersDayAsItsNotificationDoes) {
    Program program;
    program.vault.write("once.md", "---\nremind: 2026-01-02 09:00\n---\nPay\n");
    program.vault.write("each.md", "---\nremind: 2026-01-02 09:00\nrepeat: monthly\n---\nPay\n");
    EXPECT_EQ(program.run({"remind", "once.md", "done"}).status, 0);
    EXPECT_EQ(program.vault.read("once.md").find("remind"), std::string::npos);
    EXPECT_EQ(program.run({"remind", "once.md", "snooze"}).err, "vesk: “once.md” has no reminder.\n");
    EXPECT_NE(program.run({"remind", "each.md", "snooze"}).err.find("repeats"), std::string::npos);
    EXPECT_EQ(program.run({"remind", "each.md", "done"}).status, 0);
    EXPECT_NE(program.vault.read("each.md").find("repeat: monthly"), std::string::npos);
    EXPECT_EQ(program.vault.read("each.md").find("2026-01-02"), std::string::npos) << "moved on";
    EXPECT_EQ(program.run({"remind", "each.md", "off"}).status, 0);
    EXPECT_EQ(program.vault.read("each.md"), "Pay\n");
}

TEST(SafetyCommand, ReportsTheVaultsSynchronisation) {
    Program program;
    program.vault.write("a.md", "x");
    const auto report = program.run({"sync-report"}).out;
    EXPECT_TRUE(report.starts_with("Vesk sync report\nGenerated: ")) << report;
    EXPECT_NE(report.find(program.vault.path().string()), std::string::npos) << report;
    EXPECT_NE(report.find("1, 0 as stubs"), std::string::npos) << report;
}

}  // namespace
}  // namespace vesk::test
