// The English sentence model as the platform's sentence embedding.
#pragma once

#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "VeskCore/Platform/SentenceEmbedding.h"
#include "VeskLinux/SentenceModel/KernelChoice.h"
#include "VeskLinux/SentenceModel/ModelFile.h"
#include "VeskLinux/SentenceModel/Transformer.h"

namespace vesk::sentencemodel {

/// One thread at a time; works on several of its own where there is enough to do.
class SentenceModel final : public SentenceEmbedding {
public:
    /// Throws UnusableModel, SystemError.
    explicit SentenceModel(const FilePath& path, const Kernels& kernels = availableKernels().front());
    SentenceModel(const FilePath& path, const Kernels& kernels, unsigned workers);

    int dimension() const override { return static_cast<int>(ModelFile::dimension); }
    /// None for a text without anything but white space. Throws UnusableModel when the file was cut short.
    std::optional<std::vector<double>> vector(std::string_view sentence) override;
    void expect(std::span<const std::string_view> sentences) override;

    const ModelFile& file() const { return file_; }

private:
    using Ids = std::vector<std::uint16_t>;
    /// A sentence's vector, empty without one.
    using Vector = std::vector<double>;

    std::vector<Vector> vectors(const std::vector<Ids>& sentences);
    /// The windows' vectors, one after another.
    std::vector<float> run(const std::vector<Window>& windows);
    std::unique_ptr<Transformer::Workspace> takeWorkspace();
    void giveBack(std::unique_ptr<Transformer::Workspace> workspace);

    const ModelFile file_;
    const Transformer transformer_;
    const unsigned workers_;

    std::deque<std::string> expected_;  // what is asked for next
    std::deque<Vector> ready_;          // the vectors of the first of them

    std::mutex workspaceLock_;  // guards the next
    std::vector<std::unique_ptr<Transformer::Workspace>> workspaces_;
};

}  // namespace vesk::sentencemodel
