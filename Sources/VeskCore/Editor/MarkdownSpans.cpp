#include "VeskCore/Editor/MarkdownSpans.h"

#include <algorithm>

#include "VeskCore/Editor/BlockModel.h"
#include "VeskCore/Editor/EditorLines.h"
#include "VeskCore/Editor/InlineReader.h"
#include "VeskCore/Support/Match.h"
#include "VeskCore/Support/Unicode.h"

namespace vesk::MarkdownSpans {

namespace {

using EditorLines::piece;
using Kind = MarkdownBlock::Kind;
using Plain = Style::Plain;
using Spans = std::vector<Span>;

void append(Spans& spans, Spans more) {
    std::move(more.begin(), more.end(), std::back_inserter(spans));
}

/// Calls `read(part, start)` for each stretch between line feeds, which no match crosses.
template <class Read>
void forEachFedLine(std::u16string_view text, Read read) {
    for (std::size_t start = 0; start < text.size();) {
        const std::size_t end = std::min(text.find(u'\n', start), text.size());
        read(text.substr(start, end - start), start);
        start = end + 1;
    }
}

}  // namespace

bool intersectsAny(const std::vector<TextRange>& ranges, TextRange range) {
    const auto found = std::partition_point(
        ranges.begin(), ranges.end(), [&](const TextRange& other) { return other.end() <= range.location; });
    return found != ranges.end() && found->intersects(range);
}

std::vector<TextRange> codeRanges(std::u16string_view line) {
    std::vector<TextRange> ranges;
    forEachFedLine(line, [&](std::u16string_view part, std::size_t start) {
        for (std::size_t at = part.find(u'`'); at != part.npos; at = part.find(u'`', at)) {
            const std::size_t close = part.find(u'`', at + 1);
            if (close == part.npos) break;
            if (close > at + 1) ranges.push_back({start + at, close + 1 - at});
            at = close > at + 1 ? close + 1 : close;
        }
    });
    return ranges;
}

std::vector<LinkMatch> linkMatches(std::u16string_view line, bool images) {
    constexpr std::size_t none = std::u16string_view::npos;
    const std::u16string_view opening = images ? u"![" : u"[";
    std::vector<LinkMatch> matches;
    forEachFedLine(line, [&](std::u16string_view part, std::size_t start) {
        // The next closing signs ahead are remembered, so that many opening ones cost no search each.
        std::size_t bracket = 0, parenthesis = 0;
        for (std::size_t at = part.find(opening); at != none; at = part.find(opening, at)) {
            const std::size_t text = at + opening.size();
            if (bracket < text) bracket = part.find(u']', text);
            if (bracket == none) break;
            const std::size_t target = bracket + 2;
            if (bracket + 1 >= part.size() || part[bracket + 1] != u'(') {
                ++at;
                continue;
            }
            if (parenthesis < target) parenthesis = part.find(u')', target);
            if (parenthesis == none) break;
            if (parenthesis == target) {
                ++at;
                continue;
            }
            const std::size_t end = parenthesis + 1;
            matches.push_back({{start + at, end - at},
                               {start + text, bracket - text},
                               {start + target, parenthesis - target}});
            at = end;
        }
    });
    return matches;
}

std::optional<TextRange> frontmatterRange(std::u16string_view text) {
    if (text.empty()) return std::nullopt;
    const TextRange first = EditorLines::lineFrom(text, 0).full;
    if (EditorLines::trimmed(piece(text, first)) != u"---") return std::nullopt;
    for (std::size_t at = first.end(); at < text.size();) {
        const TextRange line = EditorLines::lineFrom(text, at).full;
        const std::u16string_view shown = EditorLines::trimmed(piece(text, line));
        if (shown == u"---" || shown == u"...") return TextRange{0, line.end()};
        at = line.end();
    }
    return std::nullopt;
}

bool isInsideFence(std::u16string_view text, std::size_t offset, std::optional<TextRange> frontmatter) {
    const std::size_t end = EditorLines::lineStart(text, offset);
    bool inside = false;
    for (std::size_t at = frontmatter ? frontmatter->end() : 0; at < end;) {
        const TextRange line = EditorLines::lineFrom(text, at).full;
        if (EditorLines::isFence(piece(text, line))) inside = !inside;
        at = line.end();
    }
    return inside;
}

Spans spans(std::u16string_view text, std::optional<TextRange> range, bool inFence,
            std::optional<TextRange> frontmatter, const std::vector<MarkdownTable>* tables) {
    const TextRange whole = EditorLines::lineRange(text, range.value_or(TextRange{0, text.size()}));
    std::vector<MarkdownTable> found;
    if (!tables) {
        if (MarkdownTable::mightContainTable(text, whole)) {
            found = MarkdownTable::tables(text, whole, frontmatter, inFence);
        }
        tables = &found;
    }
    const std::size_t bodyStart = frontmatter ? frontmatter->end() : 0;
    std::size_t table = 0, row = 0;
    Spans result;
    for (std::size_t at = whole.location; at < whole.end();) {
        const TextRange full = EditorLines::lineFrom(text, at).full;
        const std::u16string_view line = piece(text, full);
        at = full.end();
        if (full.end() <= bodyStart) {
            result.push_back({full, {Plain::frontmatter}, {full}});
            continue;
        }
        if (full.length > longLineLimit) continue;
        if (EditorLines::isFence(line)) {
            result.push_back({full, {Plain::fence}, {full}});
            inFence = !inFence;
            continue;
        }
        if (inFence) {
            result.push_back({full, {Plain::codeBlock}, {}});
            continue;
        }
        while (table < tables->size() && (*tables)[table].range.end() <= full.location) {
            ++table;
            row = 0;
        }
        if (table < tables->size()) {
            const std::vector<MarkdownTable::Row>& rows = (*tables)[table].rows;
            while (row < rows.size() && rows[row].line.location < full.location) ++row;
            if (row < rows.size() && rows[row].line.location == full.location) {
                append(result, tableRowSpans((*tables)[table], row, text));
                continue;
            }
        }
        append(result, blockSpans(line, full.location));
        append(result, inlineSpans(line, full.location, /*wholeLine=*/true));
    }
    return result;
}

std::optional<BlockSpan> blockSpan(std::u16string_view line, std::size_t lineEnd, std::size_t lineStart) {
    std::size_t indent = 0;
    while (indent < lineEnd && (line[indent] == u' ' || line[indent] == u'\t')) ++indent;
    const auto fromStart = [&](std::size_t length) {
        return TextRange{lineStart, std::min(length, lineEnd)};
    };
    const TextRange whole{lineStart, line.size()};
    const auto listMarker = [&](std::size_t length) {
        return BlockSpan{fromStart(length), {Plain::listMarker}, fromStart(length)};
    };

    using Result = std::optional<BlockSpan>;
    const Kind kind = BlockModel::classify(line).kind;
    return match(
        kind,
        [&](const Kind::Heading& heading) -> Result {
            const auto level = static_cast<std::size_t>(heading.level);
            return BlockSpan{whole, {Style::Heading{heading.level}}, fromStart(indent + level + 1)};
        },
        [&](const Kind::Ordered&) -> Result {
            // The number as it is written: "007." has more digits than 7.
            const std::size_t sign = std::min(line.find_first_of(u".)", indent), lineEnd);
            return listMarker(sign + 2);
        },
        [&](const Kind::Task& task) -> Result {
            return BlockSpan{fromStart(indent + 6), {Style::Task{task.done}}, {}};
        },
        [&](const Kind::Callout& callout) -> Result {
            const std::size_t close = line.find(u']');
            const std::size_t length = close == line.npos ? indent + 1 : close + 1;
            return BlockSpan{whole, {Style::Callout{utf8(callout.type)}}, fromStart(length)};
        },
        [](const Kind::Code&) -> Result { return std::nullopt; },
        [&](const Kind::Plain& plain) -> Result {
            switch (plain) {
                case Kind::Plain::bullet:
                    return listMarker(indent + 2);
                case Kind::Plain::quote: {
                    const bool space = indent + 1 < lineEnd && line[indent + 1] == u' ';
                    return BlockSpan{whole, {Plain::quote}, fromStart(indent + (space ? 2 : 1))};
                }
                case Kind::Plain::divider:
                    return BlockSpan{whole, {Plain::divider}, {}};
                case Kind::Plain::paragraph:
                case Kind::Plain::table:
                case Kind::Plain::blank:
                    return std::nullopt;
            }
            return std::nullopt;
        });
}

Spans blockSpans(std::u16string_view line, std::size_t lineStart) {
    auto block = blockSpan(line, EditorLines::lineFrom(line, 0).content.length, lineStart);
    if (!block) return {};
    Span span{block->range, std::move(block->style), {}};
    if (block->marker) span.markers.push_back(*block->marker);
    return {std::move(span)};
}

Spans inlineSpans(std::u16string_view line, std::size_t lineStart, bool wholeLine) {
    Spans result;
    const std::size_t end = EditorLines::lineFrom(line, 0).content.length;
    InlineReader().readLine(line, end, lineStart, wholeLine,
                            [&](const Span& span) { result.push_back(span); });
    return result;
}

Spans inlineSpans(std::u16string_view text, std::size_t start) {
    Spans result;
    InlineReader().readCell(text, start, [&](const Span& span) { result.push_back(span); });
    return result;
}

Spans tableRowSpans(const MarkdownTable& table, std::size_t index, std::u16string_view text) {
    if (index >= table.rows.size()) return {};
    const MarkdownTable::Row& row = table.rows[index];
    if (row.kind == TableRowKind::delimiter) return {{row.line, {Style::Table{row.kind}}, {row.line}}};
    Span whole{row.line, {Style::Table{row.kind}}, row.pipes};
    for (const MarkdownTable::Cell& cell : row.cells) {
        whole.markers.insert(whole.markers.end(), cell.escapes.begin(), cell.escapes.end());
    }
    Spans result{std::move(whole)};
    for (const MarkdownTable::Cell& cell : row.cells) {
        if (!cell.content.empty())
            append(result, inlineSpans(piece(text, cell.content), cell.content.location));
    }
    return result;
}

}  // namespace vesk::MarkdownSpans
