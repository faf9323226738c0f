#include <sys/stat.h>

#include "Support/Fakes.h"
#include "Support/ScriptedFileEvents.h"
#include "VeskCore/Support/VirtualTime.h"
#include "VeskCore/Watch/FileWatcher.h"

namespace vesk::test {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using namespace FileEventFlag;
using Lines = std::vector<std::string>;

class FileWatcherTest : public ::testing::Test {
protected:
    FileWatcherTest() {
        watcher->onChange = [this](std::vector<FileChange> changes) {
            for (const FileChange& change : changes) {
                EXPECT_EQ(change.path, platform.vaultFolder / change.relativePath);
                told.push_back(lineOf(change));
            }
            if (inCallback) inCallback();
        };
        watcher->onRescanRequired = [this] { told.push_back("rescan"); };
        watcher->onTrashChange = [this] { told.push_back("trash"); };
    }

    static std::string lineOf(const FileChange& change) {
        if (const auto* renamed = std::get_if<FileChange::Kind::Renamed>(&change.kind.value))
            return "renamed " + renamed->fromRelativePath + " -> " + change.relativePath;
        const char* names[] = {"created ", "modified ", "deleted "};
        return names[static_cast<int>(std::get<FileChange::Kind::Plain>(change.kind.value))] +
               change.relativePath;
    }

    /// Writes a file that is `age` old and returns its file id.
    std::uint64_t write(std::string_view path, Duration age = 10s) {
        platform.vaultFolder.write(path, "text");
        platform.files.setCreationDate(at(path), time.now() - age);
        return idOf(path);
    }
    void remove(std::string_view path) { fs::remove(at(path)); }
    void move(std::string_view from, std::string_view to) { fs::rename(at(from), at(to)); }
    FilePath at(std::string_view path) const { return platform.vaultFolder / path; }
    std::uint64_t idOf(std::string_view path) const {
        struct stat status {};
        EXPECT_EQ(::lstat(at(path).c_str(), &status), 0) << path;
        return status.st_ino;
    }
    RawEvent event(std::string_view path, std::optional<std::uint64_t> fileID,
                   std::uint32_t flags = itemIsFile | itemModified) {
        return {at(path).native(), fileID, flags, ++source.latestID};
    }
    /// Delivers a batch without letting its window end.
    void send(std::vector<RawEvent> events) {
        source.send(std::move(events));
        time.settle();
    }
    /// What a window's end tells.
    Lines flushed() {
        time.advance(300ms);
        return std::exchange(told, {});
    }

