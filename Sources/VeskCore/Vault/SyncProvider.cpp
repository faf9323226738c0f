#include "VeskCore/Vault/SyncProvider.h"

#include <fmt/format.h>

#include <array>
#include <exception>

#include "VeskCore/Platform/FilePlatform.h"
#include "VeskCore/Support/Localised.h"
#include "VeskCore/Support/Match.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"

namespace vesk {

namespace {

constexpr std::string_view mobileDocuments = "/Library/Mobile Documents/";
constexpr std::string_view serviceStoragePrefix = "service:";

bool contains(std::string_view text, std::string_view part) {
    return text.find(part) != text.npos;
}

bool isUbiquitous(const FilePath& path) {
    try {
        const auto values = FilePlatform::current().ubiquity->values(path);
        return values && values->isUbiquitous;
    } catch (const std::exception&) {
        return false;
    }
}

bool somethingIsAt(const FilePath& path) {
    try {
        return FilePlatform::current().files->linkInfo(path).has_value();
    } catch (const std::exception&) {
        return false;
    }
}

/// On this device only, by the folders in which a device keeps what isn't shared.
bool isDeviceStorage(std::string_view path) {
    return contains(path, "/File Provider Storage/") || path.ends_with("/File Provider Storage") ||
           contains(path, "/Containers/Data/Application/") || contains(path, "/Containers/Shared/AppGroup/");
}

}  // namespace

std::string_view rawValue(SyncProvider provider) {
    switch (provider) {
        case SyncProvider::iCloudDrive:
            return "iCloudDrive";
        case SyncProvider::dropbox:
            return "dropbox";
        case SyncProvider::googleDrive:
            return "googleDrive";
        case SyncProvider::oneDrive:
            return "oneDrive";
        case SyncProvider::syncthing:
            return "syncthing";
        case SyncProvider::none:
            return "none";
    }
    return {};
}

std::string_view displayName(SyncProvider provider) {
    switch (provider) {
        case SyncProvider::iCloudDrive:
            return "iCloud Drive";
        case SyncProvider::dropbox:
            return "Dropbox";
        case SyncProvider::googleDrive:
            return "Google Drive";
        case SyncProvider::oneDrive:
            return "OneDrive";
        case SyncProvider::syncthing:
            return "Syncthing";
        case SyncProvider::none:
            return marked("this Mac only");
    }
    return {};
}

SyncProvider detectSyncProvider(const FilePath& folder) {
    struct PathSign {
        std::string_view part;
        SyncProvider provider;
    };
    static constexpr std::array<PathSign, 6> signs{{
        {mobileDocuments, SyncProvider::iCloudDrive},
        {"/Dropbox", SyncProvider::dropbox},
        {"/Google Drive", SyncProvider::googleDrive},
        {"/GoogleDrive", SyncProvider::googleDrive},
        {"/CloudStorage/GoogleDrive", SyncProvider::googleDrive},
        {"/OneDrive", SyncProvider::oneDrive},
    }};
    const FilePath root = standardised(folder);
    if (isUbiquitous(root)) return SyncProvider::iCloudDrive;
    for (const PathSign& sign : signs) {
        if (contains(root.native(), sign.part)) return sign.provider;
    }
    return somethingIsAt(root / ".stfolder") ? SyncProvider::syncthing : SyncProvider::none;
}

VaultPlace VaultPlace::classify(std::string_view path, bool isUbiquitous,
                                const std::optional<std::string>& containerName, SyncProvider detected) {
    if (contains(path, mobileDocuments)) return {Plain::iCloudDrive};
    if (isUbiquitous) {
        const std::string_view name = containerName ? trim(*containerName) : std::string_view{};
        if (name.empty() || containsIgnoringCase(name, "iCloud")) return {Plain::iCloudDrive};
        return {Service{std::string(name)}};
    }
    if (detected == SyncProvider::syncthing) return {Service{std::string(displayName(detected))}};
    if (isDeviceStorage(path)) return {Plain::thisDevice};
    switch (detected) {
        case SyncProvider::dropbox:
        case SyncProvider::googleDrive:
        case SyncProvider::oneDrive:
            return {Service{std::string(displayName(detected))}};
        case SyncProvider::iCloudDrive:
        case SyncProvider::syncthing:
        case SyncProvider::none:
            return {Plain::unknown};
    }
    return {Plain::unknown};
}

std::string VaultPlace::label(std::string_view device) const {
    return match(
        value, [](const Service& service) { return service.name; },
        [&](const Plain& place) -> std::string {
            switch (place) {
                case Plain::iCloudDrive:
                    return "iCloud Drive";
                case Plain::thisDevice:
                    return fmt::format("On My {}", device);
                case Plain::unknown:
                    return "Not in iCloud Drive";
            }
            return {};
        });
}

std::optional<std::string> VaultPlace::syncNotice(std::string_view folder, std::string_view device) const {
    using Notice = std::optional<std::string>;
    return match(
        value,
        [&](const Service& service) -> Notice {
            return fmt::format(
                "“{0}” is in {1}, not iCloud Drive. Your other devices see these notes only if {1} syncs "
                "them "
                "there.",
                folder, service.name);
        },
        [&](const Plain& place) -> Notice {
            switch (place) {
                case Plain::iCloudDrive:
                    return {};
                case Plain::thisDevice:
                    return fmt::format(
                        "“{}” is on this {}, so notes in it won't sync with your other devices. Pick a "
                        "folder "
                        "in iCloud Drive to share one vault with your Mac.",
                        folder, device);
                case Plain::unknown:
                    return fmt::format(
                        "“{}” isn't in iCloud Drive, so notes in it may not sync with your other devices.",
                        folder);
            }
            return {};
        });
}

std::string VaultPlace::storageValue() const {
    return match(
        value, [](const Service& service) { return std::string(serviceStoragePrefix) + service.name; },
        [](const Plain& place) -> std::string {
            switch (place) {
                case Plain::iCloudDrive:
                    return "icloud";
                case Plain::thisDevice:
                    return "device";
                case Plain::unknown:
                    return "unknown";
            }
            return {};
        });
}

std::optional<VaultPlace> VaultPlace::fromStorageValue(std::string_view text) {
    for (const Plain place : {Plain::iCloudDrive, Plain::thisDevice, Plain::unknown}) {
        const VaultPlace candidate{place};
        if (candidate.storageValue() == text) return candidate;
    }
    if (!text.starts_with(serviceStoragePrefix)) return {};
    text.remove_prefix(serviceStoragePrefix.size());
    return VaultPlace{Service{std::string(text)}};
}

}  // namespace vesk
