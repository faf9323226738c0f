// Conflicts that the sync provider itself holds: versions of a note side by side. Any thread; calls block.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "VeskCore/Platform/FileVersions.h"
#include "VeskCore/Vault/Vault.h"

namespace vesk {

struct NoteConflict {
    struct Version {
        std::string identifier;
        TimePoint modified;
        std::optional<std::string> deviceName, text;
        std::int64_t byteSize = 0;

        bool looksEmpty() const;
        std::string summary(std::string_view timeZone, std::string_view locale) const;
        bool operator==(const Version&) const = default;
    };
    std::string relativePath;  ///< its identity
    FilePath path;
    Version current;
    std::vector<Version> others;

    /// Some versions look empty and some don't.
    bool hasEmptyVersionRisk() const;
    bool operator==(const NoteConflict&) const = default;
};

struct ConflictResolution {
    struct KeepOther {
        std::string identifier;
        bool operator==(const KeepOther&) const = default;
    };
    enum class Plain { keepCurrent, keepBoth };
    std::variant<KeepOther, Plain> value = Plain::keepBoth;
    bool operator==(const ConflictResolution&) const = default;
};

class ConflictResolver {
public:
    explicit ConflictResolver(FileVersions& versions) : versions_(versions) {}

    /// In listing order; nothing for a vault that no service syncs.
    std::vector<NoteConflict> scan(const Vault& vault) const;
    std::optional<NoteConflict> conflict(const FilePath& path, std::string_view relativePath) const;
    /// Throws; the versions stay unresolved when it does.
    void resolve(const NoteConflict& conflict, const ConflictResolution& resolution,
                 const Vault& vault) const;

    struct KeepBothResult {
        struct Kept {
            std::vector<std::string> copies;
            bool operator==(const Kept&) const = default;
        };
        enum class Plain { waiting, settled };
        std::variant<Kept, Plain> value = Plain::settled;
        bool operator==(const KeepBothResult&) const = default;
    };
    /// Writes every version beside the note, or none if one can't be read yet.
    KeepBothResult keepBothKeepingVersions(const FilePath& path, std::string_view relativePath,
                                           const Vault& vault) const;

    /// `index` counts devices from 1.
    static std::string keepBothCopyPath(std::string_view path, const std::optional<std::string>& device,
                                        int index, const std::function<bool(const std::string&)>& isTaken);

private:
    FileVersions& versions_;
};

}  // namespace vesk
