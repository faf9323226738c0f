// The service that rings while no window is open, over a real bus.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "Program.h"
#include "Support/Fakes.h"
#include "Support/NotificationServer.h"
#include "VeskCore/Reminders/NoteReminder.h"
#include "VeskLinux/LinuxFileSystem.h"
#include "VeskLinux/Notifications/PendingNotifications.h"

namespace vesk::test {
namespace {

class NotifyServiceTest : public ::testing::Test, public Program {
protected:
    ~NotifyServiceTest() override {
        if (service.pid > 0) end(SIGKILL);
    }
    std::vector<std::string> environment() const {
        return {"DBUS_SESSION_BUS_ADDRESS=" + bus->address(), "XDG_STATE_HOME=" + (home / "state").string()};
    }
    void begin() { service = start({"notify-service"}, environment()); }
    /// Its exit status, or 128 and the signal; 0 awaits its own end.
    int end(int signalNumber) {
        ::kill(service.pid, signalNumber);
        int status = 0;
        ::waitpid(service.pid, &status, 0);
        for (const int descriptor : {service.in, service.out, service.err}) ::close(descriptor);
        service = {};
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    /// A reminder that came due while the device was off; a yearly one, many times.
    void missed(const std::string& path, bool repeats = false) {
        store.change([&](NotificationState& all) {
            all.add({.identifier = "remind:" + path,
                     .title = path,
                     .categoryIdentifier = "vesk.reminder",
                     .userInfo = {{"path", path}, {"vault", vault.path().string()}},
                     .trigger = {.year = repeats ? std::optional<int>() : 2020,
                                 .month = 1,
                                 .day = 2,
                                 .hour = 9,
                                 .minute = 0,
                                 .repeats = repeats}},
                    date({.year = 2020}, Calendar{}));
        });
    }
    /// What it says next on standard error; empty when it has ended.
    std::string line() const {
        std::string said;
        char letter = 0;
        while (::read(service.err, &letter, 1) == 1) {
            said += letter;
            if (letter == '\n') break;
        }
        return said;
    }
    std::unique_ptr<PrivateBus> bus = std::make_unique<PrivateBus>();
    LinuxFileSystem files;
    RecordingLog log;
    PendingNotifications store{home / "state/vesk", files, log};
    Child service;
};

class NotifyCommandTest : public NotifyServiceTest {
protected:
    bool isShown(std::size_t count) {
        return eventually([&] { return server.shown().size() >= count && store.read().shown.size() >= 1; });
    }

