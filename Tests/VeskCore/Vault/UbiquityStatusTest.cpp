#include <gtest/gtest.h>

#include <cerrno>

#include "Support/Fakes.h"
#include "VeskCore/Vault/AtomicWrite.h"
#include "VeskCore/Vault/UbiquityStatus.h"
#include "VeskCore/Vault/VaultWriteError.h"

namespace vesk::test {
namespace {

using Download = UbiquitySource::DownloadingStatus;
using Values = UbiquitySource::Values;

TEST(VaultWriteError, SpeaksTheUsersWords) {
    using Kind = VaultWriteError::Kind;
    const struct {
        const char* name;
        Kind kind;
        const char* path;
        const char* expected;
    } rows[] = {
        {"not here", Kind::notMaterialised, "/v/Plan.md",
         "\"Plan.md\" hasn't finished downloading from iCloud yet."},
        {"outside", Kind::outsideVault, "/etc/motd", "\"/etc/motd\" is outside the vault."},
        {"encoding", Kind::encodingFailed, "/v/Plan.md", "Couldn't encode \"Plan.md\" as UTF-8."},
        {"taken, by stem", Kind::alreadyExists, "/v/v1.2.md", "One called “v1.2” is already in this folder."},
        {"old", Kind::notCurrent, "/v/Plan.md",
         "A newer version of \"Plan.md\" is still downloading from iCloud."},
        {"page", Kind::readOnlyDocument, "/v/p.html",
         "\"p.html\" is a web page or stylesheet, which Vesk opens read-only."},
        {"a name that is no UTF-8", Kind::encodingFailed, "/v/Caf\xE9.md",
         "Couldn't encode \"Café.md\" as UTF-8."},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(VaultWriteError(row.kind, row.path).description(), row.expected) << row.name;
    }
}

TEST(UbiquityStatus, ClassifiesWhatTheProviderSays) {
    const struct {
        bool isUbiquitous, isDownloading;
        std::optional<Download> status;
        UbiquityState expected;
    } rows[] = {
        {false, true, Download::notDownloaded, UbiquityState::notUbiquitous},
        {true, true, Download::current, UbiquityState::downloading},
        {true, false, Download::notDownloaded, UbiquityState::placeholder},
        {true, false, Download::downloaded, UbiquityState::stale},
        {true, false, Download::current, UbiquityState::materialised},
        {true, false, Download::other, UbiquityState::materialised},
        {true, false, {}, UbiquityState::materialised},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(UbiquityStatus::classify(row.isUbiquitous, row.isDownloading, row.status), row.expected)
            << &row - rows;
    }
}

TEST(UbiquityStatus, SaysWhatNeedsADownloadAndWhatHasBytesHere) {
    const struct {
        UbiquityState state;
        bool needsDownload, hasLocalContent;
    } rows[] = {
        {UbiquityState::materialised, false, true},  {UbiquityState::stale, true, true},
        {UbiquityState::placeholder, true, false},   {UbiquityState::downloading, true, false},
        {UbiquityState::notUbiquitous, false, true},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(needsDownload(row.state), row.needsDownload) << &row - rows;
        EXPECT_EQ(hasLocalContent(row.state), row.hasLocalContent) << &row - rows;
    }
}

TEST(UbiquityStatus, ReadsTheNameThatAStubStandsFor) {
    const struct {
        const char* stub;
        std::optional<std::string> expected;
    } rows[] = {
        {".Plan.md.icloud", "Plan.md"},
        {".Plan.md.iCloud", "Plan.md"},
        {".a.icloud", "a"},
        {"..hidden.icloud", {}},
        {".icloud", {}},
        {"..icloud", {}},
        {"Plan.md.icloud", {}},
        {".Plan.md", {}},
        {"", {}},
    };
    for (const auto& row : rows) EXPECT_EQ(UbiquityStatus::logicalName(row.stub), row.expected) << row.stub;
    EXPECT_EQ(UbiquityStatus::stubPath("/v/a/Plan.md"), "/v/a/.Plan.md.icloud");
}

TEST(UbiquityStatus, KnowsAnEvictionDirectlyOrUnderneath) {
    const auto caught = [](const auto& raise) {
        try {
            raise();
        } catch (...) {
            return std::current_exception();
        }
        return std::exception_ptr();
    };
    const auto under = [&](int code) {
        return caught([code] {
            try {
                throw SystemError(code, "read", "a.md");
            } catch (...) {
                std::throw_with_nested(std::runtime_error("reading failed"));
            }
        });
    };
    EXPECT_TRUE(UbiquityStatus::isEvictionError(caught([] { throw SystemError(11, "read", "a.md"); })));
    EXPECT_TRUE(UbiquityStatus::isEvictionError(under(11)));
    EXPECT_FALSE(UbiquityStatus::isEvictionError(caught([] { throw SystemError(EIO, "read", "a.md"); })));
    EXPECT_FALSE(UbiquityStatus::isEvictionError(under(EIO)));
    EXPECT_FALSE(UbiquityStatus::isEvictionError(caught([] { throw 11; })));
    EXPECT_FALSE(UbiquityStatus::isEvictionError(nullptr));
}

class UbiquityStatusTest : public ::testing::Test {
protected:
    PlatformFixture platform;
    const ScratchFolder& vault = platform.vaultFolder;
};

TEST_F(UbiquityStatusTest, ADatalessFileIsAPlaceholderWhateverElseIsSaidOfIt) {
    const FilePath note = vault.write("a.md", "text");
    EXPECT_EQ(UbiquityStatus::of(note), UbiquityState::notUbiquitous);
    platform.ubiquity.set(note, {.isUbiquitous = true, .downloadingStatus = Download::current});
    EXPECT_EQ(UbiquityStatus::of(note), UbiquityState::materialised);
    platform.ubiquity.setDataless(note);
    EXPECT_EQ(UbiquityStatus::of(note), UbiquityState::placeholder);
}

TEST_F(UbiquityStatusTest, AStubCountsOnlyInAProvidersFolder) {
    vault.write(".a.md.icloud", "");
    const FilePath note = vault / "a.md";
    EXPECT_EQ(UbiquityStatus::of(note), UbiquityState::notUbiquitous);
    platform.ubiquity.setUbiquitousFolder(vault.path());
    EXPECT_EQ(UbiquityStatus::of(note), UbiquityState::placeholder);
    EXPECT_EQ(UbiquityStatus::of(vault / "b.md"), UbiquityState::notUbiquitous);
}

TEST_F(UbiquityStatusTest, ARefusedDownloadFallsBackToTheStub) {
    const FilePath note = vault / "a.md";
    platform.ubiquity.refusals[note] = ENOENT;
    EXPECT_THROW(UbiquityStatus::startDownload(note), SystemError);
    const FilePath stub = vault.write(".a.md.icloud", "");
    UbiquityStatus::startDownload(note);
    ASSERT_FALSE(platform.ubiquity.requested().empty());
    EXPECT_EQ(platform.ubiquity.requested().back(), stub);

    platform.ubiquity.refusals[stub] = EIO;
    try {
        UbiquityStatus::startDownload(note);
        FAIL() << "the stub's refusal was swallowed";
    } catch (const SystemError& error) {
        EXPECT_EQ(error.code, EIO);
    }
}

TEST_F(UbiquityStatusTest, AsksForEveryOwedFileBelowAFolder) {
    platform.ubiquity.setUbiquitousFolder(vault.path());
    const Values stale{.isUbiquitous = true, .downloadingStatus = Download::downloaded};
    platform.ubiquity.set(vault.write("a/stale.MD", "old"), stale);
    platform.ubiquity.set(vault.write("picture.png", "old"), stale);
    platform.ubiquity.set(vault.write(".hidden/stale.md", "old"), stale);
    vault.write("current.md", "text");
    vault.write("a/.stub.md.icloud", "");
    vault.write(".picture.png.icloud", "");
    const FilePath refused = vault.write("refused.md", "old");
    platform.ubiquity.set(refused, stale);
    platform.ubiquity.refusals[refused] = EIO;

    EXPECT_EQ(UbiquityStatus::materialiseAll(vault.path(), {"md", "txt"}), 2);
    std::vector<std::string> asked;
    for (const FilePath& path : platform.ubiquity.requested()) {
        if (path != refused) asked.push_back(path.lexically_relative(vault.path()).native());
    }
    std::sort(asked.begin(), asked.end());
    EXPECT_EQ(asked, (std::vector<std::string>{"a/stale.MD", "a/stub.md"}));
}

}  // namespace
}  // namespace vesk::test
