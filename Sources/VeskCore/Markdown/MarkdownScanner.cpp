#include "VeskCore/Markdown/MarkdownScanner.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <deque>
#include <iterator>
#include <unordered_set>
#include <vector>

#include "VeskCore/Markdown/HTMLSpans.h"
#include "VeskCore/Support/Characters.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"

namespace vesk::MarkdownScanner {
namespace {

constexpr std::size_t excerptCharacters = 200;
constexpr std::size_t none = std::string_view::npos;
constexpr std::size_t longestCodePoint = 4;  // bytes

constexpr bool isAsciiByte(char c) {
    return static_cast<signed char>(c) >= 0;
}

/// A line in which places are bytes and characters are whole: a "[" with an accent is no bracket. A sign of
/// the syntax is ASCII and so a character of its own unless a neighbour outside ASCII joins it; looking
/// beside the few signs of a line is cheaper than listing all its characters.
class Line {
public:
    explicit Line(std::string_view text) : text_(text) {}
    std::string_view text() const { return text_; }
    std::size_t size() const { return text_.size(); }
    /// True if the character at the place is `c`, which is ASCII.
    bool is(std::size_t at, char c) const { return at < size() && text_[at] == c && standsAlone(at); }
    bool isPair(std::size_t at, char c) const { return is(at, c) && is(at + 1, c); }
    std::string_view slice(std::size_t from, std::size_t to) const { return text_.substr(from, to - from); }
    std::size_t find(char c, std::size_t from) const {
        auto at = text_.find(c, from);
        while (at != none && !standsAlone(at)) at = text_.find(c, at + 1);
        return at;
    }
    std::size_t findPair(char c, std::size_t from) const {
        auto at = find(c, from);
        while (at != none && !is(at + 1, c)) at = find(c, at + 1);
        return at;
    }

private:
    bool standsAlone(std::size_t at) const {
        const bool freeBefore = at == 0 || isAsciiByte(text_[at - 1]);
        const bool freeBehind = at + 1 == size() || isAsciiByte(text_[at + 1]);
        return (freeBefore && freeBehind) || standsAloneAmongWide(at);
    }
    bool standsAloneAmongWide(std::size_t at) const {
        // The code point behind decides; what follows it may be long.
        if (CharacterCursor(text_.substr(at, 1 + longestCodePoint)).next().size() > 1) return false;
        if (at == 0) return true;
        // Only a code point that joins whatever follows takes a sign in; it does so wherever it stands.
        std::size_t start = at - 1;
        while (start > 0 && (static_cast<unsigned char>(text_[start]) & 0xC0) == 0x80) --start;
        return CharacterCursor(text_.substr(start, at + 1 - start)).next().size() <= at - start;
    }

