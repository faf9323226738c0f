#include "VeskCore/Markdown/HTMLSpans.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <unordered_map>

#include "VeskCore/Markdown/HTMLEntities.h"
#include "VeskCore/Support/Match.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"

namespace vesk::HTMLSpans {

namespace {

using MarkdownSpans::Span;
using MarkdownSpans::Style;

template <std::size_t n>
using Names = std::array<std::string_view, n>;

constexpr Names<14> voidElements{"area",  "base", "br",   "col",   "embed",  "hr",    "img",
                                 "input", "link", "meta", "param", "source", "track", "wbr"};
constexpr Names<3> boldNames{"b", "strong", "summary"};
constexpr Names<5> italicNames{"i", "em", "cite", "var", "dfn"};
constexpr Names<3> strikeNames{"s", "del", "strike"};
constexpr Names<2> underlineNames{"u", "ins"};
constexpr Names<3> codeNames{"code", "kbd", "samp"};
constexpr Names<6> headingNames{"h1", "h2", "h3", "h4", "h5", "h6"};
constexpr Names<11> blockNames{"details", "div",   "p",      "section",    "article", "header",
                               "footer",  "aside", "figure", "figcaption", "center"};
constexpr Names<8> tableNames{"table", "thead", "tbody", "tfoot", "tr", "th", "td", "caption"};
constexpr Names<7> monospaceFamilies{"monospace", "ui-monospace", "sf mono",    "menlo",
                                     "monaco",    "courier",      "courier new"};
// The other elements of HTML, the obsolete ones included. A name in no list is not HTML: "<String>" in a
// sentence about code, "<name>" in a command's usage.
constexpr Names<88> otherNames{
    "a",      "abbr",     "acronym",   "address",  "applet",   "audio",      "base",     "basefont",
    "bdi",    "bdo",      "bgsound",   "big",      "blink",    "blockquote", "body",     "button",
    "canvas", "colgroup", "data",      "datalist", "dd",       "dialog",     "dir",      "dl",
    "dt",     "fieldset", "font",      "form",     "frame",    "frameset",   "head",     "hgroup",
    "html",   "iframe",   "keygen",    "label",    "legend",   "li",         "listing",  "main",
    "map",    "mark",     "marquee",   "math",     "menu",     "menuitem",   "meter",    "nav",
    "nobr",   "noembed",  "noframes",  "noscript", "object",   "ol",         "optgroup", "option",
    "output", "picture",  "plaintext", "pre",      "progress", "q",          "rb",       "rp",
    "rt",     "rtc",      "ruby",      "script",   "search",   "select",     "slot",     "small",
    "span",   "style",    "sub",       "sup",      "svg",      "template",   "textarea", "time",
    "title",  "tt",       "ul",        "video",    "xmp",      "isindex",    "nextid",   "spacer"};

template <std::size_t n>
bool contains(const Names<n>& names, std::string_view name) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

bool isElementName(std::string_view name) {
    return contains(otherNames, name) || contains(voidElements, name) || contains(boldNames, name) ||
           contains(italicNames, name) || contains(strikeNames, name) || contains(underlineNames, name) ||
           contains(codeNames, name) || contains(headingNames, name) || contains(blockNames, name) ||
           contains(tableNames, name) || name.find('-') != std::string_view::npos;  // a custom element
}

constexpr bool isSpace(char16_t c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f';
}
constexpr bool isLetter16(char16_t c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}
constexpr bool isAlphanumeric16(char16_t c) {
    return isLetter16(c) || (c >= '0' && c <= '9');
}
constexpr bool isNameCharacter(char16_t c) {
    return isAlphanumeric16(c) || c == '-';
}
constexpr bool startsAttributeName(char16_t c) {
    return isLetter16(c) || c == '_' || c == ':' || c == '@';
}
constexpr bool isAttributeNameCharacter(char16_t c) {
    return isAlphanumeric16(c) || c == '_' || c == ':' || c == '.' || c == '@' || c == '-';
}
constexpr bool endsUnquotedValue(char16_t c) {
    return isSpace(c) || c == '"' || c == '\'' || c == '<' || c == '>' || c == '`';
}

std::string lowered(std::u16string_view ascii) {
    std::string result;
    result.reserve(ascii.size());
    for (char16_t c : ascii) result += static_cast<char>(c >= 'A' && c <= 'Z' ? c + ('a' - 'A') : c);
    return result;
}

// Reads one tag. Outside quoted values a tag holds no "<", no backtick and no stray quote. So attempts that
// begin at different places and read on over the same text are each in a different quoting state (none,
// single, double), and all failed attempts of a line together read it at most three times.
class TagReader {
public:
    TagReader(std::u16string_view line, std::size_t start) : line_(line), start_(start), at_(start + 1) {}

