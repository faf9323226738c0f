// For processors with AVX-512F.
#if defined(__x86_64__)
#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "VeskLinux/SentenceModel/Kernels.h"

namespace {

constexpr std::size_t lanes = 16, tileRows = 12;
typedef float Floats __attribute__((vector_size(64)));

inline Floats loadHalves(const std::uint16_t* from) {
    __m256i halves;
    __builtin_memcpy(&halves, from, sizeof halves);
    // By mask: the plain form makes GCC 12 warn of the value that it leaves open.
    const __m512 wide = _mm512_maskz_cvtph_ps(0xFFFF, halves);
    Floats value;
    __builtin_memcpy(&value, &wide, sizeof value);
    return value;
}

}  // namespace

#include "VeskLinux/SentenceModel/KernelBody.h"

namespace vesk::sentencemodel {

const Kernels avx512Kernels{"AVX-512", widen, layerNorm, product, attention};

}  // namespace vesk::sentencemodel
#endif
