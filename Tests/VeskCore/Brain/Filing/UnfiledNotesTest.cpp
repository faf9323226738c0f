#include <gtest/gtest.h>

#include "Support/Fakes.h"
#include "VeskCore/Brain/Filing/OrganiseSettings.h"
#include "VeskCore/Brain/Filing/UnfiledNotes.h"

namespace vesk::test {
namespace {

class OrganiseTest : public ::testing::Test {
protected:
    const ScratchFolder& files() const { return platform.vaultFolder; }
    std::set<std::string> waiting() const {
        std::set<std::string> paths;
        for (const auto& note : UnfiledNotes::detect(vault, vault.enumerateNotes()).candidates)
            paths.insert(note.relativePath);
        return paths;
    }

    PlatformFixture platform;
    Vault vault{platform.vaultFolder.path(), SyncProvider::none};
    using Paths = std::set<std::string>;
};

TEST_F(OrganiseTest, ReadsSettingsWithWhatIsThere) {
    const struct {
        const char *name, *text;
        OrganiseSettings expected;
    } rows[] = {
        {"one list", R"({"notInbox": ["Scratch"]})", {.notInbox = {"Scratch"}}},
        {"no junk", R"({"junkFolder": null, "version": 2})", {.version = 2, .junkFolder = std::nullopt}},
        {"all",
         R"({"inbox": [""], "protected": ["A/B"], "junkFolder": "Bin", "later": {}})",
         {.inbox = {""}, .protectedFolders = {"A/B"}, .junkFolder = "Bin"}},
        {"broken", "{\"notInbox\": [\"Scratch\"", {}},
        {"no object", "[1]", {}},
        {"empty", "", {}},
        {"a list of numbers", R"({"inbox": [1], "notInbox": ["A"]})", {}},
        {"a text for a list", R"({"notInbox": "A", "junkFolder": "B"})", {}},
        {"a fraction as version", R"({"version": 1.5, "notInbox": ["A"]})", {}},
        {"a version beyond any", R"({"version": 99999999999, "notInbox": ["A"]})", {}},
    };
    EXPECT_EQ(OrganiseSettings::load(vault), OrganiseSettings{}) << "missing";
    for (const auto& row : rows) {
        files().write(".vesk/organise.json", row.text);
        EXPECT_EQ(OrganiseSettings::load(vault), row.expected) << row.name;
    }
}

TEST_F(OrganiseTest, WritesSettingsThatReadBack) {
    const OrganiseSettings settings{
        .inbox = {"", "A/B"}, .protectedFolders = {"Ünder"}, .junkFolder = std::nullopt};
    settings.save(vault);
    EXPECT_EQ(files().read(".vesk/organise.json"),
              "{\n  \"inbox\": [\n    \"\",\n    \"A/B\"\n  ],\n  \"junkFolder\": null,\n"
              "  \"notInbox\": [],\n  \"protected\": [\n    \"Ünder\"\n  ],\n  \"version\": 1\n}");
    EXPECT_EQ(OrganiseSettings::load(vault), settings);
}

TEST_F(OrganiseTest, FindsTheNotesThatWait) {
    files().write("Work/a.md", "a");
    files().write("top.md", "b");
    EXPECT_EQ(waiting(), Paths{}) << "one home is nothing to choose between";
    files().write("Home/c.md", "c");
    EXPECT_EQ(waiting(), Paths{"top.md"});
    files().write("Inbox/d.md", "d");
    files().write("Site_files/e.md", "e");
    files().write("Site.html", "<p>");
    EXPECT_EQ(waiting(), (Paths{"top.md", "Inbox/d.md"}));
    OrganiseSettings{.notInbox = {""}}.save(vault);
    EXPECT_EQ(waiting(), Paths{"Inbox/d.md"});
    std::filesystem::remove(files() / "Inbox/d.md");
    EXPECT_EQ(waiting(), Paths{});
}

}  // namespace
}  // namespace vesk::test
