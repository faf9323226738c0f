// The model back-ends that a user can choose from.
#pragma once

#include <array>
#include <optional>
#include <string_view>

namespace vesk {

enum class BrainProviderID { anthropic, gemini, openai, ollama, lmstudio, apple, custom };

inline constexpr std::array allBrainProviderIDs{
    BrainProviderID::anthropic, BrainProviderID::gemini, BrainProviderID::openai, BrainProviderID::ollama,
    BrainProviderID::lmstudio,  BrainProviderID::apple,  BrainProviderID::custom};

/// The form in settings and the account name in the secret store.
std::string_view rawValue(BrainProviderID id);
std::optional<BrainProviderID> brainProviderID(std::string_view rawValue);

std::string_view displayName(BrainProviderID id);
bool needsAPIKey(BrainProviderID id);
/// Whether a question to it goes to another machine.
bool leavesDevice(BrainProviderID id);

/// A display name before its first " (": "Gemini" of "Gemini (Google)".
std::string_view shortName(std::string_view displayName);
std::string_view shortDisplayName(BrainProviderID id);

}  // namespace vesk
