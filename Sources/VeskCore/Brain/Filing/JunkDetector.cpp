#include "VeskCore/Brain/Filing/JunkDetector.h"

#include <algorithm>
#include <set>
#include <tuple>

#include "VeskCore/Support/Characters.h"
#include "VeskCore/Support/Localised.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"

namespace vesk::JunkDetector {

namespace {

using Plain = JunkVerdict::Plain;

constexpr std::size_t cutLength = 1201;  // characters, the ellipsis among them
constexpr std::string_view ellipsis = "…";
constexpr std::string_view emptyNote = "(empty note)";
constexpr std::size_t longestCode = 24, wordsOfAPhrase = 3;
constexpr std::u32string_view edgePunctuation = U".,;:!?()[]{}\"'‘’“”-–—/&*_~";

/// Pieces of letters and digits, lower-cased.
std::vector<std::string> words(std::string_view text) {
    const auto lower = lowercased(text);
    std::vector<std::string> found;
    bool isInWord = false;
    for (std::size_t offset = 0; offset < lower.size();) {
        const auto letter = nextCodePoint(lower, offset);
        const bool belongs = isLetter(letter) || isNumber(letter);
        if (belongs && !isInWord) found.emplace_back();
        if (belongs) appendCodePoint(found.back(), letter);
        isInWord = belongs;
    }
    return found;
}

/// The pieces between white space.
std::vector<std::string_view> pieces(std::string_view text) {
    std::vector<std::string_view> found;
    std::size_t start = 0;
    for (std::size_t offset = 0; offset < text.size();) {
        const auto at = offset;
        if (!isSpaceOrNewline(nextCodePoint(text, offset))) continue;
        if (at > start) found.push_back(text.substr(start, at - start));
        start = offset;
    }
    if (start < text.size()) found.push_back(text.substr(start));
    return found;
}

std::vector<std::string_view> tokens(std::string_view text, bool isCut) {
    if (isCut && text.ends_with(ellipsis)) text.remove_suffix(ellipsis.size());
    return pieces(text);
}

std::string_view withoutEnd(std::string_view text, std::string_view set) {
    while (!text.empty() && set.find(text.back()) != std::string_view::npos) text.remove_suffix(1);
    return text;
}

std::string_view headingStripped(std::string_view line) {
    line = trim(line);
    const auto signs = std::min(line.find_first_not_of('#'), line.size());
    if (signs < 1 || signs > 6 || signs >= line.size() || line[signs] != ' ') return line;
    return trim(line.substr(signs));
}

/// What a note says beside its title.
std::string substance(std::string_view excerpt, std::string_view title) {
    if (excerpt == emptyNote) return "";
    auto lines = split(excerpt, '\n');
    std::size_t first = 0;
    while (first < lines.size() && trim(lines[first]).empty()) ++first;
    const auto said = words(title);
    if (!said.empty() && first < lines.size() && words(headingStripped(lines[first])) == said) ++first;
    lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(first));
    return std::string(trim(join(lines, "\n")));
}

bool looksLikeURL(std::string_view text) {
    const auto lower = lowercased(trim(text));
    std::string_view rest = lower;
    while (!rest.empty() && std::string_view("<([\"'").find(rest.front()) != std::string_view::npos)
        rest.remove_prefix(1);
    for (const std::string_view start : {"http://", "https://", "http---", "https---", "www."})
        if (rest.starts_with(start)) return true;
    return false;
}

/// Markdown links "[text](target)" in the text put through `shown`; none leaves one as it stands.
template <class Shown>
std::string replacingLinks(std::string_view text, Shown shown) {
    std::string out;
    std::size_t done = 0;
    // A search that found nothing finds nothing further on either.
    bool hasMiddle = true, hasEnd = true;
    for (auto open = text.find('['); open != std::string_view::npos && hasMiddle && hasEnd;) {
        const auto close = text.find(']', open);
        if (close == std::string_view::npos) break;
        auto next = open + 1;
        if (close + 1 < text.size() && text[close + 1] == '(') {
            const auto end = text.find(')', close);
            hasEnd = end != std::string_view::npos;
            if (!hasEnd) break;
            if (const auto replacement =
                    shown(text.substr(open + 1, close - open - 1), text.substr(close + 2, end - close - 2))) {
                out += text.substr(done, open - done);
                out += *replacement;
                next = done = end + 1;
            }
        } else {
            // Up to the sign that ended it nothing else can begin a link with another end.
            const auto inner = text.find('[', open + 1);
            next = inner != std::string_view::npos && inner < close ? inner : close + 1;
        }
        open = text.find('[', next);
    }
    return out + std::string(text.substr(done));
}

bool isHashtag(std::string_view token) {
    token = withoutEnd(token, ",.;");
    return token.size() >= 2 && token[0] == '#' && token[1] != '#';
}

bool looksLikeCode(std::string_view title) {
    std::size_t count = 0, digits = 0;
    for (std::size_t offset = 0; offset < title.size();) {
        const auto at = offset;
        const auto letter = nextCodePoint(title, offset);
        if (offset - at == 1 && std::string_view(" -_.#/:()").find(title[at]) != std::string_view::npos)
            continue;
        if (!isLetter(letter) && !isNumber(letter)) return false;
        ++count;
        if (letter >= U'0' && letter <= U'9') ++digits;
    }
    return count > 0 && count <= longestCode && digits >= 1 && (count - digits) * 10 <= count * 6;
}

bool isPhrase(std::string_view title) {
    std::size_t counted = 0;
    for (const auto piece : pieces(title)) {
        std::u32string letters;
        for (std::size_t offset = 0; offset < piece.size();) letters += nextCodePoint(piece, offset);
        const auto from = letters.find_first_not_of(edgePunctuation);
        if (from == std::u32string::npos) continue;
        const auto to = letters.find_last_not_of(edgePunctuation);
        if (std::all_of(letters.begin() + static_cast<std::ptrdiff_t>(from),
                        letters.begin() + static_cast<std::ptrdiff_t>(to) + 1, isLetter))
            ++counted;
    }
    return counted >= wordsOfAPhrase;
}

JunkVerdict duplicate(const std::string& path) {
    return {JunkVerdict::Duplicate{path}, localised("The same text as {}", path)};
}

}  // namespace

