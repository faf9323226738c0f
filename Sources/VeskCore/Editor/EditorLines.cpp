#include "VeskCore/Editor/EditorLines.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "VeskCore/Editor/MarkdownSpans.h"
#include "VeskCore/Support/Text.h"

namespace vesk::EditorLines {

namespace {

constexpr bool endsLine(char16_t c) {
    return c == u'\n' || c == u'\r' || c == 0x0085 || c == 0x2028 || c == 0x2029;
}

// Every reader walks lines, so line ends are looked for many units at a time.
constexpr std::size_t vectorUnits = 8;
constexpr std::size_t blockUnits = 4 * vectorUnits;
using Unit = std::uint16_t;
using Units = Unit __attribute__((vector_size(vectorUnits * sizeof(char16_t))));
using Found = std::int16_t __attribute__((vector_size(vectorUnits * sizeof(char16_t))));

Found lineEnds(const char16_t* vector) {
    Units units;
    std::memcpy(&units, vector, sizeof units);
    // U+2028 and U+2029 differ in their last bit.
    return (units == Unit{u'\n'}) | (units == Unit{u'\r'}) | (units == Unit{0x0085}) |
           ((units | Unit{1}) == Unit{0x2029});
}

bool any(Found found) {
    std::uint64_t halves[2];
    static_assert(sizeof halves == sizeof found);
    std::memcpy(halves, &found, sizeof halves);
    return (halves[0] | halves[1]) != 0;
}

bool holdsLineEnd(const char16_t* block) {
    Found found = lineEnds(block);
    for (std::size_t i = vectorUnits; i < blockUnits; i += vectorUnits) found |= lineEnds(block + i);
    return any(found);
}

/// The first line end at or behind `at`, or the text's end.
std::size_t findLineEnd(std::u16string_view text, std::size_t at) {
    while (text.size() - at >= blockUnits && !holdsLineEnd(text.data() + at)) at += blockUnits;
    while (text.size() - at >= vectorUnits && !any(lineEnds(text.data() + at))) at += vectorUnits;
    while (at < text.size() && !endsLine(text[at])) ++at;
    return at;
}

bool isSpace(char16_t c) {
    return c < 0x80 ? c == u' ' || (c >= u'\t' && c <= u'\r') : isSpaceOrNewline(c);
}

template <class Test>
std::u16string_view trimmedBy(std::u16string_view text, Test test) {
    while (!text.empty() && test(text.front())) text.remove_prefix(1);
    while (!text.empty() && test(text.back())) text.remove_suffix(1);
    return text;
}

}  // namespace

Line lineFrom(std::u16string_view text, std::size_t start) {
    const std::size_t end = findLineEnd(text, start);
    std::size_t fullEnd = end;
    if (end < text.size()) ++fullEnd;
    if (fullEnd < text.size() && text[end] == u'\r' && text[fullEnd] == u'\n') ++fullEnd;
    return {{start, end - start}, {start, fullEnd - start}};
}

std::size_t lineStart(std::u16string_view text, std::size_t offset) {
    std::size_t at = std::min(offset, text.size());
    while (at > 0) {
        if (at >= blockUnits && !holdsLineEnd(text.data() + at - blockUnits)) {
            at -= blockUnits;
            continue;
        }
        const bool insideCrLf = text[at - 1] == u'\r' && at < text.size() && text[at] == u'\n';
        if (endsLine(text[at - 1]) && !insideCrLf) break;
        --at;
    }
    return at;
}

TextRange lineRange(std::u16string_view text, TextRange range) {
    range = clipped(range, text);
    const std::size_t start = lineStart(text, range.location);
    const std::size_t last = range.empty() ? range.location : range.end() - 1;
    // From the last unit on: a line of a megabyte is not walked twice.
    return {start, lineFrom(text, last).full.end() - start};
}

TextRange clipped(TextRange range, std::u16string_view text) {
    const std::size_t start = std::min(range.location, text.size());
    return {start, std::min(range.length, text.size() - start)};
}

std::u16string_view trimmed(std::u16string_view text) {
    return trimmedBy(text, isSpace);
}

std::u16string_view trimmedBlanks(std::u16string_view text) {
    return trimmedBy(text, [](char16_t c) { return c == u' ' || c == u'\t'; });
}

bool beginsWithFence(std::u16string_view trimmedLine) {
    return trimmedLine.starts_with(u"```") || trimmedLine.starts_with(u"~~~");
}

char16_t firstShown(std::u16string_view line) {
    const auto shown = std::find_if_not(line.begin(), line.end(), isSpace);
    return shown == line.end() ? u'\0' : *shown;
}

bool isFence(std::u16string_view line) {
    if (line.size() > MarkdownSpans::longLineLimit) return false;
    const char16_t first = firstShown(line);
    return (first == u'`' || first == u'~') && beginsWithFence(trimmed(line));
}

}  // namespace vesk::EditorLines
