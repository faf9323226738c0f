#include "VeskCore/Support/Executors.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <optional>
#include <variant>

#include "VeskCore/Support/Ensure.h"

namespace vesk {

namespace {

using SteadyTime = std::chrono::steady_clock::time_point;

/// Longer waits would overflow a deadline.
constexpr Duration kLongestWait = std::chrono::hours(24 * 365 * 100);

Duration bounded(Duration duration) {
    return std::clamp(duration, Duration::zero(), kLongestWait);
}

Duration monotonicNow() {
    return std::chrono::floor<Duration>(std::chrono::steady_clock::now().time_since_epoch());
}

}  // namespace

TimerHandle& TimerHandle::operator=(TimerHandle&& other) noexcept {
    if (this != &other) {
        cancel();
        cancel_ = std::exchange(other.cancel_, nullptr);
    }
    return *this;
}

void TimerHandle::cancel() {
    if (auto cancel = std::exchange(cancel_, nullptr)) cancel();
}

// GCC 12 takes the constructor of std::stop_source, which hands its own address on, for a use of it.
#pragma GCC diagnostic push
#if !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif

std::stop_source freshStopSource() {
    return {};
}

#pragma GCC diagnostic pop

// RunLoop

RunLoop::RunLoop() : mainThread_(std::this_thread::get_id()) {}

void RunLoop::post(std::function<void()> job) {
    {
        std::lock_guard held(queueLock_);
        jobs_.push_back(std::move(job));
    }
    wake_.notify_one();
}

TimerHandle RunLoop::postAfter(Duration delay, std::function<void()> job) {
    VESK_ENSURE(isMainThread());
    auto timer = timers_->emplace(monotonicNow() + bounded(delay), std::move(job));
    // The place alone does not tell whether the timer still waits there: once fired, the node belongs to
    // nobody.
    auto waiting = std::make_shared<bool>(true);
    timer->second = [waiting, job = std::move(timer->second)] {
        *waiting = false;
        job();
    };
    return TimerHandle(
        [weak = std::weak_ptr<Timers>(timers_), waiting = std::weak_ptr<bool>(waiting), timer] {
            auto timers = weak.lock();
            auto stillWaiting = waiting.lock();
            if (!timers || !stillWaiting || !*stillWaiting) return;
            auto dropped = timers->extract(timer);
        });
}

bool RunLoop::isMainThread() const {
    return std::this_thread::get_id() == mainThread_;
}

void RunLoop::run() {
    while (!quitting()) runOnce(kLongestWait);
    std::lock_guard held(queueLock_);
    quit_ = false;
}

bool RunLoop::runUntil(const std::function<bool()>& done, Duration timeout) {
    const auto deadline = monotonicNow() + bounded(timeout);
    while (!done()) {
        auto now = monotonicNow();
        if (now >= deadline || quitting()) return done();
        runOnce(deadline - now);
    }
    return true;
}

void RunLoop::quit() {
    {
        std::lock_guard held(queueLock_);
        quit_ = true;
    }
    wake_.notify_one();
}

bool RunLoop::quitting() {
    std::lock_guard held(queueLock_);
    return quit_;
}

/// Waits until there is something to do, then runs at most one timer and one job, so that neither kind can
/// keep the other from its turn.
void RunLoop::runOnce(Duration longestWait) {
    auto wait = longestWait;
    if (!timers_->empty()) wait = std::min(wait, timers_->begin()->first - monotonicNow());
    {
        std::unique_lock held(queueLock_);
        wake_.wait_for(held, bounded(wait), [this] { return !jobs_.empty() || quit_; });
        if (quit_) return;
    }
    if (!timers_->empty() && timers_->begin()->first <= monotonicNow()) {
        auto timer = timers_->extract(timers_->begin());
        timer.mapped()();
    }
    std::function<void()> job;
    {
        std::lock_guard held(queueLock_);
        if (quit_ || jobs_.empty()) return;
        job = std::move(jobs_.front());
        jobs_.pop_front();
    }
    job();
}

// ThreadPool

namespace {

/// The state of one serial queue, shared by its handle, its jobs that wait and the worker that runs one.
struct PoolQueue {
    PoolQueue(std::string name, Priority itsPriority) : label(std::move(name)), priority(itsPriority) {}
    const std::string label;
    const Priority priority;
    // Under the pool's lock:
    std::deque<std::function<void()>> jobs;
    bool running = false;
    std::uint64_t posted = 0, ended = 0;
};

thread_local const PoolQueue* currentQueue = nullptr;
thread_local const void* currentPool = nullptr;

}  // namespace

struct ThreadPool::State {
    struct Job {
        std::function<void(std::stop_token)> body;
        std::stop_source stop;
    };
    /// A job of its own, or a turn for a serial queue.
    using Work = std::variant<Job, std::shared_ptr<PoolQueue>>;
    struct Delayed {
        std::shared_ptr<PoolQueue> queue;
        std::function<void()> job;
    };

