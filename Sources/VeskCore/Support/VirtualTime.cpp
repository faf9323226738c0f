#include "VeskCore/Support/VirtualTime.h"

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <exception>
#include <map>
#include <mutex>
#include <optional>
#include <thread>

#include "VeskCore/Support/Ensure.h"

namespace vesk {

namespace {

/// Longer ones would overflow the clock.
Duration bounded(Duration duration) {
    constexpr Duration kLongest = std::chrono::hours(24 * 365 * 1000);
    return std::clamp(duration, Duration::zero(), kLongest);
}

/// Unwinds a suspended job when the world is dropped. Not derived from std::exception, so that a job's
/// handling of its failures does not take it for one.
struct Unwind {};

struct Lane;

/// A thread that runs one job at a time while whoever resumed it waits: a stack that can be left in the
/// middle.
class Fiber {
public:
    Fiber() : thread_([this] { work(); }) {}
    ~Fiber() {
        task_ = nullptr;
        handOver(Turn::ending);
        thread_.join();
    }
    Fiber(const Fiber&) = delete;
    Fiber& operator=(const Fiber&) = delete;

    /// Runs the task, or goes on with it, until it ends or suspends.
    void start(std::function<void()> task) {
        task_ = std::move(task);
        resume();
    }
    void resume() { handOver(Turn::fiber); }
    bool idle() const { return !task_; }
    /// On the fiber: gives the turn back until the next resume.
    void suspend() {
        std::unique_lock held(turnLock_);
        turn_ = Turn::caller;
        turnChanged_.notify_all();
        turnChanged_.wait(held, [this] { return turn_ != Turn::caller; });
    }

    const void* world = nullptr;
    Lane* lane = nullptr;

private:
    enum class Turn { caller, fiber, ending };

    void handOver(Turn turn) {
        std::unique_lock held(turnLock_);
        turn_ = turn;
        turnChanged_.notify_all();
        if (turn != Turn::ending) turnChanged_.wait(held, [this] { return turn_ == Turn::caller; });
    }
    void work();

    std::mutex turnLock_;  // guards turn_; who has the turn has everything else of the world
    std::condition_variable turnChanged_;
    Turn turn_ = Turn::caller;
    std::function<void()> task_;
    std::thread thread_;  // last: it uses the others
};

thread_local Fiber* currentFiber = nullptr;

void Fiber::work() {
    currentFiber = this;
    std::unique_lock held(turnLock_);
    while (true) {
        turnChanged_.wait(held, [this] { return turn_ != Turn::caller; });
        if (turn_ == Turn::ending) return;
        held.unlock();
        task_();
        task_ = nullptr;
        held.lock();
        turn_ = Turn::caller;
        turnChanged_.notify_all();
    }
}

/// What a suspended job waits for.
struct Wait {
    std::optional<Duration> until;  // the monotonic time
    std::stop_token stop;           // ends a wait for a time
    std::shared_ptr<Lane> drained;  // or the queue that it drains…
    std::uint64_t drainedUpTo = 0;  // …and how many jobs of it
    bool over(Duration now) const;
};

/// A queue whose jobs run one after the other: the main queue, a serial queue, or the one job of a worker.
struct Lane {
    std::deque<std::function<void()>> jobs;
    std::uint64_t posted = 0, ended = 0;
    bool isMain = false;
    bool isKept = false;           // by the handle of a serial queue
    bool busy = false;             // a job has begun and not ended
    std::unique_ptr<Fiber> fiber;  // of the job that has begun
    std::optional<Wait> wait;      // why that job is suspended

    bool ready(Duration now) const { return busy ? wait && wait->over(now) : !jobs.empty(); }
    bool finished() const { return !isMain && !isKept && !busy && jobs.empty(); }
};

bool Wait::over(Duration now) const {
    if (drained) return drained->ended >= drainedUpTo;
    return stop.stop_requested() || (until && *until <= now);
}

}  // namespace

struct VirtualTime::World {
    using TimerKey = std::pair<Duration, std::uint64_t>;  // due time, order of asking
    struct Timer {
        std::shared_ptr<Lane> lane;
        std::function<void()> job;
    };

    explicit World(TimePoint start) : wallStart(start) {
        lanes.push_back(std::make_shared<Lane>());
        lanes.front()->isMain = true;
    }

    Duration now{};
    TimePoint wallStart;
    std::vector<std::shared_ptr<Lane>> lanes;  // in the order they were made; the main queue is the first
    std::map<TimerKey, Timer> timers;
    std::uint64_t nextTimer = 1;
    std::vector<std::unique_ptr<Fiber>> idleFibers;
    bool dropping = false;

    Lane& mainLane() { return *lanes.front(); }
    bool onFiber() const { return currentFiber && currentFiber->world == this; }

