#include "VeskLinux/SentenceModel/Transformer.h"

#include <algorithm>
#include <cmath>

#include "VeskCore/Support/Ensure.h"

namespace vesk::sentencemodel {

namespace {

constexpr std::size_t dimension = ModelFile::dimension;
static_assert(ModelFile::inner <= mostDepth && 3 * dimension <= mostDepth);

}  // namespace

Transformer::Transformer(const ModelFile& file, const Kernels& kernels)
    : file_(file), kernels_(kernels), positions_(mostTokens * ModelFile::firstWidth) {
    const auto timescales = file.timescales();
    float* at = positions_.data();
    for (std::size_t token = 0; token < mostTokens; ++token) {
        for (std::size_t i = 0; i < timescales.size(); ++i) {
            const float angle = static_cast<float>(token) * timescales[i];
            at[i] = std::sin(angle);
            at[timescales.size() + i] = std::cos(angle);
        }
        at += ModelFile::firstWidth;
    }
}

void Transformer::run(std::span<const Window> windows, Workspace& workspace, float* vectors) const {
    std::size_t rows = 0;
    for (const Window& window : windows) {
        VESK_ENSURE(!window.empty() && window.size() <= mostTokens);
        rows += window.size();
    }
    VESK_ENSURE(rows <= mostRows);

    embed(windows, workspace);
    for (const Layer& layer : file_.layers()) passLayer(layer, windows, rows, workspace);

    const float* token = workspace.tokens;
    float* mean = workspace.normed;
    for (const Window& window : windows) {
        std::fill_n(mean, dimension, 0.0F);
        for (std::size_t row = 0; row < window.size(); ++row, token += dimension) {
            for (std::size_t i = 0; i < dimension; ++i) mean[i] += token[i];
        }
        for (std::size_t i = 0; i < dimension; ++i) mean[i] /= static_cast<float>(window.size());
        mean += dimension;
    }
    kernels_.product(workspace.normed, windows.size(), file_.head(), Then::store, vectors, workspace.scratch);
    for (std::size_t window = 0; window < windows.size(); ++window, vectors += dimension) {
        double squares = 0;
        for (std::size_t i = 0; i < dimension; ++i) {
            vectors[i] = std::tanh(vectors[i]);
            squares += static_cast<double>(vectors[i]) * static_cast<double>(vectors[i]);
        }
        const auto factor = static_cast<float>(1 / std::sqrt(std::max(squares, 1e-12)));
        for (std::size_t i = 0; i < dimension; ++i) vectors[i] *= factor;
    }
}

void Transformer::embed(std::span<const Window> windows, Workspace& workspace) const {
    constexpr std::size_t width = ModelFile::firstWidth;
    float* token = workspace.tokens;
    for (const Window& window : windows) {
        for (std::size_t row = 0; row < window.size(); ++row, token += width) {
            kernels_.widen(file_.embedding(window[row]), width, token);
            const float* position = positions_.data() + row * width;
            // The model adds the embedding to itself.
            for (std::size_t i = 0; i < width; ++i) token[i] = 2 * token[i] + position[i];
        }
    }
}

void Transformer::passLayer(const Layer& layer, std::span<const Window> windows, std::size_t rows,
                            Workspace& w) const {
    kernels_.layerNorm(w.tokens, rows, layer.width, layer.attentionNorm.scale, layer.attentionNorm.shift,
                       w.normed);
    kernels_.product(w.normed, rows, layer.projections, Then::store, w.wide, w.scratch);
    const std::size_t headWidth = layer.width / ModelFile::heads;
    const float scale = 1 / std::sqrt(static_cast<float>(headWidth));
    std::size_t row = 0;
    for (const Window& window : windows) {
        kernels_.attention(w.wide + row * 3 * layer.width, window.size(), ModelFile::heads, headWidth, scale,
                           w.attended + row * layer.width, w.scratch);
        row += window.size();
    }
    if (layer.widens) {
        kernels_.product(w.tokens, rows, *layer.widens, Then::store, w.normed, w.scratch);
        std::copy_n(w.normed, rows * dimension, w.tokens);
    }
    kernels_.product(w.attended, rows, layer.attentionOut, Then::add, w.tokens, w.scratch);

    kernels_.layerNorm(w.tokens, rows, dimension, layer.innerNorm.scale, layer.innerNorm.shift, w.normed);
    kernels_.product(w.normed, rows, layer.innerIn, Then::storePositive, w.wide, w.scratch);
    kernels_.product(w.wide, rows, layer.innerOut, Then::add, w.tokens, w.scratch);
}

}  // namespace vesk::sentencemodel
