// The text of a hit: cutting it out of a body, reading the marks of FTS5, and the line of a result row.
#include <algorithm>
#include <array>

#include "VeskCore/Index/SearchEngine.h"
#include "VeskCore/Markdown/MarkdownScanner.h"
#include "VeskCore/Support/Characters.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"

namespace vesk {

namespace {

constexpr std::string_view ellipsis = "…";
constexpr char openMark = '\x01', closeMark = '\x02';
constexpr std::size_t wordEdgeReach = 40;       // how far a snippet's ends move to meet a space
constexpr std::size_t matchInView = 60;         // a first match up to here needs no cut in a result row
constexpr std::size_t contextBeforeMatch = 30;  // what stays before a match that does
constexpr std::array<std::string_view, 6> listPrefixes{"- [ ] ", "- [x] ", "- ", "* ", "+ ", "> "};
constexpr std::array<std::string_view, 5> inlineMarks{"**", "__", "==", "~~", "`"};

/// The offset itself, or one less where it would part a surrogate pair.
std::size_t atCodePoint(std::u16string_view text, std::size_t offset) {
    const bool insidePair = offset > 0 && offset < text.size() && (text[offset] & 0xFC00) == 0xDC00 &&
                            (text[offset - 1] & 0xFC00) == 0xD800;
    return insidePair ? offset - 1 : offset;
}

/// Each line end as one space.
std::string onOneLine(std::string_view text) {
    std::string line;
    line.reserve(text.size());
    for (std::size_t offset = 0; offset < text.size();) {
        const std::size_t at = offset;
        const char32_t codePoint = nextCodePoint(text, offset);
        if (codePoint == '\r' && offset < text.size() && text[offset] == '\n') continue;
        if (isNewline(codePoint)) {
            line += ' ';
        } else {
            line += text.substr(at, offset - at);
        }
    }
    return line;
}

std::vector<TextRange> occurrences(std::u16string_view text, const std::vector<std::u16string>& words) {
    const CaselessHaystack haystack(text);
    std::vector<TextRange> ranges;
    for (const auto& word : words) {
        std::size_t from = 0;
        while (const auto range = haystack.find(word, from)) {
            ranges.push_back(*range);
            from = std::max(range->end(), from + 1);
        }
    }
    std::sort(ranges.begin(), ranges.end(), [](const TextRange& a, const TextRange& b) {
        return a.location != b.location ? a.location < b.location : a.length < b.length;
    });
    ranges.erase(std::unique(ranges.begin(), ranges.end()), ranges.end());
    return ranges;
}

std::string_view withoutPrefix(std::string_view text, std::string_view prefix) {
    return text.starts_with(prefix) ? text.substr(prefix.size()) : text;
}

std::string_view withoutListPrefix(std::string_view text) {
    for (std::string_view prefix : listPrefixes) {
        if (text.starts_with(prefix)) return text.substr(prefix.size());
    }
    return text;
}

/// The text from shortly before `match` on, if that stands too far back to be seen in a row.
std::optional<std::string> cutToMatch(std::string_view text, std::u16string_view match) {
    if (match.empty()) return std::nullopt;
    const std::u16string units = utf16(text);
    const std::size_t position = units.find(match);
    if (position == std::u16string::npos || position <= matchInView) return std::nullopt;
    std::size_t start = atCodePoint(units, position - contextBeforeMatch);
    // Only a space before the match moves the cut: the match itself is what the row is to show.
    const std::size_t space = units.find(u' ', start);
    if (space < position) start = space + 1;
    return utf8(std::u16string_view(units).substr(start));
}

}  // namespace

std::string_view rawValue(SearchHit::Mode mode) {
    switch (mode) {
        case SearchHit::Mode::keyword:
            return "keyword";
        case SearchHit::Mode::semantic:
            return "semantic";
        case SearchHit::Mode::hybrid:
            return "hybrid";
    }
    return "";
}

std::string SearchHit::id() const {
    return chunkOrdinal ? notePath + "#" + std::to_string(*chunkOrdinal) : notePath;
}

std::optional<std::string> SearchHit::passage() const {
    const bool isCut = snippet.starts_with(ellipsis);
    std::string_view rest = trim(withoutPrefix(snippet, ellipsis));
    while (rest.starts_with('#')) rest.remove_prefix(1);
    std::string text(withoutListPrefix(trim(rest)));
    for (std::string_view mark : inlineMarks) text = replaceAll(text, mark, "");
    text = std::string(trim(MarkdownScanner::withoutEmbeds(text)));
    if (text.empty() || equalsIgnoringCase(text, title)) return std::nullopt;

    if (!matchRanges.empty()) {
        const std::u16string units = utf16(snippet);
        const TextRange first = matchRanges.front();
        if (first.location <= units.size()) {
            if (auto cut =
                    cutToMatch(text, std::u16string_view(units).substr(first.location, first.length))) {
                return std::string(ellipsis) + *cut;
            }
        }
    }
    return isCut ? std::string(ellipsis) + text : text;
}

SearchEngine::Snippet SearchEngine::makeSnippet(std::string_view body, const std::vector<std::string>& words,
                                                int window) {
    if (body.empty()) return {};
    const std::u16string text = utf16(body);
    const std::size_t length = text.size();
    const std::size_t width = window > 0 ? static_cast<std::size_t>(window) : 0;
    std::vector<std::u16string> needles;
    needles.reserve(words.size());
    for (const auto& word : words) needles.push_back(utf16(word));

    std::size_t anchor = 0;
    if (!needles.empty()) {
        const CaselessHaystack haystack(text);
        for (const auto& needle : needles) {
            if (const auto match = haystack.find(needle)) {
                anchor = match->location;
                break;
            }
        }
    }

    std::size_t start = anchor - std::min(anchor, width / 3);
    if (start > 0) {
        const auto space = std::u16string_view(text).substr(start, wordEdgeReach).find(u' ');
        start = space != std::u16string::npos ? start + space + 1 : atCodePoint(text, start);
    }
    std::size_t end = std::min(length, start + width);
    if (end < length) {
        const std::size_t reach = std::max(start, end - std::min(end, wordEdgeReach));
        const auto space = std::u16string_view(text).substr(reach, end - std::min(end, reach)).rfind(u' ');
        end = space != std::u16string::npos ? reach + space : atCodePoint(text, end);
    }
    if (start >= end) return {.text = std::string(characterPrefix(body, width)), .matchRanges = {}};

    std::string snippet(trim(onOneLine(utf8(std::u16string_view(text).substr(start, end - start)))));
    if (start > 0) snippet.insert(0, ellipsis);
    if (end < length) snippet += ellipsis;
    return {.text = snippet, .matchRanges = occurrences(utf16(snippet), needles)};
}

SearchEngine::Snippet SearchEngine::parseMarkedSnippet(std::string_view marked) {
    Snippet snippet;
    snippet.text.reserve(marked.size());
    constexpr std::size_t none = std::string_view::npos;
    std::size_t opened = none;
    std::size_t units = 0;
    for (char c : marked) {
        if (c == openMark) {
            // A mark character in the note itself is dropped like ours; the nearest opener is the one that
            // counts.
            opened = units;
        } else if (c == closeMark) {
            if (opened < units) snippet.matchRanges.push_back({opened, units - opened});
            opened = none;
        } else {
            const auto byte = static_cast<unsigned char>(c);
            if ((byte & 0xC0) != 0x80) units += byte >= 0xF0 ? 2 : 1;
            snippet.text += c;
        }
    }
    return snippet;
}

}  // namespace vesk
