// Over a real bus, with a notification server that records what it is given.
#include <gtest/gtest.h>

#include <atomic>
#include <mutex>

#include "Support/Fakes.h"
#include "Support/NotificationServer.h"
#include "Support/Scratch.h"
#include "VeskLinux/LinuxFileSystem.h"
#include "VeskLinux/Notifications/DesktopNotifications.h"

namespace vesk::test {
namespace {

using namespace std::chrono_literals;
using Role = DesktopNotifications::Role;

/// Stands until it is moved.
class HandClock final : public Clock {
public:
    TimePoint now() const override { return TimePoint(Duration(time_.load())); }
    Duration monotonic() const override { return Duration(time_.load()); }
    bool sleep(Duration, std::stop_token) override { return true; }
    void advance(Duration by) { time_ += by.count(); }

private:
    std::atomic<Duration::rep> time_ =
        date({.year = 2030, .month = 1, .day = 2, .hour = 8, .minute = 0}, Calendar{})
            .time_since_epoch()
            .count();
};

class DesktopNotificationsTest : public ::testing::Test {
protected:
    std::unique_ptr<DesktopNotifications> make(Role role) {
        auto made = std::make_unique<DesktopNotifications>(
            DesktopNotifications::Setting{
                .role = role, .folder = folder / "state", .calendar = [] { return Calendar{}; }},
            files, clock, log);
        made->setCategories({{.identifier = "vesk.reminder",
                              .actions = {{"vesk.snooze", "Snooze 1 hour"}, {"vesk.done", "Done"}}}});
        return made;
    }
    void listen(DesktopNotifications& to) {
        to.setOnResponse([this](const NotificationResponse& response) {
            const std::lock_guard guard(lock);
            responses.push_back(response);
        });
    }
    std::vector<NotificationResponse> heard() {
        const std::lock_guard guard(lock);
        return responses;
    }
    static NotificationRequest nineOClock(bool repeats = false) {
        NotificationRequest request{.identifier = "remind:a.md",
                                    .title = "Rent & <b>more</b>",
                                    .subtitle = "Vesk",
                                    .body = "Pay <now> & here",
                                    .categoryIdentifier = "vesk.reminder",
                                    .userInfo = {{"path", "a.md"}},
                                    .trigger = {.hour = 9, .minute = 0, .repeats = repeats}};
        if (!repeats) {
            request.trigger.year = 2030;
            request.trigger.month = 1;
            request.trigger.day = 2;
        }
        return request;
    }
    /// A look that was asked for is over when what is asked for after it has happened.
    void settle(const std::vector<DesktopNotifications*>& all, NotificationServer& server) {
        const auto before = server.shown().size();
        auto marker = nineOClock();
        marker.identifier = "marker:" + std::to_string(markers++);
        marker.trigger = {.repeats = false};
        all.front()->add(marker);
        clock.advance(1min);
        for (auto* one : all) one->lookAgain();
        ASSERT_TRUE(eventually([&] {
            const auto shown = server.shown();
            return shown.size() > before && waiting() == expectedWaiting;
        }));
    }
    std::size_t waiting() { return PendingNotifications(folder / "state", files, log).read().waiting.size(); }

