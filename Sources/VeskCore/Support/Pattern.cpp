#include "VeskCore/Support/Pattern.h"

#include <unicode/regex.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <limits>
#include <utility>

#include "VeskCore/Support/Ensure.h"
#include "VeskCore/Support/Unicode.h"

namespace vesk {

struct Pattern::Compiled {
    std::unique_ptr<icu::RegexPattern> pattern;
};

namespace {

// ICU's unit is ten thousand saved states, well below a millisecond. The share that grows with the text lets
// an honest expression finish on a long one.
constexpr std::int32_t baseTimeLimit = 1000;
constexpr std::size_t textUnitsPerTimeUnit = 500;
constexpr std::int32_t maxStackBytes = 64 * 1024 * 1024;

bool fitsIcu(std::u16string_view text) {
    return text.size() <= std::size_t{std::numeric_limits<std::int32_t>::max()} / 2;
}

/// One run over one text, which it borrows.
class Run {
public:
    Run(const icu::RegexPattern& pattern, std::u16string_view text, std::optional<TextRange> range = {})
        : input_(false, text.data(), static_cast<std::int32_t>(fitsIcu(text) ? text.size() : 0)),
          matcher_(pattern.matcher(input_, status_)) {
        if (!fitsIcu(text)) status_ = U_BUFFER_OVERFLOW_ERROR;
        if (U_FAILURE(status_)) return;
        matcher_->setTimeLimit(baseTimeLimit + static_cast<std::int32_t>(text.size() / textUnitsPerTimeUnit),
                               status_);
        matcher_->setStackLimit(maxStackBytes, status_);
        if (!range) return;
        const std::size_t start = std::min(range->location, text.size());
        const std::size_t length = std::min(range->length, text.size() - start);
        matcher_->useTransparentBounds(true);
        matcher_->useAnchoringBounds(false);
        matcher_->region(static_cast<std::int64_t>(start), static_cast<std::int64_t>(start + length),
                         status_);
    }

    /// Moves to the next match; false at the end and when a limit is reached.
    bool find() { return U_SUCCESS(status_) && matcher_->find(status_) != 0 && U_SUCCESS(status_); }
    bool reachedALimit() const { return U_FAILURE(status_); }

    Pattern::Match match() {
        Pattern::Match found;
        const std::int32_t groups = matcher_->groupCount();
        found.groups.reserve(static_cast<std::size_t>(groups) + 1);
        for (std::int32_t group = 0; group <= groups; ++group) {
            UErrorCode status = U_ZERO_ERROR;
            const std::int64_t start = matcher_->start64(group, status);
            const std::int64_t end = matcher_->end64(group, status);
            if (U_FAILURE(status) || start < 0) {
                found.groups.emplace_back();
            } else {
                found.groups.emplace_back(
                    TextRange{static_cast<std::size_t>(start), static_cast<std::size_t>(end - start)});
            }
        }
        return found;
    }

