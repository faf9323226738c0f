#include "VeskLinux/SentenceModel/KernelChoice.h"

#if defined(__x86_64__)
#include <cpuid.h>
#endif

namespace vesk::sentencemodel {

namespace {

#if defined(__x86_64__)
/// Asked by hand, since clang 14 knows no name for it.
bool convertsHalfFloats() {
    unsigned a = 0, b = 0, c = 0, d = 0;
    return __get_cpuid(1, &a, &b, &c, &d) != 0 && (c & bit_F16C) != 0;
}
#endif

}  // namespace

std::vector<Kernels> availableKernels() {
    std::vector<Kernels> kernels;
#if defined(__x86_64__)
    if (__builtin_cpu_supports("avx512f")) kernels.push_back(avx512Kernels);
    if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma") && convertsHalfFloats()) {
        kernels.push_back(avx2Kernels);
    }
#endif
    kernels.push_back(plainKernels);
    return kernels;
}

}  // namespace vesk::sentencemodel
