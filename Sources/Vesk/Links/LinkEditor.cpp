#include "Vesk/Links/LinkEditor.h"

#include "VeskCore/Support/Localised.h"
#include "VeskCore/Support/PathText.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Vault/AtomicWrite.h"

namespace vesk {

bool LinkEditor::fail(std::string words) {
    lastError.set(std::move(words));
    return false;
}

bool LinkEditor::insert(const PendingLink& pending, Workspace& workspace) {
    return rewrite(pending, &PendingLink::insertedInto, workspace);
}

bool LinkEditor::undo(const PendingLink& pending, Workspace& workspace) {
    return rewrite(pending, &PendingLink::takenOutOf, workspace);
}

bool LinkEditor::rewrite(const PendingLink& pending, Change change, Workspace& workspace) {
    const auto session = workspace.session.get();
    const auto surface = workspace.surface.get();
    if (!session || !surface) return false;
    const auto& path = pending.mention.sourcePath;
    const auto name = "“" + decodedText(std::string(stem(path))) + "”";
    const auto changedOnDisk = localised("Couldn't write {} changed on disk, so Vesk left it alone. ", name);
    try {
        // What was typed is in the file before the file is looked at, or is known to be held.
        surface->flush();
        if (surface->ledger().unsaved.contains(path))
            return fail(localised("Couldn't write {}: what you typed there isn't saved yet.", name));
        const auto file = session->vault().absolutePath(path);
        const auto found = CoordinatedIO::readForSave(file);
        if (!found) return fail(changedOnDisk);
        const auto text = (pending.*change)(*found);
        if (!text) return fail(changedOnDisk);
        if (surface->loadedPath() == path && surface->text() == *found && surface->change(*text)) {
            lastError.setIfChanged({});
            return true;
        }
        if (surface->loadedPath() == path) return fail(changedOnDisk);
        const ForeignEdit::Disk expected{ForeignEdit::Disk::Text{*found}};
        session->write(*text, file, &expected);
    } catch (const std::exception&) {
        return fail(localised("Couldn't write {}: {}", name, describe(std::current_exception())));
    }
    lastError.setIfChanged({});
    return true;
}

}  // namespace vesk
