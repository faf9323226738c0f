#include "VeskCore/Platform/UserDefaults.h"

namespace vesk {

std::optional<std::string> UserDefaults::string(std::string_view key) const {
    auto stored = value(key);
    const auto* text = stored ? stored->asString() : nullptr;
    return text ? std::optional(*text) : std::nullopt;
}

std::optional<double> UserDefaults::number(std::string_view key) const {
    auto stored = value(key);
    return stored ? stored->asDouble() : std::nullopt;
}

std::optional<bool> UserDefaults::boolean(std::string_view key) const {
    auto stored = value(key);
    const auto* truth = stored ? stored->asBool() : nullptr;
    return truth ? std::optional(*truth) : std::nullopt;
}

}  // namespace vesk