    std::optional<Tag> read() {
        Tag tag;
        if (peek() == '/') {
            tag.isClose = true;
            ++at_;
        }
        if (!isLetter16(peek())) return std::nullopt;
        const std::size_t nameStart = at_;
        while (isNameCharacter(peek())) ++at_;
        tag.name = lowered(line_.substr(nameStart, at_ - nameStart));
        // "<https://…>" and "<someone@example.org>" are addresses.
        if (!isSpace(peek()) && peek() != '/' && peek() != '>') return std::nullopt;
        while (true) {
            while (isSpace(peek())) ++at_;
            if (peek() == '>') break;
            if (tag.isClose) return std::nullopt;
            if (peek() == '/') {
                ++at_;
                if (peek() != '>') return std::nullopt;
                tag.selfClosing = true;
                break;
            }
            if (!readAttribute(tag)) return std::nullopt;
        }
        tag.range = {start_, at_ + 1 - start_};
        return tag;
    }

private:
    char16_t peek() const { return at_ < line_.size() ? line_[at_] : u'\0'; }

    bool readAttribute(Tag& tag) {
        if (!startsAttributeName(peek())) return false;
        const std::size_t nameStart = at_;
        while (isAttributeNameCharacter(peek())) ++at_;
        std::string name = lowered(line_.substr(nameStart, at_ - nameStart));

        const std::size_t afterName = at_;
        while (isSpace(peek())) ++at_;
        if (peek() != '=') {
            at_ = afterName;
            tag.attributes.emplace_back(std::move(name), std::string());
            return true;
        }
        ++at_;
        while (isSpace(peek())) ++at_;
        TextRange value{at_, 0};
        if (const char16_t quote = peek(); quote == '"' || quote == '\'') {
            const std::size_t close = line_.find(quote, at_ + 1);
            if (close == std::u16string_view::npos) return false;
            value = {at_ + 1, close - at_ - 1};
            at_ = close + 1;
        } else {
            while (at_ < line_.size() && !endsUnquotedValue(line_[at_])) ++at_;
            value.length = at_ - value.location;
            if (value.empty()) return false;
        }
        tag.attributes.emplace_back(
            name,
            HTMLEntities::decode(utf8(line_.substr(value.location, value.length)), /*inAttribute=*/true));
        tag.valueRanges.emplace(std::move(name), value);
        return true;
    }

    std::u16string_view line_;
    std::size_t start_, at_;
};

// Walks the line once; what fails to be found ahead is remembered, so that no search repeats.
class Tokenizer {
public:
    Tokenizer(std::u16string_view line, const std::vector<TextRange>& code) : line_(line), code_(code) {}

    std::vector<Token> tokens() {
        std::size_t backslashes = 0;
        while (at_ < line_.size()) {
            while (nextCode_ < code_.size() && code_[nextCode_].end() <= at_) ++nextCode_;
            if (nextCode_ < code_.size() && code_[nextCode_].contains(at_)) {
                at_ = code_[nextCode_].end();
                backslashes = 0;
                continue;
            }
            const char16_t c = line_[at_];
            const bool escaped = backslashes % 2 == 1;
            backslashes = c == '\\' ? backslashes + 1 : 0;
            if (c != '<' || escaped || !readToken()) ++at_;
        }
        return std::move(tokens_);
    }

private:
    bool readToken() {
        const std::u16string_view rest = line_.substr(at_);
        if (rest.starts_with(u"<!--")) return readComment();
        const std::size_t codeStart = nextCode_ < code_.size() ? code_[nextCode_].location : line_.size();
        const std::u16string_view beforeCode = line_.substr(0, std::min(codeStart, line_.size()));
        if (rest.size() > 2 && rest[1] == '!' && isLetter16(rest[2])) return readDeclaration(beforeCode);
        auto tag = TagReader(beforeCode, at_).read();
        if (!tag) return false;
        at_ = tag->range.end();
        tokens_.emplace_back(*std::move(tag));
        return true;
    }

