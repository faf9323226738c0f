// The main queue on GLib's default main context.
#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

#include "VeskCore/Support/Executors.h"

namespace vesk::views {

/// Made by the main thread before any worker starts. What is still posted when it goes is dropped.
class GlibMainQueue final : public MainQueue {
public:
    GlibMainQueue();
    ~GlibMainQueue() override;
    void post(std::function<void()> job) override;
    [[nodiscard]] TimerHandle postAfter(Duration delay, std::function<void()> job) override;
    bool isMainThread() const override { return std::this_thread::get_id() == mainThread_; }

private:
    struct Jobs;
    const std::thread::id mainThread_;
    std::shared_ptr<Jobs> jobs_;
};

}  // namespace vesk::views
