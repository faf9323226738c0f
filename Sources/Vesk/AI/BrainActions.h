// From menus and keys to the conversation. Main thread.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "Vesk/AI/BrainSession.h"

namespace vesk {

/// What the actions need of the window around them.
class BrainSurroundings {
public:
    virtual ~BrainSurroundings() = default;
    virtual std::shared_ptr<VaultSession> session() = 0;
    virtual std::optional<Note> selectedNote() = 0;
    /// The text that the editor holds of a note; none if it isn't loaded there.
    virtual std::optional<std::string> liveText(const std::string& path) = 0;
    virtual std::optional<EditorSelection> selection() = 0;
    /// The folders that a note may be filed into.
    virtual std::vector<std::string> noteDestinations() = 0;
    virtual void openPanel() = 0;
};

namespace BrainActions {

void askVesk(BrainSession& brain, BrainSurroundings& window);
void run(QuickAction action, BrainSession& brain, BrainSurroundings& window);
void fileNote(BrainSession& brain, BrainSurroundings& window);
/// What the conversation may be about now.
AskSubject subject(BrainSurroundings& window);
/// The live text first, else the file's; none for a note that isn't here yet, which is asked for.
std::optional<std::string> noteText(const Note& note, BrainSurroundings& window);

}  // namespace BrainActions
}  // namespace vesk
