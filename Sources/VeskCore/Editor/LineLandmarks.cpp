#include "VeskCore/Editor/LineLandmarks.h"

#include <algorithm>

#include "VeskCore/Editor/EditorLines.h"
#include "VeskCore/Editor/MarkdownTable.h"

namespace vesk {

namespace {

using Offsets = std::vector<std::size_t>;

Offsets::iterator firstFrom(Offsets& offsets, std::size_t offset) {
    return std::lower_bound(offsets.begin(), offsets.end(), offset);
}

/// `found` in place of the offsets in `lines`, whose length was `oldLength`; those behind move along.
void splice(Offsets& offsets, TextRange lines, std::size_t oldLength, const Offsets& found) {
    const auto first = firstFrom(offsets, lines.location);
    const auto last = firstFrom(offsets, lines.location + oldLength);
    for (auto later = last; later != offsets.end(); ++later) *later = *later - oldLength + lines.length;
    offsets.insert(offsets.erase(first, last), found.begin(), found.end());
}

}  // namespace

void LineLandmarks::rebuild(std::u16string_view text) {
    fences_.clear();
    closers_.clear();
    delimiters_.clear();
    textLength_ = 0;
    replace({0, text.size()}, 0, text);
}

void LineLandmarks::replace(TextRange lines, std::size_t oldLength, std::u16string_view text) {
    Offsets fences, closers, delimiters;
    if (lines.location == 0) opens_ = false;
    for (std::size_t at = lines.location; at < lines.end();) {
        const EditorLines::Line line = EditorLines::lineFrom(text, at);
        const std::size_t start = at;
        at = line.full.end();
        const std::u16string_view source = EditorLines::piece(text, line.full);
        const char16_t first = EditorLines::firstShown(source);
        if (first == u'`' || first == u'~') {
            if (EditorLines::isFence(source)) fences.push_back(start);
        } else if (first == u'-' || first == u'.' || first == u'|' || first == u':') {
            const std::u16string_view shown = EditorLines::trimmed(source);
            if (shown == u"---" || shown == u"...") closers.push_back(start);
            if (start == 0) opens_ = shown == u"---";
            if (MarkdownTable::isDelimiterRow(EditorLines::piece(text, line.content))) {
                delimiters.push_back(start);
            }
        }
    }
    splice(fences_, lines, oldLength, fences);
    splice(closers_, lines, oldLength, closers);
    splice(delimiters_, lines, oldLength, delimiters);
    textLength_ = textLength_ - oldLength + lines.length;
}

std::optional<TextRange> LineLandmarks::frontmatter(std::u16string_view text) const {
    if (!opens_) return std::nullopt;
    const auto closing = std::upper_bound(closers_.begin(), closers_.end(), std::size_t{0});
    if (closing == closers_.end()) return std::nullopt;
    return TextRange{0, EditorLines::lineFrom(text, *closing).full.end()};
}

std::size_t LineLandmarks::fencesBefore(std::size_t offset) const {
    return static_cast<std::size_t>(std::lower_bound(fences_.begin(), fences_.end(), offset) -
                                    fences_.begin());
}

std::optional<std::size_t> LineLandmarks::delimiterFrom(std::size_t offset) const {
    const auto first = std::lower_bound(delimiters_.begin(), delimiters_.end(), offset);
    return first == delimiters_.end() ? std::nullopt : std::optional(*first);
}

bool LineLandmarks::hasDelimiter(TextRange lines) const {
    const auto first = delimiterFrom(lines.location);
    return first && *first <= lines.end();
}

bool LineLandmarks::mightTouchTable(TextRange lines, std::u16string_view text) const {
    if (hasDelimiter(lines)) return true;
    const auto below = std::lower_bound(delimiters_.begin(), delimiters_.end(), lines.location);
    if (below == delimiters_.begin()) return false;
    const std::size_t nearest = *(below - 1);
    for (std::size_t at = lines.location; at > nearest;) {
        const std::size_t start = EditorLines::lineStart(text, at - 1);
        if (!MarkdownTable::couldBeRow(text, {start, at - start}, std::nullopt)) return false;
        at = start;
    }
    return true;
}

bool LineLandmarks::isInsideFence(std::size_t offset, std::optional<TextRange> frontmatter) const {
    const std::size_t bodyStart = frontmatter ? frontmatter->end() : 0;
    if (offset <= bodyStart) return false;
    return (fencesBefore(offset) - fencesBefore(bodyStart)) % 2 == 1;
}

}  // namespace vesk
