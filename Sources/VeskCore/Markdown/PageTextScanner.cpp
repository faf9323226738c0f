#include "VeskCore/Markdown/PageTextScanner.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>

#include "VeskCore/Markdown/HTMLEntities.h"
#include "VeskCore/Support/Characters.h"
#include "VeskCore/Support/Text.h"

namespace vesk {

namespace {

enum class Kind : std::uint8_t {
    other,
    block,
    br,
    cell,
    definition,  // dt, dd
    dialog,
    foreign,  // svg, math
    heading,
    hr,
    image,
    item,
    list,
    line,  // caption, option: a line of their own
    noscript,
    plaintext,
    pre,
    raw,
    row,
    table,
    templateElement,
    textarea,
    title,
};

constexpr std::uint8_t isVoid = 1;
constexpr std::uint8_t leavesForeign = 2;  // its start tag ends an svg or math that is still open
constexpr std::uint8_t staysInHeading = 4;

}  // namespace

struct PageElement {
    std::string_view name;
    Kind kind = Kind::other;
    std::uint8_t flags = 0;
    int level = 0;
};

namespace {

constexpr PageElement elements[] = {
    {"address", Kind::block},
    {"area", Kind::other, isVoid},
    {"article", Kind::block},
    {"aside", Kind::block},
    {"b", Kind::other, leavesForeign},
    {"base", Kind::other, isVoid},
    {"big", Kind::other, leavesForeign},
    {"blockquote", Kind::block, leavesForeign},
    {"body", Kind::block, leavesForeign},
    {"br", Kind::br, isVoid | leavesForeign},
    {"caption", Kind::line},
    {"center", Kind::block, leavesForeign},
    {"code", Kind::other, leavesForeign},
    {"col", Kind::other, isVoid},
    {"dd", Kind::definition, leavesForeign},
    {"details", Kind::block},
    {"dialog", Kind::dialog},
    {"dir", Kind::list},
    {"div", Kind::block, leavesForeign | staysInHeading},
    {"dl", Kind::block, leavesForeign},
    {"dt", Kind::definition, leavesForeign},
    {"em", Kind::other, leavesForeign},
    {"embed", Kind::other, isVoid | leavesForeign},
    {"fieldset", Kind::block},
    {"figcaption", Kind::block},
    {"figure", Kind::block},
    {"footer", Kind::block},
    {"form", Kind::block},
    {"h1", Kind::heading, leavesForeign, 1},
    {"h2", Kind::heading, leavesForeign, 2},
    {"h3", Kind::heading, leavesForeign, 3},
    {"h4", Kind::heading, leavesForeign, 4},
    {"h5", Kind::heading, leavesForeign, 5},
    {"h6", Kind::heading, leavesForeign, 6},
    {"head", Kind::other, leavesForeign},
    {"header", Kind::block},
    {"hgroup", Kind::block},
    {"hr", Kind::hr, isVoid | leavesForeign},
    {"i", Kind::other, leavesForeign},
    {"iframe", Kind::raw},
    {"img", Kind::image, isVoid | leavesForeign},
    {"input", Kind::other, isVoid},
    {"legend", Kind::block},
    {"li", Kind::item, leavesForeign},
    {"link", Kind::other, isVoid},
    {"listing", Kind::pre, leavesForeign},
    {"main", Kind::block},
    {"math", Kind::foreign},
    {"menu", Kind::block, leavesForeign},
    {"meta", Kind::other, isVoid | leavesForeign},
    {"nav", Kind::block},
    {"nobr", Kind::other, leavesForeign},
    {"noembed", Kind::raw},
    {"noframes", Kind::raw},
    {"noscript", Kind::noscript},
    {"ol", Kind::list, leavesForeign},
    {"option", Kind::line},
    {"p", Kind::block, leavesForeign},
    {"param", Kind::other, isVoid},
    {"plaintext", Kind::plaintext},
    {"pre", Kind::pre, leavesForeign},
    {"ruby", Kind::other, leavesForeign},
    {"s", Kind::other, leavesForeign},
    {"script", Kind::raw},
    {"search", Kind::block},
    {"section", Kind::block},
    {"small", Kind::other, leavesForeign},
    {"source", Kind::other, isVoid},
    {"span", Kind::other, leavesForeign},
    {"strike", Kind::other, leavesForeign},
    {"strong", Kind::other, leavesForeign},
    {"style", Kind::raw},
    {"sub", Kind::other, leavesForeign},
    {"summary", Kind::block},
    {"sup", Kind::other, leavesForeign},
    {"svg", Kind::foreign},
    {"table", Kind::table, leavesForeign},
    {"td", Kind::cell},
    {"template", Kind::templateElement},
    {"textarea", Kind::textarea},
    {"th", Kind::cell},
    {"title", Kind::title},
    {"tr", Kind::row},
    {"track", Kind::other, isVoid},
    {"tt", Kind::other, leavesForeign},
    {"u", Kind::other, leavesForeign},
    {"ul", Kind::list, leavesForeign},
    {"var", Kind::other, leavesForeign},
    {"wbr", Kind::other, isVoid},
    {"xmp", Kind::raw},
};

// An open-addressed table of the elements: every tag of a page asks it.
class ElementTable {
public:
    ElementTable() {
        for (const PageElement& element : elements) {
            std::size_t slot = hash(element.name);
            while (slots_[slot]) slot = (slot + 1) % slots_.size();
            slots_[slot] = &element;
        }
    }

