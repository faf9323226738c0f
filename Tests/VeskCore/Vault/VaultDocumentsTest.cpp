#include <gtest/gtest.h>

#include <cerrno>

#include "Support/Fakes.h"
#include "VeskCore/Vault/Vault.h"

namespace vesk::test {
namespace {

using Names = std::vector<std::string>;

TEST(VaultKinds, GoByTheExtension) {
    const struct {
        const char* path;
        std::optional<IndexedKind> expected;
    } rows[] = {
        {"a.md", IndexedKind::note},
        {"a/b.Markdown", IndexedKind::note},
        {"a.mdown", IndexedKind::note},
        {"a.TXT", IndexedKind::note},
        {"a.HTML", IndexedKind::page},
        {"a.htm", IndexedKind::page},
        {"a.css", IndexedKind::stylesheet},
        {"a.png", {}},
        {"md", {}},
        {".md", {}},
        {"a.md/b", {}},
        {"", {}},
    };
    for (const auto& row : rows) EXPECT_EQ(Vault::indexedKind(row.path), row.expected) << row.path;
    EXPECT_TRUE(Vault::isDocument("a.css"));
    EXPECT_FALSE(Vault::isDocument("a.md"));
    EXPECT_TRUE(Vault::isSameKind("a.md", "b.txt"));
    EXPECT_TRUE(Vault::isSameKind("a.png", "b"));
    EXPECT_FALSE(Vault::isSameKind("a.html", "b.css"));
    EXPECT_TRUE(Vault::isNonNoteFileTarget("in/a.pdf"));
    EXPECT_FALSE(Vault::isNonNoteFileTarget("in/a.MD"));
    EXPECT_FALSE(Vault::isNonNoteFileTarget("v1.2 notes"));
    EXPECT_FALSE(Vault::isNonNoteFileTarget("Plan"));
}

TEST(VaultKinds, AreConditionsInSql) {
    EXPECT_EQ(Vault::sqlIsNote("path"),
              "(lower(path) LIKE '%.markdown' OR lower(path) LIKE '%.md' OR lower(path) LIKE '%.mdown' OR "
              "lower(path) LIKE '%.txt')");
    EXPECT_EQ(Vault::sqlIsPage("n.path"), "(lower(n.path) LIKE '%.htm' OR lower(n.path) LIKE '%.html')");
    EXPECT_EQ(Vault::sqlIsStylesheet("path"), "(lower(path) LIKE '%.css')");
}

TEST(VaultKinds, StubsCountByTheNameTheyStandFor) {
    EXPECT_EQ(Vault::logicalNoteName(".a.MD.icloud"), "a.MD");
    EXPECT_EQ(Vault::logicalNoteName(".a.html.icloud"), std::nullopt);
    EXPECT_EQ(Vault::logicalNoteName("..md.icloud"), std::nullopt);
    EXPECT_EQ(Vault::logicalNoteName(".md.icloud"), std::nullopt);
    EXPECT_EQ(Vault::logicalDocumentName(".a.css.icloud"), "a.css");
    EXPECT_EQ(Vault::logicalDocumentName(".a.md.icloud"), std::nullopt);
}

TEST(VaultKinds, SavedPageFoldersAreEveryOneOnThePath) {
    using Pairs = std::vector<std::pair<std::string, std::string>>;
    EXPECT_EQ(Vault::savedPageFolders("a/b_files/c_Files/d.css"), (Pairs{{"a", "b"}, {"a/b_files", "c"}}));
    EXPECT_EQ(Vault::savedPageFolders("b_files/d.css"), (Pairs{{"", "b"}}));
    EXPECT_EQ(Vault::savedPageFolders("_files/d.css"), Pairs{});
    EXPECT_EQ(Vault::savedPageFolders("a/b_files"), Pairs{});
}

class AttachmentTest : public ::testing::Test {
protected:
    PlatformFixture platform;
    const ScratchFolder& folder = platform.vaultFolder;
    Vault vault{folder.path(), SyncProvider::none};
    const TimePoint now = timeFromSecondsSince1970(1'750'000'000);  // 15 June 2025, 15:06:40 UTC
    const Calendar calendar{.timeZone = "Europe/Berlin"};
};

TEST_F(AttachmentTest, GetsANameAndAPlace) {
    const struct {
        const char* name;
        std::string extension;
        std::optional<std::string> stem, subfolder;
        std::string expected;
    } rows[] = {
        {"pasted", "png", {}, {}, "Attachments/pasted-2025-06-15-170640.png"},
        {"pasted within the same second", "png", "", "", "Attachments/pasted-2025-06-15-170640 2.png"},
        {"and again", "png", {}, {}, "Attachments/pasted-2025-06-15-170640 3.png"},
        {"an untidy extension", ".PNG ", "shot", {}, "Attachments/shot.png"},
        {"blanks and slashes", "m4a", "a b/c", "My Notes/2", "Attachments/My-Notes-2/a-b-c.m4a"},
        {"a stylesheet", "CSS", "theme", {}, "Attachments/theme.css"},
        {"a stylesheet again", "css", "theme", {}, "Attachments/theme 2.css"},
        {"a note", "md", "theme", {}, "Attachments/theme.md"},
        {"no way out", "../../../x", "../up", "..", "Attachments/Untitled/-up.-..-..-x"},
    };
    for (const auto& row : rows) {
        const std::string bytes = row.extension + "\r\n\xFF";
        EXPECT_EQ(vault.saveAttachment(bytes, row.extension, row.stem, now, calendar, row.subfolder),
                  row.expected)
            << row.name;
        EXPECT_EQ(folder.read(row.expected), bytes) << row.name;
    }
    EXPECT_EQ(folder.list(), Names{"Attachments"});
}

TEST_F(AttachmentTest, NeverOverwritesAFileThatAppearsMeanwhile) {
    for (const std::string extension : {"png", "html"}) {
        bool isFirst = true;
        platform.files.fault = [&](std::string_view operation, const FilePath&) -> std::optional<int> {
            if (operation == "move" && std::exchange(isFirst, false)) {
                folder.write("Attachments/a." + extension, "theirs");
            }
            return {};
        };
        EXPECT_EQ(vault.saveAttachment("ours", extension, "a", now, calendar),
                  "Attachments/a 2." + extension);
        EXPECT_EQ(folder.read("Attachments/a." + extension), "theirs");
    }
    EXPECT_EQ(folder.list("Attachments"), (Names{"a 2.html", "a 2.png", "a.html", "a.png"}));
}

TEST_F(AttachmentTest, AFailedMoveLeavesNothingBehind) {
    platform.files.fault = [](std::string_view operation, const FilePath&) -> std::optional<int> {
        if (operation == "move") return ENOSPC;
        return {};
    };
    EXPECT_THROW(vault.saveAttachment("x", "html", "page", now, calendar), SystemError);
    EXPECT_THROW(vault.saveAttachment("x", "png", "picture", now, calendar), SystemError);
    EXPECT_EQ(folder.list("Attachments"), Names{});
}

TEST(Transcript, GoesNextToItsRecording) {
    const struct {
        const char* name;
        const char* note;
        std::optional<std::string> expected;
    } rows[] = {
        {"the link is all there is", "[Old](a.m4a)\n", "Said.\n\n[Memo](a.m4a)\n"},
        {"no line end", "![](a.m4a)", "Said.\n\n[Memo](a.m4a)\n"},
        {"empty lines count for nothing", "\n\n[Old](a.m4a)\n\n", "Said.\n\n[Memo](a.m4a)\n"},
        {"before the link's line", "# T\n[Old](a.m4a)\nEnd\n", "# T\nSaid.\n\n[Old](a.m4a)\nEnd\n"},
        {"the first of two", "[1](a.m4a)\n[2](a.m4a)", "Said.\n\n[1](a.m4a)\n[2](a.m4a)"},
        {"words beside the link stay", "Mine: [Old](a.m4a)", "Said.\n\nMine: [Old](a.m4a)"},
        {"words in another link stay", "[x](b) [Old](a.m4a)", "Said.\n\n[x](b) [Old](a.m4a)"},
        {"no link", "[Old](b.m4a)\n(a.m4a)", {}},
        {"empty note", "", {}},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(Vault::noteWithTranscript(" Said.\n", "a.m4a", "Memo", row.note), row.expected) << row.name;
    }
    EXPECT_EQ(Vault::attachmentEmbed("Attachments/a b.png"), "![](Attachments/a b.png)");
    EXPECT_EQ(Vault::recordingLink("a.m4a", "Memo"), "[Memo](a.m4a)");
}

}  // namespace
}  // namespace vesk::test
