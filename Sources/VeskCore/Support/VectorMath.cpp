#include "VeskCore/Support/VectorMath.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>

#include "VeskCore/Support/VectorScan.h"

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace vesk::VectorMath {

double cosine(std::span<const float> a, std::span<const float> b) {
    if (a.size() != b.size()) return 0;
    double dot = 0, normA = 0, normB = 0;
    for (std::size_t i = 0; i < a.size(); ++i) {
        double x = a[i], y = b[i];
        dot += x * y;
        normA += x * x;
        normB += y * y;
    }
    if (normA == 0 || normB == 0) return 0;
    return dot / (std::sqrt(normA) * std::sqrt(normB));
}

namespace {

float elementAt(const unsigned char* bytes, std::size_t index) {
    std::uint32_t bits;
    std::memcpy(&bits, bytes + index * sizeof bits, sizeof bits);
    if constexpr (std::endian::native == std::endian::big) bits = __builtin_bswap32(bits);
    return std::bit_cast<float>(bits);
}

ScanSums plainSums(const float* query, const unsigned char* vector, std::size_t count) {
    constexpr std::size_t kLanes = 4;
    float dot[kLanes] = {}, norm[kLanes] = {};
    std::size_t i = 0;
    for (; i + kLanes <= count; i += kLanes) {
        for (std::size_t lane = 0; lane < kLanes; ++lane) {
            float x = elementAt(vector, i + lane);
            dot[lane] += query[i + lane] * x;
            norm[lane] += x * x;
        }
    }
    for (; i < count; ++i) {
        float x = elementAt(vector, i);
        dot[0] += query[i] * x;
        norm[0] += x * x;
    }
    ScanSums sums;
    for (std::size_t lane = 0; lane < kLanes; ++lane) {
        sums.dot += static_cast<double>(dot[lane]);
        sums.squares += static_cast<double>(norm[lane]);
    }
    return sums;
}

#if defined(__x86_64__)

/// The last elements, fewer than a step of the vector loop.
void addRest(ScanSums& sums, const float* query, const unsigned char* vector, std::size_t from,
             std::size_t count) {
    for (std::size_t i = from; i < count; ++i) {
        double x = static_cast<double>(elementAt(vector, i));
        sums.dot += static_cast<double>(query[i]) * x;
        sums.squares += x * x;
    }
}

// Each variant spells out its own loop: an intrinsic may only stand in a function compiled for its
// instruction set.

ScanSums sse2Sums(const float* query, const unsigned char* vector, std::size_t count) {
    __m128 dot[4], squares[4];
    for (int k = 0; k < 4; ++k) dot[k] = squares[k] = _mm_setzero_ps();
    std::size_t i = 0;
    for (; i + 16 <= count; i += 16) {
        for (std::size_t k = 0; k < 4; ++k) {
            __m128 x = _mm_loadu_ps(reinterpret_cast<const float*>(vector + (i + 4 * k) * sizeof(float)));
            dot[k] = _mm_add_ps(dot[k], _mm_mul_ps(_mm_loadu_ps(query + i + 4 * k), x));
            squares[k] = _mm_add_ps(squares[k], _mm_mul_ps(x, x));
        }
    }
    ScanSums sums;
    alignas(16) float lanes[4];
    for (int k = 0; k < 4; ++k) {
        _mm_store_ps(lanes, dot[k]);
        for (float lane : lanes) sums.dot += static_cast<double>(lane);
        _mm_store_ps(lanes, squares[k]);
        for (float lane : lanes) sums.squares += static_cast<double>(lane);
    }
    addRest(sums, query, vector, i, count);
    return sums;
}

__attribute__((target("avx2,fma"))) ScanSums avx2Sums(const float* query, const unsigned char* vector,
                                                      std::size_t count) {
    __m256 dot[4], squares[4];
    for (int k = 0; k < 4; ++k) dot[k] = squares[k] = _mm256_setzero_ps();
    std::size_t i = 0;
    for (; i + 32 <= count; i += 32) {
        for (std::size_t k = 0; k < 4; ++k) {
            __m256 x = _mm256_loadu_ps(reinterpret_cast<const float*>(vector + (i + 8 * k) * sizeof(float)));
            dot[k] = _mm256_fmadd_ps(_mm256_loadu_ps(query + i + 8 * k), x, dot[k]);
            squares[k] = _mm256_fmadd_ps(x, x, squares[k]);
        }
    }
    ScanSums sums;
    alignas(32) float lanes[8];
    for (int k = 0; k < 4; ++k) {
        _mm256_store_ps(lanes, dot[k]);
        for (float lane : lanes) sums.dot += static_cast<double>(lane);
        _mm256_store_ps(lanes, squares[k]);
        for (float lane : lanes) sums.squares += static_cast<double>(lane);
    }
    addRest(sums, query, vector, i, count);
    return sums;
}

__attribute__((target("avx512f"))) ScanSums avx512Sums(const float* query, const unsigned char* vector,
                                                       std::size_t count) {
    __m512 dot[4], squares[4];
    for (int k = 0; k < 4; ++k) dot[k] = squares[k] = _mm512_setzero_ps();
    std::size_t i = 0;
    for (; i + 64 <= count; i += 64) {
        for (std::size_t k = 0; k < 4; ++k) {
            __m512 x = _mm512_loadu_ps(vector + (i + 16 * k) * sizeof(float));
            dot[k] = _mm512_fmadd_ps(_mm512_loadu_ps(query + i + 16 * k), x, dot[k]);
            squares[k] = _mm512_fmadd_ps(x, x, squares[k]);
        }
    }
    ScanSums sums;
    alignas(64) float lanes[16];
    for (int k = 0; k < 4; ++k) {
        _mm512_store_ps(lanes, dot[k]);
        for (float lane : lanes) sums.dot += static_cast<double>(lane);
        _mm512_store_ps(lanes, squares[k]);
        for (float lane : lanes) sums.squares += static_cast<double>(lane);
    }
    addRest(sums, query, vector, i, count);
    return sums;
}

#endif

}  // namespace

std::vector<ScanVariant> scanVariants() {
    std::vector<ScanVariant> variants{{"plain", plainSums}};
#if defined(__x86_64__)
    variants.insert(variants.begin(), {"SSE2", sse2Sums});
    if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma")) {
        variants.insert(variants.begin(), {"AVX2", avx2Sums});
    }
    if (__builtin_cpu_supports("avx512f")) variants.insert(variants.begin(), {"AVX-512", avx512Sums});
#endif
    return variants;
}

