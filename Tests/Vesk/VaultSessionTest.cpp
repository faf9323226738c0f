#include <gtest/gtest.h>

#include "Vesk/SessionWorld.h"
#include "VeskCore/Vault/VaultTrash.h"

namespace vesk::test {
namespace {

using Outcome = ForeignEdit::Outcome;
using Names = std::vector<std::string>;

class VaultSessionTest : public ::testing::Test, public SessionWorld {
protected:
    std::string indexed(std::string_view path) { return session->index().body(path).value_or("-"); }
};

TEST_F(VaultSessionTest, CountsWhatIsIndexedListedAndWaiting) {
    vault().write("a.md", "one");
    vault().write("b.md", "two");
    open();
    EXPECT_EQ(session->status.get(), "2 notes · " + std::string(displayName(SyncProvider::none)));

    session->setListedNotes({"a.md", "b.md", "c.md"});
    session->documentListReloaded({{.relativePath = "p.html", .path = {}, .kind = IndexedKind::page},
                                   {.relativePath = "s.css", .path = {}, .kind = IndexedKind::stylesheet}});
    EXPECT_EQ(session->status.get(), "3 notes · 1 page · " + std::string(displayName(SyncProvider::none)));
}

TEST_F(VaultSessionTest, SaysThatIndexingFailedAndNeverCountsAfterIt) {
    vault().write("a.md", "one");
    make();
    session->index().close();
    session->start();
    time.settle();
    session->documentListReloaded({{.relativePath = "p.html", .path = {}, .kind = IndexedKind::page}});
    EXPECT_EQ(session->status.get(), "Indexing failed — search will be incomplete");
    EXPECT_FALSE(session->indexing.get());
}

TEST_F(VaultSessionTest, TurnsFileChangesIntoIndexChanges) {
    vault().write("a.md", "alpha");
    vault().write("b.md", "beta");
    open();
    int published = 0;
    auto counting = session->diskRevision.subscribe([&](int) { ++published; });

    foreign("a.md", "alpha anew");
    foreign("c.md", "gamma");
    foreignMove("b.md", "n/b2.md");
    pass(1);
    EXPECT_EQ(indexed("a.md"), "alpha anew");
    EXPECT_EQ(indexed("c.md"), "gamma");
    EXPECT_EQ(indexed("b.md"), "-");
    EXPECT_EQ(indexed("n/b2.md"), "beta");
    EXPECT_EQ(session->departures().destination("b.md"), "n/b2.md");
    EXPECT_EQ(published, 1);
    EXPECT_EQ(externalChanges, 1);

    const int revision = session->diskRevisionOf("a.md");
    std::filesystem::remove(vault() / "a.md");
    tell(vault() / "a.md", FileEventFlag::itemRemoved);
    pass(1);
    EXPECT_EQ(indexed("a.md"), "-");
    EXPECT_EQ(session->diskRevisionOf("a.md"), revision);
}

TEST_F(VaultSessionTest, TakesVeryManyChangesInTheBackground) {
    vault().write("gone.md", "gone");
    vault().write("old.md", "moved");
    open();
    for (int i = 0; i < 300; ++i) foreign("n" + std::to_string(i) + ".md", "text" + std::to_string(i));
    std::filesystem::remove(vault() / "gone.md");
    tell(vault() / "gone.md", FileEventFlag::itemRemoved);
    foreignMove("old.md", "new.md");
    pass(1);
    EXPECT_EQ(indexed("n0.md"), "text0");
    EXPECT_EQ(indexed("n299.md"), "text299");
    EXPECT_EQ(indexed("gone.md"), "-");
    EXPECT_EQ(indexed("new.md"), "moved");
    EXPECT_EQ(session->departures().destination("old.md"), "new.md");
    EXPECT_EQ(session->status.get(), "301 notes · " + std::string(displayName(SyncProvider::none)));
}

TEST_F(VaultSessionTest, RaisesEveryRevisionWhenEventsWereLost) {
    vault().write("a.md", "one");
    open();
    vault().write("b.md", "unseen");
    events.tell(
        {{.path = real(vault().path()).string(), .fileID = {}, .flags = FileEventFlag::mustScanSubDirs}});
    pass(1);
    EXPECT_EQ(indexed("b.md"), "unseen");
    EXPECT_GT(session->diskRevisionOf("never seen.md"), 0);
    EXPECT_EQ(session->diskRevision.get(), session->diskRevisionOf("a.md"));
    EXPECT_EQ(externalChanges, 1);
}

TEST_F(VaultSessionTest, IndexesAfterAReindexWhatChangedWhileItRan) {
    vault().write("a.md", "old");
    vault().write("from.md", "moved");
    open();
    bool isChanged = false;
    // The notes have been read by then, and the reindex hasn't ended.
    const auto subscription = session->indexProgress.subscribe([&](double part) {
        if (part < 1 || !session->indexing.get() || std::exchange(isChanged, true)) return;
        session->saveEditorText("new", "a.md", "old", false);
        std::filesystem::rename(vault() / "from.md", vault() / "to.md");
        session->noteMoved("from.md", "to.md");
        EXPECT_EQ(indexed("a.md"), "old") << "the main thread waited for the index";
    });
    session->rebuildIndex();
    time.settle();
    EXPECT_TRUE(isChanged);
    EXPECT_EQ(indexed("a.md"), "new");
    EXPECT_EQ(indexed("from.md"), "-");
    EXPECT_EQ(indexed("to.md"), "moved");
}

TEST_F(VaultSessionTest, EndsAReindexThoughWhatChangedMeanwhileCantBeLookedAt) {
    vault().write("a.md", "old");
    open();
    const auto subscription = session->indexProgress.subscribe([&](double part) {
        if (part < 1 || !session->indexing.get() || platform.files.fault) return;
        session->saveEditorText("new", "a.md", "old", false);
        platform.files.fault = [](std::string_view operation, const FilePath& path) -> std::optional<int> {
            if (operation == "info" && path.filename() == "a.md") return EIO;
            return {};
        };
    });
    session->rebuildIndex();
    time.settle();
    EXPECT_TRUE(platform.files.fault);
    EXPECT_FALSE(session->indexing.get());
}

TEST_F(VaultSessionTest, RunsOnceMoreForAReindexAskedForMeanwhile) {
    open();
    int done = 0;
    session->rebuildIndex([&] { ++done; });
    vault().write("late.md", "late");
    session->rebuildIndex([&] {
        ++done;
        EXPECT_EQ(indexed("late.md"), "late");
    });
    time.settle();
    EXPECT_EQ(done, 2);
}

TEST_F(VaultSessionTest, FindsAForeignEditInTheWindowOfItsOwnWrite) {
    open();
    session->write("first", vault() / "a.md");
    pass(1);
    session->write("own", vault() / "a.md");  // the first check is called off
    pass(0.5);
    foreign("a.md", "foreign");
    pass(1.9);
    EXPECT_EQ(externalChanges, 0);  // its event was taken for the write's echo
    EXPECT_EQ(indexed("a.md"), "own");
    const int revision = session->diskRevisionOf("a.md");
    pass(0.2);
    EXPECT_EQ(externalChanges, 1);
    EXPECT_EQ(indexed("a.md"), "foreign");
    EXPECT_GT(session->diskRevisionOf("a.md"), revision);
}

TEST_F(VaultSessionTest, TakesItsOwnTextForItsOwnWhateverItsLineEnds) {
    open();
    session->write("a\r\nb\r\n", vault() / "a.md");
    pass(5);
    EXPECT_EQ(externalChanges, 0);
}

TEST_F(VaultSessionTest, PollsForBytesUntilAllAreHere) {
    vault().write("here.md", "here");
    vault().write("late.md", "late");
    vault().write("gone.md", "gone");
    for (const auto* path : {"late.md", "gone.md"})
        setStatus(path, UbiquitySource::DownloadingStatus::notDownloaded);
    open();
    EXPECT_EQ(session->pendingDownload->size(), 2U);
    EXPECT_NE(session->status->find(" · 2 waiting on iCloud · "), std::string::npos) << session->status.get();
    pass(7);
    EXPECT_EQ(externalChanges, 0);  // rounds in which nothing came

    std::filesystem::remove(vault() / "gone.md");
    pass(3);
    EXPECT_EQ(session->pendingDownload.get(), Names{"late.md"});
    EXPECT_EQ(drained, 0);
    makeCurrent("late.md");
    pass(30);
    EXPECT_TRUE(session->pendingDownload->empty());
    EXPECT_EQ(indexed("late.md"), "late");
    EXPECT_EQ(drained, 1);
}

TEST_F(VaultSessionTest, WaitsOnceForACurrentVersionAndParksWhatNeverComes) {
    vault().write("a.md", "old");
    open();
    makeStale("a.md");
    for (int i = 0; i < 2; ++i) EXPECT_THROW(session->editorDisk("a.md"), NewerVersionDownloading);
    EXPECT_EQ(platform.ubiquity.requested().size(), 3U);  // each read asks, the one wait too
    pass(2.5);
    vault().write("a.md", "new");
    makeCurrent("a.md");
    pass(1);
    EXPECT_EQ(indexed("a.md"), "new");
    EXPECT_EQ(externalChanges, 1);

    makeStale("a.md");
    session->awaitCurrentVersion("a.md");
    pass(59.5);
    EXPECT_TRUE(session->pendingDownload->empty());
    pass(1);
    EXPECT_EQ(session->pendingDownload.get(), Names{"a.md"});
}

TEST_F(VaultSessionTest, KeepsTypedTextAsACopyWhileANewerVersionComes) {
    vault().write("a.md", "old");
    open();
    makeStale("a.md");
    EXPECT_THROW(session->saveEditorText("typed", "a.md", "old", true), NewerVersionDownloading);
    EXPECT_EQ(session->saveEditorText("typed", "a.md", "old", false),
              (Outcome{Outcome::KeptAsCopy{"a (recovered).md"}}));
    EXPECT_EQ(vault().read("a (recovered).md"), "typed");
    EXPECT_EQ(vault().read("a.md"), "old");
    EXPECT_EQ(session->departures().destination("a.md"), "a (recovered).md");
    EXPECT_EQ(NewerVersionDownloading("n/a.md").description(),
              "A newer version of “a” is still downloading from iCloud.");
}

TEST_F(VaultSessionTest, NotesWhereEachSaveWent) {
    struct Row {
        std::string name, onDisk, text;
        std::optional<std::string> baseline;
        Outcome expected;
        int external;
    };
    const Row rows[] = {
        {"written", "base", "typed", "base", {Outcome::Plain::wrote}, 0},
        {"there already", "same", "same", {}, {Outcome::Plain::alreadyOnDisk}, 0},
        {"nothing typed", "foreign", "base", "base", {Outcome::DiskWins{"foreign"}}, 0},
        {"keys merged",
         "---\nremind: 2030-01-02 10:00\n---\nbase",
         "typed",
         "base",
         {Outcome::Merged{"---\nremind: 2030-01-02 10:00\n---\ntyped"}},
         0},
        {"both",
         "foreign",
         "typed",
         "base",
         {Outcome::KeptBoth{"both (conflict from another device).md"}},
         1},
    };
    open();
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const auto path = row.name + ".md";
        vault().write(path, row.onDisk);
        externalChanges = 0;
        EXPECT_EQ(session->saveEditorText(row.text, path, row.baseline, false), row.expected);
        EXPECT_EQ(externalChanges, row.external);
        EXPECT_GT(session->departures().since(path), 0);
    }
    EXPECT_EQ(vault().read("both.md"), "typed");
    EXPECT_EQ(vault().read("both (conflict from another device).md"), "foreign");

