// The order of the whole note list, and the few notes that changed last. Pure; any thread.
#pragma once

#include <cstddef>
#include <set>
#include <string>
#include <vector>

#include "VeskCore/Vault/Vault.h"

namespace vesk::RecentlyChanged {

inline constexpr std::size_t limit = 5;

/// Newest first, notes of one moment by their paths: a total order.
std::vector<Note> byRecency(std::vector<Note> notes);
/// The first `most` notes in their order whose path isn't hidden.
std::vector<Note> pick(const std::vector<Note>& notesByRecency, const std::set<std::string>& hidden,
                       std::size_t most = limit);

}  // namespace vesk::RecentlyChanged
