// The system's store of secrets (the Secret Service on the Linux desktop).
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "VeskCore/Support/Error.h"

namespace vesk {

class SecretStoreError : public Error {
public:
    explicit SecretStoreError(std::string reason) : detail(std::move(reason)) {}
    std::string description() const override { return detail; }
    std::string detail;
};

/// Secrets by service and account. Every call may block on a prompt to unlock the store. Never on a list,
/// never in a log. Throws SecretStoreError when the store can't be reached or refuses.
class SecretStore {
public:
    virtual ~SecretStore() = default;
    /// The bytes stored, or none.
    virtual std::optional<std::string> get(std::string_view service, std::string_view account) const = 0;
    /// Adds an item that is readable after the first unlock and stays on this device.
    virtual void add(std::string_view service, std::string_view account, std::string_view value) = 0;
    /// No failure if there is none.
    virtual void remove(std::string_view service, std::string_view account) = 0;
};

}  // namespace vesk
