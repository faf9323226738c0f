#include "VeskCore/Editor/InlineReader.h"

#include <algorithm>
#include <array>

#include "VeskCore/Editor/MarkdownSpans.h"
#include "VeskCore/Markdown/HTMLSpans.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"

namespace vesk {

namespace {

using MarkdownSpans::intersectsAny;
using MarkdownSpans::Style;
using Plain = Style::Plain;

// The signs that the passes look for, a bit each.
enum Sign : unsigned char {
    backtick = 1,
    angle = 2,
    star = 4,
    tilde = 8,
    equals = 16,
    bracket = 32,
    hash = 64,
};

constexpr std::array<unsigned char, 128> signTable = [] {
    std::array<unsigned char, 128> table{};
    table['`'] = backtick;
    table['<'] = angle;
    table['*'] = star;
    table['~'] = tilde;
    table['='] = equals;
    table['['] = bracket;
    table['#'] = hash;
    return table;
}();

/// Which signs a line holds: most lines hold few, and each pass costs a walk over the line.
unsigned signsOf(std::u16string_view line) {
    unsigned signs = 0;
    for (const char16_t c : line) signs |= c < signTable.size() ? signTable[c] : 0U;
    return signs;
}

bool isImageTag(std::u16string_view tag) {
    if (tag.size() < 4 || tag[0] != u'<') return false;
    constexpr std::u16string_view lower = u"img", upper = u"IMG";
    for (std::size_t i = 0; i < 3; ++i) {
        if (tag[i + 1] != lower[i] && tag[i + 1] != upper[i]) return false;
    }
    return true;
}

char32_t codePointBefore(std::u16string_view text, std::size_t at) {
    const char16_t last = text[at - 1];
    if (last < 0xDC00 || last > 0xDFFF || at < 2) return last;
    const char16_t first = text[at - 2];
    if (first < 0xD800 || first > 0xDBFF) return last;
    return 0x10000 + ((static_cast<char32_t>(first) - 0xD800) << 10) + (static_cast<char32_t>(last) - 0xDC00);
}

/// The code point at `at`; a lone surrogate stands for itself.
char32_t codePointAt(std::u16string_view text, std::size_t at) {
    if (text[at] < 0xD800 || text[at] > 0xDBFF || at + 1 == text.size()) return text[at];
    const char32_t pair = codePointBefore(text, at + 2);
    return pair >= 0x10000 ? pair : text[at];
}

}  // namespace

void InlineReader::readLine(std::u16string_view line, std::size_t lineEnd, std::size_t lineStart,
                            bool wholeLine, const Visit& visit) {
    given_ = line;
    line_ = line.substr(0, lineEnd);
    lineStart_ = lineStart;
    visit_ = &visit;
    read(wholeLine, /*inCell=*/false);
}

void InlineReader::readCell(std::u16string_view text, std::size_t start, const Visit& visit) {
    given_ = line_ = text;
    lineStart_ = start;
    visit_ = &visit;
    read(/*wholeLine=*/false, /*inCell=*/true);
}

void InlineReader::read(bool wholeLine, bool inCell) {
    code_.clear();
    markup_.clear();
    const unsigned signs = signsOf(line_);
    if (signs == 0) return;
    if (signs & backtick) readCode();
    if (signs & angle) readHtml(wholeLine, inCell);
    if (signs & star) {
        readDoubled(u'*', Plain::bold);
        readItalic();
    }
    if (signs & tilde) readDoubled(u'~', Plain::strikethrough);
    if (signs & equals) readDoubled(u'=', Plain::highlight);
    if (signs & bracket) {
        readWikilinks();
        readLinks();
    }
    if (signs & hash) readTags();
}

void InlineReader::visit(TextRange range, Plain style, std::initializer_list<TextRange> markers) {
    range.location += lineStart_;
    span_.range = range;
    span_.style.value = style;
    span_.markers.assign(markers);
    for (TextRange& marker : span_.markers) marker.location += lineStart_;
    (*visit_)(span_);
}

void InlineReader::add(TextRange match, TextRange range, Plain style,
                       std::initializer_list<TextRange> markers) {
    if (intersectsAny(code_, match)) return;
    for (const TextRange& marker : markers) {
        if (intersectsAny(markup_, marker)) return;
    }
    visit(range, style, markers);
}

void InlineReader::readCode() {
    code_ = MarkdownSpans::codeRanges(line_);
    for (const TextRange& code : code_) {
        visit(code, Plain::code, {{code.location, 1}, {code.end() - 1, 1}});
    }
}

void InlineReader::readHtml(bool wholeLine, bool inCell) {
    HTMLSpans::LineScan scan = HTMLSpans::scan(line_, line_.size(), code_);
    markup_ = std::move(scan.mask);
    for (Span& span : scan.spans) {
        if (inCell && span.style == Style{Plain::htmlMarkup} &&
            isImageTag(line_.substr(span.range.location))) {
            span.style = {Plain::htmlInert};
            span.markers.clear();
        }
        span.range.location += lineStart_;
        for (TextRange& marker : span.markers) marker.location += lineStart_;
        (*visit_)(span);
    }
    // No marker of its own: what is inert in such a line stays readable.
    if (wholeLine && scan.markupOnly) visit({0, given_.size()}, Plain::htmlMarkup, {});
}

/// Two signs, text without the sign, two signs.
void InlineReader::readDoubled(char16_t sign, Plain style) {
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

void InlineReader::readItalic() {
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

void InlineReader::readWikilinks() {
    std::size_t close = 0, matchEnd = 0;
    for (std::size_t at = line_.find(u"[["); at != line_.npos; at = line_.find(u"[[", at)) {
        const std::size_t text = at + 2;
        if (close < text) close = line_.find(u']', text);
        if (close == line_.npos) return;
        if (close == text || !hasAt(close + 1, u']')) {
            ++at;
            continue;
        }
        const std::size_t open = at > matchEnd && line_[at - 1] == u'!' ? at - 1 : at;
        matchEnd = close + 2;
        add({open, matchEnd - open}, {text, close - text}, Plain::link, {{open, text - open}, {close, 2}});
        at = matchEnd;
    }
}

void InlineReader::readLinks() {
    for (const MarkdownSpans::LinkMatch& link : MarkdownSpans::linkMatches(line_, /*images=*/false)) {
        const std::size_t close = link.text.end();
        add(link.range, link.text, Plain::link,
            {{link.range.location, 1}, {close, link.range.end() - close}});
    }
}

/// A sign, a Latin letter, word characters, "/" and "-"; behind neither a word character nor "/".
void InlineReader::readTags() {
    for (std::size_t at = line_.find(u'#'); at != line_.npos; at = line_.find(u'#', at)) {
        const std::size_t start = at++;
        if (at == line_.size() || line_[at] >= 0x80 || !isAsciiLetter(static_cast<char>(line_[at]))) continue;
        if (start > 0) {
            const char32_t before = codePointBefore(line_, start);
            if (before == U'/' || isWordCharacter(before)) continue;
        }
        while (at < line_.size()) {
            const char32_t c = codePointAt(line_, at);
            if (c != U'/' && c != U'-' && !isWordCharacter(c)) break;
            at += c >= 0x10000 ? 2 : 1;
        }
        const TextRange tag{start, at - start};
        // A tag has no markers to test; one in an attribute's value is none, as the index reads it.
        if (!intersectsAny(markup_, tag)) add(tag, tag, Plain::tag, {});
    }
}

}  // namespace vesk
