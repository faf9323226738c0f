// The query language of the search field and the assistant. Pure; any thread.
#pragma once

#include <compare>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "VeskCore/Index/Sqlite.h"

namespace vesk {

struct SearchQuery {
    struct Term {
        std::string text;
        bool isPhrase = false, isNegated = false;
        auto operator<=>(const Term&) const = default;
    };

    std::string raw;  ///< as typed
    std::vector<Term> terms;
    std::vector<std::string> tags, paths, files;
    std::vector<std::vector<std::string>> lineGroups;

    /// Never fails.
    static SearchQuery parse(std::string_view raw);

    std::vector<Term> positiveTerms() const;
    std::vector<Term> negatedTerms() const;
    /// The positive terms' texts, then every word of the line groups.
    std::vector<std::string> highlightWords() const;
    /// No terms, filters or groups at all.
    bool empty() const;

    /// The FTS5 expression, or none if nothing positive is asked for.
    std::optional<std::string> ftsExpression() const;
    std::optional<std::string> ftsAnyExpression() const;
    /// SQL that narrows `alias`.relative_path by tags, paths and files, with its bindings.
    std::pair<std::string, SQLBindings> filterClause(std::string_view alias) const;

    bool operator==(const SearchQuery&) const = default;
};

}  // namespace vesk
