#include "VeskCore/Editor/NoteLines.h"

#include <algorithm>

#include "VeskCore/Editor/BlockModel.h"
#include "VeskCore/Editor/MarkdownSpans.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"

namespace vesk::NoteLines {

using EditorLines::Line;
using EditorLines::piece;

namespace {

Place placeOf(std::u16string_view text, const Line& line, std::size_t bodyStart, bool& inFence) {
    if (line.full.location < bodyStart) return Place::frontmatter;
    if (EditorLines::isFence(piece(text, line.full))) {
        inFence = !inFence;
        return Place::fence;
    }
    return inFence ? Place::code : Place::prose;
}

/// The code point that ends before `offset`.
char32_t codePointBefore(std::u16string_view text, std::size_t offset, std::size_t& start) {
    start = offset - 1;
    const char16_t low = text[start];
    if (low < 0xDC00 || low > 0xDFFF || start == 0) return low;
    const char16_t high = text[start - 1];
    if (high < 0xD800 || high > 0xDBFF) return low;
    --start;
    return 0x10000 + ((char32_t{high} - 0xD800) << 10) + (char32_t{low} - 0xDC00);
}

char32_t codePointAt(std::u16string_view text, std::size_t offset, std::size_t& end) {
    end = offset + 1;
    const char16_t high = text[offset];
    if (high < 0xD800 || high > 0xDBFF || end == text.size()) return high;
    const char16_t low = text[end];
    if (low < 0xDC00 || low > 0xDFFF) return high;
    ++end;
    return 0x10000 + ((char32_t{high} - 0xD800) << 10) + (char32_t{low} - 0xDC00);
}

}  // namespace

std::vector<NoteLine> selected(std::u16string_view text, TextRange selection) {
    selection = EditorLines::clipped(selection, text);
    const auto frontmatter = MarkdownSpans::frontmatterRange(text);
    const std::size_t bodyStart = frontmatter ? frontmatter->end() : 0;
    std::size_t start = EditorLines::lineStart(text, selection.location);
    bool inFence = MarkdownSpans::isInsideFence(text, start, frontmatter);
    std::vector<NoteLine> lines;
    for (;;) {
        const Line line = EditorLines::lineFrom(text, start);
        const Place place = placeOf(text, line, bodyStart, inFence);
        lines.push_back({line, place});
        start = line.full.end();
        if (start >= selection.end() || start == line.full.location) return lines;
    }
}

NoteLine at(std::u16string_view text, std::size_t offset) {
    return selected(text, {offset, 0}).front();
}

std::size_t contentStart(std::u16string_view line) {
    // Quotes in quotes and lists in them; deeper ones than anyone writes count as text.
    constexpr int deepest = 8;
    std::u16string_view rest = line;
    for (int depth = 0; depth < deepest; ++depth) {
        const BlockModel::Classified classified = BlockModel::classify(rest);
        if (classified.kind == MarkdownBlock::Kind{MarkdownBlock::Kind::Plain::blank})
            return line.size() - rest.size();
        if (classified.content.empty()) return line.size();
        rest.remove_prefix(static_cast<std::size_t>(classified.content.data() - rest.data()));
        if (classified.kind != MarkdownBlock::Kind{MarkdownBlock::Kind::Plain::quote}) break;
    }
    return line.size() - rest.size();
}

std::u16string lineEnd(std::u16string_view text, const Line& line) {
    if (line.full.length > line.content.length)
        return std::u16string(text.substr(line.content.end(), line.full.length - line.content.length));
    if (line.full.location == 0) return u"\n";
    const Line before = EditorLines::lineFrom(text, EditorLines::lineStart(text, line.full.location - 1));
    return std::u16string(text.substr(before.content.end(), before.full.end() - before.content.end()));
}

TextRange word(std::u16string_view text, std::size_t caret, TextRange limits) {
    std::size_t start = caret, end = caret;
    // An apostrophe between letters is part of their word.
    const auto isPart = [&](char32_t c, std::size_t from, std::size_t to) {
        if (isWordCharacter(c)) return true;
        if ((c != U'\'' && c != U'’') || from == limits.location || to == limits.end()) return false;
        std::size_t other = from;
        return isWordCharacter(codePointBefore(text, from, other)) &&
               isWordCharacter(codePointAt(text, to, other));
    };
    for (std::size_t at = start; at > limits.location;) {
        std::size_t before = at;
        const char32_t c = codePointBefore(text, at, before);
        if (!isPart(c, before, at) || before < limits.location) break;
        start = at = before;
    }
    for (std::size_t at = end; at < limits.end();) {
        std::size_t behind = at;
        const char32_t c = codePointAt(text, at, behind);
        if (!isPart(c, at, behind) || behind > limits.end()) break;
        end = at = behind;
    }
    // A mark on a sign that is no letter is not where a word begins.
    while (start < end) {
        std::size_t behind = start;
        if (!joinsCharacterBefore(codePointAt(text, start, behind))) break;
        start = behind;
    }
    if (start > caret || start == end) return {caret, 0};
    return {start, end - start};
}

std::size_t addressEnd(std::u16string_view text, std::size_t start) {
    constexpr std::u16string_view schemes[] = {u"https://", u"http://", u"mailto:"};
    for (const std::u16string_view scheme : schemes) {
        if (text.size() - start <= scheme.size()) continue;
        const bool same = std::equal(
            scheme.begin(), scheme.end(), text.substr(start).begin(), [](char16_t wanted, char16_t unit) {
                return unit == wanted || (unit >= u'A' && unit <= u'Z' && unit + 0x20 == wanted);
            });
        if (!same) continue;
        std::size_t end = start + scheme.size();
        while (end < text.size() && !isSpaceOrNewline(text[end]) && text[end] >= 0x20) ++end;
        return end == start + scheme.size() ? start : end;
    }
    return start;
}

}  // namespace vesk::NoteLines
