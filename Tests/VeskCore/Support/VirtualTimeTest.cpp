#include <gtest/gtest.h>

#include <set>
#include <string>

#include "VeskCore/Support/VirtualTime.h"

namespace vesk {
namespace {

using std::chrono::hours;
using std::chrono::milliseconds;
using std::chrono::seconds;

/// Several queues at work at the same moments: which ran when.
std::string trace(std::uint64_t seed) {
    VirtualTime time(seed);
    std::string ran;
    auto left = time.serialQueue("left", Priority::utility),
         right = time.serialQueue("right", Priority::utility);
    for (int i = 0; i < 5; ++i) {
        time.post([&ran, i] { ran += "m" + std::to_string(i); });
        left->post([&ran, i] { ran += "l" + std::to_string(i); });
        right->post([&ran, i] { ran += "r" + std::to_string(i); });
        time.run(Priority::background, [&ran, &time, i](const std::stop_token& stop) {
            ran += "b" + std::to_string(i);
            time.sleep(seconds(1 + i % 2), stop);
            ran += "B" + std::to_string(i);
        });
    }
    time.runToRest(hours(1));
    return ran;
}

TEST(VirtualTimeTest, TheSeedDecidesTheOrderAndQueuesKeepTheirs) {
    std::set<std::string> traces;
    for (std::uint64_t seed = 1; seed <= 20; ++seed) {
        auto ran = trace(seed);
        EXPECT_EQ(trace(seed), ran);
        for (char queue : {'m', 'l', 'r'}) {
            std::string order;
            for (std::size_t i = 0; i + 1 < ran.size(); i += 2) {
                if (ran[i] == queue) order += ran[i + 1];
            }
            EXPECT_EQ(order, "01234") << ran;
        }
        EXPECT_EQ(ran.size(), 50U);
        traces.insert(std::move(ran));
    }
    EXPECT_GT(traces.size(), 15U);
}

TEST(VirtualTimeTest, TimersRunByDueTimeAndOnlyWhenTheClockMoves) {
    VirtualTime time;
    std::string ran;
    auto start = time.now();
    auto note = [&](const char* what) {
        ran += what + std::to_string((time.now() - start) / milliseconds(1)) + " ";
    };
    auto late = time.postAfter(milliseconds(300), [&] { note("late"); });
    auto early = time.postAfter(milliseconds(100), [&] {
        note("early");
        late = time.postAfter(milliseconds(50), [&] { note("next"); });
    });
    {
        auto dropped = time.postAfter(milliseconds(10), [&] { note("dropped"); });
    }
    time.postAfter(Duration::zero(), [&] { note("now"); }).detach();
    time.settle();
    EXPECT_EQ(ran, "now0 ");
    time.advance(milliseconds(99));
    EXPECT_EQ(ran, "now0 ");
    time.advance(milliseconds(51));
    EXPECT_EQ(ran, "now0 early100 next150 ");
    time.runToRest(hours(1));
    EXPECT_EQ(time.monotonic(), milliseconds(150));
    EXPECT_EQ(ran, "now0 early100 next150 ");
}

TEST(VirtualTimeTest, ATimerThatIsDueCanStillBeCancelled) {
    for (std::uint64_t seed = 1; seed <= 10; ++seed) {
        VirtualTime time(seed);
        int ran = 0;
        TimerHandle first, second;
        first = time.postAfter(seconds(1), [&] {
            ++ran;
            second.cancel();
        });
        second = time.postAfter(seconds(1), [&] {
            ++ran;
            first.cancel();
        });
        time.advance(seconds(2));
        EXPECT_EQ(ran, 1) << seed;
    }
}

TEST(VirtualTimeTest, SleepersWakeAtTheirOwnTimes) {
    VirtualTime time;
    std::string ran;
    // Two that never end on their own: neither keeps the other from its time.
    auto poll = [&](const char* name, Duration every) {
        return time.run(Priority::utility, [&time, &ran, name, every](const std::stop_token& stop) {
            while (time.sleep(every, stop)) ran += name + std::to_string(time.monotonic() / seconds(1)) + " ";
            ran += std::string(name) + "! ";
        });
    };
    auto a = poll("a", seconds(3)), b = poll("b", seconds(2));
    time.advance(seconds(5));
    EXPECT_EQ(ran, "b2 a3 b4 ");
    EXPECT_EQ(time.monotonic(), seconds(5));
    a.cancel();
    time.settle();
    EXPECT_EQ(ran, "b2 a3 b4 a! ");
    time.runToRest(seconds(3));
    EXPECT_EQ(ran, "b2 a3 b4 a! b6 b8 ");
    b.cancel();
    time.runToRest(hours(1));
    EXPECT_EQ(ran, "b2 a3 b4 a! b6 b8 b! ");
    EXPECT_EQ(time.monotonic(), seconds(8));
}

TEST(VirtualTimeTest, ASleepOfTheTestsBodyRunsTheWorldOn) {
    VirtualTime time;
    std::string ran;
    auto timer = time.postAfter(seconds(1), [&] { ran += "main"; });
    EXPECT_TRUE(time.sleep(seconds(2), {}));
    EXPECT_EQ(ran, "main");
    EXPECT_EQ(time.monotonic(), seconds(2));
    std::stop_source stop;
    auto stopper = time.postAfter(seconds(1), [&] { stop.request_stop(); });
    EXPECT_FALSE(time.sleep(hours(1), stop.get_token()));
    EXPECT_EQ(time.monotonic(), seconds(3));
}

TEST(VirtualTimeTest, EachJobKnowsItsThread) {
    VirtualTime time;
    auto queue = time.serialQueue("test", Priority::utility);
    std::string where;
    auto note = [&] { where += time.isMainThread() ? 'M' : queue->isCurrent() ? 'Q' : 'B'; };
    note();
    time.post(note);
    time.settle();
    queue->post(note);
    queue->postAfter(seconds(1), note);
    time.advance(seconds(1));
    time.run(Priority::utility, [&](const std::stop_token&) { note(); });
    time.settle();
    note();
    EXPECT_EQ(where, "MMQQBM");
}

TEST(VirtualTimeTest, DrainingBlocksOnlyTheThreadThatDrains) {
    for (std::uint64_t seed = 1; seed <= 10; ++seed) {
        VirtualTime time(seed);
        auto queue = time.serialQueue("test", Priority::utility);
        std::string ran;
        time.post([&] { ran += "m"; });
        queue->post([&] {
            time.sleep(seconds(1), {});
            ran += "a";
        });
        queue->post([&] {
            queue->drain();
            ran += "b";
        });
        queue->drain();
        EXPECT_EQ(ran, "ab") << "the main thread was blocked";
        time.settle();
        EXPECT_EQ(ran, "abm");

        // From a worker, while a job of the queue sleeps.
        queue->post([&] {
            time.sleep(seconds(1), {});
            ran += "c";
        });
        time.settle();
        time.run(Priority::utility, [&](const std::stop_token&) {
            queue->drain();
            ran += "d";
        });
        time.settle();
        time.post([&] { ran += "n"; });
        time.advance(seconds(1));
        EXPECT_EQ(ran, "abmncd");
    }
}

TEST(VirtualTimeTest, DroppingAQueueLetsPostedJobsEnd) {
    VirtualTime time;
    auto queue = time.serialQueue("test", Priority::utility);
    std::string ran;
    queue->post([&] { ran += "posted"; });
    queue->postAfter(seconds(1), [&] { ran += "delayed"; });
    queue.reset();
    time.runToRest(hours(1));
    EXPECT_EQ(ran, "posted");
    EXPECT_EQ(time.monotonic(), Duration::zero());
}

TEST(VirtualTimeTest, CancelledJobsRunAndSeeTheStop) {
    VirtualTime time;
    bool sawStop = false;
    auto task =
        time.run(Priority::utility, [&](const std::stop_token& stop) { sawStop = stop.stop_requested(); });
    task.cancel();
    time.settle();
    EXPECT_TRUE(sawStop);
}

TEST(VirtualTimeTest, DroppingEverythingEndsWaitingAndSleepingJobs) {
    VirtualTime time;
    auto owned = std::make_shared<int>();
    auto queue = time.serialQueue("test", Priority::utility);
    std::string ran;
    auto note = [&ran, owned] { ran += "x"; };
    auto timer = time.postAfter(seconds(1), note);
    time.run(Priority::utility, [&, owned](const std::stop_token& stop) {
        struct Lock {
            std::string& ran;
            ~Lock() { ran += "unlocked "; }
        } lock{ran};
        try {
            time.sleep(hours(1), stop);
        } catch (const std::exception&) {
            ran += "handled";
        }
        ran += "went on";
    });
    time.settle();
    time.post(note);
    queue->post(note);
    queue->postAfter(seconds(1), note);
    time.run(Priority::utility, [note](const std::stop_token&) { note(); });
    time.dropEverything();
    EXPECT_EQ(ran, "unlocked ");
    EXPECT_EQ(owned.use_count(), 2);  // ours and that of `note`
    timer.cancel();
    queue->drain();
    queue->post([&] { ran += "after"; });
    time.runToRest(hours(2));
    EXPECT_EQ(ran, "unlocked after");
    EXPECT_EQ(time.monotonic(), Duration::zero());
}

TEST(VirtualTimeTest, HandlesOutliveTheWorld) {
    auto owned = std::make_shared<int>();
    TimerHandle timer;
    std::unique_ptr<SerialQueue> queue;
    {
        VirtualTime time;
        timer = time.postAfter(seconds(1), [owned] {});
        queue = time.serialQueue("test", Priority::utility);
        queue->postAfter(seconds(1), [owned] {});
        time.run(Priority::utility,
                 [&time, owned](const std::stop_token& stop) { time.sleep(hours(1), stop); });
        time.settle();
    }
    EXPECT_EQ(owned.use_count(), 1);
    queue->post([owned] {});
    queue->drain();
    timer.cancel();
}

TEST(VirtualTimeTest, TheWallClockJumpsAndTimersDoNot) {
    VirtualTime time(1, timeFromSecondsSince1970(1000));
    bool ran = false;
    auto timer = time.postAfter(seconds(10), [&] { ran = true; });
    time.jumpWallClock(-hours(1));
    EXPECT_EQ(time.now(), timeFromSecondsSince1970(-2600));
    time.advance(seconds(9));
    EXPECT_FALSE(ran);
    time.jumpWallClock(hours(2));
    time.advance(seconds(1));
    EXPECT_TRUE(ran);
    EXPECT_EQ(time.now(), timeFromSecondsSince1970(4610));
}

TEST(VirtualTimeTest, AFailureOfAMainJobComesOut) {
    VirtualTime time;
    int ran = 0;
    time.post([] { throw std::runtime_error("failed"); });
    time.post([&] { ++ran; });
    EXPECT_THROW(time.settle(), std::runtime_error);
    time.settle();
    EXPECT_EQ(ran, 1);
}

}  // namespace
}  // namespace vesk