    std::string_view text_;
};

bool isLetterCharacter(std::string_view character) {
    const char first = character.front();
    if (static_cast<unsigned char>(first) < 0x80) return isAsciiLetter(first);
    return isLetter(*firstCodePoint(character));
}

bool isNumberCharacter(std::string_view character) {
    const char first = character.front();
    if (static_cast<unsigned char>(first) < 0x80) return isAsciiDigit(first);
    return isNumber(*firstCodePoint(character));
}

bool isTagCharacter(std::string_view character) {
    return isLetterCharacter(character) || isNumberCharacter(character) || character == "-" ||
           character == "_" || character == "/";
}

/// The number of number characters at the start, in bytes; a "." or ")" must follow for an ordered item.
std::size_t leadingNumber(std::string_view line) {
    CharacterCursor cursor(line);
    std::size_t end = 0;
    while (!cursor.atEnd()) {
        if (!isNumberCharacter(cursor.next())) break;
        end = cursor.offset();
    }
    return end;
}

/// Finds the next occurrence of a text from rising positions, looking at each byte once: a search that failed
/// is not made again.
class Forward {
public:
    Forward(std::string_view text, std::string_view wanted)
        : text_(text), wanted_(wanted), found_(text.find(wanted)) {}
    std::size_t from(std::size_t position) {
        if (found_ != none && found_ < position) found_ = text_.find(wanted_, position);
        return found_;
    }

private:
    std::string_view text_, wanted_;
    std::size_t found_;
};

std::string joinedWords(std::string_view text) {
    return join(splitWords(text, " "), " ");
}

std::string replacedWikilinks(std::string_view text) {
    std::string out;
    std::size_t at = 0;
    while (at < text.size()) {
        const auto open = text.find("[[", at);
        const auto close = open == none ? none : text.find("]]", open + 2);
        if (close == none) break;
        out.append(text, at, open - at);
        const auto inner = text.substr(open + 2, close - open - 2);
        if (inner.find('|') == none) {
            out += inner;
        } else {
            const auto pieces = splitWords(inner, "|");
            if (!pieces.empty()) out += pieces.back();
        }
        at = close + 2;
    }
    return out.append(text, at);
}

/// Deletes each "![[…]]", also one that a deletion brings together.
std::string withoutEmbedStretches(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t at = 0; at < text.size();) {
        out += text[at++];
        if (!out.ends_with("![[")) continue;
        const auto close = text.find("]]", at);
        if (close == none) return out.append(text, at);
        out.resize(out.size() - 3);
        at = close + 2;
    }
    return out;
}

std::string withoutLinkSyntax(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    Forward bracket(text, "]"), parenthesis(text, ")");
    for (std::size_t at = 0; at < text.size();) {
        const bool image = text[at] == '!' && at + 1 < text.size() && text[at + 1] == '[';
        const std::size_t open = image ? at + 1 : at;
        if (text[open] == '[' && !(open + 1 < text.size() && text[open + 1] == '[')) {
            const auto close = bracket.from(open + 1);
            if (close != none && close + 1 < text.size() && text[close + 1] == '(') {
                const auto end = parenthesis.from(close + 2);
                if (end != none) {
                    if (!image) out.append(text, open + 1, close - open - 1);
                    at = end + 1;
                    continue;
                }
            }
        }
        out += text[at++];
    }
    return out;
}

/// Where the inline code of a line lies, in bytes: from each opening backtick through its closing one, or to
/// the end.
std::vector<TextRange> codeStretches(std::string_view text) {
    const Line line(text);
    std::vector<TextRange> stretches;
    for (auto open = line.find('`', 0); open != none;) {
        const auto close = line.find('`', open + 1);
        const auto end = close == none ? text.size() : close + 1;
        stretches.push_back({open, end - open});
        open = line.find('`', end);
    }
    return stretches;
}

/// The same stretches in UTF-16 units.
std::vector<TextRange> inUtf16(std::string_view text, std::vector<TextRange> stretches) {
    std::size_t byte = 0, unit = 0;
    const auto unitAt = [&](std::size_t offset) {
        unit += utf16Length(text.substr(byte, offset - byte));
        byte = offset;
        return unit;
    };
    for (auto& stretch : stretches) {
        const auto end = stretch.end();
        stretch.location = unitAt(stretch.location);
        stretch.length = unitAt(end) - stretch.location;
    }
    return stretches;
}

constexpr unsigned spaceSign = 1, bracketSign = 2, hashSign = 4, caretSign = 8, codeSign = 16, tagSign = 32,
                   wideSign = 64;

constexpr auto signsOfBytes = [] {
    std::array<std::uint8_t, 256> signs{};
    signs[' '] = signs['\t'] = spaceSign;
    signs['['] = bracketSign;
    signs['#'] = hashSign;
    signs['^'] = caretSign;
    signs['`'] = codeSign;
    signs['<'] = tagSign;
    for (std::size_t byte = 0x80; byte < signs.size(); ++byte) signs[byte] = wideSign;
    return signs;
}();

/// What one look at each byte of a line tells: which of the signs stand in it, and its words.
struct LineSigns {
    explicit LineSigns(std::string_view line) {
        unsigned before = spaceSign;
        for (const char c : line) {
            const unsigned sign = signsOfBytes[static_cast<unsigned char>(c)];
            all |= sign;
            words += static_cast<int>(before & ~sign & spaceSign);
            before = sign;
        }
    }
    bool has(unsigned sign) const { return (all & sign) != 0; }

