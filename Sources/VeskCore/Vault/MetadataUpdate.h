// What one update of the provider's metadata query means for the vault. Pure; any thread.
#pragma once

#include <optional>
#include <set>
#include <string>
#include <vector>

namespace vesk {

struct MetadataUpdate {
    std::set<std::string> notes;  ///< relative paths
    bool foldersChanged = false;

    /// Of absolute paths below one of `prefixes`, the spellings of the vault's root. None if a path lies
    /// elsewhere: then only a whole pass tells what changed.
    static std::optional<MetadataUpdate> read(const std::vector<std::string>& changed,
                                              const std::vector<std::string>& added,
                                              const std::vector<std::string>& removed,
                                              const std::vector<std::string>& prefixes);
    bool operator==(const MetadataUpdate&) const = default;
};

}  // namespace vesk
