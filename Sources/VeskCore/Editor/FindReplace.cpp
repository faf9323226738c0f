#include "VeskCore/Editor/FindReplace.h"

#include <algorithm>
#include <utility>

#include "VeskCore/Editor/EditorLines.h"
#include "VeskCore/Support/Pattern.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"

namespace vesk {

using EditorLines::piece;

struct Finder::Search {
    Query query;
    std::optional<Pattern> expression;

    Pattern::Found matches(std::u16string_view text, std::optional<TextRange> within) const;
};

namespace {

constexpr std::string_view wordSet = R"([\p{L}\p{M}\p{N}\p{Pc}\p{Join_Control}])";

Pattern compiled(const Finder::Query& query) {
    const std::string typed = utf8(query.text);
    const auto fault = Pattern::fault(typed);
    std::string expression = typed;
    if (query.wholeWords)
        expression = "(?<!" + std::string(wordSet) + ")(?:" + typed + ")(?!" + std::string(wordSet) + ")";
    auto pattern =
        fault ? std::nullopt
              : Pattern::compile(expression,
                                 query.matchesCase ? Pattern::Case::sensitive : Pattern::Case::insensitive,
                                 /*multiline=*/true);
    if (!pattern) {
        throw InvalidExpression(
            "This expression can't be read: " + fault.value_or("it is no regular expression") + ".");
    }
    return *std::move(pattern);
}

bool isHighSurrogate(char16_t unit) {
    return unit >= 0xD800 && unit <= 0xDBFF;
}
bool isLowSurrogate(char16_t unit) {
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

char32_t codePointFrom(std::u16string_view text, std::size_t at) {
    const char16_t unit = text[at];
    if (!isHighSurrogate(unit) || at + 1 == text.size() || !isLowSurrogate(text[at + 1])) return unit;
    return 0x10000 + ((char32_t{unit} - 0xD800) << 10) + (char32_t{text[at + 1]} - 0xDC00);
}

char32_t codePointBefore(std::u16string_view text, std::size_t at) {
    if (at >= 2 && isLowSurrogate(text[at - 1]) && isHighSurrogate(text[at - 2]))
        return codePointFrom(text, at - 2);
    return text[at - 1];
}

/// True where the place lies between two characters.
bool isBetweenCharacters(std::u16string_view text, std::size_t at) {
    if (at == 0 || at >= text.size()) return true;
    if (isHighSurrogate(text[at - 1]) && isLowSurrogate(text[at])) return false;
    if (text[at - 1] == u'\r' && text[at] == u'\n') return false;
    return !joinsCharacterBefore(codePointFrom(text, at));
}

/// True where a word neither goes on behind the place nor reached it from before.
bool isWordEdge(std::u16string_view text, std::size_t at) {
    return at == 0 || at >= text.size() || !isWordCharacter(codePointBefore(text, at)) ||
           !isWordCharacter(codePointFrom(text, at));
}

/// What a replacement is made of: text as it stands and groups of the match.
struct TemplatePiece {
    std::u16string text;
    std::optional<std::size_t> group;
};

class TemplateReader {
public:
    TemplateReader(std::u16string_view source, const Pattern& pattern)
        : source_(source), pattern_(pattern), groups_(pattern.groupCount()) {}

    std::vector<TemplatePiece> read() {
        while (at_ < source_.size()) {
            const char16_t unit = source_[at_++];
            if (unit == u'\\' && at_ < source_.size()) {
                escape(source_[at_++]);
            } else if (unit == u'$' && at_ < source_.size() && isDigit(source_[at_])) {
                number();
            } else if (unit == u'$' && at_ < source_.size() && source_[at_] == u'{') {
                name();
            } else {
                literal(unit);
            }
        }
        return std::move(pieces_);
    }

private:
    static bool isDigit(char16_t unit) { return unit >= u'0' && unit <= u'9'; }

    void literal(char16_t unit) {
        if (pieces_.empty() || pieces_.back().group) pieces_.emplace_back();
        pieces_.back().text += unit;
    }
    void group(std::size_t number) { pieces_.push_back({{}, number}); }
    void escape(char16_t unit) {
        if (unit == u'n') return literal(u'\n');
        if (unit == u't') return literal(u'\t');
        // Of what else follows a backslash only "$" and the backslash itself lose it.
        if (unit != u'$' && unit != u'\\') literal(u'\\');
        literal(unit);
    }
    /// As many digits as name a group: "$12" is group 1 and a "2" where there is no twelfth.
    void number() {
        std::size_t number = static_cast<std::size_t>(source_[at_++] - u'0');
        if (number > groups_) {
            throw InvalidExpression("The replacement names group " + std::to_string(number) +
                                    ", which the expression doesn't have.");
        }
        while (at_ < source_.size() && isDigit(source_[at_])) {
            const std::size_t longer = number * 10 + static_cast<std::size_t>(source_[at_] - u'0');
            if (longer > groups_) break;
            number = longer;
            ++at_;
        }
        group(number);
    }
    void name() {
        const std::size_t close = source_.find(u'}', at_);
        if (close == source_.npos) return literal(u'$');
        const std::string name = utf8(source_.substr(at_ + 1, close - at_ - 1));
        const auto number = pattern_.groupNamed(name);
        if (!number) {
            throw InvalidExpression("The replacement names group “" + name +
                                    "”, which the expression doesn't have.");
        }
        group(*number);
        at_ = close + 1;
    }

    std::u16string_view source_;
    const Pattern& pattern_;
    std::size_t groups_;
    std::size_t at_ = 0;
    std::vector<TemplatePiece> pieces_;
};

/// The case of what was found, passed on: all capitals, or a capital at the start.
std::u16string withCaseOf(std::u16string_view found, std::u16string replacement) {
    const std::string bytes = utf8(found);
    const std::string lower = lowercased(bytes), upper = uppercased(bytes);
    if (lower == upper || bytes == lower || replacement.empty()) return replacement;
    std::size_t first = 0;
    nextCodePoint(bytes, first);
    const bool single = first == bytes.size();
    if (bytes == upper && !single) return utf16(uppercased(utf8(replacement)));
    if (bytes.substr(0, first) == lowercased(bytes.substr(0, first))) return replacement;
    const std::size_t length = isHighSurrogate(replacement.front()) && replacement.size() > 1 ? 2 : 1;
    return utf16(uppercased(utf8(replacement.substr(0, length)))) + replacement.substr(length);
}

/// Makes the replacement of one match after another.
class Replacer {
public:
    Replacer(const Finder::Replacement& replacement, const std::optional<Pattern>& expression)
        : keepsCase_(replacement.keepsCase) {
        if (expression) {
            pieces_ = TemplateReader(replacement.text, *expression).read();
        } else {
            pieces_.push_back({replacement.text, std::nullopt});
        }
    }

    std::u16string operator()(std::u16string_view text, const Pattern::Match& match) const {
        std::u16string result;
        for (const TemplatePiece& one : pieces_) {
            if (!one.group) {
                result += one.text;
            } else if (*one.group < match.groups.size() && match.groups[*one.group]) {
                result += piece(text, *match.groups[*one.group]);
            }
        }
        return keepsCase_ ? withCaseOf(piece(text, match.range()), std::move(result)) : result;
    }

private:
    std::vector<TemplatePiece> pieces_;
    bool keepsCase_;
};

}  // namespace

Pattern::Found Finder::Search::matches(std::u16string_view text, std::optional<TextRange> within) const {
    if (within) within = EditorLines::clipped(*within, text);
    if (query.text.empty()) return {};
    if (expression) return expression->allMatches(text, within);
    const TextRange limits = within.value_or(TextRange{0, text.size()});
    const std::vector<TextRange> places =
        query.matchesCase ? occurrences(text, query.text) : CaselessHaystack(text).all(query.text);
    Pattern::Found found;
    std::size_t reached = limits.location;
    for (const TextRange& place : places) {
        if (place.location < reached || place.end() > limits.end()) continue;
        if (!isBetweenCharacters(text, place.location) || !isBetweenCharacters(text, place.end())) continue;
        if (query.wholeWords && !(isWordEdge(text, place.location) && isWordEdge(text, place.end())))
            continue;
        found.matches.push_back({{place}});
        reached = place.end();
    }
    return found;
}

Finder::Finder(Query query) {
    auto search = std::make_shared<Search>();
    if (query.isExpression && !query.text.empty()) search->expression = compiled(query);
    search->query = std::move(query);
    search_ = std::move(search);
}

Finder::~Finder() = default;
Finder::Finder(const Finder&) = default;
Finder::Finder(Finder&&) noexcept = default;
Finder& Finder::operator=(const Finder&) = default;
Finder& Finder::operator=(Finder&&) noexcept = default;

const Finder::Query& Finder::query() const {
    return search_->query;
}

Finder::Found Finder::all(std::u16string_view text, std::optional<TextRange> within) const {
    const Pattern::Found matches = search_->matches(text, within);
    Found found{{}, matches.complete};
    found.ranges.reserve(matches.matches.size());
    for (const Pattern::Match& match : matches.matches) found.ranges.push_back(match.range());
    return found;
}

std::optional<Finder::Step> Finder::next(std::u16string_view text, TextRange selection,
                                         std::optional<TextRange> within) const {
    const Found found = all(text, within);
    if (found.ranges.empty()) return std::nullopt;
    const auto behind = std::find_if(found.ranges.begin(), found.ranges.end(), [&](const TextRange& range) {
        // An empty match at the caret is where the search stands already.
        return range.location >= selection.end() && range != selection;
    });
    if (behind == found.ranges.end()) return Step{found.ranges.front(), true};
    return Step{*behind, false};
}

std::optional<Finder::Step> Finder::previous(std::u16string_view text, TextRange selection,
                                             std::optional<TextRange> within) const {
    const Found found = all(text, within);
    if (found.ranges.empty()) return std::nullopt;
    const auto before = std::find_if(found.ranges.rbegin(), found.ranges.rend(), [&](const TextRange& range) {
        return range.end() <= selection.location && range != selection;
    });
    if (before == found.ranges.rend()) return Step{found.ranges.back(), true};
    return Step{*before, false};
}

std::optional<TextEdit> Finder::replaceOne(std::u16string_view text, TextRange selection,
                                           const Replacement& replacement,
                                           std::optional<TextRange> within) const {
    const Replacer replacer(replacement, search_->expression);
    const Pattern::Found found = search_->matches(text, within);
    if (found.matches.empty()) return std::nullopt;
    const auto match = std::find_if(found.matches.begin(), found.matches.end(),
                                    [&](const Pattern::Match& one) { return one.range() == selection; });
    if (match == found.matches.end()) {
        const auto step = next(text, {selection.location, 0}, within);
        return TextEdit{{step->range.location, 0}, {}, step->range};
    }
    TextEdit edit{selection, replacer(text, *match), {}};
    const TextRange written{selection.location, edit.replacement.size()};
    if (within) {
        const TextRange limits = EditorLines::clipped(*within, text);
        within = TextRange{limits.location, limits.length + written.length - selection.length};
    }
    // What was put in is not searched again unless nothing else is left.
    const auto step = next(edit.applied(text), written, within);
    edit.selection = step ? step->range : TextRange{written.end(), 0};
    return edit;
}

std::optional<Finder::AllReplaced> Finder::replaceAll(std::u16string_view text, TextRange selection,
                                                      const Replacement& replacement,
                                                      std::optional<TextRange> within) const {
    const Replacer replacer(replacement, search_->expression);
    const Pattern::Found found = search_->matches(text, within);
    if (found.matches.empty()) return std::nullopt;
    TextDraft draft(text, selection);
    std::vector<TextDraft::Replacement> pieces;
    pieces.reserve(found.matches.size());
    for (const Pattern::Match& match : found.matches)
        pieces.push_back({match.range(), replacer(text, match)});
    draft.replace(pieces, /*startGoesBehind=*/selection.empty());
    const TextRange stays = draft.selection();
    return AllReplaced{draft.finish().value_or(TextEdit{{stays.location, 0}, {}, stays}), pieces.size(),
                       found.complete};
}

}  // namespace vesk
