// The vaults that were opened on this device, most recent first, ten at the most.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "VeskCore/Platform/Bookmarks.h"
#include "VeskCore/Platform/UserDefaults.h"

namespace vesk {

/// Borrows the two seams. Main thread.
class VaultBookmarks {
public:
    static constexpr std::string_view defaultKey = "vesk.vault.bookmarks";
    static constexpr std::size_t limit = 10;

    VaultBookmarks(UserDefaults& defaults, const Bookmarks& bookmarks,
                   std::string key = std::string(defaultKey));

    struct Restored {
        struct Vault {
            FilePath path;
            bool operator==(const Vault&) const = default;
        };
        struct Unavailable {
            std::optional<std::string> path;
            bool operator==(const Unavailable&) const = default;
        };
        struct NothingRemembered {
            bool operator==(const NothingRemembered&) const = default;
        };
        std::variant<Vault, Unavailable, NothingRemembered> value = NothingRemembered{};
        bool operator==(const Restored&) const = default;
    };

    /// Puts a vault first. A folder that can't be described is not remembered; nothing is thrown.
    void store(const FilePath& folder);
    /// The most recent vault, if it is still a folder and not in the trash; stale data is renewed.
    Restored restoreMostRecent();
    /// Remembered vaults after the first that could be opened.
    std::vector<FilePath> olderVaultsThatOpen(std::size_t most) const;

private:
    Json::Array entries() const;
    std::optional<FilePath> openable(const FilePath& path) const;

    UserDefaults& defaults_;
    const Bookmarks& bookmarks_;
    std::string key_;
};

}  // namespace vesk
