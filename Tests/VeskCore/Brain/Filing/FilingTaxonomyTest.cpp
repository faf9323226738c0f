#include <gtest/gtest.h>

#include "VeskCore/Brain/Filing/FilingTaxonomy.h"

namespace vesk::test {
namespace {

using Names = std::vector<std::string>;

Note note(std::string_view path, int modified = 0) {
    Note made;
    made.relativePath = std::string(path);
    made.modified = timeFromSecondsSince1970(modified);
    return made;
}

TEST(FilingTaxonomy, KnowsAnInboxByWholeWords) {
    const struct {
        const char* name;
        bool expected;
    } rows[] = {
        {"Inbox", true},         {"INBOX 2019", true},    {"Imports", true},     {"Imported", true},
        {"Important", false},    {"Brain Dump", true},    {"to-file", true},     {"Notes", false},
        {"Apple  Notes", true},  {"New_Notes", true},     {"Notes New", false},  {"to the file", false},
        {"Übergang.tmp", true},  {"Temp2", false},        {"", false},           {"---", false},
        {"Uncategorised", true}, {"Quick, Notes!", true}, {"MISC\u0301", false}, {"\xff inbox", true},
    };
    for (const auto& row : rows)
        EXPECT_EQ(FilingTaxonomy::Rules::looksLikeInbox(row.name), row.expected) << row.name;
}

TEST(FilingTaxonomy, PutsEachFolderIntoItsScope) {
    const struct {
        const char* name;
        OrganiseSettings settings;
        const char* folder;
        FilingScope expected;
    } rows[] = {
        {"below an inbox", {}, "Inbox/Projects", FilingScope::staging},
        {"taken out of it", {.notInbox = {"inbox/projects"}}, "Inbox/Projects/A", FilingScope::filed},
        {"the inbox itself stays", {.notInbox = {"inbox/projects"}}, "Inbox", FilingScope::staging},
        {"a deeper rule wins", {.inbox = {"A/B"}, .notInbox = {"A"}}, "A/B/C", FilingScope::staging},
        {"inbox wins at one level", {.inbox = {"A"}, .notInbox = {"a"}}, "A", FilingScope::staging},
        {"imported in an archive", {}, "Archive/Imported", FilingScope::staging},
        {"a home", {}, "Important", FilingScope::filed},
        {"hidden", {}, ".stuff/Inbox", FilingScope::protectedFolder},
        {"below templates", {}, "Templates/Meetings", FilingScope::protectedFolder},
        {"an inner journal", {}, "Work/JOURNAL/2024", FilingScope::protectedFolder},
        {"by rule, without case",
         {.protectedFolders = {"/WORK/"}},
         "work/Clients",
         FilingScope::protectedFolder},
        {"protection before inbox", {.protectedFolders = {"Inbox"}}, "Inbox", FilingScope::protectedFolder},
        {"junk", {}, "junk/Old", FilingScope::protectedFolder},
        {"junk that is not so called", {.junkFolder = "Bin"}, "Junk", FilingScope::filed},
        {"no junk", {.junkFolder = std::nullopt}, "Junk", FilingScope::filed},
        {"the top as junk is none", {.junkFolder = "/"}, "Anything", FilingScope::filed},
        {"a name composed otherwise", {.inbox = {"Caf\u00e9"}}, "Cafe\u0301", FilingScope::staging},
        {"an empty rule is the top's alone", {.notInbox = {""}}, "Inbox", FilingScope::staging},
        {"the top", {}, "", FilingScope::staging},
        {"the top by another spelling", {}, " / ", FilingScope::staging},
        {"the top taken out", {.notInbox = {""}}, "", FilingScope::excluded},
        {"the top in both", {.inbox = {""}, .notInbox = {""}}, "", FilingScope::staging},
    };
    for (const auto& row : rows) {
        const auto taxonomy = FilingTaxonomy::detect({}, {}, row.settings);
        EXPECT_EQ(rawValue(taxonomy.scope(row.folder)), rawValue(row.expected)) << row.name;
    }
}

TEST(FilingTaxonomy, SortsTheFoldersOfAVault) {
    const auto taxonomy = FilingTaxonomy::detect(
        {"Work", "Inbox", "Inbox/Old", "Templates", "work", "/Home/", ""},
        {note("Work/Clients/a.md"), note("Inbox/Old/b.md", 5), note("HOME/c.md"), note("d.md", 9),
         note("e.md", 9), note("Templates/Inbox/f.md", 20), note("Junk/g.md", 30), note("Inbox/h.md", 7)},
        {});
    EXPECT_EQ(taxonomy.targets, (Names{"Work", "Home", "Work/Clients"}));
    EXPECT_EQ(taxonomy.stagingFolders, (Names{"Inbox", "Inbox/Old"}));
    EXPECT_EQ(taxonomy.stagingSources, Names{"Inbox"});
    EXPECT_EQ(taxonomy.protectedFolders, (Names{"Templates", "Templates/Inbox", "Junk"}));
    EXPECT_EQ(taxonomy.forbiddenFolders(), (Names{"Templates", "Templates/Inbox"}));
    EXPECT_EQ(taxonomy.candidatePaths, (Names{"d.md", "e.md", "Inbox/h.md", "Inbox/Old/b.md"}));
    EXPECT_EQ(taxonomy.noteCount, 8);
    EXPECT_TRUE(taxonomy.rootIsStaging);
}

TEST(FilingTaxonomy, KnowsAJunkFolderThatIsNotThereYet) {
    const auto taxonomy = FilingTaxonomy::detect({"Work"}, {}, {.junkFolder = " Rest/Bin/ "});
    EXPECT_EQ(taxonomy.protectedFolders, Names{"Rest/Bin"});
    EXPECT_EQ(taxonomy.junkFolder, "Rest/Bin");
    EXPECT_EQ(taxonomy.forbiddenFolders(), Names{});
    EXPECT_EQ(FilingTaxonomy::detect({}, {}, {.junkFolder = "/"}).protectedFolders, Names{});
}

TEST(FilingTaxonomy, HashesTargetsWithoutRegardToTheirOrder) {
    const auto hash = [](const Names& folders) {
        return FilingTaxonomy::detect(folders, {}, {}).targetsHash;
    };
    EXPECT_EQ(hash({"B", "A"}), "23519a43c66b4c342f25b32e09797ec5f3fc0be388cd8243fb3449afbdce4013");
    EXPECT_EQ(hash({"A", "B"}), hash({"B", "A", "Inbox"}));
    EXPECT_NE(hash({"A"}), hash({"A", "B"}));
}

TEST(FilingTaxonomy, SaysWhatItTreatsAsInbox) {
    const struct {
        Names folders;
        OrganiseSettings settings;
        const char* expected;
    } rows[] = {
        {{"Work"}, {.notInbox = {""}}, "Treated as inbox: nothing — no folder looks like one"},
        {{"Work"}, {}, "Treated as inbox: notes at the vault root"},
        {{"Inbox", "Inbox/A"}, {}, "Treated as inbox: notes at the vault root and Inbox"},
        {{"Archive/Imports", "Inbox", "Misc"},
         {.notInbox = {""}},
         "Treated as inbox: Imports, Inbox, and Misc"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(FilingTaxonomy::detect(row.folders, {}, row.settings).treatedAsInboxLine(), row.expected);
}

}  // namespace
}  // namespace vesk::test