    const PageElement* find(std::string_view name) const {
        for (std::size_t slot = hash(name); slots_[slot]; slot = (slot + 1) % slots_.size()) {
            if (slots_[slot]->name == name) return slots_[slot];
        }
        return nullptr;
    }

private:
    static std::size_t hash(std::string_view name) {
        const auto first = static_cast<unsigned char>(name.front()),
                   last = static_cast<unsigned char>(name.back());
        const auto middle = static_cast<unsigned char>(name[name.size() / 2]);
        return (first * 33U + last * 5U + middle * 129U + name.size() * 61U) % 512;
    }

    std::array<const PageElement*, 512> slots_{};
};

const PageElement* findElement(std::string_view name) {
    static const ElementTable table;
    return table.find(name);
}

// Elements whose end tag may be left out (WHATWG HTML, "Optional tags"). A start tag of `startedBy` that
// stands directly in the element ends it, as does the end tag of a container or of a parent in `closedBy`.
// "Directly" means not inside a further element of `containers`.
struct OptionalEnd {
    std::string_view name, startedBy, containers, closedBy;
};

constexpr std::string_view paragraphEnders =
    "address article aside blockquote center details dialog dir div dl dd dt li fieldset figcaption figure "
    "footer form "
    "h1 h2 h3 h4 h5 h6 header hgroup hr listing main menu nav ol p plaintext pre search section summary "
    "table tr td th "
    "ul xmp";
constexpr std::string_view paragraphParents =
    "address article aside blockquote body center details dialog dir div dl dd dt li fieldset figcaption "
    "figure footer "
    "form header hgroup html main menu nav ol search section summary table tbody tfoot thead tr td th ul";

constexpr OptionalEnd optionalEnds[] = {
    {"li", "li", "ul ol menu dir", ""},
    {"dt", "dt dd", "dl", ""},
    {"dd", "dt dd", "dl", ""},
    {"p", paragraphEnders, "", paragraphParents},
    {"td", "td th tr thead tbody tfoot", "table", "tr thead tbody tfoot"},
    {"th", "td th tr thead tbody tfoot", "table", "tr thead tbody tfoot"},
    {"tr", "tr thead tbody tfoot", "table", "thead tbody tfoot"},
    {"thead", "thead tbody tfoot", "table", ""},
    {"tbody", "thead tbody tfoot", "table", ""},
    {"tfoot", "thead tbody tfoot", "table", ""},
    {"caption", "colgroup col thead tbody tfoot tr", "table", ""},
    {"colgroup", "colgroup thead tbody tfoot tr", "table", ""},
    {"option", "option optgroup hr", "select datalist", "optgroup"},
    {"optgroup", "optgroup hr", "select", ""},
    {"rt", "rt rp", "ruby", ""},
    {"rp", "rt rp", "ruby", ""},
};

const OptionalEnd* findOptionalEnd(std::string_view name) {
    for (const OptionalEnd& row : optionalEnds) {
        if (row.name == name) return &row;
    }
    return nullptr;
}

bool hasWord(std::string_view words, std::string_view word) {
    for (std::size_t at = 0; (at = words.find(word, at)) != std::string_view::npos; ++at) {
        const std::size_t end = at + word.size();
        if ((at == 0 || words[at - 1] == ' ') && (end == words.size() || words[end] == ' ')) return true;
    }
    return false;
}

enum ByteClass : std::uint8_t { plain, space, ampersand, lessThan, null };

constexpr std::array<std::uint8_t, 256> byteClasses = [] {
    std::array<std::uint8_t, 256> table{};
    for (char c : {'\t', '\n', '\f', '\r', ' '}) table[static_cast<unsigned char>(c)] = space;
    table['&'] = ampersand;
    table['<'] = lessThan;
    table[0] = null;
    return table;
}();

constexpr std::uint8_t classOf(char c) {
    return byteClasses[static_cast<unsigned char>(c)];
}
constexpr bool isSpace(char c) {
    return classOf(c) == space;
}
constexpr char lowered(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
}

// --- Lines ---

bool looksLikeHeading(std::string_view line) {
    const std::string_view text = trimHorizontal(line);
    const std::size_t marks = std::min(text.find_first_not_of('#'), text.size());
    return marks >= 1 && marks <= 6 && (marks == text.size() || text[marks] == ' ');
}

bool looksLikeRule(std::string_view line) {
    const std::string_view text = trimHorizontal(line);
    if (text.empty() || (text[0] != '-' && text[0] != '*' && text[0] != '_')) return false;
    std::size_t marks = 0;
    for (char c : text) {
        if (c != text[0] && c != ' ' && c != '\t') return false;
        if (c == text[0]) ++marks;
    }
    return marks >= 3;
}

std::string escaped(std::string_view line) {
    std::string result(line);
    result.insert(static_cast<std::size_t>(trimHorizontal(line).data() - line.data()), 1, '\\');
    return result;
}

// The piece of the line that fits, up to a space if there is one.
std::string_view cut(std::string_view line, std::size_t maxCharacters) {
    const std::string_view fitting = characterPrefix(line, maxCharacters);
    if (fitting.size() == line.size() || line[fitting.size()] == ' ') return fitting;
    const std::size_t spaceAt = fitting.rfind(' ');
    if (spaceAt == std::string_view::npos || fitting.find_first_not_of(' ') > spaceAt) return fitting;
    return fitting.substr(0, spaceAt);
}

std::string_view withoutTrailingSpaces(std::string_view line) {
    const std::size_t last = line.find_last_not_of(" \t");
    return last == std::string_view::npos ? std::string_view() : line.substr(0, last + 1);
}

// Appends the line with its line feed, wrapped. What only looks like Markdown's syntax is escaped; the line
// of a heading of the page is meant so.
void wrap(std::string_view line, bool isHeading, std::string& text) {
    bool first = true;
    do {
        std::string_view piece = cut(line, HTMLText::maxLineCharacters);
        const bool escapes = !(first && isHeading) && (looksLikeHeading(piece) || looksLikeRule(piece));
        if (escapes) {
            piece = cut(line, HTMLText::maxLineCharacters - 1);
            text += escaped(withoutTrailingSpaces(piece));
        } else {
            text += withoutTrailingSpaces(piece);
        }
        text += '\n';
        line.remove_prefix(piece.size());
        line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
        first = false;
    } while (!line.empty());
}

}  // namespace

HTMLExtract PageTextScanner::extract() {
    out_.reserve(b_.size() / 2);
    while (i_ < b_.size()) {
        if (isSkipping()) {
            skipTo('<');
            if (i_ < b_.size()) tag();
            continue;
        }
        switch (classOf(b_[i_])) {
            case space:
                spaceRun();
                break;
            case ampersand:
                reference();
                break;
            case lessThan:
                tag();
                break;
            case null:
                ++i_;
                break;
            default:
                textRun();
                break;
        }
    }
    closeHeading();
    result_.text = finishedText();
    return std::move(result_);
}

// --- Text ---

void PageTextScanner::textRun() {
    flush();
    const std::size_t start = i_;
    const bool joins = !keepsSpace();
    while (i_ < b_.size()) {
        if (classOf(b_[i_]) == plain) {
            ++i_;
        } else if (joins && b_[i_] == ' ' && i_ + 1 < b_.size() && classOf(b_[i_ + 1]) == plain) {
            i_ += 2;  // a single space between words is what it would collapse to
        } else {
            break;
        }
    }
    out_.append(b_, start, i_ - start);
    atLineStart_ = false;
}

void PageTextScanner::spaceRun() {
    const std::size_t start = i_;
    while (i_ < b_.size() && isSpace(b_[i_])) ++i_;
    if (keepsSpace()) {
        preformatted(b_.substr(start, i_ - start));
    } else {
        pendingSpace_ = true;
    }
}

void PageTextScanner::reference() {
    const auto found = HTMLEntities::reference(b_, i_, /*inAttribute=*/false);
    if (!found) {
        literal("&");
        ++i_;
        return;
    }
    i_ += found->length;
    std::string text;
    appendCodePoint(text, found->first);
    if (found->second) appendCodePoint(text, found->second);
    if (text.size() > 1 || !isSpace(text[0])) {
        literal(text);
    } else if (keepsSpace()) {
        preformatted(text);
    } else {
        pendingSpace_ = true;
    }
}

void PageTextScanner::literal(std::string_view text) {
    flush();
    out_ += text;
    atLineStart_ = false;
}

// Text that is not the page's own bytes (an attribute's value), laid out like text outside "pre".
void PageTextScanner::collapsed(std::string_view text) {
    std::size_t at = 0;
    while (at < text.size()) {
        const std::size_t start = at;
        while (at < text.size() && !isSpace(text[at])) ++at;
        if (at > start) literal(text.substr(start, at - start));
        if (at < text.size()) pendingSpace_ = true;
        while (at < text.size() && isSpace(text[at])) ++at;
    }
}

void PageTextScanner::preformatted(std::string_view text) {
    flush();
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\r') {
            if (i + 1 < text.size() && text[i + 1] == '\n') continue;
            out_ += '\n';
        } else {
            out_ += text[i];
        }
    }
    atLineStart_ = !out_.empty() && out_.back() == '\n';
}