    std::mutex lock;  // guards everything below and the serial queues' state
    std::condition_variable workWaits;
    std::condition_variable jobEnded;
    std::array<std::deque<Work>, 3> waiting;  // by priority
    std::multimap<SteadyTime, Delayed> delayed;
    std::vector<std::stop_source> running;
    bool stopping = false;

    std::deque<Work>& queueOf(Priority priority) { return waiting[static_cast<std::size_t>(priority)]; }

    /// Lock held. Notifies of the new work.
    void enqueue(const std::shared_ptr<PoolQueue>& queue, std::function<void()> job) {
        queue->jobs.push_back(std::move(job));
        ++queue->posted;
        // A queue that has jobs waits for exactly one turn, or is running.
        if (queue->jobs.size() == 1 && !queue->running) {
            queueOf(queue->priority).emplace_back(queue);
            workWaits.notify_one();
        }
    }

    /// Lock held. Moves delayed jobs whose time has come to their queues.
    void releaseDelayed() {
        auto now = std::chrono::steady_clock::now();
        while (!delayed.empty() && delayed.begin()->first <= now) {
            auto entry = delayed.extract(delayed.begin());
            enqueue(entry.mapped().queue, std::move(entry.mapped().job));
        }
    }

    /// Lock held.
    std::optional<Work> takeWork() {
        for (auto priority = waiting.rbegin(); priority != waiting.rend(); ++priority) {
            if (priority->empty()) continue;
            Work work = std::move(priority->front());
            priority->pop_front();
            return work;
        }
        return {};
    }

    /// The jobs to be told to stop.
    std::vector<std::stop_source> stop() {
        {
            std::lock_guard held(lock);
            stopping = true;
        }
        workWaits.notify_all();
        jobEnded.notify_all();
        dropWaiting();
        std::lock_guard held(lock);
        return running;
    }

    /// Destroys what waits, without the lock: a job may own anything, its own queue too.
    void dropWaiting() {
        std::vector<std::deque<std::function<void()>>> dropped;
        decltype(waiting) work;
        decltype(delayed) timers;
        std::lock_guard held(lock);
        waiting.swap(work);
        delayed.swap(timers);
        for (auto& queue : work) {
            for (auto& entry : queue) {
                if (auto* turn = std::get_if<std::shared_ptr<PoolQueue>>(&entry)) {
                    dropped.push_back(std::exchange((*turn)->jobs, {}));
                }
            }
        }
    }

    void work() {
        currentPool = this;
        std::unique_lock held(lock);
        while (!stopping) {
            releaseDelayed();
            if (auto work = takeWork()) {
                if (auto* job = std::get_if<Job>(&*work)) {
                    runJob(std::move(*job), held);
                } else {
                    runTurn(std::get<std::shared_ptr<PoolQueue>>(*work), held);
                }
            } else if (delayed.empty()) {
                workWaits.wait(held);
            } else {
                workWaits.wait_until(held, SteadyTime(delayed.begin()->first));
            }
        }
    }

