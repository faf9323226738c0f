#include <random>
#include <thread>

#include "IndexFixture.h"
#include "VeskCore/Vault/AtomicWrite.h"

namespace vesk::test {

namespace {

class NoteIndexReindexTest : public IndexFixture {
protected:
    using Values = UbiquitySource::Values;
    using Status = UbiquitySource::DownloadingStatus;

    FilePath write(std::string_view path, std::string_view bytes) {
        return platform.vaultFolder.write(path, bytes);
    }
    ReindexSummary reindexAll() { return index().fullReindex(vault); }
    static std::string outcome(const ReindexSummary& s) {
        return std::to_string(s.indexed) + " " + std::to_string(s.unchanged) + " " +
               std::to_string(s.removed) + " " + std::to_string(s.pending.size()) + "; " +
               std::to_string(s.documentsIndexed) + " " + std::to_string(s.documentsUnchanged) + " " +
               std::to_string(s.pendingDocuments.size());
    }
    /// Every table that is worked out from the files, without what belongs to the moment of writing.
    static Strings everything(const NoteIndex& index) {
        Strings all;
        auto table = [&](const std::string& columns, const std::string& name, int count) {
            for (const auto& row :
                 rows(index, "SELECT " + columns + " FROM " + name + " ORDER BY " + columns, count)) {
                all.push_back(name + ": " + row);
            }
        };
        table("relative_path, name, title, folder, content_hash, word_count, excerpt", "notes", 7);
        table("note_path, title, body", "note_text", 3);
        table("note_path, key, value_text, value_num, value_kind", "properties", 5);
        table("source_path, target_name, target_resolved_path, heading, block_id, alias, is_embed", "links",
              7);
        table("note_path, tag", "tags", 2);
        table("note_path, line, text, done", "tasks", 4);
        table("note_path, level, text, line", "headings", 4);
        table("note_path, ordinal, text", "chunks", 3);
        table("relative_path, reason", "pending_notes", 2);
        for (const char* word : {"apple", "berry", "cedar", "dune"}) {
            for (const auto& path : matching(index, word)) all.push_back(std::string(word) + ": " + path);
        }
        return all;
    }
};

TEST_F(NoteIndexReindexTest, ReadsAllThenOnlyWhatChanged) {
    write("a.md", "alpha [[b]]");
    write("sub/b.md", "\xEF\xBB\xBF---\r\nk: 1\r\n---\r\nbeta\r\n");
    write("page.html", "<title>Page</title><p>gamma");
    write("style.css", "p { color: red }");
    write("ignored.png", "png");
    std::vector<IndexProgress> seen;
    auto summary = index().fullReindex(vault, [&](const IndexProgress& step) { seen.push_back(step); });
    EXPECT_EQ(outcome(summary), "2 0 0 0; 2 0 0");
    ASSERT_EQ(seen.size(), 5U);
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(seen[static_cast<std::size_t>(i)].completed, i);
        EXPECT_EQ(seen[static_cast<std::size_t>(i)].total, 4);
        EXPECT_EQ(seen[static_cast<std::size_t>(i)].path.empty(), i == 4);
    }
    EXPECT_EQ(
        log.lines().back(),
        "Full reindex: 2 changed, 0 unchanged, 0 removed, 0 pending; documents: 2 changed, 0 unchanged, 0 "
        "pending.");
    EXPECT_EQ(index().backlinks("sub/b.md"), Strings{"a.md"}) << "links wait for the last note";
    EXPECT_EQ(index().body("sub/b.md"), "beta\n");
    EXPECT_EQ(outcome(reindexAll()), "0 2 0 0; 0 2 0");

