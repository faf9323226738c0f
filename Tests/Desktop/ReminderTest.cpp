#include <gtest/gtest.h>

#include <iostream>

#include "DesktopWorld.h"
#include "Support/Fakes.h"
#include "Support/NotificationServer.h"
#include "VeskCore/Reminders/NoteReminder.h"
#include "VeskLinux/LinuxFileSystem.h"
#include "VeskLinux/Notifications/PendingNotifications.h"

namespace vesk::test {
namespace {

constexpr const char* text = "Note text";

/// Reminders as a person sets them and answers them.
class ReminderTest : public ::testing::Test, public DesktopWorld {
protected:
    void TearDown() override {
        if (HasFailure()) std::cerr << output();
    }
    /// A reminder that came due while the window was closed.
    void missed(const std::string& path) {
        store.change([&](NotificationState& all) {
            all.add({.identifier = "remind:" + path,
                     .title = path,
                     .categoryIdentifier = "vesk.reminder",
                     .userInfo = {{"path", path}, {"vault", vault.path().string()}},
                     .trigger = {.year = 2020, .month = 1, .day = 2, .hour = 9, .minute = 0}},
                    date({.year = 2020}, Calendar{}));
        });
    }

    LinuxFileSystem files;
    RecordingLog log;
    PendingNotifications store{home / ".local/state/vesk", files, log};
};

TEST_F(ReminderTest, RingsIsSnoozedAndIsDone) {
    NotificationServer server(sessionBus());
    const std::string due = "---\nremind: 2020-01-02T09:00\n---\nText\n";
    vault.write("Plan.md", due);
    vault.write("Rent.md", due);
    missed("Plan.md");
    start("Plan.md");
    ASSERT_TRUE(until([&] { return server.shown().size() == 1 && !store.read().shown.empty(); }));
    server.press(server.shown()[0].number, "vesk.snooze");
    ASSERT_TRUE(until([&] { return vault.read("Plan.md") != due; }));
    const auto later = NoteReminder::reminder(vault.read("Plan.md"), Calendar::system());
    ASSERT_TRUE(later);
    EXPECT_GT(*later, SystemClock().now() + std::chrono::minutes(50));
    // The open note shows it, and its next ring waits.
    EXPECT_TRUE(until([&] { return textOf(text) == vault.read("Plan.md"); })) << textOf(text);
    EXPECT_TRUE(until([&] {
        const auto waiting = store.read().waiting;
        return waiting.size() == 1 && waiting[0].request.identifier == "remind:Plan.md";
    }));

    missed("Rent.md");
    ASSERT_TRUE(until([&] { return server.shown().size() == 2 && !store.read().shown.empty(); }));
    server.press(server.shown()[1].number, "vesk.done");
    EXPECT_TRUE(fileBecomes("Rent.md", "Text\n")) << vault.read("Rent.md");
    missed("Rent.md");
    ASSERT_TRUE(until([&] { return server.shown().size() == 3 && !store.read().shown.empty(); }));
    server.press(server.shown()[2].number, "default");
    EXPECT_TRUE(until([&] { return textOf(text) == "Text\n"; })) << textOf(text);
    EXPECT_EQ(end(), 0);
}

TEST_F(ReminderTest, IsSetAndTakenAwayByKeysAlone) {
    vault.write("Plan.md", "Text\n");
    start("Plan.md");
    key("ctrl+shift+b");
    ASSERT_TRUE(until([&] { return shows("When to remind"); }));
    type("3 march 2099 at 3pm");
    ASSERT_TRUE(until([&] { return shows("3 Mar 99 at 3:00 PM") || shows("Mar 3, 99 at 3:00 PM"); }));
    key("Return");
    EXPECT_TRUE(fileBecomes("Plan.md", "---\nremind: 2099-03-03T15:00\n---\nText\n"))
        << vault.read("Plan.md");
    key("ctrl+shift+b");
    ASSERT_TRUE(until([&] { return shows("Remove reminder"); }));
    type("off");
    key("Return");
    EXPECT_TRUE(fileBecomes("Plan.md", "Text\n")) << vault.read("Plan.md");
}

}  // namespace
}  // namespace vesk::test
