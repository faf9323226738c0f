// The kernels, written once over the compiler's vectors. Each instruction set has a file of its own that is
// compiled for it, says how wide a vector is and how many rows of a product stay in registers, and includes
// this.
//
// Such a file includes nothing with functions that other files also have: the linker keeps one copy of an
// inline function, and it may be the one that only newer processors can run.
//
// Before the inclusion:
//   lanes       floats in a vector
//   tileRows    rows of a product in registers, with two vectors each
//   loadHalves  lanes half floats, widened to a vector

namespace {

using vesk::sentencemodel::mostTokens;
using vesk::sentencemodel::panelColumns;
using vesk::sentencemodel::Scratch;
using vesk::sentencemodel::Then;
using vesk::sentencemodel::Weights;

using std::size_t;
using std::uint16_t;

typedef int Ints __attribute__((vector_size(lanes * 4)));

constexpr size_t tileColumns = 2 * lanes;
/// Columns that are widened together.
constexpr size_t stripColumns = tileColumns > panelColumns ? tileColumns : panelColumns;
/// Rows of a strip that are widened together: with them the strip stays in the first-level cache.
constexpr size_t stripRows = 256;
static_assert(stripRows * stripColumns <= sizeof(Scratch::panel) / sizeof(float));
static_assert(mostTokens <= stripRows && mostTokens % stripColumns == 0);

inline Floats load(const float* from) {
    Floats vector;
    __builtin_memcpy(&vector, from, sizeof vector);
    return vector;
}
inline void store(float* to, Floats vector) {
    __builtin_memcpy(to, &vector, sizeof vector);
}
/// Taking zero away changes nothing, not even -0, so that a plain broadcast is left of it.
inline Floats all(float value) {
    return value - Floats{};
}
inline float sum(Floats vector) {
    float total = 0;
    for (size_t i = 0; i < lanes; ++i) total += vector[i];
    return total;
}
inline Floats larger(Floats a, Floats b) {
    return a > b ? a : b;
}

/// e to the power of x, for x at most 0; within 2e-7 of it. Far below, the smallest normal number's
/// neighbourhood.
inline Floats exponential(Floats x) {
    x = larger(x, all(-87.0F));
    // Adding and taking away 1.5 · 2^23 rounds to whole numbers, which the low bits then hold.
    const Floats magic = all(12582912.0F);
    const Floats shifted = x * 1.44269504F + magic;
    const Floats whole = shifted - magic;
    Floats rest = x - whole * 0.693359375F;
    rest = rest + whole * 2.12194440e-4F;
    Floats power = all(1.9875691500e-4F);
    power = power * rest + 1.3981999507e-3F;
    power = power * rest + 8.3334519073e-3F;
    power = power * rest + 4.1665795894e-2F;
    power = power * rest + 1.6666665459e-1F;
    power = power * rest + 5.0000001201e-1F;
    power = power * rest * rest + rest + 1.0F;
    Ints bits;
    __builtin_memcpy(&bits, &shifted, sizeof bits);
    bits = (bits << 23) + (127 << 23);
    Floats scale;
    __builtin_memcpy(&scale, &bits, sizeof scale);
    return power * scale;
}

/// Rows of `in`, `stride` apart, in blocks of rows whose values for one column lie together. The last block
/// may have one row less than the others.
void pack(const float* in, size_t rows, size_t stride, size_t depth, size_t blocks, float factor,
          float* packed) {
    for (size_t block = 0; block < blocks; ++block) {
        const size_t first = block * rows / blocks, count = (block + 1) * rows / blocks - first;
        for (size_t row = 0; row < count; ++row) {
            const float* from = in + (first + row) * stride;
            for (size_t i = 0; i < depth; ++i) packed[first * depth + i * count + row] = from[i] * factor;
        }
    }
}

/// How the sums of a tile meet what stands in the result.
struct Ending {
    bool adds = false;            // to what stands there
    const float* bias = nullptr;  // is added; none for later parts of the depth
    bool positive = false;        // what is negative becomes 0
};

/// Rows of a block times two vectors of columns.
template <size_t rows>
void tile(const float* packed, const float* strip, size_t depth, float* out, size_t stride,
          const Ending& ending) {
    Floats left[rows], right[rows];
#pragma GCC unroll 16
    for (size_t row = 0; row < rows; ++row) left[row] = right[row] = Floats{};
    for (size_t i = 0; i < depth; ++i) {
        const Floats a = load(strip), b = load(strip + lanes);
#pragma GCC unroll 16
        for (size_t row = 0; row < rows; ++row) {
            const Floats value = all(packed[row]);
            left[row] += value * a;
            right[row] += value * b;
        }
        packed += rows;
        strip += stripColumns;
    }
#pragma GCC unroll 16
    for (size_t row = 0; row < rows; ++row) {
        float* at = out + row * stride;
        Floats a = left[row], b = right[row];
        if (ending.bias != nullptr) {
            a += load(ending.bias);
            b += load(ending.bias + lanes);
        }
        if (ending.adds) {
            a += load(at);
            b += load(at + lanes);
        }
        if (ending.positive) {
            a = larger(a, Floats{});
            b = larger(b, Floats{});
        }
        store(at, a);
        store(at + lanes, b);
    }
}

template <size_t rows>
void tileOf(size_t wanted, const float* packed, const float* strip, size_t depth, float* out, size_t stride,
            const Ending& ending) {
    if (wanted == rows) {
        tile<rows>(packed, strip, depth, out, stride, ending);
    } else if constexpr (rows > 1) {
        tileOf<rows - 1>(wanted, packed, strip, depth, out, stride, ending);
    }
}

/// All packed rows, from column `from` of the whole depth on, times one strip of `depth` rows.
void stripProduct(const float* packed, size_t rows, size_t blocks, size_t wholeDepth, size_t from,
                  size_t depth, const float* strip, float* out, size_t stride, const Ending& ending) {
    for (size_t block = 0; block < blocks; ++block) {
        const size_t first = block * rows / blocks, count = (block + 1) * rows / blocks - first;
        for (size_t column = 0; column < stripColumns; column += tileColumns) {
            Ending here = ending;
            if (here.bias != nullptr) here.bias += column;
            tileOf<tileRows>(count, packed + first * wholeDepth + from * count, strip + column, depth,
                             out + first * stride + column, stride, here);
        }
    }
}

size_t blocksOf(size_t rows) {
    return (rows + tileRows - 1) / tileRows;
}

void widen(const uint16_t* halves, size_t count, float* out) {
    for (size_t i = 0; i < count; i += lanes) store(out + i, loadHalves(halves + i));
}

void product(const float* in, size_t rows, const Weights& weights, Then then, float* out, Scratch& scratch) {
    const size_t depth = weights.rows, blocks = blocksOf(rows);
    pack(in, rows, depth, depth, blocks, 1, scratch.packed);
    for (size_t column = 0; column < weights.columns; column += stripColumns) {
        for (size_t from = 0; from < depth; from += stripRows) {
            const size_t part = depth - from < stripRows ? depth - from : stripRows;
            for (size_t panel = 0; panel < stripColumns; panel += panelColumns) {
                const uint16_t* halves = weights.panels + (column + panel) * depth + from * panelColumns;
                for (size_t row = 0; row < part; ++row) {
                    widen(halves + row * panelColumns, panelColumns,
                          scratch.panel + row * stripColumns + panel);
                }
            }
            const Ending ending{.adds = from > 0 || then == Then::add,
                                .bias = from == 0 ? weights.bias + column : nullptr,
                                .positive = then == Then::storePositive && from + part == depth};
            stripProduct(scratch.packed, rows, blocks, depth, from, part, scratch.panel, out + column,
                         weights.columns, ending);
        }
    }
}

void layerNorm(const float* in, size_t rows, size_t width, const float* scale, const float* shift,
               float* out) {
    constexpr float epsilon = 1e-6F;
    const float share = 1.0F / static_cast<float>(width);
    for (size_t row = 0; row < rows; ++row, in += width, out += width) {
        Floats total{};
        for (size_t i = 0; i < width; i += lanes) total += load(in + i);
        const Floats mean = all(sum(total) * share);
        Floats squares{};
        for (size_t i = 0; i < width; i += lanes) {
            const Floats distance = load(in + i) - mean;
            squares += distance * distance;
        }
        const Floats factor = all(1.0F / __builtin_sqrtf(sum(squares) * share + epsilon));
        for (size_t i = 0; i < width; i += lanes) {
            store(out + i, (load(in + i) - mean) * factor * load(scale + i) + load(shift + i));
        }
    }
}

/// The first `tokens` scores as shares of one; the rest up to a whole strip becomes 0.
void softmax(float* scores, size_t tokens, size_t padded) {
    float most = scores[0];
    for (size_t i = 1; i < tokens; ++i) most = scores[i] > most ? scores[i] : most;
    for (size_t i = tokens; i < padded; ++i) scores[i] = -__builtin_huge_valf();
    Floats total{};
    for (size_t i = 0; i < padded; i += lanes) {
        const Floats share = exponential(load(scores + i) - most);
        store(scores + i, share);
        total += share;
    }
    // What stands behind the last token is no more than rounding, but it is no token's.
    float rest = 0;
    for (size_t i = tokens; i < padded; ++i) rest += scores[i];
    const float share = 1.0F / (sum(total) - rest);
    for (size_t i = 0; i < tokens; ++i) scores[i] *= share;
}

void attention(const float* projections, size_t tokens, size_t heads, size_t headWidth, float scale,
               float* out, Scratch& scratch) {
    const size_t width = heads * headWidth, stride = 3 * width, blocks = blocksOf(tokens);
    const size_t padded = (tokens + stripColumns - 1) / stripColumns * stripColumns;
    for (size_t head = 0; head < heads; ++head) {
        const float* queries = projections + head * headWidth;
        const float* keys = queries + width;
        const float* values = keys + width;
        pack(queries, tokens, stride, headWidth, blocks, scale, scratch.packed);
        for (size_t column = 0; column < padded; column += stripColumns) {
            for (size_t i = 0; i < stripColumns; ++i) {
                const size_t token = column + i;
                for (size_t row = 0; row < headWidth; ++row) {
                    scratch.panel[row * stripColumns + i] =
                        token < tokens ? keys[token * stride + row] : 0.0F;
                }
            }
            stripProduct(scratch.packed, tokens, blocks, headWidth, 0, headWidth, scratch.panel,
                         scratch.scores + column, padded, {});
        }
        for (size_t token = 0; token < tokens; ++token)
            softmax(scratch.scores + token * padded, tokens, padded);
        pack(scratch.scores, tokens, padded, tokens, blocks, 1, scratch.packed);
        for (size_t column = 0; column < headWidth; column += stripColumns) {
            for (size_t token = 0; token < tokens; ++token) {
                for (size_t i = 0; i < stripColumns; i += lanes) {
                    store(scratch.panel + token * stripColumns + i,
                          load(values + token * stride + column + i));
                }
            }
            stripProduct(scratch.packed, tokens, blocks, tokens, 0, tokens, scratch.panel,
                         out + head * headWidth + column, width, {});
        }
    }
}

}  // namespace
