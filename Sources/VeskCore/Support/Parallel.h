// Work spread over threads within one blocking call, its results taken in order.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <utility>
#include <vector>

namespace vesk {

/// As many workers as the processor runs at once, within reason.
unsigned parallelWorkers();

/// Calls `make(i)` for every i below `count` on worker threads and `take(i)` on the calling thread, in order,
/// each after its `make`. At most `ahead` results exist that haven't been taken. What either throws ends the
/// whole: the workers finish what they have begun, and the exception of the earliest i, or that of `take`,
/// goes on from here.
void runOrdered(std::size_t count, std::size_t ahead, unsigned workers,
                const std::function<void(std::size_t)>& make, const std::function<void(std::size_t)>& take);

/// The same with the results handed over: `make(i)` gives a Result, `take(i, Result)` gets it.
template <class Result, class Make, class Take>
void parallelOrdered(std::size_t count, std::size_t ahead, unsigned workers, Make&& make, Take&& take) {
    std::vector<std::optional<Result>> slots(ahead);
    runOrdered(
        count, ahead, workers, [&](std::size_t i) { slots[i % ahead].emplace(make(i)); },
        [&](std::size_t i) {
            Result result = std::move(*slots[i % ahead]);
            slots[i % ahead].reset();
            take(i, std::move(result));
        });
}

}  // namespace vesk
