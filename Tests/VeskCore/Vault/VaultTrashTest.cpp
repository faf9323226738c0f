#include <gtest/gtest.h>

#include <cerrno>

#include "Support/Fakes.h"
#include "VeskCore/Platform/TrashFormat.h"
#include "VeskCore/Vault/VaultTrash.h"

namespace vesk::test {
namespace {

using Names = std::vector<std::string>;
using Values = UbiquitySource::Values;

constexpr Values notDownloaded{.isUbiquitous = true,
                               .downloadingStatus = UbiquitySource::DownloadingStatus::notDownloaded};

class VaultTrashTest : public ::testing::Test {
protected:
    PlatformFixture platform;
    const ScratchFolder& folder = platform.vaultFolder;
    VaultTrash trash{Vault(folder.path(), SyncProvider::none)};

    TrashedNote only() const {
        const auto notes = trash.trashedNotes().first;
        EXPECT_EQ(notes.size(), 1u);
        return notes.empty() ? TrashedNote{} : notes.front();
    }
    /// A file in the trash that says it came from `origin`.
    TrashedNote put(std::string_view trashPath, std::string_view origin) {
        const FilePath path = folder.write(".trash/" + std::string(trashPath), "text");
        if (!origin.empty()) platform.files.setAttribute(path, trashOriginAttribute, origin);
        return only();
    }
    void SetUp() override {
        try {
            platform.files.setAttribute(folder.write("probe", ""), "vesk.probe", "x");
        } catch (const SystemError& error) {
            GTEST_SKIP() << "no extended attributes here: " << error.description();
        }
        std::filesystem::remove(folder / "probe");
    }
};

TEST_F(VaultTrashTest, NotesOfOneNameGoBackToWhereEachCameFrom) {
    folder.write("a/plan.md", "from a");
    folder.write("b/plan.md", "from b");
    EXPECT_EQ(trash.trashNote("a/plan.md"), ".trash/plan.md");
    EXPECT_EQ(trash.trashNote("b/plan.md"), ".trash/plan 2.md");
    EXPECT_TRUE(trash.holdsNote("b/plan.md"));
    std::filesystem::remove(folder / "b");
    folder.write("a/plan.md", "a new one");
    Names restored;
    for (const TrashedNote& note : trash.trashedNotes().first) restored.push_back(trash.restore(note));
    std::sort(restored.begin(), restored.end());
    EXPECT_EQ(restored, (Names{"a/plan 2.md", "b/plan.md"}));
    EXPECT_EQ(folder.read("a/plan 2.md"), "from a");
    EXPECT_EQ(folder.read("a/plan.md"), "a new one");
    EXPECT_EQ(folder.read("b/plan.md"), "from b");
    EXPECT_FALSE(trash.holdsNote("a/plan.md"));
}

TEST_F(VaultTrashTest, FallsBackFromOriginsThatAreNoPlaceForTheItem) {
    ScratchFolder outside;
    std::filesystem::create_directory_symlink(outside.path(), folder / "link");
    const struct {
        const char* name;
        std::string trashPath, origin, restored;
    } rows[] = {
        {"none", "n.md", "", "n.md"},
        {"its folder is made", "n.md", "x/y/n.md", "x/y/n.md"},
        {"absolute", "n.md", "/etc/n.md", "n.md"},
        {"another home", "n.md", "~/n.md", "n.md"},
        {"upwards", "n.md", "a/../../n.md", "n.md"},
        {"of another kind", "n.md", "a/n.html", "n.md"},
        {"a note's other extension is the same kind", "n.md", "a/n.txt", "a/n.txt"},
        {"the trash itself", "n.md", ".trash/n.md", "n.md"},
        {"cut by a NUL", "n.md", std::string("a\0b.md", 6), "n.md"},
        {"out of the vault by a link", "n.md", "link/n.md", "n.md"},
        {"a note of a trashed folder", "old/n.md", "", "n.md"},
        {"a page keeps its place", "old/p.html", "", "old/p.html"},
        {"a page with an origin", "old/p.html", "web/p.html", "web/p.html"},
        {"a name that begins with a tilde", "~n.md", "~n.md", "~n.md"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        trash.empty();
        EXPECT_EQ(trash.restore(put(row.trashPath, row.origin)), row.restored);
        EXPECT_EQ(folder.read(row.restored), "text");
        std::filesystem::remove(folder / row.restored);
    }
    EXPECT_EQ(outside.list(), Names{});
}

TEST_F(VaultTrashTest, ListsNotesAndCountsTheRest) {
    EXPECT_EQ(trash.trashedNotes(), (std::pair<std::vector<TrashedNote>, int>{}));
    folder.write("old/deep/n.md", "n");
    folder.write("old/page.HTML", "p");
    folder.write("old/picture.png", "x");
    folder.write("old/plain", "x");
    folder.write("old/.DS_Store", "x");
    trash.trashFolder("old");
    folder.write("old/again.txt", "n");
    trash.trashFolder("old");
    const auto now = std::filesystem::file_time_type::clock::now();
    std::filesystem::last_write_time(folder / ".trash/old/deep/n.md", now - std::chrono::hours(1));
    std::filesystem::last_write_time(folder / ".trash/old/page.HTML", now - std::chrono::hours(2));
    const auto [notes, others] = trash.trashedNotes();
    Names paths, names;
    for (const TrashedNote& note : notes) {
        paths.push_back(note.trashPath);
        names.push_back(note.name());
        EXPECT_EQ(note.origin, std::nullopt);
    }
    EXPECT_EQ(paths, (Names{"old 2/again.txt", "old/deep/n.md", "old/page.HTML"}));
    EXPECT_EQ(names, (Names{"again", "n", "page.HTML"}));
    EXPECT_EQ(others, 2);

    const FilePath waiting = folder / ".trash/old/deep/n.md";
    platform.ubiquity.set(waiting, notDownloaded);
    trash.trashedNotes();
    EXPECT_EQ(platform.ubiquity.requested().back(), waiting);
    trash.empty();
    trash.empty();
    EXPECT_FALSE(folder.exists(".trash"));
}

TEST_F(VaultTrashTest, KnowsWhetherItHoldsANote) {
    const auto entry = [](std::string trashPath, std::optional<std::string> origin) {
        return TrashedNote{
            .trashPath = std::move(trashPath), .path = {}, .origin = std::move(origin), .trashedAt = {}};
    };
    const std::vector<TrashedNote> list = {
        entry("a b.md", {}), entry("a 3.md", "x/a.md"),        entry("a 3 2.md", {}),
        entry("a.txt", {}),  entry("renamed.md", "n/plan.md"), entry("Untitled.md", "Untitled.md"),
        entry("c+ 2.md", {})};
    const struct {
        const char* path;
        std::optional<std::string> found;
    } rows[] = {
        {"n/plan.md", "renamed.md"},
        {"x/a.md", "a 3.md"},
        {"y/a.md", "a 3 2.md"},
        {"a.txt", "a.txt"},
        {"y/b.md", {}},
        {"Untitled.md", {}},
        {"plan.md", {}},
        {"c+.md", "c+ 2.md"},
        {"cc.md", {}},
    };
    for (const auto& row : rows) {
        const auto found = VaultTrash::trashedNote(row.path, list);
        EXPECT_EQ(found ? std::optional(found->trashPath) : std::nullopt, row.found) << row.path;
    }
}

TEST_F(VaultTrashTest, KeepsTextThatTheTrashedNoteMisses) {
    folder.write("n/plan.md", "saved");
    trash.trashNote("n/plan.md");
    EXPECT_EQ(trash.keepMissingText("saved", "n/plan.md"), std::nullopt);
    EXPECT_EQ(trash.keepMissingText("typed", "n/plan.md"), ".trash/plan 2.md");
    EXPECT_EQ(folder.read(".trash/plan 2.md"), "typed");
    EXPECT_EQ(platform.files.attribute(folder / ".trash/plan 2.md", trashOriginAttribute), "n/plan.md");
    EXPECT_THROW(trash.keepInTrash("x", "p.html"), VaultWriteError);

    const std::string longName(250, 'n');
    EXPECT_EQ(trash.keepInTrash("one", longName + ".md"), ".trash/" + longName + ".md");
    EXPECT_EQ(trash.keepInTrash("two", longName + ".md"), ".trash/" + std::string(250, 'n') + " 2.md");
}

TEST_F(VaultTrashTest, AFailedMoveLeavesTheNoteWhereItWas) {
    folder.write("n.md", "text");
    platform.files.fault = [](std::string_view operation, const FilePath&) -> std::optional<int> {
        if (operation == "move") return EROFS;
        if (operation == "setAttribute") return ENOTSUP;
        return {};
    };
    EXPECT_THROW(trash.trashNote("n.md"), SystemError);
    EXPECT_EQ(folder.read("n.md"), "text");
    platform.files.fault = [](std::string_view operation, const FilePath&) -> std::optional<int> {
        if (operation == "setAttribute") return ENOTSUP;
        return {};
    };
    EXPECT_EQ(trash.trashNote("n.md"), ".trash/n.md");
    EXPECT_EQ(only().origin, std::nullopt);
    for (const char* path : {"../x.md", "/etc/motd", ""})
        EXPECT_THROW(trash.trashNote(path), VaultWriteError) << path;

    const VaultTrash cloud{Vault(folder.path(), SyncProvider::iCloudDrive)};
    folder.write(".far.md.icloud", "");
    try {
        cloud.trashNote("far.md");
        ADD_FAILURE() << "a note that isn't here was moved";
    } catch (const VaultWriteError& error) {
        EXPECT_EQ(error.kind, VaultWriteError::Kind::notMaterialised);
    }
    EXPECT_EQ(platform.ubiquity.requested().back(), folder / "far.md");
}

TEST(VaultTrashPrompt, TellsWhatGoes) {
    const TrashedNote note{.trashPath = "a.md", .path = {}, .origin = {}, .trashedAt = {}};
    const TrashedNote page{.trashPath = "a.htm", .path = {}, .origin = {}, .trashedAt = {}};
    EXPECT_EQ(VaultTrash::emptyPrompt({note}, 0), "Delete 1 note forever?");
    EXPECT_EQ(VaultTrash::emptyPrompt({note, note}, 1), "Delete 2 notes and 1 other item forever?");
    EXPECT_EQ(VaultTrash::emptyPrompt({page, note, page}, 3),
              "Delete 1 note, 2 web pages and 3 other items forever?");
    EXPECT_EQ(VaultTrash::emptyPrompt({page}, 0), "Delete 1 web page forever?");
}

}  // namespace
}  // namespace vesk::test
