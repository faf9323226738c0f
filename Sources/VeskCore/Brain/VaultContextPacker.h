// Decides what of the vault a model may see: all of it where its window holds it, else the best passages.
#pragma once

#include <span>
#include <stop_token>
#include <string_view>

#include "VeskCore/Brain/VaultContext.h"
#include "VeskCore/Index/NoteIndex.h"
#include "VeskCore/Index/SearchEngine.h"
#include "VeskCore/Vault/Vault.h"

namespace vesk::VaultContextPacker {

/// The tokens of a window that are there for context.
int budget(int window, int maxOutput);
/// Errs on the high side: one for each code point beyond ASCII and for three within.
int estimatedTokens(std::string_view text);

/// Blocks a worker; throws nothing. An empty embedding leaves the semantic search out. Once stopped it
/// returns soon, with what it has.
VaultContext pack(const Vault& vault, const NoteIndex& index, const SearchEngine& search,
                  std::string_view query, std::span<const float> embedding, int budgetTokens,
                  std::stop_token stop = {});

}  // namespace vesk::VaultContextPacker