    // A comment may hold inline code, its own signs may not stand in one.
    bool readComment() {
        const std::u16string_view rest = line_.substr(at_);
        std::size_t end;
        if (rest.starts_with(u"<!-->")) {
            end = at_ + 5;
        } else if (rest.starts_with(u"<!--->")) {
            end = at_ + 6;
        } else {
            if (commentEnd_ < at_ + 4) commentEnd_ = findCommentEnd(at_ + 4);
            if (commentEnd_ == std::u16string_view::npos) return false;
            end = commentEnd_ + 3;
        }
        tokens_.emplace_back(Comment{{at_, end - at_}});
        at_ = end;
        return true;
    }

    std::size_t findCommentEnd(std::size_t from) {
        std::size_t code = nextCode_;
        while (true) {
            from = line_.find(u"-->", from);
            if (from == std::u16string_view::npos) return from;
            while (code < code_.size() && code_[code].end() <= from) ++code;
            if (code == code_.size() || !code_[code].intersects({from, 3})) return from;
            from = code_[code].end();
        }
    }

    bool readDeclaration(std::u16string_view line) {
        const std::size_t end = line.find_first_of(u"<>", at_ + 1);
        if (end == std::u16string_view::npos || line[end] == '<') return false;
        tokens_.emplace_back(Comment{{at_, end + 1 - at_}});
        at_ = end + 1;
        return true;
    }