    NotificationServer server{bus->address()};
};

TEST_F(NotifyCommandTest, RingsSnoozesAndIsDone) {
    const std::string due = "---\nremind: 2020-01-02T09:00\n---\nText\n";
    vault.write("a.md", due);
    missed("a.md");
    begin();
    ASSERT_TRUE(isShown(1));
    EXPECT_EQ(server.shown()[0].title, "a.md");
    EXPECT_EQ(server.shown()[0].actions.size(), 6U);
    server.press(server.shown()[0].number, "vesk.snooze");
    ASSERT_TRUE(eventually([&] { return vault.read("a.md") != due && !store.read().waiting.empty(); }));
    const auto until = NoteReminder::reminder(vault.read("a.md"), Calendar::system());
    ASSERT_TRUE(until);
    EXPECT_GT(*until, SystemClock().now() + std::chrono::minutes(50));
    ASSERT_TRUE(eventually([&] { return store.read().responses.empty(); }));
    EXPECT_EQ(store.read().waiting.front().request.identifier, "remind:a.md");

    vault.write("b.md", "---\nremind: 2020-01-02T09:00\npriority: high\n---\nText\n");
    missed("b.md");
    ASSERT_TRUE(isShown(2));
    server.press(server.shown()[1].number, "vesk.done");
    EXPECT_TRUE(eventually([&] { return vault.read("b.md") == "---\npriority: high\n---\nText\n"; }));
    EXPECT_EQ(end(SIGTERM), 0);
}

TEST_F(NotifyCommandTest, RingsOnceThoughItIsKilledAndStartedAgain) {
    vault.write("a.md", "---\nremind: 2020-01-02T09:00\n---\nText\n");
    missed("a.md");
    begin();
    ASSERT_TRUE(isShown(1));
    ASSERT_TRUE(eventually([&] { return store.read().waiting.empty(); }));
    end(SIGKILL);
    begin();
    // It works its list off in the order of dates, so that a second ring would come before this one's.
    missed("b.md");
    ASSERT_TRUE(isShown(2));
    EXPECT_EQ(server.shown()[1].title, "b.md");
    // What the first run showed is answered to the second.
    server.press(server.shown()[0].number, "vesk.done");
    EXPECT_TRUE(eventually([&] { return vault.read("a.md") == "Text\n"; }));
    EXPECT_EQ(server.shown().size(), 2U);
    EXPECT_EQ(end(SIGTERM), 0);
}

TEST_F(NotifyCommandTest, CatchesUpOnceWithAYearlyReminderThatWasMissedForYears) {
    missed("a.md", true);
    begin();
    ASSERT_TRUE(isShown(1));
    missed("b.md");
    ASSERT_TRUE(isShown(2));
    EXPECT_EQ(server.shown()[1].title, "b.md");
    EXPECT_EQ(end(SIGTERM), 0);
    EXPECT_EQ(store.read().waiting.size(), 1U);
}

TEST_F(NotifyServiceTest, SaysThatThereIsNoSessionBus) {
    const auto ran = runPlain({"notify-service"}, "", {"XDG_STATE_HOME=" + (home / "state").string()});
    EXPECT_EQ(ran.status, 1);
    EXPECT_EQ(ran.err, "vesk: There is no session bus here, so reminders can't ring.\n");
}

TEST_F(NotifyServiceTest, KeepsWhatIsDueUntilAServerComesAndEndsWithTheBus) {
    missed("a.md");
    begin();
    EXPECT_EQ(line(), "No notification server answers. What is due waits until one does.\n");
    EXPECT_EQ(store.read().waiting.size(), 1U);
    {
        NotificationServer server(bus->address());
        ASSERT_TRUE(eventually([&] { return server.shown().size() == 1 && store.read().waiting.empty(); }));
    }
    bus.reset();
    EXPECT_EQ(line(), "vesk: The session bus has gone. Reminders ring again in the next session.\n");
    EXPECT_EQ(end(0), 1);
}

TEST_F(NotifyCommandTest, RunsOnce) {
    missed("a.md");
    begin();
    ASSERT_TRUE(isShown(1));
    const auto second = runPlain({"notify-service"}, "", environment());
    EXPECT_EQ(second.status, 0);
    EXPECT_EQ(second.err, "The notification service runs already.\n");
    EXPECT_EQ(end(SIGTERM), 0);
}

TEST_F(NotifyCommandTest, KeepsAnAnswerWhileTheVaultIsAway) {
    missed("a.md");
    std::filesystem::rename(vault.path(), vault.path().string() + ".away");
    begin();
    ASSERT_TRUE(isShown(1));
    server.press(server.shown()[0].number, "vesk.done");
    ASSERT_TRUE(eventually([&] { return !store.read().responses.empty(); }));
    EXPECT_EQ(end(SIGTERM), 0);
    EXPECT_EQ(store.read().responses.size(), 1U);
    std::filesystem::rename(vault.path().string() + ".away", vault.path());
    vault.write("a.md", "---\nremind: 2020-01-02T09:00\n---\nText\n");
    begin();
    EXPECT_TRUE(eventually([&] { return vault.read("a.md") == "Text\n"; }));
    EXPECT_EQ(end(SIGTERM), 0);
}

/// With a notification server of the distribution, on a display of its own.
class RealServerTest : public NotifyServiceTest {
protected:
    void SetUp() override {
        if (std::system("command -v dunst Xvfb gdbus >/dev/null 2>&1") != 0)
            GTEST_SKIP() << "dunst, Xvfb or gdbus is not installed";
        int ends[2];
        ASSERT_EQ(::pipe(ends), 0);
        display = launch({"Xvfb", "-displayfd", std::to_string(ends[1]), "-nolisten", "tcp"}, {});
        ::close(ends[1]);
        std::string number;
        char letter = 0;
        while (::read(ends[0], &letter, 1) == 1 && letter != '\n') number += letter;
        ::close(ends[0]);
        ASSERT_FALSE(number.empty());
        // Its menu is a program that is given the actions, one a line, and prints the chosen one.
        const auto menu = home.write("menu", "#!/bin/sh\ngrep -m1 -f " + (home / "choice").string() + "\n");
        std::filesystem::permissions(menu, std::filesystem::perms::owner_all);
        const auto settings = home.write("dunstrc", "[global]\ndmenu = " + menu.string() + "\n");
        dunst = launch({"dunst", "-conf", settings.string()}, {"DISPLAY=:" + number});
        ASSERT_TRUE(eventually([] {
            return std::system(
                       "gdbus wait --session --timeout 1 org.freedesktop.Notifications "
                       ">/dev/null 2>&1") == 0;
        }));
    }
    void TearDown() override {
        for (const pid_t child : {dunst, display}) {
            if (child <= 0) continue;
            ::kill(child, SIGTERM);
            ::waitpid(child, nullptr, 0);
        }
    }
    static pid_t launch(std::vector<std::string> words, const std::vector<std::string>& environment) {
        std::vector<char*> arguments;
        for (auto& word : words) arguments.push_back(word.data());
        arguments.push_back(nullptr);
        const pid_t child = ::fork();
        if (child != 0) return child;
        for (const auto& variable : environment) ::putenv(::strdup(variable.c_str()));
        if (!std::freopen("/dev/null", "w", stderr)) ::_exit(127);
        ::execvp(arguments[0], arguments.data());
        ::_exit(127);
    }
    /// Chooses an action of the notification on the screen by its words.
    void choose(const std::string& words) const {
        home.write("choice", words + "\n");
        EXPECT_EQ(std::system("gdbus call --session --dest org.freedesktop.Notifications --object-path "
                              "/org/freedesktop/Notifications --method "
                              "org.dunstproject.cmd0.ContextMenuCall >/dev/null 2>&1"),
                  0);
    }

    pid_t display = -1, dunst = -1;
};

TEST_F(RealServerTest, RingsSnoozesAndIsDone) {
    const std::string due = "---\nremind: 2020-01-02T09:00\n---\nText\n";
    vault.write("a.md", due);
    vault.write("b.md", due);
    missed("a.md");
    begin();
    ASSERT_TRUE(eventually([&] { return store.read().shown.size() == 1; }));
    choose("Snooze 1 hour");
    ASSERT_TRUE(eventually([&] { return vault.read("a.md") != due && store.read().shown.empty(); }));
    missed("b.md");
    ASSERT_TRUE(eventually([&] { return store.read().shown.size() == 1; }));
    choose("Done");
    EXPECT_TRUE(eventually([&] { return vault.read("b.md") == "Text\n"; }));
    EXPECT_EQ(end(SIGTERM), 0);
}

}  // namespace
}  // namespace vesk::test