    PlatformFixture platform;
    VirtualTime time;
    ScriptedFileEvents source;
    std::unique_ptr<FileWatcher> watcher = std::make_unique<FileWatcher>(
        platform.vaultFolder.path(), Seconds(0.3), Seconds(2.0), source, time, time);
    Lines told;
    std::function<void()> inCallback;
};

TEST_F(FileWatcherTest, MergesWhatHappensToOnePathInOneWindow) {
    int sources = 0;
    const auto happen = [&](std::string_view kind) {
        remove("p.md");
        if (kind == "deleted") return send({event("p.md", 1)});
        const auto id = write("p.md", kind == "created" ? 1s : 10s);
        if (kind != "renamed") return send({event("p.md", id)});
        const std::string from = "s" + std::to_string(++sources) + ".md";
        send({event(from, id), event("p.md", id)});
    };
    const struct {
        const char *held, *next, *expected;
    } rows[] = {
        {"created", "created", "created p.md"},
        {"created", "modified", "created p.md"},
        {"created", "deleted", ""},
        {"created", "renamed", "created p.md"},
        {"modified", "created", "created p.md"},
        {"modified", "modified", "modified p.md"},
        {"modified", "deleted", "deleted p.md"},
        {"modified", "renamed", "renamed s1.md -> p.md"},
        {"deleted", "created", "modified p.md"},
        {"deleted", "modified", "modified p.md"},
        {"deleted", "deleted", "deleted p.md"},
        {"deleted", "renamed", "renamed s1.md -> p.md"},
        {"renamed", "created", "renamed s1.md -> p.md"},
        {"renamed", "modified", "renamed s1.md -> p.md"},
        {"renamed", "deleted", "deleted p.md"},
        {"renamed", "renamed", "renamed s2.md -> p.md"},
    };
    for (const auto& row : rows) {
        // A fresh watcher each: what it told before counts for deletions.
        auto former =
            std::exchange(watcher, std::make_unique<FileWatcher>(platform.vaultFolder.path(), Seconds(0.3),
                                                                 Seconds(2.0), source, time, time));
        watcher->onChange = former->onChange;
        watcher->start({});
        sources = 0;
        happen(row.held);
        happen(row.next);
        Lines lines = flushed();
        std::erase_if(lines, [](const std::string& line) { return line.starts_with("deleted s"); });
        EXPECT_EQ(lines, *row.expected ? Lines{row.expected} : Lines{}) << row.held << " then " << row.next;
    }
}

TEST_F(FileWatcherTest, AlwaysTellsOfTheDeletionOfAPathThatItToldOf) {
    watcher->start({});
    send({event("a.md", write("a.md", 0s))});
    EXPECT_EQ(flushed(), Lines{"created a.md"});
    // Saved by replacement and thrown away at once
    send({event("a.md", write("a.md", 0s))});
    remove("a.md");
    send({event("a.md", 1)});
    EXPECT_EQ(flushed(), Lines{"deleted a.md"});
}

TEST_F(FileWatcherTest, TellsOfTheDeletionOfAYoungFileToOneWhoMayKnowItsPath) {
    watcher->tellsEveryDeletion = true;
    watcher->start({});
    send({event("a.md", write("a.md", 0s))});
    remove("a.md");
    send({event("a.md", 1)});
    EXPECT_EQ(flushed(), Lines{"deleted a.md"});
}

TEST_F(FileWatcherTest, TellsByStateAndIdentityWhatBecameOfEachPathOfABatch) {
    watcher->start({});
    const auto a = write("a.md"), kept = write("kept.md");
    write("young.md", 1999ms);
    write("old.md", 2000ms);
    move("a.md", "b.md");
    remove("a.md");
    send({event("young.md", idOf("young.md")), event("old.md", {}), event("b.md", a), event("b.md", a),
          event("gone.md", 1), event("gone.md", 1), event("a.md", a), event("kept.md", kept)});
    EXPECT_EQ(flushed(), (Lines{"deleted gone.md", "deleted a.md", "created young.md", "modified old.md",
                                "renamed a.md -> b.md", "modified kept.md"}));

    // Another file has taken the old path
    const auto b = idOf("b.md");
    move("b.md", "c.md");
    write("b.md", 0s);
    send({event("b.md", b), event("c.md", b)});
    EXPECT_EQ(flushed(), (Lines{"renamed b.md -> c.md", "created b.md"}));

    // Two files change places
    const auto c = idOf("c.md"), young = idOf("young.md");
    move("c.md", "t");
    move("young.md", "c.md");
    move("t", "young.md");
    send({event("c.md", c), event("young.md", c), event("young.md", young), event("c.md", young)});
    EXPECT_EQ(flushed(), (Lines{"renamed c.md -> young.md", "renamed young.md -> c.md"}));

    // Two departures of one id say nothing certain
    send({event("x.md", kept), event("y.md", kept), event("kept.md", kept)});
    EXPECT_EQ(flushed(), (Lines{"deleted x.md", "deleted y.md", "modified kept.md"}));

    // A link is looked at itself, and not followed to nowhere
    fs::create_symlink("nowhere", at("link.md"));
    send({event("link.md", idOf("link.md"))});
    EXPECT_EQ(flushed().size(), 1U);
}

TEST_F(FileWatcherTest, FollowsAFileThroughSeveralRenamesOfOneWindow) {
    watcher->start({});
    const auto id = write("a.md");
    move("a.md", "b.md");
    send({event("a.md", id), event("b.md", id)});
    move("b.md", "c.md");
    send({event("b.md", id), event("c.md", id)});
    EXPECT_EQ(flushed(), (Lines{"deleted a.md", "deleted b.md", "renamed a.md -> c.md"}));

    move("c.md", "d.md");
    send({event("c.md", id), event("d.md", id)});
    move("d.md", "c.md");
    send({event("d.md", id), event("c.md", id)});
    EXPECT_EQ(flushed(), (Lines{"modified c.md", "deleted d.md"})) << "back where it was";
}

TEST_F(FileWatcherTest, PassesOverWhatDoesNotCount) {
    watcher->start({});
    const std::string root = platform.vaultFolder.path();
    std::vector<RawEvent> events;
    for (const char* path : {".hidden.md", ".git/a.md", "a/.vesk/b.md", "node_modules/a.md", "a/.x/b.css",
                             "image.png", "noextension", "Saved_files/picture.png"}) {
        write(path);
        events.push_back(event(path, idOf(path)));
    }
    write("folder.md/a.md");
    events.push_back(event("folder.md", {}, itemIsDir | itemCreated));
    events.push_back(event(".git/", {}, itemIsDir | itemRemoved));
    events.push_back(event("a.md", {}, itemModified));  // neither file nor folder
    events.push_back(event("b.md", {}, itemIsFile | historyDone));
    events.push_back({{}, {}, itemIsFile, ++source.latestID});
    events.push_back({root + "x/a.md", 1, itemIsFile, ++source.latestID});
    events.push_back({root, 1, itemIsFile, ++source.latestID});
    events.push_back({root + "/", 1, itemIsFile, ++source.latestID});
    events.push_back({"/elsewhere.md", 1, itemIsFile, noEventID});
    const auto counted = source.latestID;
    send(std::move(events));
    EXPECT_EQ(watcher->lastEventID(), counted) << "without waiting for a window";
    EXPECT_EQ(flushed(), Lines{});
    for (const char* path : {"A.MD", "b.markdown", "c.mdown", "d.txt", "e.HTML", "f.htm", "g.css"})
        send({event(path, write(path))});
    EXPECT_EQ(flushed().size(), 7U);
}

TEST_F(FileWatcherTest, KeepsSupportFoldersOfSavedPagesOut) {
    watcher->start({});
    write("p/Page.HTM");
    write("p/Page.htm");
    for (const char* path : {"p/Page_files/style.css", "p/Page_FILES/deep/frame.html",
                             "p/Other_files/style.css", "p/Page_files/note.md", "_files/style.css"})
        send({event(path, write(path))});
    send({event("p/Page_files/gone.css", 1)});
    EXPECT_EQ(flushed(), (Lines{"modified p/Other_files/style.css", "modified p/Page_files/note.md",
                                "modified _files/style.css", "deleted p/Page_files/gone.css"}));
    remove("p/Page.htm");
    remove("p/Page.HTM");
    send({event("p/Page_files/style.css", idOf("p/Page_files/style.css"))});
    EXPECT_EQ(flushed(), Lines{"modified p/Page_files/style.css"});
}

TEST_F(FileWatcherTest, AsksForARescanWhereEventsCannotTell) {
    const struct {
        const char* name;
        std::vector<RawEvent> events;
        Lines expected;
    } rows[] = {
        {"lost events", {event("", {}, mustScanSubDirs)}, {"rescan"}},
        {"root replaced", {event("", {}, rootChanged)}, {"rescan"}},
        {"folder removed", {event("sub/", {}, itemIsDir | itemRemoved)}, {"rescan"}},
        {"folder renamed", {event("a/b", {}, itemIsDir | itemRenamed)}, {"rescan"}},
        {"folder made", {event("a/b", {}, itemIsDir | itemCreated)}, {}},
        {"hidden folder", {event("a/.b", {}, itemIsDir | itemRenamed)}, {}},
        {"covers changes", {event("x.md", 1), event("", {}, mustScanSubDirs)}, {"rescan"}},
        {"trash too", {event(".trash/x.md", 1), event("", {}, mustScanSubDirs)}, {"rescan", "trash"}},
        {"trash after it", {event("", {}, mustScanSubDirs), event(".trash/x.md", 1)}, {"rescan"}},
        {"trash itself", {event(".trash/", {}, itemIsDir | itemRemoved)}, {"trash"}},
        {"trash and change", {event("x.md", 1), event(".trash", {}, itemIsDir)}, {"deleted x.md", "trash"}},
        {"no trash", {event(".trashed/x.md", 1)}, {}},
    };
    watcher->start({});
    for (const auto& row : rows) {
        send(row.events);
        EXPECT_EQ(flushed(), row.expected) << row.name;
    }
    // One batch asks, another of the same window brings a change
    send({event("", {}, mustScanSubDirs)});
    send({event("x.md", 1)});
    EXPECT_EQ(flushed(), Lines{"rescan"});

    fs::rename(platform.vaultFolder.path(), platform.supportFolder / "away");
    send({event("", {}, rootChanged), event("x.md", 1)});
    EXPECT_EQ(flushed(), Lines{"deleted x.md"}) << "a root that is gone asks for nothing";
    fs::rename(platform.supportFolder / "away", platform.vaultFolder.path());
}

TEST_F(FileWatcherTest, OpensAWindowWithTheFirstEventThatLaterOnesDoNotLengthen) {
    watcher->start({});
    send({event("a.md", 1)});
    time.advance(299ms);
    send({event("b.md", 2)});
    EXPECT_EQ(told, Lines{});
    time.advance(1ms);
    EXPECT_EQ(std::exchange(told, {}), (Lines{"deleted a.md", "deleted b.md"}));
    time.advance(1s);
    EXPECT_EQ(told, Lines{});
}

TEST_F(FileWatcherTest, DropsOwnWritesForTheIgnoreWindow) {
    watcher->start({});
    // Not there yet, and named through a link
    fs::create_directory(at("real"));
    fs::create_directory_symlink(at("real"), platform.supportFolder / "link");
    watcher->ignore(platform.supportFolder / "link/new.md");
    const auto id = write("real/new.md");
    time.advance(1900ms);
    send({event("real/new.md", id)});
    send({event("real/new.md", id)});
    EXPECT_EQ(flushed(), Lines{});
    send({event("real/new.md", id)});
    EXPECT_EQ(flushed(), Lines{"modified real/new.md"}) << "2.2 seconds later";

    watcher->ignore(at("a.md"));
    time.advance(1500ms);
    watcher->ignore(at("a.md"));
    time.advance(1500ms);
    send({event("a.md", 1), event("b.md", 1)});
    EXPECT_EQ(flushed(), Lines{"deleted b.md"}) << "the second mark counts from its own time";
}

TEST_F(FileWatcherTest, ResolvesAPathAsFarAsItExists) {
    write("folder/a.md");
    fs::create_directory_symlink(at("folder"), at("link"));
    fs::create_symlink("nowhere", at("dangling.md"));
    const struct {
        FilePath path, expected;
    } rows[] = {
        {at("link/a.md"), at("folder/a.md")},       {at("link/new/deep.md"), at("folder/new/deep.md")},
        {at("dangling.md"), at("dangling.md")},     {at("link/x/../b.md"), at("folder/b.md")},
        {"/no-such-folder/x", "/no-such-folder/x"}, {"/", "/"},
    };
    for (const auto& row : rows) EXPECT_EQ(FileWatcher::realPath(row.path), row.expected) << row.path;
}

TEST_F(FileWatcherTest, AdvancesItsIdOnlyWhenTheCallbacksHaveReturned) {
    watcher->start({});
    EXPECT_EQ(watcher->lastEventID(), 100U);
    std::uint64_t during = 0;
    inCallback = [&] { during = watcher->lastEventID(); };
    send({event("a.md", 1), event("x.png", 1)});
    EXPECT_EQ(watcher->lastEventID(), 100U);
    flushed();
    EXPECT_EQ(during, 100U);
    EXPECT_EQ(watcher->lastEventID(), 102U);

    send({event("b.md", 1)});
    watcher->stop();
    EXPECT_EQ(flushed(), Lines{});
    EXPECT_EQ(watcher->lastEventID(), 102U) << "what was not handed over is read again";
    EXPECT_EQ(source.running, 0);
    watcher->stop();
}

TEST_F(FileWatcherTest, StartsAnewWithoutTheOldWindow) {
    watcher->start(50);
    EXPECT_EQ(watcher->lastEventID(), 50U);
    send({event("a.md", 1)});
    time.advance(200ms);
    watcher->start(101);
    EXPECT_EQ(watcher->lastEventID(), 101U);
    EXPECT_EQ(source.running, 1);
    time.settle();
    send({event("b.md", 2)});
    time.advance(200ms);
    EXPECT_EQ(told, Lines{}) << "the old window's end is not the new one's";
    time.advance(100ms);
    EXPECT_EQ(std::exchange(told, {}), Lines{"deleted b.md"});

    watcher->start(source.latestID + 1);
    EXPECT_EQ(watcher->lastEventID(), source.latestID);
    EXPECT_EQ(source.since, (std::vector<std::uint64_t>{50, 101, noEventID}));
}

TEST_F(FileWatcherTest, MayBeStoppedAndDroppedFromItsOwnCallback) {
    watcher->start({});
    inCallback = [this] { watcher->stop(); };
    send({event("a.md", 1), event(".trash/b.md", 1)});
    const auto before = watcher->lastEventID();
    EXPECT_EQ(flushed(), (Lines{"deleted a.md", "trash"}));
    EXPECT_EQ(watcher->lastEventID(), before);

    watcher->start({});
    inCallback = [this] { watcher.reset(); };
    send({event("a.md", 1)});
    EXPECT_EQ(flushed(), Lines{"deleted a.md"});
    EXPECT_EQ(source.running, 0);
}

TEST_F(FileWatcherTest, SaysWhichFolderItCannotWatch) {
    const auto problem = [](FileWatcher& one) {
        try {
            one.start({});
            return std::string();
        } catch (const FileWatchError& error) {
            return error.description();
        }
    };
    FileWatcher missing(at("Missing"), Seconds(0.3), Seconds(2), source, time, time);
    EXPECT_EQ(problem(missing),
              "Vesk can't watch \"Missing\" for changes. Check the folder still exists and that Vesk has "
              "permission to "
              "read it (System Settings → Privacy & Security → Files and Folders).");
    write("file.md");
    FileWatcher file(at("file.md"), Seconds(0.3), Seconds(2), source, time, time);
    EXPECT_NE(problem(file), "");
    for (bool* failure : {&source.makesNoStream, &source.refusesToStart}) {
        *failure = true;
        EXPECT_NE(problem(*watcher), "");
        *failure = false;
        EXPECT_EQ(source.running, 0);
    }
    EXPECT_EQ(problem(*watcher), "");
}

TEST_F(FileWatcherTest, NoCallbackIsUnderWayWhenStopReturns) {
    ThreadPool pool(2);
    SystemClock clock;
    for (int round = 0; round < 50; ++round) {
        FileWatcher real(platform.vaultFolder.path(), Seconds(0), Seconds(2), source, pool, clock);
        // Written without protection: a callback after stop() would race with the reading.
        int count = 0;
        real.onChange = [&](const std::vector<FileChange>&) { ++count; };
        real.start({});
        for (int i = 0; i < 5; ++i) source.send({event("a.md", 1)});
        real.ignore(at("b.md"));
        real.stop();
        EXPECT_LE(count, 5);
    }
}

}  // namespace
}  // namespace vesk::test
