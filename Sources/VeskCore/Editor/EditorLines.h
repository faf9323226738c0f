// Lines as the editor's readers see them. A line ends at LF, CR, CR LF, U+0085, U+2028 or U+2029 and holds
// its terminator. Offsets are UTF-16 units. Pure; any thread.
#pragma once

#include <cstddef>
#include <string_view>

#include "VeskCore/Support/TextRange.h"

namespace vesk::EditorLines {

struct Line {
    TextRange content;  ///< without the terminator
    TextRange full;     ///< with it
    bool operator==(const Line&) const = default;
};

/// The line that begins at `start`, which begins a line.
Line lineFrom(std::u16string_view text, std::size_t start);
/// The start of the line that holds `offset`. Behind a final terminator stands an empty last line.
std::size_t lineStart(std::u16string_view text, std::size_t offset);
/// The whole lines that `range` touches; of an empty range the line it stands in.
TextRange lineRange(std::u16string_view text, TextRange range);
/// `range` without what lies outside the text.
TextRange clipped(TextRange range, std::u16string_view text);

/// Without white space and newlines at both ends.
std::u16string_view trimmed(std::u16string_view text);
/// Without spaces and tabs at both ends.
std::u16string_view trimmedBlanks(std::u16string_view text);
/// The first unit that is neither white space nor a newline, or NUL without one.
char16_t firstShown(std::u16string_view line);
/// True of the signs "```" and "~~~" at the start of a trimmed line.
bool beginsWithFence(std::u16string_view trimmedLine);
/// True if `line`, terminator included, opens or closes a fence. A line too long to be styled is none, so
/// that all readers keep the same state over it.
bool isFence(std::u16string_view line);

inline std::u16string_view piece(std::u16string_view text, TextRange range) {
    return text.substr(range.location, range.length);
}

}  // namespace vesk::EditorLines
