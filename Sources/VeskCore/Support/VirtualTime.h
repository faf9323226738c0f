// One deterministic world of time and threads for tests: a clock that moves only when told, a main queue,
// workers and serial queues, of which one at a time runs, in an order drawn from a seed.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <random>
#include <vector>

#include "VeskCore/Support/Executors.h"
#include "VeskCore/Support/Time.h"

namespace vesk {

/// Used by one thread, which is the main thread of this world: the test's body and the jobs of the main queue
/// run on it. The jobs of workers and serial queues have stacks of their own, so that one that sleeps or
/// drains a queue is suspended while the others go on, but only one runs at any time. Jobs that are ready at
/// one moment run in an order drawn from the seed, except that each queue keeps its own order. Cancelled jobs
/// that have not begun run and see the stop, as those of ThreadPool do.
class VirtualTime final : public Clock, public MainQueue, public Background {
public:
    explicit VirtualTime(std::uint64_t seed = 1, TimePoint start = timeFromSecondsSince1970(1'750'000'000));
    ~VirtualTime() override;

    // Clock
    TimePoint now() const override;
    Duration monotonic() const override;
    /// Suspends the job that calls it. Called by the test's body, which then stands for a worker, it runs the
    /// world on for `duration`. A programmer error in a job of the main queue.
    bool sleep(Duration duration, std::stop_token stop) override;

    // MainQueue
    void post(std::function<void()> job) override;
    [[nodiscard]] TimerHandle postAfter(Duration delay, std::function<void()> job) override;
    /// False inside a job of a worker or a serial queue.
    bool isMainThread() const override;

    // Background
    TaskHandle run(Priority priority, std::function<void(std::stop_token)> job) override;
    std::unique_ptr<SerialQueue> serialQueue(std::string label, Priority priority) override;

    /// Runs everything that is ready now, and what that makes ready, without moving the clock.
    void settle();
    /// Moves the clock on by `duration`, running what becomes due on the way.
    void advance(Duration duration);
    /// Runs until nothing is left, timers and sleepers included, but for at most `limit` of time. The clock
    /// stays at the last thing that happened.
    void runToRest(Duration limit);
    /// One ready job; false if none is ready.
    bool step();
    /// Drops everything that waits, as a crash does. A job that sleeps is unwound from where it stands.
    /// Handles stay valid and do nothing.
    void dropEverything();
    /// The wall clock jumps; timers keep to the monotonic one.
    void jumpWallClock(Duration by);

    std::mt19937_64& random() { return random_; }

private:
    struct World;
    friend class VirtualSerialQueue;
    std::shared_ptr<World> world_;
    std::mt19937_64 random_;
};

}  // namespace vesk
