#include "VeskCore/Editor/MarkdownSpans.h"

#include <algorithm>

#include "VeskCore/Editor/BlockModel.h"
#include "VeskCore/Editor/EditorLines.h"
#include "VeskCore/Markdown/HTMLSpans.h"
#include "VeskCore/Support/Match.h"
#include "VeskCore/Support/Pattern.h"
#include "VeskCore/Support/Unicode.h"

namespace vesk::MarkdownSpans {

namespace {

using EditorLines::piece;
using Kind = MarkdownBlock::Kind;
using Plain = Style::Plain;
using Spans = std::vector<Span>;

/// A pass over one line: its matches from left to right, then those that may stand.
class InlinePasses {
public:
    InlinePasses(std::u16string_view line, bool wholeLine) : given_(line) {
        line_ = line.substr(0, EditorLines::lineFrom(line, 0).content.length);
        code_ = codeRanges(line_);
        for (const TextRange& code : code_) {
            spans_.push_back({code, {Plain::code}, {{code.location, 1}, {code.end() - 1, 1}}});
        }
        if (line_.find(u'<') != line_.npos) readHtml(wholeLine);
    }

    Spans spans() {
        if (line_.find(u'*') != line_.npos) {
            readDoubled(u'*', Plain::bold);
            readItalic();
        }
        readDoubled(u'~', Plain::strikethrough);
        readDoubled(u'=', Plain::highlight);
        if (line_.find(u'[') != line_.npos) {
            readWikilinks();
            for (const LinkMatch& link : linkMatches(line_, /*images=*/false)) {
                const std::size_t close = link.text.end();
                add(link.range, link.text, Plain::link,
                    {{link.range.location, 1}, {close, link.range.end() - close}});
            }
        }
        if (line_.find(u'#') != line_.npos) readTags();
        return std::move(spans_);
    }

private:
    void readHtml(bool wholeLine) {
        HTMLSpans::LineScan scan = HTMLSpans::scan(line_, line_.size(), code_);
        markup_ = std::move(scan.mask);
        std::move(scan.spans.begin(), scan.spans.end(), std::back_inserter(spans_));
        // No marker of its own: what is inert in such a line stays readable.
        if (wholeLine && scan.markupOnly) spans_.push_back({{0, given_.size()}, {Plain::htmlMarkup}, {}});
    }

    void add(TextRange match, TextRange range, Plain style, std::vector<TextRange> markers) {
        if (intersectsAny(code_, match)) return;
        for (const TextRange& marker : markers) {
            if (intersectsAny(markup_, marker)) return;
        }
        spans_.push_back({range, {style}, std::move(markers)});
    }

    bool hasAt(std::size_t at, char16_t c) const { return at < line_.size() && line_[at] == c; }

    /// Two signs, text without the sign, two signs.
    void readDoubled(char16_t sign, Plain style) {
        for (std::size_t at = line_.find(sign); at != line_.npos; at = line_.find(sign, at)) {
            if (!hasAt(at + 1, sign)) {
                ++at;
                continue;
            }
            const std::size_t close = line_.find(sign, at + 2);
            if (close == line_.npos) return;
            if (close == at + 2 || !hasAt(close + 1, sign)) {
                ++at;
                continue;
            }
            add({at, close + 2 - at}, {at + 2, close - at - 2}, style, {{at, 2}, {close, 2}});
            at = close + 2;
        }
    }

    void readItalic() {
        for (std::size_t at = line_.find(u'*'); at != line_.npos; at = line_.find(u'*', at)) {
            const std::size_t close = line_.find(u'*', at + 1);
            if (close == line_.npos) return;
            if ((at > 0 && line_[at - 1] == u'*') || close == at + 1 || hasAt(close + 1, u'*')) {
                ++at;
                continue;
            }
            add({at, close + 1 - at}, {at + 1, close - at - 1}, Plain::italic, {{at, 1}, {close, 1}});
            at = close + 1;
        }
    }

    void readWikilinks() {
        std::size_t close = 0;
        for (std::size_t at = line_.find(u"[["); at != line_.npos; at = line_.find(u"[[", at)) {
            const std::size_t text = at + 2;
            if (close < text) close = line_.find(u']', text);
            if (close == line_.npos) return;
            if (close == text || !hasAt(close + 1, u']')) {
                ++at;
                continue;
            }
            const std::size_t open = at > matchEnd_ && line_[at - 1] == u'!' ? at - 1 : at;
            matchEnd_ = close + 2;
            add({open, matchEnd_ - open}, {text, close - text}, Plain::link,
                {{open, text - open}, {close, 2}});
            at = matchEnd_;
        }
    }

    void readTags() {
        static const Pattern tag(
            R"((?<![\p{L}\p{M}\p{Nd}\p{Nl}\p{Pc}/])#[A-Za-z][\p{L}\p{M}\p{Nd}\p{Nl}\p{Pc}/-]*)");
        for (const Pattern::Match& match : tag.matches(line_)) {
            // A tag has no markers to test; one in an attribute's value is none, as the index reads it.
            if (intersectsAny(markup_, match.range())) continue;
            add(match.range(), match.range(), Plain::tag, {});
        }
    }

