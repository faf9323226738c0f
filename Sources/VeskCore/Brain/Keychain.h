// The providers' keys in the system's secret store, one account for each provider.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "VeskCore/Platform/SecretStore.h"

namespace vesk {

/// Borrows the store. Any thread; a call may block on a prompt. A store that fails reads as holding no key.
class Keychain {
public:
    static constexpr std::string_view service = "com.tarnlight.vesk.apikeys";

    explicit Keychain(SecretStore& store) : store_(store) {}

    /// None also for an empty text and for bytes that are no UTF-8.
    std::optional<std::string> get(std::string_view account) const;
    bool has(std::string_view account) const { return get(account).has_value(); }
    /// None or "" deletes the key.
    void set(const std::optional<std::string>& value, std::string_view account);
    /// The key as it may be shown: bullets, or the ends of a long one. None without a key.
    std::optional<std::string> masked(std::string_view account) const;

private:
    SecretStore& store_;
};

}  // namespace vesk