    unsigned all = 0;
    int words = 0;
};

/// The masked line, without a copy where nothing is masked.
class Masked {
public:
    Masked(std::string_view line, LineSigns signs, bool masksMarkup) : line_(line), signs_(signs) {
        masksMarkup_ = masksMarkup && signs.has(tagSign);
        if (masksMarkup_) {
            own_ = maskInlineCodeAndMarkup(line);
        } else if (signs.has(codeSign)) {
            own_ = maskInlineCode(line);
        }
        if (own_) signs_ = LineSigns(*own_);
    }
    const LineSigns& signs() const { return signs_; }
    std::string_view text() const { return own_ ? std::string_view(*own_) : line_; }
    bool maskedMarkup() const { return masksMarkup_; }

private:
    std::string_view line_;
    LineSigns signs_;
    std::optional<std::string> own_;
    bool masksMarkup_ = false;
};

std::string excerptOf(std::string_view line, const Masked& masked) {
    const std::string judged = masked.maskedMarkup() ? maskInlineCode(line) : std::string();
    const std::string_view judge = masked.maskedMarkup() ? std::string_view(judged) : masked.text();
    auto preview = plainPreview(masked.text(), judge);
    // Blanked tags leave runs of spaces behind.
    if (masked.text() != judge) preview = joinedWords(preview);
    return std::string(characterPrefix(preview, excerptCharacters));
}

/// Which openings a later closing answers, each at the bit of its place. Read from the end with one counter,
/// so that a line of nothing but brackets takes a bit a byte.
std::vector<bool> answeredLinks(const Line& line) {
    std::vector<bool> answered(line.size(), false);
    std::size_t closings = 0;
    const auto runStart = [&](std::size_t end, char c) {
        while (end > 0 && line.is(end - 1, c)) --end;
        return end;
    };
    for (std::size_t end = line.size(); end > 0;) {
        if (line.is(end - 1, ']')) {
            const auto start = runStart(end, ']');
            closings += (end - start) / 2;
            end = start;
        } else if (line.is(end - 1, '[')) {
            // Pairs count from the start of their run.
            const auto start = runStart(end, '[');
            for (auto pairs = (end - start) / 2; pairs > 0 && closings > 0; --pairs, --closings)
                answered[start + 2 * (pairs - 1)] = true;
            end = start;
        } else {
            --end;
        }
    }
    return answered;
}

std::vector<bool> answeredParentheses(const Line& line) {
    std::vector<bool> answered(line.size(), false);
    std::size_t closings = 0;
    for (std::size_t at = line.size(); at-- > 0;) {
        if (line.is(at, ')')) {
            ++closings;
        } else if (closings > 0 && line.is(at, '(')) {
            --closings;
            answered[at] = true;
        }
    }
    return answered;
}

/// The place of the "]]" that closes an answered opening whose inner text begins at `at`.
std::size_t linkEnd(const Line& line, std::size_t at) {
    for (std::size_t depth = 0; at < line.size();) {
        if (line.isPair(at, '[')) {
            ++depth;
            at += 2;
        } else if (line.isPair(at, ']')) {
            if (depth-- == 0) break;
            at += 2;
        } else {
            ++at;
        }
    }
    return at;
}

/// The place of the ")" that closes an answered "(" whose inner text begins at `at`.
std::size_t parenthesisEnd(const Line& line, std::size_t at) {
    for (std::size_t depth = 0; at < line.size(); ++at) {
        if (line.is(at, '(')) ++depth;
        if (line.is(at, ')') && depth-- == 0) break;
    }
    return at;
}

/// Fills in what the text between the brackets says; false if it names nothing.
bool readLinkText(std::string_view inner, NoteScan::Wikilink& link) {
    if (const auto bar = inner.find('|'); bar != none) {
        link.alias = std::string(trimHorizontal(inner.substr(bar + 1)));
        inner = inner.substr(0, bar);
    }
    if (const auto block = inner.find("#^"); block != none) {
        link.blockID = std::string(inner.substr(block + 2));
        inner = inner.substr(0, block);
    } else if (const auto hash = inner.find('#'); hash != none) {
        link.heading = std::string(trimHorizontal(inner.substr(hash + 1)));
        inner = inner.substr(0, hash);
    }
    link.target = std::string(trimHorizontal(inner));
    return !link.target.empty() || link.heading || link.blockID;
}

void readWikilinks(const Line& line, std::size_t lineStart, NoteScan& into) {
    std::vector<bool> answered;               // asked only once links nest
    std::size_t counted = 0, characters = 0;  // places and characters before the last link
    std::size_t closing = 0;                  // the first "]]" behind; it only moves on
    for (auto at = line.findPair('[', 0); at != none;) {
        const auto nested = line.findPair('[', at + 2);
        if (closing < at + 2) closing = line.findPair(']', at + 2);
        if (closing == none) return;
        auto close = closing;
        if (nested < close) {
            if (answered.empty()) answered = answeredLinks(line);
            close = answered[at] ? linkEnd(line, at + 2) : none;
        }
        if (close == none || close == at + 2) {
            at = nested;
            continue;
        }
        NoteScan::Wikilink link;
        link.isEmbed = at > 0 && line.is(at - 1, '!');
        if (readLinkText(line.slice(at + 2, close), link)) {
            const auto begin = link.isEmbed ? at - 1 : at;
            characters += characterCount(line.slice(counted, begin));
            counted = begin;
            link.range = {lineStart + characters, characterCount(line.slice(begin, close + 2))};
            into.wikilinks.push_back(std::move(link));
        }
        at = nested >= close + 2 ? nested : line.findPair('[', close + 2);
    }
}

void readMarkdownLinks(const Line& line, NoteScan& into) {
    if (line.text().find("](") == none) return;
    std::vector<bool> answered;  // asked only once parentheses nest or stay open
    const auto closingOf = [&](std::size_t open) {
        if (answered.empty()) {
            const auto next = std::min(line.find(')', open + 1), line.find('(', open + 1));
            if (next != none && line.text()[next] == ')') return next;
            answered = answeredParentheses(line);
        }
        return answered[open] ? parenthesisEnd(line, open + 1) : none;
    };
    std::size_t bracket = 0;  // the first "]" behind; it only moves on
    for (auto at = line.find('[', 0); at != none;) {
        if (line.is(at + 1, '[')) {
            at = line.find('[', at + 2);
            continue;
        }
        if (bracket <= at) bracket = line.find(']', at + 1);
        if (bracket == none) return;
        const auto close = line.is(bracket + 1, '(') ? closingOf(bracket + 1) : none;
        if (close == none) {
            at = line.find('[', at + 1);
            continue;
        }
        auto url = line.slice(bracket + 2, close);
        if (const auto caption = url.find(" \""); caption != none) url = url.substr(0, caption);
        if (!url.empty()) {
            into.markdownLinks.push_back({.text = std::string(line.slice(at + 1, bracket)),
                                          .url = std::string(url),
                                          .isImage = at > 0 && line.is(at - 1, '!')});
        }
        at = line.find('[', close + 1);
    }
}

bool opensTagBehind(std::string_view character) {
    if (character.size() == 1 && std::string_view("([{>,;\"'").find(character.front()) != none) return true;
    return isSpaceOrNewline(*firstCodePoint(character));
}

/// Calls `take(tag)` for each tag in order.
template <typename Take>
void readTags(const Line& line, Take take) {
    const auto text = line.text();
    CharacterCursor walk(text);  // goes on only to a sign that more than ASCII stands before
    const auto opensTag = [&](std::size_t at) {
        if (at == 0) return true;
        if (isAsciiByte(text[at - 1]) && line.is(at - 1, text[at - 1]))
            return opensTagBehind(text.substr(at - 1, 1));
        std::string_view before;
        while (walk.offset() < at) before = walk.next();
        return opensTagBehind(before);
    };
    for (auto at = text.find('#'); at != none; at = text.find('#', at)) {
        const auto start = at + 1;
        if (!line.is(at, '#') || !opensTag(at)) {
            at = start;
            continue;
        }
        std::size_t end = start;
        bool hasLetter = false;
        for (CharacterCursor cursor(text.substr(start)); !cursor.atEnd(); end = start + cursor.offset()) {
            const auto character = cursor.next();
            if (!isTagCharacter(character)) break;
            hasLetter = hasLetter || isLetterCharacter(character);
        }
        if (hasLetter) {
            auto tag = line.slice(start, end);
            if (tag.ends_with('/')) tag.remove_suffix(1);
            take(tag);
        }
        at = end;
    }
}

/// A line, trimmed, that indentation doesn't make code.
bool isListItem(std::string_view trimmed) {
    return trimmed.starts_with('-') || trimmed.starts_with('*') || trimmed.starts_with('+') ||
           isOrderedItem(trimmed);
}

}  // namespace

