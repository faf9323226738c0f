#include "IndexFixture.h"
#include "VeskCore/Support/Characters.h"

namespace vesk::test {

namespace {

class NoteIndexDocumentsTest : public IndexFixture {
protected:
    using Outcome = NoteIndex::DocumentIndexOutcome;
    using Plain = Outcome::Plain;
    static VaultDocument document(const char* path, std::int64_t size = 100, double modified = 2000) {
        return {.relativePath = path,
                .path = FilePath("/vault") / path,
                .kind = *Vault::indexedKind(path),
                .modified = timeFromSecondsSince1970(modified),
                .size = size};
    }
    Outcome indexOne(const char* path) { return index().indexDocument(path, vault); }
};

TEST_F(NoteIndexDocumentsTest, PreparesPagesAndStylesheets) {
    auto page =
        NoteIndex::prepared(document("Saved/p.html"),
                            "<title> My  page </title><h1>Top</h1><p>Some words</p><noscript>off</noscript>");
    EXPECT_EQ(page.title, "My page");
    EXPECT_NE(page.body.find("Some words"), page.body.npos);
    EXPECT_EQ(page.body.find("off"), page.body.npos);
    EXPECT_TRUE(page.hash.starts_with("doc2:"));
    EXPECT_EQ(page.hash.size(), 5U + 64U);
    EXPECT_GT(page.wordCount, 0);
    EXPECT_FALSE(page.chunks.empty());
    EXPECT_EQ(NoteIndex::prepared(document("p.html"), "<title> </title>x").title, "p.html");

    std::string rules;
    for (int i = 0; i < 100; ++i) rules += ".a" + std::to_string(i) + " { color: red }\n";
    auto sheet = NoteIndex::prepared(document("s.css"), "/* gone */" + rules);
    EXPECT_EQ(sheet.title, "s.css");
    EXPECT_EQ(sheet.wordCount, 0);
    EXPECT_EQ(characterCount(sheet.excerpt), 200U);
    EXPECT_TRUE(sheet.body.starts_with(sheet.excerpt));
    EXPECT_EQ(sheet.body.find("gone"), sheet.body.npos);
    EXPECT_LE(NoteIndex::prepared(document("s.css"), std::string(100'000, 'x')).body.size(), 64'000U);
}

TEST_F(NoteIndexDocumentsTest, OfAVeryLargePageOnlyTheTitleIsKept) {
    std::string data = "<title>Large one</title><p>words " + std::string(70'000, 'x');
    auto large = document("l.html", 3'000'000);
    EXPECT_TRUE(index().reindex(large, data.substr(0, 65'536)));
    EXPECT_EQ(rows("SELECT title, word_count, excerpt FROM notes", 3), Strings{"Large one|0|"});
    EXPECT_EQ(index().body("l.html"), "Large one");
    EXPECT_EQ(index().chunks("l.html").size(), 0U);
    EXPECT_FALSE(index().reindex(large, data));
    large.size += 1;
    EXPECT_TRUE(index().reindex(large, data)) << "the size stands for what was not read";
    EXPECT_EQ(NoteIndex::prepared(document("l.css", 3'000'000), "p {}").title, "l.css");
}

TEST_F(NoteIndexDocumentsTest, AnUnchangedTextOnlyMovesItsDates) {
    EXPECT_TRUE(index().reindex(document("Saved/p.html"), "<p>one two"));
    index().storeEmbeddings({{"Saved/p.html", 0, {1}}}, "m");
    EXPECT_FALSE(index().reindex(document("Saved/p.html", 101, 2500), "<p>one two"));
    EXPECT_EQ(rows("SELECT name, folder, modified, created, size FROM notes", 5),
              Strings{"p.html|Saved|2500.0|2000.0|101"});
    EXPECT_TRUE(index().reindex(document("Saved/p.html", 101, 2600), "<b><p>one two"));
    EXPECT_EQ(index().embeddedChunkCount(), 1) << "the passage's text is the same";
    EXPECT_EQ(index().documentCount(), 1);
    EXPECT_EQ(index().noteCount(), 0);
}

TEST_F(NoteIndexDocumentsTest, IndexesOneDocumentAndTellsWhatBecameOfIt) {
    platform.ubiquity.setUbiquitousFolder(platform.vaultFolder.path());
    auto page = platform.vaultFolder.write("a.html", "<p>one");
    platform.vaultFolder.write("a_files/inner.html", "<p>inner");
    platform.vaultFolder.write("note.md", "note");
    std::filesystem::create_directories(platform.vaultFolder / "folder.html");
    EXPECT_EQ(indexOne("a.html"), Outcome{Plain::indexed});
    index().recordPending("a.html", "r");
    EXPECT_EQ(indexOne("a.html"), Outcome{Plain::unchanged});
    EXPECT_EQ(index().pendingCounts(), std::pair(0, 0));
    struct {
        const char* path;
        Plain expected;
    } cases[] = {{"note.md", Plain::unchanged},
                 {"a.png", Plain::unchanged},
                 {"a_files/inner.html", Plain::vanished},
                 {"gone.html", Plain::vanished},
                 {"folder.html", Plain::vanished}};
    for (const auto& c : cases) EXPECT_EQ(indexOne(c.path), Outcome{c.expected}) << c.path;

    // A hash of another document format never counts as the stamp of this one.
    index().exec("UPDATE notes SET content_hash = replace(content_hash, 'doc2:', 'doc1:')");
    EXPECT_EQ(indexOne("a.html"), Outcome{Plain::indexed});

    auto pending = [](const char* reason) { return Outcome{Outcome::Pending{reason}}; };
    platform.vaultFolder.write("a.html", "<p>one, longer");
    std::optional<int> failure;
    platform.files.fault = [&](std::string_view operation, const FilePath& path) -> std::optional<int> {
        if (operation == "read" && path == page) return failure;
        return std::nullopt;
    };
    failure = EIO;
    EXPECT_EQ(indexOne("a.html"), pending("couldn't be read"));
    failure = 11;
    EXPECT_EQ(indexOne("a.html"), pending("not downloaded from iCloud"));
    EXPECT_EQ(index().pendingDocuments().front().second, "not downloaded from iCloud");
    failure.reset();
    platform.ubiquity.set(page, {.isUbiquitous = true, .isDownloading = true});
    EXPECT_EQ(indexOne("a.html"), pending("downloading from iCloud"));
    platform.ubiquity.clear(page);
    index().exec("DELETE FROM pending_notes; DROP TABLE note_text");
    EXPECT_EQ(indexOne("a.html"), pending("couldn't be indexed"));
    EXPECT_EQ(index().pendingCounts(), std::pair(0, 0));
    index().close();
    EXPECT_EQ(indexOne("a.html"), pending("couldn't be indexed"));
}

}  // namespace

}  // namespace vesk::test
