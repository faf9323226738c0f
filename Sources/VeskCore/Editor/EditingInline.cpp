// Commands on the text within lines: emphasis, links, wrapping and pasting.
#include <algorithm>
#include <unordered_map>

#include "VeskCore/Editor/BlockModel.h"
#include "VeskCore/Editor/EditingCommands.h"
#include "VeskCore/Editor/LinkAt.h"
#include "VeskCore/Editor/MarkdownSpans.h"
#include "VeskCore/Editor/MarkdownTable.h"
#include "VeskCore/Editor/NoteLines.h"
#include "VeskCore/Editor/TableEditing.h"
#include "VeskCore/Support/Text.h"

namespace vesk::EditingCommands {

using EditorLines::piece;
using NoteLines::NoteLine;
using NoteLines::Place;
using Replacement = TextDraft::Replacement;

namespace {

using SpanStyle = MarkdownSpans::Style::Plain;

struct Signs {
    char16_t sign;
    std::size_t count;
    SpanStyle span;
};

Signs signsOf(InlineStyle style) {
    switch (style) {
        case InlineStyle::bold:
            return {u'*', 2, SpanStyle::bold};
        case InlineStyle::italic:
            return {u'*', 1, SpanStyle::italic};
        case InlineStyle::code:
            return {u'`', 1, SpanStyle::code};
        case InlineStyle::highlight:
            return {u'=', 2, SpanStyle::highlight};
        case InlineStyle::strikethrough:
            return {u'~', 2, SpanStyle::strikethrough};
    }
    return {u'*', 2, SpanStyle::bold};
}

/// A styled stretch: its text, and the signs before and behind it.
struct Styled {
    TextRange text, opening, closing;