CosineScan::CosineScan(std::span<const float> query) : query_(query.begin(), query.end()) {
    double squares = 0;
    for (float x : query_) squares += static_cast<double>(x) * static_cast<double>(x);
    queryNorm_ = std::sqrt(squares);
}

double CosineScan::operator()(const void* vector, std::size_t count) const {
    static const auto sumsOf = scanVariants().front().sums;
    if (count != query_.size() || queryNorm_ == 0) return 0;
    const auto* bytes = static_cast<const unsigned char*>(vector);
    // In blocks, so that the error of single precision does not grow with the length.
    constexpr std::size_t kBlock = 2048;
    ScanSums total;
    for (std::size_t from = 0; from < count; from += kBlock) {
        auto sums =
            sumsOf(query_.data() + from, bytes + from * sizeof(float), std::min(kBlock, count - from));
        total.dot += sums.dot;
        total.squares += sums.squares;
    }
    // Products of very small or very large elements leave the range of single precision.
    constexpr double kSmallest = 1e-24, kLargest = 1e24;
    double querySquares = queryNorm_ * queryNorm_;
    bool inRange = total.squares > kSmallest && total.squares < kLargest && querySquares > kSmallest &&
                   querySquares < kLargest;
    if (!inRange) {
        std::vector<float> elements(count);
        for (std::size_t i = 0; i < count; ++i) elements[i] = elementAt(bytes, i);
        return cosine(query_, elements);
    }
    return total.dot / (queryNorm_ * std::sqrt(total.squares));
}

}  // namespace vesk::VectorMath
