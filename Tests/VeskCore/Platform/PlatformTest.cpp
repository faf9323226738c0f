#include <gtest/gtest.h>

#include <cerrno>

#include "Support/Fakes.h"
#include "VeskCore/Platform/FilePlatform.h"
#include "VeskCore/Platform/FileSystem.h"
#include "VeskCore/Platform/UserDefaults.h"

namespace vesk {
namespace {

TEST(FileSystemTest, PathsAreStandardisedWithoutTheDisk) {
    struct Row {
        const char *path, *expected;
    };
    const Row rows[] = {
        {"/a/b/", "/a/b"},    {"/a/./b/../c", "/a/c"}, {"/a/b/..", "/a"},    {"/a/..", "/"},
        {"/", "/"},           {"/../a", "/a"},         {"//a//b//", "/a/b"}, {"/a/.", "/a"},
        {"/a/...", "/a/..."}, {"/a/.b", "/a/.b"},      {"/a b/ü", "/a b/ü"}, {"", ""},
    };
    for (const auto& row : rows) EXPECT_EQ(standardised(row.path).native(), row.expected) << row.path;
}

TEST(FileSystemTest, AppendingStaysBelowTheRoot) {
    EXPECT_EQ(appending("/vault", "a/b.md").native(), "/vault/a/b.md");
    EXPECT_EQ(appending("/vault", "/etc/passwd").native(), "/vault/etc/passwd");
    EXPECT_EQ(appending("/vault", "///x").native(), "/vault/x");
    EXPECT_EQ(appending("/vault", "").native(), "/vault");
    EXPECT_EQ(appending("/vault", "/").native(), "/vault");
    EXPECT_EQ(appending("/vault", "\xFF.md").native(), "/vault/\xFF.md");
}

TEST(FilePlatformTest, AnInstallationPutsTheFormerOneBack) {
    test::PlatformFixture outer;
    EXPECT_EQ(FilePlatform::current().files, &outer.files);
    {
        NoUbiquity none;
        FilePlatformInstallation inner({&outer.files, &outer.coordination, &none});
        EXPECT_EQ(FilePlatform::current().ubiquity, &none);
    }
    EXPECT_EQ(FilePlatform::current().ubiquity, &outer.ubiquity);
}

TEST(UbiquityTest, WithoutAProviderADownloadIsRefused) {
    NoUbiquity none;
    try {
        none.startDownload("/vault/a.md");
        FAIL();
    } catch (const SystemError& error) {
        EXPECT_EQ(error.code, ENOTSUP);
        EXPECT_EQ(error.subject, "/vault/a.md");
    }
}

TEST(UserDefaultsTest, ValuesAreReadByType) {
    test::MemoryUserDefaults defaults;
    defaults.set("text", "x");
    defaults.set("whole", 3);
    defaults.set("yes", true);
    EXPECT_EQ(defaults.string("text"), "x");
    EXPECT_EQ(defaults.string("whole"), std::nullopt);
    EXPECT_EQ(defaults.number("whole"), 3.0);
    EXPECT_EQ(defaults.number("yes"), std::nullopt);
    EXPECT_EQ(defaults.boolean("yes"), true);
    EXPECT_EQ(defaults.boolean("text"), std::nullopt);
    EXPECT_EQ(defaults.boolean("missing"), std::nullopt);
}

}  // namespace
}  // namespace vesk
