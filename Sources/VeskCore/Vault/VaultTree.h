// The vault as a tree of folders, built in memory from flat lists, and the folders that are fit to receive
// notes. Values that share their nodes; any thread once built. A vault of 100,000 notes takes a fraction of a
// second.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "VeskCore/Vault/Vault.h"

namespace vesk {

class VaultTree {
public:
    struct Node {
        std::string path;  ///< relative; empty for the root; its identity
        std::string name;
        std::vector<std::unique_ptr<Node>> children;
        std::vector<Note> notes;
        std::vector<std::string> files;  ///< relative paths of attachments
        std::vector<VaultDocument> documents;

        // Over the node and all below it
        std::size_t totalNoteCount() const;
        std::size_t totalFileCount() const;
        std::size_t totalDocumentCount() const;
        std::vector<const VaultDocument*> allDocuments() const;
        bool containsDocument(const std::function<bool(const VaultDocument&)>& matches) const;

        bool hasContent() const {
            return !children.empty() || !notes.empty() || !files.empty() || !documents.empty();
        }
    };

    /// An empty vault's.
    VaultTree();
    /// Names are sorted as the desktop sorts them.
    VaultTree(const std::vector<Note>& notes, const std::vector<std::string>& emptyFolders,
              const std::vector<std::string>& attachments, const std::vector<VaultDocument>& documents);

    const Node& root() const { return *root_; }
    /// None for a path that is no folder of the tree.
    const Node* node(std::string_view path) const;
    /// Every folder below the root, a parent before its children.
    std::vector<std::string> allFolderPaths() const;
    /// The folders that a note may be filed into: those of saved web sites are not among them.
    std::vector<std::string> noteDestinations() const;

    /// Two trees are the same only if one is a copy of the other.
    bool operator==(const VaultTree&) const = default;

private:
    std::shared_ptr<const Node> root_;
};

}  // namespace vesk
