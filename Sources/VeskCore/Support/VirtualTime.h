// One deterministic world of time and threads for tests: a clock that moves only when told, a main queue, workers
// and serial queues that all run on the calling thread in an order drawn from a seed.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <random>
#include <vector>

#include "VeskCore/Support/Executors.h"
#include "VeskCore/Support/Time.h"

namespace vesk {

/// Single-threaded. Jobs that are ready at one moment run in an order drawn from the seed, except that each queue
/// keeps its own order. A worker's Clock::sleep runs the rest of the world on until its time has come.
class VirtualTime final : public Clock, public MainQueue, public Background {
public:
    explicit VirtualTime(std::uint64_t seed = 1, TimePoint start = timeFromSecondsSince1970(1'750'000'000));
    ~VirtualTime() override;

    // Clock
    TimePoint now() const override;
    Duration monotonic() const override;
    bool sleep(Duration duration, std::stop_token stop) override;

    // MainQueue
    void post(std::function<void()> job) override;
    [[nodiscard]] TimerHandle postAfter(Duration delay, std::function<void()> job) override;
    bool isMainThread() const override;

    // Background
    TaskHandle run(Priority priority, std::function<void(std::stop_token)> job) override;
    std::unique_ptr<SerialQueue> serialQueue(std::string label, Priority priority) override;

    /// Runs everything that is ready now, and what that makes ready, without moving the clock.
    void settle();
    /// Moves the clock on by `duration`, running what becomes due on the way.
    void advance(Duration duration);
    /// Runs until nothing is left, timers included, but at most `limit` of time.
    void runToRest(Duration limit);
    /// One ready job; false if none is ready.
    bool step();
    /// Drops everything that waits, as a crash does. Handles stay valid and do nothing.
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
