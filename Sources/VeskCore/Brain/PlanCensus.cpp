#include "VeskCore/Brain/PlanCensus.h"

#include "VeskCore/Brain/VaultPlanExecutor.h"
#include "VeskCore/Platform/FilePlatform.h"
#include "VeskCore/Support/PathText.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"

namespace vesk {

namespace {

std::string key(std::string_view path) {
    return isAscii(path) ? std::string(path) : normalisedNfc(path);
}

std::string foldedKey(std::string_view path) {
    return normalisedNfc(caseFolded(normalisedNfc(path)));
}

}  // namespace

PlanCensus::PlanCensus(const Vault& vault) {
    auto [notes, documents] = vault.enumerateNotesAndDocuments();
    for (auto& note : notes) {
        addParents(note.relativePath);
        addName(note.relativePath);
        auto noteKey = key(note.relativePath);
        notes_.insert_or_assign(std::move(noteKey),
                                Entry{.path = note.relativePath, .onDisk = note.relativePath, .text = {}});
    }
    const auto addFile = [&](std::string_view path) {
        if (files_.try_emplace(key(path), File{Vault::isDocument(path)}).second) addName(path);
    };
    for (const auto& document : documents) addFile(document.relativePath);
    FilePlatform::current().files->walk(vault.root(), [&](const WalkEntry& entry) {
        const auto name = entry.name();
        if (entry.isDirectory()) {
            if (name.starts_with('.') || Vault::ignoredDirectories().contains(name)) return WalkStep::skip;
            addFolder(entry.relativePath());
        } else if (!name.starts_with('.') && !notes_.contains(key(entry.relativePath()))) {
            addFile(entry.relativePath());
        }
        return WalkStep::descend;
    });
}

const PlanCensus::Entry* PlanCensus::note(std::string_view path) const {
    const auto found = notes_.find(key(path));
    return found == notes_.end() ? nullptr : &found->second;
}

bool PlanCensus::isFolder(std::string_view path) const {
    return folders_.contains(key(path));
}

std::optional<std::string> PlanCensus::fileAbove(std::string_view path) const {
    for (auto above = parentFolder(path); !above.empty(); above = parentFolder(above)) {
        if (notes_.contains(key(above)) || files_.contains(key(above))) return std::string(above);
    }
    return std::nullopt;
}

std::string PlanCensus::spelled(std::string_view path) const {
    if (const auto* entry = note(path)) return entry->path;
    for (auto folder = path; !folder.empty(); folder = parentFolder(folder)) {
        const auto found = folders_.find(key(folder));
        if (found != folders_.end()) return found->second + std::string(path.substr(folder.size()));
    }
    return std::string(path);
}

bool PlanCensus::isTaken(std::string_view path, std::string_view besides) const {
    const auto wanted = foldedKey(path);
    const auto found = names_.find(wanted);
    if (found == names_.end()) return false;
    const bool isItself = !besides.empty() && foldedKey(besides) == wanted;
    return found->second > (isItself ? 1U : 0U);
}

template <class Map>
std::vector<typename Map::key_type> PlanCensus::keysUnder(const Map& map, std::string_view folder) {
    const auto prefix = key(folder) + "/";
    std::vector<typename Map::key_type> found;
    for (auto it = map.lower_bound(prefix); it != map.end() && it->first.starts_with(prefix); ++it) {
        found.push_back(it->first);
    }
    return found;
}

std::vector<std::string> PlanCensus::notesUnder(std::string_view folder) const {
    std::vector<std::string> paths;
    for (const auto& noteKey : keysUnder(notes_, folder)) paths.push_back(notes_.at(noteKey).path);
    return paths;
}

std::size_t PlanCensus::otherFilesUnder(std::string_view folder) const {
    std::size_t count = 0;
    for (const auto& fileKey : keysUnder(files_, folder)) count += files_.at(fileKey).isDocument ? 0U : 1U;
    return count;
}

bool PlanCensus::holdsDocuments(std::string_view folder) const {
    for (const auto& fileKey : keysUnder(files_, folder)) {
        if (files_.at(fileKey).isDocument) return true;
    }
    return false;
}

void PlanCensus::addNote(std::string path, std::string text) {
    addParents(path);
    addName(path);
    auto noteKey = key(path);
    notes_.insert_or_assign(std::move(noteKey),
                            Entry{.path = std::move(path), .onDisk = {}, .text = std::move(text)});
}

void PlanCensus::setText(std::string_view path, std::string text) {
    notes_.at(key(path)).text = std::move(text);
}

void PlanCensus::moveNote(std::string_view from, std::string to) {
    auto node = notes_.extract(key(from));
    removeName(from);
    addParents(to);
    addName(to);
    node.key() = key(to);
    node.mapped().path = std::move(to);
    notes_.insert(std::move(node));
}

void PlanCensus::removeNote(std::string_view path) {
    notes_.erase(key(path));
    removeName(path);
}

void PlanCensus::addFolder(std::string_view path) {
    addParents(path);
    if (folders_.try_emplace(key(path), path).second) addName(path);
}

void PlanCensus::moveFolder(std::string_view from, std::string_view to) {
    using VaultPlanExecutor::remapped;
    const std::string source(from);
    for (const auto& noteKey : keysUnder(notes_, source)) {
        const auto path = notes_.at(noteKey).path;
        moveNote(path, remapped(path, source, to));
    }
    for (const auto& fileKey : keysUnder(files_, source)) {
        auto node = files_.extract(fileKey);
        removeName(fileKey);
        node.key() = key(remapped(fileKey, key(source), to));
        addName(node.key());
        files_.insert(std::move(node));
    }
    for (const auto& folderKey : keysUnder(folders_, source)) {
        const auto path = folders_.at(folderKey);
        folders_.erase(folderKey);
        removeName(path);
        addFolder(remapped(path, source, to));
    }
    if (folders_.erase(key(source)) > 0) removeName(source);
    addFolder(to);
}

void PlanCensus::removeFolder(std::string_view path) {
    const std::string folder(path);
    for (const auto& noteKey : keysUnder(notes_, folder)) removeNote(notes_.at(noteKey).path);
    for (const auto& fileKey : keysUnder(files_, folder)) {
        files_.erase(fileKey);
        removeName(fileKey);
    }
    for (const auto& folderKey : keysUnder(folders_, folder)) {
        removeName(folderKey);
        folders_.erase(folderKey);
    }
    if (folders_.erase(key(folder)) > 0) removeName(folder);
}

void PlanCensus::addName(std::string_view path) {
    ++names_[foldedKey(path)];
}

void PlanCensus::removeName(std::string_view path) {
    const auto found = names_.find(foldedKey(path));
    if (found != names_.end() && --found->second == 0) names_.erase(found);
}

void PlanCensus::addParents(std::string_view path) {
    for (auto folder = parentFolder(path); !folder.empty(); folder = parentFolder(folder)) {
        if (!folders_.try_emplace(key(folder), folder).second) return;
        addName(folder);
    }
}

}  // namespace vesk
