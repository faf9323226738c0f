// The editing commands with their names and keys: one table for the keyboard, the command palette and the
// window of shortcuts.
#pragma once

#include <functional>
#include <optional>
#include <string_view>
#include <vector>

#include "VeskCore/Editor/TextEdit.h"

namespace vesk::views {

struct EditorCommand {
    const char* id;
    const char* title;
    const char* group;  ///< heading in the window of shortcuts
    const char* key;    ///< as GTK writes accelerators; empty for none
    std::function<std::optional<TextEdit>(std::u16string_view text, TextRange selection)> edit;
};

/// In the order of the window of shortcuts.
const std::vector<EditorCommand>& editorCommands();

}  // namespace vesk::views
