#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <algorithm>
#include <chrono>

#include "Processes.h"
#include "Support/Scratch.h"
#include "VeskLinux/LinuxFileSystem.h"

namespace vesk::test {
namespace {

namespace fs = std::filesystem;

TimePoint at(long long microseconds) {
    return TimePoint(std::chrono::microseconds(microseconds));
}

class LinuxFileSystemTest : public ::testing::Test {
protected:
    ScratchFolder folder;
    LinuxFileSystem files;
};

TEST_F(LinuxFileSystemTest, TellsAnItemFromWhatItsLinkLeadsTo) {
    const auto note = folder.write("note.md", "four");
    fs::create_symlink("note.md", folder / "link");
    fs::create_symlink("nowhere", folder / "dangling");
    fs::create_symlink("loop", folder / "loop");

    const auto info = files.info(folder / "link");
    ASSERT_TRUE(info);
    EXPECT_EQ(info, files.info(note));
    EXPECT_EQ(info->kind, FileKind::regular);
    EXPECT_EQ(info->size, 4U);
    EXPECT_EQ(files.linkInfo(folder / "link")->kind, FileKind::symbolicLink);
    EXPECT_EQ(files.info(folder.path())->kind, FileKind::directory);
    EXPECT_EQ(files.realPath(folder / "link"), note);
    for (const char* nothing : {"dangling", "loop", "missing", "note.md/below"}) {
        SCOPED_TRACE(nothing);
        EXPECT_FALSE(files.info(folder / nothing));
        EXPECT_FALSE(files.realPath(folder / nothing));
    }
    EXPECT_TRUE(files.linkInfo(folder / "dangling"));
}

TEST_F(LinuxFileSystemTest, KeepsACreationDateBesideTheBirthTime) {
    const auto note = folder.write("note.md", "text");
    const auto birth = files.info(note)->created;
    files.setCreationDate(note, at(1'000'000'000'123'456));
    EXPECT_EQ(files.info(note)->created, at(1'000'000'000'123'456));
    EXPECT_EQ(files.attribute(note, "vesk.created"), "1000000000123456");
    files.setCreationDate(note, at(-5));
    EXPECT_EQ(files.info(note)->created, at(-5));
    // Not a date, or none that a person could mean.
    for (const char* damaged : {"", "yesterday", "12.5", "9223372036854775807", "99999999999999999999"}) {
        SCOPED_TRACE(damaged);
        files.setAttribute(note, "vesk.created", damaged);
        EXPECT_EQ(files.info(note)->created, birth);
    }
}

TEST_F(LinuxFileSystemTest, ReadsYearsBeyondTheUsualOnes) {
    const auto note = folder.write("note.md", "text");
    const timespec times[2] = {{10'000'000'000, 0}, {10'000'000'000, 999'999'999}};  // in 2286
    ASSERT_EQ(::utimensat(AT_FDCWD, note.c_str(), times, 0), 0);
    EXPECT_EQ(files.info(note)->modified, at(10'000'000'000'999'999));
}

TEST_F(LinuxFileSystemTest, ReadsRegularFilesOnlyAndNeverWaits) {
    folder.write("note.md", std::string(200'000, 'x') + "end");
    folder.write("empty.md", "");
    ASSERT_EQ(::mkfifo((folder / "fifo").c_str(), 0600), 0);
    fs::create_symlink("fifo", folder / "link");

    EXPECT_EQ(files.read(folder / "note.md"), std::string(200'000, 'x') + "end");
    EXPECT_EQ(files.read(folder / "note.md", 3), "xxx");
    EXPECT_EQ(files.read(folder / "note.md", 0), "");
    EXPECT_EQ(files.read(folder / "note.md", 999'999).size(), 200'003U);
    EXPECT_EQ(files.read(folder / "empty.md"), "");
    // Its size is told as 0.
    EXPECT_NE(files.read("/proc/self/status").find("Pid:"), std::string::npos);

    const struct {
        const char* name;
        int expected;
    } rows[] = {{"fifo", EINVAL}, {"link", EINVAL}, {"", EISDIR}, {"missing", ENOENT}};
    for (const auto& row : rows)
        EXPECT_EQ(errorOf([&] { files.read(folder / row.name); }), row.expected) << row.name;
}

TEST_F(LinuxFileSystemTest, KeepsAttributesOfTheItemItself) {
    const auto note = folder.write("note.md", "text");
    fs::create_symlink("note.md", folder / "link");
    const std::string value("a\0b\xFF", 4);
    files.setAttribute(note, "com.example.origin", value);
    EXPECT_EQ(files.attribute(note, "com.example.origin"), value);
    char raw[8];
    EXPECT_EQ(::getxattr(note.c_str(), "user.com.example.origin", raw, sizeof raw), 4);
    EXPECT_FALSE(files.attribute(note, "other"));
    EXPECT_FALSE(files.attribute(folder / "missing", "other"));
    EXPECT_FALSE(files.attribute(folder / "link", "com.example.origin"));
    EXPECT_EQ(errorOf([&] { files.setAttribute(folder / "link", "x", "y"); }), EPERM);
    EXPECT_EQ(errorOf([&] { files.setCreationDate(folder / "missing", at(1)); }), ENOENT);
}

TEST_F(LinuxFileSystemTest, ListsNamesAsTheyAreAndThrowsForWhatIsNoFolder) {
    folder.write("line\nbreak.md", "");
    folder.write("bad\xFF.md", "");
    folder.write(".hidden", "");
    auto names = files.list(folder.path());
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (std::vector<std::string>{".hidden", "bad\xFF.md", "line\nbreak.md"}));
    EXPECT_EQ(errorOf([&] { files.list(folder / ".hidden"); }), ENOTDIR);
    EXPECT_EQ(errorOf([&] { files.list(folder / "missing"); }), ENOENT);
}

TEST_F(LinuxFileSystemTest, SaysWhatMayNotBeSeenOrWritten) {
    asOrdinaryUser(folder.path(), [&] {
        folder.write("shut/note.md", "text");
        folder.write("read-only.md", "text");
        ::chmod((folder / "shut").c_str(), 0);
        ::chmod((folder / "read-only.md").c_str(), 0444);
        // "Not there" would be a lie that a caller might act on.
        EXPECT_EQ(errorOf([&] { files.info(folder / "shut/note.md"); }), EACCES);
        EXPECT_EQ(errorOf([&] { files.realPath(folder / "shut/note.md"); }), EACCES);
        EXPECT_EQ(errorOf([&] { files.list(folder / "shut"); }), EACCES);
        EXPECT_FALSE(files.isWritable(folder / "read-only.md"));
        EXPECT_TRUE(files.isWritable(folder.path()));
        EXPECT_FALSE(files.isWritable(folder / "missing"));
    });
}

}  // namespace
}  // namespace vesk::test
