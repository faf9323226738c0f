// Which notes wait to be filed, without any model.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "VeskCore/Vault/VaultTree.h"

namespace vesk {

struct UnfiledNotes {
    std::vector<Note> candidates;  ///< the newest first

    /// Reads the vault's settings; walks the vault for its tree unless one is given. Blocks a worker.
    static UnfiledNotes detect(const Vault& vault, const std::vector<Note>& notes);
    static UnfiledNotes detect(const Vault& vault, const VaultTree& tree, const std::vector<Note>& notes);
    UnfiledNotes excluding(const std::set<std::string>& paths) const;
    bool operator==(const UnfiledNotes&) const = default;
};

}  // namespace vesk
