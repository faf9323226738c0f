#include <gtest/gtest.h>

#include <cerrno>

#include "Support/Fakes.h"
#include "VeskCore/Support/Digest.h"
#include "VeskCore/Vault/Vault.h"

namespace vesk::test {
namespace {

using Kind = VaultWriteError::Kind;
using Names = std::vector<std::string>;

template <class Action>
std::optional<Kind> refusal(Action action) {
    try {
        action();
    } catch (const VaultWriteError& error) {
        return error.kind;
    }
    return {};
}

std::string repeated(std::string_view piece, int count) {
    std::string text;
    for (int i = 0; i < count; ++i) text += piece;
    return text;
}

TEST(VaultNames, AreMadeFitForAFile) {
    const struct {
        const char* name;
        std::string input, expected;
    } rows[] = {
        {"white space at the ends", " \n\t Plan \u2003\n", "Plan"},
        {"everything forbidden", "a/b:c\\d*e?f\"g<h>i|j\nk\tl", "a-b-c-d-e-f-g-h-i-j-k-l"},
        {"CR LF is one line end", "a\r\nb", "a-b"},
        {"a NUL", std::string("a\0b", 3), "a-b"},
        {"leading full stops", "...md.", "md."},
        {"blanks only", " \t ", "Untitled"},
        {"full stops only", "...", "Untitled"},
        {"a path out", "../../etc/passwd", "-..-etc-passwd"},
        {"200 characters, not bytes", repeated("👨‍👩‍👧", 201),
         repeated("👨‍👩‍👧", 200)},
        {"no extension is involved", "a.md", "a.md"},
        {"bytes that are no UTF-8", "Caf\xE9", "Café"},
    };
    for (const auto& row : rows) EXPECT_EQ(Vault::sanitiseFilename(row.input), row.expected) << row.name;
}

TEST(VaultNames, TellPathsThatLeaveTheVault) {
    for (const char* path : {"/etc/motd", "~/x.md", "..", "../x.md", "a/../b.md", "a/.."}) {
        EXPECT_TRUE(Vault::leavesVault(path)) << path;
    }
    for (const char* path : {"", "a.md", "a..b/c.md", "...", "a/..b/c..", "a/~b"}) {
        EXPECT_FALSE(Vault::leavesVault(path)) << path;
    }
}

TEST(VaultNames, TellUntitledNotes) {
    for (const char* path : {"Untitled.md", "a/Untitled 2.md", "Untitled 10", "Untitled 1\n2.md"}) {
        EXPECT_TRUE(Vault::isUntitled(path)) << path;
    }
    for (const char* path :
         {"untitled.md", "Untitled 02.md", "Untitled 0.md", "Untitled .md", "Untitled \n.md",
          "Untitled 2b.md", "Untitled2.md", "Untitled  2.md", "Untitled.md/x.md"}) {
        EXPECT_FALSE(Vault::isUntitled(path)) << path;
    }
}

TEST(Note, HasANameAndAFolder) {
    EXPECT_EQ(Note{.relativePath = "a/b.md.old.md"}.name(), "b.old");
    EXPECT_EQ(Note{.relativePath = "a/b/c.txt"}.folder(), "a/b");
    EXPECT_EQ(Note{.relativePath = "c.md"}.folder(), "/");
}

class VaultTest : public ::testing::Test {
protected:
    PlatformFixture platform;
    const ScratchFolder& folder = platform.vaultFolder;
    ScratchFolder outside;
    Vault vault{folder.path(), SyncProvider::none};
    Vault iCloudVault{folder.path(), SyncProvider::iCloudDrive};
};

TEST_F(VaultTest, KnowsItsPlaces) {
    const Vault spelled(FilePath(folder.path()) / "a/.." / "");
    EXPECT_EQ(spelled.root(), folder.path());
    EXPECT_EQ(vault.supportDirectory(), folder / ".vesk");
    const FilePath index = vault.indexPath();
    EXPECT_EQ(index.filename(), "index.sqlite");
    EXPECT_EQ(index.parent_path(), platform.supportFolder.path() / "Vesk" / "Indexes" /
                                       sha256Hex(folder.path().native()).substr(0, 16));
    vault.ensureSupportDirectory();
    vault.ensureSupportDirectory();
    EXPECT_EQ(folder.list(".vesk"), Names{".nosync"});
    EXPECT_TRUE(std::filesystem::is_directory(vault.perDeviceDirectory()));

    EXPECT_EQ(vault.absolutePath("a/b.md"), folder / "a/b.md");
    EXPECT_EQ(vault.relativePath(folder / "a/./c/../b.md"), "a/b.md");
    EXPECT_EQ(vault.relativePath(folder.path()), std::nullopt);
    EXPECT_EQ(vault.relativePath(folder.path().native() + "-other/a.md"), std::nullopt);
    EXPECT_EQ(vault.relativePath(folder / "../a.md"), std::nullopt);
    EXPECT_EQ(Vault("/", SyncProvider::none).relativePath("/etc/motd"), "etc/motd");
}

TEST_F(VaultTest, NumbersANewNoteWhoseNameIsTaken) {
    const struct {
        const char* title;
        const char* path;
    } rows[] = {{"a-b", "in/a-b.md"}, {"a-b 2", "in/a-b 2.md"}, {"a-b 4", "in/a-b 4.md"}};
    folder.write("in/a-b 3.md", "");
    for (const auto& row : rows) {
        const Note note = vault.createNote("a/b", "in", "Grüße\n");
        EXPECT_EQ(note.title, row.title);
        EXPECT_EQ(note.relativePath, row.path);
        EXPECT_EQ(note.path, folder / row.path);
        EXPECT_EQ(note.size, 8);
        EXPECT_EQ(folder.read(row.path), "Grüße\n");
    }
    // A stub holds its name in iCloud Drive, and a link that leads nowhere holds it anywhere.
    folder.write(".Stub.md.icloud", "");
    EXPECT_EQ(iCloudVault.createNote("Stub", "", "").relativePath, "Stub 2.md");
    EXPECT_EQ(vault.createNote("Stub", "", "").relativePath, "Stub.md");
    std::filesystem::create_symlink("nowhere", folder / "Link.md");
    EXPECT_EQ(vault.createNote("Link", "/", "").relativePath, "Link 2.md");
}

TEST_F(VaultTest, ANewNoteNeverOverwritesAnother) {
    int races = 2;
    platform.files.fault = [&](std::string_view operation, const FilePath&) -> std::optional<int> {
        if (operation == "move" && races-- > 0) folder.write(races == 1 ? "Plan.md" : "Plan 2.md", "theirs");
        return {};
    };
    const Note note = vault.createNote("Plan", "", "ours");
    EXPECT_EQ(note.relativePath, "Plan 3.md");
    EXPECT_EQ(note.title, "Plan 3");
    EXPECT_EQ(folder.list(), (Names{"Plan 2.md", "Plan 3.md", "Plan.md"}));
    EXPECT_EQ(folder.read("Plan.md"), "theirs");
    EXPECT_EQ(folder.read("Plan 2.md"), "theirs");
}

TEST_F(VaultTest, ATroubledFolderFailsANewNoteInsteadOfTryingForEver) {
    platform.files.fault = [](std::string_view operation, const FilePath&) -> std::optional<int> {
        if (operation == "move") return EEXIST;
        return {};
    };
    EXPECT_THROW(vault.createNote("Plan", "", ""), SystemError);
    EXPECT_EQ(folder.list(), Names{});
}

TEST_F(VaultTest, ALongNameFitsTheFileSystem) {
    const std::string name = repeated("日", 150);
    EXPECT_EQ(vault.createNote(name, "", "").relativePath, repeated("日", 84) + ".md");
    EXPECT_EQ(vault.createNote(name, "", "").relativePath, repeated("日", 83) + " 2.md");
    // One character of more bytes than a name may have.
    EXPECT_EQ(vault.createNote("a" + repeated("\u0301", 200), "", "").relativePath, "Untitled.md");
    folder.write("x.md", "");
    EXPECT_EQ(vault.renameNote("x.md", repeated("語", 150)), repeated("語", 84) + ".md");
}

TEST_F(VaultTest, RenamesWithinTheFolder) {
    folder.write("in/a.b.txt", "text");
    EXPECT_EQ(vault.renameNote("in/a.b.txt", " c/d "), "in/c-d.txt");
    EXPECT_EQ(folder.list("in"), Names{"c-d.txt"});
    EXPECT_EQ(vault.renameNote("in/c-d.txt", "C-D"), "in/C-D.txt");
    EXPECT_EQ(folder.list("in"), Names{"C-D.txt"});
}

TEST_F(VaultTest, ARenameToTheSameNameTouchesNothing) {
    folder.write("a-b.md", "x");
    folder.write("Caf\xE9.md", "x");
    platform.files.fault = [](std::string_view operation, const FilePath&) -> std::optional<int> {
        if (operation == "move") return EIO;
        return {};
    };
    EXPECT_EQ(vault.renameNote("a-b.md", "a/b"), "a-b.md");
    EXPECT_EQ(vault.renameNote("Caf\xE9.md", "Café"), "Caf\xE9.md");
    EXPECT_EQ(vault.renameNote("Cafe\u0301.md", "Café"), "Cafe\u0301.md");
    EXPECT_EQ(vault.moveNote("a-b.md", ""), "a-b.md");
}

TEST_F(VaultTest, RefusesToRenameOrMoveOntoAnotherNote) {
    folder.write("a.md", "a");
    folder.write("b.md", "b");
    folder.write("in/a.md", "other");
    folder.write("in/.c.md.icloud", "");
    folder.write("c.md", "c");
    EXPECT_EQ(refusal([&] { vault.renameNote("a.md", "b"); }), Kind::alreadyExists);
    EXPECT_EQ(refusal([&] { vault.moveNote("a.md", "in"); }), Kind::alreadyExists);
    EXPECT_EQ(refusal([&] { iCloudVault.moveNote("c.md", "in"); }), Kind::alreadyExists);
    // A second link to the same file holds a name of its own.
    std::filesystem::create_hard_link(folder / "a.md", folder / "twin.md");
    EXPECT_EQ(refusal([&] { vault.renameNote("a.md", "twin"); }), Kind::alreadyExists);
    platform.files.fault = [&](std::string_view operation, const FilePath&) -> std::optional<int> {
        if (operation == "move") folder.write("late.md", "theirs");
        return {};
    };
    EXPECT_EQ(refusal([&] { vault.renameNote("a.md", "late"); }), Kind::alreadyExists);
    EXPECT_EQ(folder.read("a.md") + folder.read("b.md") + folder.read("in/a.md") + folder.read("late.md"),
              "abothertheirs");
}

TEST_F(VaultTest, MovesIntoAFolderThatItMakes) {
    folder.write("a.md", "text");
    EXPECT_EQ(vault.moveNote("a.md", "x/y"), "x/y/a.md");
    EXPECT_EQ(vault.moveNote("x/y/a.md", "/"), "a.md");
    EXPECT_EQ(folder.read("a.md"), "text");
}

TEST_F(VaultTest, DoesNotMoveAStub) {
    platform.ubiquity.setUbiquitousFolder(folder.path());
    folder.write(".a.md.icloud", "");
    EXPECT_EQ(refusal([&] { iCloudVault.renameNote("a.md", "b"); }), Kind::notMaterialised);
    EXPECT_EQ(refusal([&] { iCloudVault.moveNote("a.md", "in"); }), Kind::notMaterialised);
    EXPECT_EQ(platform.ubiquity.requested(), (std::vector<FilePath>{folder / "a.md", folder / "a.md"}));
    EXPECT_EQ(folder.list(), Names{".a.md.icloud"});
}

TEST_F(VaultTest, KeepsToItself) {
    folder.write("a.md", "a");
    outside.write("secret.md", "theirs");
    const FrontmatterDoc doc("ours");
    const std::string other = outside.path().native();
    for (const std::string& path : {other + "/secret.md", std::string("../x.md"), std::string("~/x.md"),
                                    std::string("in/../../x.md"), std::string(""), std::string(".")}) {
        EXPECT_EQ(refusal([&] { vault.readNote(path); }), Kind::outsideVault) << path;
        EXPECT_EQ(refusal([&] { vault.writeNote(doc, path); }), Kind::outsideVault) << path;
        EXPECT_EQ(refusal([&] { vault.renameNote(path, "b"); }), Kind::outsideVault) << path;
        EXPECT_EQ(refusal([&] { vault.moveNote(path, "in"); }), Kind::outsideVault) << path;
    }
    for (const std::string& path : {other, std::string(".."), std::string("~"), std::string("in/../..")}) {
        EXPECT_EQ(refusal([&] { vault.createNote("b", path, ""); }), Kind::outsideVault) << path;
        EXPECT_EQ(refusal([&] { vault.moveNote("a.md", path); }), Kind::outsideVault) << path;
    }
    EXPECT_EQ(folder.list(), Names{"a.md"});
    // Nobody expands the tilde of a file that is here.
    folder.write("~draft.md", "old");
    vault.writeNote(doc, "~draft.md");
    EXPECT_EQ(folder.read("~draft.md"), "ours");
}

TEST_F(VaultTest, FollowsLinksInsideAndRefusesLinksOutside) {
    folder.write("there/real.md", "old");
    outside.write("secret.md", "theirs");
    std::filesystem::create_symlink("there/real.md", folder / "in.md");
    std::filesystem::create_symlink(outside / "secret.md", folder / "out.md");
    std::filesystem::create_directory_symlink(outside.path(), folder / "away");
    const FrontmatterDoc doc("ours");
    vault.writeNote(doc, "in.md");
    EXPECT_EQ(folder.read("there/real.md"), "ours");
    EXPECT_EQ(vault.readNote("out.md")->serialized(), "theirs");
    EXPECT_EQ(refusal([&] { vault.writeNote(doc, "out.md"); }), Kind::outsideVault);
    EXPECT_EQ(refusal([&] { vault.writeNote(doc, "away/new.md"); }), Kind::outsideVault);
    EXPECT_EQ(refusal([&] { vault.createNote("new", "away/sub", ""); }), Kind::outsideVault);
    EXPECT_EQ(refusal([&] { vault.moveNote("in.md", "away"); }), Kind::outsideVault);
    EXPECT_EQ(refusal([&] { vault.renameNote("away/secret.md", "b"); }), Kind::outsideVault);
    EXPECT_EQ(outside.list(), Names{"secret.md"});
    EXPECT_EQ(outside.read("secret.md"), "theirs");

    // The vault itself may be reached through a link.
    std::filesystem::create_directory_symlink(folder.path(), outside / "vault");
    Vault(outside / "vault", SyncProvider::none).writeNote(FrontmatterDoc("again"), "in.md");
    EXPECT_EQ(folder.read("there/real.md"), "again");
}

TEST_F(VaultTest, ReadsAndWritesANotesDocument) {
    EXPECT_EQ(vault.readNote("a.md"), std::nullopt);
    vault.writeNote(FrontmatterDoc("---\nk: v\n---\nBody\n"), "in/a.md");
    EXPECT_EQ(folder.read("in/a.md"), "---\nk: v\n---\nBody\n");
    EXPECT_EQ(vault.readNote("in/a.md")->body(), "Body\n");
    EXPECT_EQ(refusal([&] { vault.writeNote(FrontmatterDoc("x"), "a.html"); }), Kind::readOnlyDocument);
    platform.ubiquity.setUbiquitousFolder(folder.path());
    vault.writeNote(FrontmatterDoc("x"), "in/a.md");
    EXPECT_EQ(platform.coordination.calls, Names{"write a.md"});
}

}  // namespace
}  // namespace vesk::test
