#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>

#include "Processes.h"
#include "Support/Scratch.h"
#include "VeskLinux/LinuxFileSystem.h"

namespace vesk::test {
namespace {

namespace fs = std::filesystem;

class LinuxFileWalkTest : public ::testing::Test {
protected:
    std::vector<std::string> walked(const FilePath& root) const {
        std::vector<std::string> paths;
        files.walk(root, [&](const WalkEntry& entry) {
            paths.emplace_back(entry.relativePath());
            return WalkStep::descend;
        });
        return paths;
    }
    std::vector<std::string> sortedWalk(const FilePath& root) const {
        auto paths = walked(root);
        std::sort(paths.begin(), paths.end());
        return paths;
    }

    ScratchFolder folder;
    LinuxFileSystem files;
};

TEST_F(LinuxFileWalkTest, MeetsEveryItemOnceEachFolderBeforeWhatItHolds) {
    const std::string longName(255, 'n');
    folder.write("a/b/c.md", "c");
    folder.write("a/line\nbreak", "l");
    folder.write("a/bad\xFF/d.md", "d");
    folder.write(longName, "n");
    fs::create_directory(folder / "empty");
    fs::create_directory_symlink(folder.path(), folder / "a/up");

    const auto paths = walked(folder.path());
    auto sorted = paths;
    std::sort(sorted.begin(), sorted.end());
    EXPECT_EQ(sorted, (std::vector<std::string>{"a", "a/b", "a/b/c.md", "a/bad\xFF", "a/bad\xFF/d.md",
                                                "a/line\nbreak", "a/up", "empty", longName}));
    for (auto path = paths.begin(); path != paths.end(); ++path) {
        const std::string parent = FilePath(*path).parent_path();
        EXPECT_TRUE(parent.empty() || std::find(paths.begin(), path, parent) != path) << *path;
    }
    EXPECT_EQ(sortedWalk(folder / "a/up").size(), 9U) << "a root that is a link is the folder it leads to";
    EXPECT_TRUE(walked(folder / "missing").empty());
    EXPECT_TRUE(walked(folder / longName).empty());
}

TEST_F(LinuxFileWalkTest, TellsOfEachItemWhatInfoTells) {
    folder.write("sub/note.md", "text");
    files.setCreationDate(folder / "sub/note.md", TimePoint(std::chrono::microseconds(77)));
    fs::create_symlink("sub/note.md", folder / "link.md");
    fs::create_directory_symlink("sub", folder / "folder link");
    fs::create_symlink("nowhere", folder / "dangling.md");
    std::size_t count = 0;
    files.walk(folder.path(), [&](const WalkEntry& entry) {
        const std::string path(entry.relativePath());
        EXPECT_EQ(entry.info(), files.info(folder / path)) << path;
        EXPECT_EQ(entry.isDirectory(), path == "sub") << path;
        EXPECT_EQ(entry.name(), FilePath(path).filename().native());
        ++count;
        return WalkStep::descend;
    });
    EXPECT_EQ(count, 5U);
}

TEST_F(LinuxFileWalkTest, LeavesOutWhatIsSkippedAndEndsWhenTold) {
    folder.write("kept/a.md", "");
    folder.write("skipped/b.md", "");
    std::vector<std::string> met;
    files.walk(folder.path(), [&](const WalkEntry& entry) {
        met.emplace_back(entry.relativePath());
        return entry.name() == "skipped" ? WalkStep::skip : WalkStep::descend;
    });
    std::sort(met.begin(), met.end());
    EXPECT_EQ(met, (std::vector<std::string>{"kept", "kept/a.md", "skipped"}));
    int calls = 0;
    files.walk(folder.path(), [&](const WalkEntry&) {
        ++calls;
        return WalkStep::stop;
    });
    EXPECT_EQ(calls, 1);
}

TEST_F(LinuxFileWalkTest, OutlivesChangesMadeWhileItGoes) {
    for (int i = 0; i < 20; ++i) folder.write("sub" + std::to_string(i) + "/note.md", "");
    std::size_t met = 0;
    files.walk(folder.path(), [&](const WalkEntry& entry) {
        ++met;
        fs::remove_all(folder / entry.relativePath());
        EXPECT_FALSE(entry.info());
        return WalkStep::descend;
    });
    EXPECT_EQ(met, 20U);
}

TEST_F(LinuxFileWalkTest, MeetsAnUnreadableFolderWithoutEnteringIt) {
    asOrdinaryUser(folder.path(), [&] {
        folder.write("shut/hidden.md", "");
        folder.write("open.md", "");
        ::chmod((folder / "shut").c_str(), 0);
        EXPECT_EQ(sortedWalk(folder.path()), (std::vector<std::string>{"open.md", "shut"}));
        EXPECT_TRUE(walked(folder / "shut").empty());
        EXPECT_EQ(errorOf([&] { files.removeTree(folder.path()); }), EACCES);
        EXPECT_TRUE(folder.exists("shut"));
    });
}

// 1,000 folders in one another, a note in each: more than descriptors allow, and paths beyond what a call
// takes.
TEST_F(LinuxFileWalkTest, GoesThroughAndRemovesATreeThatIsVeryDeep) {
    constexpr int depth = 1'000;
    const std::string name(20, 'd');
    int parent = ::open(folder.path().c_str(), O_RDONLY | O_DIRECTORY);
    for (int level = 0; level < depth; ++level) {
        ASSERT_EQ(::mkdirat(parent, name.c_str(), 0700), 0);
        const int inner = ::openat(parent, name.c_str(), O_RDONLY | O_DIRECTORY);
        ::close(parent);
        const int note = ::openat(inner, "note", O_WRONLY | O_CREAT, 0600);
        ASSERT_GE(note, 0);
        ::close(note);
        parent = inner;
    }
    ::close(parent);
    inChild([&] {
        const rlimit few{100, 100};
        ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &few), 0);
        std::size_t folders = 0, notes = 0, known = 0, longest = 0;
        files.walk(folder.path(), [&](const WalkEntry& entry) {
            ++(entry.isDirectory() ? folders : notes);
            known += entry.info().has_value();
            longest = std::max(longest, entry.relativePath().size());
            return WalkStep::descend;
        });
        EXPECT_EQ(folders, 1'000U);
        EXPECT_EQ(notes, 1'000U);
        EXPECT_EQ(known, 2'000U);
        EXPECT_EQ(longest, 21'004U);
        files.removeTree(folder / name);
        EXPECT_FALSE(folder.exists(name));
    });
}

TEST_F(LinuxFileWalkTest, FailsRatherThanLeaveAFolderOutForWantOfDescriptors) {
    folder.write("a/b/c/d/note.md", "");
    inChild([&] {
        const int next = ::open("/dev/null", O_RDONLY);
        const rlimit few{static_cast<rlim_t>(next) + 3, static_cast<rlim_t>(next) + 3};
        ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &few), 0);
        EXPECT_EQ(errorOf([&] { walked(folder.path()); }), EMFILE);
    });
}

TEST_F(LinuxFileWalkTest, RemovesATreeWithoutFollowingLinks) {
    folder.write("outside/keep.md", "keep");
    folder.write("tree/a/b.md", "");
    fs::create_directory_symlink(folder / "outside", folder / "tree/link");
    fs::create_directory_symlink(folder / "outside", folder / "root link");
    files.removeTree(folder / "tree");
    files.removeTree(folder / "root link");
    files.removeTree(folder / "missing");
    EXPECT_EQ(folder.list(), std::vector<std::string>{"outside"});
    EXPECT_EQ(folder.read("outside/keep.md"), "keep");
}

}  // namespace
}  // namespace vesk::test
