#include "VeskCore/Brain/Keychain.h"

#include "VeskCore/Support/Characters.h"
#include "VeskCore/Support/Text.h"

namespace vesk {

namespace {

constexpr std::size_t shownInFront = 7, shownBehind = 4;
constexpr std::size_t shortestCutKey = 13;  // a shorter key shows nothing of itself

}  // namespace

std::optional<std::string> Keychain::get(std::string_view account) const {
    try {
        auto value = store_.get(service, account);
        if (!value || value->empty() || !isValidUtf8(*value)) return std::nullopt;
        return value;
    } catch (const Error&) {
        return std::nullopt;
    }
}

void Keychain::set(const std::optional<std::string>& value, std::string_view account) {
    try {
        store_.remove(service, account);
    } catch (const Error&) {
        // The new key may still go in; whether it did shows in has().
    }
    if (!value || value->empty()) return;
    try {
        store_.add(service, account, *value);
    } catch (const Error&) {
        // The provider then stands as not configured, which is what the user is told.
    }
}

std::optional<std::string> Keychain::masked(std::string_view account) const {
    const auto key = get(account);
    if (!key) return std::nullopt;
    const auto boundaries = characterBoundaries(*key);
    const std::size_t count = boundaries.size() - 1;
    std::string shown;
    if (count < shortestCutKey) {
        for (std::size_t i = 0; i < count; ++i) shown += "•";
        return shown;
    }
    return key->substr(0, boundaries[shownInFront]) + "…" + key->substr(boundaries[count - shownBehind]);
}

}  // namespace vesk
