#include "Vesk/AI/BrainActions.h"

#include "Vesk/VaultSession.h"
#include "VeskCore/Platform/FilePlatform.h"
#include "VeskCore/Vault/AtomicWrite.h"
#include "VeskCore/Vault/UbiquityStatus.h"

namespace vesk::BrainActions {

void askVesk(BrainSession& brain, BrainSurroundings& window) {
    brain.attach(window.session());
    window.openPanel();
}

void run(QuickAction action, BrainSession& brain, BrainSurroundings& window) {
    askVesk(brain, window);
    auto about = subject(window);
    if (brain.scope.get() != AIScope::selection) about.selection.reset();
    brain.run(action, about);
}

void fileNote(BrainSession& brain, BrainSurroundings& window) {
    askVesk(brain, window);
    const auto note = window.selectedNote();
    if (!note) return;
    brain.fileNote(*note, noteText(*note, window).value_or(""), window.noteDestinations());
}

AskSubject subject(BrainSurroundings& window) {
    AskSubject about;
    about.note = window.selectedNote();
    if (about.note) about.noteText = noteText(*about.note, window);
    about.selection = window.selection();
    return about;
}

std::optional<std::string> noteText(const Note& note, BrainSurroundings& window) {
    if (auto live = window.liveText(note.relativePath)) return live;
    try {
        if (needsDownload(UbiquityStatus::of(note.path))) {
            UbiquityStatus::requestDownload(note.path);
            return {};
        }
        return CoordinatedIO::read(note.path);
    } catch (const Error&) {
        return {};
    }
}

}  // namespace vesk::BrainActions
