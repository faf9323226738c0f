// Time and threads of a simulated world, drawn from a seed: VirtualTime where a worker may sleep, and where
// none does a much faster one that runs every job to its end on one stack.
#pragma once

#include <memory>
#include <random>

#include "VeskCore/Support/Executors.h"
#include "VeskCore/Support/Time.h"

namespace vesk::simulation {

class WorldTime : public Clock, public MainQueue, public Background {
public:
    static std::unique_ptr<WorldTime> make(bool workersSleep);

    /// Runs what is ready now.
    virtual void settle() = 0;
    virtual void advance(Duration duration) = 0;
    /// Drops everything that waits, as a crash does.
    virtual void dropEverything() = 0;
    /// Something that happens after so many jobs from now, whatever waits then; 0: nothing any more.
    virtual void interruptAfter(int, std::function<void()>) {}
    virtual std::mt19937_64& random() = 0;
};

}  // namespace vesk::simulation