    void runJob(Job job, std::unique_lock<std::mutex>& held) {
        running.push_back(job.stop);
        held.unlock();
        job.body(job.stop.get_token());
        job.body = nullptr;
        held.lock();
        running.erase(std::find(running.begin(), running.end(), job.stop));
    }

    /// Runs the first job of a queue and gives it another turn if it has more.
    void runTurn(const std::shared_ptr<PoolQueue>& queue, std::unique_lock<std::mutex>& held) {
        // A drain on another worker may have run the queue empty meanwhile.
        if (queue->running || queue->jobs.empty()) return;
        auto job = std::move(queue->jobs.front());
        queue->jobs.pop_front();
        queue->running = true;
        const auto* outer = std::exchange(currentQueue, queue.get());
        held.unlock();
        job();
        job = nullptr;
        held.lock();
        currentQueue = outer;
        queue->running = false;
        ++queue->ended;
        if (!queue->jobs.empty()) {
            queueOf(queue->priority).emplace_back(queue);
            workWaits.notify_one();
        }
        jobEnded.notify_all();
    }
};

class PoolSerialQueue final : public SerialQueue {
public:
    PoolSerialQueue(std::shared_ptr<ThreadPool::State> state, std::string label, Priority priority)
        : state_(std::move(state)), queue_(std::make_shared<PoolQueue>(std::move(label), priority)) {}

    ~PoolSerialQueue() override {
        std::vector<std::function<void()>> dropped;  // destroyed without the lock
        std::lock_guard held(state_->lock);
        for (auto entry = state_->delayed.begin(); entry != state_->delayed.end();) {
            auto next = std::next(entry);
            if (entry->second.queue == queue_) {
                dropped.push_back(std::move(entry->second.job));
                state_->delayed.erase(entry);
            }
            entry = next;
        }
    }

    void post(std::function<void()> job) override {
        std::lock_guard held(state_->lock);
        if (!state_->stopping) state_->enqueue(queue_, std::move(job));
    }

    void postAfter(Duration delay, std::function<void()> job) override {
        {
            std::lock_guard held(state_->lock);
            if (state_->stopping) return;
            auto due = std::chrono::steady_clock::now() + bounded(delay);
            state_->delayed.emplace(due, ThreadPool::State::Delayed{queue_, std::move(job)});
        }
        // One worker has to wait for the new deadline instead of a later one.
        state_->workWaits.notify_one();
    }

    void drain() override {
        if (isCurrent()) return;
        std::unique_lock held(state_->lock);
        const auto last = queue_->posted;
        while (queue_->ended < last && !state_->stopping) {
            if (currentPool == state_.get() && !queue_->running) {
                // This thread is a worker: with all others busy nobody else would run what it waits for.
                state_->runTurn(queue_, held);
            } else {
                state_->jobEnded.wait(held);
            }
        }
    }

    bool isCurrent() const override { return currentQueue == queue_.get(); }

private:
    std::shared_ptr<ThreadPool::State> state_;
    std::shared_ptr<PoolQueue> queue_;
};

ThreadPool::ThreadPool(unsigned threads) : state_(std::make_shared<State>()) {
    threads = std::max(threads, 1U);
    workers_.reserve(threads);
    for (unsigned i = 0; i < threads; ++i) {
        workers_.emplace_back([state = state_] { state->work(); });
    }
}

ThreadPool::~ThreadPool() {
    auto running = state_->stop();
    for (auto& job : running) job.request_stop();
    workers_.clear();
    // A serial queue whose job has just ended has asked for its next turn.
    state_->dropWaiting();
}

TaskHandle ThreadPool::run(Priority priority, std::function<void(std::stop_token)> job) {
    auto stop = freshStopSource();
    std::lock_guard held(state_->lock);
    if (!state_->stopping) {
        state_->queueOf(priority).emplace_back(State::Job{std::move(job), stop});
        state_->workWaits.notify_one();
    }
    return TaskHandle(stop);
}

std::unique_ptr<SerialQueue> ThreadPool::serialQueue(std::string label, Priority priority) {
    return std::make_unique<PoolSerialQueue>(state_, std::move(label), priority);
}

}  // namespace vesk
