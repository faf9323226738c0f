#include <csignal>
#include <thread>

#include "Processes.h"
#include "Support/Fakes.h"
#include "VeskLinux/FileUserDefaults.h"
#include "VeskLinux/LinuxFileSystem.h"

namespace vesk::test {
namespace {

namespace fs = std::filesystem;

class FileUserDefaultsTest : public ::testing::Test {
protected:
    FileUserDefaults opened() { return FileUserDefaults(folder / "vesk/defaults.json", files, log); }

    ScratchFolder folder;
    LinuxFileSystem real;
    FaultyFileSystem files{real, folder.path()};
    RecordingLog log;
};

TEST_F(FileUserDefaultsTest, KeepsValuesOfEveryTypeOverARestart) {
    const Json list = Json::array({1, "two"});
    {
        auto defaults = opened();
        defaults.set("vesk.text", "“ä”");
        defaults.set("vesk.number", 2.5);
        defaults.set("vesk.flag", false);
        defaults.set("vesk.list", list);
        defaults.set("vesk.gone", 1);
        defaults.remove("vesk.gone");
        defaults.remove("vesk.never");
    }
    const auto defaults = opened();
    EXPECT_EQ(defaults.string("vesk.text"), "“ä”");
    EXPECT_EQ(defaults.number("vesk.number"), 2.5);
    EXPECT_EQ(defaults.boolean("vesk.flag"), false);
    EXPECT_EQ(defaults.value("vesk.list"), list);
    EXPECT_FALSE(defaults.value("vesk.gone"));
    EXPECT_FALSE(defaults.string("vesk.number"));
    EXPECT_TRUE(log.lines().empty());
    EXPECT_EQ(folder.list("vesk"), (std::vector<std::string>{"defaults.json", "defaults.json.lock"}));
}

TEST_F(FileUserDefaultsTest, LeavesKeysThatAnotherProgramOrVersionKeeps) {
    folder.write("vesk/defaults.json", R"({"later.version": {"deep": [1, null]}, "vesk.a": 1})");
    auto defaults = opened();
    defaults.set("vesk.b", 2);
    defaults.remove("vesk.a");
    EXPECT_EQ(Json::parse(folder.read("vesk/defaults.json")),
              Json::parse(R"({"later.version": {"deep": [1, null]}, "vesk.b": 2})"));
}

TEST_F(FileUserDefaultsTest, PutsADamagedFileAsideAndSaysSo) {
    const char* damages[] = {"{\"vesk.a\": ", "[1, 2]", ""};
    for (const char* damage : damages) {
        folder.write("vesk/defaults.json", damage);
        auto defaults = opened();
        EXPECT_FALSE(defaults.value("vesk.a"));
        EXPECT_EQ(folder.read("vesk/defaults.json"), damage) << "a look changes nothing";
        defaults.set("vesk.a", 1);
        EXPECT_EQ(defaults.number("vesk.a"), 1.0);
    }
    EXPECT_EQ(folder.read("vesk/defaults.json.damaged"), damages[0]);
    EXPECT_EQ(folder.read("vesk/defaults.json.damaged-2"), damages[1]);
    EXPECT_EQ(folder.read("vesk/defaults.json.damaged-3"), damages[2]);
    EXPECT_EQ(log.lines().size(), 6U);
}

TEST_F(FileUserDefaultsTest, HoldsWhatItCantStoreAndStoresItWithTheNext) {
    folder.write("vesk/defaults.json", R"({"vesk.a": 1, "vesk.b": 1})");
    auto defaults = opened();
    for (const char* operation : {"read", "writeNew", "replace"}) {
        SCOPED_TRACE(operation);
        files.fault = [&](std::string_view asked, const FilePath&) {
            return asked == operation ? std::optional(EIO) : std::nullopt;
        };
        defaults.set("vesk.a", 2);
        defaults.remove("vesk.b");
        EXPECT_EQ(defaults.number("vesk.a"), 2.0);
        EXPECT_FALSE(defaults.value("vesk.b"));
        EXPECT_EQ(folder.read("vesk/defaults.json"), R"({"vesk.a": 1, "vesk.b": 1})");
    }
    EXPECT_EQ(log.lines().size(), 6U);
    files.fault = nullptr;
    defaults.set("vesk.c", 3);
    EXPECT_EQ(Json::parse(folder.read("vesk/defaults.json")), Json::parse(R"({"vesk.a": 2, "vesk.c": 3})"));
}

TEST_F(FileUserDefaultsTest, KeepsALinkToSettingsThatLieElsewhere) {
    folder.write("dotfiles/vesk.json", "{}");
    fs::create_directory(folder / "vesk");
    fs::create_symlink("../dotfiles/vesk.json", folder / "vesk/defaults.json");
    opened().set("vesk.a", 1);
    EXPECT_TRUE(fs::is_symlink(folder / "vesk/defaults.json"));
    EXPECT_EQ(Json::parse(folder.read("dotfiles/vesk.json")), Json::parse(R"({"vesk.a": 1})"));
}

TEST_F(FileUserDefaultsTest, LosesNoneOfTheChangesOfTwoProcessesAndTheirThreads) {
    const auto change = [&](const std::string& who) {
        auto defaults = opened();
        const auto some = [&](const std::string& prefix) {
            for (int i = 0; i < 15; ++i) defaults.set(prefix + std::to_string(i), i);
        };
        std::thread other(some, who + ".other.");
        some(who + ".");
        other.join();
    };
    const pid_t first = startChild([&] { change("first"); }), second = startChild([&] { change("second"); });
    expectSuccess(first);
    expectSuccess(second);
    EXPECT_EQ(Json::parse(folder.read("vesk/defaults.json")).asObject()->size(), 60U);
}

TEST_F(FileUserDefaultsTest, HasTheOldOrTheNewSettingsWheneverAWriterIsKilled) {
    opened().set("vesk.count", 0);
    for (int round = 1; round <= 8; ++round) {
        int progress[2];
        ASSERT_EQ(::pipe(progress), 0);
        const pid_t child = startChild([&] {
            auto defaults = opened();
            for (int i = 1;; ++i) {
                defaults.set("vesk.padding", std::string(static_cast<std::size_t>(i % 7) * 20'000, 'p'));
                defaults.set("vesk.count", i);
                if (::write(progress[1], "x", 1) != 1) return;
            }
        });
        ::close(progress[1]);
        char byte = 0;
        for (int i = 0; i < round; ++i) ASSERT_EQ(::read(progress[0], &byte, 1), 1);
        ASSERT_EQ(::kill(child, SIGKILL), 0);
        ASSERT_EQ(::waitpid(child, nullptr, 0), child);
        ::close(progress[0]);

        auto defaults = opened();
        EXPECT_GE(defaults.number("vesk.count"), static_cast<double>(round));
        defaults.set("vesk.count", 0);
        EXPECT_EQ(opened().number("vesk.count"), 0.0);
    }
    EXPECT_TRUE(log.lines().empty());
    EXPECT_EQ(folder.list("vesk"), (std::vector<std::string>{"defaults.json", "defaults.json.lock"}));
}

}  // namespace
}  // namespace vesk::test
