#include "Simulation/WorldTime.h"

#include <algorithm>
#include <deque>
#include <map>
#include <optional>
#include <utility>
#include <vector>

#include "VeskCore/Support/Ensure.h"
#include "VeskCore/Support/VirtualTime.h"

namespace vesk::simulation {

namespace {

constexpr std::int64_t begin = 1'750'000'000;

class Suspending final : public WorldTime {
public:
    TimePoint now() const override { return time_.now(); }
    Duration monotonic() const override { return time_.monotonic(); }
    bool sleep(Duration duration, std::stop_token stop) override {
        return time_.sleep(duration, std::move(stop));
    }
    void post(std::function<void()> job) override { time_.post(std::move(job)); }
    TimerHandle postAfter(Duration delay, std::function<void()> job) override {
        return time_.postAfter(delay, std::move(job));
    }
    bool isMainThread() const override { return time_.isMainThread(); }
    TaskHandle run(Priority priority, std::function<void(std::stop_token)> job) override {
        return time_.run(priority, std::move(job));
    }
    std::unique_ptr<SerialQueue> serialQueue(std::string label, Priority priority) override {
        return time_.serialQueue(std::move(label), priority);
    }
    void settle() override { time_.settle(); }
    void advance(Duration duration) override { time_.advance(duration); }
    void dropEverything() override { time_.dropEverything(); }
    std::mt19937_64& random() override { return time_.random(); }

private:
    VirtualTime time_{1, timeFromSecondsSince1970(begin)};
};

using Job = std::function<void()>;

/// Jobs in order; a worker's lane has one.
struct Lane {
    std::deque<Job> jobs;
    bool isKept = true;
};

struct Lanes {
    using Key = std::pair<Duration, std::uint64_t>;
    struct Timer {
        std::shared_ptr<Lane> lane;
        Job job;
    };
    Duration now{};
    std::uint64_t nextTimer = 0;
    std::vector<std::shared_ptr<Lane>> lanes{std::make_shared<Lane>()};  // the main queue is the first
    std::map<Key, Timer> timers;
    std::shared_ptr<Lane> running;
    bool isDropping = false;
    int interruptIn = 0;
    Job interruption;