    PrivateBus bus;
    ScratchFolder folder;
    LinuxFileSystem files;
    RecordingLog log;
    HandClock clock;
    std::mutex lock;
    std::vector<NotificationResponse> responses;
    std::size_t expectedWaiting = 0;
    int markers = 0;
};

TEST_F(DesktopNotificationsTest, RingsWhenItsDateComesAndCarriesTheAnswerBack) {
    NotificationServer server(bus.address());
    const auto window = make(Role::window);
    listen(*window);
    window->add(nineOClock());
    EXPECT_EQ(window->pendingRequests(), std::vector{nineOClock()});
    EXPECT_EQ(window->permission(), NotificationPermission::authorized);
    clock.advance(60min);
    window->lookAgain();
    ASSERT_TRUE(eventually([&] { return server.shown().size() == 1 && waiting() == 0; }));
    const auto call = server.shown()[0];
    EXPECT_EQ(call.application, "Vesk");
    EXPECT_EQ(call.title, "Rent & <b>more</b>");
    EXPECT_EQ(call.body, "Pay &lt;now&gt; &amp; here");
    EXPECT_EQ(call.actions, (std::vector<std::string>{"default", "Open", "vesk.snooze", "Snooze 1 hour",
                                                      "vesk.done", "Done"}));
    EXPECT_EQ(call.hints.at("desktop-entry"), "'com.tarnlight.vesk'");
    EXPECT_EQ(call.hints.at("category"), "'x-vesk.reminder'");
    EXPECT_EQ(call.hints.at("urgency"), "0x01");
    EXPECT_TRUE(window->pendingRequests().empty());

    server.press(call.number, "vesk.done");
    ASSERT_TRUE(eventually([&] { return heard().size() == 1; }));
    EXPECT_EQ(heard()[0].requestIdentifier, "remind:a.md");
    EXPECT_EQ(heard()[0].action, "vesk.done");
    EXPECT_EQ(heard()[0].userInfo, (std::map<std::string, std::string>{{"path", "a.md"}}));
    EXPECT_EQ(heard()[0].tappedAt, clock.now());
    settle({window.get()}, server);
    EXPECT_EQ(server.shown().size(), 2U);
}

TEST_F(DesktopNotificationsTest, LetsGoOfWhatNobodyCouldShowInTime) {
    const auto window = make(Role::window);
    window->add(nineOClock());
    EXPECT_TRUE(window->overdueIdentifiers().empty());
    clock.advance(60min);
    EXPECT_TRUE(window->pendingRequests().empty());
    EXPECT_EQ(window->overdueIdentifiers(), std::vector<std::string>{"remind:a.md"});
    window->removePending({"remind:a.md"});
    NotificationServer server(bus.address());
    settle({window.get()}, server);
    EXPECT_EQ(server.shown().size(), 1U) << "no more than the marker";
}

TEST_F(DesktopNotificationsTest, SaysWordsAsTheyStandWhereNoMarkupIsRead) {
    NotificationServer server(bus.address(), {"body"});
    const auto window = make(Role::window);
    window->add(nineOClock());
    clock.advance(60min);
    window->lookAgain();
    ASSERT_TRUE(eventually([&] { return server.shown().size() == 1; }));
    EXPECT_EQ(server.shown()[0].body, "Pay <now> & here");
    EXPECT_TRUE(server.shown()[0].actions.empty());
}

TEST_F(DesktopNotificationsTest, RingsOnceThoughWindowAndServiceBothWait) {
    NotificationServer server(bus.address());
    expectedWaiting = 1;
    auto service = make(Role::service);
    const auto window = make(Role::window);
    listen(*window);
    window->add(nineOClock(true));
    clock.advance(3 * 24h);
    service->lookAgain();
    window->lookAgain();
    ASSERT_TRUE(eventually([&] { return server.shown().size() == 1; }));
    // The service ends, as when it is killed, and another begins: what rang is remembered.
    service.reset();
    service = make(Role::service);
    settle({window.get(), service.get()}, server);
    EXPECT_EQ(server.shown().size(), 2U);
    const auto number = server.shown()[0].number;
    server.press(number, "default");
    ASSERT_TRUE(eventually([&] { return heard().size() == 1; }));
    EXPECT_EQ(heard()[0].action, std::nullopt);
    // The next day it takes the place of nothing: the old one was answered.
    clock.advance(24h);
    window->lookAgain();
    service->lookAgain();
    ASSERT_TRUE(eventually([&] { return server.shown().size() == 3; }));
    EXPECT_EQ(server.shown()[2].replaces, 0U);
    // One that is still on the screen is replaced.
    clock.advance(24h);
    window->lookAgain();
    service->lookAgain();
    ASSERT_TRUE(eventually([&] { return server.shown().size() == 4; }));
    EXPECT_EQ(server.shown()[3].replaces, server.shown()[2].number);
}

TEST_F(DesktopNotificationsTest, LeavesTheAnswerToTheWindowWhereThereIsOne) {
    NotificationServer server(bus.address());
    const auto service = make(Role::service);
    std::atomic<int> atService{0};
    service->setOnResponse([&](const NotificationResponse&) { ++atService; });
    {
        const auto window = make(Role::window);
        listen(*window);
        window->add(nineOClock());
        clock.advance(60min);
        service->lookAgain();
        ASSERT_TRUE(eventually([&] { return server.shown().size() == 1 && waiting() == 0; }));
        server.press(server.shown()[0].number, "vesk.snooze");
        ASSERT_TRUE(eventually([&] { return heard().size() == 1; }));
        EXPECT_EQ(atService, 0);
    }
    service->add(nineOClock(true));
    clock.advance(24h);
    service->lookAgain();
    ASSERT_TRUE(eventually([&] { return server.shown().size() == 2; }));
    ASSERT_TRUE(eventually(
        [&] { return PendingNotifications(folder / "state", files, log).read().shown.size() == 1; }));
    server.press(server.shown()[1].number, "vesk.snooze");
    EXPECT_TRUE(eventually([&] { return atService == 1; }));
    EXPECT_EQ(heard().size(), 1U);
}

TEST_F(DesktopNotificationsTest, KeepsAnAnswerThatCouldNotBeCarriedOutForTheWindow) {
    NotificationServer server(bus.address());
    const auto service = make(Role::service);
    std::atomic<int> tries{0};
    service->setOnResponse([&](const NotificationResponse&) {
        ++tries;
        throw SystemError(ENOENT, "open", "vault");
    });
    service->add(nineOClock());
    clock.advance(60min);
    service->lookAgain();
    ASSERT_TRUE(eventually([&] { return server.shown().size() == 1 && waiting() == 0; }));
    server.press(server.shown()[0].number, "vesk.done");
    ASSERT_TRUE(eventually([&] { return tries > 0; }));
    const auto window = make(Role::window);
    listen(*window);
    ASSERT_TRUE(eventually([&] { return heard().size() == 1; }));
    EXPECT_EQ(heard()[0].action, "vesk.done");
}

TEST_F(DesktopNotificationsTest, WaitsForAServerThatComesLateOrComesBack) {
    const auto window = make(Role::window);
    listen(*window);
    EXPECT_EQ(window->permission(), NotificationPermission::denied);
    window->add(nineOClock(true));
    clock.advance(60min);
    window->lookAgain();
    auto server = std::make_unique<NotificationServer>(bus.address());
    ASSERT_TRUE(eventually([&] { return server->shown().size() == 1; }));
    const auto number = server->shown()[0].number;
    ASSERT_TRUE(eventually(
        [&] { return PendingNotifications(folder / "state", files, log).read().shown.size() == 1; }));
    server.reset();
    // Another run of the server gives the same numbers to other things.
    server = std::make_unique<NotificationServer>(bus.address());
    server->press(number, "vesk.done");
    clock.advance(24h);
    window->lookAgain();
    ASSERT_TRUE(eventually([&] { return server->shown().size() == 1; }));
    EXPECT_EQ(server->shown()[0].replaces, 0U);
    EXPECT_TRUE(heard().empty());
}

TEST_F(DesktopNotificationsTest, TakesBackWhatIsPendingAndWhatIsShown) {
    NotificationServer server(bus.address());
    const auto window = make(Role::window);
    auto other = nineOClock();
    other.identifier = "remind:b.md";
    window->add(nineOClock());
    window->add(other);
    window->removePending({"remind:b.md"});
    clock.advance(60min);
    window->lookAgain();
    ASSERT_TRUE(eventually([&] { return server.shown().size() == 1 && waiting() == 0; }));
    window->removeDelivered({"remind:a.md", "remind:b.md"});
    EXPECT_TRUE(eventually([&] { return server.closed().size() == 1; }));
    EXPECT_EQ(server.closed(), std::vector{server.shown()[0].number});
}

}  // namespace
}  // namespace vesk::test