    /// The text with this and every further match replaced; none if the replacement names a group that is not
    /// there.
    std::optional<icu::UnicodeString> replaceFromHere(const icu::UnicodeString& replacement) {
        icu::UnicodeString result;
        do {
            UErrorCode status = U_ZERO_ERROR;
            matcher_->appendReplacement(result, replacement, status);
            if (U_FAILURE(status)) return std::nullopt;
        } while (find());
        matcher_->appendTail(result);
        return result;
    }

private:
    UErrorCode status_ = U_ZERO_ERROR;
    icu::UnicodeString input_;  // aliases the text
    std::unique_ptr<icu::RegexMatcher> matcher_;
};

icu::UnicodeString unicodeString(std::string_view text) {
    const std::u16string units = utf16(text);
    return {units.data(), static_cast<std::int32_t>(units.size())};
}

}  // namespace

Pattern::Pattern(std::string_view expression, Case caseMode, bool multiline) {
    std::optional<Pattern> compiled = compile(expression, caseMode, multiline);
    VESK_ENSURE(compiled.has_value());
    compiled_ = std::move(compiled->compiled_);
}

Pattern::Pattern(std::shared_ptr<const Compiled> compiled) : compiled_(std::move(compiled)) {}

std::optional<Pattern> Pattern::compile(std::string_view expression, Case caseMode, bool multiline) {
    std::uint32_t flags = 0;
    if (caseMode == Case::insensitive) flags |= UREGEX_CASE_INSENSITIVE;
    if (multiline) flags |= UREGEX_MULTILINE;
    UParseError where;
    UErrorCode status = U_ZERO_ERROR;
    auto compiled = std::make_shared<Compiled>();
    compiled->pattern.reset(icu::RegexPattern::compile(unicodeString(expression), flags, where, status));
    if (U_FAILURE(status) || !compiled->pattern) return std::nullopt;
    return Pattern(std::shared_ptr<const Compiled>(std::move(compiled)));
}

std::optional<std::string> Pattern::fault(std::string_view expression) {
    UParseError where;
    UErrorCode status = U_ZERO_ERROR;
    const std::unique_ptr<icu::RegexPattern> compiled(
        icu::RegexPattern::compile(unicodeString(expression), 0, where, status));
    if (U_SUCCESS(status)) return std::nullopt;
    const auto words = [&]() -> std::string {
        switch (static_cast<int>(status)) {
            case U_REGEX_MISMATCHED_PAREN:
                return "a parenthesis has no partner";
            case U_REGEX_MISSING_CLOSE_BRACKET:
                return "a “[” isn't closed";
            case U_REGEX_BAD_ESCAPE_SEQUENCE:
                return "a “\\” stands before something it has no meaning with";
            case U_REGEX_RULE_SYNTAX:
                return "a sign stands where it has no meaning";
            case U_REGEX_BAD_INTERVAL:
                return "there is no count between “{” and “}”";
            case U_REGEX_MAX_LT_MIN:
            case U_REGEX_INVALID_RANGE:
                return "a range runs backwards";
            case U_REGEX_INVALID_BACK_REF:
                return "it refers to a group that isn't there";
            case U_REGEX_LOOK_BEHIND_LIMIT:
                return "what it looks back for may be of any length";
            case U_REGEX_PROPERTY_SYNTAX:
                return "a property's name isn't known";
            default:
                return "it is no regular expression";
        }
    }();
    return where.offset > 0 ? words + " (character " + std::to_string(where.offset) + ")" : words;
}

Pattern::~Pattern() = default;
Pattern::Pattern(const Pattern&) = default;
Pattern::Pattern(Pattern&&) noexcept = default;
Pattern& Pattern::operator=(const Pattern&) = default;
Pattern& Pattern::operator=(Pattern&&) noexcept = default;

std::vector<Pattern::Match> Pattern::matches(std::u16string_view text, std::optional<TextRange> range) const {
    std::vector<Match> found;
    Run run(*compiled_->pattern, text, range);
    while (run.find()) found.push_back(run.match());
    return found;
}

std::optional<Pattern::Match> Pattern::firstMatch(std::u16string_view text,
                                                  std::optional<TextRange> range) const {
    Run run(*compiled_->pattern, text, range);
    if (!run.find()) return std::nullopt;
    return run.match();
}

std::size_t Pattern::matchCount(std::u16string_view text) const {
    std::size_t count = 0;
    Run run(*compiled_->pattern, text);
    while (run.find()) ++count;
    return count;
}

Pattern::Found Pattern::allMatches(std::u16string_view text, std::optional<TextRange> range) const {
    Found found;
    Run run(*compiled_->pattern, text, range);
    while (run.find()) found.matches.push_back(run.match());
    found.complete = !run.reachedALimit();
    return found;
}

std::size_t Pattern::groupCount() const {
    UErrorCode status = U_ZERO_ERROR;
    const std::unique_ptr<icu::RegexMatcher> matcher(compiled_->pattern->matcher(status));
    return matcher && U_SUCCESS(status) ? static_cast<std::size_t>(matcher->groupCount()) : 0;
}

std::optional<std::size_t> Pattern::groupNamed(std::string_view name) const {
    UErrorCode status = U_ZERO_ERROR;
    const std::int32_t number = compiled_->pattern->groupNumberFromName(unicodeString(name), status);
    if (U_FAILURE(status) || number <= 0) return std::nullopt;
    return static_cast<std::size_t>(number);
}

bool Pattern::occursIn(std::string_view text) const {
    const std::u16string units = utf16(text);
    return Run(*compiled_->pattern, units).find();
}

std::optional<std::vector<std::string>> Pattern::firstGroups(std::string_view text) const {
    const std::u16string units = utf16(text);
    const std::optional<Match> match = firstMatch(units);
    if (!match) return std::nullopt;
    std::vector<std::string> texts;
    texts.reserve(match->groups.size());
    for (const std::optional<TextRange>& group : match->groups) {
        texts.push_back(group ? utf8(std::u16string_view(units).substr(group->location, group->length))
                              : std::string());
    }
    return texts;
}

std::string Pattern::replacingAll(std::string_view text, std::string_view replacement) const {
    const std::u16string units = utf16(text);
    Run run(*compiled_->pattern, units);
    if (!run.find()) return std::string(text);
    const std::optional<icu::UnicodeString> replaced = run.replaceFromHere(unicodeString(replacement));
    if (!replaced) return std::string(text);
    return utf8({replaced->getBuffer(), static_cast<std::size_t>(replaced->length())});
}

std::string Pattern::escaped(std::string_view text) {
    static constexpr std::string_view special = "\\*?+[](){}^$|./-&#~";
    std::string expression;
    expression.reserve(text.size());
    for (const char c : text) {
        if (special.find(c) != std::string_view::npos) expression.push_back('\\');
        expression.push_back(c);
    }
    return expression;
}

}  // namespace vesk