void PageTextScanner::flush() {
    if (pendingBreak_ > 0 && !out_.empty()) {
        int breaks = 0;
        for (std::size_t at = out_.size(); breaks < pendingBreak_ && at > 0 && out_[at - 1] == '\n'; --at)
            ++breaks;
        out_.append(static_cast<std::size_t>(pendingBreak_ - breaks), '\n');
        atLineStart_ = true;
    }
    pendingBreak_ = 0;
    if (headingLevel_ > 0 && !headingTextStart_) {
        headingLines_.push_back(out_.size());
        out_.append(static_cast<std::size_t>(headingLevel_), '#');
        out_ += ' ';
        headingTextStart_ = out_.size();
        pendingItem_ = false;  // "- ## x" would be no heading
        atLineStart_ = true;
    }
    if (pendingItem_) {
        out_ += "- ";
        pendingItem_ = false;
    }
    if (pendingSpace_ && !atLineStart_ && !out_.empty() && out_.back() != ' ') out_ += ' ';
    pendingSpace_ = false;
}

// A heading is one line, so a break inside it is a space.
void PageTextScanner::owe(int breaks) {
    if (headingTextStart_) {
        pendingSpace_ = true;
    } else {
        pendingBreak_ = std::max(pendingBreak_, breaks);
    }
}

