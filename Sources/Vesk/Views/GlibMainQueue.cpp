#include "Vesk/Views/GlibMainQueue.h"

#include <glib.h>

#include <algorithm>
#include <chrono>
#include <utility>

namespace vesk::views {

struct GlibMainQueue::Jobs {
    std::mutex lock;  // guards all below
    std::deque<std::function<void()>> waiting;
    bool isScheduled = false;
    bool isClosed = false;

    void schedule(const std::shared_ptr<Jobs>& self) {
        isScheduled = true;
        g_idle_add_full(
            G_PRIORITY_DEFAULT,
            [](gpointer data) -> gboolean {
                // The job may end the program's queue; the pointer held here keeps what it needs.
                const auto jobs = *static_cast<std::shared_ptr<Jobs>*>(data);
                jobs->runOne(jobs);
                return G_SOURCE_REMOVE;
            },
            new std::shared_ptr<Jobs>(self),
            [](gpointer data) { delete static_cast<std::shared_ptr<Jobs>*>(data); });
    }

    /// One at a time, so that drawing and input come between long queues of jobs.
    void runOne(const std::shared_ptr<Jobs>& self) {
        std::function<void()> job;
        {
            const std::lock_guard guard(lock);
            isScheduled = false;
            if (isClosed || waiting.empty()) return;
            job = std::move(waiting.front());
            waiting.pop_front();
            if (!waiting.empty()) schedule(self);
        }
        job();
    }
};

GlibMainQueue::GlibMainQueue() : mainThread_(std::this_thread::get_id()), jobs_(std::make_shared<Jobs>()) {}

GlibMainQueue::~GlibMainQueue() {
    std::deque<std::function<void()>> dropped;
    const std::lock_guard guard(jobs_->lock);
    jobs_->isClosed = true;
    dropped.swap(jobs_->waiting);
}

void GlibMainQueue::post(std::function<void()> job) {
    const std::lock_guard guard(jobs_->lock);
    if (jobs_->isClosed) return;
    jobs_->waiting.push_back(std::move(job));
    if (!jobs_->isScheduled) jobs_->schedule(jobs_);
}

TimerHandle GlibMainQueue::postAfter(Duration delay, std::function<void()> job) {
    struct Timer {
        std::function<void()> job;
        guint source = 0;
    };
    auto timer = std::make_shared<Timer>(Timer{std::move(job), 0});
    const auto milliseconds = std::chrono::ceil<std::chrono::milliseconds>(std::max(delay, Duration::zero()));
    timer->source = g_timeout_add_full(
        G_PRIORITY_DEFAULT, static_cast<guint>(std::min<long long>(milliseconds.count(), G_MAXINT)),
        [](gpointer data) -> gboolean {
            const auto held = *static_cast<std::shared_ptr<Timer>*>(data);
            held->source = 0;
            const auto run = std::exchange(held->job, nullptr);
            if (run) run();
            return G_SOURCE_REMOVE;
        },
        new std::shared_ptr<Timer>(timer),
        [](gpointer data) { delete static_cast<std::shared_ptr<Timer>*>(data); });
    return TimerHandle([weak = std::weak_ptr<Timer>(timer)] {
        const auto held = weak.lock();
        if (!held) return;
        held->job = nullptr;
        if (const auto source = std::exchange(held->source, 0U)) g_source_remove(source);
    });
}

}  // namespace vesk::views
