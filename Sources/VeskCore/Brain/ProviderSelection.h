// Which provider and model answer. Pure decisions; the session owns the choice on the main thread.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "VeskCore/Brain/BrainModel.h"
#include "VeskCore/Brain/BrainProvider.h"

namespace vesk {

/// One row of the model picker.
struct ProviderOption {
    BrainProviderID providerID = BrainProviderID::ollama;
    std::shared_ptr<BrainProvider> provider;
    bool isReady = false;
    std::optional<std::string> blockedReason;  ///< why it isn't ready, in the user's words
    std::vector<BrainModel> models;
};

namespace ProviderSelection {

/// Keys of the user's choice in the user defaults.
inline constexpr std::string_view providerKey = "vesk.ai.provider";
inline constexpr std::string_view modelKey = "vesk.ai.model";

struct Selection {
    std::optional<BrainProviderID> providerID;  ///< none if no option is ready
    std::string modelID;                        ///< empty without a provider or a model
    bool operator==(const Selection&) const = default;
};

/// The chosen provider if it is ready, else the first that is: local models before paid ones.
/// `storedProvider` and `storedModel` are the user defaults' values; `currentModel` is the active model's id.
Selection resolve(const std::vector<ProviderOption>& options,
                  const std::optional<std::string>& storedProvider,
                  const std::optional<std::string>& storedModel, std::string_view currentModel);

/// The model that an option becomes active with: the preferred, else the current, else its first; empty if it
/// has none.
std::string adopt(const ProviderOption& option, const std::optional<std::string>& preference,
                  std::string_view currentModel);

}  // namespace ProviderSelection
}  // namespace vesk
