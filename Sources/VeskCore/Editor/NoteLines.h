// The lines that a command works on, each with what it stands in: only prose is read as Markdown. Offsets are
// UTF-16 units over the whole text. Pure; any thread.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "VeskCore/Editor/EditorLines.h"
#include "VeskCore/Support/TextRange.h"

namespace vesk::NoteLines {

enum class Place { prose, fence, code, frontmatter };

struct NoteLine {
    EditorLines::Line line;
    Place place = Place::prose;

    bool isProse() const { return place == Place::prose; }
    std::u16string_view shown(std::u16string_view text) const {
        return EditorLines::piece(text, line.content);
    }
};

/// The lines that the selection touches; one at whose very start it ends is not among them.
std::vector<NoteLine> selected(std::u16string_view text, TextRange selection);
/// The line that holds the offset.
NoteLine at(std::u16string_view text, std::size_t offset);

/// Where a line's own text begins, behind indent and marker: of a list item, a heading, a quote and what is
/// quoted. The line's length if it has none. An offset in the line.
std::size_t contentStart(std::u16string_view line);

/// How a new line at this line is ended: as the line is, else the one before it, else with LF.
std::u16string lineEnd(std::u16string_view text, const EditorLines::Line& line);

/// The word that touches the caret, inside `limits`; empty at the caret if there is none.
TextRange word(std::u16string_view text, std::size_t caret, TextRange limits);

/// The end of an address (http, https, mailto, then no white space) that begins here; `start` if none does.
std::size_t addressEnd(std::u16string_view text, std::size_t start);

}  // namespace vesk::NoteLines