std::optional<JunkVerdict> verdict(const FilingCandidate& candidate) {
    const auto& title = candidate.title;
    const auto said = substance(candidate.excerpt, title);
    const bool isCut =
        candidate.excerpt.ends_with(ellipsis) && characterCount(candidate.excerpt) == cutLength;
    const JunkVerdict link{Plain::linkOnly, localised("A link, and nothing about it")};
    if (looksLikeURL(title)) {
        if (said.empty()) return link;
        const auto plain = replacingLinks(said, [](std::string_view text, std::string_view target) {
            return std::optional(std::string(text) + " " + std::string(target));
        });
        const auto all = tokens(plain, isCut);
        if (!all.empty() && std::all_of(all.begin(), all.end(), [](std::string_view token) {
                return looksLikeURL(withoutEnd(token, ")]>,.;"));
            }))
            return link;
    }
    if (said.empty()) {
        if (looksLikeCode(title))
            return JunkVerdict{Plain::bareCode, localised("A bare number or code, and nothing about it")};
        if (isPhrase(title)) return {};
        return JunkVerdict{Plain::empty, localised("Nothing in it but the title")};
    }
    const auto plain = replacingLinks(said, [](std::string_view text, std::string_view) {
        const bool isTag = text.size() >= 2 && text[0] == '#' && pieces(text).size() == 1 &&
                           pieces(text).front().size() == text.size();
        return isTag ? std::optional(std::string(text)) : std::nullopt;
    });
    const auto all = tokens(plain, isCut);
    if (!all.empty() && std::all_of(all.begin(), all.end(), isHashtag))
        return JunkVerdict{Plain::hashtagsOnly, localised("Only hashtags")};
    return {};
}

std::map<std::string, JunkVerdict> classify(
    const std::vector<FilingCandidate>& candidates,
    const std::map<std::string, std::vector<std::string>>& filedHashes) {
    std::map<std::string, JunkVerdict> found;
    std::map<std::string_view, std::vector<const FilingCandidate*>> same;
    for (const auto& candidate : candidates) {
        if (auto own = verdict(candidate)) {
            found.emplace(candidate.path, std::move(*own));
            continue;
        }
        const auto filed = filedHashes.find(candidate.contentHash);
        if (filed != filedHashes.end() && !filed->second.empty()) {
            found.emplace(candidate.path,
                          duplicate(*std::min_element(filed->second.begin(), filed->second.end())));
        } else {
            same[candidate.contentHash].push_back(&candidate);
        }
    }
    for (auto& [hash, group] : same) {
        std::sort(group.begin(), group.end(), [](const auto* a, const auto* b) {
            return std::tie(a->modified, a->path) < std::tie(b->modified, b->path);
        });
        for (std::size_t next = 1; next < group.size(); ++next)
            found.emplace(group[next]->path, duplicate(group.front()->path));
    }
    return found;
}

}  // namespace vesk::JunkDetector
