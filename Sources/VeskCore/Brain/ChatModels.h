// The models of OpenAI and of servers that speak its dialect: the known table, and what is made of a server's
// own list.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "VeskCore/Brain/BrainModel.h"

namespace vesk {

/// What LM Studio tells of a model beyond its name.
struct LoadedModelInfo {
    std::string state;                                         ///< "loaded", "not-loaded"
    std::optional<int> maxContextLength, loadedContextLength;  ///< tokens
    bool operator==(const LoadedModelInfo&) const = default;
};

namespace ChatModels {

/// OpenAI's models with their prices.
const std::vector<BrainModel>& openAIModels();

/// The words of the id between anything but letters and digits name an embedding.
bool isEmbeddingModel(std::string_view id);

/// "gpt-5-mini" of "gpt-5-mini-2025-08-07"; another id as it stands.
std::string_view datedSnapshotBase(std::string_view id);

/// A model of OpenAI's list: the table's row, also for a dated snapshot of it, or one whose price isn't
/// known.
BrainModel openAIModel(const std::string& id);

/// A model of a local server; its context is as far as `loaded` tells.
BrainModel chatModel(const std::string& id, const std::optional<LoadedModelInfo>& loaded = {});

/// A model that the user named, or that a service of the user's own lists: nothing is known of its price.
BrainModel typedModel(const std::string& id);

}  // namespace ChatModels
}  // namespace vesk
