#include <gtest/gtest.h>

#include <cerrno>

#include "Support/Fakes.h"
#include "VeskCore/Vault/ConflictResolver.h"

namespace vesk::test {
namespace {

using Names = std::vector<std::string>;

/// A provider that holds versions in memory.
class FakeFileVersions final : public FileVersions {
public:
    struct Version final : FileVersion {
        std::string name;
        std::optional<std::string> device, bytes;
        bool resolved = false;

        std::string identifier() const override { return name; }
        std::optional<TimePoint> modified() const override { return timeFromSecondsSince1970(1'000); }
        std::optional<std::string> deviceName() const override { return device; }
        std::string read() const override {
            if (!bytes) throw SystemError(EAGAIN, "read", name);
            return *bytes;
        }
        void replaceItem(const FilePath& path) override {
            FilePlatform::current().files->remove(path);
            FilePlatform::current().files->writeNew(path, read());
        }
        void markResolved() override { resolved = true; }
    };

    std::map<FilePath, std::vector<std::shared_ptr<Version>>> held;
    int removals = 0;

    Version& add(const FilePath& path, std::string name, std::optional<std::string> device,
                 std::optional<std::string> bytes) {
        auto version = std::make_shared<Version>();
        version->name = std::move(name);
        version->device = std::move(device);
        version->bytes = std::move(bytes);
        held[path].push_back(version);
        return *version;
    }
    std::vector<std::shared_ptr<FileVersion>> unresolvedConflictVersions(
        const FilePath& path) const override {
        std::vector<std::shared_ptr<FileVersion>> versions;
        const auto found = held.find(path);
        if (found == held.end()) return versions;
        for (const auto& version : found->second) {
            if (!version->resolved) versions.push_back(version);
        }
        return versions;
    }
    std::shared_ptr<FileVersion> currentVersion(const FilePath&) const override { return nullptr; }
    void removeOtherVersions(const FilePath&) override { ++removals; }
};

class ConflictResolverTest : public ::testing::Test {
protected:
    PlatformFixture platform;
    const ScratchFolder& folder = platform.vaultFolder;
    const Vault vault{folder.path(), SyncProvider::syncthing};
    FakeFileVersions versions;
    ConflictResolver resolver{versions};
    const FilePath note = folder.write("n/a.md", "mine");

