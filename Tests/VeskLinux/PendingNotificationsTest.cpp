#include <gtest/gtest.h>

#include <thread>

#include "Support/Fakes.h"
#include "Support/Scratch.h"
#include "VeskLinux/LinuxFileSystem.h"
#include "VeskLinux/Notifications/CalendarTrigger.h"
#include "VeskLinux/Notifications/PendingNotifications.h"

namespace vesk::test {
namespace {

const Calendar utc{};

TimePoint at(int year, int month, int day, int hour, int minute, const Calendar& calendar = utc,
             int second = 0) {
    return date({.year = year, .month = month, .day = day, .hour = hour, .minute = minute, .second = second},
                calendar);
}

NotificationRequest request(std::string identifier, NotificationTrigger trigger, std::string title = "T") {
    return {.identifier = std::move(identifier), .title = std::move(title), .trigger = trigger};
}

TEST(CalendarTriggerTest, FindsTheNextDateByItsFields) {
    const Calendar oslo{.timeZone = "Europe/Oslo", .firstWeekday = 2};
    const struct {
        const char* name;
        NotificationTrigger trigger;
        TimePoint after;
        Calendar calendar;
        std::optional<TimePoint> expected;
    } rows[] = {
        {"a date",
         {.year = 2030, .month = 1, .day = 2, .hour = 9, .minute = 30},
         at(2029, 5, 5, 1, 1),
         utc,
         at(2030, 1, 2, 9, 30)},
        {"a date that is over",
         {.year = 2030, .month = 1, .day = 2, .hour = 9, .minute = 30},
         at(2030, 1, 2, 9, 30),
         utc,
         std::nullopt},
        {"daily, later today",
         {.hour = 9, .minute = 0},
         at(2030, 1, 2, 8, 59, utc, 59),
         utc,
         at(2030, 1, 2, 9, 0)},
        {"daily, tomorrow", {.hour = 9, .minute = 0}, at(2030, 1, 2, 9, 0), utc, at(2030, 1, 3, 9, 0)},
        {"weekly", {.hour = 9, .minute = 0, .weekday = 2}, at(2030, 1, 2, 9, 0), utc, at(2030, 1, 7, 9, 0)},
        {"the 31st skips short months",
         {.day = 31, .hour = 9, .minute = 0},
         at(2030, 1, 31, 9, 0),
         utc,
         at(2030, 3, 31, 9, 0)},
        {"29 February on a Sunday",
         {.month = 2, .day = 29, .hour = 9, .minute = 0, .weekday = 1},
         at(2030, 1, 1, 0, 0),
         utc,
         at(2032, 2, 29, 9, 0)},
        {"never", {.month = 2, .day = 30, .hour = 9, .minute = 0}, at(2030, 1, 1, 0, 0), utc, std::nullopt},
        {"every hour", {.minute = 15}, at(2030, 1, 2, 9, 15), utc, at(2030, 1, 2, 10, 15)},
        {"a time that the clock change takes away",
         {.hour = 2, .minute = 30},
         at(2030, 3, 30, 12, 0, oslo),
         oslo,
         at(2030, 3, 31, 3, 0, oslo)},
        {"a time of another place",
         {.year = 2030, .month = 7, .day = 1, .hour = 9, .minute = 0},
         at(2030, 1, 1, 0, 0),
         oslo,
         at(2030, 7, 1, 7, 0)},
        {"no such hour", {.hour = 25}, at(2030, 1, 1, 0, 0), utc, std::nullopt},
    };
    for (const auto& row : rows)
        EXPECT_EQ(nextDate(row.trigger, row.after, row.calendar), row.expected) << row.name;
}

TEST(NotificationStateTest, RingsOnceWhateverWasMissed) {
    NotificationState state;
    state.add(request("once", {.year = 2030, .month = 1, .day = 2, .hour = 9, .minute = 0}),
              at(2030, 1, 1, 12, 0));
    state.add(request("daily", {.hour = 8, .minute = 0, .repeats = true}), at(2030, 1, 1, 12, 0));
    EXPECT_TRUE(state.due(at(2030, 1, 2, 7, 59), utc).empty());
    EXPECT_EQ(state.nextRing(at(2030, 1, 1, 12, 0), utc), at(2030, 1, 2, 8, 0));

    // The device slept for three days.
    const auto woken = at(2030, 1, 5, 10, 0);
    const auto due = state.due(woken, utc);
    ASSERT_EQ(due.size(), 2U);
    EXPECT_EQ(due[0].request.identifier, "daily");
    EXPECT_EQ(due[1].request.identifier, "once");
    // What is due counts as rung for who asks what is to come, so that nobody takes it back as over.
    ASSERT_EQ(state.toCome(woken, utc).size(), 1U);
    EXPECT_EQ(state.toCome(woken, utc)[0].identifier, "daily");
    for (const auto& one : due)
        state.rang(one, {.identifier = one.request.identifier, .number = 7, .server = "s"}, woken);
    EXPECT_TRUE(state.due(woken, utc).empty());
    ASSERT_EQ(state.waiting.size(), 1U);
    EXPECT_EQ(state.nextRing(woken, utc), at(2030, 1, 6, 8, 0));
}

TEST(NotificationStateTest, KeepsARingThatIsDueWhenOnlyItsWordsChange) {
    NotificationState state;
    const NotificationTrigger daily{.hour = 8, .minute = 0, .repeats = true};
    state.add(request("daily", daily), at(2030, 1, 1, 12, 0));
    state.add(request("daily", daily, "New"), at(2030, 1, 2, 8, 5));
    ASSERT_EQ(state.due(at(2030, 1, 2, 8, 5), utc).size(), 1U);
    EXPECT_EQ(state.waiting[0].request.title, "New");
    // Another time is another ring.
    state.add(request("daily", {.hour = 7, .minute = 0, .repeats = true}), at(2030, 1, 2, 8, 5));
    EXPECT_TRUE(state.due(at(2030, 1, 2, 8, 5), utc).empty());
    // A ring that was on its way when the request changed changes nothing.
    const WaitingNotification old{request("daily", daily), at(2030, 1, 1, 12, 0)};
    const auto before = state.waiting;
    state.rang(old, {.identifier = "daily", .number = 1, .server = "s"}, at(2030, 1, 2, 8, 5));
    EXPECT_EQ(state.waiting, before);
}

TEST(NotificationStateTest, FollowsAClockThatIsSetBack) {
    NotificationState state;
    state.add(request("daily", {.hour = 8, .minute = 0, .repeats = true}), at(2040, 1, 1, 12, 0));
    EXPECT_FALSE(state.followsClockBack(at(2040, 1, 1, 11, 30)));
    EXPECT_TRUE(state.followsClockBack(at(2030, 1, 1, 12, 0)));
    EXPECT_EQ(state.nextRing(at(2030, 1, 1, 12, 0), utc), at(2030, 1, 2, 8, 0));
}

TEST(NotificationStateTest, AnswersOnceAndOnlyForTheServerThatShowsIt) {
    NotificationState state;
    state.shown.push_back(
        {.identifier = "remind:a.md", .number = 4, .server = "one", .userInfo = {{"path", "a.md"}}});
    const auto now = at(2030, 1, 1, 12, 0);
    EXPECT_FALSE(state.answer(4, "another", "vesk.done", now));
    const NotificationResponse expected{.requestIdentifier = "remind:a.md",
                                        .action = "vesk.done",
                                        .userInfo = {{"path", "a.md"}},
                                        .tappedAt = now};
    EXPECT_EQ(state.answer(4, "one", "vesk.done", now), expected);
    EXPECT_FALSE(state.answer(4, "one", "vesk.done", now));
    state.shown.push_back({.identifier = "remind:b.md", .number = 5, .server = "one"});
    const auto tap = state.answer(5, "one", "default", now);
    ASSERT_TRUE(tap);
    EXPECT_EQ(tap->action, std::nullopt);
}

class PendingNotificationsTest : public ::testing::Test {
protected:
    ScratchFolder folder;
    LinuxFileSystem files;
    RecordingLog log;
    FilePath state = folder / "state/vesk";
};

TEST_F(PendingNotificationsTest, KeepsEverythingForOtherProcesses) {
    NotificationState written;
    written.waiting.push_back({{.identifier = "remind:ä \"b\".md#2",
                                .title = "Ä\n“b”",
                                .subtitle = "Vesk",
                                .body = "Text",
                                .threadIdentifier = "vesk.reminders",
                                .categoryIdentifier = "vesk.reminder",
                                .userInfo = {{"path", "ä.md"}},
                                .trigger = {.hour = 0, .minute = 59, .weekday = 7, .repeats = true}},
                               at(2030, 1, 1, 12, 0)});
    written.shown.push_back(
        {.identifier = "x", .number = 0xFFFFFFFF, .server = "s", .userInfo = {{"a", "b"}}});
    written.categories.push_back({.identifier = "c", .actions = {{"one", "One"}, {"two", "Two"}}});
    written.responses.push_back({.requestIdentifier = "x",
                                 .action = "one",
                                 .userInfo = {{"path", "p"}},
                                 .tappedAt = at(2030, 1, 1, 12, 0)});
    written.responses.push_back({.requestIdentifier = "y", .action = {}, .userInfo = {}, .tappedAt = {}});
    PendingNotifications(state, files, log).change([&](NotificationState& all) { all = written; });
    EXPECT_EQ(PendingNotifications(state, files, log).read(), written);
}

TEST_F(PendingNotificationsTest, LosesNoChangeOfSeveralWriters) {
    std::vector<std::thread> writers;
    for (int writer = 0; writer < 4; ++writer) {
        writers.emplace_back([&, writer] {
            PendingNotifications store(state, files, log);
            for (int index = 0; index < 10; ++index)
                store.change([&](NotificationState& all) {
                    all.add(request(std::to_string(writer) + ":" + std::to_string(index), {.hour = 1}),
                            at(2030, 1, 1, 0, 0));
                });
        });
    }
    for (auto& writer : writers) writer.join();
    EXPECT_EQ(PendingNotifications(state, files, log).read().waiting.size(), 40U);
}

TEST_F(PendingNotificationsTest, PutsADamagedFileAsideAndGoesOn) {
    PendingNotifications store(state, files, log);
    const FilePath file = state / "notifications.json";
    files.writeNew(file, "{\"waiting\": [");
    EXPECT_EQ(store.read(), NotificationState{});
    store.change([](NotificationState& all) { all.add(request("a", {.hour = 1}), at(2030, 1, 1, 0, 0)); });
    EXPECT_EQ(folder.read("state/vesk/notifications.json.damaged"), "{\"waiting\": [");
    EXPECT_EQ(store.read().waiting.size(), 1U);
    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_NE(log.lines()[0].find("put aside as"), std::string::npos);
}

TEST_F(PendingNotificationsTest, LeavesOutEntriesThatMakeNoSense) {
    folder.write("state/vesk/notifications.json", R"({"waiting": [7, {"identifier": "no trigger", "armed": 1},
        {"identifier": "hour", "armed": 1, "trigger": {"hour": 99}},
        {"identifier": "when", "armed": 1e300, "trigger": {"hour": 9}},
        {"identifier": "good", "armed": 1, "trigger": {"hour": 9, "minute": "x"}, "userInfo": [1]}],
        "shown": [{"identifier": "a", "number": -1}, {"identifier": "b", "number": 3}],
        "categories": {"a": 1}, "responses": [null, {"identifier": "r", "tappedAt": "soon"}]})");
    const auto read = PendingNotifications(state, files, log).read();
    ASSERT_EQ(read.waiting.size(), 1U);
    EXPECT_EQ(read.waiting[0].request.identifier, "good");
    ASSERT_EQ(read.shown.size(), 1U);
    EXPECT_EQ(read.shown[0].number, 3U);
    ASSERT_EQ(read.responses.size(), 1U);
    EXPECT_EQ(read.responses[0].tappedAt, std::nullopt);
}

}  // namespace
}  // namespace vesk::test
