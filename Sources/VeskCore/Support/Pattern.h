// Regular expressions with ICU's syntax and semantics, on UTF-16 text. A pattern compiles once and may be
// shared between threads; each call makes a matcher of its own, bounded in time against catastrophic
// backtracking.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "VeskCore/Support/TextRange.h"

namespace vesk {

class Pattern {
public:
    enum class Case { sensitive, insensitive };

    /// `expression` is ICU syntax, fixed in the code: one that does not compile ends the process. For text
    /// that a user typed, use `compile`.
    explicit Pattern(std::string_view expression, Case caseMode = Case::sensitive, bool multiline = false);
    /// None if the expression does not compile.
    static std::optional<Pattern> compile(std::string_view expression, Case caseMode = Case::sensitive,
                                          bool multiline = false);
    /// Why an expression that a user typed does not compile, as a part of a sentence; none if it does.
    static std::optional<std::string> fault(std::string_view expression);
    ~Pattern();
    Pattern(const Pattern&);
    Pattern(Pattern&&) noexcept;
    Pattern& operator=(const Pattern&);
    Pattern& operator=(Pattern&&) noexcept;

    struct Match {
        /// Group 0 is the whole match; a group that took no part is none. UTF-16 units.
        std::vector<std::optional<TextRange>> groups;
        TextRange range() const { return *groups.front(); }
    };

    /// The matches from left to right, not overlapping, inside `range` or the whole text. With a range,
    /// anchors and look-arounds see the text outside it. Reaching the time limit ends the list.
    std::vector<Match> matches(std::u16string_view text, std::optional<TextRange> range = {}) const;
    std::optional<Match> firstMatch(std::u16string_view text, std::optional<TextRange> range = {}) const;
    std::size_t matchCount(std::u16string_view text) const;
    struct Found {
        std::vector<Match> matches;
        bool complete = true;  ///< false when the time limit ended the list
    };
    Found allMatches(std::u16string_view text, std::optional<TextRange> range = {}) const;

    std::size_t groupCount() const;
    /// The number of a named group.
    std::optional<std::size_t> groupNamed(std::string_view name) const;

    // The same on UTF-8, for callers that only ask whether, or for the text of a group.
    bool occursIn(std::string_view text) const;
    /// The texts of the groups of the first match, group 0 first; absent groups are empty.
    std::optional<std::vector<std::string>> firstGroups(std::string_view text) const;
    /// Every match replaced; `replacement` has ICU's "$1". The text as it stands if it names an absent group.
    std::string replacingAll(std::string_view text, std::string_view replacement) const;

    /// `text` so escaped that it matches itself.
    static std::string escaped(std::string_view text);

private:
    struct Compiled;
    explicit Pattern(std::shared_ptr<const Compiled> compiled);
    std::shared_ptr<const Compiled> compiled_;
};

}  // namespace vesk