NoteScan scan(std::string_view body, bool masksMarkup) {
    NoteScan scan;
    std::unordered_set<std::string_view>
        seenTags;  // views into `tagTexts`, whose strings stay where they are
    std::deque<std::string> tagTexts;
    std::string_view fence;
    std::size_t lineStart = 0;
    int number = 0;
    for (std::size_t at = 0; at < body.size(); ++number) {
        const auto feed = std::min(body.find('\n', at), body.size());
        auto line = body.substr(at, feed - at);
        const bool carriageReturn = feed < body.size() && line.ends_with('\r');
        if (carriageReturn) line.remove_suffix(1);
        const LineSigns signs(line);
        const std::size_t start = lineStart;
        lineStart += (signs.has(wideSign) ? utf16Length(line) : line.size()) + (carriageReturn ? 2 : 1);
        at = feed + 1;
        if (line.empty()) continue;

        const auto trimmed = trimHorizontal(line);
        if (trimmed.starts_with("```") || trimmed.starts_with("~~~")) {
            const auto marker = trimmed.substr(0, 3);
            if (fence.empty()) {
                fence = marker;
            } else if (fence == marker) {
                fence = {};
            }
            continue;
        }
        if (!fence.empty()) continue;
        if ((line.starts_with("    ") || line.starts_with('\t')) && !isListItem(trimmed)) continue;
        if (const auto level = headingLevel(trimmed)) {
            const auto text = trimHorizontal(
                trimCharacters(trimHorizontal(trimmed.substr(static_cast<std::size_t>(*level))), "#"));
            scan.headings.push_back({.level = *level, .text = std::string(text), .line = number});
            if (!scan.title && *level == 1) scan.title = std::string(text);
            continue;
        }
        if (auto task = parseTask(trimmed, number)) scan.tasks.push_back(std::move(*task));

        const Masked masked(line, signs, masksMarkup);
        const auto text = masked.text();
        scan.wordCount += masked.signs().words;
        if (masked.signs().has(bracketSign | hashSign)) {
            const Line reading(text);
            if (masked.signs().has(bracketSign)) {
                readWikilinks(reading, start, scan);
                readMarkdownLinks(reading, scan);
            }
            if (masked.signs().has(hashSign)) {
                readTags(reading, [&](std::string_view tag) {
                    if (seenTags.contains(tag)) return;
                    seenTags.insert(tagTexts.emplace_back(tag));
                });
            }
        }
        if (masked.signs().has(caretSign)) extractBlockID(text, scan);
        if (scan.excerpt.empty()) scan.excerpt = excerptOf(line, masked);
    }
    scan.tags.assign(std::make_move_iterator(tagTexts.begin()), std::make_move_iterator(tagTexts.end()));
    return scan;
}

