#include "VeskCore/Brain/Filing/UnfiledNotes.h"

#include <string_view>
#include <unordered_map>

#include "VeskCore/Brain/Filing/FilingTaxonomy.h"

namespace vesk {

namespace {

/// With fewer there is nothing to choose between.
constexpr std::size_t fewestTargets = 2;

}  // namespace

UnfiledNotes UnfiledNotes::detect(const Vault& vault, const std::vector<Note>& notes) {
    const VaultTree tree(notes, vault.emptyFolderPaths(), vault.enumerateAttachments(),
                         vault.enumerateDocuments());
    return detect(vault, tree, notes);
}

UnfiledNotes UnfiledNotes::detect(const Vault& vault, const VaultTree& tree, const std::vector<Note>& notes) {
    const auto taxonomy =
        FilingTaxonomy::detect(tree.noteDestinations(), notes, OrganiseSettings::load(vault));
    if (taxonomy.targets.size() < fewestTargets) return {};
    std::unordered_map<std::string_view, const Note*> byPath;
    for (const auto& note : notes) byPath.emplace(note.relativePath, &note);
    UnfiledNotes unfiled;
    for (const auto& path : taxonomy.candidatePaths) unfiled.candidates.push_back(*byPath.at(path));
    return unfiled;
}

UnfiledNotes UnfiledNotes::excluding(const std::set<std::string>& paths) const {
    UnfiledNotes rest = *this;
    std::erase_if(rest.candidates, [&](const Note& note) { return paths.contains(note.relativePath); });
    return rest;
}

}  // namespace vesk