// --- Tags (WHATWG HTML, "Tokenization") ---

void PageTextScanner::tag() {
    const char next = peek(1);
    if (isAsciiLetter(next)) {
        startTag();
    } else if (next == '/' && isAsciiLetter(peek(2))) {
        endTag();
    } else if (next == '!') {
        if (b_.substr(i_).starts_with("<!--")) {
            comment();
        } else if (asciiEqualsIgnoringCase(b_.substr(i_, 9), "<![cdata[")) {
            cdata();
        } else {
            skipTo('>');
            ++i_;
        }
    } else if (next == '?' || (next == '/' && i_ + 2 < b_.size())) {
        skipTo('>');
        ++i_;
    } else {
        if (!isSkipping()) literal("<");
        ++i_;
    }
}

void PageTextScanner::skipTo(char c) {
    i_ = std::min(b_.find(c, i_), b_.size());
}

void PageTextScanner::comment() {
    i_ += 4;
    if (peek(0) == '>') {
        i_ += 1;
    } else if (peek(0) == '-' && peek(1) == '>') {
        i_ += 2;
    } else {
        while (true) {
            const std::size_t dashes = b_.find("--", i_);
            if (dashes == std::string_view::npos) {
                i_ = b_.size();
                return;
            }
            i_ = dashes + 2;
            if (peek(0) == '>' || (peek(0) == '!' && peek(1) == '>')) {
                i_ += peek(0) == '>' ? 1U : 2U;
                return;
            }
            --i_;  // "--->" ends a comment too
        }
    }
}

