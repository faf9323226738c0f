#include "VeskCore/Brain/ProviderSelection.h"

#include <algorithm>
#include <array>

namespace vesk::ProviderSelection {

namespace {

// Without a choice a local model wins over a paid one. A custom endpoint is only ever chosen.
constexpr std::array fallbackOrder{BrainProviderID::ollama, BrainProviderID::lmstudio,
                                   BrainProviderID::apple,  BrainProviderID::anthropic,
                                   BrainProviderID::gemini, BrainProviderID::openai};

const ProviderOption* readyOption(const std::vector<ProviderOption>& options, BrainProviderID id) {
    const auto option = std::find_if(options.begin(), options.end(),
                                     [id](const auto& candidate) { return candidate.providerID == id; });
    return option != options.end() && option->isReady ? &*option : nullptr;
}

}  // namespace

Selection resolve(const std::vector<ProviderOption>& options,
                  const std::optional<std::string>& storedProvider,
                  const std::optional<std::string>& storedModel, std::string_view currentModel) {
    if (const auto chosen = brainProviderID(storedProvider.value_or(""))) {
        if (const auto* option = readyOption(options, *chosen)) {
            return {.providerID = *chosen, .modelID = adopt(*option, storedModel, currentModel)};
        }
    }
    for (BrainProviderID id : fallbackOrder) {
        if (const auto* option = readyOption(options, id)) {
            return {.providerID = id, .modelID = adopt(*option, std::nullopt, currentModel)};
        }
    }
    return {};
}

std::string adopt(const ProviderOption& option, const std::optional<std::string>& preference,
                  std::string_view currentModel) {
    auto has = [&](std::string_view id) {
        return std::any_of(option.models.begin(), option.models.end(),
                           [id](const BrainModel& model) { return model.id == id; });
    };
    if (preference && has(*preference)) return *preference;
    if (has(currentModel)) return std::string(currentModel);
    return option.models.empty() ? std::string() : option.models.front().id;
}

}  // namespace vesk::ProviderSelection
