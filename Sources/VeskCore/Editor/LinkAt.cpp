#include "VeskCore/Editor/LinkAt.h"

#include <algorithm>

#include "VeskCore/Editor/MarkdownSpans.h"
#include "VeskCore/Editor/NoteLines.h"

namespace vesk {

using EditorLines::piece;
using SpanStyle = MarkdownSpans::Style::Plain;

namespace {

bool reaches(TextRange range, std::size_t offset) {
    return range.location <= offset && offset <= range.end();
}

LinkAt::Wikilink wikilink(std::u16string_view inner, bool isEmbed) {
    LinkAt::Wikilink link;
    link.isEmbed = isEmbed;
    inner = inner.substr(0, inner.find(u'|'));
    if (const std::size_t block = inner.find(u"#^"); block != inner.npos) {
        link.blockID = std::u16string(inner.substr(block + 2));
        inner = inner.substr(0, block);
    } else if (const std::size_t heading = inner.find(u'#'); heading != inner.npos) {
        link.heading = std::u16string(EditorLines::trimmed(inner.substr(heading + 1)));
        inner = inner.substr(0, heading);
    }
    link.target = EditorLines::trimmed(inner);
    return link;
}

/// A link's target as it is written, without angle brackets or the title behind it.
std::u16string target(std::u16string_view written) {
    written = EditorLines::trimmed(written);
    if (written.starts_with(u'<')) {
        if (const std::size_t close = written.find(u'>'); close != written.npos)
            return std::u16string(written.substr(1, close - 1));
    }
    if (written.find(u" \"") != written.npos) written = written.substr(0, written.find(u' '));
    return std::u16string(written);
}

/// The bare address around the offset. What ends a sentence is not part of it, nor is a parenthesis that was
/// opened before it.
std::optional<LinkAt> addressAt(std::u16string_view text, TextRange line, std::size_t offset) {
    const std::u16string_view shown = piece(text, line);
    for (std::size_t at = shown.find(u':'); at != shown.npos; at = shown.find(u':', at + 1)) {
        for (const std::size_t before : {5U, 4U, 6U}) {
            if (at < before) continue;
            const std::size_t start = at - before;
            if (start > 0 && before != 6 && (shown[start - 1] | 0x20) >= u'a' &&
                (shown[start - 1] | 0x20) <= u'z')
                continue;
            std::size_t end = NoteLines::addressEnd(shown, start);
            if (end == start || end <= at) continue;
            end = std::min(end, shown.find_first_of(u"<>\"`", at));
            std::ptrdiff_t open = 0;
            for (std::size_t i = start; i < end; ++i) {
                if (shown[i] == u'(') ++open;
                if (shown[i] == u')' && --open < 0) end = i;
            }
            constexpr std::u16string_view sentence = u".,;:!?'*_~]|";
            while (end > at + 1 && sentence.find(shown[end - 1]) != sentence.npos) --end;
            if (end <= at + 3 && before != 6) continue;
            const TextRange range{line.location + start, end - start};
            if (reaches(range, offset))
                return LinkAt{range, LinkAt::Address{std::u16string(piece(text, range))}};
            at = std::max(at, end - 1);
            break;
        }
    }
    return std::nullopt;
}

}  // namespace

std::optional<LinkAt> LinkAt::at(std::u16string_view text, std::size_t offset) {
    offset = std::min(offset, text.size());
    const NoteLines::NoteLine here = NoteLines::at(text, offset);
    if (!here.isProse() || here.line.full.length > MarkdownSpans::longLineLimit) return std::nullopt;
    const TextRange line = here.line.content;
    const std::u16string_view shown = here.shown(text);
    const std::vector<TextRange> code = MarkdownSpans::codeRanges(shown);
    for (const TextRange& one : code) {
        const std::size_t start = line.location + one.location;
        if (start < offset && offset < start + one.length) return std::nullopt;
    }
    std::optional<LinkAt> tag;
    for (const auto& span : MarkdownSpans::inlineSpans(shown, line.location, false)) {
        if (span.style == MarkdownSpans::Style{SpanStyle::tag} && reaches(span.range, offset)) {
            const TextRange name{span.range.location + 1, span.range.length - 1};
            tag = LinkAt{span.range, Tag{std::u16string(piece(text, name))}};
        }
        if (span.style != MarkdownSpans::Style{SpanStyle::link} || span.markers.size() != 2) continue;
        const TextRange opening = span.markers[0], closing = span.markers[1];
        const TextRange whole{opening.location, closing.end() - opening.location};
        const std::u16string_view sign = piece(text, opening);
        if (reaches(whole, offset) && sign.ends_with(u"[["))
            return LinkAt{whole, wikilink(piece(text, span.range), sign.starts_with(u'!'))};
    }
    for (const bool images : {true, false}) {
        for (const auto& link : MarkdownSpans::linkMatches(shown, images)) {
            const TextRange whole{line.location + link.range.location, link.range.length};
            if (!reaches(whole, offset) || MarkdownSpans::intersectsAny(code, link.range)) continue;
            return LinkAt{whole, Link{target(piece(shown, link.target)), images}};
        }
    }
    if (auto address = addressAt(text, line, offset)) return address;
    return tag;
}

}  // namespace vesk
