// Whether a text that was read from the disk may take the place of the open buffer. Pure.
#pragma once

#include <optional>
#include <string>

namespace vesk::EditorRefresh {

/// `baselineAtRead` is the baseline when the read began: if another stands now, something was saved
/// meanwhile.
bool shouldAdopt(const std::optional<std::string>& disk, bool possiblyStale,
                 const std::optional<std::string>& baselineAtRead, const std::optional<std::string>& baseline,
                 const std::string& buffer, bool dirty, bool busy);

}  // namespace vesk::EditorRefresh
