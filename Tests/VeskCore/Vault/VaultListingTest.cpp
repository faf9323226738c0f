#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>

#include "Support/Fakes.h"
#include "VeskCore/Vault/Vault.h"

namespace vesk::test {
namespace {

using Names = std::vector<std::string>;
using Severity = VaultWarning::Severity;

template <class Item>
Names paths(const std::vector<Item>& items) {
    Names all;
    for (const Item& item : items) all.push_back(item.relativePath);
    std::sort(all.begin(), all.end());
    return all;
}

class VaultListingTest : public ::testing::Test {
protected:
    PlatformFixture platform;
    const ScratchFolder& folder = platform.vaultFolder;
    Vault vault{folder.path(), SyncProvider::none};
    Vault iCloudVault{folder.path(), SyncProvider::iCloudDrive};

    void fill(std::initializer_list<const char*> files) const {
        for (const char* file : files) folder.write(file, "x");
    }
};

TEST_F(VaultListingTest, FindsNotesAndPassesOverWhatIsNone) {
    fill({"a.md", "b.MARKDOWN", "in/c.mdown", "in/deep/d.txt", "line\nbreak.md", "Caf\xE9.md",
          "v1.2 notes.md", ".hidden.md", ".md", "picture.png", "noextension", "in/x.md/inside.md",
          "node_modules/n.md", "in/__pycache__/p.md", ".trash/t.md", ".vesk/v.md", ".any/h.md",
          "in/.stversions/s.md"});
    ScratchFolder outside;
    outside.write("linked.md", "far away");
    std::filesystem::create_symlink(outside / "linked.md", folder / "link.md");
    std::filesystem::create_directory_symlink(outside.path(), folder / "linkedfolder");
    std::filesystem::create_directory_symlink(outside.path(), folder / "linkedfolder.md");
    std::filesystem::create_symlink("nowhere", folder / "dangling.md");
    ASSERT_EQ(::mkfifo((folder / "pipe.md").c_str(), 0600), 0);

    const auto notes = vault.enumerateNotes();
    EXPECT_EQ(paths(notes), (Names{"Caf\xE9.md", "a.md", "b.MARKDOWN", "in/c.mdown", "in/deep/d.txt",
                                   "in/x.md/inside.md", "line\nbreak.md", "link.md", "v1.2 notes.md"}));
    for (const Note& note : notes) {
        EXPECT_EQ(note.path, vault.absolutePath(note.relativePath));
        if (note.relativePath == "Caf\xE9.md") {
            EXPECT_EQ(note.title, "Café");
        }
        if (note.relativePath == "v1.2 notes.md") {
            EXPECT_EQ(note.title, "v1.2 notes");
        }
        if (note.relativePath == "link.md") {
            EXPECT_EQ(note.size, 8);
        }
    }
    EXPECT_EQ(vault.enumerateNotesAndDocuments().first, notes);
    EXPECT_EQ(Vault(folder / "absent", SyncProvider::none).enumerateNotes(), std::vector<Note>{});
}

TEST_F(VaultListingTest, TakesDatesAndSizeFromTheFile) {
    const FilePath note = folder.write("a.md", "Grüße");
    const TimePoint modified = timeFromSecondsSince1970(1'600'000'000);
    std::filesystem::last_write_time(note, std::chrono::file_clock::from_sys(modified));
    const auto notes = vault.enumerateNotes();
    ASSERT_EQ(notes.size(), 1u);
    EXPECT_EQ(notes[0].modified, modified);
    EXPECT_EQ(notes[0].created, platform.files.info(note)->created);
    EXPECT_EQ(notes[0].size, 7);
}

TEST_F(VaultListingTest, ListsAStubUnderItsNoteInAniCloudVault) {
    fill({"real.md", ".real.md.icloud", "in/.away.md.icloud", "..md.icloud", ".picture.png.icloud",
          "..hidden.md.icloud", ".page.html.icloud"});
    const auto notes = iCloudVault.enumerateNotes();
    ASSERT_EQ(notes.size(), 2u);
    EXPECT_EQ(notes[0].relativePath, "in/away.md");
    EXPECT_EQ(notes[0].title, "away");
    EXPECT_EQ(notes[0].path, folder / "in/away.md");
    EXPECT_EQ(notes[1].relativePath, "real.md");
    EXPECT_EQ(notes[1].path, folder / "real.md");
    EXPECT_EQ(paths(iCloudVault.enumerateDocuments()), Names{"page.html"});
    EXPECT_EQ(paths(vault.enumerateNotes()), Names{"real.md"});
    EXPECT_EQ(paths(vault.enumerateDocuments()), Names{});
}

TEST_F(VaultListingTest, HidesTheFolderOfASavedPage) {
    fill({"Page.html", "Page_files/frame.html", "Page_files/style.css", "Page_files/deep/x.css",
          "Page_files/note.md", "Page_files/picture.png", "in/Other.htm", "in/Other_FILES/style.css",
          "Alone_files/style.css", "Alone_files/picture.png", "_files/style.css", "UPPER.HTML",
          "UPPER_files/style.css", "site.css"});
    const auto documents = vault.enumerateDocuments();
    EXPECT_EQ(paths(documents),
              (Names{"Alone_files/style.css", "Page.html", "UPPER.HTML", "UPPER_files/style.css",
                     "_files/style.css", "in/Other.htm", "site.css"}));
    for (const VaultDocument& document : documents) {
        const bool isStyle = document.fileName().ends_with(".css");
        EXPECT_EQ(document.kind, isStyle ? IndexedKind::stylesheet : IndexedKind::page)
            << document.relativePath;
        EXPECT_EQ(document.path, folder / document.relativePath);
        if (document.fileName() == "Other.htm") {
            EXPECT_EQ(document.folder(), "in");
        }
        if (document.fileName() == "site.css") {
            EXPECT_EQ(document.folder(), "");
        }
    }
    EXPECT_EQ(paths(vault.enumerateNotes()), Names{"Page_files/note.md"});
    EXPECT_EQ(vault.enumerateAttachments(), Names{"Alone_files/picture.png"});
    EXPECT_TRUE(vault.isInsideSavedPageFolder("Page_files/deep/x.css"));
    EXPECT_TRUE(vault.isInsideSavedPageFolder("in/Other_FILES/style.css"));
    EXPECT_FALSE(vault.isInsideSavedPageFolder("Alone_files/style.css"));
    EXPECT_FALSE(vault.isInsideSavedPageFolder("Page_files"));
}

TEST_F(VaultListingTest, AStubOfThePageKeepsItsFolderHidden) {
    fill({".Page.html.icloud", "Page_files/style.css", "Page_files/picture.png"});
    EXPECT_EQ(paths(iCloudVault.enumerateDocuments()), Names{"Page.html"});
    EXPECT_EQ(iCloudVault.enumerateAttachments(), Names{});
    EXPECT_TRUE(iCloudVault.isInsideSavedPageFolder("Page_files/style.css"));
}

TEST_F(VaultListingTest, FindsAttachments) {
    fill({"a.PNG", "in/b.m4a", ".c.png", ".hidden/d.png", "node_modules/e.png", "f.md", "g.zip",
          "folder.png/h.md"});
    auto attachments = vault.enumerateAttachments();
    std::sort(attachments.begin(), attachments.end());
    EXPECT_EQ(attachments, (Names{"a.PNG", "in/b.m4a"}));
}

TEST_F(VaultListingTest, FindsWhatLooksLikeAConflictCopy) {
    fill({"Plan 2.md", "in/Plan (Ann's Conflicted Copy 2024).md", "a.sync-conflict-20240101.md",
          "b (conflict from another device).md", "Tab\t7.txt", "Plan2.md", "2024.md", "Plan 2b.md",
          "Plan 2.png", "Sync-Conflict.md", ".hidden/Plan 2.md", ".Plan 2.md", "node_modules/Read 2.md",
          "Folder 2.md/x.md"});
    Names found;
    for (const FilePath& path : vault.conflictFiles()) found.push_back(*vault.relativePath(path));
    std::sort(found.begin(), found.end());
    EXPECT_EQ(found, (Names{"Plan 2.md", "Tab\t7.txt", "a.sync-conflict-20240101.md",
                            "b (conflict from another device).md", "in/Plan (Ann's Conflicted Copy 2024).md",
                            "node_modules/Read 2.md"}));
}

TEST_F(VaultListingTest, CountsEvictedNotesUpToTheLimit) {
    for (const char* name : {"a.md", "in/b.md", "c.md"})
        platform.ubiquity.setDataless(folder.write(name, "x"));
    platform.ubiquity.setDataless(folder.write("d.png", "x"));
    platform.ubiquity.setDataless(folder.write(".hidden/e.md", "x"));
    fill({"here.md"});
    EXPECT_EQ(vault.countEvicted(100), 3);
    EXPECT_EQ(vault.countEvicted(2), 2);
    EXPECT_EQ(vault.countEvicted(0), 0);
}

TEST_F(VaultListingTest, WarnsInOrderAndInItsWords) {
    EXPECT_EQ(vault.diagnose(), std::vector<VaultWarning>{});
    fill({".git/config", "Plan 2.md"});
    platform.ubiquity.setDataless(folder / "Plan 2.md");
    platform.files.fault = [](std::string_view operation, const FilePath&) -> std::optional<int> {
        if (operation == "isWritable") return EACCES;
        return {};
    };
    auto warnings = iCloudVault.diagnose();
    platform.files.fault = nullptr;
    const std::string name = folder.path().filename().native();
    const std::vector<VaultWarning> expected{
        {"readonly", "Vault is read-only", "Vesk can't save changes to " + name + ".", Severity::critical},
        {"double-sync", "Two sync systems on one folder",
         "This vault is in iCloud Drive and is also a Git repository. If both write at once, edits can be "
         "lost. "
         "Consider one or the other.",
         Severity::warning},
        {"evicted", "Some notes aren't downloaded",
         "iCloud has moved the contents of some notes off this Mac (\"Optimize Mac Storage\"). Vesk will "
         "download them "
         "on demand, but search and the graph stay incomplete until it does.",
         Severity::warning},
        {"conflicts", "1 possible conflict copy",
         "Files like \"Plan 2.md\" look like sync conflicts. Vesk can show you the differences and let you "
         "merge or "
         "delete them.",
         Severity::info}};
    EXPECT_EQ(warnings, expected);

    fill({"Plan 3.md"});
    warnings = vault.diagnose();  // no sync service: neither Git nor eviction is worth a word
    ASSERT_EQ(warnings.size(), 1u);
    EXPECT_EQ(warnings[0].title, "2 possible conflict copies");

    const Vault absent(folder / "absent", SyncProvider::iCloudDrive);
    EXPECT_EQ(absent.diagnose(),
              (std::vector<VaultWarning>{{"missing", "Vault folder is missing",
                                          (folder / "absent").native() + " no longer exists.",
                                          Severity::critical}}));
}

}  // namespace
}  // namespace vesk::test
