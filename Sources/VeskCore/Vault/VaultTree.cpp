#include "VeskCore/Vault/VaultTree.h"

#include <algorithm>
#include <set>
#include <unordered_map>
#include <utility>

#include "VeskCore/Support/PathText.h"
#include "VeskCore/Support/Unicode.h"

namespace vesk {

namespace {

using Node = VaultTree::Node;

/// Sorts by a name, whose collation key is made once for each item.
template <class Item, class Name>
void sortByName(std::vector<Item>& items, Name name) {
    std::vector<std::pair<std::string, std::size_t>> keys;
    keys.reserve(items.size());
    for (std::size_t i = 0; i < items.size(); ++i) keys.emplace_back(localisedSortKey(name(items[i])), i);
    std::sort(keys.begin(), keys.end());
    std::vector<Item> sorted;
    sorted.reserve(items.size());
    for (const auto& key : keys) sorted.push_back(std::move(items[key.second]));
    items = std::move(sorted);
}

void sortNode(Node& node) {
    sortByName(node.children, [](const auto& child) -> const std::string& { return child->name; });
    sortByName(node.notes, [](const Note& note) -> const std::string& { return note.title; });
    sortByName(node.files, [](const std::string& file) { return lastComponent(file); });
    sortByName(node.documents, [](const VaultDocument& document) { return document.fileName(); });
    for (const auto& child : node.children) sortNode(*child);
}

class Builder {
public:
    Node& folder(std::string_view path) {
        if (path.empty()) return *root;
        if (const auto known = nodes_.find(std::string(path)); known != nodes_.end()) return *known->second;
        Node& parent = folder(parentFolder(path));
        auto node = std::make_unique<Node>();
        node->path = path;
        node->name = lastComponent(path);
        Node& made = *node;
        parent.children.push_back(std::move(node));
        nodes_.emplace(path, &made);
        return made;
    }

    std::unique_ptr<Node> root = std::make_unique<Node>();

private:
    std::unordered_map<std::string, Node*> nodes_;
};

/// The parent of what the path names, also for a path without any.
std::string_view folderOf(std::string_view path) {
    return parentFolder(path);
}

bool isIndexPage(const VaultDocument& document) {
    const std::string name = lowercased(document.fileName());
    return name == "index.html" || name == "index.htm";
}

bool belongsToASite(const VaultDocument& document) {
    return document.kind == IndexedKind::stylesheet || isIndexPage(document);
}

class Destinations {
public:
    explicit Destinations(const Node& root) {
        for (const VaultDocument* document : root.allDocuments()) {
            if (document->kind == IndexedKind::page)
                pageStems_.insert(lowercased(deletingExtension(document->relativePath)));
        }
        walk(root, false);
    }
    std::vector<std::string> paths;

private:
    bool isSupportFolder(const std::string& path) const {
        const auto folders = Vault::savedPageFolders(path + "/-");
        return std::any_of(folders.begin(), folders.end(), [&](const auto& folder) {
            return pageStems_.contains(lowercased(joinedPath(folder.first, folder.second)));
        });
    }

    void walk(const Node& node, bool insideSite) {
        for (const auto& child : node.children) {
            if (child->name.starts_with('.')) continue;
            if (node.path.empty() && child->name == Vault::attachmentsFolder) continue;
            const bool hasNotes = child->totalNoteCount() > 0;
            const bool isSite = child->containsDocument(belongsToASite);
            if (!hasNotes && (isSite || insideSite || isSupportFolder(child->path))) {
                walk(*child, true);
                continue;
            }
            paths.push_back(child->path);
            walk(*child,
                 insideSite || std::any_of(child->documents.begin(), child->documents.end(), isIndexPage));
        }
    }

    std::set<std::string> pageStems_;
};

template <class Count>
std::size_t total(const Node& node, Count count) {
    std::size_t sum = count(node);
    for (const auto& child : node.children) sum += total(*child, count);
    return sum;
}

void collectDocuments(const Node& node, std::vector<const VaultDocument*>& documents) {
    for (const auto& document : node.documents) documents.push_back(&document);
    for (const auto& child : node.children) collectDocuments(*child, documents);
}

void collectPaths(const Node& node, std::vector<std::string>& paths) {
    for (const auto& child : node.children) {
        paths.push_back(child->path);
        collectPaths(*child, paths);
    }
}

}  // namespace

std::size_t Node::totalNoteCount() const {
    return total(*this, [](const Node& node) { return node.notes.size(); });
}
std::size_t Node::totalFileCount() const {
    return total(*this, [](const Node& node) { return node.files.size(); });
}
std::size_t Node::totalDocumentCount() const {
    return total(*this, [](const Node& node) { return node.documents.size(); });
}

std::vector<const VaultDocument*> Node::allDocuments() const {
    std::vector<const VaultDocument*> found;
    collectDocuments(*this, found);
    return found;
}

bool Node::containsDocument(const std::function<bool(const VaultDocument&)>& matches) const {
    return std::any_of(documents.begin(), documents.end(), matches) ||
           std::any_of(children.begin(), children.end(),
                       [&](const auto& child) { return child->containsDocument(matches); });
}

VaultTree::VaultTree() : root_(std::make_shared<const Node>()) {}

VaultTree::VaultTree(const std::vector<Note>& notes, const std::vector<std::string>& emptyFolders,
                     const std::vector<std::string>& attachments,
                     const std::vector<VaultDocument>& documents) {
    Builder builder;
    for (const Note& note : notes) builder.folder(folderOf(note.relativePath)).notes.push_back(note);
    for (const auto& path : attachments) builder.folder(folderOf(path)).files.push_back(path);
    for (const auto& document : documents)
        builder.folder(folderOf(document.relativePath)).documents.push_back(document);
    for (const auto& path : emptyFolders) builder.folder(path);
    sortNode(*builder.root);
    root_ = std::move(builder.root);
}

const VaultTree::Node* VaultTree::node(std::string_view path) const {
    const Node* node = root_.get();
    for (const auto component : pathComponents(path)) {
        const auto child = std::find_if(node->children.begin(), node->children.end(),
                                        [&](const auto& candidate) { return candidate->name == component; });
        if (child == node->children.end()) return nullptr;
        node = child->get();
    }
    return node;
}

std::vector<std::string> VaultTree::allFolderPaths() const {
    std::vector<std::string> paths;
    collectPaths(*root_, paths);
    return paths;
}

std::vector<std::string> VaultTree::noteDestinations() const {
    return Destinations(*root_).paths;
}

}  // namespace vesk