    TextRange whole() const { return {opening.location, closing.end() - opening.location}; }
};

bool touches(const Styled& styled, TextRange range) {
    return range.location >= styled.text.location && range.end() <= styled.text.end();
}

std::size_t runBefore(std::u16string_view text, std::size_t at, std::size_t limit, char16_t sign) {
    std::size_t start = at;
    while (start > limit && text[start - 1] == sign) --start;
    return at - start;
}

std::size_t runFrom(std::u16string_view text, std::size_t at, std::size_t limit, char16_t sign) {
    std::size_t end = at;
    while (end < limit && text[end] == sign) ++end;
    return end - at;
}

/// The code spans of a line, whose runs of backticks may be of any length.
std::vector<Styled> codeIn(std::u16string_view text, TextRange line) {
    std::vector<TextRange> runs;
    const std::u16string_view shown = piece(text, line);
    for (std::size_t at = shown.find(u'`'); at != shown.npos; at = shown.find(u'`', at)) {
        const std::size_t length = runFrom(shown, at, shown.size(), u'`');
        runs.push_back({line.location + at, length});
        at += length;
    }
    // For each run the next one of its length.
    std::vector<std::size_t> closing(runs.size(), runs.size());
    std::unordered_map<std::size_t, std::size_t> nextOfLength;
    for (std::size_t i = runs.size(); i-- > 0;) {
        if (const auto next = nextOfLength.find(runs[i].length); next != nextOfLength.end())
            closing[i] = next->second;
        nextOfLength[runs[i].length] = i;
    }
    std::vector<Styled> found;
    for (std::size_t i = 0; i < runs.size(); ++i) {
        if (closing[i] == runs.size()) continue;
        const TextRange open = runs[i], close = runs[closing[i]];
        Styled code{{open.end(), close.location - open.end()}, open, close};
        const std::u16string_view inner = piece(text, code.text);
        // One blank on each side keeps a backtick of the code apart from the run.
        if (inner.size() >= 3 && inner.front() == u' ' && inner.back() == u' ' &&
            (inner[1] == u'`' || inner[inner.size() - 2] == u'`')) {
            code = {{code.text.location + 1, code.text.length - 2},
                    {open.location, open.length + 1},
                    {close.location - 1, close.length + 1}};
        }
        found.push_back(code);
        i = closing[i];
    }
    return found;
}

/// What in a line has the style already. A line too long to be styled has nothing.
std::vector<Styled> styledIn(std::u16string_view text, const NoteLine& here, const Signs& signs) {
    if (signs.span == SpanStyle::code) return codeIn(text, here.line.content);
    std::vector<Styled> found;
    if (here.line.full.length > MarkdownSpans::longLineLimit) return found;
    for (const auto& span :
         MarkdownSpans::inlineSpans(here.shown(text), here.line.content.location, /*wholeLine=*/false)) {
        if (span.style == MarkdownSpans::Style{signs.span} && span.markers.size() == 2)
            found.push_back({span.range, span.markers[0], span.markers[1]});
    }
    std::sort(found.begin(), found.end(),
              [](const Styled& a, const Styled& b) { return a.opening.location < b.opening.location; });
    return found;
}

/// The links of a line in order, with what of each can be styled by itself: of "[text](target)" the text, of
/// wikilinks and images nothing.
std::vector<Styled> linksIn(std::u16string_view text, const NoteLine& here) {
    std::vector<Styled> found;
    const std::u16string_view shown = here.shown(text);
    if (here.line.full.length > MarkdownSpans::longLineLimit || shown.find(u'[') == shown.npos) return found;
    for (const auto& span : MarkdownSpans::inlineSpans(shown, here.line.content.location, false)) {
        if (span.style != MarkdownSpans::Style{SpanStyle::link} || span.markers.size() != 2) continue;
        Styled link{span.range, span.markers[0], span.markers[1]};
        const std::size_t start = link.opening.location;
        const bool image = start > here.line.content.location && text[start - 1] == u'!';
        if (image) link.opening = {start - 1, link.opening.length + 1};
        if (image || link.opening.length > 1) link.text = {link.opening.location, 0};
        found.push_back(link);
    }
    std::sort(found.begin(), found.end(),
              [](const Styled& a, const Styled& b) { return a.opening.location < b.opening.location; });
    return found;
}

/// The links of a line and its tags, which are whole or nothing too.
std::vector<Styled> solidsIn(std::u16string_view text, const NoteLine& here) {
    std::vector<Styled> found = linksIn(text, here);
    const std::u16string_view shown = here.shown(text);
    if (here.line.full.length > MarkdownSpans::longLineLimit || shown.find(u'#') == shown.npos) return found;
    for (const auto& span : MarkdownSpans::inlineSpans(shown, here.line.content.location, false)) {
        if (span.style == MarkdownSpans::Style{SpanStyle::tag})
            found.push_back({{span.range.location, 0}, {span.range.location, 0}, span.range});
    }
    std::sort(found.begin(), found.end(),
              [](const Styled& a, const Styled& b) { return a.opening.location < b.opening.location; });
    // A tag in a link is part of it.
    std::size_t reached = 0;
    std::erase_if(found, [&](const Styled& one) {
        if (one.opening.location < reached) return true;
        reached = one.closing.end();
        return false;
    });
    return found;
}

/// A stretch of one line that a command works on.
struct Segment {
    const NoteLine* line = nullptr;
    TextRange range;
};

TextRange trimmedRange(std::u16string_view text, TextRange range) {
    std::size_t start = range.location, end = range.end();
    const auto isBlank = [&](std::size_t at) { return text[at] == u' ' || text[at] == u'\t'; };
    while (start < end && isBlank(start)) ++start;
    while (end > start && isBlank(end - 1)) --end;
    return {start, end - start};
}

/// The text of the selected lines without their markers, of table rows cell by cell.
std::vector<Segment> segmentsOf(std::u16string_view text, TextRange selection,
                                const std::vector<NoteLine>& lines) {
    std::vector<Segment> segments;
    const auto add = [&](const NoteLine& line, std::size_t start, std::size_t end) {
        start = std::max(start, selection.location);
        end = std::min(end, selection.end());
        if (start >= end) return;
        const TextRange range = trimmedRange(text, {start, end - start});
        if (!range.empty()) segments.push_back({&line, range});
    };
    const TextRange whole{lines.front().line.full.location,
                          lines.back().line.full.end() - lines.front().line.full.location};
    std::vector<MarkdownTable> tables;
    if (MarkdownTable::mightContainTable(text, whole))
        tables = MarkdownTable::tables(text, whole, MarkdownSpans::frontmatterRange(text));
    std::size_t table = 0, row = 0;
    for (const NoteLine& line : lines) {
        if (!line.isProse()) continue;
        const std::size_t start = line.line.content.location;
        while (table < tables.size() && tables[table].range.end() <= start) {
            ++table;
            row = 0;
        }
        if (table < tables.size()) {
            const auto& rows = tables[table].rows;
            while (row < rows.size() && rows[row].line.location < start) ++row;
            if (row < rows.size() && rows[row].line.location == start) {
                if (rows[row].kind == TableRowKind::delimiter) continue;
                for (const auto& cell : rows[row].cells) add(line, cell.content.location, cell.content.end());
                continue;
            }
        }
        add(line, start + NoteLines::contentStart(line.shown(text)), line.line.content.end());
    }
    return segments;
}

/// What is to be done about one segment.
struct Plan {
    std::vector<Styled> within;  ///< styled stretches that go
    TextRange text;              ///< what is styled in the end
    bool on = false;             ///< all of it has the style already
};

bool hasStyle(std::size_t run, const Signs& signs) {
    if (signs.sign == u'*' && signs.count == 1) return run == 1 || run >= 3;
    return run >= signs.count;
}

/// The signs right around a stretch, also those that are part of it, where the styles' own reader sees none.
std::optional<Styled> signsAround(std::u16string_view text, TextRange line, TextRange range,
                                  const Signs& signs) {
    const std::size_t in = runFrom(text, range.location, range.end(), signs.sign);
    if (in == range.length) return std::nullopt;
    const std::size_t before = runBefore(text, range.location, line.location, signs.sign);
    const std::size_t behind = runFrom(text, range.end(), line.end(), signs.sign);
    if (hasStyle(std::min(before, behind), signs)) {
        return Styled{range, {range.location - signs.count, signs.count}, {range.end(), signs.count}};
    }
    const std::size_t out = runBefore(text, range.end(), range.location, signs.sign);
    const TextRange inner{range.location + in, range.length - in - out};
    if (!hasStyle(std::min(in + before, out + behind), signs)) return std::nullopt;
    return Styled{inner, {inner.location - signs.count, signs.count}, {inner.end(), signs.count}};
}

/// What stands in one line, read once for all its segments.
struct LineStyles {
    const NoteLine* line = nullptr;
    std::vector<Styled> styled, code, solids;
};

/// Calls `visit` for what of `styled`, which is in order and apart, touches the range; it may grow meanwhile.
template <class Visit>
void visitTouching(const std::vector<Styled>& styled, const TextRange& range, Visit visit) {
    auto one = std::partition_point(styled.begin(), styled.end(), [&](const Styled& other) {
        return other.whole().end() < range.location;
    });
    for (; one != styled.end() && one->whole().location <= range.end(); ++one) visit(*one);
}

/// Whether one of the signs around a stretch belongs to a styled stretch that begins or ends within.
bool isOtherwiseTaken(const std::vector<Styled>& styled, const Styled& around) {
    const auto isWithin = [&](std::size_t offset) { return around.text.contains(offset); };
    bool taken = false;
    visitTouching(styled, around.whole(), [&](const Styled& one) {
        taken = taken || isWithin(one.opening.location) != isWithin(one.closing.location);
    });
    return taken;
}

Plan planFor(std::u16string_view text, const Segment& segment, const Signs& signs, const LineStyles& line) {
    std::optional<Plan> on;
    visitTouching(line.styled, segment.range, [&](const Styled& one) {
        if (!on && (one.whole() == segment.range || touches(one, segment.range)))
            on = Plan{{one}, segment.range, true};
    });
    if (on) return *std::move(on);
    Plan plan{{}, segment.range, false};
    const auto widen = [&](const Styled& one) {
        const TextRange whole = one.whole();
        if (!whole.intersects(plan.text)) return false;
        const std::size_t start = std::min(plan.text.location, whole.location);
        plan.text = {start, std::max(plan.text.end(), whole.end()) - start};
        return true;
    };
    const auto widenOverSolids = [&] {
        visitTouching(line.solids, segment.range, [&](const Styled& one) {
            if (!touches(one, segment.range)) widen(one);
        });
    };
    if (signs.sign == u'`') {
        widenOverSolids();
        return plan;
    }
    const auto around = signsAround(text, segment.line->line.content, segment.range, signs);
    if (around && !isOtherwiseTaken(line.styled, *around)) return {{*around}, segment.range, true};
    // No sign within code means anything, and one within a link breaks it: what is styled holds them whole or
    // stays out of them.
    visitTouching(line.code, segment.range, widen);
    widenOverSolids();
    visitTouching(line.styled, TextRange(plan.text), [&](const Styled& one) {
        if (widen(one)) plan.within.push_back(one);
    });
    return plan;
}

/// The signs to put before and behind the text.
std::u16string openingSigns(std::u16string_view text, TextRange range, const Signs& signs, bool closing) {
    if (signs.sign != u'`') return std::u16string(signs.count, signs.sign);
    const std::u16string_view code = piece(text, range);
    std::size_t longest = 0;
    for (std::size_t at = code.find(u'`'); at != code.npos; at = code.find(u'`', at)) {
        const std::size_t run = runFrom(code, at, code.size(), u'`');
        longest = std::max(longest, run);
        at += run;
    }
    std::u16string run(longest + 1, u'`');
    if (code.front() == u'`' || code.back() == u'`') run.insert(closing ? 0 : run.size(), 1, u' ');
    return run;
}

std::optional<TextEdit> toggled(std::u16string_view text, TextRange selection,
                                const std::vector<Segment>& segments, const Signs& signs) {
    std::vector<Plan> plans;
    LineStyles line;
    std::size_t reached = 0;
    for (const Segment& segment : segments) {
        if (segment.line != line.line) {
            line = {segment.line, styledIn(text, *segment.line, signs),
                    codeIn(text, segment.line->line.content), solidsIn(text, *segment.line)};
        }
        Plan plan = planFor(text, segment, signs, line);
        const std::size_t start = plan.within.empty()
                                      ? plan.text.location
                                      : std::min(plan.text.location, plan.within.front().opening.location);
        // Two cells of a row may lie in one styled stretch.
        if (!plans.empty() && start < reached) continue;
        reached = plan.text.end();
        for (const Styled& one : plan.within) reached = std::max(reached, one.closing.end());
        plans.push_back(std::move(plan));
    }
    const bool allOn = std::all_of(plans.begin(), plans.end(), [](const Plan& plan) { return plan.on; });
    std::vector<Replacement> pieces;
    for (const Plan& plan : plans) {
        if (plan.on && !allOn) continue;
        if (!plan.on)
            pieces.push_back({{plan.text.location, 0}, openingSigns(text, plan.text, signs, false)});
        for (const Styled& one : plan.within) {
            pieces.push_back({one.opening, {}});
            pieces.push_back({one.closing, {}});
        }
        if (!plan.on) pieces.push_back({{plan.text.end(), 0}, openingSigns(text, plan.text, signs, true)});
    }
    TextDraft draft(text, selection);
    if (selection.empty()) {
        const bool atStart = selection.location == plans.front().text.location;
        draft.replace(pieces, atStart, atStart);
        return draft.finish();
    }
    draft.select({plans.front().text.location, plans.back().text.end() - plans.front().text.location});
    draft.replace(pieces, /*startGoesBehind=*/true, /*endGoesBehind=*/false);
    return draft.finish();
}

/// The line at the caret as something to type emphasis into, with the limits that a word there has.
std::optional<TextRange> typingLimits(std::u16string_view text, const NoteLine& here, std::size_t caret) {
    if (!here.isProse()) return std::nullopt;
    const TextRange line = here.line.content;
    if (caret < line.location + NoteLines::contentStart(here.shown(text))) return std::nullopt;
    if (const auto table = MarkdownTable::table(caret, text, MarkdownSpans::frontmatterRange(text))) {
        for (const auto& row : table->rows) {
            if (row.line == line && row.kind == TableRowKind::delimiter) return std::nullopt;
        }
    }
    return line;
}

bool isInside(const std::vector<Styled>& styled, TextRange range) {
    bool inside = false;
    visitTouching(styled, range, [&](const Styled& one) { inside = inside || touches(one, range); });
    return inside;
}

bool isInCode(std::u16string_view text, const NoteLine& here, TextRange range) {
    return isInside(codeIn(text, here.line.content), range);
}

std::optional<TextEdit> toggledAtCaret(std::u16string_view text, std::size_t caret, const Signs& signs) {
    const NoteLine here = NoteLines::at(text, caret);
    const auto limits = typingLimits(text, here, caret);
    if (!limits) return std::nullopt;
    const TextRange point{caret, 0};
    if (signs.sign != u'`' && isInCode(text, here, point)) return std::nullopt;
    for (const Styled& one : styledIn(text, here, signs)) {
        if (!touches(one, point)) continue;
        TextDraft draft(text, point);
        draft.replace({{one.opening, {}}, {one.closing, {}}});
        return draft.finish();
    }
    if (const TextRange word = NoteLines::word(text, caret, *limits); !word.empty())
        return toggled(text, point, {{&here, word}}, signs);
    TextDraft draft(text, point);
    const std::size_t around = std::min(runBefore(text, caret, limits->location, signs.sign),
                                        runFrom(text, caret, limits->end(), signs.sign));
    if (hasStyle(around, signs)) {
        draft.replace({{{caret - signs.count, 2 * signs.count}, {}}});
    } else {
        draft.replace({{point, std::u16string(2 * signs.count, signs.sign)}});
        draft.select({caret + signs.count, 0});
    }
    return draft.finish();
}

/// The address without what would end a link's target early.
std::u16string escapedTarget(std::u16string_view url) {
    std::u16string target;
    for (const char16_t unit : url) {
        switch (unit) {
            case u' ':
                target += u"%20";
                break;
            case u'(':
                target += u"%28";
                break;
            case u')':
                target += u"%29";
                break;
            case u'<':
                target += u"%3C";
                break;
            case u'>':
                target += u"%3E";
                break;
            case u'\\':
                target += u"%5C";
                break;
            default:
                target += unit;
        }
    }
    return target;
}

/// Whether the stretch of a line can be made a link: not code, and no link holds another.
bool mayBeLinked(std::u16string_view text, const NoteLine& here, TextRange range) {
    const auto links = linksIn(text, here);
    return !isInCode(text, here, range) && std::none_of(links.begin(), links.end(), [&](const Styled& link) {
        return link.whole().intersects(range) ||
               (range.location > link.whole().location && range.location < link.whole().end());
    });
}

/// The one segment of a selection that lies in one line.
std::optional<TextRange> onlySegment(std::u16string_view text, TextRange selection) {
    const auto lines = NoteLines::selected(text, selection);
    if (lines.size() != 1) return std::nullopt;
    const auto segments = segmentsOf(text, selection, lines);
    if (segments.size() != 1 || !mayBeLinked(text, lines.front(), segments.front().range))
        return std::nullopt;
    return segments.front().range;
}

/// The address at the caret, else the word.
TextRange linkedAt(std::u16string_view text, std::size_t caret, TextRange limits) {
    const auto link = LinkAt::at(text, caret);
    if (!link || !std::holds_alternative<LinkAt::Address>(link->value))
        return NoteLines::word(text, caret, limits);
    return link->range;
}

}  // namespace

std::optional<TextEdit> toggle(InlineStyle style, std::u16string_view text, TextRange selection) {
    selection = TextDraft::snapped(text, selection);
    const Signs signs = signsOf(style);
    if (selection.empty()) return toggledAtCaret(text, selection.location, signs);
    const auto lines = NoteLines::selected(text, selection);
    auto segments = segmentsOf(text, selection, lines);
    LineStyles read;
    const auto unfit = [&](const Segment& segment) {
        // A run of the signs alone has no text to style.
        if (runFrom(text, segment.range.location, segment.range.end(), signs.sign) == segment.range.length)
            return true;
        if (signs.sign == u'`') return false;
        if (read.line != segment.line)
            read = {segment.line, {}, codeIn(text, segment.line->line.content), {}};
        return isInside(read.code, segment.range);
    };
    segments.erase(std::remove_if(segments.begin(), segments.end(), unfit), segments.end());
    if (segments.empty()) return std::nullopt;
    return toggled(text, selection, segments, signs);
}

std::optional<TextEdit> toggleLink(std::u16string_view text, TextRange selection) {
    selection = TextDraft::snapped(text, selection);
    const NoteLine here = NoteLines::at(text, selection.location);
    if (!here.isProse() || selection.end() > here.line.content.end()) return std::nullopt;
    for (const Styled& link : linksIn(text, here)) {
        const TextRange whole = link.whole();
        const bool inside = selection.empty()
                                ? selection.location > whole.location && selection.location < whole.end()
                                : selection.location >= whole.location && selection.end() <= whole.end();
        if (!inside) continue;
        if (text[whole.location] == u'!') return std::nullopt;
        std::size_t start = link.opening.end();
        const std::size_t alias = piece(text, whole).find(u'|');
        if (link.opening.length > 1 && alias != std::u16string_view::npos) {
            start = whole.location + alias + 1;
            // In a row it parts two cells.
            if (text[start - 2] != u'\\' && TableEditing::isInTable(text, selection)) return std::nullopt;
        }
        TextDraft draft(text, selection);
        draft.replace({{{whole.location, start - whole.location}, {}}, {link.closing, {}}});
        return draft.finish();
    }
    TextRange range{selection};
    if (selection.empty()) {
        const auto limits = typingLimits(text, here, selection.location);
        if (!limits) return std::nullopt;
        range = linkedAt(text, selection.location, *limits);
        if (!mayBeLinked(text, here, range)) return std::nullopt;
    } else {
        const auto segment = onlySegment(text, selection);
        if (!segment) return std::nullopt;
        range = *segment;
    }
    TextDraft draft(text, selection);
    if (!range.empty() && NoteLines::addressEnd(text.substr(0, range.end()), range.location) == range.end()) {
        const std::u16string target = escapedTarget(piece(text, range));
        draft.replace({{range, u"[](" + target + u")"}});
        draft.select({range.location + 1, 0});
    } else {
        draft.replace({{{range.location, 0}, u"["}, {{range.end(), 0}, u"]()"}});
        const std::size_t behind = range.empty() ? range.location + 1 : range.end() + 3;
        draft.select({behind, 0});
    }
    return draft.finish();
}

std::optional<TextEdit> wrapSelection(std::u16string_view text, TextRange selection, char16_t typed) {
    selection = TextDraft::snapped(text, selection);
    constexpr std::u16string_view emphasis = u"*_`~=";
    constexpr std::u16string_view opening = u"[({\"'", closing = u"])}\"'";
    if (selection.empty()) return std::nullopt;
    const std::size_t bracket = opening.find(typed);
    std::vector<Replacement> pieces;
    TextRange inner = selection;
    if (bracket != opening.npos) {
        pieces = {{{selection.location, 0}, std::u16string(1, typed)},
                  {{selection.end(), 0}, std::u16string(1, closing[bracket])}};
    } else if (emphasis.find(typed) != emphasis.npos) {
        // Signs of emphasis mean nothing outside prose, and none reaches over a line's end.
        const auto lines = NoteLines::selected(text, selection);
        const auto segments = segmentsOf(text, selection, lines);
        if (segments.empty()) return std::nullopt;
        LineStyles read;
        for (const Segment& segment : segments) {
            if (read.line != segment.line)
                read = {segment.line, {}, codeIn(text, segment.line->line.content), {}};
            if (typed != u'`' && isInside(read.code, segment.range)) return std::nullopt;
            pieces.push_back({{segment.range.location, 0}, std::u16string(1, typed)});
            pieces.push_back({{segment.range.end(), 0}, std::u16string(1, typed)});
        }
        inner = {segments.front().range.location,
                 segments.back().range.end() - segments.front().range.location};
    } else {
        return std::nullopt;
    }
    TextDraft draft(text, selection);
    draft.select(inner);
    draft.replace(pieces, /*startGoesBehind=*/true, /*endGoesBehind=*/false);
    return draft.finish();
}

std::optional<TextEdit> paste(std::u16string_view text, TextRange selection, std::u16string_view pasted) {
    selection = TextDraft::snapped(text, selection);
    if (auto table = TableEditing::pasteTable(text, selection, pasted)) return table;
    const std::u16string_view url = EditorLines::trimmed(pasted);
    // An address with blanks in it is one still, as browsers copy it; one of several lines is not.
    if (selection.empty() || url.empty() || NoteLines::addressEnd(url, 0) == 0) return std::nullopt;
    if (std::any_of(url.begin(), url.end(), [](char16_t unit) { return unit < 0x20 || isNewline(unit); }))
        return std::nullopt;
    const auto range = onlySegment(text, selection);
    if (!range) return std::nullopt;
    const std::u16string_view words = piece(text, *range);
    if (NoteLines::addressEnd(words, 0) != 0 || words.find_first_of(u"[]") != words.npos) return std::nullopt;
    TextDraft draft(text, selection);
    const std::u16string behind = u"](" + escapedTarget(url) + u")";
    draft.replace({{{range->location, 0}, u"["}, {{range->end(), 0}, behind}});
    draft.select({range->end() + 1 + behind.size(), 0});
    return draft.finish();
}

}  // namespace vesk::EditingCommands
