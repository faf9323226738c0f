// For any processor: SSE2 on x86-64, NEON on arm64, by the compiler.
#include <cstddef>
#include <cstdint>

#include "VeskLinux/SentenceModel/Kernels.h"

namespace {

constexpr std::size_t lanes = 4, tileRows = 6;
typedef float Floats __attribute__((vector_size(16)));

inline Floats loadHalves(const std::uint16_t* from) {
    typedef std::uint16_t Halves __attribute__((vector_size(8)));
    typedef std::uint32_t Words __attribute__((vector_size(16)));
    Halves halves;
    __builtin_memcpy(&halves, from, sizeof halves);
    const Words words = __builtin_convertvector(halves, Words);
    // The exponent, read as a float's, is too small by 2^112 for normal and subnormal numbers alike.
    const Words magnitude = (words & 0x7fffU) << 13;
    Floats value;
    __builtin_memcpy(&value, &magnitude, sizeof value);
    value *= 0x1p112F;
    Words bits;
    __builtin_memcpy(&bits, &value, sizeof bits);
    bits |= (words & 0x8000U) << 16;
    __builtin_memcpy(&value, &bits, sizeof value);
    return value;
}

}  // namespace

#include "VeskLinux/SentenceModel/KernelBody.h"

namespace vesk::sentencemodel {

const Kernels plainKernels{"plain", widen, layerNorm, product, attention};

}  // namespace vesk::sentencemodel
