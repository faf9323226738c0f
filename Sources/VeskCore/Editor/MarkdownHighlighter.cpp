#include "VeskCore/Editor/MarkdownHighlighter.h"

#include <algorithm>

#include "VeskCore/Editor/AttributeLayers.h"
#include "VeskCore/Editor/BlockModel.h"
#include "VeskCore/Editor/EditorLines.h"
#include "VeskCore/Editor/LineStyles.h"
#include "VeskCore/Editor/MarkdownSpans.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"

namespace vesk {

namespace {

using EditorLines::piece;
using Change = AttributeLayers::Change;

TextRange united(TextRange a, TextRange b) {
    const std::size_t start = std::min(a.location, b.location);
    return {start, std::max(a.end(), b.end()) - start};
}

bool covers(TextRange outer, TextRange inner) {
    return outer.location <= inner.location && inner.end() <= outer.end();
}

/// An edit by whole lines: `lines` of the new text stand where `oldLength` units stood.
struct LineEdit {
    TextRange lines;
    std::size_t oldLength = 0;

    std::size_t oldEnd() const { return lines.location + oldLength; }
    /// Where an offset behind the edit, or at its end, has gone.
    std::size_t moved(std::size_t offset) const { return offset - oldLength + lines.length; }
    /// Where lines of the old text stand now; what the edit touched counts as a whole.
    TextRange moved(TextRange range) const {
        if (range.end() <= lines.location) return range;
        if (range.location >= oldEnd()) return {moved(range.location), range.length};
        const std::size_t start = std::min(range.location, lines.location);
        return {start, moved(std::max(range.end(), oldEnd())) - start};
    }
};

std::size_t shownLength(const std::vector<AttributeRun>& runs) {
    std::size_t length = 0;
    for (const AttributeRun& run : runs) length += run.attributes.isHidden() ? 0 : run.range.length;
    return length;
}

}  // namespace

/// Styles the lines of a range one after another.
class MarkdownHighlighter::Pass {
public:
    Pass(const MarkdownHighlighter& owner, std::u16string_view text, std::optional<TextRange> frontmatter,
         std::optional<TextRange> title, const std::vector<MarkdownTable>& tables)
        : owner_(owner),
          text_(text),
          bodyStart_(frontmatter ? frontmatter->end() : 0),
          frontmatter_(frontmatter),
          title_(title),
          tables_(tables),
          layers_(owner.theme, runs_, hidden_),
          styles_(text, layers_) {}

    const std::vector<AttributeRun>& style(TextRange range) {
        constexpr std::size_t unitsOfARun = 8;  // or more, in most notes
        runs_.reserve(range.length / unitsOfARun + 8);
        bool inFence = owner_.landmarks_.isInsideFence(range.location, frontmatter_);
        for (std::size_t at = range.location; at < range.end();) {
            const EditorLines::Line found = EditorLines::lineFrom(text_, at);
            const TextRange line = found.full;
            at = line.end();
            styleLine(found, inFence);
            if (title_ && *title_ == line && !isRevealed(line)) layers_.add(line, Change::hidden);
            layers_.finishLine(line);
        }
        return runs_;
    }
    const std::vector<TextRange>& hidden() const { return hidden_; }

private:
    struct TableState {
        bool grid = false, revealed = false, padded = false;
    };

    bool isRevealed(TextRange range) const {
        return owner_.revealedLines_ && owner_.revealedLines_->intersects(range);
    }

    void styleLine(const EditorLines::Line& found, bool& inFence) {
        const TextRange line = found.full;
        if (line.end() <= bodyStart_) return layers_.add(line, Change::faint);
        // A line too long to be styled is no fence either, so that all readers keep the same state over it.
        if (line.length > MarkdownSpans::longLineLimit) return;
        if (EditorLines::isFence(piece(text_, line))) {
            inFence = !inFence;
            return styles_.styleFenceLine(line, isRevealed(line));
        }
        if (inFence) return layers_.add(line, Change::mono);
        if (!styleTableRow(line)) styles_.styleLine(found, isRevealed(line));
    }

    /// False if no row of a table begins with the line.
    bool styleTableRow(TextRange line) {
        while (table_ < tables_.size() && tables_[table_].range.end() <= line.location) {
            ++table_;
            row_ = 0;
        }
        if (table_ == tables_.size() || !tables_[table_].range.contains(line.location)) return false;
        const MarkdownTable& table = tables_[table_];
        if (row_ == 0) state_ = stateOf(table);
        const std::size_t row = row_++;
        if (state_.grid && !state_.revealed) {
            layers_.add(line, Change::hidden);
        } else {
            // With the caret in one row, all rows show their source in full.
            styles_.styleTableRow(table, row, state_.padded, state_.revealed || isRevealed(line));
        }
        return true;
    }

    TableState stateOf(const MarkdownTable& table) const {
        TableState state;
        state.grid = owner_.gridLayout && owner_.gridLayout(table);
        state.revealed = isRevealed(table.range) && (!owner_.isFocused || owner_.isFocused());
        state.padded = table.isColumnPadded();
        return state;
    }

