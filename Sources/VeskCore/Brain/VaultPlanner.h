// Plans in a model's reply: the prompt that asks for one, and the tolerant reading of what comes. Pure.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "VeskCore/Brain/VaultPlan.h"
#include "VeskCore/Support/Json.h"

namespace vesk::VaultPlanner {

/// Added to the system prompt of a conversation about the vault.
extern const std::string_view planningInstructions;

/// The plan in a reply. Operations that can't be read are left out. Throws VaultPlanError.
VaultPlan parse(std::string_view reply);
/// The prose of a reply.
std::string removingPlanJSON(std::string_view reply);
/// One operation by any of the names that models give it; none if it can't be read.
std::optional<VaultOperation> operation(const Json& object);

/// A note's path as models write it, relative to the vault and with an extension.
std::string normalise(std::string_view path);
std::string normaliseFolder(std::string_view path);

}  // namespace vesk::VaultPlanner
