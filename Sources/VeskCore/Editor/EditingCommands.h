// The commands of the Markdown editor. Each takes the text and the selection and gives one edit, or none when
// it has nothing of its own to do: then the key keeps its plain effect. Within frontmatter and fenced code no
// Markdown is read or written. Line ends stay as they are; a new line takes the end of the line it follows.
// UTF-16 offsets over the whole text. Linear in their input. Pure; any thread.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

#include "VeskCore/Editor/MarkdownBlock.h"
#include "VeskCore/Editor/TextEdit.h"

namespace vesk::EditingCommands {

/// What every command without further arguments looks like.
using Command = std::optional<TextEdit> (*)(std::u16string_view text, TextRange selection);

/// Return. In a table the cell below; in a list, quote or callout the next line with its marker; on an empty
/// item one level out, at last out of the list; in fenced code the same indent. Always an edit.
std::optional<TextEdit> insertNewline(std::u16string_view text, TextRange selection);
/// Tab. In a table the next cell; else list lines and selected lines one level in. None for a caret
/// elsewhere.
std::optional<TextEdit> indent(std::u16string_view text, TextRange selection);
/// Shift-Tab: the previous cell, or one level out.
std::optional<TextEdit> outdent(std::u16string_view text, TextRange selection);
/// Backspace right behind the marker of a list item or quote: one level out, at last without the marker.
std::optional<TextEdit> deleteBackward(std::u16string_view text, TextRange selection);

enum class InlineStyle { bold, italic, code, highlight, strikethrough };
/// On the selection, line by line, or on the word at the caret; off when all of it has the style, also for a
/// caret inside. Without a word an empty pair around the caret. Adds and removes only the style's signs.
std::optional<TextEdit> toggle(InlineStyle style, std::u16string_view text, TextRange selection);
/// A link around the selection or the word, with the caret where its target goes; a selected address becomes
/// the target. Inside a link its text alone stays. None for a selection of several lines.
std::optional<TextEdit> toggleLink(std::u16string_view text, TextRange selection);

/// Ticks the tasks of the selected lines, or unticks them when all are done; lines that are none become open
/// tasks first.
std::optional<TextEdit> toggleTask(std::u16string_view text, TextRange selection);
/// Ticks or unticks the task in the line that holds the offset, as a click on its box does.
std::optional<TextEdit> toggleTaskAt(std::u16string_view text, std::size_t offset, TextRange selection);

/// The selected lines under another kind. `code` puts one fence around them all, `divider` goes below what is
/// written. None for `table` and `blank`.
std::optional<TextEdit> turnInto(std::u16string_view text, TextRange selection,
                                 const MarkdownBlock::Kind& kind);

/// A sign typed over a selection that goes around it instead: * _ ` ~ = [ ( {" '. None for any other.
std::optional<TextEdit> wrapSelection(std::u16string_view text, TextRange selection, char16_t typed);

/// Text pasted: an address (http, https, mailto) over a selection makes a link of it, tab-separated rows make
/// a table.
std::optional<TextEdit> paste(std::u16string_view text, TextRange selection, std::u16string_view pasted);

/// The blocks that the selection touches change places with the neighbouring block; the selection follows.
std::optional<TextEdit> moveBlock(std::u16string_view text, TextRange selection, bool up);
/// A copy of those blocks right behind them, with the selection in it.
std::optional<TextEdit> duplicateBlock(std::u16string_view text, TextRange selection);

}  // namespace vesk::EditingCommands