    const MarkdownHighlighter& owner_;
    std::u16string_view text_;
    std::size_t bodyStart_;
    std::optional<TextRange> frontmatter_, title_;
    const std::vector<MarkdownTable>& tables_;
    std::size_t table_ = 0, row_ = 0;
    TableState state_;  // of the current table
    std::vector<AttributeRun> runs_;
    std::vector<TextRange> hidden_;
    AttributeLayers layers_;
    LineStyles styles_;
};

void MarkdownHighlighter::ensureLandmarks(std::u16string_view text) {
    if (landmarks_.textLength() != text.size()) landmarks_.rebuild(text);
}

void MarkdownHighlighter::setRevealRange(std::optional<TextRange> range, std::u16string_view text) {
    revealRange_ = range;
    revealedLines_.reset();
    if (range && range->location <= text.size() && range->end() <= text.size()) {
        revealedLines_ = EditorLines::lineRange(text, *range);
    }
}

std::vector<MarkdownTable> MarkdownHighlighter::tablesTouching(TextRange lines,
                                                               std::u16string_view text) const {
    std::vector<MarkdownTable> result;
    if (!landmarks_.mightTouchTable(lines, text)) return result;
    // Tables stand in runs of rows around delimiter rows; the run at the first line can begin above it.
    const auto frontmatter = landmarks_.frontmatter(text);
    TextRange seed = EditorLines::lineRange(text, {lines.location, 0});
    while (true) {
        const TextRange run = MarkdownTable::widenedToPipeRuns(seed, text, frontmatter);
        const bool inFence = landmarks_.isInsideFence(run.location, frontmatter);
        for (MarkdownTable& table : MarkdownTable::tables(text, run, frontmatter, inFence)) {
            if (table.range.intersects(lines)) result.push_back(std::move(table));
        }
        const auto delimiter = landmarks_.delimiterFrom(std::max(run.end(), std::size_t{1}));
        if (!delimiter || *delimiter > lines.end()) return result;
        // The row before it and its own.
        seed = EditorLines::lineRange(text, {*delimiter - 1, 2});
    }
}

std::optional<MarkdownHighlighter::Involved> MarkdownHighlighter::involved(std::optional<TextRange> lines,
                                                                           std::u16string_view text) const {
    if (!lines) return std::nullopt;
    Involved result{*lines, false};
    const auto frontmatter = landmarks_.frontmatter(text);
    if (frontmatter && lines->location < frontmatter->end()) result.range = united(*lines, *frontmatter);
    for (const MarkdownTable& table : tablesTouching(*lines, text)) {
        result.range = united(result.range, table.range);
        result.table = true;
    }
    return result;
}

std::optional<TextRange> MarkdownHighlighter::duplicateTitleRange(std::u16string_view text) const {
    if (!titleHeading) return std::nullopt;
    const auto frontmatter = landmarks_.frontmatter(text);
    std::size_t at = frontmatter ? frontmatter->end() : 0;
    while (at < text.size() && isSpaceOrNewline(text[at])) ++at;
    if (at == text.size() || text[at] != u'#') return std::nullopt;
    const TextRange line = EditorLines::lineRange(text, {at, 0});
    if (line.length > MarkdownSpans::longLineLimit) return std::nullopt;
    const BlockModel::Classified block = BlockModel::classify(piece(text, line));
    const auto* heading = std::get_if<MarkdownBlock::Kind::Heading>(&block.kind.value);
    if (!heading || heading->level != 1) return std::nullopt;
    if (!equalsIgnoringCase(trim(utf8(block.content)), trim(*titleHeading))) return std::nullopt;
    return line;
}

bool MarkdownHighlighter::highlight(AttributedText& storage, TextRange range,
                                    bool preservingParagraphStyles) {
    const std::u16string_view text = storage.text();
    range = EditorLines::lineRange(text, range);
    if (range.length == text.size()) {
        landmarks_.rebuild(text);
    } else {
        ensureLandmarks(text);
    }
    const auto frontmatter = landmarks_.frontmatter(text);
    lastFrontmatter_ = frontmatter;
    const std::vector<MarkdownTable> tables = tablesTouching(range, text);
    for (const MarkdownTable& table : tables) range = united(range, table.range);

    const auto title = duplicateTitleRange(text);
    if (lastTitle_ && covers(range, *lastTitle_)) lastTitle_.reset();
    if (title && covers(range, *title)) lastTitle_ = title;
    if (range.empty()) return false;

    Pass pass(*this, text, frontmatter, title, tables);
    const std::vector<AttributeRun>& runs = pass.style(range);
    const std::size_t shownBefore =
        preservingParagraphStyles ? shownLength(storage.attributes(range)) : std::size_t{0};
    storage.setAttributes(range, runs, preservingParagraphStyles);
    for (const TextRange& hidden : pass.hidden()) storage.clearSpellingMarks(hidden);
    if (didShow) didShow(range);
    return !preservingParagraphStyles || shownLength(runs) != shownBefore;
}

TextRange MarkdownHighlighter::restyleRange(TextRange lines, std::size_t oldLength,
                                            std::u16string_view text) {
    const LineEdit edit{lines, oldLength};
    // Fence lines from the frontmatter to the edit's end, before and after: if one more or less, all lines
    // behind change between code and text.
    const auto fencesUntilEnd = [&](std::size_t end, std::optional<TextRange> frontmatter) {
        return landmarks_.fencesBefore(end) - landmarks_.fencesBefore(frontmatter ? frontmatter->end() : 0);
    };
    const std::size_t fencesBefore = fencesUntilEnd(edit.oldEnd(), lastFrontmatter_);
    const bool hadTable = landmarks_.hasDelimiter({lines.location, oldLength});
    landmarks_.replace(lines, oldLength, text);
    const auto frontmatter = landmarks_.frontmatter(text);
    const std::size_t fencesAfter = fencesUntilEnd(lines.end(), frontmatter);

    TextRange range = lines;
    const std::size_t lastEnd = lastFrontmatter_ ? edit.moved(*lastFrontmatter_).end() : 0;
    const std::size_t boundary = frontmatter ? frontmatter->end() : 0;
    // Where it ended before the edit: a deletion to the note's end can leave nothing behind its start.
    const std::size_t formerEnd = lastFrontmatter_ ? lastFrontmatter_->end() : 0;
    if (lastEnd != boundary && range.location < std::max(formerEnd, boundary)) {
        range = {0, std::min(std::max({range.end(), lastEnd, boundary}), text.size())};
    }
    if ((fencesBefore - fencesAfter) % 2 != 0) range.length = text.size() - range.location;
    if (hadTable || landmarks_.mightTouchTable(lines, text)) {
        range = united(range, MarkdownTable::widenedToPipeRuns(lines, text, frontmatter));
    }
    return range;
}

void MarkdownHighlighter::didProcessEditing(AttributedText& storage, TextRange edited, std::ptrdiff_t delta) {
    const std::u16string_view text = storage.text();
    edited = EditorLines::clipped(edited, text);
    const std::size_t oldSize = text.size() - static_cast<std::size_t>(delta);
    const bool known = landmarks_.textLength() == oldSize;
    // The unit behind the edit may now begin a line, and a CR before it have lost or found its LF.
    const std::size_t before = edited.location > 0 && text[edited.location - 1] == u'\r' ? 1 : 0;
    const TextRange lines =
        EditorLines::lineRange(text, {edited.location - before, edited.length + before + 1});
    const LineEdit edit{lines, lines.length - static_cast<std::size_t>(delta)};

    const auto formerlyRevealed = revealedLines_;
    const TextRange paragraph = storage.paragraphRange(edited);
    const bool oneParagraph = paragraph == storage.paragraphRange({edited.location, 0});
    setRevealRange(oneParagraph ? std::optional(paragraph) : std::nullopt, text);
    if (!known) {
        highlight(storage, {0, text.size()}, false);
        return;
    }

    const TextRange range = restyleRange(lines, edit.oldLength, text);
    if (lastTitle_) lastTitle_ = edit.moved(*lastTitle_);
    const auto formerTitle = lastTitle_;
    highlight(storage, range, false);
    const auto restyle = [&](std::optional<TextRange> stale) {
        if (!stale) return;
        const TextRange standing = EditorLines::clipped(*stale, text);
        if (!standing.empty() && !covers(range, standing)) highlight(storage, standing, false);
    };
    if (formerlyRevealed) restyle(edit.moved(*formerlyRevealed));
    if (const auto title = duplicateTitleRange(text); title != formerTitle) {
        restyle(formerTitle);
        restyle(title);
    }
}

bool MarkdownHighlighter::reveal(std::optional<TextRange> selection, AttributedText& storage) {
    const std::u16string_view text = storage.text();
    ensureLandmarks(text);
    const auto before = involved(revealedLines_, text);
    setRevealRange(selection, text);
    const auto after = involved(revealedLines_, text);
    if (before) highlight(storage, before->range, true);
    if (after && (!before || after->range != before->range)) highlight(storage, after->range, true);
    return (before && before->table) || (after && after->table);
}

void MarkdownHighlighter::restyleTables(const std::vector<MarkdownTable>& tables, AttributedText& storage) {
    for (const MarkdownTable& table : tables) {
        if (table.range.end() <= storage.text().size()) highlight(storage, table.range, true);
    }
}

std::vector<TextRange> MarkdownHighlighter::shownPieces(const AttributedText& storage, TextRange range) {
    std::vector<TextRange> pieces;
    for (const AttributeRun& run : storage.attributes(range)) {
        if (run.attributes.isHidden()) continue;
        if (!pieces.empty() && pieces.back().end() == run.range.location) {
            pieces.back().length += run.range.length;
        } else {
            pieces.push_back(run.range);
        }
    }
    return pieces;
}

}  // namespace vesk
