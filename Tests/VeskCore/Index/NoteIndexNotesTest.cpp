#include "IndexFixture.h"
#include "VeskCore/Index/NoteRows.h"

namespace vesk::test {

namespace {

class NoteIndexNotesTest : public IndexFixture {};

TEST_F(NoteIndexNotesTest, WritesEveryRowOfANote) {
    const char* text =
        "---\ntitle:  Trip \ntags: [Work, plan/]\nscore: 2.5\ndone: yes\nwhen: 2025-03-04\nnames:\n  - "
        "Anna\n  - 7\n"
        "empty: []\nnothing:\nmap: {a: 1}\n---\n# Heading\nFirst words #work of it.\n- [x] packed\n- [ ] "
        "passport\n"
        "[[Other#Part|shown]] ![[pic.png]] ![[Plan#^b1]] [text](sub/page.md#part)\n";
    ASSERT_TRUE(index().reindexText(note("Folder/Trip note.md", 1234.5), text));
    EXPECT_EQ(
        rows("SELECT relative_path, name, title, folder, modified, created, size, word_count, excerpt FROM "
             "notes",
             9),
        Strings{"Folder/Trip note.md|Trip note|Trip|Folder|1234.5|500.0|7|16|First words #work of it."});
    EXPECT_EQ(index().storedHash("Folder/Trip note.md"), NoteIndex::contentHash(text));
    EXPECT_EQ(
        rows("SELECT key, value_text, value_num, value_kind FROM properties ORDER BY key, rowid", 4),
        (Strings{"done|true|1.0|bool", "map|{a: 1}|NULL|raw", "names|Anna|NULL|list", "names|7|7.0|list",
                 "nothing|NULL|NULL|null", "score|2.5|2.5|number", "tags|Work|NULL|list",
                 "tags|plan/|NULL|list", "title|Trip|NULL|string", "when|2025-03-04|1741046400.0|date"}));
    EXPECT_EQ(rows("SELECT tag FROM tags ORDER BY rowid"), (Strings{"work", "plan"}));
    EXPECT_EQ(rows("SELECT target_name, target_resolved_path, heading, block_id, alias, is_embed FROM links "
                   "ORDER BY rowid",
                   6),
              (Strings{"Other|NULL|Part|NULL|shown|0", "Plan|NULL|NULL|b1|NULL|1",
                       "sub/page.md|NULL|part|NULL|text|0"}));
    EXPECT_EQ(rows("SELECT line, text, done FROM tasks ORDER BY line", 3),
              (Strings{"2|packed|1", "3|passport|0"}));
    EXPECT_EQ(rows("SELECT level, text, line FROM headings", 3), Strings{"1|Heading|0"});
    ASSERT_EQ(index().chunks("Folder/Trip note.md").size(), 1U);
    EXPECT_TRUE(index().chunks("Folder/Trip note.md")[0].text.starts_with("Heading\n\nFirst words"));
    // The frontmatter is not searchable.
    EXPECT_EQ(matching("passport"), Strings{"Folder/Trip note.md"});
    EXPECT_EQ(matching("anna"), Strings{});
    EXPECT_EQ(index().tasks(true),
              (std::vector<NoteIndex::TaskRow>{{"Folder/Trip note.md", 3, "passport", false}}));
}

TEST_F(NoteIndexNotesTest, TakesTheTitleFromTheFirstPlaceThatHasOne) {
    struct {
        const char *path, *text, *expected;
    } cases[] = {
        {"a.md", "---\ntitle: ' '\n---\n# One", "One"},
        {"b.md", "---\ntitle: 7\n---\n# One", "7"},
        {"x/c.md.md", "no heading", "c"},
        {"d.txt", "## Two only", "d.txt"},
        {"e.md", "#\nempty heading", "e"},
    };
    for (const auto& c : cases) {
        add(c.path, c.text);
        EXPECT_EQ(index().title(c.path), c.expected) << c.path;
    }
    EXPECT_EQ(index().title("none.md"), std::nullopt);
}

TEST_F(NoteIndexNotesTest, RewritesOnlyWhatChangedButAlwaysClearsThePendingRow) {
    EXPECT_TRUE(add("a.md", "text"));
    index().recordPending("a.md", "couldn't be read");
    EXPECT_FALSE(index().reindexText(note("a.md", 9999), "text"));
    EXPECT_EQ(rows("SELECT modified FROM notes"), Strings{"1000.0"});
    EXPECT_EQ(index().pendingCounts(), std::pair(0, 0));
    EXPECT_TRUE(add("a.md", "---\nkey: 1\n---\ntext")) << "frontmatter counts";
    EXPECT_EQ(rows("SELECT key FROM properties"), Strings{"key"});
}

TEST_F(NoteIndexNotesTest, CarriesVectorsOverByThePassagesText) {
    add("a.md", "# One\nfirst\n# Two\nsecond\n# Three\nthird");
    index().storeEmbeddings({{"a.md", 0, {1, 0}}, {"a.md", 1, {0, 1}}, {"a.md", 2, {}}}, "model@2");
    EXPECT_EQ(log.lines().back(), "Dropped 1 empty vector(s) from model@2; those chunks stay unembedded.");
    add("a.md", "# Two\nsecond\n# Zero\nnew\n# One\nfirst");
    EXPECT_EQ(rows("SELECT text, hex(vector), embed_provider FROM chunks ORDER BY ordinal", 3),
              (Strings{"Two\n\nsecond|000000000000803F|model@2", "Zero\n\nnew||NULL",
                       "One\n\nfirst|0000803F00000000|model@2"}));
    EXPECT_EQ(index().embeddedChunkCount(), 2);
}

TEST_F(NoteIndexNotesTest, ListsPassagesToEmbedNotesFirstAndByStamp) {
    auto page = [&](const char* path) {
        VaultDocument document{.relativePath = path, .kind = *Vault::indexedKind(path), .size = 30};
        index().reindex(document, "<p>page words</p> p { color: red }");
    };
    page("a.html");
    page("b.css");
    add("n.md", "# 1\none\n# 2\ntwo");
    add("m.md", "em");
    auto needed = [&](int limit) {
        Strings result;
        for (const auto& chunk : index().chunksNeedingEmbedding("new", limit)) {
            result.push_back(chunk.notePath + "#" + std::to_string(chunk.ordinal));
        }
        return result;
    };
    EXPECT_EQ(needed(10), (Strings{"m.md#0", "n.md#0", "n.md#1", "a.html#0"}));
    EXPECT_EQ(needed(2), (Strings{"m.md#0", "n.md#0"}));
    EXPECT_EQ(needed(0), Strings{});
    index().storeEmbeddings({{"m.md", 0, {1}}}, "new");
    index().storeEmbeddings({{"n.md", 0, {1}}}, "old");
    EXPECT_EQ(needed(10), (Strings{"n.md#0", "n.md#1", "a.html#0"}));
    EXPECT_TRUE(index().embeddingProviderChanged("new"));
    EXPECT_EQ(index().invalidateEmbeddings("new"), 1);
    EXPECT_FALSE(index().embeddingProviderChanged("new"));
    EXPECT_EQ(index().embeddedChunkCount(), 1);
    EXPECT_EQ(index().chunkCount(), 4) << "a stylesheet's passages don't count";
}

TEST_F(NoteIndexNotesTest, RemovesEveryTraceOfANote) {
    add("a.md", "---\nk: 1\n---\n# H\n- [ ] t #x [[b]]");
    add("b.md", "[[a]]");
    index().resolveLinks();
    EXPECT_EQ(index().backlinks("a.md"), Strings{"b.md"});
    index().recordPending("a.md", "couldn't be read");
    index().exec(
        "INSERT INTO filing_decisions (note_path, content_hash, targets_hash, model_key, verdict, decided) "
        "VALUES ('a.md', '', '', '', 'filed', 0); INSERT INTO note_vectors VALUES ('a.md', '', '', x'00')");
    index().removeNote("a.md");
    for (const char* table : {"properties", "tags", "tasks", "headings", "chunks", "note_text",
                              "filing_decisions", "note_vectors"}) {
        EXPECT_EQ(rows(std::string("SELECT COUNT(*) FROM ") + table + " WHERE note_path = 'a.md'"),
                  Strings{"0"})
            << table;
    }
    EXPECT_EQ(matching("t"), Strings{});
    EXPECT_EQ(rows("SELECT source_path, target_name, target_resolved_path FROM links", 3),
              Strings{"b.md|a|NULL"});
    EXPECT_EQ(index().noteCount(), 1);
    EXPECT_EQ(index().pendingCounts(), std::pair(0, 0));
}

TEST_F(NoteIndexNotesTest, ListsTagsPendingFilesAndPreviews) {
    add("a.md", "seen ![[p.png]] #x #y");
    add("b.md", "again #x");
    add("c.md", "![[only.png]]");
    using Counted = std::vector<std::pair<std::string, int>>;
    EXPECT_EQ(index().allTags(), (Counted{{"x", 2}, {"y", 1}}));
    EXPECT_EQ(index().excerpts(),
              (std::map<std::string, std::string>{{"a.md", "seen #x #y"}, {"b.md", "again #x"}}));
    for (const char* path : {"z.md", "y.CSS", "x.htm", "a.txt"}) index().recordPending(path, "r");
    using Pairs = std::vector<std::pair<std::string, std::string>>;
    EXPECT_EQ(index().pendingNotes(), (Pairs{{"a.txt", "r"}, {"z.md", "r"}}));
    EXPECT_EQ(index().pendingDocuments(), (Pairs{{"x.htm", "r"}, {"y.CSS", "r"}}));
    EXPECT_EQ(index().pendingCounts(), std::pair(2, 2));
}

TEST(NoteRowsTest, OnlyTextsThatComeBackUnchangedAreHashedUnparsed) {
    struct {
        const char* text;
        bool expected;
    } cases[] = {
        {"", true},
        {"plain\n", true},
        {"---\nunclosed: 1\n", false},
        {"---\na: 1\n---\nbody\n", true},
        {"---\na: 1\n---", true},
        {"---\na: 1\n---\n", true},
        {"---\na: 1\n---\n\n", false},
        {"---\na: 1\n---\n\n\n", true},
        {"---\n---\nbody", false},
        {"--- \na: 1\n---\nbody", false},
        {"---\na: 1\n...\nbody\n---\n", false},
        {"---\na: 1\n --- \nbody\n---\n", false},
        {"---\r\na: 1\r\n---\r\nbody", false},
        {"---\na: 1\n---\nbody\r\nmore", false},
        {"---\n----\n---\nbody", true},
    };
    for (const auto& c : cases) EXPECT_EQ(serialisesToItself(c.text), c.expected) << c.text;

    // Where it says so, it is so: on texts put together at random from the pieces that matter.
    std::mt19937 random(7);
    const char* pieces[] = {"---", "\n", "\n", "...", " ", "a: 1", "- x", "\r\n", "#", "text"};
    int found = 0;
    for (int round = 0; round < 20000; ++round) {
        std::string text = round % 2 == 0 ? "---\n" : "";
        for (std::size_t left = random() % 12; left > 0; --left) text += pieces[random() % std::size(pieces)];
        if (!serialisesToItself(text)) continue;
        ++found;
        ASSERT_EQ(FrontmatterDoc(text).serialized(), text);
    }
    EXPECT_GT(found, 5000);
}

}  // namespace

}  // namespace vesk::test
