// What happens while the stream goes through the whole tree.
#include "InotifyFixture.h"

namespace vesk::test {
namespace {

class InotifyScanTest : public InotifyTest {
protected:
    /// More items than are gone through between two looks into the kernel's queue.
    void fill() {
        for (const char* path : {"a/changed.md", "a/gone.md", "a/moved.md", "b/kept.md", "top/deep.md"})
            folder.write(std::string("vault/") + path, "1");
        for (int i = 0; i < 600; ++i) folder.write("vault/many/" + std::to_string(i) + ".md", "");
        folder.write("stage/in/held.md", "");
        // A file that changed just before the end is told of again.
        const auto old = fs::file_time_type::clock::now() - std::chrono::hours(1);
        for (const auto& entry : fs::recursive_directory_iterator(root())) fs::last_write_time(entry, old);
    }
    void change() {
        std::ofstream(root() / "a/changed.md", std::ios::app) << "2";
        fs::rename(root() / "a/moved.md", root() / "b/moved.md");
        folder.write("vault/b/new/made.md", "");
        fs::rename(outer / "stage", root() / "stage");
        folder.write("vault/top.md", "");
        fs::remove(root() / "a/gone.md");  // last: a new file would get its number
    }
    bool isTold() const {
        return has("top.md", itemCreated) && has("b/new/made.md", itemCreated) &&
               has("stage/in/held.md", itemCreated) && has("a/changed.md", itemModified) && has("b/moved.md");
    }
    void expectRisingIDs(std::uint64_t last) {
        std::lock_guard held(eventsLock);
        for (const RawEvent& event : events) {
            EXPECT_GT(event.id, last);
            last = event.id;
        }
    }
    std::string snapshot() const {
        std::ifstream file(state / "sub/events.snapshot", std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
};

TEST_F(InotifyScanTest, TellsWhatHappensMeanwhile) {
    const auto depth = static_cast<std::size_t>(std::distance(root().begin(), root().end())) - 1;
    const struct {
        const char* name;
        std::size_t heldAt;
        std::optional<std::size_t> watches;
    } rows[] = {{"before the scan", 0, {}},
                {"in the middle", 300, {}},
                {"at its end", 600, {}},
                {"where the tree is listed", 0, depth + 2}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        fill();
        if (row.watches) limits.watches = *row.watches;
        startHeld(row.heldAt);
        change();
        const auto moved = idOf("b/moved.md");
        release();
        // Nothing happens after it that could wake the reader.
        ASSERT_TRUE(waitFor([&] { return isTold(); }));
        for (const char* path : {"top.md", "b/new/made.md", "stage/in/held.md", "a/changed.md"})
            EXPECT_EQ(find(path)->fileID, idOf(path));
        EXPECT_EQ(find("b/moved.md")->fileID, moved);
        // What left an unwatched folder isn't known.
        ASSERT_TRUE(waitFor([&] {
            return has("", mustScanSubDirs) ||
                   (has("a/gone.md", itemRemoved) && has("a/moved.md", itemRenamed));
        }));
        EXPECT_FALSE(has("b/kept.md"));
        EXPECT_FALSE(has("many/7.md"));
        expectRisingIDs(0);
        stop();
        events.clear();
        fs::remove_all(root());
        fs::create_directory(root());
    }
}

TEST_F(InotifyScanTest, RepliesToAResumeIDWithWhatHappensMeanwhile) {
    fill();
    start();
    settle();
    stop();
    for (const std::size_t heldAt : {std::size_t{0}, std::size_t{300}}) {
        SCOPED_TRACE(heldAt);
        events.clear();
        folder.write("vault/offline.md", std::string(heldAt, 'x'));
        const std::uint64_t last = source->currentEventID(root());
        const auto idBefore = [&](const char* path) { return fs::exists(root() / path) ? idOf(path) : 0; };
        const auto gone = idBefore("a/gone.md"), moved = idBefore("a/moved.md");
        startHeld(heldAt, last);
        EXPECT_EQ(source->currentEventID(root()), last) << "nothing was told yet";
        change();
        release();
        ASSERT_TRUE(waitFor([&] {
            return isTold() && has("", historyDone) && has("a/gone.md") && has("a/moved.md", itemRenamed);
        }));
        EXPECT_FALSE(has("", mustScanSubDirs));
        EXPECT_TRUE(has("b/moved.md", itemRenamed));
        ASSERT_TRUE(has("a/gone.md", itemRemoved | itemIsFile));
        EXPECT_EQ(find("a/gone.md")->fileID, gone);
        EXPECT_EQ(find("a/moved.md")->fileID, moved);
        EXPECT_EQ(find("b/moved.md")->fileID, moved);
        EXPECT_TRUE(has("offline.md"));
        EXPECT_FALSE(has("b/kept.md"));
        expectRisingIDs(last);
        // As it was, for the next row.
        fs::remove_all(root() / "b");
        fs::remove_all(root() / "stage");
        fs::remove(root() / "top.md");
        fill();
        settle();
        stop();
    }
}

TEST_F(InotifyScanTest, LeavesTheFormerSnapshotIfItIsStoppedInTheMiddle) {
    fill();
    startHeld(300);
    stop();
    EXPECT_EQ(lastItem, 300U) << "stopped there";
    EXPECT_EQ(snapshot(), "") << "half a tree is none";
    release();

    start();
    settle();
    stop();
    const std::string former = snapshot();
    ASSERT_NE(former, "");
    const std::uint64_t last = source->currentEventID(root());
    events.clear();
    folder.write("vault/first.md", "");
    startHeld(300, last);
    folder.write("vault/second.md", "");
    stop();
    EXPECT_EQ(snapshot(), former);
    EXPECT_TRUE(events.empty());

    release();
    resume([&] { fs::remove(root() / "b/kept.md"); }, last);
    EXPECT_FALSE(has("", mustScanSubDirs));
    EXPECT_EQ(paths(), (Paths{"b/kept.md", "first.md", "second.md"}));
}

TEST_F(InotifyScanTest, LeavesNoSnapshotIfALaterScanIsStoppedInTheMiddle) {
    fill();
    holdScan(0);
    release();
    start();
    settle();
    {
        std::lock_guard locked(holdLock);
        holdAt = 2;
    }
    fs::rename(root(), outer / "away");
    for (int i = 0; i < 9; ++i) folder.write("vault/" + std::to_string(i) + ".md", "");
    waitUntilHeld();
    const std::uint64_t last = source->currentEventID(root());
    stop();
    EXPECT_EQ(snapshot(), "");
    release();
    resume([] {}, last);
    EXPECT_TRUE(has("", mustScanSubDirs)) << "nobody was told of the other root";
}

TEST_F(InotifyScanTest, NoticesAnotherRootInItsPlace) {
    fill();
    start();
    settle();
    stop();
    for (const auto since : {source->currentEventID(root()), noEventID}) {
        for (const bool hasSuccessor : {true, false}) {
            events.clear();
            startHeld(300, since);
            fs::rename(root(), outer / "away");
            if (hasSuccessor) folder.write("vault/other.md", "");
            release();
            ASSERT_TRUE(waitFor([&] { return has("", rootChanged); }));
            EXPECT_EQ(paths(), Paths{}) << "what stands elsewhere now was not removed";
            {
                std::lock_guard held(eventsLock);
                events.clear();
            }
            if (hasSuccessor) {
                settle();
            } else {
                fs::create_directory(root());
                ASSERT_TRUE(waitFor([&] { return has("", rootChanged); }));
            }
            stop();
            fs::remove_all(root());
            fs::rename(outer / "away", root());
        }
    }
}

}  // namespace
}  // namespace vesk::test