std::optional<int> headingLevel(std::string_view line) {
    const auto level = std::min(line.find_first_not_of('#'), line.size());
    if (level < 1 || level > 6) return {};
    if (level < line.size() && line[level] != ' ') return {};
    return static_cast<int>(level);
}

bool isOrderedItem(std::string_view line) {
    const auto end = leadingNumber(line);
    return end > 0 && end < line.size() && (line[end] == '.' || line[end] == ')');
}

std::optional<NoteScan::TaskItem> parseTask(std::string_view line, int number) {
    std::string_view rest;
    if (line.starts_with("- ") || line.starts_with("* ") || line.starts_with("+ ")) {
        rest = line.substr(2);
    } else if (isOrderedItem(line)) {
        rest = line.substr(line.find_first_of(".)") + 1);
        rest.remove_prefix(std::min(rest.find_first_not_of(' '), rest.size()));
    }
    if (!rest.starts_with('[')) return {};
    CharacterCursor cursor(rest);
    if (cursor.next() != "[" || cursor.atEnd()) return {};
    const auto mark = cursor.next();
    if (cursor.atEnd() || cursor.next() != "]") return {};
    return NoteScan::TaskItem{.text = std::string(trimHorizontal(rest.substr(cursor.offset()))),
                              .done = mark != " ",
                              .line = number};
}

