#include "VeskCore/Vault/EditorRefresh.h"

namespace vesk::EditorRefresh {

bool shouldAdopt(const std::optional<std::string>& disk, bool possiblyStale,
                 const std::optional<std::string>& baselineAtRead, const std::optional<std::string>& baseline,
                 const std::string& buffer, bool dirty, bool busy) {
    if (!disk || possiblyStale || dirty || busy || !baseline || baseline != baselineAtRead) return false;
    return buffer == *baseline && *disk != *baseline;
}

}  // namespace vesk::EditorRefresh
