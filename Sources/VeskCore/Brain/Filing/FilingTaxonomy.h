// A vault's folders sorted into inboxes, homes and what is left alone, by their names and the user's rules.
// Pure; any thread.
#pragma once

#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "VeskCore/Brain/Filing/OrganiseSettings.h"
#include "VeskCore/Vault/Vault.h"

namespace vesk {

enum class FilingScope { staging, filed, protectedFolder, excluded };
/// "staging", "filed", "protected", "excluded".
std::string_view rawValue(FilingScope scope);

struct FilingTaxonomy {
    /// Folder paths, lower-cased and composed; each counts for everything below it too.
    struct Rules {
        std::set<std::string, std::less<>> inbox, notInbox, protectedFolders;
        std::optional<std::string> junkFolder;  ///< as set, normalised

        Rules() = default;
        explicit Rules(const OrganiseSettings& settings);
        bool isProtected(std::string_view folder) const;
        bool isStaging(std::string_view folder) const;
        static bool looksLikeInbox(std::string_view name);
        bool operator==(const Rules&) const = default;
    };

    std::vector<std::string> targets, stagingFolders;
    std::vector<std::string> stagingSources;  ///< the tops of the inbox trees
    bool rootIsStaging = true;
    std::vector<std::string> protectedFolders;
    std::optional<std::string> junkFolder;
    std::string targetsHash;                  ///< the same for the same targets in any order
    std::vector<std::string> candidatePaths;  ///< notes that wait, the newest first
    int noteCount = 0;
    Rules rules;

    static FilingTaxonomy detect(const std::vector<std::string>& folders, const std::vector<Note>& notes,
                                 const OrganiseSettings& settings);
    FilingScope scope(std::string_view folder) const;
    /// Folders that a plan may not move notes into.
    std::vector<std::string> forbiddenFolders() const;
    /// "Treated as inbox: …"
    std::string treatedAsInboxLine() const;
    bool operator==(const FilingTaxonomy&) const = default;
};

}  // namespace vesk