    void post(Lane& lane, std::function<void()> job) {
        if (dropping) return;
        lane.jobs.push_back(std::move(job));
        ++lane.posted;
    }

    TimerKey addTimer(std::shared_ptr<Lane> lane, Duration delay, std::function<void()> job) {
        TimerKey key(now + bounded(delay), nextTimer++);
        if (!dropping) timers.emplace(key, Timer{std::move(lane), std::move(job)});
        return key;
    }

    /// The next moment at which something happens that is not ready now.
    std::optional<Duration> nextEvent() const {
        std::optional<Duration> next;
        if (!timers.empty()) next = timers.begin()->first.first;
        for (const auto& lane : lanes) {
            if (lane->wait && lane->wait->until && (!next || *lane->wait->until < *next))
                next = lane->wait->until;
        }
        return next;
    }

    void moveTo(Duration time) {
        now = std::max(now, time);
        while (!timers.empty() && timers.begin()->first.first <= now) {
            auto timer = timers.extract(timers.begin());
            post(*timer.mapped().lane, std::move(timer.mapped().job));
        }
    }

    /// Runs a ready job, or goes on with one; false if none is ready.
    bool step(std::mt19937_64& random) {
        std::vector<std::shared_ptr<Lane>> ready;
        for (const auto& lane : lanes) {
            if (lane->ready(now)) ready.push_back(lane);
        }
        if (ready.empty()) return false;
        auto lane = ready[random() % ready.size()];
        if (lane->busy) {
            lane->wait.reset();
            goOn(*lane, [&] { lane->fiber->resume(); });
        } else if (lane->isMain) {
            runOnMain(*lane);
        } else {
            begin(*lane);
        }
        std::erase_if(lanes, [](const auto& candidate) { return candidate->finished(); });
        return true;
    }

    void runOnMain(Lane& lane) {
        auto job = std::move(lane.jobs.front());
        lane.jobs.pop_front();
        lane.busy = true;
        struct Ending {  // also when a failed expectation of the test comes out of the job
            Lane& lane;
            ~Ending() {
                lane.busy = false;
                ++lane.ended;
            }
        } ending{lane};
        job();
    }

    void begin(Lane& lane) {
        auto job = std::move(lane.jobs.front());
        lane.jobs.pop_front();
        lane.busy = true;
        if (idleFibers.empty()) {
            lane.fiber = std::make_unique<Fiber>();
        } else {
            lane.fiber = std::move(idleFibers.back());
            idleFibers.pop_back();
        }
        lane.fiber->world = this;
        lane.fiber->lane = &lane;
        goOn(lane, [&] {
            lane.fiber->start([job = std::move(job)] {
                try {
                    job();
                } catch (const Unwind&) {
                }
            });
        });
    }

    template <class Turn>
    void goOn(Lane& lane, const Turn& turn) {
        turn();
        if (!lane.fiber->idle()) return;
        idleFibers.push_back(std::move(lane.fiber));
        lane.busy = false;
        ++lane.ended;
    }

    /// On a fiber: suspends its job until the wait is over.
    void suspend(Wait wait) {
        auto& lane = *currentFiber->lane;
        // While a job is being unwound nothing can be waited for, least of all in a destructor.
        if (dropping && std::uncaught_exceptions() > 0) return;
        if (dropping) throw Unwind{};
        lane.wait = std::move(wait);
        currentFiber->suspend();
        if (dropping) throw Unwind{};
    }

    /// Runs what is ready until `done`, moving the clock where that alone helps, but not beyond `limit`.
    void runUntil(std::mt19937_64& random, Duration limit, const std::function<bool()>& done) {
        constexpr std::uint64_t kMostSteps =
            5'000'000;  // at one moment; more is a job that posts itself for ever
        std::uint64_t steps = 0;
        while (!done()) {
            if (step(random)) {
                VESK_ENSURE(++steps < kMostSteps);
                continue;
            }
            auto next = nextEvent();
            if (!next || *next > limit) return;
            if (*next > now) steps = 0;
            moveTo(*next);
        }
    }

    void drop() {
        if (dropping) return;
        dropping = true;
        // Destroyed jobs may own handles that look into the world: nothing is being walked while they go.
        auto droppedTimers = std::exchange(timers, {});
        droppedTimers.clear();
        auto all = lanes;
        for (auto& lane : all) {
            auto jobs = std::exchange(lane->jobs, {});
            lane->ended += jobs.size();
            jobs.clear();
            if (!lane->wait) continue;
            lane->wait.reset();
            goOn(*lane, [&] { lane->fiber->resume(); });
        }
        std::erase_if(lanes, [](const auto& lane) { return lane->finished(); });
        dropping = false;
    }
};

class VirtualSerialQueue final : public SerialQueue {
public:
    VirtualSerialQueue(VirtualTime& time, std::shared_ptr<VirtualTime::World> world)
        : time_(time), world_(world), lane_(std::make_shared<Lane>()) {
        lane_->isKept = true;
        world->lanes.push_back(lane_);
    }

