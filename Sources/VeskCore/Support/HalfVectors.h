// Vectors in half precision (IEEE 754 binary16): half the memory, and twice the speed of a pass over many of
// them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace vesk::VectorMath {

/// The distance of an approximate cosine of unit vectors, one of them in half precision, from the exact one:
/// no element is further from its own value than its 2048th part.
inline constexpr double halfPrecisionError = 6e-4;

/// To the nearest half float, ties to even.
std::uint16_t halfOf(float value);
float floatOf(std::uint16_t half);

/// Instruction set variants, apart so that each can be tested and measured.
struct HalfVariant {
    const char* name;
    void (*narrow)(const float* values, std::size_t count, std::uint16_t* halves);
    /// The dot products of the query with `count` vectors of its size that lie one after another.
    void (*dots)(const float* query, std::size_t size, const std::uint16_t* vectors, std::size_t count,
                 float* results);
};

/// What this processor can run, the fastest first; the last needs nothing.
std::vector<HalfVariant> halfVariants();
/// The first of them.
const HalfVariant& halfVectors();

}  // namespace vesk::VectorMath