    void post(Lane& lane, Job job) {
        if (!isDropping) lane.jobs.push_back(std::move(job));
    }
    Key addTimer(std::shared_ptr<Lane> lane, Duration delay, Job job) {
        const Key key(now + delay, nextTimer++);
        if (!isDropping) timers.emplace(key, Timer{std::move(lane), std::move(job)});
        return key;
    }
    void runFirst(const std::shared_ptr<Lane>& lane) {
        const Job job = std::move(lane->jobs.front());
        lane->jobs.pop_front();
        const auto before = std::exchange(running, lane);
        job();
        running = before;
    }
    bool step(std::mt19937_64& random) {
        std::size_t ready = 0;
        for (const auto& lane : lanes) {
            if (!lane->jobs.empty()) ++ready;
        }
        if (ready == 0) return false;
        auto chosen = random() % ready;
        for (const auto& lane : lanes) {
            if (lane->jobs.empty() || chosen-- != 0) continue;
            runFirst(std::shared_ptr<Lane>(lane));
            break;
        }
        std::erase_if(lanes, [](const auto& lane) { return !lane->isKept && lane->jobs.empty(); });
        return true;
    }
    void moveTo(Duration time) {
        now = std::max(now, time);
        while (!timers.empty() && timers.begin()->first.first <= now) {
            auto timer = timers.extract(timers.begin());
            post(*timer.mapped().lane, std::move(timer.mapped().job));
        }
    }
    void runUntil(std::mt19937_64& random, Duration limit) {
        while (true) {
            if (step(random)) {
                if (interruptIn > 0 && --interruptIn == 0) std::exchange(interruption, nullptr)();
                continue;
            }
            if (timers.empty() || timers.begin()->first.first > limit) return;
            moveTo(timers.begin()->first.first);
        }
    }
    void drop() {
        isDropping = true;
        interruptIn = 0;
        auto droppedTimers = std::exchange(timers, {});
        droppedTimers.clear();
        for (const auto& lane : std::vector(lanes)) {
            auto jobs = std::exchange(lane->jobs, {});
            jobs.clear();
        }
        std::erase_if(lanes, [](const auto& lane) { return !lane->isKept; });
        isDropping = false;
    }
};

class DirectQueue final : public SerialQueue {
public:
    explicit DirectQueue(std::shared_ptr<Lanes> lanes) : lanes_(std::move(lanes)) {
        lanes_->lanes.push_back(lane_);
    }
    ~DirectQueue() override {
        lane_->isKept = false;
        std::erase_if(lanes_->timers, [&](const auto& timer) { return timer.second.lane == lane_; });
    }
    void post(Job job) override { lanes_->post(*lane_, std::move(job)); }
    void postAfter(Duration delay, Job job) override { lanes_->addTimer(lane_, delay, std::move(job)); }
    void drain() override {
        if (isCurrent()) return;
        while (!lane_->jobs.empty()) lanes_->runFirst(lane_);
    }
    bool isCurrent() const override { return lanes_->running == lane_; }

private:
    std::shared_ptr<Lanes> lanes_;
    std::shared_ptr<Lane> lane_ = std::make_shared<Lane>();
};

class Direct final : public WorldTime {
public:
    ~Direct() override { lanes_->drop(); }
    TimePoint now() const override { return timeFromSecondsSince1970(begin) + lanes_->now; }
    Duration monotonic() const override { return lanes_->now; }
    bool sleep(Duration, std::stop_token) override {
        VESK_ENSURE(false);  // no worker of such a world has anything to wait for
        return false;
    }
    void post(Job job) override { lanes_->post(*lanes_->lanes.front(), std::move(job)); }
    TimerHandle postAfter(Duration delay, Job job) override {
        // A timer that is cancelled after it came due and before its turn doesn't run either.
        auto held = std::make_shared<Job>(std::move(job));
        const auto key = lanes_->addTimer(lanes_->lanes.front(), delay, [held] {
            if (const auto due = std::exchange(*held, nullptr)) due();
        });
        return TimerHandle([lanes = std::weak_ptr(lanes_), key, waiting = std::weak_ptr(held)] {
            if (auto timer = waiting.lock()) auto dropped = std::exchange(*timer, nullptr);
            if (auto world = lanes.lock()) auto dropped = world->timers.extract(key);
        });
    }
    bool isMainThread() const override {
        return !lanes_->running || lanes_->running == lanes_->lanes.front();
    }
    TaskHandle run(Priority, std::function<void(std::stop_token)> job) override {
        auto stop = freshStopSource();
        auto lane = std::make_shared<Lane>();
        lane->isKept = false;
        lanes_->post(*lane, [job = std::move(job), token = stop.get_token()] { job(token); });
        if (!lane->jobs.empty()) lanes_->lanes.push_back(std::move(lane));
        return TaskHandle(stop);
    }
    std::unique_ptr<SerialQueue> serialQueue(std::string, Priority) override {
        return std::make_unique<DirectQueue>(lanes_);
    }
    void settle() override { lanes_->runUntil(random_, lanes_->now); }
    void advance(Duration duration) override {
        const auto target = lanes_->now + duration;
        lanes_->runUntil(random_, target);
        lanes_->moveTo(target);
    }
    void interruptAfter(int jobs, Job act) override {
        lanes_->interruptIn = jobs;
        lanes_->interruption = std::move(act);
    }
    void dropEverything() override { lanes_->drop(); }
    std::mt19937_64& random() override { return random_; }

private:
    std::shared_ptr<Lanes> lanes_ = std::make_shared<Lanes>();
    std::mt19937_64 random_{1};
};

}  // namespace

std::unique_ptr<WorldTime> WorldTime::make(bool workersSleep) {
    if (workersSleep) return std::make_unique<Suspending>();
    return std::make_unique<Direct>();
}

}  // namespace vesk::simulation
