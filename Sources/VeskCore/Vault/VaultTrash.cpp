#include "VeskCore/Vault/VaultTrash.h"

#include <algorithm>
#include <tuple>

#include "VeskCore/Platform/FilePlatform.h"
#include "VeskCore/Platform/TrashFormat.h"
#include "VeskCore/Support/Localised.h"
#include "VeskCore/Support/PathText.h"
#include "VeskCore/Support/Pattern.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Vault/AtomicWrite.h"

namespace vesk {

namespace {

FileSystem& files() {
    return *FilePlatform::current().files;
}

/// "." and the extension, or nothing.
std::string tailOf(std::string_view name) {
    const std::string_view extension = pathExtension(name);
    return extension.empty() ? std::string() : "." + std::string(extension);
}

void setTrashOrigin(std::string_view path, const FilePath& file) {
    try {
        files().setAttribute(file, trashOriginAttribute, path);
    } catch (const Error&) {  // the item lies in the trash without origin
    }
}

std::optional<std::string> trashOrigin(const FilePath& file) {
    try {
        auto origin = files().attribute(file, trashOriginAttribute);
        if (origin && !origin->empty()) return origin;
    } catch (const Error&) {  // shown without origin
    }
    return {};
}

/// A path that a foreign or damaged attribute names may lead anywhere.
bool isUsableOrigin(std::string_view origin) {
    return !Vault::leavesVault(origin) && origin.find('\0') == origin.npos &&
           !isAtOrBelow(origin, trashFolderName);
}

}  // namespace

std::string TrashedNote::name() const {
    return std::string(Vault::isDocument(trashPath) ? lastComponent(trashPath) : stem(trashPath));
}

FilePath VaultTrash::folder() const {
    return vault_.root() / trashFolderName;
}

std::string VaultTrash::trashNote(std::string_view path) const {
    const FilePath from = vault_.notePath(path);
    vault_.requireReallyInside(from.parent_path());
    vault_.requireMaterialisedForMove(from);
    files().createDirectories(folder());
    const std::string name = vault_.placeUnderFreeName(
        folder(), stem(path), tailOf(path), [&](const FilePath& to) { CoordinatedIO::move(from, to); });
    setTrashOrigin(path, folder() / name);
    return joinedPath(trashFolderName, name);
}

void VaultTrash::trashFolder(std::string_view path) const {
    const FilePath from = vault_.notePath(path);
    vault_.requireReallyInside(from.parent_path());
    files().createDirectories(folder());
    vault_.placeUnderFreeName(folder(), lastComponent(path), {},
                              [&](const FilePath& to) { CoordinatedIO::move(from, to); });
}

std::pair<std::vector<TrashedNote>, int> VaultTrash::trashedNotes() const {
    UbiquityStatus::requestDownload(folder());
    std::vector<TrashedNote> notes;
    int others = 0;
    files().walk(folder(), [&](const WalkEntry& entry) {
        if (entry.isDirectory() || entry.name().starts_with('.')) return WalkStep::descend;
        const FilePath path = appending(folder(), entry.relativePath());
        if (UbiquityStatus::of(path) == UbiquityState::placeholder) UbiquityStatus::requestDownload(path);
        if (!Vault::indexedKind(entry.name())) {
            ++others;
            return WalkStep::descend;
        }
        const auto info = entry.info();
        notes.push_back({
            .trashPath = std::string(entry.relativePath()),
            .path = path,
            .origin = trashOrigin(path),
            .trashedAt = info ? info->modified : distantPast(),
        });
        return WalkStep::descend;
    });
    std::sort(notes.begin(), notes.end(), [](const TrashedNote& left, const TrashedNote& right) {
        return std::tie(right.trashedAt, left.trashPath) < std::tie(left.trashedAt, right.trashPath);
    });
    return {std::move(notes), others};
}

std::string VaultTrash::restore(const TrashedNote& note) const {
    vault_.requireMaterialisedForMove(note.path);
    const FilePath target = restoreTarget(note);
    const FilePath parent = target.parent_path();
    files().createDirectories(parent);
    const std::string wanted = target.filename().native();
    const std::string name =
        vault_.placeUnderFreeName(parent, stem(wanted), tailOf(wanted),
                                  [&](const FilePath& to) { CoordinatedIO::move(note.path, to); });
    return vault_.relativePath(parent / name).value_or(name);
}

FilePath VaultTrash::restoreTarget(const TrashedNote& note) const {
    // A page's place among the files that it was saved with is worth keeping.
    const bool keepsPlace = Vault::isDocument(note.trashPath) && !Vault::leavesVault(note.trashPath);
    const std::string fallback = keepsPlace ? note.trashPath : std::string(lastComponent(note.trashPath));
    if (note.origin && isUsableOrigin(*note.origin) && Vault::isSameKind(*note.origin, fallback)) {
        const FilePath target = standardised(vault_.absolutePath(*note.origin));
        try {
            vault_.requireReallyInside(target);
            if (vault_.relativePath(target)) return target;
        } catch (const VaultWriteError&) {  // links lead from there out of the vault
        }
    }
    return vault_.absolutePath(fallback);
}

bool VaultTrash::holdsNote(std::string_view path) const {
    return trashedNote(path, trashedNotes().first).has_value();
}

std::optional<TrashedNote> VaultTrash::trashedNote(std::string_view matchingPath,
                                                   const std::vector<TrashedNote>& list) {
    if (Vault::isUntitled(matchingPath)) return {};
    const auto known = std::find_if(list.begin(), list.end(),
                                    [&](const TrashedNote& note) { return note.origin == matchingPath; });
    if (known != list.end()) return *known;
    const std::string wanted = decodedText(std::string(stem(matchingPath)));
    const auto numbered = Pattern::compile("^" + Pattern::escaped(wanted) + "( \\d+)*$");
    const std::string extension = lowercasedExtension(matchingPath);
    for (const TrashedNote& note : list) {
        if (!numbered || note.origin || lowercasedExtension(note.trashPath) != extension) continue;
        if (numbered->occursIn(decodedText(std::string(stem(note.trashPath))))) return note;
    }
    return {};
}

std::string VaultTrash::keepInTrash(std::string_view text, std::string_view path) const {
    files().createDirectories(folder());
    const std::string name =
        vault_.placeUnderFreeName(folder(), stem(path), tailOf(path), [&](const FilePath& to) {
            AtomicWrite::refuseDocument(to);
            CoordinatedIO::createText(to, text);
        });
    setTrashOrigin(path, folder() / name);
    return joinedPath(trashFolderName, name);
}

std::optional<std::string> VaultTrash::trashedText(std::string_view path) const {
    const auto note = trashedNote(path, trashedNotes().first);
    if (!note) return {};
    try {
        return CoordinatedIO::read(note->path);
    } catch (const Error&) {
        return {};
    }
}

std::optional<std::string> VaultTrash::keepMissingText(std::string_view text, std::string_view path) const {
    if (trashedText(path) == text) return {};
    return keepInTrash(text, path);
}

void VaultTrash::empty() const {
    if (files().linkInfo(folder())) files().removeTree(folder());
}

std::string VaultTrash::emptyPrompt(const std::vector<TrashedNote>& notes, int otherItems) {
    std::size_t noteCount = 0, pages = 0, others = static_cast<std::size_t>(std::max(otherItems, 0));
    for (const TrashedNote& note : notes) {
        switch (Vault::indexedKind(note.trashPath).value_or(IndexedKind::note)) {
            case IndexedKind::note:
                ++noteCount;
                break;
            case IndexedKind::page:
                ++pages;
                break;
            case IndexedKind::stylesheet:
                ++others;
                break;
        }
    }
    std::vector<std::string> parts;
    if (noteCount > 0) parts.push_back(localisedCount("{} note", "{} notes", noteCount, noteCount));
    if (pages > 0) parts.push_back(localisedCount("{} web page", "{} web pages", pages, pages));
    if (others > 0) parts.push_back(localisedCount("{} other item", "{} other items", others, others));
    std::string list;
    for (std::size_t i = 0; i < parts.size(); ++i) {
        if (i > 0) list += i + 1 == parts.size() ? localised(" and ") : ", ";
        list += parts[i];
    }
    return localised("Delete {} forever?", list);
}

}  // namespace vesk