void PageTextScanner::cdata() {
    const std::size_t end = noCdataEnd_ ? std::string_view::npos : b_.find("]]>", i_);
    if (end != std::string_view::npos) {
        i_ = end + 3;
    } else {
        noCdataEnd_ = true;
        skipTo('>');
        ++i_;
    }
}

void PageTextScanner::readName() {
    name_.clear();
    while (i_ < b_.size() && !isSpace(b_[i_]) && b_[i_] != '/' && b_[i_] != '>') name_ += lowered(b_[i_++]);
}

// Reads up to and with the ">"; false if the page ends inside the tag.
bool PageTextScanner::readAttributes(StartTag& tag) {
    while (i_ < b_.size()) {
        if (isSpace(b_[i_])) {
            ++i_;
        } else if (b_[i_] == '>') {
            ++i_;
            return true;
        } else if (b_[i_] == '/') {
            ++i_;
            tag.selfClosing = peek(0) == '>';
        } else {
            const std::size_t nameStart = i_++;  // an "=" may begin a name
            while (i_ < b_.size() && !isSpace(b_[i_]) && b_[i_] != '/' && b_[i_] != '>' && b_[i_] != '=')
                ++i_;
            const std::string_view name = b_.substr(nameStart, i_ - nameStart);
            while (i_ < b_.size() && isSpace(b_[i_])) ++i_;
            std::string_view value;
            if (peek(0) == '=') {
                ++i_;
                while (i_ < b_.size() && isSpace(b_[i_])) ++i_;
                const std::size_t start = i_;
                if (const char quote = peek(0); quote == '"' || quote == '\'') {
                    ++i_;
                    skipTo(quote);
                    if (i_ == b_.size()) return false;
                    value = b_.substr(start + 1, i_ - start - 1);
                    ++i_;
                } else {
                    while (i_ < b_.size() && !isSpace(b_[i_]) && b_[i_] != '>') ++i_;
                    value = b_.substr(start, i_ - start);
                }
            }
            record(tag, name, value);
        }
    }
    return false;
}

