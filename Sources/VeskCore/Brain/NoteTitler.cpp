#include "VeskCore/Brain/NoteTitler.h"

#include <algorithm>
#include <array>
#include <initializer_list>
#include <vector>

#include "VeskCore/Markdown/FrontmatterDoc.h"
#include "VeskCore/Support/Characters.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"
#include "VeskCore/Vault/Vault.h"

namespace vesk::NoteTitler {

namespace {

constexpr std::string_view untitledHeading = "# Untitled";
constexpr std::size_t enoughCharacters = 12;  // letters and digits

// What a small model repeats of its instructions instead of following them.
constexpr std::array<std::string_view, 29> instructionPhrases{"reply with the title",
                                                              "the title only",
                                                              "title only",
                                                              "two to eight words",
                                                              "eight words",
                                                              "plain text",
                                                              "no quotes",
                                                              "no trailing period",
                                                              "trailing period",
                                                              "no markdown",
                                                              "no \"title:\" label",
                                                              "no title label",
                                                              "title label",
                                                              "in the note's own language",
                                                              "note's own language",
                                                              "own language",
                                                              "prefer words the note itself uses",
                                                              "words the note itself uses",
                                                              "never a generic title",
                                                              "generic title",
                                                              "such as notes, untitled, thoughts or ideas",
                                                              "tell the user which note this is",
                                                              "which note this is",
                                                              "among a hundred others",
                                                              "name this note",
                                                              "name the note",
                                                              "name the user's note",
                                                              "the user's note",
                                                              "from its text"};

// Words that say nothing by themselves.
constexpr std::array<std::string_view, 48> connectives{
    "a",     "an",   "the",    "and",    "or",    "with",   "in",   "of",     "only",  "no",
    "not",   "its",  "it",     "this",   "that",  "for",    "to",   "from",   "is",    "as",
    "be",    "own",  "such",   "never",  "ever",  "please", "here", "here's", "heres", "your",
    "you",   "user", "users",  "user's", "title", "label",  "text", "note",   "reply", "should",
    "would", "tell", "prefer", "words",  "word",  "itself", "uses", "use"};

bool isBlank(char c) {
    return c == ' ' || c == '\t';
}

std::string_view withoutIndent(std::string_view line) {
    while (!line.empty() && isBlank(line.front())) line.remove_prefix(1);
    return line;
}

/// The text of a heading line; none for any other line.
std::optional<std::string_view> headingText(std::string_view line) {
    line = withoutIndent(line);
    std::size_t signs = 0;
    while (signs < line.size() && line[signs] == '#') ++signs;
    if (signs < 1 || signs > 6) return std::nullopt;
    line.remove_prefix(signs);
    if (!line.empty() && !isBlank(line.front())) return std::nullopt;
    return trim(line);
}

/// How long a list marker the line begins with, one of `bullets` or a number; 0 for none.
std::size_t markerSize(std::string_view line, std::initializer_list<std::string_view> bullets) {
    for (const auto bullet : bullets) {
        if (line.starts_with(bullet)) return bullet.size();
    }
    std::size_t digits = 0;
    while (digits < line.size() && isAsciiDigit(line[digits])) ++digits;
    const bool isNumber = digits > 0 && digits < line.size() && (line[digits] == '.' || line[digits] == ')');
    return isNumber ? digits + 1 : 0;
}

/// The line behind a list marker and a check box.
std::string_view withoutListMarker(std::string_view line) {
    const auto marked = withoutIndent(line);
    const auto size = markerSize(marked, {"-", "*", "+", "•"});
    if (size == 0 || size == marked.size() || !isBlank(marked[size])) return line;
    const auto rest = withoutIndent(marked.substr(size));
    const bool isBox = rest.size() >= 3 && rest[0] == '[' && rest[2] == ']' &&
                       std::string_view(" xX").find(rest[1]) != std::string_view::npos;
    return isBox ? withoutIndent(rest.substr(3)) : rest;
}

/// The text with each "[label](target)" that follows `mark` as its label, or as nothing.
std::string withoutTargets(std::string_view text, std::string_view mark, bool keepsLabel) {
    const std::string opening = std::string(mark) + "[";
    std::string plain;
    std::size_t kept = 0, close = 0, end = 0;  // the next "]" and ")" are looked for once
    for (auto open = text.find(opening); open != text.npos;) {
        const auto label = open + opening.size();
        if (close < label) close = text.find(']', label);
        if (close == text.npos) break;
        std::size_t next = label;
        if (text.substr(close + 1).starts_with('(')) {
            if (end <= close) end = text.find(')', close);
            if (end == text.npos) break;
            plain.append(text.substr(kept, open - kept));
            if (keepsLabel) plain.append(text.substr(label, close - label));
            next = kept = end + 1;
        }
        open = text.find(opening, next);
    }
    return plain.append(text.substr(kept));
}

/// Pictures as nothing, then links as their labels.
std::string withoutLinks(std::string_view text) {
    return withoutTargets(withoutTargets(text, "!", false), "", true);
}

/// The text line by line, as `change` gives each; none leaves a line out.
template <class Change>
std::string eachLine(std::string_view text, const Change& change) {
    std::vector<std::string_view> lines;
    for (const auto line : splitLines(text)) {
        if (const auto kept = change(line)) lines.push_back(*kept);
    }
    return join(lines, "\n");
}

std::string straightened(std::string_view text) {
    return replaceAll(replaceAll(lowercased(text), "’", "'"), "‘", "'");
}

/// What is left of a line without the dress that models put on a title.
std::string_view unwrapped(std::string_view line) {
    static constexpr std::array<std::string_view, 13> wrapping{"\"", "'", "“", "”", "‘", "’", "«",
                                                               "»",  "`", "*", "_", " ", "„"};
    line = trim(line);
    if (const auto size = markerSize(line, {"-", "*", "•"}); size > 0) {
        const auto next = firstCodePoint(line.substr(size));
        if (next && isSpaceOrNewline(*next)) line = trim(line.substr(size));
    }
    constexpr std::string_view label = "title:";
    if (asciiEqualsIgnoringCase(line.substr(0, label.size()), label)) line.remove_prefix(label.size());
    while (!line.empty() && (line.front() == '#' || isBlank(line.front()))) line.remove_prefix(1);
    for (bool changed = true; changed;) {
        changed = false;
        for (const auto sign : wrapping) {
            if (line.starts_with(sign)) line.remove_prefix(sign.size()), changed = true;
            if (line.ends_with(sign)) line.remove_suffix(sign.size()), changed = true;
        }
    }
    return line;
}

/// Words of letters, digits and apostrophes.
std::vector<std::string_view> words(std::string_view text) {
    std::vector<std::string_view> found;
    std::size_t begin = 0;
    for (std::size_t offset = 0; offset < text.size();) {
        const auto start = offset;
        const char32_t codePoint = nextCodePoint(text, offset);
        if (isLetter(codePoint) || isNumber(codePoint) || codePoint == U'\'') continue;
        if (start > begin) found.push_back(text.substr(begin, start - begin));
        begin = offset;
    }
    if (begin < text.size()) found.push_back(text.substr(begin));
    return found;
}

bool isEcho(std::string_view title) {
    auto text = straightened(title);
    for (const auto phrase : instructionPhrases) text = replaceAll(text, phrase, " ");
    const auto left = words(text);
    return std::all_of(left.begin(), left.end(), [](std::string_view word) {
        return std::find(connectives.begin(), connectives.end(), word) != connectives.end();
    });
}

std::string withoutTrailingPunctuation(std::string_view title) {
    static constexpr std::array<std::string_view, 10> signs{".", ":",  ";",  "?",  "!",
                                                            ",", "、", "。", "！", "？"};
    for (bool changed = true; changed;) {
        changed = false;
        for (const auto sign : signs) {
            if (title.ends_with(sign)) title.remove_suffix(sign.size()), changed = true;
        }
    }
    return std::string(trim(title));
}

std::string withSingleBlanks(std::string_view text) {
    std::string result;
    bool pending = false;
    for (std::size_t offset = 0; offset < text.size();) {
        const auto start = offset;
        if (isSpaceOrNewline(nextCodePoint(text, offset))) {
            pending = true;
            continue;
        }
        if (pending && !result.empty()) result += ' ';
        pending = false;
        result.append(text.substr(start, offset - start));
    }
    return result;
}

}  // namespace

constinit const std::string_view instructions =
    "You name the user's note from its text. Reply with the title ONLY: two to eight words, plain "
    "text, no quotes, no trailing period, no Markdown, no \"Title:\" label, in the note's own "
    "language. Prefer words the note itself uses. Never a generic title such as Notes, Untitled, "
    "Thoughts or Ideas — the title should tell the user which note this is among a hundred others.";

std::string excerpt(std::string_view text) {
    const FrontmatterDoc doc(text);
    std::string_view body = doc.body();
    const auto firstEnd = std::min(body.find('\n'), body.size());
    if (trim(body.substr(0, firstEnd)) == untitledHeading) body.remove_prefix(firstEnd);
    std::string plain = eachLine(
        body, [](std::string_view line) { return headingText(line) ? std::nullopt : std::optional(line); });
    if (trim(withoutLinks(plain)).empty()) {  // a note of headings is known by them
        plain = eachLine(
            body, [](std::string_view line) { return std::optional(headingText(line).value_or(line)); });
    }
    plain = withoutLinks(plain);
    plain = eachLine(plain, [](std::string_view line) { return std::optional(withoutListMarker(line)); });
    return std::string(characterPrefix(trim(plain), maxExcerptCharacters));
}

bool hasEnoughText(std::string_view text) {
    const auto words = excerpt(text);
    std::size_t count = 0;
    for (std::size_t offset = 0; offset < words.size() && count < enoughCharacters;) {
        const char32_t codePoint = nextCodePoint(words, offset);
        if (isLetter(codePoint) || isNumber(codePoint)) ++count;
    }
    return count >= enoughCharacters;
}

std::string userMessage(std::string_view excerpt) {
    return "Name this note.\n\n" + std::string(excerpt);
}

BrainRequest request(std::string_view excerpt) {
    BrainRequest made;
    made.system = std::string(instructions);
    made.messages = {{.role = BrainMessage::Role::user, .text = userMessage(excerpt)}};
    // A line is enough; the rest is for models that think first.
    made.maxTokens = 1024;
    return made;
}

std::optional<std::string> parse(std::string_view reply) {
    std::vector<std::string_view> lines;
    for (const auto line : splitLines(reply)) {
        if (!trim(line).empty()) lines.push_back(line);
    }
    if (lines.empty()) return std::nullopt;
    auto line = unwrapped(lines.front());
    if ((line.empty() || line.ends_with(':') || isEcho(line)) && lines.size() > 1) line = unwrapped(lines[1]);
    if (isEcho(line)) return std::nullopt;
    auto title = withSingleBlanks(replaceAll(withoutTrailingPunctuation(line), ": ", " - "));
    const std::string prefix(characterPrefix(title, maxTitleLength));
    if (prefix.size() < title.size()) title = prefix.substr(0, prefix.rfind(' '));
    auto name = Vault::sanitiseFilename(title);
    if (title.empty() || name == Vault::untitledName) return std::nullopt;
    return name;
}

}  // namespace vesk::NoteTitler
