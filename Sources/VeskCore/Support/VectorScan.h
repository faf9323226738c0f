// The instruction set variants behind VectorMath::CosineScan, apart so that each can be tested and measured.
#pragma once

#include <cstddef>
#include <vector>

namespace vesk::VectorMath {

struct ScanSums {
    double dot = 0;      ///< of query and vector
    double squares = 0;  ///< of the vector with itself
};

struct ScanVariant {
    const char* name;
    /// `vector` points at `count` little-endian floats, unaligned.
    ScanSums (*sums)(const float* query, const unsigned char* vector, std::size_t count);
};

/// What this processor can run, the fastest first; the last needs nothing.
std::vector<ScanVariant> scanVariants();

}  // namespace vesk::VectorMath