    std::u16string_view line_;
    const std::vector<TextRange>& code_;
    std::size_t at_ = 0, nextCode_ = 0;
    std::size_t commentEnd_ = 0;  // the next "-->" ahead, or npos once there is none
    std::vector<Token> tokens_;
};

// How a tag is shown. Hidden: its text is syntax that a marker covers, so it shows only where the caret is.
// Inert: it can't be shown as anything, so it stays readable, but faint. Typed: it is no HTML, so it is text
// like any other.
//
//   hidden   both tags of a pair that styles its text; containers (blockNames) with or without a partner,
//   since they
//            mostly span lines and mean nothing for the look of one; img, whose picture the editor shows;
//            wbr; comments
//   inert    every other element: br, hr and further void ones, tables and lists (hiding would run their
//   cells
//            together), pairs without a style, a tag whose partner isn't on the line
//   typed    a name that HTML doesn't know
enum class Role { hidden, inert, typed };

Role unpairedRole(const Tag& tag) {
    if (contains(blockNames, tag.name) || tag.name == "img" || tag.name == "wbr") return Role::hidden;
    return isElementName(tag.name) ? Role::inert : Role::typed;
}

TextRange tokenRange(const Token& token) {
    return match(
        token, [](const Tag& tag) { return tag.range; },
        [](const Comment& comment) { return comment.range; });
}

bool isMarkup(const Token& token) {
    return match(
        token, [](const Tag& tag) { return unpairedRole(tag) != Role::typed; },
        [](const Comment&) { return true; });
}

constexpr std::size_t noPartner = static_cast<std::size_t>(-1);

// For each token the index of its partner. A close tag takes the nearest open one of its name that has none
// yet, so that "<b>x<i>y</b>z</i>" has two pairs.
std::vector<std::size_t> pairs(const std::vector<Token>& tokens) {
    std::vector<std::size_t> partners(tokens.size(), noPartner);
    std::unordered_map<std::string_view, std::vector<std::size_t>> open;
    for (std::size_t i = 0; i < tokens.size(); ++i) {
        const Tag* tag = std::get_if<Tag>(&tokens[i]);
        if (!tag || tag->selfClosing || contains(voidElements, tag->name)) continue;
        std::vector<std::size_t>& stack = open[tag->name];
        if (!tag->isClose) {
            stack.push_back(i);
        } else if (!stack.empty()) {
            partners[i] = stack.back();
            partners[stack.back()] = i;
            stack.pop_back();
        }
    }
    return partners;
}

const std::string* attribute(const Tag& tag, std::string_view name) {
    for (const auto& [key, value] : tag.attributes) {
        if (key == name) return &value;
    }
    return nullptr;
}

std::optional<HTMLStyle> declaredStyle(const Tag& tag) {
    std::optional<HTMLStyle> style;
    if (const std::string* value = attribute(tag, "style")) style = parseStyleAttribute(*value);
    const std::string* color = tag.name == "font" ? attribute(tag, "color") : nullptr;
    if (color && !(style && style->color)) {
        if (const auto parsed = CSSColor::parse(*color)) {
            if (!style) style.emplace();
            style->color = parsed;
        }
    }
    return style;
}

std::optional<Style> pairedStyle(const Tag& tag) {
    const std::string_view name = tag.name;
    if (contains(headingNames, name)) return Style{Style::Heading{name[1] - '0'}};
    if (name == "mark") return Style{Style::Plain::highlight};
    if (name == "a") {
        if (!attribute(tag, "href")) return std::nullopt;
        return Style{Style::Plain::link};
    }
    HTMLStyle style;
    if (contains(boldNames, name)) {
        style.bold = true;
    } else if (contains(italicNames, name)) {
        style.italic = true;
    } else if (contains(strikeNames, name)) {
        style.strikethrough = true;
    } else if (contains(underlineNames, name)) {
        style.underline = true;
    } else if (contains(codeNames, name)) {
        style.monospace = true;
    } else if (name == "sub" || name == "sup") {
        style.baseline = name == "sub" ? HTMLStyle::Baseline::sub : HTMLStyle::Baseline::sup;
        style.scale = 0.75;
    } else if (name == "small") {
        style.scale = 0.85;
    } else if (name == "abbr" || name == "span" || name == "font") {
        const auto declared = declaredStyle(tag);
        if (!declared) return std::nullopt;
        style = *declared;
    } else {
        return std::nullopt;
    }
    return Style{Style::HtmlStyled{style}};
}

bool isBlank(std::u16string_view text) {
    return std::all_of(text.begin(), text.end(), [](char16_t c) { return isSpaceOrNewline(c); });
}

// --- The style attribute ---

std::string withoutComments(std::string_view css) {
    std::string result;
    std::size_t at = 0;
    while (true) {
        const std::size_t open = css.find("/*", at);
        result.append(css, at, open == std::string_view::npos ? open : open - at);
        if (open == std::string_view::npos) return result;
        const std::size_t close = css.find("*/", open + 2);
        if (close == std::string_view::npos) return result;
        at = close + 2;
    }
}

std::string_view withoutImportance(std::string_view value) {
    const std::size_t mark = value.rfind('!');
    if (mark != std::string_view::npos && trim(value.substr(mark + 1)) == "important")
        return trim(value.substr(0, mark));
    return value;
}

// The colour of a "background" shorthand: the value itself, or the one of its parts that is a colour.
std::optional<CSSColor> backgroundColor(std::string_view value) {
    if (auto color = CSSColor::parse(value)) return color;
    std::size_t start = 0;
    int depth = 0;
    for (std::size_t i = 0; i <= value.size(); ++i) {
        const char c = i < value.size() ? value[i] : ' ';
        if (c == '(') ++depth;
        if (c == ')' && depth > 0) --depth;
        if ((c != ' ' && c != '\t') || (depth > 0 && i < value.size())) continue;
        if (auto color = CSSColor::parse(value.substr(start, i - start))) return color;
        start = i + 1;
    }
    return std::nullopt;
}

std::optional<bool> boldness(std::string_view value) {
    if (value == "bold" || value == "bolder") return true;
    if (value == "normal" || value == "lighter") return false;
    if (const auto number = parseDecimal(value)) return *number >= 600;
    return std::nullopt;
}

void applyDeclaration(std::string_view name, std::string_view value, HTMLStyle& style) {
    if (name == "color") {
        if (const auto color = CSSColor::parse(value)) style.color = color;
    } else if (name == "background" || name == "background-color") {
        if (const auto color = backgroundColor(value)) style.background = color;
    } else if (name == "font-weight") {
        if (const auto bold = boldness(value)) style.bold = *bold;
    } else if (name == "font-style") {
        if (value.starts_with("italic") || value.starts_with("oblique")) style.italic = true;
        if (value == "normal") style.italic = false;
    } else if (name == "text-decoration") {
        const auto words = splitWords(value, " \t\r\n\f");
        style.underline = std::find(words.begin(), words.end(), "underline") != words.end();
        style.strikethrough = std::find(words.begin(), words.end(), "line-through") != words.end();
    } else if (name == "vertical-align") {
        if (value == "sub") style.baseline = HTMLStyle::Baseline::sub;
        if (value == "super") style.baseline = HTMLStyle::Baseline::sup;
        if (value == "baseline") style.baseline = HTMLStyle::Baseline::normal;
    } else if (name == "font-family") {
        const std::string_view first = trimCharacters(trim(value.substr(0, value.find(','))), "\"'");
        style.monospace = contains(monospaceFamilies, trim(first));
    }
}

}  // namespace

std::vector<Token> tokens(std::u16string_view line, std::size_t contentLength,
                          const std::vector<TextRange>& codeRanges) {
    return Tokenizer(line.substr(0, contentLength), codeRanges).tokens();
}

LineScan scan(std::u16string_view line, std::size_t contentLength, const std::vector<TextRange>& codeRanges) {
    LineScan result;
    line = line.substr(0, contentLength);
    const std::vector<Token> found = tokens(line, contentLength, codeRanges);
    const std::vector<std::size_t> partners = pairs(found);

    // The style of each pair, at its open tag.
    std::vector<std::optional<Style>> styles(found.size());
    for (std::size_t i = 0; i < found.size(); ++i) {
        const Tag* tag = std::get_if<Tag>(&found[i]);
        if (tag && !tag->isClose && partners[i] != noPartner) styles[i] = pairedStyle(*tag);
    }

    bool textOutside = false;
    std::size_t textStart = 0;
    for (std::size_t i = 0; i < found.size(); ++i) {
        const TextRange range = tokenRange(found[i]);
        if (!isMarkup(found[i])) continue;
        textOutside = textOutside || !isBlank(line.substr(textStart, range.location - textStart));
        textStart = range.end();
        result.mask.push_back(range);

        Role role = Role::hidden;
        if (const Tag* tag = std::get_if<Tag>(&found[i])) {
            role = unpairedRole(*tag);
            if (partners[i] != noPartner && styles[tag->isClose ? partners[i] : i]) role = Role::hidden;
        }
        if (role == Role::hidden) {
            result.spans.push_back({range, {Style::Plain::htmlMarkup}, {range}});
        } else {
            result.spans.push_back({range, {Style::Plain::htmlInert}, {}});
        }
        if (styles[i]) {
            const TextRange text{range.end(), tokenRange(found[partners[i]]).location - range.end()};
            if (!text.empty()) result.spans.push_back({text, *styles[i], {}});
        }
    }
    result.markupOnly = !result.mask.empty() && !textOutside && isBlank(line.substr(textStart));
    return result;
}

std::vector<TextRange> markupRanges(std::u16string_view line, const std::vector<TextRange>& code) {
    std::vector<TextRange> ranges;
    for (const Token& token : tokens(line, line.size(), code)) {
        if (isMarkup(token)) ranges.push_back(tokenRange(token));
    }
    return ranges;
}

std::optional<HTMLStyle> parseStyleAttribute(std::string_view value) {
    const std::string css = asciiLowercased(withoutComments(value));
    HTMLStyle style;
    for (std::string_view declaration : split(css, ';')) {
        const std::size_t colon = declaration.find(':');
        if (colon == std::string_view::npos) continue;
        applyDeclaration(trim(declaration.substr(0, colon)),
                         withoutImportance(trim(declaration.substr(colon + 1))), style);
    }
    if (style == HTMLStyle{}) return std::nullopt;
    return style;
}

}  // namespace vesk::HTMLSpans
