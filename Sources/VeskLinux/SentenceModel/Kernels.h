// The arithmetic of the sentence model, once for each instruction set. Included by files that are compiled
// for a newer processor, so it brings no inline function along.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vesk::sentencemodel {

/// Columns of a weight matrix that lie together, row by row, in the model's file.
inline constexpr std::size_t panelColumns = 16;
/// The most rows that one call of product() takes, and of attention().
inline constexpr std::size_t mostRows = 256;
inline constexpr std::size_t mostTokens = 128;
/// The most columns of the left side of a product.
inline constexpr std::size_t mostDepth = 1536;

/// A weight matrix as it lies in the file, half floats in panels, with its bias.
struct Weights {
    const std::uint16_t* panels = nullptr;
    const float* bias = nullptr;
    std::size_t rows = 0, columns = 0;
};

/// What becomes of a product: it is stored, stored without its negative values, or added to what stands.
enum class Then { store, storePositive, add };

/// Memory that the kernels work in; one per thread. Aligned for every instruction set.
struct alignas(64) Scratch {
    float packed[mostRows * mostDepth];
    float panel[256 * 32];
    float scores[mostTokens * mostTokens];
};

struct Kernels {
    const char* name;
    /// Half floats to floats; `count` is a multiple of 16.
    void (*widen)(const std::uint16_t* halves, std::size_t count, float* out);
    /// Each row to mean 0 and variance 1, then by scale and shift.
    void (*layerNorm)(const float* in, std::size_t rows, std::size_t width, const float* scale,
                      const float* shift, float* out);
    /// in [rows, weights.rows] · weights + bias.
    void (*product)(const float* in, std::size_t rows, const Weights& weights, Then then, float* out,
                    Scratch& scratch);
    /// Attention of one sentence's tokens to each other. A row of `projections` holds queries, keys and
    /// values of all heads, one after another; a row of `out` the heads' results.
    void (*attention)(const float* projections, std::size_t tokens, std::size_t heads, std::size_t headWidth,
                      float scale, float* out, Scratch& scratch);
};

extern const Kernels plainKernels;
#if defined(__x86_64__)
extern const Kernels avx2Kernels;    // with FMA and F16C
extern const Kernels avx512Kernels;  // AVX-512F
#endif

}  // namespace vesk::sentencemodel
