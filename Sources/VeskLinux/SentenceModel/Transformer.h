// From the ids of a text's pieces to its vector.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "VeskLinux/SentenceModel/Kernels.h"
#include "VeskLinux/SentenceModel/ModelFile.h"

namespace vesk::sentencemodel {

/// The ids of one sentence, or of a part of a long one: 1 to mostTokens.
using Window = std::span<const std::uint16_t>;

/// Borrows the file. Any number of threads, each with a workspace of its own.
class Transformer {
public:
    struct Workspace;

    Transformer(const ModelFile& file, const Kernels& kernels);

    /// The vectors of some windows, each of length 1 and ModelFile::dimension values, one after another. They
    /// have at most mostRows ids in all.
    void run(std::span<const Window> windows, Workspace& workspace, float* vectors) const;

private:
    void embed(std::span<const Window> windows, Workspace& workspace) const;
    void passLayer(const Layer& layer, std::span<const Window> windows, std::size_t rows,
                   Workspace& workspace) const;

    const ModelFile& file_;
    const Kernels kernels_;
    std::vector<float> positions_;  // what is added to a token for its place in the window
};

struct Transformer::Workspace {
    alignas(64) float tokens[mostRows * ModelFile::dimension];
    alignas(64) float normed[mostRows * ModelFile::dimension];
    alignas(64) float attended[mostRows * ModelFile::dimension];
    alignas(64) float wide[mostRows * mostDepth];  // the attention's projections, the inner values
    Scratch scratch;
};

}  // namespace vesk::sentencemodel