void PageTextScanner::record(StartTag& tag, std::string_view name, std::string_view value) {
    auto keep = [&](std::string_view wanted, std::optional<std::string_view>& field) {
        if (!field && asciiEqualsIgnoringCase(name, wanted)) field = value;
    };
    switch (name.size()) {
        case 3:
            keep("alt", tag.alt);
            break;
        case 4:
            keep("open", tag.open);
            break;
        case 5:
            keep("style", tag.style);
            break;
        case 6:
            keep("hidden", tag.hidden);
            break;
        default:
            break;
    }
}

void PageTextScanner::startTag() {
    ++i_;
    readName();
    StartTag tag;
    if (!readAttributes(tag)) {
        i_ = b_.size();
        return;
    }
    const PageElement* element = findElement(name_);
    const Kind kind = element ? element->kind : Kind::other;
    const bool isVoidElement = element && (element->flags & isVoid);

    if (!skipName_.empty() && skipsStart(element, tag)) return;
    if (svgDepth_ > 0) {
        if (!element || !(element->flags & leavesForeign)) {
            if (kind == Kind::foreign && !tag.selfClosing) ++svgDepth_;
            if (kind == Kind::raw && !tag.selfClosing) skipRawText();
            return;
        }
        svgDepth_ = 0;
    }
    if (kind == Kind::raw || (kind == Kind::noscript && scriptingEnabled_)) return skipRawText();
    if (kind == Kind::title) return title();

    const bool hidden = kind == Kind::templateElement || (kind == Kind::dialog && !tag.open) || isHidden(tag);
    if (kind == Kind::textarea) return textarea(!hidden);
    if (hidden) {
        if (isVoidElement || (kind == Kind::foreign && tag.selfClosing)) return;
        skipName_ = name_;
        skipCount_ = 1;
        skipScopes_ = 0;
        if (kind == Kind::plaintext) i_ = b_.size();
        return;
    }
    if (kind == Kind::foreign) {
        if (!tag.selfClosing) svgDepth_ = 1;
        return;
    }
    if (element) layOutStart(*element, tag);
}

void PageTextScanner::endTag() {
    i_ += 2;
    readName();
    StartTag ignored;
    if (!readAttributes(ignored)) {
        i_ = b_.size();
        return;
    }
    const PageElement* element = findElement(name_);
    if (!skipName_.empty() && skipsEnd()) return;
    if (svgDepth_ > 0) {
        if (element && element->kind == Kind::foreign) --svgDepth_;
        return;
    }
    if (element) layOutEnd(*element);
}

bool PageTextScanner::skipsStart(const PageElement* element, const StartTag& tag) {
    if (const OptionalEnd* optional = findOptionalEnd(skipName_)) {
        if (skipScopes_ == 0 && hasWord(optional->startedBy, name_)) {
            skipName_.clear();
            return false;
        }
        if (hasWord(optional->containers, name_)) ++skipScopes_;
    } else if (name_ == skipName_ && !(element && element->kind == Kind::foreign && tag.selfClosing)) {
        ++skipCount_;
    }
    // What looks like a tag inside a script is none.
    if (element && (element->kind == Kind::raw || element->kind == Kind::textarea) && !tag.selfClosing)
        skipRawText();
    if (element && element->kind == Kind::plaintext) i_ = b_.size();
    return true;
}

