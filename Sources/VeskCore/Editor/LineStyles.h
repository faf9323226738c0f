// How the highlighter styles one line, by its kind. The lines are handed over as they stand in the text;
// `revealed` is whether the line shows its markers. Pure; any thread.
#pragma once

#include <cstddef>
#include <string_view>

#include "VeskCore/Editor/AttributeLayers.h"
#include "VeskCore/Editor/MarkdownTable.h"
#include "VeskCore/Support/TextRange.h"

namespace vesk::LineStyles {

/// A line outside frontmatter, fences and tables.
void styleLine(std::u16string_view text, TextRange line, bool revealed, AttributeLayers& layers);
/// A line that opens or closes a fence.
void styleFenceLine(TextRange line, bool revealed, AttributeLayers& layers);
/// A row that stands as source. In a table whose pipes stand in the same places the columns stay below one
/// another.
void styleTableRow(const MarkdownTable& table, std::size_t row, std::u16string_view text, bool padded,
                   bool revealed, AttributeLayers& layers);

}  // namespace vesk::LineStyles
