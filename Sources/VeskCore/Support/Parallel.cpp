#include "VeskCore/Support/Parallel.h"

#include <algorithm>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <thread>

#include "VeskCore/Support/Ensure.h"

namespace vesk {

namespace {

/// What the workers and the calling thread share.
class Progress {
public:
    Progress(std::size_t count, std::size_t ahead) : count_(count), states_(ahead) {}

    void work(const std::function<void(std::size_t)>& make) {
        while (auto i = claim()) {
            std::exception_ptr failure;
            try {
                make(*i);
            } catch (...) {
                failure = std::current_exception();
            }
            std::lock_guard guard(lock_);
            State& state = states_[*i % states_.size()];
            state.made = true;
            state.failure = failure;
            if (*i == taken_) madeNext_.notify_one();
        }
    }

    void awaitMade(std::size_t i) {
        std::unique_lock guard(lock_);
        State& state = states_[i % states_.size()];
        madeNext_.wait(guard, [&] { return state.made; });
        if (state.failure) std::rethrow_exception(state.failure);
    }

    void taken(std::size_t i) {
        std::lock_guard guard(lock_);
        states_[i % states_.size()] = {};
        taken_ = i + 1;
        room_.notify_one();
    }

    void stop() {
        std::lock_guard guard(lock_);
        stopped_ = true;
        room_.notify_all();
    }

private:
    struct State {
        bool made = false;
        std::exception_ptr failure;
    };

    std::optional<std::size_t> claim() {
        std::unique_lock guard(lock_);
        room_.wait(guard,
                   [&] { return stopped_ || claimed_ >= count_ || claimed_ < taken_ + states_.size(); });
        if (stopped_ || claimed_ >= count_) return std::nullopt;
        std::size_t i = claimed_++;
        if (claimed_ >= count_) room_.notify_all();  // nothing is left for those who wait
        return i;
    }

    const std::size_t count_;
    std::mutex lock_;  // guards everything below
    std::condition_variable madeNext_, room_;
    std::vector<State> states_;  // by number, modulo its size
    std::size_t claimed_ = 0, taken_ = 0;
    bool stopped_ = false;
};

/// Ends the workers on every way out, before their threads are joined.
class StopAtEnd {
public:
    explicit StopAtEnd(Progress& progress) : progress_(progress) {}
    ~StopAtEnd() { progress_.stop(); }
    StopAtEnd(const StopAtEnd&) = delete;
    StopAtEnd& operator=(const StopAtEnd&) = delete;

private:
    Progress& progress_;
};

}  // namespace

unsigned parallelWorkers() {
    return std::clamp(std::thread::hardware_concurrency(), 1U, 4U);
}

void runOrdered(std::size_t count, std::size_t ahead, unsigned workers,
                const std::function<void(std::size_t)>& make, const std::function<void(std::size_t)>& take) {
    VESK_ENSURE(ahead > 0 && workers > 0);
    Progress progress(count, ahead);
    std::vector<std::jthread> threads;
    StopAtEnd stopAtEnd(progress);
    for (std::size_t i = 0; i < std::min<std::size_t>(workers, count); ++i) {
        threads.emplace_back([&] { progress.work(make); });
    }
    for (std::size_t i = 0; i < count; ++i) {
        progress.awaitMade(i);
        take(i);
        progress.taken(i);
    }
}

}  // namespace vesk