    // A note whose folder was moved takes its text along, also when the move is told twice.
    vault().write("n/x.md", "base");
    session->departures().arrived("n/x.md");
    std::filesystem::rename(vault() / "n", vault() / "m");
    session->notesMoved({{"n", "m"}});
    session->notesMoved({{"n", "m"}});
    externalChanges = 0;
    const auto followed = session->saveEditorText("typed", "n/x.md", "base", false);
    EXPECT_EQ(followed, (Outcome{Outcome::FollowedMove{
                            "m/x.md", std::make_shared<const Outcome>(Outcome{Outcome::Plain::wrote})}}));
    EXPECT_EQ(vault().read("m/x.md"), "typed");
    EXPECT_FALSE(vault().exists("n"));
    EXPECT_EQ(externalChanges, 1);
    EXPECT_GT(session->departures().since("m/x.md"), session->departures().since("n/x.md"));

    // One that is gone without a trace leaves a copy; one in the trash isn't brought back.
    EXPECT_EQ(session->saveEditorText("typed", "left.md", "base", false),
              (Outcome{Outcome::KeptAsCopy{"left (recovered).md"}}));
    session->notesTrashed({"trashed.md"});
    EXPECT_EQ(session->saveEditorText("typed", "trashed.md", "base", false),
              (Outcome{Outcome::Plain::noteTrashed}));
    EXPECT_FALSE(vault().exists("trashed.md"));
}

TEST_F(VaultSessionTest, ResumesWhereTheLastRunStopped) {
    open();
    foreign("a.md", "x");
    pass(1);
    stop();
    open();
    stop();
    EXPECT_EQ(events.resumed, (std::vector<std::uint64_t>{noEventID, 101}));

    const std::pair<const char*, std::uint64_t> rows[] = {
        {"+7", 7},         {"", noEventID},   {"++7", noEventID},
        {"7x", noEventID}, {"-1", noEventID}, {"18446744073709551616", noEventID}};
    std::uint64_t hash = 14695981039346656037U;
    for (const char byte : vault().path().native())
        hash = (hash ^ static_cast<unsigned char>(byte)) * 1099511628211U;
    for (const auto& row : rows) {
        defaults.set("vesk.lastEventID." + std::to_string(hash), std::string(row.first));
        open();
        EXPECT_EQ(events.resumed.back(), row.second) << row.first;
        stop();
    }
}

TEST_F(VaultSessionTest, FindsNotesByWordsAndAnswersABlankQueryWithNothing) {
    vault().write("a.md", "the quick fox");
    open();
    Names found{"not asked"};
    const auto ask = [&](const std::string& query) {
        session->searchNotes(query, 10, [&](const std::vector<SearchHit>& hits) {
            found.clear();
            for (const auto& hit : hits) found.push_back(hit.notePath);
        });
        time.settle();
        return found;
    };
    EXPECT_EQ(ask("fox"), Names{"a.md"});
    EXPECT_EQ(ask(" \t"), Names{});
    EXPECT_EQ(session->embeddedChunks.get(), 1);
}

TEST_F(VaultSessionTest, SearchesByWordsByMeaningOrByBoth) {
    vault().write("Boats/rig.md", "sail mast #sea");
    vault().write("Boats/hull.md", "lias mast mast");
    vault().write("bread.md", "flour water");
    // To the fake model words of the same letters mean the same.
    open();
    struct Row {
        const char* query;
        SearchHit::Mode mode;
        Names expected;
    };
    using Mode = SearchHit::Mode;
    for (const auto& row : {Row{"sail", Mode::keyword, {"Boats/rig.md"}}, Row{"lisa", Mode::keyword, {}},
                            Row{"lisa", Mode::semantic, {"Boats/rig.md", "Boats/hull.md"}},
                            Row{"sail", Mode::hybrid, {"Boats/rig.md", "Boats/hull.md"}},
                            Row{"lisa -sail", Mode::semantic, {"Boats/hull.md"}},
                            Row{"tag:sea lisa", Mode::semantic, {"Boats/rig.md"}},
                            Row{"path:Boats", Mode::semantic, {"Boats/hull.md", "Boats/rig.md"}}}) {
        Names found{"not asked"};
        session->searchNotes(
            row.query, 10,
            [&](const std::vector<SearchHit>& hits) {
                found.clear();
                for (const auto& hit : hits) found.push_back(hit.notePath);
            },
            row.mode);
        time.settle();
        EXPECT_EQ(found, row.expected) << row.query;
    }
}

TEST_F(VaultSessionTest, PutsWhatACutOffSaveLeftIntoTheTrashAfterAnHour) {
    vault().write("n/.vesk-tmp-1", "the only copy");
    vault().write(".vesk-tmp-2", std::string("\xff\x00", 2));
    open();  // virtual time lies before these files: they are young
    EXPECT_TRUE(vault().exists("n/.vesk-tmp-1"));
    stop();
    time.jumpWallClock(std::chrono::hours(24 * 365 * 50));
    open();
    EXPECT_EQ(vault().list("n"), Names{});
    EXPECT_FALSE(vault().exists(".vesk-tmp-2"));
    const auto trashed = VaultTrash(session->vault()).trashedNotes().first;
    ASSERT_EQ(trashed.size(), 1U);
    EXPECT_EQ(trashed[0].origin, "n/Unfinished save.md");
    EXPECT_EQ(vault().read(".trash/" + trashed[0].trashPath), "the only copy");
}

// What an earlier run could not save

class HeldTextRecoveryTest : public VaultSessionTest {
protected:
    void left(const std::string& path, const std::string& text, const std::optional<std::string>& baseline,
              bool trashed = false) {
        HeldTextStore earlier(HeldTextStore::directoryFor(vault().path()), time);
        ASSERT_TRUE(earlier.keep(text, path, "EARLIER", baseline));
        if (trashed) earlier.markTrashed({path});
        pass(1);
    }
};

TEST_F(HeldTextRecoveryTest, BringsBackEachTextWhereItBelongsAndTellsOfIt) {
    vault().write("same.md", "typed");
    left("same.md", "typed", "base");
    vault().write("moved on.md", "foreign");
    left("moved on.md", "typed", "base");
    left("n/gone.md", "---\nremind: 2030-01-02 10:00\n---\ntyped\n", "base");
    vault().write("keys.md", "body");
    left("keys.md", "---\npriority: high\n---\nbody", "body");
    vault().write("other keys.md", "---\nremind: 2031-01-01 09:00\n---\nbody");
    left("other keys.md", "---\nremind: 2030-01-02 10:00\n---\nbody", "body");
    left("in trash.md", "typed", "base", true);
    vault().write("waits.md", "old");
    left("waits.md", "typed", "old");
    makeStale("waits.md");
    left("top.md", "typed", "base");
    open();

    EXPECT_EQ(vault().read("same.md"), "typed");
    EXPECT_EQ(vault().read("moved on.md"), "foreign");
    EXPECT_EQ(vault().read("moved on (recovered).md"), "typed");
    EXPECT_EQ(vault().read("gone (recovered).md"), "typed\n");
    EXPECT_FALSE(vault().exists("n"));
    EXPECT_EQ(vault().read("keys.md"), "---\npriority: high\n---\nbody");
    EXPECT_EQ(vault().read("waits.md"), "old");
    const auto remaining = session->heldText().leftovers(false);
    ASSERT_EQ(remaining.size(), 1U);
    EXPECT_EQ(remaining[0].entry.relativePath, "waits.md");

    const auto warnings = session->heldTextWarnings();
    ASSERT_EQ(warnings.size(), 3U);
    EXPECT_EQ(
        warnings[0],
        (VaultWarning{"recovered", "Text Vesk couldn't save last time is back",
                      "Vesk ended before your typing reached the note, so it was kept as “moved on "
                      "(recovered)”, “top (recovered)”, beside the note; “gone (recovered)” at the top "
                      "of the vault, because “n” is no longer there. The reminder in “gone (recovered)” "
                      "was left off, so it doesn't ring; set it on the note if it is still wanted.",
                      VaultWarning::Severity::warning}));
    EXPECT_EQ(warnings[1], (VaultWarning{"released", "Some text Vesk couldn't save last time was let go",
                                         "A reminder change to “other keys” wasn't saved; check its bell.",
                                         VaultWarning::Severity::warning}));
    EXPECT_EQ(
        warnings[2],
        (VaultWarning{"keptInTrash", "Text Vesk couldn't save last time is in the trash",
                      "Typing in “in trash” was put in the trash, where the note it was for is; restore "
                      "it from Trash if you still want it.",
                      VaultWarning::Severity::warning}));
    EXPECT_GE(externalChanges, 1);
}

TEST_F(HeldTextRecoveryTest, KeepsTheHeldFileUntilTheDiskTakesTheText) {
    left("gone.md", "typed", "base");
    fillDisk();
    open();
    EXPECT_EQ(heldFiles(), 1U);
    EXPECT_TRUE(session->heldTextWarnings().empty());
    fillDisk(false);
    stop();
    open();
    EXPECT_EQ(vault().read("gone (recovered).md"), "typed");
    EXPECT_EQ(heldFiles(), 0U);
}

}  // namespace
}  // namespace vesk::test
