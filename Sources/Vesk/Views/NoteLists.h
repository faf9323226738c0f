// The vault's notes, folders, documents and trash as rows of the sidebar. Built on a worker; a value.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Vesk/Views/Sidebar.h"
#include "VeskCore/Editor/Completion.h"
#include "VeskCore/Vault/Vault.h"
#include "VeskCore/Vault/VaultTrash.h"

namespace vesk::views {

struct NoteLists {
    std::vector<Note> notes;  ///< newest first
    std::vector<VaultDocument> documents;
    std::vector<TrashedNote> trashed;
    int trashedOther = 0;
    std::vector<std::string> folders;                     ///< relative paths, a parent before its children
    std::map<std::string, Sidebar::Rows> below;           ///< rows by the id of the row they stand under
    std::shared_ptr<const Completion::Candidates> names;  ///< of notes by title, in the order of `notes`

    /// Reads the vault; blocks.
    static NoteLists read(const Vault& vault);
    const Note* note(const std::string& path) const;
};

}  // namespace vesk::views
