// Secrets in the desktop's keyring, over the Secret Service (freedesktop.org, D-Bus).
#pragma once

#include "VeskCore/Platform/SecretStore.h"

namespace vesk {

/// Any thread; calls block. Items carry the attributes "service" and "account" and lie in the default
/// collection.
class SecretServiceStore final : public SecretStore {
public:
    std::optional<std::string> get(std::string_view service, std::string_view account) const override;
    void add(std::string_view service, std::string_view account, std::string_view value) override;
    void remove(std::string_view service, std::string_view account) override;
};

}  // namespace vesk
