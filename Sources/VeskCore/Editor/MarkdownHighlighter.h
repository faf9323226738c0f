// Styles the note in place as the user types: only attributes change, never a character. Markers are dimmed
// where the caret is and shrunk to nothing elsewhere, so that a note reads as formatted text while its source
// stays Markdown. After any edit and any move of the caret the text is styled as a pass over all of it would
// style it, at the cost of what the edit can have changed. Serves one text; belongs to the editor, on the
// main thread.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "VeskCore/Editor/AttributedText.h"
#include "VeskCore/Editor/HighlighterTheme.h"
#include "VeskCore/Editor/LineLandmarks.h"
#include "VeskCore/Editor/MarkdownTable.h"
#include "VeskCore/Editor/MarkdownTableGrid.h"
#include "VeskCore/Support/TextRange.h"

namespace vesk {

class MarkdownHighlighter {
public:
    using Theme = HighlighterTheme;
    using GridLayout = std::function<std::optional<MarkdownTableGrid::Layout>(const MarkdownTable&)>;

    Theme theme;
    /// Whether the editor has the keyboard; without it no table is revealed. Absent counts as true.
    std::function<bool()> isFocused;
    /// The grid drawn over a table, or none where its source stands. Absent counts as none.
    GridLayout gridLayout;
    /// Told each range after it is styled.
    std::function<void(TextRange)> didShow;
    /// The note's title: a first heading that repeats it is hidden. What stands in the text is styled anew
    /// with the next pass over it.
    std::optional<std::string> titleHeading;

    /// Where markers are shown: the caret's paragraph after an edit, else the selection.
    const std::optional<TextRange>& revealRange() const { return revealRange_; }
    /// As of the last pass.
    const std::optional<TextRange>& lastFrontmatter() const { return lastFrontmatter_; }

    /// The text's call after an edit of characters: restyles what the edit can have changed.
    void didProcessEditing(AttributedText& storage, TextRange edited, std::ptrdiff_t delta);
    /// One pass over the lines of the range, and over each table it touches. False if paragraph styles are
    /// preserved and as much text is shown as before, so that the layout stands.
    bool highlight(AttributedText& storage, TextRange range, bool preservingParagraphStyles);
    /// The selection moved, or is absent. True if a table was involved, whose grid may have to be drawn anew.
    bool reveal(std::optional<TextRange> selection, AttributedText& storage);
    /// Those of the tables that still fit the text.
    void restyleTables(const std::vector<MarkdownTable>& tables, AttributedText& storage);

    /// The stretches of the range that a reader sees.
    static std::vector<TextRange> shownPieces(const AttributedText& storage, TextRange range);

private:
    class Pass;
    /// What a selection shows or hides: its lines, with all of the frontmatter and of the tables there.
    struct Involved {
        TextRange range;
        bool table = false;
    };

    void ensureLandmarks(std::u16string_view text);
    void setRevealRange(std::optional<TextRange> range, std::u16string_view text);
    std::vector<MarkdownTable> tablesTouching(TextRange lines, std::u16string_view text) const;
    std::optional<Involved> involved(std::optional<TextRange> lines, std::u16string_view text) const;
    /// What an edit restyles around itself: `lines` stand where `oldLength` units stood.
    TextRange restyleRange(TextRange lines, std::size_t oldLength, std::u16string_view text);
    std::optional<TextRange> duplicateTitleRange(std::u16string_view text) const;

    std::optional<TextRange> revealRange_, lastFrontmatter_;
    std::optional<TextRange> revealedLines_;  // of revealRange_
    std::optional<TextRange> lastTitle_;      // the line last styled as a repeat of the title
    LineLandmarks landmarks_;
};

}  // namespace vesk
