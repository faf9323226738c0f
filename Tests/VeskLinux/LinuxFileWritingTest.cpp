#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <chrono>
#include <csignal>
#include <map>

#include "Processes.h"
#include "Support/Scratch.h"
#include "VeskLinux/LinuxFileSystem.h"

namespace vesk::test {
namespace {

namespace fs = std::filesystem;

TimePoint at(long long microseconds) {
    return TimePoint(std::chrono::microseconds(microseconds));
}

struct stat statusOf(const FilePath& path) {
    struct stat status {};
    EXPECT_EQ(::stat(path.c_str(), &status), 0) << path;
    return status;
}

class LinuxFileWritingTest : public ::testing::Test {
protected:
    /// A save over "note.md" as the vault does it.
    void save(std::optional<TimePoint> created = {}) {
        files.writeNew(folder / ".tmp", "new");
        if (created) files.setCreationDate(folder / ".tmp", *created);
        files.replace(folder / "note.md", folder / ".tmp");
        EXPECT_EQ(folder.read("note.md"), "new");
        EXPECT_FALSE(folder.exists(".tmp"));
    }

    ScratchFolder folder;
    LinuxFileSystem files;
};

TEST_F(LinuxFileWritingTest, MakesNewFilesOnly) {
    const std::string bytes = std::string(300'000, 'x') + std::string("\0end", 4);
    files.writeNew(folder / "note.md", bytes);
    EXPECT_EQ(folder.read("note.md"), bytes);
    fs::create_symlink("elsewhere", folder / "dangling");
    EXPECT_EQ(errorOf([&] { files.writeNew(folder / "note.md", "other"); }), EEXIST);
    EXPECT_EQ(errorOf([&] { files.writeNew(folder / "dangling", "other"); }), EEXIST);
    EXPECT_EQ(errorOf([&] { files.writeNew(folder / "missing/note.md", "other"); }), ENOENT);
    EXPECT_EQ(folder.read("note.md"), bytes);
    EXPECT_EQ(folder.list(), (std::vector<std::string>{"dangling", "note.md"}));
}

TEST_F(LinuxFileWritingTest, LeavesNothingOfAFileThatCouldNotBeWrittenWhole) {
    inChild([&] {
        ::signal(SIGXFSZ, SIG_IGN);
        const rlimit small{1000, 1000};
        ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
        EXPECT_EQ(errorOf([&] { files.writeNew(folder / "note.md", std::string(5000, 'x')); }), EFBIG);
    });
    EXPECT_TRUE(folder.list().empty());
}

TEST_F(LinuxFileWritingTest, ReplacesWithModeAndAttributesButNoGrantedPowers) {
    const struct {
        const char* name;
        mode_t before, after;
    } rows[] = {
        {"private", 0600, 0600},      {"read-only", 0444, 0444},     {"shared", 0664, 0664},
        {"set user id", 04755, 0755}, {"set group id", 02771, 0771},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        folder.write("note.md", "old");
        files.setAttribute(folder / "note.md", "com.example.tag", "red");
        ASSERT_EQ(::chmod((folder / "note.md").c_str(), row.before), 0);
        save();
        EXPECT_EQ(statusOf(folder / "note.md").st_mode & 07777, row.after);
        EXPECT_EQ(files.attribute(folder / "note.md", "com.example.tag"), "red");
        fs::remove(folder / "note.md");
    }
}

TEST_F(LinuxFileWritingTest, CarriesAttributesOntoAFileThatIsReadOnlyForItsOwner) {
    asOrdinaryUser(folder.path(), [&] {
        folder.write("note.md", "old");
        files.setAttribute(folder / "note.md", "com.example.tag", "red");
        ASSERT_EQ(::chmod((folder / "note.md").c_str(), 0400), 0);
        save(at(5));
        EXPECT_EQ(files.attribute(folder / "note.md", "com.example.tag"), "red");
        EXPECT_EQ(statusOf(folder / "note.md").st_mode & 07777, 0400U);
    });
}

TEST_F(LinuxFileWritingTest, KeepsTheCreationDateThatTheSaveBringsElseTheOldOne) {
    folder.write("note.md", "old");
    save(at(1'000));
    EXPECT_EQ(files.info(folder / "note.md")->created, at(1'000));
    save();
    EXPECT_EQ(files.info(folder / "note.md")->created, at(1'000));
    save(at(2'000));
    EXPECT_EQ(files.info(folder / "note.md")->created, at(2'000));
}

TEST_F(LinuxFileWritingTest, KeepsOwnerAndGroupWhereThatIsPermitted) {
    if (::geteuid() != 0) GTEST_SKIP() << "only root gives files away";
    folder.write("note.md", "old");
    ASSERT_EQ(::chown((folder / "note.md").c_str(), 1234, 4321), 0);
    save();
    EXPECT_EQ(statusOf(folder / "note.md").st_uid, 1234U);
    EXPECT_EQ(statusOf(folder / "note.md").st_gid, 4321U);
    // A group that can't be kept takes its rights along.
    ASSERT_EQ(::chmod((folder / "note.md").c_str(), 0674), 0);
    asOrdinaryUser(folder.path(), [&] { save(); });
    EXPECT_EQ(statusOf(folder / "note.md").st_uid, ordinaryUser);
    EXPECT_EQ(statusOf(folder / "note.md").st_mode & 07777, 0644U);
}

TEST_F(LinuxFileWritingTest, DoesNotLetInWhomTheFolderLetsIntoNewFiles) {
    folder.write("note.md", "old");
    // Access control list, version 2: the entries are tag, permissions, id. User 1234 may read and write new
    // files.
    const unsigned char list[] = {2,    0, 0, 0,                           //
                                  0x01, 0, 6, 0, 0xFF, 0xFF, 0xFF, 0xFF,   // owner
                                  0x02, 0, 6, 0, 0xD2, 0x04, 0,    0,      // user 1234
                                  0x04, 0, 4, 0, 0xFF, 0xFF, 0xFF, 0xFF,   // group
                                  0x10, 0, 6, 0, 0xFF, 0xFF, 0xFF, 0xFF,   // mask
                                  0x20, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF};  // others
    if (::setxattr(folder.path().c_str(), "system.posix_acl_default", list, sizeof list, 0) != 0) {
        GTEST_SKIP() << "no access control lists here";
    }
    save();
    EXPECT_LT(::getxattr((folder / "note.md").c_str(), "system.posix_acl_access", nullptr, 0), 0);
    // A list that the file has of its own is kept.
    save();
    ASSERT_EQ(::setxattr((folder / "note.md").c_str(), "system.posix_acl_access", list, sizeof list, 0), 0);
    save();
    EXPECT_EQ(::getxattr((folder / "note.md").c_str(), "system.posix_acl_access", nullptr, 0),
              static_cast<ssize_t>(sizeof list));
}

TEST_F(LinuxFileWritingTest, GivesUpItsOwnDateBeforeAnAttributeOfOthers) {
    folder.write("note.md", "old");
    // Every size that still fits, until not even a short one does.
    std::map<std::string, std::string> tags;
    for (std::size_t size = 60'000; size > 0; size /= 2) {
        const std::string name = "tag" + std::to_string(size);
        if (errorOf([&] { files.setAttribute(folder / "note.md", name, std::string(size, 't')); }) == 0) {
            tags[name] = std::string(size, 't');
        }
    }
    if (errorOf([&] { files.setCreationDate(folder / "note.md", at(1)); }) == 0) {
        GTEST_SKIP() << "this file system has room for more attributes";
    }
    save(at(1'000));
    for (const auto& [name, value] : tags) EXPECT_EQ(files.attribute(folder / "note.md", name), value);
    EXPECT_FALSE(files.attribute(folder / "note.md", "vesk.created"));
}

TEST_F(LinuxFileWritingTest, ReplacesRegularFilesOnlyAndLeavesBothOnFailure) {
    folder.write("sub/kept.md", "kept");
    folder.write(".tmp", "new");
    folder.write("note.md", "old");
    fs::create_symlink("note.md", folder / "link");
    EXPECT_EQ(errorOf([&] { files.replace(folder / "sub", folder / ".tmp"); }), EISDIR);
    EXPECT_EQ(errorOf([&] { files.replace(folder / "link", folder / ".tmp"); }), EINVAL);
    EXPECT_EQ(errorOf([&] { files.replace(folder / "note.md", folder / "missing"); }), ENOENT);
    EXPECT_EQ(errorOf([&] { files.replace(folder / "sub/x/note.md", folder / ".tmp"); }), ENOENT);
    EXPECT_EQ(folder.read("note.md"), "old");
    EXPECT_EQ(folder.read(".tmp"), "new");
    // Taken away by another program meanwhile: the text still gets its place.
    files.replace(folder / "gone.md", folder / ".tmp");
    EXPECT_EQ(folder.read("gone.md"), "new");
}

TEST_F(LinuxFileWritingTest, SavesIntoAFolderThatMayNotBeRead) {
    asOrdinaryUser(folder.path(), [&] {
        folder.write("note.md", "old");
        ::chmod(folder.path().c_str(), 0300);
        save();
        files.move(folder / "note.md", folder / "moved.md");
        EXPECT_TRUE(folder.exists("moved.md"));
    });
}

TEST_F(LinuxFileWritingTest, MovesOnlyToAPathWhereNothingIs) {
    folder.write("a.md", "a");
    folder.write("b.md", "b");
    folder.write("sub/c.md", "c");
    fs::create_hard_link(folder / "a.md", folder / "A.md");
    fs::create_symlink("nowhere", folder / "dangling");
    for (const char* taken : {"b.md", "sub", "dangling", "A.md"}) {
        EXPECT_EQ(errorOf([&] { files.move(folder / "a.md", folder / taken); }), EEXIST) << taken;
    }
    EXPECT_EQ(errorOf([&] { files.move(folder / "missing", folder / "new"); }), ENOENT);
    EXPECT_EQ(errorOf([&] { files.move(folder / "a.md", folder / "nowhere/a.md"); }), ENOENT);
    EXPECT_EQ(errorOf([&] { files.move(folder / "sub", folder / "sub/inner"); }), EINVAL);
    EXPECT_EQ(folder.read("a.md") + folder.read("b.md") + folder.read("A.md"), "aba");

    files.move(folder / "a.md", folder / "a.md");  // itself: nothing to do
    files.move(folder / "a.md", folder / "sub/new.md");
    files.move(folder / "sub", folder / "moved");
    EXPECT_EQ(folder.read("moved/new.md"), "a");
    EXPECT_EQ(folder.list(), (std::vector<std::string>{"A.md", "b.md", "dangling", "moved"}));
}

TEST_F(LinuxFileWritingTest, RefusesAMoveToAnotherFileSystem) {
    const FilePath elsewhere = "/dev/shm/vesk-test-" + folder.path().filename().native();
    const auto there = files.info("/dev/shm");
    if (!there || there->device == files.info(folder.path())->device || !files.isWritable("/dev/shm")) {
        GTEST_SKIP() << "no second file system";
    }
    folder.write("note.md", "text");
    EXPECT_EQ(errorOf([&] { files.move(folder / "note.md", elsewhere); }), EXDEV);
    EXPECT_EQ(folder.read("note.md"), "text");
    EXPECT_FALSE(files.exists(elsewhere));
}

TEST_F(LinuxFileWritingTest, MakesFoldersAndRemovesFiles) {
    folder.write("file", "x");
    fs::create_directory_symlink("real", folder / "link");
    files.createDirectories(folder / "real/a/b/");
    files.createDirectories(folder / "real/a/b");
    files.createDirectories(folder / "link/c");
    EXPECT_EQ(folder.list("real"), (std::vector<std::string>{"a", "c"}));
    EXPECT_EQ(errorOf([&] { files.createDirectories(folder / "file/below"); }), ENOTDIR);

    files.remove(folder / "link");
    files.remove(folder / "missing");
    files.remove(folder / "file/below");
    EXPECT_NE(errorOf([&] { files.remove(folder / "real"); }), 0);
    EXPECT_EQ(folder.list(), (std::vector<std::string>{"file", "real"}));
}

TEST_F(LinuxFileWritingTest, ExchangesTwoFilesAndCarriesNothingOver) {
    folder.write("note.md", "old");
    folder.write(".tmp", "new");
    ASSERT_EQ(::chmod((folder / "note.md").c_str(), 0640), 0);
    ASSERT_EQ(::chmod((folder / ".tmp").c_str(), 0600), 0);
    if (!files.exchange(folder / "note.md", folder / ".tmp"))
        GTEST_SKIP() << "no exchange on this file system";
    EXPECT_EQ(folder.read("note.md"), "new");
    EXPECT_EQ(folder.read(".tmp"), "old");
    EXPECT_EQ(statusOf(folder / "note.md").st_mode & 07777, 0600u);
    files.carryMetadata(folder / ".tmp", folder / "note.md");
    EXPECT_EQ(statusOf(folder / "note.md").st_mode & 07777, 0640u);
    EXPECT_EQ(folder.read("note.md"), "new");
    EXPECT_EQ(errorOf([&] { files.exchange(folder / "absent.md", folder / ".tmp"); }), ENOENT);
    EXPECT_EQ(errorOf([&] { files.carryMetadata(folder / "note.md", folder / "absent"); }), ENOENT);
    EXPECT_EQ(folder.list(), (std::vector<std::string>{".tmp", "note.md"}));
}

}  // namespace
}  // namespace vesk::test
