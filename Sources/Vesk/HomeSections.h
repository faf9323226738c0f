// What stands above the folder tree: what is coming up, what hasn't been filed, what changed lately. A note
// shows in at most one of the sections. Values; pure.
#pragma once

#include <cstddef>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "VeskCore/Brain/Filing/UnfiledNotes.h"
#include "VeskCore/Reminders/NoteReminder.h"
#include "VeskCore/Vault/Vault.h"

namespace vesk {

struct HomeSections {
    enum class Section { comingUp, unfiled, recent };
    static constexpr std::size_t comingUpLimit = 3;

    std::vector<NoteReminder::Reminder> comingUp;
    UnfiledNotes unfiled;
    std::vector<Note> recent;
    std::set<std::string> drawn;  ///< every path that the sections show

    HomeSections() = default;
    /// Reminders in the order in which they come up, notes newest first, and the notes that wait to be filed.
    HomeSections(const std::vector<NoteReminder::Reminder>& reminders,
                 const std::vector<Note>& notesByRecency, const UnfiledNotes& waiting);

    /// Where a path shows.
    std::optional<Section> section(std::string_view path) const;
    /// The section whose row shows the selection: none where the note is also visible in the tree, its
    /// folders all being open.
    std::optional<Section> sectionHighlighting(std::string_view path,
                                               const std::set<std::string>& expandedFolders) const;
    bool operator==(const HomeSections&) const = default;
};

}  // namespace vesk
