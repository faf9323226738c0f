// Commands on whole lines and blocks.
#include <algorithm>

#include "VeskCore/Editor/BlockModel.h"
#include "VeskCore/Editor/EditingCommands.h"
#include "VeskCore/Editor/ListNumbering.h"
#include "VeskCore/Editor/MarkdownSpans.h"
#include "VeskCore/Editor/MarkdownTable.h"
#include "VeskCore/Editor/NoteLines.h"

namespace vesk::EditingCommands {

using EditorLines::piece;
using Kind = MarkdownBlock::Kind;
using NoteLines::NoteLine;

namespace {

const Kind blank{Kind::Plain::blank};

bool isBlank(std::u16string_view line) {
    return EditorLines::trimmed(line).empty();
}

/// The sign in a task's box.
struct Box {
    TextRange sign;
    bool done = false;
};

/// The box of the task in a line, also of a numbered or quoted one.
std::optional<Box> boxIn(std::u16string_view text, const NoteLine& here) {
    if (!here.isProse()) return std::nullopt;
    constexpr int deepestQuote = 8;
    std::u16string_view rest = here.shown(text);
    for (int depth = 0; depth < deepestQuote; ++depth) {
        const BlockModel::Classified classified = BlockModel::classify(rest);
        std::u16string item;
        std::size_t open = rest.npos;
        if (std::holds_alternative<Kind::Task>(classified.kind.value)) {
            open = rest.find(u'[');
        } else if (std::holds_alternative<Kind::Ordered>(classified.kind.value) &&
                   classified.content.starts_with(u'[')) {
            // A task by itself, were its number a bullet.
            item = u"- " + std::u16string(classified.content);
            if (!std::holds_alternative<Kind::Task>(BlockModel::classify(item).kind.value))
                return std::nullopt;
            open = rest.find(u'[');
        } else if (classified.kind == Kind{Kind::Plain::quote} && !classified.content.empty()) {
            rest = classified.content;
            continue;
        }
        if (open == rest.npos) return std::nullopt;
        const std::size_t at = static_cast<std::size_t>(rest.data() - text.data()) + open + 1;
        const std::size_t close = text.find(u']', at + 1);
        const TextRange sign{at, close - at};
        return Box{sign, piece(text, sign) != u" "};
    }
    return std::nullopt;
}

std::optional<TextEdit> ticked(std::u16string_view text, TextRange selection, const std::vector<Box>& boxes,
                               bool done) {
    TextDraft draft(text, selection);
    std::vector<TextDraft::Replacement> pieces;
    for (const Box& box : boxes) {
        if (box.done != done) pieces.push_back({box.sign, done ? u"x" : u" "});
    }
    draft.replace(pieces);
    return draft.finish();
}

bool isTableRow(const std::vector<MarkdownTable>& tables, TextRange line) {
    const auto table = std::partition_point(tables.begin(), tables.end(), [&](const MarkdownTable& one) {
        return one.range.end() <= line.location;
    });
    return table != tables.end() && table->range.location <= line.location;
}

/// The prose lines of the selection outside tables, blank ones left out unless nothing else is selected.
std::vector<NoteLine> proseLines(std::u16string_view text, TextRange selection) {
    std::vector<NoteLine> lines = NoteLines::selected(text, selection);
    const TextRange whole{lines.front().line.full.location,
                          lines.back().line.full.end() - lines.front().line.full.location};
    const auto tables = MarkdownTable::mightContainTable(text, whole)
                            ? MarkdownTable::tables(text, whole, MarkdownSpans::frontmatterRange(text))
                            : std::vector<MarkdownTable>();
    const bool alone = lines.size() == 1;
    const auto unwanted = [&](const NoteLine& one) {
        return !one.isProse() || (!alone && isBlank(one.shown(text))) || isTableRow(tables, one.line.full);
    };
    lines.erase(std::remove_if(lines.begin(), lines.end(), unwanted), lines.end());
    return lines;
}

/// The lines under another kind; `kindOf(index)` says which.
template <class KindOf>
std::optional<TextEdit> turned(std::u16string_view text, TextRange selection,
                               const std::vector<NoteLine>& lines, KindOf kindOf) {
    TextDraft draft(text, selection);
    std::vector<TextDraft::Replacement> pieces;
    bool numbered = false;
    int level = BlockModel::indentLevel(lines.front().shown(text));
    for (std::size_t i = 0; i < lines.size(); ++i) {
        const std::u16string_view line = lines[i].shown(text);
        const Kind kind = kindOf(i);
        numbered = numbered || std::holds_alternative<Kind::Ordered>(kind.value);
        level = std::min(level, BlockModel::indentLevel(line));
        const auto content = BlockModel::classify(line).content;
        const std::size_t start =
            content.empty() ? line.size() : static_cast<std::size_t>(content.data() - line.data());
        // What stands before the content is all that changes.
        std::u16string before = BlockModel::turnInto(line, kind, 1);
        before.resize(before.size() - content.size());
        if (before != line.substr(0, start))
            pieces.push_back({{lines[i].line.content.location, start}, std::move(before)});
    }
    draft.replace(pieces, /*startGoesBehind=*/selection.empty());
    if (numbered) {
        const std::size_t start = lines.front().line.full.location;
        const auto growth = static_cast<std::size_t>(draft.growth());
        const std::size_t end = lines.back().line.full.end() + growth;
        // Code between the lines has numbers of its own.
        const TextRange whole{start, lines.back().line.full.end() - start};
        const auto all = NoteLines::selected(text, whole);
        if (std::all_of(all.begin(), all.end(), [](const NoteLine& one) { return one.isProse(); })) {
            ListNumbering::renumber(draft, text, {{start, end - start}, level});
        }
    }
    return draft.finish();
}

std::optional<TextEdit> fenced(std::u16string_view text, TextRange selection) {
    const std::vector<NoteLine> lines = NoteLines::selected(text, selection);
    for (const NoteLine& one : lines) {
        if (!one.isProse()) return std::nullopt;
    }
    const EditorLines::Line& last = lines.back().line;
    const std::u16string end = NoteLines::lineEnd(text, lines.front().line);
    TextDraft draft(text, selection);
    std::vector<TextDraft::Replacement> pieces{{{lines.front().line.full.location, 0}, u"```" + end}};
    if (lines.size() == 1) {
        const std::u16string_view line = lines.front().shown(text);
        const auto content = BlockModel::classify(line).content;
        const std::size_t start =
            content.empty() ? line.size() : static_cast<std::size_t>(content.data() - line.data());
        pieces.front().range.length = start;
    }
    pieces.push_back({{last.content.end(), 0}, end + u"```"});
    draft.replace(pieces, /*startGoesBehind=*/true, /*endGoesBehind=*/false);
    if (selection.empty() && selection.location == last.content.end()) {
        draft.select({draft.selection().location - end.size() - 3, 0});
    }
    return draft.finish();
}

std::optional<TextEdit> dividerBelow(std::u16string_view text, TextRange selection) {
    const std::vector<NoteLine> lines = proseLines(text, selection);
    if (lines.empty()) return std::nullopt;
    const EditorLines::Line& last = lines.back().line;
    TextDraft draft(text, selection);
    if (isBlank(lines.back().shown(text))) {
        // At the very start three dashes would open frontmatter.
        draft.replace({{last.content, last.content.location == 0 ? u"***" : u"---"}});
    } else {
        // Right below text the line would make a heading of it.
        const std::u16string end = NoteLines::lineEnd(text, last);
        draft.replace({{{last.content.end(), 0}, end + end + u"---"}}, false, false);
    }
    return draft.finish();
}

/// The lines of a text as blocks count them, at LF.
std::vector<std::size_t> lineStarts(std::u16string_view text) {
    std::vector<std::size_t> starts{0};
    for (std::size_t feed = text.find(u'\n'); feed != text.npos; feed = text.find(u'\n', feed + 1))
        starts.push_back(feed + 1);
    return starts;
}

/// The selected blocks, those before and those behind, as offsets of their lines. Frontmatter is none.
class SelectedBlocks {
public:
    SelectedBlocks(std::u16string_view text, TextRange selection)
        : text_(text), starts_(lineStarts(text)), blocks_(BlockModel::blocks(text)) {
        const auto frontmatter = MarkdownSpans::frontmatterRange(text);
        bodyStart_ = frontmatter ? frontmatter->end() : 0;
        const std::size_t last = selection.empty() ? selection.location : selection.end() - 1;
        first_ = holding(selection.location);
        last_ = holding(std::max(selection.location, last));
    }

