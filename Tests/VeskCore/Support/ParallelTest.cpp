#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

#include "VeskCore/Support/Parallel.h"

namespace vesk::test {

namespace {

TEST(ParallelTest, HandsResultsOverInOrderOnTheCallingThreadWithinTheBound) {
    struct {
        std::size_t count, ahead;
        unsigned workers;
    } cases[] = {{0, 1, 1}, {1, 1, 4}, {500, 1, 3}, {500, 4, 1}, {3000, 7, 4}};
    for (const auto& c : cases) {
        std::atomic<std::size_t> made = 0;
        std::atomic<bool> tooFar = false;
        std::size_t taken = 0;
        auto caller = std::this_thread::get_id();
        std::atomic<std::size_t> takenSoFar = 0;
        parallelOrdered<std::unique_ptr<std::size_t>>(
            c.count, c.ahead, c.workers,
            [&](std::size_t i) {
                if (i >= takenSoFar + c.ahead + 1) tooFar = true;
                ++made;
                return std::make_unique<std::size_t>(i * 2);
            },
            [&](std::size_t i, std::unique_ptr<std::size_t> result) {
                EXPECT_EQ(std::this_thread::get_id(), caller);
                EXPECT_EQ(i, taken++);
                EXPECT_EQ(*result, i * 2);
                takenSoFar = i + 1;
            });
        EXPECT_EQ(taken, c.count);
        EXPECT_EQ(made, c.count);
        EXPECT_FALSE(tooFar);
    }
}

TEST(ParallelTest, PassesTheEarliestFailureOnAfterTakingWhatCameBefore) {
    for (unsigned workers : {1U, 4U}) {
        std::size_t taken = 0;
        try {
            parallelOrdered<int>(
                100, 5, workers,
                [](std::size_t i) -> int {
                    if (i == 40 || i == 41) throw std::runtime_error("made " + std::to_string(i));
                    return 0;
                },
                [&](std::size_t, int) { ++taken; });
            ADD_FAILURE() << "nothing thrown";
        } catch (const std::runtime_error& error) {
            EXPECT_STREQ(error.what(), "made 40");
        }
        EXPECT_EQ(taken, 40U);
        EXPECT_THROW(parallelOrdered<int>(
                         100, 5, workers, [](std::size_t) { return 0; },
                         [](std::size_t i, int) {
                             if (i == 10) throw std::out_of_range("taken");
                         }),
                     std::out_of_range);
    }
}

}  // namespace

}  // namespace vesk::test
