#include <gtest/gtest.h>

#include "Support/Fakes.h"
#include "VeskCore/Vault/SyncProvider.h"

namespace vesk::test {
namespace {

TEST(SyncProvider, IsDetectedByTheFoldersPlace) {
    PlatformFixture platform;
    const FilePath shared = platform.vaultFolder.path();
    platform.vaultFolder.write("st/.stfolder/marker", "");
    platform.ubiquity.setUbiquitousFolder("/home/ann/Dropbox/Cloud");
    const struct {
        FilePath folder;
        SyncProvider expected;
    } rows[] = {
        {"/home/ann/Library/Mobile Documents/Notes", SyncProvider::iCloudDrive},
        {"/home/ann/Dropbox (Work)/Notes", SyncProvider::dropbox},
        {"/home/ann/Google Drive/Dropbox", SyncProvider::dropbox},
        {"/home/ann/Google Drive/Notes", SyncProvider::googleDrive},
        {"/home/ann/GoogleDrive", SyncProvider::googleDrive},
        {"/home/ann/CloudStorage/GoogleDrive-ann/Notes", SyncProvider::googleDrive},
        {"/home/ann/OneDrive - Work/Notes", SyncProvider::oneDrive},
        {"/home/ann/dropbox/Notes", SyncProvider::none},
        {"/home/ann/Dropbox/../Notes", SyncProvider::none},
        {"/home/ann/Dropbox/Cloud", SyncProvider::iCloudDrive},
        {shared / "st", SyncProvider::syncthing},
        {shared / "st/below", SyncProvider::none},
    };
    for (const auto& row : rows) EXPECT_EQ(detectSyncProvider(row.folder), row.expected) << row.folder;
}

TEST(SyncProvider, HasStoredAndShownNames) {
    const struct {
        SyncProvider provider;
        const char* raw;
        const char* shown;
    } rows[] = {
        {SyncProvider::iCloudDrive, "iCloudDrive", "iCloud Drive"},
        {SyncProvider::dropbox, "dropbox", "Dropbox"},
        {SyncProvider::googleDrive, "googleDrive", "Google Drive"},
        {SyncProvider::oneDrive, "oneDrive", "OneDrive"},
        {SyncProvider::syncthing, "syncthing", "Syncthing"},
        {SyncProvider::none, "none", "this Mac only"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(rawValue(row.provider), row.raw);
        EXPECT_EQ(displayName(row.provider), row.shown);
    }
}

TEST(VaultPlace, IsClassifiedInAFixedOrder) {
    const struct {
        const char* name;
        const char* path;
        bool isUbiquitous;
        std::optional<std::string> container;
        SyncProvider detected;
        const char* expected;
    } rows[] = {
        {"the path goes first", "/u/Library/Mobile Documents/x", true, "Box", SyncProvider::syncthing,
         "icloud"},
        {"a container's name", "/u/x", true, " Box\n", SyncProvider::none, "service:Box"},
        {"no name", "/u/x", true, " ", SyncProvider::dropbox, "icloud"},
        {"iCloud in any case", "/u/x", true, "ICLOUD Drive", SyncProvider::none, "icloud"},
        {"Syncthing before the device",
         "/u/File Provider Storage/x",
         false,
         {},
         SyncProvider::syncthing,
         "service:Syncthing"},
        {"on the device", "/u/File Provider Storage/x", false, {}, SyncProvider::dropbox, "device"},
        {"on the device, the folder itself", "/u/File Provider Storage", false, "Box", SyncProvider::none,
         "device"},
        {"no such folder", "/u/File Provider Storages", false, {}, SyncProvider::none, "unknown"},
        {"an application's folder",
         "/u/Containers/Data/Application/1",
         false,
         {},
         SyncProvider::none,
         "device"},
        {"a shared container", "/u/Containers/Shared/AppGroup/1", false, {}, SyncProvider::none, "device"},
        {"Dropbox", "/u/Dropbox", false, {}, SyncProvider::dropbox, "service:Dropbox"},
        {"Google", "/u/x", false, {}, SyncProvider::googleDrive, "service:Google Drive"},
        {"OneDrive", "/u/x", false, {}, SyncProvider::oneDrive, "service:OneDrive"},
        {"anything else", "/u/x", false, {}, SyncProvider::iCloudDrive, "unknown"},
    };
    for (const auto& row : rows) {
        const auto place = VaultPlace::classify(row.path, row.isUbiquitous, row.container, row.detected);
        EXPECT_EQ(place.storageValue(), row.expected) << row.name;
        EXPECT_EQ(VaultPlace::fromStorageValue(row.expected), place) << row.name;
    }
    EXPECT_EQ(VaultPlace::fromStorageValue("Service:Box"), std::nullopt);
    EXPECT_EQ(VaultPlace::fromStorageValue(""), std::nullopt);
}

TEST(VaultPlace, TellsTheUserWhereTheFolderIs) {
    using Plain = VaultPlace::Plain;
    const struct {
        VaultPlace place;
        const char* label;
        std::optional<std::string> notice;
    } rows[] = {
        {{Plain::iCloudDrive}, "iCloud Drive", {}},
        {{Plain::thisDevice},
         "On My iPad",
         "“Notes” is on this iPad, so notes in it won't sync with your other devices. Pick a folder in "
         "iCloud Drive "
         "to share one vault with your Mac."},
        {{Plain::unknown},
         "Not in iCloud Drive",
         "“Notes” isn't in iCloud Drive, so notes in it may not sync with your other devices."},
        {{VaultPlace::Service{"Box"}},
         "Box",
         "“Notes” is in Box, not iCloud Drive. Your other devices see these notes only if Box syncs them "
         "there."},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.place.label("iPad"), row.label);
        EXPECT_EQ(row.place.syncNotice("Notes", "iPad"), row.notice);
    }
}

}  // namespace
}  // namespace vesk::test
