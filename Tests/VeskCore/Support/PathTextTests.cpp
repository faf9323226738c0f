#include <gtest/gtest.h>

#include "VeskCore/Support/PathText.h"

namespace vesk {
namespace {

TEST(PathText, TellsNameStemExtensionAndFolderApart) {
    struct Row {
        std::string_view path, last, stem, extension, parent, bare;
    };
    const std::vector<Row> rows{
        {"", "", "", "", "", ""},
        {"b.md", "b.md", "b", "md", "", "b"},
        {"a/b.md", "b.md", "b", "md", "a", "a/b"},
        {"a/b/c.md", "c.md", "c", "md", "a/b", "a/b/c"},
        {"a.tar.gz", "a.tar.gz", "a.tar", "gz", "", "a.tar"},
        {"x/.hidden", ".hidden", ".hidden", "", "x", "x/.hidden"},
        {".x.md", ".x.md", ".x", "md", "", ".x"},
        {"name.", "name.", "name.", "", "", "name."},
        {"v1.2 notes", "v1.2 notes", "v1.2 notes", "", "", "v1.2 notes"},
        {"v1.2 notes.md", "v1.2 notes.md", "v1.2 notes", "md", "", "v1.2 notes"},
        {"Dr.\u00a0Who", "Dr.\u00a0Who", "Dr.\u00a0Who", "", "", "Dr.\u00a0Who"},
        {"v1.2/plain", "plain", "plain", "", "v1.2", "v1.2/plain"},
        {"a/b/", "b", "b", "", "a", "a/b"},
        {"a/b.md//", "b.md", "b", "md", "a", "a/b"},
        {"a//b", "b", "b", "", "a", "a//b"},
        {"/", "", "", "", "", ""},
        {"..", "..", "..", "", "", ".."},
        {"Ü.MD", "Ü.MD", "Ü", "MD", "", "Ü"},
        {"raw\xff.m\xff", "raw\xff.m\xff", "raw\xff", "m\xff", "", "raw\xff"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.path);
        EXPECT_EQ(lastComponent(row.path), row.last);
        EXPECT_EQ(stem(row.path), row.stem);
        EXPECT_EQ(pathExtension(row.path), row.extension);
        EXPECT_EQ(parentFolder(row.path), row.parent);
        EXPECT_EQ(deletingExtension(row.path), row.bare);
    }
    EXPECT_EQ(lowercasedExtension("a/B.HtMl"), "html");
}

TEST(PathText, JoinsAndTakesApart) {
    EXPECT_EQ(joinedPath("", "a.md"), "a.md");
    EXPECT_EQ(joinedPath("a/b", "c.md"), "a/b/c.md");
    EXPECT_EQ(joinedPath("a/", "c.md"), "a/c.md");
    EXPECT_EQ(joinedPath("a", ""), "a");
    EXPECT_EQ(pathComponents("/a//b/c.md/"), (std::vector<std::string_view>{"a", "b", "c.md"}));
    EXPECT_TRUE(pathComponents("").empty());
}

TEST(PathText, AFolderHoldsItselfAndWhatLiesBelow) {
    struct Row {
        std::string_view path, folder;
        bool expected;
    };
    const std::vector<Row> rows{
        {"a/b.md", "a", true}, {"a", "a", true},        {"ab/c.md", "a", false}, {"a", "a/b", false},
        {"a/b", "", true},     {"a/b/c", "a/b/", true}, {"A/b", "a", false},     {"b/a", "a", false},
    };
    for (const Row& row : rows) EXPECT_EQ(isAtOrBelow(row.path, row.folder), row.expected) << row.path;
}

TEST(PathText, AFileNameFitsItsBytes) {
    const std::string letters(300, 'x');
    EXPECT_EQ(fittingFileName("short", " 2.md"), "short 2.md");
    EXPECT_EQ(fittingFileName(letters, ".md"), std::string(252, 'x') + ".md");
    EXPECT_EQ(fittingFileName(std::string(250, 'x') + "é", ".md"), std::string(250, 'x') + "é.md");
    EXPECT_EQ(fittingFileName(std::string(251, 'x') + "é", ".md"), std::string(251, 'x') + ".md");
    EXPECT_EQ(fittingFileName(std::string(250, 'x') + "e\u0301", ".md"), std::string(250, 'x') + ".md");
    EXPECT_EQ(fittingFileName("x", letters), letters);
}

}  // namespace
}  // namespace vesk
