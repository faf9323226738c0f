#include "VeskCore/Editor/LineStyles.h"

#include <vector>

#include "VeskCore/Editor/MarkdownSpans.h"
#include "VeskCore/Support/Match.h"

namespace vesk {

namespace {

using Change = AttributeLayers::Change;
using MarkdownSpans::Span;
using MarkdownSpans::Style;
using Markers = std::vector<TextRange>;

void applyPlain(const Span& span, Style::Plain plain, std::u16string_view text, Markers& markers, bool inCell,
                AttributeLayers& layers) {
    switch (plain) {
        case Style::Plain::bold:
            return layers.add(span.range, Change::bold);
        case Style::Plain::italic:
            return layers.add(span.range, Change::italic);
        case Style::Plain::strikethrough:
            return layers.add(span.range, Change::strikethrough);
        case Style::Plain::highlight:
            return layers.add(span.range, Change::highlight);
        case Style::Plain::code:
            return layers.add(span.range, inCell ? Change::cellCode : Change::code);
        case Style::Plain::link: {
            // An image's sign stands before the link's first marker, and hides with the rest. A wikilink's
            // opening marker has it already.
            if (!span.markers.empty()) {
                const std::size_t start = span.markers.front().location;
                if (start > 0 && text[start - 1] == u'!' && text[start] != u'!') {
                    markers.push_back({start - 1, 1});
                }
            }
            return layers.add(span.range, Change::accent);
        }
        case Style::Plain::tag:
            return layers.add(span.range, Change::accent);
        case Style::Plain::htmlInert:
            return layers.add(span.range, Change::faint);
        case Style::Plain::htmlMarkup:
        case Style::Plain::fence:
        case Style::Plain::codeBlock:
        case Style::Plain::quote:
        case Style::Plain::listMarker:
        case Style::Plain::divider:
        case Style::Plain::frontmatter:
            return;
    }
}

/// Lays the span's style; its markers go to `markers`, which come on top of all spans of the line.
void applySpan(const Span& span, std::u16string_view text, Markers& markers, bool inCell,
               AttributeLayers& layers) {
    match(
        span.style, [&](const Style::Heading& heading) { layers.addHeading(span.range, heading.level); },
        [](const Style::Callout&) {}, [](const Style::Task&) {}, [](const Style::Table&) {},
        [&](const Style::HtmlStyled& html) { layers.addHtml(span.range, html.style); },
        [&](const Style::Plain& plain) { applyPlain(span, plain, text, markers, inCell, layers); });
    markers.insert(markers.end(), span.markers.begin(), span.markers.end());
}

/// Lays what the line's kind asks for; true if inline styles come on top.
bool layBlock(const MarkdownSpans::BlockSpan& block, std::u16string_view text, bool revealed,
              AttributeLayers& layers) {
    const auto quote = [&] {
        layers.add(block.range, Change::quoted);
        const std::size_t sign = text.find(u'>', block.range.location);
        const bool space = sign + 1 < block.range.end() && text[sign + 1] == u' ';
        return TextRange{block.range.location, sign + (space ? 2 : 1) - block.range.location};
    };
    return match(
        block.style,
        [&](const Style::Heading& heading) {
            layers.addHeading(block.range, heading.level);
            layers.addMarker(block.marker.value_or(TextRange{}), revealed);
            return true;
        },
        [&](const Style::Callout&) {
            const TextRange prefix = quote();
            layers.add(block.marker.value_or(TextRange{}), Change::accent);
            layers.addMarker(prefix, revealed);
            return true;
        },
        [&](const Style::Task&) {
            layers.add(block.range, Change::accent);
            return true;
        },
        [](const Style::HtmlStyled&) { return true; }, [](const Style::Table&) { return true; },
        [&](const Style::Plain& plain) {
            if (plain == Style::Plain::divider) {
                layers.add(block.range, Change::faint);
                return false;
            }
            if (plain == Style::Plain::quote) {
                layers.addMarker(quote(), revealed);
            } else {
                layers.add(block.range, Change::accent);
            }
            return true;
        });
}

}  // namespace

LineStyles::LineStyles(std::u16string_view text, AttributeLayers& layers) : text_(text), layers_(layers) {
    inLine_ = [this](const Span& span) { applySpan(span, text_, markers_, /*inCell=*/false, layers_); };
}

void LineStyles::addMarkers(bool revealed) {
    for (const TextRange& marker : markers_) layers_.addMarker(marker, revealed);
    markers_.clear();
}

void LineStyles::styleLine(const EditorLines::Line& line, bool revealed) {
    const std::u16string_view source = EditorLines::piece(text_, line.full);
    const std::size_t end = line.content.length, start = line.full.location;
    const auto block = MarkdownSpans::blockSpan(source, end, start);
    if (block && !layBlock(*block, text_, revealed, layers_)) return;
    reader_.readLine(source, end, start, /*wholeLine=*/true, inLine_);
    if (block) {
        const auto* task = std::get_if<Style::Task>(&block->style.value);
        const std::size_t rest = block->range.end();
        if (task && task->done) layers_.add({rest, line.full.end() - rest}, Change::done);
    }
    addMarkers(revealed);
}

void LineStyles::styleFenceLine(TextRange line, bool revealed) {
    layers_.add(line, Change::mono);
    layers_.addMarker(line, revealed);
}

void LineStyles::styleTableRow(const MarkdownTable& table, std::size_t row, bool padded, bool revealed) {
    if (padded) layers_.add(table.rows[row].fullLine, Change::mono);
    for (const Span& span : MarkdownSpans::tableRowSpans(table, row, text_)) {
        applySpan(span, text_, markers_, /*inCell=*/true, layers_);
    }
    addMarkers(revealed);
}

}  // namespace vesk