    write("a.md", "alpha changed");
    std::filesystem::remove(platform.vaultFolder / "sub/b.md");
    std::filesystem::remove(platform.vaultFolder / "page.html");
    write("style.css", "p { color: blue; }");
    EXPECT_EQ(outcome(reindexAll()), "1 0 2 0; 1 0 0");
    EXPECT_EQ(rows("SELECT relative_path FROM notes ORDER BY 1"), (Strings{"a.md", "style.css"}));
    EXPECT_EQ(rows("SELECT last_full_reindex IS NOT NULL FROM schema_version"), Strings{"1"});
}

TEST_F(NoteIndexReindexTest, KeepsTheOldRowsOfWhatCannotBeReadAndSaysWhy) {
    platform.ubiquity.setUbiquitousFolder(platform.vaultFolder.path());
    for (const char* name : {"away", "coming", "old", "broken", "fine"})
        write(name + std::string(".md"), name);
    write("page.html", "<p>page");
    reindexAll();
    auto path = [&](const char* name) { return platform.vaultFolder / name; };
    platform.ubiquity.setDataless(path("away.md"));
    platform.ubiquity.set(path("coming.md"), {.isUbiquitous = true, .isDownloading = true});
    platform.ubiquity.set(path("old.md"), {.isUbiquitous = true, .downloadingStatus = Status::downloaded});
    platform.ubiquity.set(path("page.html"),
                          {.isUbiquitous = true, .downloadingStatus = Status::notDownloaded});
    platform.files.fault = [](std::string_view operation, const FilePath& file) -> std::optional<int> {
        if (operation == "read" && file.filename() == "broken.md") return EIO;
        return std::nullopt;
    };
    auto summary = reindexAll();
    EXPECT_EQ(outcome(summary), "0 1 0 4; 0 0 1");
    EXPECT_EQ(summary.stale, Strings{"old.md"});
    EXPECT_EQ(platform.ubiquity.requested(), std::vector<FilePath>{path("old.md")});
    using Pairs = std::vector<std::pair<std::string, std::string>>;
    EXPECT_EQ(index().pendingNotes(), (Pairs{{"away.md", "not downloaded from iCloud"},
                                             {"broken.md", "couldn't be read"},
                                             {"coming.md", "downloading from iCloud"},
                                             {"old.md", "a newer version is still in iCloud"}}));
    EXPECT_EQ(index().pendingDocuments(), (Pairs{{"page.html", "not downloaded from iCloud"}}));
    EXPECT_EQ(matching("away"), Strings{"away.md"});

    platform.ubiquity.clear(path("away.md"));
    platform.files.fault = {};
    EXPECT_EQ(outcome(reindexAll()), "0 3 0 2; 0 0 1");
    EXPECT_EQ(index().pendingCounts(), std::pair(2, 1));
}

TEST_F(NoteIndexReindexTest, StoppingTakesBackAllNotesOfTheRun) {
    write("a.md", "before");
    reindexAll();
    for (int i = 0; i < 200; ++i) write("n" + std::to_string(i) + ".md", "after");
    std::filesystem::remove(platform.vaultFolder / "a.md");
    std::stop_source stop;
    EXPECT_THROW(index().fullReindex(
                     vault,
                     [&](const IndexProgress& step) {
                         if (step.completed == 150) stop.request_stop();
                     },
                     stop.get_token()),
                 OperationCancelled);
    EXPECT_EQ(rows("SELECT relative_path FROM notes"), Strings{"a.md"});
    EXPECT_EQ(matching("after"), Strings{});
    EXPECT_EQ(outcome(reindexAll()), "200 0 1 0; 0 0 0");
}

TEST_F(NoteIndexReindexTest, AFailureOfTheCallersProgressRollsBackAndGoesOn) {
    for (int i = 0; i < 100; ++i) write("n" + std::to_string(i) + ".md", "text");
    EXPECT_THROW(index().fullReindex(vault,
                                     [](const IndexProgress& step) {
                                         if (step.completed == 70) throw SystemError(EIO, "show", "progress");
                                     }),
                 SystemError);
    EXPECT_EQ(index().noteCount(), 0);
    // Links are resolved at once again, and the index takes new work.
    write("b.md", "[[n1]]");
    EXPECT_EQ(outcome(reindexAll()), "101 0 0 0; 0 0 0");
    EXPECT_EQ(index().backlinks("n1.md"), Strings{"b.md"});
}

TEST_F(NoteIndexReindexTest, ReachesWhatAFreshIndexHoldsAfterAnyEdits) {
    const unsigned seed = 42;
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    auto any = [&](const Strings& list) { return list[random() % list.size()]; };
    Strings paths;
    for (int i = 0; i < 24; ++i)
        paths.push_back(any({"", "a/", "a/b/"}) + "note" + std::to_string(i) + ".md");
    paths.insert(paths.end(), {"p.html", "a/q.htm", "s.css"});
    auto text = [&] {
        std::string result;
        if (random() % 2 == 0) {
            result += any({"---\n", "--- \n"}) + "title: " + any({"apple", "'berry'", "7"}) + "\ntags: [" +
                      any({"One", "two"}) + "]\nwhen: 2025-01-0" + any({"1", "2"}) +
                      any({"\n---\n", "\n...\n"});
        }
        for (auto lines = random() % 8; lines > 0; --lines) {
            result += any({"# Heading apple", "## Part", "- [ ] berry task", "- [x] done", "cedar words here",
                           "#tag/sub dune", "```", "", "![[p.png]]"}) +
                      " [[note" + std::to_string(random() % 30) + any({"", "#h", "|alias", ".md"}) + "]]\n";
        }
        return result;
    };
    for (int round = 0; round < 16; ++round) {
        // Where all edits were told, the reindex finds no change, but links still wait for it.
        bool tellsAll = round % 4 == 3;
        for (int edit = 0; edit < 9; ++edit) {
            std::string path = any(paths);
            bool isNote = path.ends_with(".md");
            FilePath file = platform.vaultFolder / path;
            if (random() % 4 == 0) {
                std::filesystem::remove(file);
                if (tellsAll || random() % 2 == 0) index().removeNote(path);
            } else {
                std::string content = text();
                write(path, content);
                // Some saves are told to the index, the rest it finds by itself.
                bool tells = tellsAll || random() % 2 == 0;
                if (isNote && tells) index().reindexText(note(path), content);
                if (!isNote && tells) index().indexDocument(path, vault);
            }
        }
        reindexAll();
        NoteIndex fresh(platform.supportFolder / ("fresh" + std::to_string(round)), time, log);
        fresh.fullReindex(vault);
        ASSERT_EQ(everything(index()), everything(fresh)) << "round " << round;
        // FTS5's own check of its words against the texts they came from.
        ASSERT_NO_THROW(index().run("INSERT INTO notes_fts(notes_fts, rank) VALUES ('integrity-check', 1)"));
    }
}

TEST_F(NoteIndexReindexTest, ANoteWrittenAnewLosesTheLinkThatLeadsNowhere) {
    for (bool inFull : {true, false}) {
        write("b.md", "---\nalias: Bee\n---\n");
        write("c.md", "[[bee]]");
        reindexAll();
        ASSERT_EQ(index().backlinks("b.md"), Strings{"c.md"});
        write("b.md", "no alias");
        write("c.md", "[[bee]] and more");
        if (inFull) {
            reindexAll();
        } else {
            add("b.md", "no alias");
            add("c.md", "[[bee]] and more");
        }
        EXPECT_EQ(index().backlinks("b.md"), Strings{}) << inFull;
    }
}

TEST_F(NoteIndexReindexTest, TwoConnectionsShareOneFile) {
    for (int i = 0; i < 60; ++i)
        write("n" + std::to_string(i) + ".md", "word [[n" + std::to_string(i + 1) + "]]");
    reindexAll();
    auto other = open();
    std::jthread saving([&] {
        for (int i = 0; i < 60; ++i) other->reindexText(note("m" + std::to_string(i) + ".md"), "own [[n1]]");
    });
    for (int i = 0; i < 30; ++i) {
        index().reindexText(note("n" + std::to_string(i) + ".md"), "changed [[n2]]");
        index().noteCount();
    }
    saving.join();
    EXPECT_EQ(index().noteCount(), 120);
    EXPECT_EQ(matching("changed").size(), 30U);
    EXPECT_EQ(matching("own").size(), 60U);
    EXPECT_EQ(other->backlinks("n2.md").size(), 30U);
    EXPECT_NO_THROW(index().run("INSERT INTO notes_fts(notes_fts, rank) VALUES ('integrity-check', 1)"));
}

}  // namespace

}  // namespace vesk::test
