// A proposed rewrite of a note or a part of it, held until the user has reviewed it.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace vesk {

struct NoteEdit {
    std::string id;  ///< a UUID
    std::string notePath, noteTitle;
    std::string action;    ///< the label: "AI edit" or a quick action's title
    std::string original;  ///< what it replaces
    std::string replacement;
    bool isSelectionOnly = false;
    std::optional<std::string> noteTextAtAsk;       ///< the whole note when the edit was asked for
    std::optional<std::size_t> selectionLocation;   ///< of `original` in `noteTextAtAsk`, in UTF-16 units
    std::optional<std::string> subjectDescription;  ///< in place of the note's title, in the review's words

    bool operator==(const NoteEdit&) const = default;

    /// The note with the edit in place; none if there is no one safe place for it. An edit of a whole note
    /// takes the place of all of it; one that left the frontmatter out keeps the frontmatter that is there.
    std::optional<std::string> applied(std::string_view currentText) const;
};

}  // namespace vesk
