#include "VeskCore/Brain/BrainProviderID.h"

#include "VeskCore/Support/Ensure.h"

namespace vesk {

namespace {

struct Entry {
    BrainProviderID id;
    std::string_view rawValue, displayName;
    bool needsAPIKey, leavesDevice;
};

constexpr std::array<Entry, allBrainProviderIDs.size()> entries{{
    {BrainProviderID::anthropic, "anthropic", "Claude (Anthropic)", true, true},
    {BrainProviderID::gemini, "gemini", "Gemini (Google)", true, true},
    {BrainProviderID::openai, "openai", "OpenAI", true, true},
    {BrainProviderID::ollama, "ollama", "Ollama (local)", false, false},
    {BrainProviderID::lmstudio, "lmstudio", "LM Studio (local)", false, false},
    {BrainProviderID::apple, "apple", "Apple Intelligence (on-device)", false, false},
    {BrainProviderID::custom, "custom", "Custom endpoint", false, true},
}};

const Entry& entry(BrainProviderID id) {
    for (const auto& candidate : entries) {
        if (candidate.id == id) return candidate;
    }
    VESK_ENSURE(false);
    return entries.front();
}

}  // namespace

std::string_view rawValue(BrainProviderID id) {
    return entry(id).rawValue;
}

std::optional<BrainProviderID> brainProviderID(std::string_view raw) {
    for (const auto& candidate : entries) {
        if (candidate.rawValue == raw) return candidate.id;
    }
    return std::nullopt;
}

std::string_view displayName(BrainProviderID id) {
    return entry(id).displayName;
}
bool needsAPIKey(BrainProviderID id) {
    return entry(id).needsAPIKey;
}
bool leavesDevice(BrainProviderID id) {
    return entry(id).leavesDevice;
}

std::string_view shortName(std::string_view displayName) {
    return displayName.substr(0, displayName.find(" ("));
}
std::string_view shortDisplayName(BrainProviderID id) {
    return shortName(displayName(id));
}

}  // namespace vesk
