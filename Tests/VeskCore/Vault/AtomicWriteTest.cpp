#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>

#include "Support/Fakes.h"
#include "VeskCore/Support/VirtualTime.h"
#include "VeskCore/Vault/AtomicWrite.h"

namespace vesk::test {
namespace {

using namespace std::chrono_literals;
using Download = UbiquitySource::DownloadingStatus;
using Kind = VaultWriteError::Kind;
using Names = std::vector<std::string>;
using Values = UbiquitySource::Values;

constexpr Values current{.isUbiquitous = true, .downloadingStatus = Download::current};
constexpr Values stale{.isUbiquitous = true, .downloadingStatus = Download::downloaded};
constexpr Values notDownloaded{.isUbiquitous = true, .downloadingStatus = Download::notDownloaded};
constexpr Values downloading{.isUbiquitous = true, .isDownloading = true};

/// The kind of VaultWriteError that `action` throws, or none.
template <class Action>
std::optional<Kind> refusal(Action action) {
    try {
        action();
    } catch (const VaultWriteError& error) {
        return error.kind;
    }
    return {};
}

/// The errno value of the SystemError that `action` throws, or none.
template <class Action>
std::optional<int> failure(Action action) {
    try {
        action();
    } catch (const SystemError& error) {
        return error.code;
    }
    return {};
}

class AtomicWriteTest : public ::testing::Test {
protected:
    PlatformFixture platform;
    const ScratchFolder& vault = platform.vaultFolder;
    VirtualTime time;