    ~VirtualSerialQueue() override {
        lane_->isKept = false;
        auto world = world_.lock();
        if (!world) return;
        std::vector<std::function<void()>> dropped;
        for (auto timer = world->timers.begin(); timer != world->timers.end();) {
            auto next = std::next(timer);
            if (timer->second.lane == lane_) {
                dropped.push_back(std::move(timer->second.job));
                world->timers.erase(timer);
            }
            timer = next;
        }
    }

    void post(std::function<void()> job) override {
        if (auto world = world_.lock()) world->post(*lane_, std::move(job));
    }

    void postAfter(Duration delay, std::function<void()> job) override {
        if (auto world = world_.lock()) world->addTimer(lane_, delay, std::move(job));
    }

    void drain() override {
        auto world = world_.lock();
        if (!world || isCurrent()) return;
        const auto last = lane_->posted;
        auto drained = [lane = lane_, last] { return lane->ended >= last; };
        if (drained()) return;
        if (world->onFiber()) {
            world->suspend({.drained = lane_, .drainedUpTo = last});
            return;
        }
        // The main thread is blocked: its jobs have to wait.
        auto& main = world->mainLane();
        const bool wasBusy = std::exchange(main.busy, true);
        world->runUntil(time_.random_, Duration::max(), drained);
        main.busy = wasBusy;
        VESK_ENSURE(drained());  // else a real queue would block for ever
    }

    bool isCurrent() const override { return currentFiber && currentFiber->lane == lane_.get(); }

private:
    VirtualTime& time_;
    std::weak_ptr<VirtualTime::World> world_;
    std::shared_ptr<Lane> lane_;
};

VirtualTime::VirtualTime(std::uint64_t seed, TimePoint start)
    : world_(std::make_shared<World>(start)), random_(seed) {}

VirtualTime::~VirtualTime() {
    world_->drop();
}

TimePoint VirtualTime::now() const {
    return world_->wallStart + world_->now;
}

Duration VirtualTime::monotonic() const {
    return world_->now;
}

bool VirtualTime::sleep(Duration duration, std::stop_token stop) {
    auto until = world_->now + bounded(duration);
    if (stop.stop_requested()) return false;
    if (world_->onFiber()) {
        world_->suspend({.until = until, .stop = stop});
    } else {
        VESK_ENSURE(!world_->mainLane().busy);
        world_->runUntil(random_, until, [&] { return stop.stop_requested(); });
        if (!stop.stop_requested()) world_->moveTo(until);
    }
    return !stop.stop_requested();
}

void VirtualTime::post(std::function<void()> job) {
    world_->post(world_->mainLane(), std::move(job));
}

TimerHandle VirtualTime::postAfter(Duration delay, std::function<void()> job) {
    // The flag covers the time between the timer's coming due and its job's turn on the queue.
    auto held = std::make_shared<std::function<void()>>(std::move(job));
    auto key = world_->addTimer(world_->lanes.front(), delay, [held] {
        if (auto due = std::exchange(*held, nullptr)) due();
    });
    return TimerHandle([weak = std::weak_ptr<World>(world_), key, waiting = std::weak_ptr(held)] {
        if (auto timer = waiting.lock()) auto dropped = std::exchange(*timer, nullptr);
        if (auto world = weak.lock()) auto dropped = world->timers.extract(key);
    });
}

bool VirtualTime::isMainThread() const {
    return !world_->onFiber();
}

TaskHandle VirtualTime::run(Priority, std::function<void(std::stop_token)> job) {
    auto stop = freshStopSource();
    auto lane = std::make_shared<Lane>();
    world_->post(*lane, [job = std::move(job), token = stop.get_token()] { job(token); });
    if (!lane->jobs.empty()) world_->lanes.push_back(lane);
    return TaskHandle(stop);
}

std::unique_ptr<SerialQueue> VirtualTime::serialQueue(std::string, Priority) {
    return std::make_unique<VirtualSerialQueue>(*this, world_);
}

void VirtualTime::settle() {
    world_->runUntil(random_, world_->now, [] { return false; });
}

void VirtualTime::advance(Duration duration) {
    auto target = world_->now + bounded(duration);
    world_->runUntil(random_, target, [] { return false; });
    world_->moveTo(target);
}

void VirtualTime::runToRest(Duration limit) {
    world_->runUntil(random_, world_->now + bounded(limit), [] { return false; });
}

bool VirtualTime::step() {
    return world_->step(random_);
}

void VirtualTime::dropEverything() {
    world_->drop();
}

void VirtualTime::jumpWallClock(Duration by) {
    world_->wallStart += by;
}

}  // namespace vesk
