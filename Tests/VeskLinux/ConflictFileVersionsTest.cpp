#include <gtest/gtest.h>

#include <cerrno>

#include "Support/Fakes.h"
#include "VeskCore/Vault/ConflictResolver.h"
#include "VeskCore/Vault/VaultTrash.h"
#include "VeskLinux/ConflictFileVersions.h"

namespace vesk::test {
namespace {

using Names = std::vector<std::string>;

class ConflictFileVersionsTest : public ::testing::Test {
protected:
    PlatformFixture platform;
    const ScratchFolder& folder = platform.vaultFolder;
    ConflictFileVersions versions{platform.files, "Europe/Berlin"};

    Names versionsOf(std::string_view note) const {
        Names names;
        for (const auto& version : versions.unresolvedConflictVersions(folder / note)) {
            names.push_back(version->identifier());
        }
        return names;
    }
    void SetUp() override { std::filesystem::create_directory(folder / ".vesk"); }
};

TEST_F(ConflictFileVersionsTest, TellsWhoseConflictAFileIs) {
    const struct {
        const char* file;
        std::optional<std::string> note;
        std::optional<std::string> device;
        std::optional<double> modified;
    } rows[] = {
        {"plan.sync-conflict-20260314-103000-ABCDEFG.md", "plan.md", "ABCDEFG", 1'773'480'600},
        {"plan.sync-conflict-20260314-103000.md", "plan.md", {}, 1'773'480'600},
        {"a.b.sync-conflict-20260314-103000-X.md", "a.b.md", "X", 1'773'480'600},
        {"plain.sync-conflict-20260314-103000-ABC", "plain", "ABC", 1'773'480'600},
        {"plan (Anna's conflicted copy 2026-03-14).md", "plan.md", "Anna", {}},
        {"plan (Anna’s Mac (home)’s conflicted copy 2026-03-14).md", "plan.md", "Anna’s Mac (home)", {}},
        {"plan (1) (conflicted copy 2026-03-14 103000).md", "plan (1).md", {}, 1'773'480'600},
        {"plan (Conflicted Copy).md", "plan.md", {}, {}},
        {"plan.sync-conflict-20260314-103000-ABCDEFG.txt", {}, {}, {}},
        {"plan.sync-conflict-2026-ABCDEFG.md", {}, {}, {}},
        {"plan.sync-conflict-20260314-103000-A B.md", {}, {}, {}},
        {".sync-conflict-20260314-103000-ABCDEFG.md", {}, {}, {}},
        {"plan conflicted copy.md", {}, {}, {}},
        {"plan (conflict from another device).md", {}, {}, {}},
        {"planet (Anna's conflicted copy).md", {}, {}, {}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.file);
        for (const std::string& name : folder.list()) {
            if (name != ".vesk") std::filesystem::remove(folder / name);
        }
        for (const char* name : {"plan.md", "plan (1).md", "a.b.md", "plain"}) folder.write(name, "mine");
        const FilePath file = folder.write(row.file, "theirs");
        for (const char* name : {"plan.md", "plan (1).md", "a.b.md", "plain"}) {
            EXPECT_EQ(versionsOf(name), row.note == name ? Names{row.file} : Names{}) << name;
        }
        if (!row.note) continue;
        EXPECT_TRUE(versions.conflictedItems(folder.path())->contains(folder / *row.note));
        const auto version = versions.unresolvedConflictVersions(folder / *row.note).at(0);
        EXPECT_EQ(version->deviceName(), row.device);
        EXPECT_EQ(version->modified(), row.modified ? timeFromSecondsSince1970(*row.modified)
                                                    : platform.files.info(file)->modified);
        EXPECT_EQ(version->read(), "theirs");
    }
}

TEST_F(ConflictFileVersionsTest, ResolvingKeepsEveryText) {
    const std::string first = "a.sync-conflict-20260314-103000-ABC.md",
                      second = "a.sync-conflict-20260315-103000-DEF.md";
    const ConflictResolution resolutions[] = {{ConflictResolution::Plain::keepCurrent},
                                              {ConflictResolution::Plain::keepBoth},
                                              {ConflictResolution::KeepOther{second}}};
    const Vault vault(folder.path(), SyncProvider::syncthing);
    const ConflictResolver resolver(versions);
    for (const bool canExchange : {true, false}) {
        platform.files.fault = [=](std::string_view operation, const FilePath&) -> std::optional<int> {
            if (operation == "exchange" && !canExchange) return ENOSYS;
            return {};
        };
        for (const auto& resolution : resolutions) {
            std::filesystem::remove_all(folder / "n");
            std::filesystem::remove_all(folder / ".trash");
            folder.write("n/a.md", "mine");
            folder.write("n/" + first, "one");
            folder.write("n/" + second, "two");
            const auto found = resolver.scan(vault);
            ASSERT_EQ(found.size(), 1u);
            EXPECT_EQ(found[0].current.text, "mine");
            resolver.resolve(found[0], resolution, vault);
            EXPECT_TRUE(resolver.scan(vault).empty());

            const bool takesOther = std::holds_alternative<ConflictResolution::KeepOther>(resolution.value);
            EXPECT_EQ(folder.read("n/a.md"), takesOther ? "two" : "mine");
            EXPECT_EQ(folder.list(".trash"), (Names{first, second}));
            EXPECT_EQ(folder.read(".trash/" + first), "one");
            EXPECT_EQ(folder.read(".trash/" + second), takesOther ? "mine" : "two");
            EXPECT_EQ(folder.list("n").size(), resolution == resolutions[1] ? 3u : 1u);
            for (const TrashedNote& note : VaultTrash(vault).trashedNotes().first) {
                if (note.origin) {
                    EXPECT_EQ(*note.origin, "n/" + note.trashPath);
                }
            }
        }
    }
}

TEST_F(ConflictFileVersionsTest, LetsGoOfNothingWithoutATrash) {
    std::filesystem::remove(folder / ".vesk");
    folder.write("a.md", "mine");
    folder.write("a (conflicted copy).md", "theirs");
    EXPECT_THROW(versions.removeOtherVersions(folder / "a.md"), SystemError);
    EXPECT_EQ(folder.read("a (conflicted copy).md"), "theirs");
    EXPECT_EQ(versions.currentVersion(folder / "absent.md"), nullptr);
}

}  // namespace
}  // namespace vesk::test