    void failOn(std::string_view operation, int code) {
        platform.files.fault = [=](std::string_view called, const FilePath&) -> std::optional<int> {
            if (called == operation) return code;
            return {};
        };
    }
};

TEST_F(AtomicWriteTest, ReadsEveryEncodingAsTextWithLineFeeds) {
    const struct {
        const char* name;
        std::string_view bytes;
        std::string_view expected;
    } rows[] = {
        {"UTF-8", "Grüße\n", "Grüße\n"},
        {"Latin 1",
         "Gr\xFC\xDF"
         "e\r\n",
         "Grüße\n"},
        {"one byte order mark goes", "\xEF\xBB\xBF\xEF\xBB\xBFx", "\xEF\xBB\xBFx"},
        {"a mark inside stays", "x\xEF\xBB\xBF", "x\xEF\xBB\xBF"},
        {"CR LF", "a\r\n\r\nb\rc\r\r\n", "a\n\nb\rc\r\n"},
        {"empty", "", ""},
        {"NUL", std::string_view("a\0b", 3), std::string_view("a\0b", 3)},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(AtomicWrite::read(vault.write("a.md", row.bytes)), row.expected) << row.name;
    }
    EXPECT_EQ(AtomicWrite::read(vault / "absent.md"), std::nullopt);
    EXPECT_EQ(AtomicWrite::read(vault / "a.md/below.md"), std::nullopt);
    EXPECT_EQ(AtomicWrite::readData(vault.write("b.md",
                                                "\xEF\xBB\xBF"
                                                "a\r\n"),
                                    5),
              "\xEF\xBB\xBF"
              "a\r");
    EXPECT_EQ(failure([&] { AtomicWrite::readData(vault / "absent.md", 5); }), ENOENT);
}

TEST_F(AtomicWriteTest, AnUnreadableFileIsNoAbsentFile) {
    const FilePath note = vault.write("a.md", "text");
    failOn("read", EACCES);
    EXPECT_EQ(failure([&] { AtomicWrite::read(note); }), EACCES);
}

TEST_F(AtomicWriteTest, APlaceholderIsAskedForAndNeverRead) {
    const FilePath note = vault.write("a.md", "");
    failOn("read", EIO);
    for (const Values& values : {notDownloaded, downloading}) {
        platform.ubiquity.set(note, values);
        const std::size_t before = platform.ubiquity.requested().size();
        EXPECT_EQ(refusal([&] { AtomicWrite::read(note); }), Kind::notMaterialised);
        EXPECT_EQ(refusal([&] { AtomicWrite::readData(note, 1); }), Kind::notMaterialised);
        EXPECT_EQ(refusal([&] { CoordinatedIO::read(note); }), Kind::notMaterialised);
        EXPECT_EQ(refusal([&] { CoordinatedIO::readForSave(note); }), Kind::notCurrent);
        EXPECT_EQ(platform.ubiquity.requested().size(), before + 4);
    }
    platform.ubiquity.refusals[note] = EIO;
    EXPECT_EQ(refusal([&] { AtomicWrite::read(note); }), Kind::notMaterialised);
    EXPECT_EQ(platform.coordination.calls, Names{});
}

TEST_F(AtomicWriteTest, AStaleCopyIsReadButNeverSavedAgainst) {
    const FilePath note = vault.write("a.md", "old");
    platform.ubiquity.set(note, stale);
    EXPECT_EQ(AtomicWrite::read(note), "old");
    EXPECT_EQ(platform.ubiquity.requested(), std::vector<FilePath>{note});
    EXPECT_EQ(refusal([&] { CoordinatedIO::readForSave(note); }), Kind::notCurrent);
    EXPECT_EQ(platform.ubiquity.requested().size(), 2u);
    platform.ubiquity.set(note, current);
    EXPECT_EQ(CoordinatedIO::readForSave(note), "old");
    EXPECT_EQ(CoordinatedIO::readForSave(vault / "absent.md"), std::nullopt);
}

TEST_F(AtomicWriteTest, SavesWithTheLineEndingsOfTheFileInPlace) {
    const struct {
        const char* name;
        std::optional<std::string> before;
        std::string text, expected;
    } rows[] = {
        {"a new file as it comes",
         {},
         "\xEF\xBB\xBF"
         "a\r\nb\n",
         "\xEF\xBB\xBF"
         "a\r\nb\n"},
        {"an LF file as it comes", "x\ny\r\n", "a\r\nb\n", "a\r\nb\n"},
        {"a CR LF file", "x\r\ny\n", "a\nb\r\nc", "a\r\nb\r\nc"},
        {"a byte order mark goes on the way to CR LF", "x\r\n",
         "\xEF\xBB\xBF"
         "a\n",
         "a\r\n"},
        {"no line break counts as LF", "x", "a\nb", "a\nb"},
        {"the LF leads the file", "\nx\r\n", "a\n", "a\n"},
        {"CR LF right behind the probe is not seen", std::string(65536, 'x') + "\r\n", "a\n", "a\n"},
        {"CR LF that ends the probe is seen", std::string(65534, 'x') + "\r\n", "a\n", "a\r\n"},
        {"Latin 1 becomes UTF-8",
         "Gr\xFC\xDF"
         "e\n",
         "Grüße\n", "Grüße\n"},
    };
    for (const auto& row : rows) {
        std::filesystem::remove(vault / "a.md");
        if (row.before) vault.write("a.md", *row.before);
        AtomicWrite::writeText(vault / "a.md", row.text);
        EXPECT_EQ(vault.read("a.md"), row.expected) << row.name;
    }
    EXPECT_EQ(vault.list(), Names{"a.md"});
}

TEST_F(AtomicWriteTest, MakesMissingFolders) {
    AtomicWrite::writeText(vault / "a/b/c.md", "text");
    EXPECT_EQ(vault.read("a/b/c.md"), "text");
}

TEST_F(AtomicWriteTest, RefusesWhatIsNotItsToWrite) {
    vault.write("p.HTML", "<p>");
    vault.write("s.css", "p {}");
    std::filesystem::create_symlink(vault / "p.HTML", vault / "link.md");
    for (const char* name : {"p.HTML", "s.css", "new.htm", "link.md"}) {
        EXPECT_EQ(refusal([&] { AtomicWrite::writeText(vault / name, "x"); }), Kind::readOnlyDocument)
            << name;
        EXPECT_EQ(refusal([&] { CoordinatedIO::writeData(vault / name, "x"); }), Kind::readOnlyDocument)
            << name;
    }
    EXPECT_EQ(refusal([&] { CoordinatedIO::createText(vault / "new.css", "x"); }), Kind::readOnlyDocument);
    EXPECT_EQ(vault.read("p.HTML"), "<p>");

    vault.write("folder.md/inside.md", "x");
    EXPECT_EQ(failure([&] { AtomicWrite::writeText(vault / "folder.md", "x"); }), EISDIR);
    ASSERT_EQ(::mkfifo((vault / "pipe.md").c_str(), 0600), 0);
    EXPECT_EQ(failure([&] { AtomicWrite::writeText(vault / "pipe.md", "x"); }), EINVAL);

    vault.write("a.md", "old");
    EXPECT_EQ(refusal([&] { AtomicWrite::writeText(vault / "a.md", "\xC3("); }), Kind::encodingFailed);
    EXPECT_EQ(refusal([&] { AtomicWrite::createText(vault / "b.md", "\xED\xA0\x80"); }),
              Kind::encodingFailed);
    EXPECT_EQ(vault.read("a.md"), "old");
    EXPECT_EQ(vault.list(), (Names{"a.md", "folder.md", "link.md", "p.HTML", "pipe.md", "s.css"}));
}

TEST_F(AtomicWriteTest, AFailingStepLeavesTheOldFileWholeAndNothingBesideIt) {
    const struct {
        const char* operation;
        const char* file;
    } rows[] = {
        {"createDirectories", "old.md"}, {"writeNew", "old.md"}, {"replace", "old.md"},
        {"createDirectories", "new.md"}, {"writeNew", "new.md"}, {"move", "new.md"},
    };
    vault.write("old.md", "old\r\n");
    for (const auto& row : rows) {
        failOn(row.operation, ENOSPC);
        EXPECT_EQ(failure([&] { AtomicWrite::writeText(vault / row.file, "new"); }), ENOSPC) << row.operation;
        EXPECT_EQ(failure([&] { AtomicWrite::writeData(vault / row.file, "new"); }), ENOSPC) << row.operation;
        EXPECT_EQ(vault.list(), Names{"old.md"}) << row.operation;
        EXPECT_EQ(vault.read("old.md"), "old\r\n") << row.operation;
    }
    // A date that can't be kept is no reason to lose the text.
    failOn("setCreationDate", ENOTSUP);
    AtomicWrite::writeText(vault / "old.md", "new");
    EXPECT_EQ(vault.read("old.md"), "new");
}

TEST_F(AtomicWriteTest, NeverOverwritesAFileThatAppearsMeanwhile) {
    platform.files.fault = [&](std::string_view operation, const FilePath&) -> std::optional<int> {
        if (operation == "move") vault.write("a.md", "theirs");
        return {};
    };
    EXPECT_EQ(failure([&] { AtomicWrite::writeText(vault / "a.md", "ours"); }), EEXIST);
    EXPECT_EQ(vault.read("a.md"), "theirs");
    platform.files.fault = nullptr;
    EXPECT_EQ(failure([&] { AtomicWrite::createText(vault / "a.md", "ours"); }), EEXIST);
    EXPECT_EQ(failure([&] { AtomicWrite::createData(vault / "a.md", "ours"); }), EEXIST);
    EXPECT_EQ(vault.read("a.md"), "theirs");
    EXPECT_EQ(vault.list(), Names{"a.md"});
}

TEST_F(AtomicWriteTest, KeepsCreationDateModeAndAttributes) {
    const FilePath note = vault.write("a.md", "old");
    const TimePoint made = timeFromSecondsSince1970(1'000'000'000);
    try {
        platform.files.setCreationDate(note, made);
        platform.files.setAttribute(note, "user.colour", "red");
    } catch (const SystemError& error) {
        GTEST_SKIP() << "no extended attributes here: " << error.description();
    }
    std::filesystem::permissions(note, std::filesystem::perms{0640});
    AtomicWrite::writeText(note, "new");
    EXPECT_EQ(platform.files.info(note)->created, made);
    EXPECT_EQ(platform.files.attribute(note, "user.colour"), "red");
    EXPECT_EQ(std::filesystem::status(note).permissions(), std::filesystem::perms{0640});
}

TEST_F(AtomicWriteTest, OnlyTextRemembersTheCreationDate) {
    const FilePath note = vault.write("a.md", "old");
    int remembered = 0;
    platform.files.fault = [&](std::string_view operation, const FilePath&) -> std::optional<int> {
        if (operation == "setCreationDate") ++remembered;
        return {};
    };
    AtomicWrite::writeData(note, "bytes\n");
    EXPECT_EQ(remembered, 0);
    AtomicWrite::writeText(note, "text\n");
    EXPECT_EQ(remembered, 1);
}

TEST_F(AtomicWriteTest, WritesThroughALinkToItsTarget) {
    vault.write("there/real.md", "old\r\n");
    std::filesystem::create_symlink("there/real.md", vault / "link.md");
    AtomicWrite::writeText(vault / "link.md", "new\n");
    EXPECT_TRUE(std::filesystem::is_symlink(vault / "link.md"));
    EXPECT_EQ(vault.read("there/real.md"), "new\r\n");
    EXPECT_EQ(vault.list("there"), Names{"real.md"});

    std::filesystem::create_symlink("nowhere.md", vault / "dangling.md");
    EXPECT_EQ(failure([&] { AtomicWrite::writeText(vault / "dangling.md", "x"); }), EEXIST);
    EXPECT_FALSE(vault.exists("nowhere.md"));
}

TEST_F(AtomicWriteTest, DoesNotProbeTheLineEndingsOfADatalessFile) {
    const FilePath note = vault.write("a.md", "x\r\n");
    EXPECT_EQ(LineEndings::ofFile(note), LineEnding::crlf);
    platform.ubiquity.setDataless(note);
    EXPECT_EQ(LineEndings::ofFile(note), LineEnding::lf);
    EXPECT_EQ(LineEndings::ofFile(vault / "absent.md"), LineEnding::lf);
}

TEST(WaitStep, FollowsTheTable) {
    using State = UbiquityState;
    using Step = AtomicWrite::WaitStep;
    const struct {
        const char* name;
        State status;
        bool sawLocalCopy;
        double elapsed, limit, staleLimit;
        Step expected;
    } rows[] = {
        {"current is read at once", State::materialised, false, 0, 30, 10, Step::read},
        {"ordinary is read at any time", State::notUbiquitous, true, 99, 30, 10, Step::read},
        {"stale waits", State::stale, true, 9.9, 30, 10, Step::wait},
        {"stale settles", State::stale, true, 10, 30, 10, Step::readLocalCopy},
        {"stale keeps to the lesser limit", State::stale, true, 5, 5, 10, Step::readLocalCopy},
        {"stale without a look at a copy", State::stale, false, 9.9, 30, 10, Step::wait},
        {"stale without a look at a copy settles", State::stale, false, 10, 30, 10, Step::readLocalCopy},
        {"placeholder waits for the whole limit", State::placeholder, false, 29.9, 30, 10, Step::wait},
        {"placeholder gives up", State::placeholder, false, 30, 30, 10, Step::giveUp},
        {"placeholder that had a copy waits less", State::placeholder, true, 9.9, 30, 10, Step::wait},
        {"placeholder that had a copy gives up", State::placeholder, true, 10, 30, 10, Step::giveUp},
        {"downloading over a copy waits", State::downloading, true, 9.9, 30, 10, Step::wait},
        {"downloading over a copy settles", State::downloading, true, 10, 30, 10, Step::readLocalCopy},
        {"downloading from nothing waits longer", State::downloading, false, 29.9, 30, 10, Step::wait},
        {"downloading from nothing gives up", State::downloading, false, 30, 30, 10, Step::giveUp},
        {"no time to wait", State::downloading, false, 0, 0, 10, Step::giveUp},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(AtomicWrite::waitStep(row.status, row.sawLocalCopy, Seconds(row.elapsed),
                                        Seconds(row.limit), Seconds(row.staleLimit)),
                  row.expected)
            << row.name;
    }
}

TEST_F(AtomicWriteTest, AFreshReadWaitsForTheNewerVersion) {
    const FilePath note = vault.write("a.md", "old");
    platform.ubiquity.set(note, stale);
    const auto arrival = time.postAfter(3s, [&] {
        vault.write("a.md", "new\r\n");
        platform.ubiquity.set(note, current);
    });
    EXPECT_EQ(AtomicWrite::readFresh(note, Seconds(30), Seconds(10), time, {}), (FreshRead{"new\n", false}));
    EXPECT_EQ(time.monotonic(), 3s);
    EXPECT_EQ(platform.coordination.calls, Names{"read a.md"});
}

TEST_F(AtomicWriteTest, AFreshReadSettlesForTheLocalCopyInTime) {
    const FilePath note = vault.write("a.md", "old\r\n");
    for (const Values& values : {stale, downloading}) {
        platform.ubiquity.set(note, values);
        const Duration start = time.monotonic();
        const FreshRead fresh = AtomicWrite::readFresh(note, Seconds(30), Seconds(10), time, {});
        EXPECT_EQ(fresh, (FreshRead{"old\n", true}));
        EXPECT_EQ(time.monotonic() - start, 10s);
        EXPECT_EQ(refusal([&] { AtomicWrite::currentText(fresh, note); }), Kind::notMaterialised);
        EXPECT_EQ(refusal([&] { AtomicWrite::readWaiting(note, Seconds(1), time, {}); }),
                  Kind::notMaterialised);
    }
    EXPECT_EQ(platform.coordination.calls, Names{});
}

TEST_F(AtomicWriteTest, AFreshReadGivesUpOnWhatIsNotHere) {
    const FilePath empty = vault.write("empty.md", "");
    platform.ubiquity.set(empty, downloading);
    EXPECT_EQ(refusal([&] { AtomicWrite::readFresh(empty, Seconds(30), Seconds(10), time, {}); }),
              Kind::notMaterialised);
    EXPECT_EQ(time.monotonic(), 30s);
    EXPECT_EQ(AtomicWrite::readWaiting(vault / "absent.md", Seconds(30), time, {}), std::nullopt);

    std::stop_source stop;
    stop.request_stop();
    EXPECT_THROW(AtomicWrite::readFresh(empty, Seconds(30), Seconds(10), time, stop.get_token()),
                 OperationCancelled);
}

TEST_F(AtomicWriteTest, TakesTurnsOnlyInAProvidersFolder) {
    CoordinatedIO::writeText(vault / "plain.md", "x");
    CoordinatedIO::move(vault / "plain.md", vault / "moved.md");
    EXPECT_EQ(CoordinatedIO::read(vault / "moved.md"), "x");
    EXPECT_EQ(platform.coordination.calls, Names{});

    platform.ubiquity.setUbiquitousFolder(vault / "cloud");
    vault.write("cloud/a.md", "old");
    EXPECT_TRUE(CoordinatedIO::needsCoordination(vault / "cloud/not/yet/there.md"));
    EXPECT_FALSE(CoordinatedIO::needsCoordination(vault / "elsewhere/b.md"));
    EXPECT_TRUE(CoordinatedIO::needsCoordination("/nowhere/Library/Mobile Documents/b.md"));
    EXPECT_FALSE(CoordinatedIO::needsCoordination("/nowhere/b.md"));
    CoordinatedIO::writeText(vault / "cloud/a.md", "new");
    EXPECT_EQ(CoordinatedIO::read(vault / "cloud/a.md"), "new");
    CoordinatedIO::move(vault / "cloud/a.md", vault / "b.md");
    EXPECT_EQ(platform.coordination.calls, (Names{"write a.md", "read a.md", "move a.md b.md"}));
    EXPECT_EQ(vault.read("b.md"), "new");

    platform.coordination.refusal = EDEADLK;
    EXPECT_EQ(failure([&] { CoordinatedIO::writeText(vault / "cloud/c.md", "x"); }), EDEADLK);
    EXPECT_EQ(vault.list("cloud"), Names{});
}

}  // namespace
}  // namespace vesk::test
