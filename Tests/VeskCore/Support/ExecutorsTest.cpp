#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <thread>

#include "VeskCore/Support/Executors.h"

namespace vesk {
namespace {

using std::chrono::hours;
using std::chrono::microseconds;
using std::chrono::milliseconds;

/// Holds a worker until the test lets it go.
class Gate {
public:
    void open() { promise_.set_value(); }
    std::function<void()> job() {
        return [future = future_] { future.wait(); };
    }

private:
    std::promise<void> promise_;
    std::shared_future<void> future_ = promise_.get_future().share();
};

// RunLoop

TEST(RunLoopTest, RunsJobsInOrderAndTimersByDueTime) {
    RunLoop loop;
    std::string jobs, timers;
    auto owned = std::make_shared<int>();
    auto never = loop.postAfter(hours(1), [owned] {});
    auto early = loop.postAfter(microseconds(1000), [&] { timers += "E"; });
    auto late = loop.postAfter(microseconds(2000), [&] { timers += "L"; });
    loop.post([&] {
        jobs += "1";
        never.cancel();
        loop.post([&] { jobs += "3"; });
    });
    loop.post([&] { jobs += "2"; });
    EXPECT_TRUE(loop.runUntil([&] { return jobs.size() == 3 && timers.size() == 2; }, hours(1)));
    EXPECT_EQ(jobs, "123");
    EXPECT_EQ(timers, "EL");
    EXPECT_EQ(owned.use_count(), 1);
}

TEST(RunLoopTest, AHandleCancelsOnlyItsOwnTimer) {
    RunLoop loop;
    std::string ran;
    auto handle = loop.postAfter(Duration::zero(), [&] { ran += "a"; });
    loop.postAfter(Duration::zero(), [&] { ran += "d"; }).detach();
    {
        auto dropped = loop.postAfter(Duration::zero(), [&] { ran += "x"; });
    }
    EXPECT_TRUE(loop.runUntil([&] { return ran.size() == 2; }, hours(1)));
    auto other = loop.postAfter(Duration::zero(), [&] { ran += "o"; });
    handle.cancel();
    handle = loop.postAfter(Duration::zero(), [&] { ran += "b"; });
    handle = TimerHandle();
    EXPECT_TRUE(loop.runUntil([&] { return ran.size() == 3; }, hours(1)));
    EXPECT_EQ(ran, "ado");
}

TEST(RunLoopTest, AJobMayCancelOrDropTheTimerThatRunsIt) {
    RunLoop loop;
    int ran = 0;
    TimerHandle handle;
    handle = loop.postAfter(Duration::zero(), [&] {
        handle.cancel();
        handle = loop.postAfter(Duration::zero(), [&] { ++ran; });
        ++ran;
    });
    EXPECT_TRUE(loop.runUntil([&] { return ran == 2; }, hours(1)));
    TimerHandle outliving;
    {
        RunLoop gone;
        outliving = gone.postAfter(hours(1), [] {});
    }
    outliving.cancel();
}

TEST(RunLoopTest, NeitherJobsNorTimersKeepTheOthersOut) {
    RunLoop loop;
    bool timerRan = false;
    std::function<void()> again = [&] { loop.post(again); };
    loop.post(again);
    auto timer = loop.postAfter(Duration::zero(), [&] { timerRan = true; });
    EXPECT_TRUE(loop.runUntil([&] { return timerRan; }, hours(1)));

    bool jobRan = false;
    TimerHandle endless;
    std::function<void()> rearm = [&] { endless = loop.postAfter(Duration::zero(), rearm); };
    rearm();
    loop.post([&] { jobRan = true; });
    EXPECT_TRUE(loop.runUntil([&] { return jobRan; }, hours(1)));
}

TEST(RunLoopTest, OtherThreadsPostAndQuit) {
    RunLoop loop;
    EXPECT_TRUE(loop.isMainThread());
    int sum = 0;
    bool otherIsMain = true;
    std::thread other([&] {
        otherIsMain = loop.isMainThread();
        for (int i = 0; i < 1000; ++i) loop.post([&] { ++sum; });
        loop.post([&] { loop.quit(); });
    });
    loop.run();
    other.join();
    EXPECT_FALSE(otherIsMain);
    EXPECT_EQ(sum, 1000);
    loop.quit();
    loop.run();  // a quit that came before is not lost
    EXPECT_FALSE(loop.runUntil([] { return false; }, Duration::zero()));
}

// ThreadPool

TEST(ThreadPoolTest, HigherPrioritiesGoFirst) {
    Gate gate;
    std::string ran;
    std::promise<void> last;
    ThreadPool pool(1);  // last, here and below: its jobs are over before what they use goes
    auto blocker = [job = gate.job()](const std::stop_token&) { job(); };
    pool.run(Priority::userInitiated, blocker);
    pool.run(Priority::background, [&](const std::stop_token&) {
        ran += "b";
        last.set_value();
    });
    pool.run(Priority::utility, [&](const std::stop_token&) { ran += "u"; });
    pool.run(Priority::userInitiated, [&](const std::stop_token&) { ran += "i"; });
    pool.run(Priority::utility, [&](const std::stop_token&) { ran += "v"; });
    gate.open();
    last.get_future().wait();
    EXPECT_EQ(ran, "iuvb");
}

TEST(ThreadPoolTest, ACancelledJobSeesItsStopAlsoBeforeItBegins) {
    std::promise<void> began;
    std::promise<bool> waitingSawStop;
    SystemClock clock;
    ThreadPool pool(1);
    auto running = pool.run(Priority::utility, [&](const std::stop_token& stop) {
        began.set_value();
        clock.sleep(Duration::max(), stop);
    });
    auto waiting = pool.run(Priority::utility, [&](const std::stop_token& stop) {
        waitingSawStop.set_value(stop.stop_requested());
    });
    EXPECT_TRUE(running);
    EXPECT_FALSE(TaskHandle());
    TaskHandle().cancel();
    waiting.cancel();
    began.get_future().wait();
    running.cancel();
    EXPECT_TRUE(running.cancelled());
    EXPECT_TRUE(waitingSawStop.get_future().get());
}

TEST(ThreadPoolTest, ASerialQueueRunsOneJobAtATimeInOrder) {
    std::vector<int> order;  // unguarded: the queue itself keeps its jobs apart
    ThreadPool pool(4);
    auto queue = pool.serialQueue("test", Priority::utility);
    for (int i = 0; i < 1000; ++i) queue->post([&order, i] { order.push_back(i); });
    queue->drain();
    ASSERT_EQ(order.size(), 1000U);
    EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
    EXPECT_FALSE(queue->isCurrent());
    bool current = false;
    queue->post([&] {
        current = queue->isCurrent();
        queue->post([] {});
        queue->drain();  // from the queue itself: nothing to wait for
    });
    queue->drain();
    EXPECT_TRUE(current);
}

TEST(ThreadPoolTest, DrainingFromTheOnlyWorkerRunsTheQueue) {
    std::promise<int> result;
    std::promise<void> after;
    std::unique_ptr<SerialQueue> queue;
    ThreadPool pool(1);
    queue = pool.serialQueue("test", Priority::background);
    pool.run(Priority::userInitiated, [&](const std::stop_token&) {
        int ran = 0;
        bool current = true;
        for (int i = 0; i < 10; ++i) {
            queue->post([&] {
                ++ran;
                current = current && queue->isCurrent();
            });
        }
        queue->drain();
        result.set_value(current && !queue->isCurrent() ? ran : -1);
    });
    EXPECT_EQ(result.get_future().get(), 10);
    queue->post([&] { after.set_value(); });
    after.get_future().wait();
}

TEST(ThreadPoolTest, ABusyQueueKeepsNobodyOut) {
    std::atomic<bool> done = false;
    std::unique_ptr<SerialQueue> endless, other;
    ThreadPool pool(1);
    endless = pool.serialQueue("endless", Priority::utility);
    other = pool.serialQueue("other", Priority::utility);
    std::function<void()> again = [&] {
        if (!done) endless->post(again);
    };
    endless->post(again);
    other->post([&] { done = true; });
    other->drain();
    endless->drain();
}

TEST(ThreadPoolTest, DelayedJobsRunByDueTimeAndGoWithTheirQueue) {
    std::string ran;
    std::promise<void> last;
    ThreadPool pool(2);
    auto queue = pool.serialQueue("kept", Priority::utility);
    queue->post([&] { ran += "a"; });
    queue->postAfter(hours(1), [&] { ran += "x"; });  // the workers wait for it until an earlier one comes
    queue->postAfter(microseconds(1000), [&] { ran += "b"; });
    queue->postAfter(microseconds(3000), [&] {
        ran += "c";
        last.set_value();
    });
    auto owned = std::make_shared<int>();
    auto dropped = pool.serialQueue("dropped", Priority::utility);
    dropped->postAfter(hours(1), [owned] {});
    dropped.reset();
    EXPECT_EQ(owned.use_count(), 1);
    last.get_future().wait();
    queue->drain();
    EXPECT_EQ(ran, "abc");
}

TEST(ThreadPoolTest, DroppingAQueueLetsPostedJobsEnd) {
    Gate gate;
    std::promise<int> ran;
    ThreadPool pool(1);
    auto queue = pool.serialQueue("test", Priority::utility);
    queue->post(gate.job());
    queue->post([&] { ran.set_value(1); });
    queue.reset();
    gate.open();
    EXPECT_EQ(ran.get_future().get(), 1);
}

TEST(ThreadPoolTest, EndingStopsRunningJobsAndDropsWaitingOnes) {
    SystemClock clock;
    std::atomic<int> ended = 0, ran = 0;
    auto owned = std::make_shared<int>();
    std::unique_ptr<SerialQueue> queue;
    {
        std::promise<void> began[2];
        ThreadPool pool(2);
        for (auto& promise : began) {
            pool.run(Priority::background, [&](const std::stop_token& stop) {
                promise.set_value();
                clock.sleep(Duration::max(), stop);
                ++ended;
            });
        }
        for (auto& promise : began) promise.get_future().wait();
        queue = pool.serialQueue("test", Priority::utility);
        auto count = [&ran, owned] { ++ran; };
        queue->post(count);
        queue->postAfter(hours(1), count);
        pool.run(Priority::userInitiated, [count](const std::stop_token&) { count(); });
    }
    EXPECT_EQ(ended, 2);
    EXPECT_EQ(ran, 0);
    queue->post([&ran, owned] { ++ran; });
    queue->drain();
    EXPECT_EQ(owned.use_count(), 1);
    EXPECT_EQ(ran, 0);
}

TEST(ThreadPoolTest, ManyThreadsUseManyQueues) {
    constexpr int kQueues = 8, kJobs = 200;
    std::vector<int> counts(kQueues);
    std::vector<std::promise<void>> due(kQueues);
    ThreadPool pool(3);
    std::vector<std::unique_ptr<SerialQueue>> queues;
    for (int q = 0; q < kQueues; ++q)
        queues.push_back(pool.serialQueue("test", static_cast<Priority>(q % 3)));
    std::vector<std::thread> posters;
    for (int t = 0; t < 3; ++t) {
        posters.emplace_back([&] {
            for (int i = 0; i < kJobs; ++i) {
                for (std::size_t q = 0; q < kQueues; ++q) {
                    auto job = [&counts, q] { ++counts[q]; };
                    if (i % 10 == 0) {
                        queues[q]->postAfter(microseconds(i), job);
                    } else {
                        queues[q]->post(job);
                    }
                }
            }
            for (auto& queue : queues) queue->drain();
        });
    }
    for (auto& poster : posters) poster.join();
    // The delayed ones are due soon; their queues tell when they have run.
    for (std::size_t q = 0; q < kQueues; ++q) {
        queues[q]->postAfter(milliseconds(1), [&due, q] { due[q].set_value(); });
        due[q].get_future().wait();
    }
    EXPECT_EQ(counts, std::vector<int>(kQueues, 3 * kJobs));
}

}  // namespace
}  // namespace vesk
