// One forward pass over the lines of a note's body for the index: links, tags, headings, tasks, block
// identifiers, word count, excerpt. No Markdown parser, and not the editor's reader. Linear in its input.
// Pure; any thread.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "VeskCore/Markdown/NoteScan.h"

namespace vesk::MarkdownScanner {

/// `body` is the text after the frontmatter. With `masksMarkup` inline HTML is blanked as inline code is: for
/// notes; text taken out of saved pages is scanned without.
NoteScan scan(std::string_view body, bool masksMarkup);

/// Inline code blanked, one space for each character.
std::string maskInlineCode(std::string_view text);
/// Inline code and inline HTML blanked, one space for each character.
std::string maskInlineCodeAndMarkup(std::string_view text);
/// Image and embed syntax removed, link syntax reduced to its words.
std::string withoutEmbeds(std::string_view text);
/// One line as plain prose, or empty if it makes none. `judge` is the line by which headings, quotes and
/// rules are told; the text itself if none is given.
std::string plainPreview(std::string_view text, std::optional<std::string_view> judge = {});

std::optional<int> headingLevel(std::string_view line);
bool isOrderedItem(std::string_view line);
std::optional<NoteScan::TaskItem> parseTask(std::string_view line, int number);

/// `lineStart` is added to the ranges; within the line offsets count characters.
void extractWikilinks(std::string_view text, std::size_t lineStart, NoteScan& into);
void extractMarkdownLinks(std::string_view text, NoteScan& into);
void extractTags(std::string_view text, NoteScan& into);
void extractBlockID(std::string_view text, NoteScan& into);

}  // namespace vesk::MarkdownScanner
