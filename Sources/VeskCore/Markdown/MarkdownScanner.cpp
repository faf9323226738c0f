#include "VeskCore/Markdown/MarkdownScanner.h"

#include <algorithm>
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

bool isAscii(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

/// A line's characters by number. In an ASCII line each byte is one; otherwise the boundaries are looked up,
/// so that
/// "[" with an accent is no bracket.
class LineCharacters {
public:
    explicit LineCharacters(std::string_view line) : line_(line) {
        if (!isAscii(line)) bounds_ = characterBoundaries(line);
    }
    std::size_t size() const { return bounds_.empty() ? line_.size() : bounds_.size() - 1; }
    std::size_t byte(std::size_t index) const { return bounds_.empty() ? index : bounds_[index]; }
    std::string_view operator[](std::size_t index) const { return slice(index, index + 1); }
    bool is(std::size_t index, char c) const {
        return index < size() && line_[byte(index)] == c && byte(index + 1) - byte(index) == 1;
    }
    bool isPair(std::size_t index, char c) const { return is(index, c) && is(index + 1, c); }
    std::string_view slice(std::size_t from, std::size_t to) const {
        return line_.substr(byte(from), byte(to) - byte(from));
    }

private:
    std::string_view line_;
    std::vector<std::size_t> bounds_;
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

/// Where the inline code of a line lies, in UTF-16 units.
std::vector<TextRange> codeRanges(std::u16string_view line) {
    std::vector<TextRange> ranges;
    for (auto open = line.find(u'`'); open != std::u16string_view::npos;) {
        const auto close = line.find(u'`', open + 1);
        if (close == std::u16string_view::npos) {
            ranges.push_back({open, line.size() - open});
            break;
        }
        ranges.push_back({open, close + 1 - open});
        open = line.find(u'`', close + 1);
    }
    return ranges;
}

/// The masked line, without a copy where nothing is masked.
class Masked {
public:
    Masked(std::string_view line, bool masksMarkup) : line_(line) {
        if (masksMarkup && line.find('<') != none) {
            own_ = maskInlineCodeAndMarkup(line);
            masksMarkup_ = true;
        } else if (line.find('`') != none) {
            own_ = maskInlineCode(line);
        }
    }
    std::string_view text() const { return own_ ? std::string_view(*own_) : line_; }
    bool maskedMarkup() const { return masksMarkup_; }

private:
    std::string_view line_;
    std::optional<std::string> own_;
    bool masksMarkup_ = false;
};

int countWords(std::string_view text) {
    int words = 0;
    bool inside = false;
    for (char c : text) {
        const bool space = c == ' ' || c == '\t';
        if (!space && !inside) ++words;
        inside = !space;
    }
    return words;
}

std::string excerptOf(std::string_view line, const Masked& masked) {
    const std::string judged = masked.maskedMarkup() ? maskInlineCode(line) : std::string();
    const std::string_view judge = masked.maskedMarkup() ? std::string_view(judged) : masked.text();
    auto preview = plainPreview(masked.text(), judge);
    // Blanked tags leave runs of spaces behind.
    if (masked.text() != judge) preview = joinedWords(preview);
    return std::string(characterPrefix(preview, excerptCharacters));
}

}  // namespace

NoteScan scan(std::string_view body, bool masksMarkup) {
    NoteScan scan;
    std::string_view fence;
    std::size_t lineStart = 0;
    int number = 0;
    for (std::size_t at = 0; at <= body.size(); ++number) {
        const auto feed = std::min(body.find('\n', at), body.size());
        auto line = body.substr(at, feed - at);
        const std::size_t start = lineStart;
        lineStart += utf16Length(line) + 1;
        at = feed + 1;
        if (feed < body.size() && line.ends_with('\r')) line.remove_suffix(1);

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
        if (!fence.empty() || trimmed.empty()) continue;
        if ((line.starts_with("    ") || line.starts_with('\t')) && trimmed.find_first_of("-*+") != 0 &&
            !isOrderedItem(trimmed)) {
            continue;
        }
        if (const auto level = headingLevel(trimmed)) {
            const auto text = trimHorizontal(
                trimCharacters(trimHorizontal(trimmed.substr(static_cast<std::size_t>(*level))), "#"));
            scan.headings.push_back({.level = *level, .text = std::string(text), .line = number});
            if (!scan.title && *level == 1) scan.title = std::string(text);
            continue;
        }
        if (auto task = parseTask(trimmed, number)) scan.tasks.push_back(std::move(*task));

        const Masked masked(line, masksMarkup);
        const auto text = masked.text();
        scan.wordCount += countWords(text);
        if (text.find('[') != none) {
            extractWikilinks(text, start, scan);
            extractMarkdownLinks(text, scan);
        }
        if (text.find('#') != none) extractTags(text, scan);
        if (text.find('^') != none) extractBlockID(text, scan);
        if (scan.excerpt.empty()) scan.excerpt = excerptOf(line, masked);
    }
    std::unordered_set<std::string> seen;
    std::erase_if(scan.tags, [&](const std::string& tag) { return !seen.insert(tag).second; });
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
    if (text.find('`') == none) return std::string(text);
    std::string masked;
    masked.reserve(text.size());
    bool inCode = false;
    for (CharacterCursor cursor(text); !cursor.atEnd();) {
        const auto character = cursor.next();
        if (character == "`") {
            inCode = !inCode;
            masked += ' ';
        } else if (inCode) {
            masked += ' ';
        } else {
            masked += character;
        }
    }
    return masked;
}

std::string maskInlineCodeAndMarkup(std::string_view text) {
    const auto units = utf16(text);
    const auto code = codeRanges(units);
    const auto markup = HTMLSpans::scan(units, units.size(), code).mask;
    if (markup.empty()) return maskInlineCode(text);
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
    const auto first = text.find("[[");
    if (first == none || text.find("]]", first) == none) return;
    const LineCharacters line(text);
    // Links nest, and one that never closes gives way to those inside it. Matching every opening with a stack
    // in one walk gives what trying each opening in turn would give.
    struct Opening {
        std::size_t at, close;
    };
    std::vector<Opening> openings;
    std::vector<std::size_t> open;
    for (std::size_t i = 0; i < line.size();) {
        if (line.isPair(i, '[')) {
            open.push_back(openings.size());
            openings.push_back({i, none});
            i += 2;
        } else if (!open.empty() && line.isPair(i, ']')) {
            openings[open.back()].close = i;
            open.pop_back();
            i += 2;
        } else {
            ++i;
        }
    }
    std::size_t resume = 0;
    for (const auto& [at, close] : openings) {
        if (at < resume || close == none || close == at + 2) continue;
        resume = close + 2;
        NoteScan::Wikilink link;
        link.isEmbed = at > 0 && line.is(at - 1, '!');
        std::string_view inner = line.slice(at + 2, close);
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
        if (link.target.empty() && !link.heading && !link.blockID) continue;
        const auto begin = link.isEmbed ? at - 1 : at;
        link.range = {lineStart + begin, close + 2 - begin};
        into.wikilinks.push_back(std::move(link));
    }
}

void extractMarkdownLinks(std::string_view text, NoteScan& into) {
    if (text.find("](") == none) return;
    const LineCharacters line(text);
    const auto size = line.size();
    // For each position the next "]" at or after it, and for each "(" the ")" that closes it.
    std::vector<std::size_t> nextBracket(size + 1, none), closing(size, none), open;
    for (std::size_t i = size; i-- > 0;) nextBracket[i] = line.is(i, ']') ? i : nextBracket[i + 1];
    for (std::size_t i = 0; i < size; ++i) {
        if (line.is(i, '(')) open.push_back(i);
        if (line.is(i, ')') && !open.empty()) {
            closing[open.back()] = i;
            open.pop_back();
        }
    }
    for (std::size_t i = 0; i < size;) {
        if (!line.is(i, '[')) {
            ++i;
            continue;
        }
        if (line.is(i + 1, '[')) {
            i += 2;
            continue;
        }
        const auto bracket = nextBracket[i + 1];
        const auto parenthesis = bracket == none ? none : bracket + 1;
        if (parenthesis == none || !line.is(parenthesis, '(') || closing[parenthesis] == none) {
            ++i;
            continue;
        }
        auto url = line.slice(parenthesis + 1, closing[parenthesis]);
        if (const auto caption = url.find(" \""); caption != none) url = url.substr(0, caption);
        if (!url.empty()) {
            into.markdownLinks.push_back({.text = std::string(line.slice(i + 1, bracket)),
                                          .url = std::string(url),
                                          .isImage = i > 0 && line.is(i - 1, '!')});
        }
        i = closing[parenthesis] + 1;
    }
}

void extractTags(std::string_view text, NoteScan& into) {
    const LineCharacters line(text);
    for (std::size_t i = 0; i < line.size();) {
        if (!line.is(i, '#')) {
            ++i;
            continue;
        }
        if (i > 0) {
            const auto before = line[i - 1];
            const bool opens =
                before.size() == 1 && std::string_view("([{>,;\"'").find(before.front()) != none;
            if (!opens && !isSpaceOrNewline(*firstCodePoint(before))) {
                ++i;
                continue;
            }
        }
        std::size_t end = i + 1;
        bool hasLetter = false;
        while (end < line.size() && isTagCharacter(line[end]))
            hasLetter = isLetterCharacter(line[end++]) || hasLetter;
        if (hasLetter) {
            auto tag = line.slice(i + 1, end);
            if (tag.ends_with('/')) tag.remove_suffix(1);
            into.tags.emplace_back(tag);
        }
        i = end;
    }
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