bool PageTextScanner::skipsEnd() {
    if (const OptionalEnd* optional = findOptionalEnd(skipName_)) {
        const bool ofContainer = hasWord(optional->containers, name_);
        if (skipScopes_ > 0) {
            if (ofContainer) --skipScopes_;
            return true;
        }
        if (name_ == skipName_) {
            skipName_.clear();
            return true;
        }
        if (!ofContainer && !hasWord(optional->closedBy, name_)) return true;
        skipName_.clear();
        return false;
    }
    if (name_ == skipName_ && --skipCount_ == 0) skipName_.clear();
    return true;
}

// Where the "</" of the end tag stands, in any case of letters; npos if there is none.
std::size_t PageTextScanner::findEndTag(std::string_view name, std::size_t from) const {
    while (true) {
        const std::size_t at = b_.find('<', from);
        if (at == std::string_view::npos) return at;
        from = at + 1;
        const std::size_t end = at + 2 + name.size();
        if (end >= b_.size() || b_[at + 1] != '/') continue;
        if (!isSpace(b_[end]) && b_[end] != '/' && b_[end] != '>') continue;
        if (asciiEqualsIgnoringCase(b_.substr(at + 2, name.size()), name)) return at;
    }
}

// Past the end tag of the element whose start tag was just read; without one to the page's end.
void PageTextScanner::skipRawText() {
    i_ = std::min(findEndTag(name_, i_), b_.size());
    skipTo('>');
    if (i_ < b_.size()) ++i_;
}

void PageTextScanner::title() {
    std::size_t end = noTitleEnd_ ? std::string_view::npos : findEndTag("title", i_);
    if (end == std::string_view::npos) {
        // Cut off or never closed: up to the next tag, so that the page is not lost to its title.
        noTitleEnd_ = true;
        end = std::min(b_.find('<', i_), b_.size());
    }
    if (!result_.title) {
        const std::string text = HTMLEntities::decode(b_.substr(i_, end - i_), /*inAttribute=*/false);
        const std::string title = join(splitWords(text, " \t\n\f\r"), " ");
        if (!title.empty()) result_.title = title;
    }
    i_ = end;
}

void PageTextScanner::textarea(bool shown) {
    const std::size_t end = std::min(findEndTag("textarea", i_), b_.size());
    if (shown) {
        owe(1);
        collapsed(HTMLEntities::decode(b_.substr(i_, end - i_), /*inAttribute=*/false));
        owe(1);
    }
    i_ = end;
    skipTo('>');
    if (i_ < b_.size()) ++i_;
}

bool PageTextScanner::isHidden(const StartTag& tag) {
    if (tag.hidden && !asciiEqualsIgnoringCase(*tag.hidden, "until-found")) return true;
    if (!tag.style || tag.style->empty()) return false;
    scratch_.clear();
    for (char c : *tag.style) {
        if (!isSpace(c)) scratch_ += lowered(c);
    }
    const std::string_view style = scratch_;
    return style.find("display:none") != std::string_view::npos ||
           style.find("visibility:hidden") != std::string_view::npos;
}

// --- Layout ---

void PageTextScanner::layOutStart(const PageElement& element, const StartTag& tag) {
    const bool isBlockLevel =
        element.kind != Kind::other && element.kind != Kind::br && element.kind != Kind::image;
    // A heading that nothing closed ends where the next block begins; a table's parts never stand in one.
    const bool isTablePart = element.kind == Kind::cell || element.kind == Kind::row;
    if (isBlockLevel && (headingTextStart_ || isTablePart) && !(element.flags & staysInHeading))
        closeHeading();
    switch (element.kind) {
        case Kind::br:
            owe(1);
            break;
        case Kind::hr:
            owe(2);
            break;
        case Kind::heading:
            openHeading(element.level);
            break;
        case Kind::item:
            owe(1);
            pendingItem_ = headingLevel_ == 0;
            break;
        case Kind::list:
            owe(listDepth_ == 0 ? 2 : 1);
            ++listDepth_;
            break;
        case Kind::cell:
            separateCell();
            break;
        case Kind::row:
            owe(1);
            cellInRow_ = false;
            break;
        case Kind::definition:
        case Kind::line:
            owe(1);
            break;
        case Kind::pre:
            openPre();
            break;
        case Kind::block:
        case Kind::dialog:
            owe(2);
            break;
        case Kind::table:
            owe(2);
            cellInRow_ = false;
            break;
        case Kind::image:
            if (tag.alt) collapsed(HTMLEntities::decode(*tag.alt, /*inAttribute=*/true));
            break;
        case Kind::plaintext:
            owe(2);
            preformatted(b_.substr(i_));
            i_ = b_.size();
            break;
        case Kind::other:
        case Kind::foreign:
        case Kind::noscript:
        case Kind::raw:
        case Kind::templateElement:
        case Kind::textarea:
        case Kind::title:
            break;
    }
}