std::string maskInlineCode(std::string_view text) {
    std::string masked;
    masked.reserve(text.size());
    std::size_t at = 0;
    for (const auto& code : codeStretches(text)) {
        masked.append(text, at, code.location - at);
        masked.append(characterCount(text.substr(code.location, code.length)), ' ');
        at = code.end();
    }
    return masked.append(text, at);
}

std::string maskInlineCodeAndMarkup(std::string_view text) {
    const auto units = utf16(text);
    const auto code = inUtf16(text, codeStretches(text));
    const auto markup = HTMLSpans::scan(units, units.size(), code).mask;
    if (markup.empty()) return maskInlineCode(text);
    if (isAscii(text) && text.find('\r') == none) {
        // Bytes, units and characters are the same here.
        std::string masked(text);
        for (const auto* ranges : {&code, &markup}) {
            for (const auto& range : *ranges) masked.replace(range.location, range.length, range.length, ' ');
        }
        return masked;
    }
    std::vector<bool> marked(units.size(), false);
    for (const auto* ranges : {&code, &markup}) {
        for (const auto& range : *ranges) {
            const auto end = std::min(range.end(), units.size());
            for (std::size_t unit = range.location; unit < end; ++unit) marked[unit] = true;
        }
    }
    std::string masked;
    masked.reserve(text.size());
    std::size_t unit = 0;
    for (CharacterCursor cursor(text); !cursor.atEnd();) {
        const auto character = cursor.next();
        const auto end = unit + utf16Length(character);
        bool blank = false;
        for (; unit < end; ++unit) blank = blank || marked[unit];
        masked += blank ? std::string_view(" ") : character;
    }
    return masked;
}

std::string withoutEmbeds(std::string_view text) {
    if (text.find("](") == none && text.find("![[") == none) return std::string(text);
    auto result = withoutLinkSyntax(withoutEmbedStretches(text));
    if (result == text) return result;
    std::string collapsed;
    collapsed.reserve(result.size());
    for (char c : result) {
        if (c != ' ' || !collapsed.ends_with(' ')) collapsed += c;
    }
    return std::string(trimHorizontal(collapsed));
}

std::string plainPreview(std::string_view text, std::optional<std::string_view> judge) {
    auto trimmed = trimHorizontal(text);
    const auto judged = judge ? trimHorizontal(*judge) : trimmed;
    if (trimmed.empty()) return {};
    if (judged.starts_with('#') || judged.starts_with('>') || judged.starts_with("---")) return {};
    for (std::string_view prefix : {"- [ ] ", "- [x] ", "- ", "* ", "+ ", "> "}) {
        if (!trimmed.starts_with(prefix)) continue;
        trimmed.remove_prefix(prefix.size());
        break;
    }
    auto plain = withoutEmbeds(trimmed);
    for (std::string_view marks : {"**", "__", "=="}) {
        if (plain.find(marks) != none) plain = replaceAll(plain, marks, "");
    }
    if (plain.find("[[") != none) plain = replacedWikilinks(plain);
    return std::string(trimHorizontal(plain));
}

void extractWikilinks(std::string_view text, std::size_t lineStart, NoteScan& into) {
    readWikilinks(Line(text), lineStart, into);
}

void extractMarkdownLinks(std::string_view text, NoteScan& into) {
    readMarkdownLinks(Line(text), into);
}

void extractTags(std::string_view text, NoteScan& into) {
    readTags(Line(text), [&](std::string_view tag) { into.tags.emplace_back(tag); });
}

void extractBlockID(std::string_view text, NoteScan& into) {
    const auto trimmed = trimHorizontal(text);
    const auto caret = trimmed.rfind('^');
    if (caret == none || caret == 0 || trimmed[caret - 1] != ' ') return;
    const auto identifier = trimmed.substr(caret + 1);
    if (identifier.empty()) return;
    for (CharacterCursor cursor(identifier); !cursor.atEnd();) {
        const auto character = cursor.next();
        if (!isLetterCharacter(character) && !isNumberCharacter(character) && character != "-") return;
    }
    into.blockIDs.emplace_back(identifier);
}

}  // namespace vesk::MarkdownScanner
