// Return, Tab and Backspace.
#include "VeskCore/Editor/EditingCommands.h"

#include <algorithm>

#include "VeskCore/Editor/BlockModel.h"
#include "VeskCore/Editor/ListNumbering.h"
#include "VeskCore/Editor/NoteLines.h"
#include "VeskCore/Editor/TableEditing.h"

namespace vesk::EditingCommands {

using EditorLines::piece;
using Kind = MarkdownBlock::Kind;
using NoteLines::NoteLine;
using NoteLines::Place;

namespace {

const Kind quote{Kind::Plain::quote};

std::size_t blanksAtStart(std::u16string_view line) {
    return std::min(line.find_first_not_of(u" \t"), line.size());
}

bool isItem(std::u16string_view line) {
    return ListNumbering::isItem(BlockModel::classify(line).kind);
}

/// Where the text behind the line's own marker begins; quotes are not looked into.
std::size_t markerEnd(std::u16string_view line, const BlockModel::Classified& classified) {
    if (classified.content.empty()) return line.size();
    return static_cast<std::size_t>(classified.content.data() - line.data());
}

/// Where the marker of an item or quote that ends at `caret` begins, also within quotes.
std::optional<std::size_t> innermostMarker(std::u16string_view line, std::size_t caret) {
    constexpr int deepestQuote = 8;
    std::size_t start = 0;
    for (int depth = 0; depth < deepestQuote; ++depth) {
        const std::u16string_view rest = line.substr(start);
        const BlockModel::Classified classified = BlockModel::classify(rest);
        const bool isQuote = classified.kind == quote;
        if (!isQuote && !ListNumbering::isItem(classified.kind)) return std::nullopt;
        const std::size_t end = start + markerEnd(rest, classified);
        if (end == caret) return start;
        if (!isQuote || end > caret) return std::nullopt;
        start = end;
    }
    return std::nullopt;
}

bool followsItem(std::u16string_view text, std::size_t lineStart) {
    if (lineStart == 0) return false;
    const std::size_t before = EditorLines::lineStart(text, lineStart - 1);
    return isItem(piece(text, EditorLines::lineFrom(text, before).content));
}

/// One level out for the item in `line`, with the numbers that follow from it.
std::optional<TextEdit> outdentedItem(std::u16string_view text, TextRange selection, const NoteLine& here) {
    const std::u16string_view line = here.shown(text);
    const int level = BlockModel::indentLevel(line) - 1;
    const std::size_t start = here.line.content.location;
    TextDraft draft(text, selection);
    draft.replace({{{start, blanksAtStart(line)}, BlockModel::indentString(level)}});
    const auto growth = static_cast<std::size_t>(draft.growth());
    ListNumbering::renumber(draft, text, {{start, here.line.full.length + growth}, level});
    return draft.finish();
}

std::optional<TextEdit> newlineAtCaret(std::u16string_view text, std::size_t caret) {
    const NoteLine here = NoteLines::at(text, caret);
    const std::u16string_view line = here.shown(text);
    const std::size_t start = here.line.content.location;
    const std::u16string end = NoteLines::lineEnd(text, here.line);
    TextDraft draft(text, {caret, 0});
    const auto inserted = [&](std::size_t where, std::u16string_view behind) {
        draft.replace({{{where, 0}, end + std::u16string(behind)}});
        return draft.finish();
    };
    if (here.place == Place::frontmatter) return inserted(caret, {});
    if (!here.isProse()) {
        return inserted(caret, line.substr(0, std::min(blanksAtStart(line), caret - start)));
    }
    if (auto cell = TableEditing::cellBelow(text, {caret, 0})) return cell;

    const BlockModel::Classified classified = BlockModel::classify(line);
    if (BlockModel::shouldExitList(line) && BlockModel::indentLevel(line) > 0) {
        return outdentedItem(text, {here.line.content.end(), 0}, here);
    }
    if (BlockModel::shouldExitList(line) || (classified.kind == quote && classified.content.empty())) {
        draft.replace({{here.line.content, {}}});
        return draft.finish();
    }
    const auto continuation = BlockModel::continuation(line);
    if (!continuation) return inserted(caret, {});
    // In front of the text the whole item goes down.
    if (caret - start < markerEnd(line, classified)) return inserted(start, {});

    draft.replace({{{caret, 0}, end + *continuation}});
    if (std::holds_alternative<Kind::Ordered>(classified.kind.value)) {
        const TextRange both{start, here.line.full.length + end.size() + continuation->size()};
        ListNumbering::renumber(draft, text,
                                {.lines = both, .level = BlockModel::indentLevel(line), .keepsFirst = true});
    }
    return draft.finish();
}

/// Replaces the blanks at the start of each selected line by what `blanks(line)` gives.
template <class Blanks>
std::optional<TextEdit> reindented(std::u16string_view text, TextRange selection, Blanks blanks,
                                   bool opensLists) {
    const std::vector<NoteLine> lines = NoteLines::selected(text, selection);
    TextDraft draft(text, selection);
    std::vector<TextDraft::Replacement> pieces;
    std::map<int, std::int64_t> openings;
    bool numbered = false, prose = true;
    int level = BlockModel::indentLevel(lines.front().shown(text));
    for (const NoteLine& one : lines) {
        const std::u16string_view line = one.shown(text);
        const std::u16string_view trimmed = EditorLines::trimmed(line);
        if (trimmed.empty()) continue;
        // The lines around frontmatter stand where they are.
        if (one.place == Place::frontmatter && (trimmed == u"---" || trimmed == u"...")) continue;
        const std::size_t present = blanksAtStart(line);
        const std::u16string wanted = blanks(one, line);
        prose = prose && one.isProse();
        level = std::min({level, BlockModel::indentLevel(line), BlockModel::indentLevel(wanted)});
        numbered = numbered || std::holds_alternative<Kind::Ordered>(BlockModel::classify(line).kind.value);
        if (opensLists) openings[BlockModel::indentLevel(wanted)] = 1;
        if (line.substr(0, present) != wanted)
            pieces.push_back({{one.line.content.location, present}, wanted});
    }
    if (pieces.empty()) return std::nullopt;
    draft.replace(pieces, /*startGoesBehind=*/selection.empty());
    if (numbered && prose) {
        const std::size_t start = lines.front().line.full.location;
        const auto growth = static_cast<std::size_t>(draft.growth());
        ListNumbering::renumber(draft, text,
                                {{start, lines.back().line.full.end() + growth - start}, level, openings});
    }
    return draft.finish();
}

bool isWithinOneLine(std::u16string_view text, TextRange selection) {
    return NoteLines::selected(text, selection).size() == 1;
}

}  // namespace

std::optional<TextEdit> insertNewline(std::u16string_view text, TextRange selection) {
    selection = TextDraft::snapped(text, selection);
    if (selection.empty()) return newlineAtCaret(text, selection.location);
    TextDraft draft(text, selection);
    draft.replace({{selection, {}}});
    const std::u16string rest = TextEdit{selection, {}, {}}.applied(text);
    if (const auto edit = newlineAtCaret(rest, selection.location)) {
        draft.replace({{edit->range, edit->replacement}});
        draft.select(edit->selection);
    }
    return draft.finish();
}

std::optional<TextEdit> indent(std::u16string_view text, TextRange selection) {
    selection = TextDraft::snapped(text, selection);
    if (isWithinOneLine(text, selection)) {
        if (auto cell = TableEditing::nextCell(text, selection)) return cell;
    }
    const NoteLine first = NoteLines::at(text, selection.location);
    if (selection.empty() && !(first.isProse() && isItem(first.shown(text)))) return std::nullopt;
    return reindented(
        text, selection,
        [](const NoteLine& one, std::u16string_view line) {
            if (one.isProse()) return BlockModel::indentString(BlockModel::indentLevel(line) + 1);
            return BlockModel::indentString(1).append(line.substr(0, blanksAtStart(line)));
        },
        // A list that begins below an item counts from one.
        followsItem(text, first.line.full.location));
}

std::optional<TextEdit> outdent(std::u16string_view text, TextRange selection) {
    selection = TextDraft::snapped(text, selection);
    if (isWithinOneLine(text, selection)) {
        if (auto cell = TableEditing::previousCell(text, selection)) return cell;
    }
    return reindented(
        text, selection,
        [](const NoteLine& one, std::u16string_view line) {
            if (one.isProse()) return BlockModel::indentString(BlockModel::indentLevel(line) - 1);
            std::u16string_view blanks = line.substr(0, blanksAtStart(line));
            if (blanks.starts_with(u'\t')) {
                blanks.remove_prefix(1);
            } else {
                for (int i = 0; i < 2 && blanks.starts_with(u' '); ++i) blanks.remove_prefix(1);
            }
            return std::u16string(blanks);
        },
        /*opensLists=*/false);
}

std::optional<TextEdit> deleteBackward(std::u16string_view text, TextRange selection) {
    selection = TextDraft::snapped(text, selection);
    if (!selection.empty()) return std::nullopt;
    const NoteLine here = NoteLines::at(text, selection.location);
    if (!here.isProse()) return std::nullopt;
    const std::u16string_view line = here.shown(text);
    const BlockModel::Classified classified = BlockModel::classify(line);
    const bool item = ListNumbering::isItem(classified.kind);
    const std::size_t caret = selection.location - here.line.content.location;
    const auto marker = innermostMarker(line, caret);
    if (!marker) return std::nullopt;
    if (item && BlockModel::indentLevel(line) > 0) return outdentedItem(text, selection, here);
    TextDraft draft(text, selection);
    draft.replace({{{selection.location - (caret - *marker), caret - *marker}, {}}});
    return draft.finish();
}

}  // namespace vesk::EditingCommands
