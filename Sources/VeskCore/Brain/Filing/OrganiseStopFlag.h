// How the person's stop reaches a pass of the organiser that runs on a worker.
#pragma once

#include <atomic>

namespace vesk {

/// Any thread. Once raised, for good.
class OrganiseStopFlag {
public:
    void raise() { isRaised_.store(true); }
    bool isRaised() const { return isRaised_.load(); }

private:
    std::atomic<bool> isRaised_ = false;
};

}  // namespace vesk
