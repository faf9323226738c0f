// What a person does to the structure of the vault: notes and folders made, renamed, moved, trashed and
// restored. After each act the lists are read anew and the session is told.
#include <algorithm>

#include "Vesk/WorkspaceTasks.h"
#include "VeskCore/Markdown/FrontmatterDoc.h"
#include "VeskCore/Platform/FilePlatform.h"
#include "VeskCore/Support/Localised.h"
#include "VeskCore/Support/PathText.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Vault/AtomicWrite.h"
#include "VeskCore/Vault/VaultWriteError.h"

namespace vesk {

namespace {

std::string said() {
    return describe(std::current_exception());
}

bool isTaken(const VaultWriteError& error) {
    return error.kind == VaultWriteError::Kind::alreadyExists;
}

std::string nameOf(std::string_view path) {
    Note note;
    note.relativePath = path;
    return decodedText(note.name());
}

}  // namespace

void Workspace::newNote(const std::optional<std::string>& folder) {
    if (!vault.get()) return chooseVault(StartIn::cloudDrive);
    std::string path;
    try {
        path = vault.get()->createNote(Vault::untitledName, folder.value_or(""), "").relativePath;
    } catch (const Error&) {
        return fail(said());
    }
    reload();
    selection.set(path);
    services_.mainQueue.post([weak = std::weak_ptr<Life>(life_)] {
        if (const auto life = weak.lock()) life->workspace->editorFocusRequested.send();
    });
}

void Workspace::newReminder() {
    if (!vault.get()) return chooseVault(StartIn::cloudDrive);
    const auto picks = NoteReminder::quickPicks(services_.clock.now(), services_.calendar());
    if (picks.empty()) return;
    const auto beside = selectedNote();
    std::string path;
    try {
        const auto text = NoteReminder::noteTemplate(picks.front().date, services_.calendar());
        path =
            vault.get()
                ->createNote("Reminder",
                             beside ? std::string(parentFolder(beside->relativePath)) : std::string(), text)
                .relativePath;
    } catch (const Error&) {
        return fail(said());
    }
    if (session.get()) {
        session.get()->apply(
            {FileChange{vault.get()->absolutePath(path), path, {FileChange::Kind::Plain::created}}});
    }
    reload();
    selection.set(path);
    editorFocusRequested.send();
}

std::optional<std::string> Workspace::createFolder(std::string_view name, std::string_view parent) {
    if (!vault.get()) return {};
    std::string made;
    try {
        made = vault.get()->createFolder(name, parent);
    } catch (const Error&) {
        fail(said());
        return {};
    }
    refreshFolders();
    return made;
}

std::optional<std::string> Workspace::renameNote(std::string path, std::string_view name) {
    if (!vault.get()) return {};
    services_.bridge.flushAllPendingSaves();
    std::string renamed;
    try {
        renamed = vault.get()->renameNote(path, name);
    } catch (const VaultWriteError& error) {
        fail(isTaken(error)
                 ? localised("Couldn't rename this note — one called “{}” is already in this folder.", name)
                 : localised("Couldn't rename this note: {}", error.description()));
        return {};
    } catch (const Error&) {
        fail(localised("Couldn't rename this note: {}", said()));
        return {};
    }
    if (session.get()) session.get()->noteMoved(path, renamed);
    if (surface.get()) surface.get()->follow(path, renamed);
    pathChanged(path, renamed);
    if (selection.get() == path) selection.set(renamed);
    reload();
    return renamed;
}

void Workspace::moveNote(std::string path, const std::string& folder) {
    if (!vault.get()) return;
    services_.bridge.flushAllPendingSaves();
    std::string moved;
    try {
        moved = vault.get()->moveNote(path, folder);
    } catch (const VaultWriteError& error) {
        return fail(isTaken(error)
                        ? localised("Couldn't move {}: a note with that name is already in {}.", nameOf(path),
                                    folder.empty() ? localised("the vault root") : decodedText(folder))
                        : nameOf(path) + ": " + error.description());
    } catch (const Error&) {
        return fail(nameOf(path) + ": " + said());
    }
    if (session.get()) session.get()->noteMoved(path, moved);
    if (surface.get()) surface.get()->follow(path, moved);
    pathChanged(path, moved);
    if (selection.get() == path) selection.set(moved);
    reload();
}

void Workspace::trashNote(std::string path) {
    if (!vault.get()) return;
    services_.bridge.flushAllPendingSaves();
    try {
        VaultTrash(*vault.get()).trashNote(path);
    } catch (const Error&) {
        return fail(localised("Couldn't move {} to the trash: {}", decodedText(path), said()));
    }
    if (session.get()) session.get()->notesTrashed({path});
    pathsRemoved({path});
    if (selection.get() == path) selection.set(std::nullopt);
    if (session.get())
        session.get()->apply(
            {FileChange{vault.get()->absolutePath(path), path, {FileChange::Kind::Plain::deleted}}});
    reload();
}

std::optional<std::string> Workspace::renameFolder(std::string path, std::string_view name) {
    if (!vault.get()) return {};
    services_.bridge.flushAllPendingSaves();
    std::string renamed;
    try {
        renamed = vault.get()->renameFolder(path, name);
    } catch (const VaultWriteError& error) {
        fail(error.description());
        return {};
    } catch (const Error&) {
        fail(said());
        return {};
    }
    if (renamed == path) return renamed;
    if (session.get()) session.get()->notesMoved({{path, renamed}});
    if (surface.get()) surface.get()->follow(path, renamed);
    pathChanged(path, renamed);
    std::map<std::string, std::string> moved;
    if (const auto& selected = selection.get(); selected && isAtOrBelow(*selected, path))
        moved[*selected] = renamed + selected->substr(path.size());
    followStructureChange(moved, {});
    if (session.get()) session.get()->rebuildAfterBulkChange();
    return renamed;
}

void Workspace::trashFolder(std::string path) {
    if (!vault.get()) return;
    services_.bridge.flushAllPendingSaves();
    try {
        VaultTrash(*vault.get()).trashFolder(path);
    } catch (const Error&) {
        return fail(said());
    }
    if (session.get()) session.get()->notesTrashed({path});
    pathsRemoved({path});
    std::set<std::string> removed;
    if (const auto& selected = selection.get(); selected && isAtOrBelow(*selected, path))
        removed.insert(*selected);
    followStructureChange({}, removed);
    if (session.get()) session.get()->rebuildAfterBulkChange();
}

void Workspace::followStructureChange(const std::map<std::string, std::string>& renamed,
                                      const std::set<std::string>& removed) {
    for (const auto& [from, to] : renamed) pathChanged(from, to);
    pathsRemoved(removed);
    if (const auto selected = selection.get()) {
        if (const auto to = renamed.find(*selected); to != renamed.end()) {
            selection.set(to->second);
        } else if (removed.contains(*selected)) {
            selection.set(std::nullopt);
        }
    }
    reload();
    refreshFolders();
}

void Workspace::restoreTrashed(const TrashedNote& note) {
    if (!vault.get()) return;
    std::string path;
    try {
        path = VaultTrash(*vault.get()).restore(note);
    } catch (const Error&) {
        return fail(said());
    }
    reload();
    refreshFolders();
    if (Vault::isDocument(path)) {
        openDocument(path);
    } else {
        selection.set(path);
    }
    if (session.get()) session.get()->rebuildAfterBulkChange();
}

void Workspace::emptyTrash() {
    if (!vault.get()) return;
    try {
        VaultTrash(*vault.get()).empty();
    } catch (const Error&) {
        fail(said());
    }
    refreshTrash();
}

void Workspace::setFolderColor(const std::string& path, std::optional<vesk::FolderColor> color) {
    if (!vault.get()) return;
    style.modify([&](VaultStyle& changed) { changed.setColor(path, color); });
    try {
        style.get().save(*vault.get());
    } catch (const Error&) {  // the colour holds for this run
    }
}

std::optional<FolderColor> Workspace::folderColor(const std::string& path) const {
    return style.get().color(path);
}

void Workspace::setNoteIcon(const std::string& path, const std::optional<std::string>& symbol) {
    if (waitingForIndex([this, path, symbol] { setNoteIcon(path, symbol); })) return;
    if (!session.get()) return;
    rewriteFromRow(path, localised("the icon"), [&](const std::string& text) {
        FrontmatterDoc doc(text);
        if (symbol) {
            doc.set(Charm::frontmatterKey, YAMLValue{YAMLValue::String{*symbol}});
        } else {
            doc.remove(Charm::frontmatterKey);
        }
        return doc.serialized();
    });
    refreshNoteIcons();
}

bool Workspace::openDocument(const std::string& path) {
    if (!vault.get() || !Vault::isDocument(path) || Vault::leavesVault(path)) return false;
    const auto isListed = [&] {
        const auto& list = documents.get();
        return std::any_of(list.begin(), list.end(),
                           [&](const VaultDocument& candidate) { return candidate.relativePath == path; });
    };
    if (!isListed()) {
        try {
            const auto file = vault.get()->absolutePath(path);
            if (vault.get()->isInsideSavedPageFolder(path) || !FilePlatform::current().files->exists(file))
                return false;
            if (auto list = vault.get()->enumerateDocuments(); list != documents.get())
                setDocuments(std::move(list));
        } catch (const Error&) {
            return false;
        }
    }
    if (!isListed()) return false;
    selection.setIfChanged(path);
    return true;
}

std::optional<std::string> Workspace::document(std::string_view link, const std::string& fromNote) const {
    const std::string target(trimCharacters(link, " \t"));
    if (!vault.get() || !Vault::isDocument(target) || Vault::leavesVault(target)) return {};
    std::vector<std::string> candidates;
    if (const auto folder = parentFolder(fromNote); !folder.empty())
        candidates.push_back(joinedPath(folder, target));
    candidates.push_back(target);
    for (const auto& candidate : candidates) {
        for (const auto& listed : documents.get()) {
            if (listed.relativePath == candidate) return candidate;
        }
    }
    for (const auto& candidate : candidates) {
        try {
            if (!vault.get()->isInsideSavedPageFolder(candidate) &&
                FilePlatform::current().files->exists(vault.get()->absolutePath(candidate)))
                return candidate;
        } catch (const Error&) {  // not one that can be opened
        }
    }
    return {};
}

}  // namespace vesk
