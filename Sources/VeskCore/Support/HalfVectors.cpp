#include "VeskCore/Support/HalfVectors.h"

#include <bit>

#if defined(__x86_64__)
#include <cpuid.h>
#include <immintrin.h>
#endif

namespace vesk::VectorMath {

std::uint16_t halfOf(float value) {
    const auto bits = std::bit_cast<std::uint32_t>(value);
    const auto sign = static_cast<std::uint16_t>((bits >> 16) & 0x8000U);
    const std::uint32_t magnitude = bits & 0x7fffffffU;
    if (magnitude > 0x7f800000U) return static_cast<std::uint16_t>(sign | 0x7e00U);   // no number
    if (magnitude >= 0x477ff000U) return static_cast<std::uint16_t>(sign | 0x7c00U);  // beyond the largest
    if (magnitude < 0x38800000U) {
        // Subnormal: adding a half brings the bits that stay to the end, rounded.
        const float shifted = std::bit_cast<float>(magnitude) + 0.5F;
        return static_cast<std::uint16_t>(sign | (std::bit_cast<std::uint32_t>(shifted) - 0x3f000000U));
    }
    const std::uint32_t odd = (magnitude >> 13) & 1U;
    return static_cast<std::uint16_t>(sign | ((magnitude - 0x38000000U + 0xfffU + odd) >> 13));
}

float floatOf(std::uint16_t half) {
    const std::uint32_t magnitude = half & 0x7fffU, sign = (half & 0x8000U) << 16;
    if (magnitude >= 0x7c00U) return std::bit_cast<float>(sign | 0x7f800000U | ((magnitude & 0x3ffU) << 13));
    // The exponent, read as a float's, is too small by 2^112 for normal and subnormal numbers alike.
    const float value = std::bit_cast<float>(magnitude << 13) * 0x1p112F;
    return std::bit_cast<float>(std::bit_cast<std::uint32_t>(value) | sign);
}

namespace {

void plainNarrow(const float* values, std::size_t count, std::uint16_t* halves) {
    for (std::size_t i = 0; i < count; ++i) halves[i] = halfOf(values[i]);
}

void plainDots(const float* query, std::size_t size, const std::uint16_t* vectors, std::size_t count,
               float* results) {
    constexpr std::size_t lanes = 8;
    for (std::size_t row = 0; row < count; ++row, vectors += size) {
        float sums[lanes] = {};
        std::size_t i = 0;
        for (; i + lanes <= size; i += lanes) {
            for (std::size_t lane = 0; lane < lanes; ++lane) {
                // No infinity is among them, so that the short way of floatOf() serves.
                const std::uint32_t half = vectors[i + lane];
                const float value = std::bit_cast<float>((half & 0x7fffU) << 13) * 0x1p112F;
                const float sign = (half & 0x8000U) != 0 ? -1.0F : 1.0F;
                sums[lane] += query[i + lane] * value * sign;
            }
        }
        for (; i < size; ++i) sums[0] += query[i] * floatOf(vectors[i]);
        float total = 0;
        for (const float sum : sums) total += sum;
        results[row] = total;
    }
}

#if defined(__x86_64__)

bool convertsHalfFloats() {
    unsigned a = 0, b = 0, c = 0, d = 0;
    return __get_cpuid(1, &a, &b, &c, &d) != 0 && (c & bit_F16C) != 0;
}

// Each variant spells out its own loop: an intrinsic may only stand in a function compiled for its
// instruction set.

__attribute__((target("avx2,fma,f16c"))) void avx2Narrow(const float* values, std::size_t count,
                                                         std::uint16_t* halves) {
    std::size_t i = 0;
    for (; i + 8 <= count; i += 8) {
        const __m128i narrow = _mm256_cvtps_ph(_mm256_loadu_ps(values + i), _MM_FROUND_TO_NEAREST_INT);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(halves + i), narrow);
    }
    for (; i < count; ++i) halves[i] = halfOf(values[i]);
}

__attribute__((target("avx2,fma,f16c"))) void avx2Dots(const float* query, std::size_t size,
                                                       const std::uint16_t* vectors, std::size_t count,
                                                       float* results) {
    for (std::size_t row = 0; row < count; ++row, vectors += size) {
        __m256 sums[4];
        for (auto& sum : sums) sum = _mm256_setzero_ps();
        std::size_t i = 0;
        for (; i + 32 <= size; i += 32) {
            for (std::size_t k = 0; k < 4; ++k) {
                const auto* at = reinterpret_cast<const __m128i*>(vectors + i + 8 * k);
                sums[k] = _mm256_fmadd_ps(_mm256_loadu_ps(query + i + 8 * k),
                                          _mm256_cvtph_ps(_mm_loadu_si128(at)), sums[k]);
            }
        }
        alignas(32) float lanes[8];
        _mm256_store_ps(lanes,
                        _mm256_add_ps(_mm256_add_ps(sums[0], sums[1]), _mm256_add_ps(sums[2], sums[3])));
        float total = 0;
        for (const float lane : lanes) total += lane;
        for (; i < size; ++i) total += query[i] * floatOf(vectors[i]);
        results[row] = total;
    }
}

__attribute__((target("avx512f"))) void avx512Dots(const float* query, std::size_t size,
                                                   const std::uint16_t* vectors, std::size_t count,
                                                   float* results) {
    for (std::size_t row = 0; row < count; ++row, vectors += size) {
        __m512 sums[4];
        for (auto& sum : sums) sum = _mm512_setzero_ps();
        std::size_t i = 0;
        for (; i + 64 <= size; i += 64) {
            for (std::size_t k = 0; k < 4; ++k) {
                const auto* at = reinterpret_cast<const __m256i*>(vectors + i + 16 * k);
                // By mask: the plain form makes GCC 12 warn of the value that it leaves open.
                sums[k] = _mm512_fmadd_ps(_mm512_loadu_ps(query + i + 16 * k),
                                          _mm512_maskz_cvtph_ps(0xFFFF, _mm256_loadu_si256(at)), sums[k]);
            }
        }
        alignas(64) float lanes[16];
        _mm512_store_ps(lanes,
                        _mm512_add_ps(_mm512_add_ps(sums[0], sums[1]), _mm512_add_ps(sums[2], sums[3])));
        float total = 0;
        for (const float lane : lanes) total += lane;
        for (; i < size; ++i) total += query[i] * floatOf(vectors[i]);
        results[row] = total;
    }
}

#endif

}  // namespace

std::vector<HalfVariant> halfVariants() {
    std::vector<HalfVariant> variants;
#if defined(__x86_64__)
    if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma") && convertsHalfFloats()) {
        if (__builtin_cpu_supports("avx512f")) variants.push_back({"AVX-512", avx2Narrow, avx512Dots});
        variants.push_back({"AVX2", avx2Narrow, avx2Dots});
    }
#endif
    variants.push_back({"plain", plainNarrow, plainDots});
    return variants;
}

const HalfVariant& halfVectors() {
    static const HalfVariant fastest = halfVariants().front();
    return fastest;
}

}  // namespace vesk::VectorMath