    NoteConflict conflict() { return resolver.conflict(note, "n/a.md").value(); }
};

TEST_F(ConflictResolverTest, DescribesWhatTheProviderHolds) {
    EXPECT_TRUE(resolver.scan(vault).empty());
    versions.add(note, "v1", "Mac", " \n");
    versions.add(note, "v2", {}, "Caf\xE9");
    versions.add(note, "v3", "Phone", {});
    const auto found = resolver.scan(vault);
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].relativePath, "n/a.md");
    EXPECT_EQ(found[0].current, (NoteConflict::Version{.identifier = "current",
                                                       .modified = distantPast(),
                                                       .deviceName = {},
                                                       .text = "mine",
                                                       .byteSize = 4}));
    const auto& others = found[0].others;
    ASSERT_EQ(others.size(), 3u);
    EXPECT_EQ(others[1].text, std::nullopt);
    EXPECT_EQ(others[1].byteSize, 4);
    EXPECT_EQ(others[2].byteSize, 0);
    for (const auto& other : others) EXPECT_TRUE(other.looksEmpty());
    EXPECT_TRUE(found[0].hasEmptyVersionRisk());
    EXPECT_TRUE(others[0].summary("UTC", "en_GB").ends_with(" · Mac · empty"));
    EXPECT_TRUE(found[0].current.summary("UTC", "en_GB").ends_with(" · 4 bytes"));
    EXPECT_TRUE(resolver.scan(Vault(folder.path(), SyncProvider::none)).empty());
}

TEST_F(ConflictResolverTest, KeepsBothUnderNamesOfTheirDevices) {
    folder.write("n/a (conflict from My-Mac).md", "older");
    auto& first = versions.add(note, "v1", "My/Mac", "theirs");
    auto& second = versions.add(note, "v2", {}, "third");
    versions.add(note, "v3", {}, {});
    resolver.resolve(conflict(), {ConflictResolution::Plain::keepBoth}, vault);
    EXPECT_EQ(folder.list("n"), (Names{"a (conflict from My-Mac) 2.md", "a (conflict from My-Mac).md",
                                       "a (conflict from device 2).md", "a.md"}));
    EXPECT_EQ(folder.read("n/a (conflict from My-Mac) 2.md"), "theirs");
    EXPECT_EQ(folder.read("n/a (conflict from device 2).md"), "third");
    EXPECT_TRUE(first.resolved && second.resolved);
    EXPECT_EQ(versions.removals, 1);
}

TEST_F(ConflictResolverTest, TakesTheChosenVersionOrNone) {
    versions.add(note, "v1", "Mac", "theirs");
    const NoteConflict shown = conflict();
    EXPECT_THROW(resolver.resolve(shown, {ConflictResolution::KeepOther{"gone"}}, vault), VaultWriteError);
    EXPECT_EQ(versions.removals, 0);
    resolver.resolve(shown, {ConflictResolution::KeepOther{"v1"}}, vault);
    EXPECT_EQ(folder.read("n/a.md"), "theirs");
    // Resolved elsewhere meanwhile: nothing happens.
    resolver.resolve(shown, {ConflictResolution::Plain::keepBoth}, vault);
    EXPECT_EQ(folder.list("n"), Names{"a.md"});
    EXPECT_EQ(versions.removals, 1);
}

TEST_F(ConflictResolverTest, AFailedCopyLeavesTheVersionsUnresolved) {
    auto& version = versions.add(note, "v1", "Mac", "theirs");
    platform.files.fault = [](std::string_view operation, const FilePath&) -> std::optional<int> {
        if (operation == "writeNew") return ENOSPC;
        return {};
    };
    EXPECT_THROW(resolver.resolve(conflict(), {ConflictResolution::Plain::keepBoth}, vault), SystemError);
    EXPECT_THROW(resolver.keepBothKeepingVersions(note, "n/a.md", vault), SystemError);
    EXPECT_FALSE(version.resolved);
}

TEST_F(ConflictResolverTest, KeepsBothOnlyOnceEveryVersionIsHere) {
    using Result = ConflictResolver::KeepBothResult;
    EXPECT_EQ(resolver.keepBothKeepingVersions(note, "n/a.md", vault), (Result{Result::Plain::settled}));
    versions.add(note, "v1", {}, "one");
    auto& late = versions.add(note, "v2", {}, {});
    EXPECT_EQ(resolver.keepBothKeepingVersions(note, "n/a.md", vault), (Result{Result::Plain::waiting}));
    EXPECT_EQ(folder.list("n"), Names{"a.md"});
    late.bytes = "two";
    EXPECT_EQ(resolver.keepBothKeepingVersions(note, "n/a.md", vault),
              (Result{Result::Kept{{"n/a (conflict from device 1).md", "n/a (conflict from device 2).md"}}}));
    EXPECT_TRUE(late.resolved);
    EXPECT_EQ(platform.coordination.calls, Names{"write a.md"});
    EXPECT_EQ(versions.removals, 0);
}

TEST(ConflictCopyNames, FitAFileSystem) {
    std::string stem, device;
    for (int i = 0; i < 70; ++i) stem += "Ä", device += "ç";
    for (int i = 0; i < 30; ++i) device += "👍";
    const auto isTaken = [](const std::string& path) { return !path.ends_with(") 2.md"); };
    const std::string path = ConflictResolver::keepBothCopyPath("n/" + stem + ".txt", device, 1, isTaken);
    const std::string name = path.substr(2);
    EXPECT_LE(name.size(), 255u);
    EXPECT_TRUE(name.starts_with("ÄÄÄ"));
    EXPECT_TRUE(name.ends_with("ç) 2.md"));
    EXPECT_EQ(ConflictResolver::keepBothCopyPath("a.txt", "Mac", 1, [](const std::string&) { return false; }),
              "a (conflict from Mac).md");
}

}  // namespace
}  // namespace vesk::test
