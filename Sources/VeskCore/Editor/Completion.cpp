#include "VeskCore/Editor/Completion.h"

#include <algorithm>
#include <array>

#include "VeskCore/Editor/EditorLines.h"
#include "VeskCore/Editor/MarkdownSpans.h"
#include "VeskCore/Editor/NoteLines.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"

namespace vesk::Completion {

using EditorLines::piece;

namespace {

/// A tag's characters in the basic plane, which all that people write tags in is.
bool isTagUnit(char16_t unit) {
    return unit == u'-' || unit == u'_' || unit == u'/' || isWordCharacter(unit);
}

bool mayStandBeforeTag(char16_t unit) {
    constexpr std::u16string_view openings = u"([{>,;\"'";
    return isSpaceOrNewline(unit) || openings.find(unit) != openings.npos;
}

std::optional<Prefix> linkPrefix(std::u16string_view text, TextRange line, std::size_t caret) {
    const std::u16string_view before = piece(text, {line.location, caret - line.location});
    const std::size_t open = before.rfind(u"[[");
    if (open == before.npos) return std::nullopt;
    const std::u16string_view inner = before.substr(open + 2);
    if (inner.find(u"]]") != inner.npos || inner.find(u'|') != inner.npos) return std::nullopt;

    const std::u16string_view behind = piece(text, {caret, line.end() - caret});
    const std::size_t close = behind.find(u"]]");
    Prefix prefix;
    prefix.closed = close != behind.npos && close <= behind.find(u"[[");
    // What stands between the caret and the next part of a link that is closed goes with what is typed.
    const std::size_t rest = prefix.closed ? std::min(close, behind.find_first_of(u"#|")) : 0;
    const std::size_t start = line.location + open + 2;
    const std::size_t sign = inner.find(u'#');
    if (sign == inner.npos) {
        prefix.typed = inner;
        prefix.replaced = {start, caret + rest - start};
        return prefix;
    }
    if (inner.substr(sign + 1).starts_with(u'^')) return std::nullopt;
    prefix.kind = Prefix::Kind::heading;
    prefix.note = EditorLines::trimmed(inner.substr(0, sign));
    prefix.typed = inner.substr(sign + 1);
    // A heading's own "#" is part of it.
    const std::size_t headingRest = prefix.closed ? std::min(close, behind.find(u'|')) : 0;
    prefix.replaced = {start + sign + 1, caret + headingRest - start - sign - 1};
    return prefix;
}

std::optional<Prefix> tagPrefix(std::u16string_view text, TextRange line, std::size_t caret) {
    std::size_t start = caret;
    while (start > line.location && isTagUnit(text[start - 1])) --start;
    if (start == line.location || text[start - 1] != u'#') return std::nullopt;
    const std::size_t sign = start - 1;
    if (sign > line.location && !mayStandBeforeTag(text[sign - 1])) return std::nullopt;
    const bool beginsLine = EditorLines::trimmed(piece(text, {line.location, sign - line.location})).empty();
    if (beginsLine && start == caret) return std::nullopt;
    std::size_t end = caret;
    while (end < line.end() && isTagUnit(text[end])) ++end;
    Prefix prefix;
    prefix.kind = Prefix::Kind::tag;
    prefix.typed = piece(text, {start, caret - start});
    prefix.replaced = {start, end - start};
    return prefix;
}

std::u32string folded(std::string_view text) {
    const std::string bytes = caseAndDiacriticFolded(text);
    std::u32string points;
    points.reserve(bytes.size());
    for (std::size_t offset = 0; offset < bytes.size();) points.push_back(nextCodePoint(bytes, offset));
    return points;
}

enum class Fit { same, prefix, wordPrefix, letters, none };

bool hasLettersInOrder(std::u32string_view candidate, std::u32string_view typed) {
    std::size_t matched = 0;
    for (const char32_t c : candidate) {
        if (matched < typed.size() && c == typed[matched]) ++matched;
    }
    return matched == typed.size();
}

bool hasWordPrefix(std::u32string_view candidate, std::u32string_view typed) {
    for (std::size_t at = candidate.find(typed); at != candidate.npos; at = candidate.find(typed, at + 1)) {
        if (at == 0 || !isWordCharacter(candidate[at - 1]) || candidate[at - 1] == U'_') return true;
    }
    return false;
}

Fit fit(std::u32string_view candidate, std::u32string_view typed) {
    if (typed.empty()) return Fit::prefix;
    if (candidate == typed) return Fit::same;
    if (candidate.starts_with(typed)) return Fit::prefix;
    if (!hasLettersInOrder(candidate, typed)) return Fit::none;
    return hasWordPrefix(candidate, typed) ? Fit::wordPrefix : Fit::letters;
}

}  // namespace

std::optional<Prefix> prefixAt(std::u16string_view text, std::size_t caret) {
    caret = TextDraft::snapped(text, {caret, 0}).location;
    const NoteLines::NoteLine here = NoteLines::at(text, caret);
    const TextRange line = here.line.content;
    if (!here.isProse() || here.line.full.length > MarkdownSpans::longLineLimit) return std::nullopt;
    for (const TextRange& code : MarkdownSpans::codeRanges(here.shown(text))) {
        const std::size_t start = line.location + code.location;
        if (start < caret && caret < start + code.length) return std::nullopt;
    }
    if (auto link = linkPrefix(text, line, caret)) return link;
    // A "#" within the brackets of a link or its alias is no tag.
    const std::u16string_view before = piece(text, {line.location, caret - line.location});
    const std::size_t open = before.rfind(u"[["), close = before.rfind(u"]]");
    if (open != before.npos && (close == before.npos || close < open)) return std::nullopt;
    return tagPrefix(text, line, caret);
}

TextEdit insertion(std::u16string_view text, const Prefix& prefix, std::u16string_view chosen) {
    const TextRange replaced = EditorLines::clipped(prefix.replaced, text);
    TextEdit edit{replaced, std::u16string(chosen), {}};
    if (prefix.kind != Prefix::Kind::tag && !prefix.closed) edit.replacement += u"]]";
    std::size_t caret = replaced.location + edit.replacement.size();
    // Behind the link, unless it goes on with a heading or an alias.
    if (prefix.closed && text.substr(replaced.end()).starts_with(u"]]")) caret += 2;
    edit.selection = {caret, 0};
    return edit;
}

Candidates::Candidates(std::vector<Candidate> candidates) : candidates_(std::move(candidates)) {
    folded_.reserve(candidates_.size());
    for (const Candidate& candidate : candidates_) folded_.push_back(folded(candidate.text));
}

std::vector<std::size_t> Candidates::matching(std::string_view typed, std::size_t limit) const {
    const std::u32string wanted = folded(typed);
    struct Fitting {
        Fit fit;
        std::size_t index;
    };
    std::vector<Fitting> found;
    for (std::size_t i = 0; i < folded_.size(); ++i) {
        if (const Fit how = fit(folded_[i], wanted); how != Fit::none) found.push_back({how, i});
    }
    const auto better = [this](const Fitting& a, const Fitting& b) {
        if (a.fit != b.fit) return a.fit < b.fit;
        const Candidate &first = candidates_[a.index], &second = candidates_[b.index];
        if (first.recency != second.recency) return first.recency > second.recency;
        const std::size_t firstLength = folded_[a.index].size(), secondLength = folded_[b.index].size();
        if (firstLength != secondLength) return firstLength < secondLength;
        if (first.text != second.text) return first.text < second.text;
        return a.index < b.index;
    };
    const std::size_t count = std::min(limit, found.size());
    std::partial_sort(found.begin(), found.begin() + static_cast<std::ptrdiff_t>(count), found.end(), better);
    std::vector<std::size_t> indices;
    for (std::size_t i = 0; i < count; ++i) indices.push_back(found[i].index);
    return indices;
}

}  // namespace vesk::Completion
