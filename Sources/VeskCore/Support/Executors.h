// Where work runs: the main thread's queue, background workers, serial queues. Interfaces, and the real ones
// that need nothing but threads. Tests put VirtualTime in their place.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <stop_token>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "VeskCore/Support/Time.h"

namespace vesk {

/// A timer that was asked for. Dropping the handle cancels it; so does cancel(). Belongs to the thread of its
/// queue.
class TimerHandle {
public:
    TimerHandle() = default;
    explicit TimerHandle(std::function<void()> cancel) : cancel_(std::move(cancel)) {}
    TimerHandle(TimerHandle&& other) noexcept : cancel_(std::exchange(other.cancel_, nullptr)) {}
    TimerHandle& operator=(TimerHandle&& other) noexcept;
    ~TimerHandle() { cancel(); }
    void cancel();
    /// Lets the timer run to its end without a handle.
    void detach() { cancel_ = nullptr; }

private:
    std::function<void()> cancel_;
};

/// The queue of the one main thread, which owns the session objects.
class MainQueue {
public:
    virtual ~MainQueue() = default;
    /// Runs the job on the main thread, after everything posted before. From any thread.
    virtual void post(std::function<void()> job) = 0;
    /// Runs the job on the main thread once `delay` has passed. Main thread only.
    [[nodiscard]] virtual TimerHandle postAfter(Duration delay, std::function<void()> job) = 0;
    virtual bool isMainThread() const = 0;
};

enum class Priority { background, utility, userInitiated };

/// A new source of stops, for those who run jobs.
std::stop_source freshStopSource();

/// A running or waiting job. Copies share it; dropping the handle does not stop the job.
class TaskHandle {
public:
    TaskHandle() = default;
    explicit TaskHandle(std::stop_source source) : source_(std::move(source)), valid_(true) {}
    /// Asks the job to stop through its stop_token. Never waits. A job that has not begun still runs and sees
    /// the stop, so that whatever it owes its caller is settled in one place.
    void cancel() { source_.request_stop(); }
    bool cancelled() const { return source_.stop_requested(); }
    explicit operator bool() const { return valid_; }

private:
    std::stop_source source_{std::nostopstate};
    bool valid_ = false;
};

/// A queue that runs its jobs one at a time, in order, off the main thread.
class SerialQueue {
public:
    virtual ~SerialQueue() = default;
    /// From any thread.
    virtual void post(std::function<void()> job) = 0;
    virtual void postAfter(Duration delay, std::function<void()> job) = 0;
    /// Blocks until everything posted before has run; returns at once when called from this queue. A delayed
    /// job counts from when its delay has passed.
    virtual void drain() = 0;
    virtual bool isCurrent() const = 0;
};

/// Workers for everything that blocks or takes long.
class Background {
public:
    virtual ~Background() = default;
    /// Runs the job on some worker. The job catches its own failures: one that escapes ends the process. From
    /// any thread.
    virtual TaskHandle run(Priority priority, std::function<void(std::stop_token)> job) = 0;
    /// A new serial queue; `label` is for debugging. Dropping it lets posted jobs end, without waiting for
    /// them, and drops delayed ones.
    virtual std::unique_ptr<SerialQueue> serialQueue(std::string label, Priority priority) = 0;
};

/// A main queue that a program without a toolkit runs itself.
class RunLoop final : public MainQueue {
public:
    /// The constructing thread becomes the main thread.
    RunLoop();
    void post(std::function<void()> job) override;
    [[nodiscard]] TimerHandle postAfter(Duration delay, std::function<void()> job) override;
    bool isMainThread() const override;

    /// Runs jobs until quit() is called; returns at once if it was called before.
    void run();
    /// Runs jobs until `done` is true, `timeout` has passed or quit() is called; returns done().
    bool runUntil(const std::function<bool()>& done, Duration timeout);
    /// From any thread.
    void quit();

private:
    using Timers = std::multimap<Duration, std::function<void()>>;  // by due time on the monotonic clock
    void runOnce(Duration longestWait);
    bool quitting();

    std::thread::id mainThread_;
    std::mutex queueLock_;  // guards jobs_ and quit_
    std::condition_variable wake_;
    std::deque<std::function<void()>> jobs_;
    bool quit_ = false;
    std::shared_ptr<Timers> timers_ =
        std::make_shared<Timers>();  // main thread only; handles may outlive the loop
};

/// A pool of threads, lower priorities waiting behind higher ones. A serial queue takes one worker at a time,
/// a turn for each job, so that a busy one keeps nobody else out.
class ThreadPool final : public Background {
public:
    explicit ThreadPool(unsigned threads);
    /// Asks every running job to stop and waits for them; jobs that wait are dropped.
    ~ThreadPool() override;
    TaskHandle run(Priority priority, std::function<void(std::stop_token)> job) override;
    std::unique_ptr<SerialQueue> serialQueue(std::string label, Priority priority) override;

private:
    struct State;
    friend class PoolSerialQueue;
    std::shared_ptr<State> state_;
    std::vector<std::jthread> workers_;
};

}  // namespace vesk
