// How the highlighter styles one line after another, by its kind. `revealed` is whether the line shows its
// markers.
#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

#include "VeskCore/Editor/AttributeLayers.h"
#include "VeskCore/Editor/EditorLines.h"
#include "VeskCore/Editor/InlineReader.h"
#include "VeskCore/Editor/MarkdownTable.h"
#include "VeskCore/Support/TextRange.h"

namespace vesk {

class LineStyles {
public:
    /// Both are borrowed.
    LineStyles(std::u16string_view text, AttributeLayers& layers);
    LineStyles(const LineStyles&) = delete;
    LineStyles& operator=(const LineStyles&) = delete;

    /// A line outside frontmatter, fences and tables.
    void styleLine(const EditorLines::Line& line, bool revealed);
    /// A line that opens or closes a fence.
    void styleFenceLine(TextRange line, bool revealed);
    /// A row that stands as source. In a table whose pipes stand in the same places the columns stay below
    /// one another.
    void styleTableRow(const MarkdownTable& table, std::size_t row, bool padded, bool revealed);

private:
    void addMarkers(bool revealed);

    std::u16string_view text_;
    AttributeLayers& layers_;
    InlineReader reader_;
    InlineReader::Visit inLine_;
    std::vector<TextRange> markers_;  // of the current line; they come on top of all its spans
};

}  // namespace vesk
