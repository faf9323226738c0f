#include <latch>

#include "InotifyFixture.h"

namespace vesk::test {
namespace {

TEST_F(InotifyTest, TellsWhatHappensToAFile) {
    folder.write("vault/old.md", "1");
    start();
    const auto old = idOf("old.md");
    folder.write("vault/new.md", "1");
    ASSERT_TRUE(waitFor([&] { return has("new.md", itemCreated | itemIsFile); }));
    EXPECT_EQ(find("new.md")->fileID, idOf("new.md"));

    std::ofstream(root() / "old.md", std::ios::app) << "2";
    ASSERT_TRUE(waitFor([&] { return has("old.md", itemModified | itemIsFile); }));
    EXPECT_EQ(find("old.md")->fileID, old);

    fs::create_directory(root() / "sub");
    settle();
    fs::rename(root() / "old.md", root() / "sub/moved.md");
    ASSERT_TRUE(waitFor([&] { return has("sub/moved.md", itemRenamed | itemIsFile); }));
    ASSERT_TRUE(has("old.md", itemRenamed | itemIsFile));
    EXPECT_EQ(find("old.md", itemRenamed)->fileID, old);
    EXPECT_EQ(find("sub/moved.md")->fileID, old);

    fs::remove(root() / "sub/moved.md");
    ASSERT_TRUE(waitFor([&] { return has("sub/moved.md", itemRemoved | itemIsFile); }));
    EXPECT_EQ(find("sub/moved.md", itemRemoved)->fileID, old);

    fs::rename(root() / "new.md", outer / "outside.md");
    ASSERT_TRUE(waitFor([&] { return has("new.md", itemRenamed); })) << "left the tree";
    fs::rename(outer / "outside.md", root() / "back.md");
    ASSERT_TRUE(waitFor([&] { return has("back.md", itemIsFile); }));

    settle();
    std::lock_guard held(eventsLock);
    for (std::size_t i = 1; i < events.size(); ++i) EXPECT_LT(events[i - 1].id, events[i].id);
    EXPECT_EQ(source->currentEventID(root()), events.back().id);
}

TEST(InotifyJournalTest, TakesTheNumberFromADeletedFileWhenANewOneHasIt) {
    using FileIDs = std::vector<std::optional<std::uint64_t>>;
    inotify::EventJournal journal("/v", std::make_shared<inotify::EventJournal::Counter>(7));
    journal.startAfter({.lastID = 7, .completeAfter = 7});
    const auto fileIDs = [&] {
        FileIDs ids;
        for (const RawEvent& event : journal.takeBatch()) ids.push_back(event.fileID);
        return ids;
    };
    journal.tell("a.md", 5, FileKind::regular, itemModified);
    journal.tell("a.md", 5, FileKind::regular, itemRemoved);
    journal.tell("b.md", 5, FileKind::regular, itemCreated);
    journal.tell("b.md", 5, FileKind::regular, itemModified);
    EXPECT_EQ(fileIDs(), (FileIDs{{}, 5})) << "one event for each path";

    journal.tell("b.md", 5, FileKind::regular, itemCreated);
    journal.tell("a.md", 5, FileKind::regular, itemRemoved);
    EXPECT_EQ(fileIDs(), (FileIDs{5, 5})) << "a second link, then the first one gone: a rename";

    journal.tell("a.md", 5, FileKind::regular, itemRenamed);
    journal.tell("b.md", 5, FileKind::regular, itemRenamed);
    EXPECT_EQ(fileIDs(), (FileIDs{5, 5}));
}

TEST_F(InotifyTest, LosesNothingThatIsMadeInNewFolders) {
    start();
    for (int i = 0; i < 50; ++i) folder.write("vault/n" + std::to_string(i) + "/b/c/note.md", "x");
    fs::create_directories(outer / "stage/deep/er");
    folder.write("stage/a.md", "");
    folder.write("stage/deep/er/b.md", "");
    fs::create_directories(outer / "stage/node_modules");
    folder.write("stage/node_modules/c.md", "");
    fs::rename(outer / "stage", root() / "moved in");
    ASSERT_TRUE(waitFor([&] {
        for (int i = 0; i < 50; ++i)
            if (!has("n" + std::to_string(i) + "/b/c/note.md", itemIsFile)) return false;
        return has("moved in/a.md", itemIsFile) && has("moved in/deep/er/b.md", itemIsFile);
    }));
    EXPECT_FALSE(has("moved in/node_modules/c.md"));
    // What happens there later is told too, also once the folder has another name.
    fs::rename(root() / "moved in/deep", root() / "n7/deep");
    ASSERT_TRUE(waitFor([&] { return has("n7/deep", itemIsDir | itemRenamed); }));
    EXPECT_TRUE(has("moved in/deep", itemIsDir | itemRenamed));
    folder.write("vault/n7/deep/er/later.md", "");
    ASSERT_TRUE(waitFor([&] { return has("n7/deep/er/later.md", itemIsFile); }));
    fs::remove_all(root() / "n7");
    ASSERT_TRUE(waitFor([&] { return has("n7", itemIsDir | itemRemoved); }));
    EXPECT_TRUE(has("n7/deep/er/later.md", itemRemoved));
}

TEST_F(InotifyTest, WatchesTheTrashButNotSkippedFolders) {
    folder.write("vault/.git/a", "");
    folder.write("vault/sub/node_modules/b.md", "");
    start();
    settle();
    folder.write("vault/.git/c", "");
    folder.write("vault/sub/node_modules/d.md", "");
    folder.write("vault/.trash/e.md", "");
    fs::rename(root() / "sub/node_modules", root() / "sub/modules");
    ASSERT_TRUE(waitFor([&] { return has("sub/modules/d.md"); }));
    fs::rename(root() / "sub/modules", root() / "node_modules");
    ASSERT_TRUE(waitFor([&] { return has("sub/modules", itemIsDir | itemRenamed); }));
    folder.write("vault/node_modules/f.md", "");
    settle();
    EXPECT_EQ(paths(),
              (Paths{".trash", ".trash/e.md", "sub/modules", "sub/modules/b.md", "sub/modules/d.md"}));
}

TEST_F(InotifyTest, TakesAnyNameAndFollowsNoLink) {
    fs::create_directory(outer / "elsewhere");
    start();
    folder.write("vault/line\nbreak \xFF\xFE/note\n\xC3.md", "");
    fs::create_directory_symlink(outer / "elsewhere", root() / "link");
    settle();
    folder.write("elsewhere/unseen.md", "");
    settle();
    EXPECT_TRUE(has("line\nbreak \xFF\xFE/note\n\xC3.md", itemIsFile));
    ASSERT_TRUE(has("link"));
    EXPECT_EQ(find("link")->flags & (itemIsFile | itemIsDir), 0U);
    EXPECT_FALSE(has("link/unseen.md"));
}

TEST_F(InotifyTest, TellsOfTwentyThousandFilesMadeAtOnce) {
    start();
    settle();
    constexpr int count = 20'000;
    for (int i = 0; i < count; ++i)
        folder.write("vault/d" + std::to_string(i % 100) + "/" + std::to_string(i) + ".md", "");
    settle();
    std::lock_guard held(eventsLock);
    // A kernel queue that ran over, on a machine too busy to read it, is told of instead.
    if (has("", mustScanSubDirs)) return;
    EXPECT_EQ(paths().size(), 20'100U);
}

TEST_F(InotifyTest, TellsOfTwentyThousandFilesThatArriveInOneFolder) {
    for (int i = 0; i < 20'000; ++i)
        folder.write("stage/d" + std::to_string(i % 100) + "/" + std::to_string(i) + ".md", "");
    start();
    fs::rename(outer / "stage", root() / "in");
    settle();
    std::lock_guard held(eventsLock);
    EXPECT_EQ(paths().size(), 20'101U);
}

TEST_F(InotifyTest, AsksForAScanWhenTheQueueRunsOver) {
    std::size_t size = 0;
    std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> size;
    if (size == 0 || size > 100'000) GTEST_SKIP() << "the system's queue is too long to be filled";
    std::latch isReading(1), mayRead(1);
    std::atomic<bool> isFirst = true;
    limits.beforeRead = [&] {
        if (!isFirst.exchange(false)) return;
        isReading.count_down();
        mayRead.wait();
    };
    folder.write("vault/a", "");
    start();
    folder.write("vault/first", "");
    isReading.wait();
    for (std::size_t i = 0; i < size / 4 + 10; ++i) {
        fs::rename(root() / "a", root() / "b");
        fs::rename(root() / "b", root() / "a");
    }
    fs::create_directories(root() / "new/folder");
    mayRead.count_down();
    ASSERT_TRUE(waitFor([&] { return has("", mustScanSubDirs); }));
    // The folders whose making was not told are watched.
    folder.write("vault/new/folder/last.md", "");
    ASSERT_TRUE(waitFor([&] { return has("new/folder/last.md"); }));
}

TEST_F(InotifyTest, NoticesARootThatGoesAndComes) {
    fs::create_directories(outer / "up/vault");
    outer = folder / "up";
    start();
    const auto changes = [this] {
        return std::count_if(events.begin(), events.end(),
                             [](const auto& event) { return event.flags & rootChanged; });
    };
    fs::rename(root(), outer / "away");
    ASSERT_TRUE(waitFor([&] { return changes() == 1; })) << "moved";
    fs::create_directory(root());
    ASSERT_TRUE(waitFor([&] { return changes() == 2; })) << "another in its place";
    folder.write("up/vault/a.md", "");
    ASSERT_TRUE(waitFor([&] { return has("a.md"); }));
    folder.write("up/away/b.md", "");
    fs::remove_all(root());
    ASSERT_TRUE(waitFor([&] { return changes() == 3; })) << "removed";
    fs::rename(outer / "away", root());
    ASSERT_TRUE(waitFor([&] { return changes() == 4; })) << "back";
    fs::rename(folder / "up", folder / "elsewhere");
    ASSERT_TRUE(waitFor([&] { return changes() == 5; })) << "a folder above it moved";
    fs::create_directories(root());
    ASSERT_TRUE(waitFor([&] { return changes() == 6; })) << "made again with the folder above it";
    folder.write("up/vault/c.md", "");
    ASSERT_TRUE(waitFor([&] { return has("c.md"); }));
    EXPECT_FALSE(has("b.md"));
    stop();
    fs::remove_all(root());
    EXPECT_FALSE(source->stream(root(), noEventID, *queue, [](auto) {})->start());
}

TEST_F(InotifyTest, ListsTheTreeWhereTheSystemGivesTooFewWatches) {
    for (const bool isShortAtStart : {true, false}) {
        fs::create_directories(root() / "a/b/c");
        const FilePath path = root();
        const auto depth = std::distance(path.begin(), path.end()) - 1;
        limits.watches = static_cast<std::size_t>(depth) + (isShortAtStart ? 2 : 4);
        limits.pollInterval = std::chrono::milliseconds(1);
        start();
        if (!isShortAtStart) {
            settle();
            fs::create_directory(root() / "a/b/c/d");
            ASSERT_TRUE(waitFor([&] { return has("", mustScanSubDirs); }));
        }
        folder.write("vault/a/b/c/deep.md", "1");
        ASSERT_TRUE(waitFor([&] { return has("a/b/c/deep.md", itemCreated | itemIsFile); }));
        const auto id = idOf("a/b/c/deep.md");
        fs::rename(root() / "a/b/c/deep.md", root() / "moved.md");
        ASSERT_TRUE(waitFor([&] { return has("moved.md", itemRenamed); }));
        EXPECT_EQ(find("a/b/c/deep.md", itemRenamed)->fileID, id);
        fs::remove_all(root());
        ASSERT_TRUE(waitFor([&] { return has("", rootChanged); }));
        stop();
        ASSERT_EQ(log.lines().size(), isShortAtStart ? 1U : 2U);
        EXPECT_NE(log.lines().back().find("fs.inotify.max_user_watches"), std::string::npos);
        events.clear();
    }
}

TEST_F(InotifyTest, TellsAtTheNextStartWhatChangedMeanwhile) {
    for (const char* path :
         {"kept.md", "gone.md", "changed.md", "sub/moved.md", "replaced.md", "touched.png"})
        folder.write(std::string("vault/") + path, "1");
    start();
    const auto moved = idOf("sub/moved.md");
    std::uint64_t last = 0;
    const auto old = fs::file_time_type::clock::now() - std::chrono::hours(1);
    for (const auto& entry : fs::recursive_directory_iterator(root())) fs::last_write_time(entry, old);
    settle();
    resume([&] {
        last = source->currentEventID(root());
        fs::remove(root() / "gone.md");
        std::ofstream(root() / "changed.md", std::ios::app) << "2";
        fs::rename(root() / "sub/moved.md", root() / "here.md");
        folder.write("vault/other", "3");
        fs::rename(root() / "other", root() / "replaced.md");
        folder.write("vault/made/in/new.md", "");
    });
    EXPECT_FALSE(has("", mustScanSubDirs));
    EXPECT_EQ(paths(), (Paths{"changed.md", "gone.md", "here.md", "made", "made/in", "made/in/new.md",
                              "replaced.md", "sub/moved.md"}));
    EXPECT_TRUE(has("gone.md", itemRemoved | itemIsFile));
    EXPECT_TRUE(has("changed.md", itemModified | itemIsFile));
    ASSERT_TRUE(has("sub/moved.md", itemRenamed) && has("here.md", itemRenamed));
    EXPECT_EQ(find("sub/moved.md")->fileID, moved);
    EXPECT_EQ(find("here.md")->fileID, moved);
    EXPECT_EQ(find("replaced.md")->fileID, idOf("replaced.md"));
    for (const RawEvent& event : events) EXPECT_GT(event.id, last);
}

TEST_F(InotifyTest, RepeatsWhatTheAskerHadNotTakenYet) {
    start();
    folder.write("vault/a.md", "");
    settle();
    std::uint64_t taken = 0;
    {
        std::lock_guard held(eventsLock);
        taken = find("a.md")->id;
    }
    folder.write("vault/b.md", "");
    folder.write("vault/late.md", "");  // may not be read before the end
    fs::remove(root() / "b.md");
    resume([] {}, taken);
    EXPECT_TRUE(has("b.md", itemRemoved));
    EXPECT_TRUE(has("late.md"));
    EXPECT_FALSE(has("", mustScanSubDirs));
    // Nothing was taken of that run either.
    resume([] {}, taken);
    EXPECT_TRUE(has("b.md", itemRemoved));
    // Further back than is known
    resume([] {}, 1);
    EXPECT_TRUE(has("", mustScanSubDirs));
}

TEST_F(InotifyTest, AsksForAScanWhenTheSnapshotCannotBeTrusted) {
    start();
    settle();
    const FilePath snapshot = state / "sub/events.snapshot";
    EXPECT_FALSE(fs::exists(snapshot)) << "a crash now leaves none";
    const std::uint64_t before = source->currentEventID(root());
    const std::function<void()> harms[] = {
        [&] { fs::remove(snapshot); },
        [&] { fs::resize_file(snapshot, fs::file_size(snapshot) - 40); },
        [&] {
            std::fstream file(snapshot, std::ios::in | std::ios::out | std::ios::binary);
            file.seekp(30);
            file.put('\x7F');
        },
        [&] { state.write("sub/events.snapshot", ""); },
        [&] {
            fs::rename(root(), outer / "away");
            fs::create_directory(root());
        },
    };
    std::uint64_t last = before;
    for (const auto& harm : harms) {
        resume(harm, last);
        EXPECT_TRUE(has("", mustScanSubDirs));
        EXPECT_FALSE(has("", historyDone));
        EXPECT_GT(events.back().id, last) << "ids rise also then";
        last = events.back().id;
    }
}

}  // namespace
}  // namespace vesk::test
