#include "VeskCore/Editor/TextEdit.h"

#include <algorithm>

#include "VeskCore/Editor/EditorLines.h"
#include "VeskCore/Support/Unicode.h"

namespace vesk {

using EditorLines::piece;

namespace {

constexpr bool isHighSurrogate(char16_t unit) {
    return unit >= 0xD800 && unit <= 0xDBFF;
}
constexpr bool isLowSurrogate(char16_t unit) {
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

bool splitsCodePoint(std::u16string_view text, std::size_t offset) {
    if (offset == 0 || offset >= text.size()) return false;
    const char16_t before = text[offset - 1], after = text[offset];
    return (isHighSurrogate(before) && isLowSurrogate(after)) || (before == u'\r' && after == u'\n');
}

/// True if a character surely begins between the two units. Judged by these alone, so that what may be one
/// character with its neighbour counts as one.
bool isSurelyBoundary(char16_t before, char16_t after) {
    constexpr char16_t firstThatJoins = 0x300;
    if (after < firstThatJoins) return before != u'\r' || after != u'\n';
    return before < firstThatJoins && !isHighSurrogate(after) && !joinsCharacterBefore(after);
}

/// How many units the two texts have in common at the start, none of it part of a character that differs.
std::size_t commonPrefix(std::u16string_view a, std::u16string_view b) {
    const std::size_t limit = std::min(a.size(), b.size());
    auto length = static_cast<std::size_t>(
        std::mismatch(a.begin(), a.begin() + static_cast<std::ptrdiff_t>(limit), b.begin()).first -
        a.begin());
    const auto isBoundary = [&](std::u16string_view text) {
        return length == text.size() || isSurelyBoundary(text[length - 1], text[length]);
    };
    while (length > 0 && !(isBoundary(a) && isBoundary(b))) --length;
    return length;
}

std::size_t commonSuffix(std::u16string_view a, std::u16string_view b) {
    const std::size_t limit = std::min(a.size(), b.size());
    std::size_t length = 0;
    while (length < limit && a[a.size() - length - 1] == b[b.size() - length - 1]) ++length;
    const auto isBoundary = [&](std::u16string_view text) {
        const std::size_t at = text.size() - length;
        return at == 0 || isSurelyBoundary(text[at - 1], text[at]);
    };
    while (length > 0 && !(isBoundary(a) && isBoundary(b))) --length;
    return length;
}

/// Where an offset stands after the replacements.
std::size_t mapped(std::size_t offset, const std::vector<TextDraft::Replacement>& pieces, bool goesBehind) {
    std::size_t grown = 0, shrunk = 0;
    for (const TextDraft::Replacement& one : pieces) {
        const bool before =
            one.range.end() < offset || (one.range.end() == offset && (goesBehind || !one.range.empty()));
        if (before) {
            grown += one.text.size();
            shrunk += one.range.length;
        } else if (one.range.location < offset) {
            return one.range.location + grown - shrunk + one.text.size();
        } else {
            break;
        }
    }
    return offset + grown - shrunk;
}

}  // namespace

std::u16string TextEdit::applied(std::u16string_view text) const {
    std::u16string result;
    result.reserve(text.size() - range.length + replacement.size());
    return result.append(text.substr(0, range.location)).append(replacement).append(text.substr(range.end()));
}

TextDraft::TextDraft(std::u16string_view text, TextRange selection)
    : base_(text), given_(snapped(text, selection)), selection_(given_) {}

void TextDraft::replace(const std::vector<Replacement>& pieces, bool startGoesBehind, bool endGoesBehind) {
    if (pieces.empty()) return;
    const TextRange wanted{pieces.front().range.location,
                           pieces.back().range.end() - pieces.front().range.location};
    if (!touched_) {
        changed_ = wanted;
        now_ = piece(base_, wanted);
        touched_ = true;
    }
    // Both rounds together change a stretch that reaches from the earlier start to the later end.
    if (wanted.location < changed_.location) {
        now_.insert(0, piece(base_, {wanted.location, changed_.location - wanted.location}));
        changed_ = {wanted.location, changed_.end() - wanted.location};
    }
    if (const std::size_t end = changed_.location + now_.size(); wanted.end() > end) {
        now_ += piece(base_, {changed_.end(), wanted.end() - end});
        changed_.length += wanted.end() - end;
    }
    std::u16string result;
    result.reserve(now_.size());
    std::size_t copied = 0;
    for (const Replacement& one : pieces) {
        const std::size_t start = one.range.location - changed_.location;
        result.append(now_, copied, start - copied).append(one.text);
        copied = start + one.range.length;
    }
    now_ = std::move(result.append(now_, copied));
    const std::size_t start = mapped(selection_.location, pieces, startGoesBehind);
    const std::size_t end = selection_.empty() ? start : mapped(selection_.end(), pieces, endGoesBehind);
    selection_ = {start, std::max(start, end) - start};
}

std::u16string TextDraft::text(TextRange range) const {
    if (!touched_) return std::u16string(piece(base_, range));
    const std::size_t nowEnd = changed_.location + now_.size();
    std::u16string result;
    result.reserve(range.length);
    std::size_t at = range.location;
    if (at < changed_.location) {
        const std::size_t end = std::min(range.end(), changed_.location);
        result += piece(base_, {at, end - at});
        at = end;
    }
    if (at < range.end() && at < nowEnd) {
        const std::size_t end = std::min(range.end(), nowEnd);
        result.append(now_, at - changed_.location, end - at);
        at = end;
    }
    if (at < range.end()) result += piece(base_, {changed_.end() + (at - nowEnd), range.end() - at});
    return result;
}

std::ptrdiff_t TextDraft::growth() const {
    return static_cast<std::ptrdiff_t>(now_.size()) - static_cast<std::ptrdiff_t>(changed_.length);
}

std::optional<TextEdit> TextDraft::finish() const {
    const std::u16string_view before = piece(base_, changed_);
    if (!touched_ || before == now_) {
        if (selection_ == given_) return std::nullopt;
        return TextEdit{{selection_.location, 0}, {}, selection_};
    }
    const std::size_t prefix = commonPrefix(before, now_);
    const std::u16string_view after(now_);
    const std::size_t suffix = commonSuffix(before.substr(prefix), after.substr(prefix));
    // What is left of a line may join the ends around it to one.
    const auto splits = [&](std::size_t offset) { return offset > 0 && text({offset - 1, 2}) == u"\r\n"; };
    std::size_t start = selection_.location, end = selection_.end();
    if (splits(start)) --start;
    if (splits(end)) end = selection_.empty() ? start : end + 1;
    return TextEdit{{changed_.location + prefix, changed_.length - prefix - suffix},
                    std::u16string(after.substr(prefix, after.size() - prefix - suffix)),
                    {start, end - start}};
}

TextRange TextDraft::snapped(std::u16string_view text, TextRange selection) {
    std::size_t start = std::min(selection.location, text.size());
    std::size_t end = start + std::min(selection.length, text.size() - start);
    if (splitsCodePoint(text, start)) --start;
    if (selection.empty()) return {start, 0};
    if (splitsCodePoint(text, end)) ++end;
    return {start, end - start};
}

}  // namespace vesk
