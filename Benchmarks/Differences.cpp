// The comparison of a rewrite with its note, at the two sizes beyond which it is coarse and far beyond them:
// the worst texts for it, whose pieces all stand on both sides in another order.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "VeskCore/Brain/WordDiff.h"

namespace {

using namespace vesk;

/// So many pieces, and the same in a random order.
std::pair<std::string, std::string> shuffled(std::size_t count, std::string_view separator) {
    std::vector<std::string> pieces;
    for (std::size_t i = 0; i < count; ++i)
        pieces.push_back("piece" + std::to_string(i) + std::string(separator));
    std::pair<std::string, std::string> sides;
    for (const auto& piece : pieces) sides.first += piece;
    std::shuffle(pieces.begin(), pieces.end(), std::mt19937(1));
    for (const auto& piece : pieces) sides.second += piece;
    return sides;
}

void compare(benchmark::State& state, const std::pair<std::string, std::string>& sides) {
    for (auto _ : state) benchmark::DoNotOptimize(WordDiff::compare(sides.first, sides.second));
    state.SetBytesProcessed(state.iterations() *
                            static_cast<std::int64_t>(sides.first.size() + sides.second.size()));
    state.SetComplexityN(state.range(0));
}

/// Lines on each side; up to 2,000 they are lined up.
void CompareLines(benchmark::State& state) {
    compare(state, shuffled(static_cast<std::size_t>(state.range(0)), "\n"));
}
BENCHMARK(CompareLines)->Arg(1'000)->Arg(2'000)->Arg(2'001)->Arg(100'000)->Unit(benchmark::kMillisecond);

/// Words on each side; up to 500, with the blanks between them, they are lined up.
void CompareWords(benchmark::State& state) {
    compare(state, shuffled(static_cast<std::size_t>(state.range(0)), " "));
}
BENCHMARK(CompareWords)->Arg(250)->Arg(500)->Arg(501)->Arg(1'000'000)->Unit(benchmark::kMillisecond);

}  // namespace
