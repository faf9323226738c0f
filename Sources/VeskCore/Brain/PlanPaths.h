// What the paths of a plan tell before anything is looked at. Private to VaultPlanExecutor. Pure.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "VeskCore/Brain/VaultPlan.h"

namespace vesk::PlanPaths {

inline constexpr std::string_view holdsPages =
    "This folder holds web pages. Move it to the Trash from the sidebar if you mean to.";

/// Why Vesk touches nothing at a note's path, in the user's words.
std::optional<std::string> unsafeNote(std::string_view path);
/// The same for a folder's.
std::optional<std::string> unsafeFolder(std::string_view path);
/// The words for a path that no note can have, since the vault would not show it.
std::optional<std::string> notANote(std::string_view path);
std::string outside(std::string_view path);

/// The folders that an operation names.
std::vector<std::string> folders(const VaultOperation& operation);
/// The path without empty components.
std::string clean(std::string_view path);
VaultOperation mapped(const VaultOperation& operation,
                      const std::function<std::string(const std::string&)>& at);
/// One path a line.
std::string listed(const std::vector<std::string>& paths);
/// "2 notes".
std::string counted(std::size_t count, std::string_view noun);
/// The line that tells a folder's other files, below its notes.
std::string otherFiles(std::size_t count);

}  // namespace vesk::PlanPaths
