// Finding and replacing in the editor. A Finder holds one compiled search; it never changes a text itself,
// all replacements of a command are one edit. UTF-16 offsets. Pure; any thread.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "VeskCore/Editor/TextEdit.h"
#include "VeskCore/Support/Error.h"

namespace vesk {

/// An expression that can't be read, or a replacement that names a group it doesn't have.
class InvalidExpression : public Error {
public:
    explicit InvalidExpression(std::string words) : words_(std::move(words)) {}
    std::string description() const override { return words_; }

private:
    std::string words_;
};

class Finder {
public:
    struct Query {
        std::u16string text;
        bool isExpression = false;  ///< a regular expression, in which "^" and "$" stand at every line
        bool matchesCase = false;
        bool wholeWords = false;
        bool operator==(const Query&) const = default;
    };
    struct Found {
        std::vector<TextRange> ranges;  ///< from left to right, not overlapping; an empty one is possible
        bool complete = true;           ///< false when the expression took too long for the rest
        bool operator==(const Found&) const = default;
    };
    struct Step {
        TextRange range;
        bool wrapped = false;  ///< found beyond the end or the beginning
        bool operator==(const Step&) const = default;
    };
    struct Replacement {
        std::u16string text;     ///< with an expression: "$1", "${name}", "$0", "\n", "\t", "\$", "\\"
        bool keepsCase = false;  ///< "word", "Word" and "WORD" pass their case on
        bool operator==(const Replacement&) const = default;
    };

    /// Throws InvalidExpression. An empty query finds nothing.
    explicit Finder(Query query);
    ~Finder();
    Finder(const Finder&);
    Finder(Finder&&) noexcept;
    Finder& operator=(const Finder&);
    Finder& operator=(Finder&&) noexcept;

    const Query& query() const;

    /// All matches, in `within` if given.
    Found all(std::u16string_view text, std::optional<TextRange> within = {}) const;
    /// The first match behind the selection, else from the beginning.
    std::optional<Step> next(std::u16string_view text, TextRange selection,
                             std::optional<TextRange> within = {}) const;
    /// The last match before the selection, else from the end.
    std::optional<Step> previous(std::u16string_view text, TextRange selection,
                                 std::optional<TextRange> within = {}) const;

    /// The selected match replaced, with the next one selected; where the selection is no match, the next one
    /// is selected and nothing replaced. Throws InvalidExpression.
    std::optional<TextEdit> replaceOne(std::u16string_view text, TextRange selection,
                                       const Replacement& replacement,
                                       std::optional<TextRange> within = {}) const;
    struct AllReplaced {
        TextEdit edit;
        std::size_t count = 0;
        bool complete = true;
        bool operator==(const AllReplaced&) const = default;
    };
    /// None if nothing is found. The selection stays on its text. Throws InvalidExpression.
    std::optional<AllReplaced> replaceAll(std::u16string_view text, TextRange selection,
                                          const Replacement& replacement,
                                          std::optional<TextRange> within = {}) const;

private:
    struct Search;
    std::shared_ptr<const Search> search_;
};

}  // namespace vesk