    bool inBody() const { return start(first_) >= bodyStart_; }
    TextRange selected() const { return range(first_, last_); }
    std::optional<TextRange> neighbour(bool up) const {
        if (up ? first_ == 0 : last_ + 1 == blocks_.size()) return std::nullopt;
        const std::size_t index = up ? first_ - 1 : last_ + 1;
        if (start(index) < bodyStart_) return std::nullopt;
        return range(index, index);
    }

private:
    std::size_t start(std::size_t block) const { return starts_[blocks_[block].lineRange.location]; }
    TextRange range(std::size_t first, std::size_t last) const {
        const std::size_t end = blocks_[last].lineRange.end();
        return {start(first), (end < starts_.size() ? starts_[end] : text_.size()) - start(first)};
    }
    std::size_t holding(std::size_t offset) const {
        std::size_t low = 0, high = blocks_.size();
        while (high - low > 1) {
            const std::size_t middle = (low + high) / 2;
            (start(middle) <= offset ? low : high) = middle;
        }
        return low;
    }

    std::u16string_view text_;
    std::vector<std::size_t> starts_;
    std::vector<MarkdownBlock> blocks_;
    std::size_t bodyStart_ = 0, first_ = 0, last_ = 0;
};

/// A stretch of whole lines without the end of its last line.
std::u16string_view withoutEnd(std::u16string_view lines) {
    if (lines.ends_with(u"\r\n")) return lines.substr(0, lines.size() - 2);
    return lines.ends_with(u'\n') ? lines.substr(0, lines.size() - 1) : lines;
}

/// What the numbers of some lines begin with.
struct Numbers {
    std::map<int, std::int64_t> openings;  // by level
    int level = 0;                         // the outermost of all items
};

/// None where the lines are not all items of lists, or none of them has a number.
std::optional<Numbers> numbersOf(std::u16string_view lines) {
    Numbers numbers;
    for (std::size_t at = 0; at < lines.size();) {
        const EditorLines::Line line = EditorLines::lineFrom(lines, at);
        const std::u16string_view shown = piece(lines, line.content);
        const Kind kind = BlockModel::classify(shown).kind;
        if (!ListNumbering::isItem(kind)) return std::nullopt;
        const int level = BlockModel::indentLevel(shown);
        numbers.level = at == 0 ? level : std::min(numbers.level, level);
        const auto* ordered = std::get_if<Kind::Ordered>(&kind.value);
        if (ordered != nullptr) numbers.openings.emplace(level, ordered->number);
        at = line.full.end();
    }
    if (numbers.openings.empty()) return std::nullopt;
    return numbers;
}

}  // namespace

std::optional<TextEdit> toggleTask(std::u16string_view text, TextRange selection) {
    selection = TextDraft::snapped(text, selection);
    const std::vector<NoteLine> lines = proseLines(text, selection);
    if (lines.empty()) return std::nullopt;
    std::vector<Box> boxes;
    std::vector<NoteLine> others;
    for (const NoteLine& one : lines) {
        if (const auto box = boxIn(text, one)) {
            boxes.push_back(*box);
        } else {
            others.push_back(one);
        }
    }
    if (others.empty()) {
        const bool allDone = std::all_of(boxes.begin(), boxes.end(), [](const Box& box) { return box.done; });
        return ticked(text, selection, boxes, !allDone);
    }
    return turned(text, selection, others, [](std::size_t) { return Kind{Kind::Task{false}}; });
}

std::optional<TextEdit> toggleTaskAt(std::u16string_view text, std::size_t offset, TextRange selection) {
    const auto box = boxIn(text, NoteLines::at(text, std::min(offset, text.size())));
    if (!box) return std::nullopt;
    return ticked(text, selection, {*box}, !box->done);
}

std::optional<TextEdit> turnInto(std::u16string_view text, TextRange selection,
                                 const MarkdownBlock::Kind& kind) {
    selection = TextDraft::snapped(text, selection);
    if (kind == blank || kind == Kind{Kind::Plain::table}) return std::nullopt;
    if (kind == Kind{Kind::Plain::divider}) return dividerBelow(text, selection);
    if (std::holds_alternative<Kind::Code>(kind.value)) return fenced(text, selection);
    const std::vector<NoteLine> lines = proseLines(text, selection);
    if (lines.empty()) return std::nullopt;
    const bool callout = std::holds_alternative<Kind::Callout>(kind.value);
    return turned(text, selection, lines,
                  [&](std::size_t index) { return callout && index > 0 ? Kind{Kind::Plain::quote} : kind; });
}

std::optional<TextEdit> moveBlock(std::u16string_view text, TextRange selection, bool up) {
    selection = TextDraft::snapped(text, selection);
    const SelectedBlocks blocks(text, selection);
    const auto neighbour = blocks.neighbour(up);
    if (!blocks.inBody() || !neighbour) return std::nullopt;
    const TextRange moved = blocks.selected();
    const TextRange first = up ? *neighbour : moved, second = up ? moved : *neighbour;
    const std::u16string_view upper = piece(text, first), lower = piece(text, second);
    const std::u16string_view upperText = withoutEnd(upper), lowerText = withoutEnd(lower);
    // Line ends keep their places, so that a text without a last one stays so.
    const std::u16string_view upperEnd = upper.substr(upperText.size());
    const std::u16string_view lowerEnd = lower.substr(lowerText.size());
    TextDraft draft(text, selection);
    std::u16string swapped;
    swapped.reserve(first.length + second.length);
    swapped.append(lowerText).append(upperEnd).append(upperText).append(lowerEnd);
    draft.replace({{{first.location, first.length + second.length}, swapped}});

    const std::size_t start = up ? first.location : first.location + lowerText.size() + upperEnd.size();
    const std::size_t length = (up ? lowerText : upperText).size();
    const std::size_t from = std::min(selection.location - moved.location, length);
    const std::size_t to = std::min(selection.end() - moved.location, length);
    draft.select({start + from, to - from});

    const TextRange both{first.location, first.length + second.length};
    if (const auto numbers = numbersOf(piece(text, both))) {
        ListNumbering::renumber(draft, text, {both, numbers->level, numbers->openings});
    }
    return draft.finish();
}

std::optional<TextEdit> duplicateBlock(std::u16string_view text, TextRange selection) {
    selection = TextDraft::snapped(text, selection);
    const SelectedBlocks blocks(text, selection);
    if (!blocks.inBody()) return std::nullopt;
    const TextRange range = blocks.selected();
    const std::u16string_view lines = piece(text, range);
    const std::u16string_view content = withoutEnd(lines);
    TextDraft draft(text, selection);
    std::size_t start = range.end();
    std::u16string copy(lines);
    if (content.size() == lines.size()) {
        const EditorLines::Line last = EditorLines::lineFrom(text, EditorLines::lineStart(text, range.end()));
        const std::u16string end = NoteLines::lineEnd(text, last);
        copy.insert(0, end);
        start += end.size();
    }
    draft.replace({{{range.end(), 0}, copy}}, /*startGoesBehind=*/false, /*endGoesBehind=*/false);
    draft.select({start + (selection.location - range.location), selection.length});
    if (const auto numbers = numbersOf(lines)) {
        const TextRange copied{start, copy.size() - (start - range.end())};
        ListNumbering::renumber(draft, text, {copied, numbers->level, numbers->openings});
    }
    return draft.finish();
}

}  // namespace vesk::EditingCommands
