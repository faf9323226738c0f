#include "VeskCore/Index/LinkLookup.h"

#include <algorithm>
#include <tuple>

#include "VeskCore/Index/NoteIndex.h"
#include "VeskCore/Support/PathText.h"

namespace vesk {

namespace {

/// The keys of one note: its path, its path without extension, its name.
std::vector<std::string> noteKeys(std::string_view path) {
    std::vector<std::string> keys = {NoteIndex::linkKey(path), NoteIndex::linkKey(deletingExtension(path)),
                                     NoteIndex::linkKey(Note{.relativePath = std::string(path)}.name())};
    std::sort(keys.begin(), keys.end());
    keys.erase(std::unique(keys.begin(), keys.end()), keys.end());
    std::erase(keys, std::string());
    return keys;
}

}  // namespace

void LinkLookup::clear() {
    *this = LinkLookup();
}

void LinkLookup::addNote(std::string_view path) {
    // The whole path's key tells: few notes share it, while many may share a name.
    auto [first, last] = numbersByKey_.equal_range(hash(NoteIndex::linkKey(path)));
    if (std::any_of(first, last, [&](const auto& entry) { return paths_[entry.second] == path; })) return;
    auto number = static_cast<Number>(paths_.size());
    paths_.emplace_back(path);
    for (const auto& key : noteKeys(path)) numbersByKey_.emplace(hash(key), number);
}

void LinkLookup::remove(std::string_view path) {
    dropAliases(path);
    for (const auto& key : noteKeys(path)) {
        auto [first, last] = numbersByKey_.equal_range(hash(key));
        while (first != last) {
            auto entry = first++;
            if (paths_[entry->second] == path) numbersByKey_.erase(entry);
        }
    }
}

void LinkLookup::setAliases(std::string_view path, std::vector<Alias> aliases) {
    auto known = aliasesByPath_.find(std::string(path));
    if (known == aliasesByPath_.end() ? aliases.empty() : known->second == aliases) return;
    dropAliases(path);
    for (Alias& alias : aliases) addAlias(path, std::move(alias));
}

void LinkLookup::addAlias(std::string_view path, Alias alias) {
    aliasesByKey_.emplace(hash(NoteIndex::linkKey(alias.text)), AliasEntry{alias, std::string(path)});
    aliasesByPath_[std::string(path)].push_back(std::move(alias));
}

void LinkLookup::dropAliases(std::string_view path) {
    auto known = aliasesByPath_.find(std::string(path));
    if (known == aliasesByPath_.end()) return;
    for (const Alias& alias : known->second) {
        auto [first, last] = aliasesByKey_.equal_range(hash(NoteIndex::linkKey(alias.text)));
        while (first != last) {
            auto entry = first++;
            if (entry->second.path == path) aliasesByKey_.erase(entry);
        }
    }
    aliasesByPath_.erase(known);
}

std::vector<std::string> LinkLookup::candidates(std::string_view key) const {
    std::vector<std::string> result;
    if (key.empty()) return result;

    std::vector<Number> numbers;
    auto [firstNote, lastNote] = numbersByKey_.equal_range(hash(key));
    for (; firstNote != lastNote; ++firstNote) {
        auto keys = noteKeys(paths_[firstNote->second]);
        if (std::find(keys.begin(), keys.end(), key) != keys.end()) numbers.push_back(firstNote->second);
    }
    std::sort(numbers.begin(), numbers.end());
    for (Number number : numbers) result.push_back(paths_[number]);

    std::vector<const AliasEntry*> aliases;
    auto [firstAlias, lastAlias] = aliasesByKey_.equal_range(hash(key));
    for (; firstAlias != lastAlias; ++firstAlias) {
        if (NoteIndex::linkKey(firstAlias->second.alias.text) == key) aliases.push_back(&firstAlias->second);
    }
    std::sort(aliases.begin(), aliases.end(), [](const AliasEntry* a, const AliasEntry* b) {
        return std::tie(a->alias.key, a->alias.text, a->path) <
               std::tie(b->alias.key, b->alias.text, b->path);
    });
    for (const AliasEntry* entry : aliases) {
        if (std::find(result.begin(), result.end(), entry->path) == result.end())
            result.push_back(entry->path);
    }
    return result;
}

}  // namespace vesk
