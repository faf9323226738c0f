// A save that takes the place of exactly the text it has read.
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "Support/Fakes.h"
#include "VeskCore/Support/Match.h"
#include "VeskCore/Vault/AtomicWrite.h"
#include "VeskCore/Vault/ForeignEdit.h"

namespace vesk::test {
namespace {

using ForeignEdit::Disk;
using ForeignEdit::DiskChangedMeanwhile;
using Names = std::vector<std::string>;

class ReplaceTextTest : public ::testing::Test {
protected:
    PlatformFixture platform;
    const ScratchFolder& vault = platform.vaultFolder;
    const FilePath note = vault / "a.md";

    /// What the disk was found to hold, or none if the text is in place.
    std::optional<Disk> replaced(const std::string& text, const std::optional<std::string>& expected) {
        try {
            CoordinatedIO::replaceText(note, text, expected);
        } catch (const DiskChangedMeanwhile& change) {
            return change.found;
        }
        return {};
    }
    /// Another program's write: over the file itself, or by a rename into its place.
    void foreignWrite(const std::string& text, bool byRename) {
        if (byRename) {
            vault.write(".foreign", text);
            ASSERT_EQ(::rename((vault / ".foreign").c_str(), note.c_str()), 0);
        } else {
            vault.write("a.md", text);
        }
    }
    bool stands(const std::string& text) const {
        const Names names = vault.list();
        return std::any_of(names.begin(), names.end(),
                           [&](const std::string& name) { return vault.read(name) == text; });
    }
    void forgetFiles() {
        for (const std::string& name : vault.list()) std::filesystem::remove(vault / name);
    }
};

TEST_F(ReplaceTextTest, ReplacesOnlyWhatWasRead) {
    const Disk gone{Disk::Plain::gone};
    const struct {
        const char* name;
        std::optional<std::string> before;
        std::optional<std::string> expected;
        std::optional<Disk> found;
        std::optional<std::string> after;
    } rows[] = {
        {"as it was read", "base", "base", {}, "mine\n"},
        {"as it reads, in the file's line ends",
         "\xEF\xBB\xBF"
         "a\r\nb\r\n",
         "a\nb\n",
         {},
         "mine\r\n"},
        {"read as Latin 1", "Caf\xE9", "Café", {}, "mine\n"},
        {"another text", "theirs\r\n", "base", Disk{Disk::Text{"theirs\n"}}, "theirs\r\n"},
        {"another text of the same length", "bbse", "base", Disk{Disk::Text{"bbse"}}, "bbse"},
        {"taken away", {}, "base", gone, {}},
        {"nothing there", {}, {}, {}, "mine\n"},
        {"an unexpected file", "theirs", {}, Disk{Disk::Text{"theirs"}}, "theirs"},
        {"an empty file is not nothing", "", {}, Disk{Disk::Text{""}}, ""},
        {"an empty file", "", "", {}, "mine\n"},
    };
    for (const bool canExchange : {true, false}) {
        platform.files.fault = [=](std::string_view operation, const FilePath&) -> std::optional<int> {
            if (operation == "exchange" && !canExchange) return ENOSYS;
            return {};
        };
        for (const auto& row : rows) {
            SCOPED_TRACE(fmt::format("{}, {}", row.name, canExchange ? "exchanged" : "renamed"));
            forgetFiles();
            if (row.before) vault.write("a.md", *row.before);
            EXPECT_EQ(replaced("mine\n", row.expected), row.found);
            EXPECT_EQ(vault.list(), row.after ? Names{"a.md"} : Names{});
            if (row.after) {
                EXPECT_EQ(vault.read("a.md"), *row.after);
            }
        }
    }
}

TEST_F(ReplaceTextTest, ATextThatComesAtAnyMomentIsKept) {
    for (const bool byRename : {false, true}) {
        for (int moment = 1;; ++moment) {
            SCOPED_TRACE(fmt::format("moment {}, by rename {}", moment, byRename));
            forgetFiles();
            vault.write("a.md", "base");
            int step = 0;
            std::string interrupted;
            platform.files.fault = [&](std::string_view operation, const FilePath&) -> std::optional<int> {
                if (++step == moment) {
                    interrupted = operation;
                    foreignWrite("theirs", byRename);
                }
                return {};
            };
            const auto found = replaced("mine", "base");
            platform.files.fault = nullptr;
            if (step < moment) break;
            SCOPED_TRACE(interrupted);
            EXPECT_TRUE(stands("theirs"));
            if (found) {
                EXPECT_EQ(*found, Disk{Disk::Text{vault.read("a.md")}});
                EXPECT_EQ(vault.list(), Names{"a.md"});
            }
        }
    }
}

TEST_F(ReplaceTextTest, TwoTextsThatComeOneAfterTheOtherAreKept) {
    int steps = 1000;
    for (int first = 1; first <= steps; ++first) {
        for (int second = first + 1; second <= steps + 1; ++second) {
            SCOPED_TRACE(fmt::format("moments {} and {}", first, second));
            forgetFiles();
            vault.write("a.md", "base");
            int step = 0;
            bool overwroteTheFirst = false;
            platform.files.fault = [&](std::string_view, const FilePath&) -> std::optional<int> {
                ++step;
                if (step == first) foreignWrite("theirs", true);
                if (step == second) {
                    overwroteTheFirst = vault.read("a.md") == "theirs";
                    foreignWrite("newer", first % 2 == 0);
                }
                return {};
            };
            const auto found = replaced("mine", "base");
            platform.files.fault = nullptr;
            if (step < second) {
                steps = std::min(steps, std::max(step, first));
                break;
            }
            EXPECT_TRUE(stands("newer"));
            EXPECT_TRUE(overwroteTheFirst || stands("theirs"));
            // What comes after the decision is the next round's.
            if (found && !overwroteTheFirst) {
                EXPECT_EQ(*found, Disk{Disk::Text{vault.read("a.md")}});
            }
        }
    }
}

TEST_F(ReplaceTextTest, AFailingStepLeavesATextInTheFileAndEveryOtherBesideIt) {
    for (const char* operation : {"writeNew", "carryMetadata", "exchange", "setCreationDate"}) {
        for (const bool comesMeanwhile : {false, true}) {
            SCOPED_TRACE(fmt::format("{}, meanwhile {}", operation, comesMeanwhile));
            forgetFiles();
            vault.write("a.md", "base");
            int exchanges = 0;
            platform.files.fault = [&](std::string_view called, const FilePath&) -> std::optional<int> {
                if (called == "exchange" && comesMeanwhile && ++exchanges == 1) {
                    vault.write("a.md", "theirs");
                    return {};  // the way back is what fails
                }
                if (called == operation) return EIO;
                return {};
            };
            bool failed = false;
            std::optional<Disk> found;
            try {
                found = replaced("mine", "base");
            } catch (const SystemError&) {
                failed = true;
            }
            platform.files.fault = nullptr;
            EXPECT_TRUE(failed || std::string_view(operation) == "setCreationDate");
            const bool reachedTheExchange = exchanges > 0;
            EXPECT_TRUE(stands(comesMeanwhile && reachedTheExchange ? "theirs" : failed ? "base" : "mine"));
            for (const std::string& name : vault.list()) EXPECT_FALSE(name.starts_with(".vesk-tmp-")) << name;
        }
    }
}

TEST_F(ReplaceTextTest, KeepsWhatBelongsToTheFileAndFollowsLinks) {
    vault.write("there/real.md", "base");
    std::filesystem::permissions(vault / "there/real.md", std::filesystem::perms{0640});
    std::filesystem::create_symlink("there/real.md", note);
    EXPECT_EQ(replaced("mine", "base"), std::nullopt);
    EXPECT_TRUE(std::filesystem::is_symlink(note));
    EXPECT_EQ(vault.read("there/real.md"), "mine");
    EXPECT_EQ(vault.list("there"), Names{"real.md"});
    EXPECT_EQ(std::filesystem::status(note).permissions(), std::filesystem::perms{0640});

    // A link or folder that took the file's place is put back as it was.
    std::filesystem::remove(note);
    vault.write("a.md", "base");
    platform.files.fault = [&, done = false](std::string_view operation,
                                             const FilePath&) mutable -> std::optional<int> {
        if (operation != "exchange" || std::exchange(done, true)) return {};
        std::filesystem::remove(note);
        std::filesystem::create_directory(note);
        return {};
    };
    EXPECT_THROW(replaced("mine", "base"), SystemError);
    EXPECT_TRUE(std::filesystem::is_directory(note));
    EXPECT_EQ(vault.list(), (Names{"a.md", "there"}));

    std::filesystem::remove(note);
    std::filesystem::create_symlink("nowhere.md", note);
    EXPECT_THROW(replaced("mine", std::nullopt), SystemError);
    EXPECT_FALSE(vault.exists("nowhere.md"));
}

TEST_F(ReplaceTextTest, TakesTurnsAndRefusesLikeEveryWrite) {
    platform.ubiquity.setUbiquitousFolder(vault.path());
    vault.write("a.md", "base");
    EXPECT_EQ(replaced("mine", "base"), std::nullopt);
    EXPECT_EQ(platform.coordination.calls, Names{"write a.md"});
    EXPECT_THROW(CoordinatedIO::replaceText(vault / "p.html", "x", std::nullopt), VaultWriteError);
    EXPECT_THROW(replaced("\xC3(", "mine"), VaultWriteError);
    EXPECT_EQ(vault.read("a.md"), "mine");
}

}  // namespace
}  // namespace vesk::test
