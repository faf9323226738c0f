// For processors with AVX2, FMA and F16C.
#if defined(__x86_64__)
#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "VeskLinux/SentenceModel/Kernels.h"

namespace {

constexpr std::size_t lanes = 8, tileRows = 6;
typedef float Floats __attribute__((vector_size(32)));

inline Floats loadHalves(const std::uint16_t* from) {
    __m128i halves;
    __builtin_memcpy(&halves, from, sizeof halves);
    const __m256 wide = _mm256_cvtph_ps(halves);
    Floats value;
    __builtin_memcpy(&value, &wide, sizeof value);
    return value;
}

}  // namespace

#include "VeskLinux/SentenceModel/KernelBody.h"

namespace vesk::sentencemodel {

const Kernels avx2Kernels{"AVX2", widen, layerNorm, product, attention};

}  // namespace vesk::sentencemodel
#endif
