#include "VeskLinux/SentenceModel/SentenceModel.h"

#include <algorithm>

#include "VeskCore/Support/Parallel.h"
#include "VeskLinux/SentenceModel/Tokeniser.h"

namespace vesk::sentencemodel {

namespace {

/// What a sentence has beyond this is data rather than words, and is left out: text without a full stop may
/// be of any length.
constexpr std::size_t mostWindows = 32;
/// How much is worked on at once, in ids.
constexpr std::size_t batchTokens = 2048;
/// Fewer rows than this are not worth another thread.
constexpr std::size_t fewestRows = 48;

/// How many windows of the model a sentence takes, as equal as can be: a part of more ids than the model was
/// trained on would spoil the vector.
std::size_t windowCount(std::size_t tokens) {
    return (tokens + mostTokens - 1) / mostTokens;
}

}  // namespace

SentenceModel::SentenceModel(const FilePath& path, const Kernels& kernels)
    : SentenceModel(path, kernels, parallelWorkers()) {}

SentenceModel::SentenceModel(const FilePath& path, const Kernels& kernels, unsigned workers)
    : file_(path), transformer_(file_, kernels), workers_(std::max(workers, 1U)) {}

void SentenceModel::expect(std::span<const std::string_view> sentences) {
    expected_.assign(sentences.begin(), sentences.end());
    ready_.clear();
}

std::optional<std::vector<double>> SentenceModel::vector(std::string_view sentence) {
    file_.ensureStillWhole();
    Vector result;
    if (!expected_.empty() && expected_.front() == sentence) {
        if (ready_.empty()) {
            std::vector<Ids> batch;
            std::size_t tokens = 0;
            for (auto next = expected_.begin(); next != expected_.end() && tokens < batchTokens; ++next) {
                batch.push_back(pieceIds(prepared(*next), file_));
                tokens += batch.back().size();
            }
            auto found = vectors(batch);
            ready_.assign(std::make_move_iterator(found.begin()), std::make_move_iterator(found.end()));
        }
        result = std::move(ready_.front());
        ready_.pop_front();
        expected_.pop_front();
    } else {
        result = std::move(vectors({pieceIds(prepared(sentence), file_)}).front());
    }
    if (result.empty()) return {};
    return result;
}

std::vector<SentenceModel::Vector> SentenceModel::vectors(const std::vector<Ids>& sentences) {
    std::vector<Window> windows;
    for (const Ids& ids : sentences) {
        const std::span<const std::uint16_t> used(ids.data(), std::min(ids.size(), mostWindows * mostTokens));
        const std::size_t count = windowCount(used.size());
        for (std::size_t i = 0; i < count; ++i) {
            const std::size_t from = i * used.size() / count;
            windows.push_back(used.subspan(from, (i + 1) * used.size() / count - from));
        }
    }
    const std::vector<float> found = run(windows);

    std::vector<Vector> result;
    std::size_t window = 0;
    for (const Ids& ids : sentences) {
        const std::size_t tokens = std::min(ids.size(), mostWindows * mostTokens);
        Vector& vector = result.emplace_back(tokens > 0 ? ModelFile::dimension : 0, 0.0);
        for (std::size_t count = windowCount(tokens); count > 0; --count, ++window) {
            const double share = static_cast<double>(windows[window].size()) / static_cast<double>(tokens);
            const float* values = found.data() + window * ModelFile::dimension;
            for (std::size_t i = 0; i < ModelFile::dimension; ++i) {
                vector[i] += share * static_cast<double>(values[i]);
            }
        }
    }
    return result;
}

std::vector<float> SentenceModel::run(const std::vector<Window>& windows) {
    // Groups of windows in their order, about as many rows in each.
    std::size_t rows = 0;
    for (const Window& window : windows) rows += window.size();
    const std::size_t parts = std::clamp<std::size_t>(rows / fewestRows, 1, workers_);
    const std::size_t share = std::min((rows + parts - 1) / parts, mostRows);
    std::vector<std::pair<std::size_t, std::size_t>> groups;
    std::size_t groupRows = mostRows;
    for (std::size_t i = 0; i < windows.size(); ++i) {
        const std::size_t size = windows[i].size();
        // Past its share by more than half of a window, a group leaves the window to the next one.
        if (groupRows + size > mostRows || groupRows + size / 2 > share) {
            groups.emplace_back(i, i);
            groupRows = 0;
        }
        groups.back().second = i + 1;
        groupRows += size;
    }

    std::vector<float> vectors(windows.size() * ModelFile::dimension);
    const auto runGroup = [&](std::size_t group) {
        const auto [first, last] = groups[group];
        auto workspace = takeWorkspace();
        transformer_.run(std::span(windows).subspan(first, last - first), *workspace,
                         vectors.data() + first * ModelFile::dimension);
        giveBack(std::move(workspace));
    };
    if (groups.size() == 1) {
        runGroup(0);
    } else if (!groups.empty()) {
        runOrdered(groups.size(), groups.size(), workers_, runGroup, [](std::size_t) {});
    }
    return vectors;
}

std::unique_ptr<Transformer::Workspace> SentenceModel::takeWorkspace() {
    {
        std::lock_guard guard(workspaceLock_);
        if (!workspaces_.empty()) {
            auto workspace = std::move(workspaces_.back());
            workspaces_.pop_back();
            return workspace;
        }
    }
    // Not cleared: only what was written is read, and a short text touches little of it.
    return std::unique_ptr<Transformer::Workspace>(new Transformer::Workspace);
}

void SentenceModel::giveBack(std::unique_ptr<Transformer::Workspace> workspace) {
    std::lock_guard guard(workspaceLock_);
    workspaces_.push_back(std::move(workspace));
}

}  // namespace vesk::sentencemodel
