#include <gtest/gtest.h>

#include "Support/Fakes.h"
#include "VeskCore/Vault/VaultStyle.h"
#include "VeskCore/Vault/VaultTree.h"

namespace vesk::test {
namespace {

using Names = std::vector<std::string>;

Note noteAt(const std::string& path) {
    Note note{.relativePath = path};
    note.title = note.name();
    return note;
}
VaultDocument pageAt(const std::string& path) {
    return {.relativePath = path, .path = {}, .kind = IndexedKind::page};
}

TEST(VaultTree, PutsEverythingInItsFolderInTheOrderOfTheDesktop) {
    const VaultTree tree({noteAt("Note 10.md"), noteAt("Note 2.md"), noteAt("a/b/c/deep.md")},
                         {"Empty", "a/b"}, {"Attachments/p.png"}, {pageAt("a/site.html")});
    EXPECT_EQ(tree.allFolderPaths(), (Names{"a", "a/b", "a/b/c", "Attachments", "Empty"}));
    EXPECT_EQ(tree.root().notes[0].relativePath, "Note 2.md");
    EXPECT_EQ(tree.root().totalNoteCount(), 3u);
    EXPECT_EQ(tree.root().totalFileCount(), 1u);
    ASSERT_TRUE(tree.node("a/b/c"));
    EXPECT_EQ(tree.node("a/b/c")->notes.size(), 1u);
    EXPECT_FALSE(tree.node("a/x"));
    EXPECT_FALSE(VaultTree().root().hasContent());
}

TEST(VaultTree, FilesNotesIntoFoldersOfPeopleAndNotOfSavedSites) {
    const VaultTree tree(
        {noteAt("Site with note/n.md"), noteAt("Deep/Attachments/n.md")},
        {"Site/img", "Page_files", "Site with note/assets", "Saved/p_files", ".hidden", "Empty"},
        {"Attachments/x.png"},
        {pageAt("Site/index.html"), pageAt("Page.html"), pageAt("Site with note/INDEX.HTM"),
         pageAt("Saved/p.html")});
    EXPECT_EQ(tree.noteDestinations(),
              (Names{"Deep", "Deep/Attachments", "Empty", "Saved", "Site with note"}));
}

TEST(VaultFolders, AreMadeAndRenamedWithoutTakingAnothersPlace) {
    PlatformFixture platform;
    const Vault vault(platform.vaultFolder.path());
    EXPECT_EQ(vault.createFolder("Plans", ""), "Plans");
    EXPECT_EQ(vault.createFolder("Plans", ""), "Plans 2");
    EXPECT_EQ(vault.createFolder("a/b", "Plans"), "Plans/a-b");
    EXPECT_EQ(vault.renameFolder("Plans/a-b", "c"), "Plans/c");
    EXPECT_EQ(vault.renameFolder("Plans/c", "c"), "Plans/c");
    EXPECT_THROW(vault.renameFolder("Plans", "Plans 2"), VaultWriteError);
    EXPECT_THROW(vault.createFolder("x", "../outside"), VaultWriteError);
    platform.vaultFolder.write(".trash/t/x.md", "x");
    EXPECT_EQ(vault.emptyFolderPaths().size(), 3u);
}

TEST(VaultStyle, ReadsWhatItCanAndKeepsWhatItDoesNotKnow) {
    PlatformFixture platform;
    const Vault vault(platform.vaultFolder.path());
    EXPECT_EQ(VaultStyle::load(vault), VaultStyle{});
    for (const char* broken : {"", "[]", R"({"folderColors": 1})", R"({"folderColors": {"a": 1}})"}) {
        platform.vaultFolder.write(".vesk/style.json", broken);
        EXPECT_EQ(VaultStyle::load(vault), VaultStyle{}) << broken;
    }
    platform.vaultFolder.write(".vesk/style.json", R"({"folderColors": {"a": "mauve", "b": "gray"}})");
    auto style = VaultStyle::load(vault);
    EXPECT_EQ(style.color("a"), std::nullopt);
    EXPECT_EQ(style.color("b"), FolderColor::gray);
    style.setColor("b", std::nullopt);
    style.save(vault);
    EXPECT_EQ(platform.vaultFolder.read(".vesk/style.json"), R"({"folderColors":{"a":"mauve"}})");
}

TEST(Charm, IsFoundByItsLabelOrSymbol) {
    EXPECT_EQ(Charm::catalog().size(), 90u);
    EXPECT_EQ(Charm::catalog(Charm::Group::sport).size(), 19u);
    EXPECT_EQ(Charm::catalog().front(), (Charm{"airplane", "Travel", Charm::Group::places}));
    const Charm code{"chevron.left.forwardslash.chevron.right", "Code", Charm::Group::tech};
    EXPECT_TRUE(code.matches(" CHEVRON ") && code.matches("code") && code.matches(""));
    EXPECT_FALSE(code.matches("bug"));
}

}  // namespace
}  // namespace vesk::test
