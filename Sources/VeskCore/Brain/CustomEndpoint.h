// The user's own server that speaks the chat completions protocol: its address and model, kept in the user
// defaults.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "VeskCore/Platform/UserDefaults.h"

namespace vesk {

/// Borrows the defaults. Any thread.
class CustomEndpoint {
public:
    static constexpr std::string_view keychainAccount = "custom";
    static constexpr std::string_view baseURLKey = "vesk.custom.baseURL";
    static constexpr std::string_view modelKey = "vesk.custom.model";

    explicit CustomEndpoint(UserDefaults& defaults) : defaults_(defaults) {}

    /// None if nothing is stored or what is stored is no address.
    std::optional<std::string> baseURL() const;
    void setBaseURL(const std::optional<std::string>& url);
    std::string model() const;  ///< "" when unset
    void setModel(std::string_view model);
    bool isConfigured() const { return baseURL().has_value(); }

    /// The base address that a user's text stands for, ending in a version ("https://api.example.com/v1");
    /// none if it has no host.
    static std::optional<std::string> normalise(std::string_view text);

private:
    UserDefaults& defaults_;
};

}  // namespace vesk