void PageTextScanner::layOutEnd(const PageElement& element) {
    switch (element.kind) {
        case Kind::heading:
            closeHeading();
            owe(2);
            break;
        case Kind::br:
            owe(1);
            break;  // "</br>" is read as "<br>"
        case Kind::item:
            owe(1);
            pendingItem_ = false;
            break;
        case Kind::list:
            if (listDepth_ > 0) --listDepth_;
            owe(listDepth_ == 0 ? 2 : 1);
            pendingItem_ = false;
            break;
        case Kind::row:
            owe(1);
            cellInRow_ = false;
            break;
        case Kind::definition:
        case Kind::line:
            owe(1);
            break;
        case Kind::pre:
            if (preDepth_ > 0) --preDepth_;
            owe(2);
            break;
        case Kind::block:
        case Kind::dialog:
            owe(2);
            break;
        case Kind::table:
            owe(2);
            cellInRow_ = true;  // of the row around, if the table stood in a cell; else the next row says
            break;
        case Kind::cell:
        case Kind::hr:
        case Kind::image:
        case Kind::other:
        case Kind::foreign:
        case Kind::noscript:
        case Kind::plaintext:
        case Kind::raw:
        case Kind::templateElement:
        case Kind::textarea:
        case Kind::title:
            break;
    }
}

void PageTextScanner::openPre() {
    owe(2);
    ++preDepth_;
    if (peek(0) == '\r' && peek(1) == '\n') {
        i_ += 2;
    } else if (peek(0) == '\n') {
        ++i_;
    }
}

void PageTextScanner::separateCell() {
    if (cellInRow_) {
        pendingSpace_ = false;
        flush();
        out_ += atLineStart_ ? "| " : " | ";
        atLineStart_ = false;
    }
    cellInRow_ = true;
}

void PageTextScanner::openHeading(int level) {
    closeHeading();
    owe(2);
    headingLevel_ = level;
}

void PageTextScanner::closeHeading() {
    if (headingTextStart_) {
        const std::string_view text = trim(std::string_view(out_).substr(*headingTextStart_));
        if (text.empty()) {
            out_.resize(headingLines_.back());
            headingLines_.pop_back();
        } else {
            result_.headings.push_back({headingLevel_, std::string(text)});
        }
        headingTextStart_.reset();
        pendingSpace_ = false;
        pendingBreak_ = 2;
        atLineStart_ = out_.empty();
    }
    headingLevel_ = 0;
}

std::string PageTextScanner::finishedText() const {
    std::string text;
    text.reserve(out_.size() + out_.size() / 64);
    std::size_t nextHeading = 0;
    for (std::size_t start = 0; start < out_.size();) {
        const std::size_t end = std::min(out_.find('\n', start), out_.size());
        const bool isHeading = nextHeading < headingLines_.size() && headingLines_[nextHeading] == start;
        if (isHeading) ++nextHeading;
        wrap(withoutTrailingSpaces(std::string_view(out_).substr(start, end - start)), isHeading, text);
        start = end + 1;
    }
    while (!text.empty() && text.back() == '\n') text.pop_back();
    return text;
}

}  // namespace vesk
