// How the user corrects which folders count as inboxes: a small file in the vault.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "VeskCore/Vault/Vault.h"

namespace vesk {

/// ".vesk/organise.json". The empty path stands for the vault's root.
struct OrganiseSettings {
    int version = 1;
    std::vector<std::string> inbox, notInbox, protectedFolders;
    std::optional<std::string> junkFolder = "Junk";

    /// The defaults if the file is missing or can't be read.
    static OrganiseSettings load(const Vault& vault);
    /// Throws what writing throws.
    void save(const Vault& vault) const;
    static FilePath file(const Vault& vault);

    bool operator==(const OrganiseSettings&) const = default;
};

}  // namespace vesk
