// Counts whole words of a query in folded text: a word also stands for its plain English plural. Immutable;
// any thread.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace vesk {

/// Finds what the expression (?<![\p{L}\p{N}])word(?:e?s)?(?![\p{L}\p{N}]) finds in text folded by case and
/// diacritics, by plain search and a look at both edges, in linear time.
class WordMatcher {
public:
    explicit WordMatcher(std::string_view word);

    /// `folded` went through caseAndDiacriticFolded().
    std::size_t count(std::string_view folded) const;
    bool occursIn(std::string_view folded) const;
    /// Anywhere in the text, also inside a word.
    bool isPartOf(std::string_view folded) const {
        return !word_.empty() && folded.find(word_) != folded.npos;
    }
    /// A word that folds to nothing never matches.
    bool empty() const { return word_.empty(); }

    static std::vector<WordMatcher> all(const std::vector<std::string>& words);

private:
    /// The end of the first match at or after `from`, which is moved to its start; npos if there is none.
    std::size_t find(std::string_view folded, std::size_t& from) const;

    std::string word_;
};

}  // namespace vesk
