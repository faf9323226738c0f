// Which sync service holds a folder.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "VeskCore/Platform/FileSystem.h"

namespace vesk {

enum class SyncProvider { iCloudDrive, dropbox, googleDrive, oneDrive, syncthing, none };

/// The stored form, which is the case's name.
std::string_view rawValue(SyncProvider provider);
std::string_view displayName(SyncProvider provider);
/// What the folder's place says; asks the disk. Never fails.
SyncProvider detectSyncProvider(const FilePath& folder);

/// Where a folder lives, told to the user.
struct VaultPlace {
    struct Service {
        std::string name;
        bool operator==(const Service&) const = default;
    };
    enum class Plain { iCloudDrive, thisDevice, unknown };
    std::variant<Service, Plain> value = Plain::unknown;

    static VaultPlace classify(std::string_view path, bool isUbiquitous,
                               const std::optional<std::string>& containerName, SyncProvider detected);

    std::string label(std::string_view device) const;
    /// What to tell the user about this place; none for iCloud Drive. `folder` is the folder's name.
    std::optional<std::string> syncNotice(std::string_view folder, std::string_view device) const;
    /// "icloud", "device", "unknown", or "service:" and the name.
    std::string storageValue() const;
    static std::optional<VaultPlace> fromStorageValue(std::string_view text);

    bool operator==(const VaultPlace&) const = default;
};

}  // namespace vesk
