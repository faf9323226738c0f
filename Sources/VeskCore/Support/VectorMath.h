// Arithmetic on embedding vectors.
#pragma once

#include <cstddef>
#include <span>
#include <vector>

namespace vesk::VectorMath {

/// The cosine of two vectors, each element widened to double before it is multiplied and summed. 0 if they
/// are empty, differ in length, or either has no length.
double cosine(std::span<const float> a, std::span<const float> b);

/// The cosine of a prepared query with many vectors at the speed of memory. Picks the widest instruction set
/// the processor has, once. Sums in single precision with several accumulators: equal to cosine() within
/// 1e-6.
class CosineScan {
public:
    explicit CosineScan(std::span<const float> query);
    /// `vector` may be unaligned: it points at count little-endian 32-bit floats, as a BLOB holds them. 0 if
    /// `count` differs from the query's length or either has no length.
    double operator()(const void* vector, std::size_t count) const;

private:
    std::vector<float> query_;
    double queryNorm_ = 0;
};

}  // namespace vesk::VectorMath