    std::u16string_view given_, line_;
    std::vector<TextRange> code_, markup_;
    std::size_t matchEnd_ = 0;  // of the last wikilink, whose units no other takes
    Spans spans_;
};

void shift(Spans& spans, std::size_t by) {
    for (Span& span : spans) {
        span.range.location += by;
        for (TextRange& marker : span.markers) marker.location += by;
    }
}

void append(Spans& spans, Spans more) {
    std::move(more.begin(), more.end(), std::back_inserter(spans));
}

bool isImageTag(std::u16string_view tag) {
    if (tag.size() < 4 || tag[0] != u'<') return false;
    constexpr std::u16string_view lower = u"img", upper = u"IMG";
    for (std::size_t i = 0; i < 3; ++i) {
        if (tag[i + 1] != lower[i] && tag[i + 1] != upper[i]) return false;
    }
    return true;
}

}  // namespace

bool intersectsAny(const std::vector<TextRange>& ranges, TextRange range) {
    const auto found = std::partition_point(
        ranges.begin(), ranges.end(), [&](const TextRange& other) { return other.end() <= range.location; });
    return found != ranges.end() && found->intersects(range);
}

std::vector<TextRange> codeRanges(std::u16string_view line) {
    std::vector<TextRange> ranges;
    for (std::size_t at = line.find(u'`'); at != line.npos; at = line.find(u'`', at)) {
        const std::size_t close = line.find_first_of(u"`\n", at + 1);
        if (close == line.npos) break;
        if (close == at + 1 || line[close] == u'\n') {
            ++at;
            continue;
        }
        ranges.push_back({at, close + 1 - at});
        at = close + 1;
    }
    return ranges;
}

std::vector<LinkMatch> linkMatches(std::u16string_view line, bool images) {
    // The next closing signs ahead are remembered, so that many opening ones cost no search each.
    constexpr std::size_t none = std::u16string_view::npos;
    const std::u16string_view opening = images ? u"![" : u"[";
    std::vector<LinkMatch> matches;
    std::size_t bracket = 0, parenthesis = 0;
    for (std::size_t at = line.find(opening); at != none; at = line.find(opening, at)) {
        const std::size_t text = at + opening.size();
        if (bracket < text) bracket = line.find_first_of(u"]\n", text);
        if (bracket == none) break;
        const std::size_t target = bracket + 2;
        if (line[bracket] == u'\n' || bracket + 1 >= line.size() || line[bracket + 1] != u'(') {
            ++at;
            continue;
        }
        if (parenthesis < target) parenthesis = line.find_first_of(u")\n", target);
        if (parenthesis == none) break;
        if (parenthesis == target || line[parenthesis] == u'\n') {
            ++at;
            continue;
        }
        const std::size_t end = parenthesis + 1;
        matches.push_back({{at, end - at}, {text, bracket - text}, {target, parenthesis - target}});
        at = end;
    }
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

Spans blockSpans(std::u16string_view line, std::size_t lineStart) {
    const std::size_t lineEnd = EditorLines::lineFrom(line, 0).content.length;
    std::size_t indent = 0;
    while (indent < lineEnd && (line[indent] == u' ' || line[indent] == u'\t')) ++indent;
    const auto fromStart = [&](std::size_t length) {
        return TextRange{lineStart, std::min(length, lineEnd)};
    };
    const TextRange whole{lineStart, line.size()};
    const auto listMarker = [&](std::size_t length) {
        return Spans{{fromStart(length), {Plain::listMarker}, {fromStart(length)}}};
    };

    const Kind kind = BlockModel::classify(line).kind;
    return match(
        kind,
        [&](const Kind::Heading& heading) {
            const auto level = static_cast<std::size_t>(heading.level);
            return Spans{{whole, {Style::Heading{heading.level}}, {fromStart(indent + level + 1)}}};
        },
        [&](const Kind::Ordered&) {
            // The number as it is written: "007." has more digits than 7.
            const std::size_t sign = std::min(line.find_first_of(u".)", indent), lineEnd);
            return listMarker(sign + 2);
        },
        [&](const Kind::Task& task) {
            return Spans{{fromStart(indent + 6), {Style::Task{task.done}}, {}}};
        },
        [&](const Kind::Callout& callout) {
            const std::size_t close = line.find(u']');
            const std::size_t length = close == line.npos ? indent + 1 : close + 1;
            return Spans{{whole, {Style::Callout{utf8(callout.type)}}, {fromStart(length)}}};
        },
        [](const Kind::Code&) { return Spans{}; },
        [&](const Kind::Plain& plain) {
            switch (plain) {
                case Kind::Plain::bullet:
                    return listMarker(indent + 2);
                case Kind::Plain::quote: {
                    const bool space = indent + 1 < lineEnd && line[indent + 1] == u' ';
                    return Spans{{whole, {Plain::quote}, {fromStart(indent + (space ? 2 : 1))}}};
                }
                case Kind::Plain::divider:
                    return Spans{{whole, {Plain::divider}, {}}};
                case Kind::Plain::paragraph:
                case Kind::Plain::table:
                case Kind::Plain::blank:
                    return Spans{};
            }
            return Spans{};
        });
}

Spans inlineSpans(std::u16string_view line, std::size_t lineStart, bool wholeLine) {
    Spans result = InlinePasses(line, wholeLine).spans();
    shift(result, lineStart);
    return result;
}

Spans inlineSpans(std::u16string_view text, std::size_t start) {
    Spans result = InlinePasses(text, /*wholeLine=*/false).spans();
    for (Span& span : result) {
        if (span.style == Style{Plain::htmlMarkup} && span.markers == std::vector{span.range} &&
            isImageTag(piece(text, span.range))) {
            span.style = {Plain::htmlInert};
            span.markers.clear();
        }
    }
    shift(result, start);
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
