#include <gtest/gtest.h>

#include "VeskCore/Index/SearchQuery.h"
#include "VeskCore/Support/Match.h"
#include "VeskCore/Support/Text.h"

namespace vesk {
namespace {

/// "-" before what is negated, "'…'" around phrases, filters by name.
std::string shown(const SearchQuery& query) {
    std::vector<std::string> parts;
    for (const auto& term : query.terms) {
        const std::string text = term.isPhrase ? "'" + term.text + "'" : term.text;
        parts.push_back((term.isNegated ? "-" : "") + text);
    }
    for (const auto& tag : query.tags) parts.push_back("tag=" + tag);
    for (const auto& path : query.paths) parts.push_back("path=" + path);
    for (const auto& file : query.files) parts.push_back("file=" + file);
    for (const auto& group : query.lineGroups) parts.push_back("line=" + join(group, "+"));
    return join(parts, " | ");
}

TEST(SearchQuery, ReadsTheQueryLanguage) {
    struct Row {
        std::string_view name, input, expected;
    };
    const Row rows[] = {
        {"nothing", " \t\n ", ""},
        {"words", "alpha  beta\tgamma\r\ndelta", "alpha | beta | gamma | delta"},
        {"a no-break space joins", "alpha\u00A0beta", "alpha\u00A0beta"},
        {"a phrase holds its spaces", "\"alpha beta\" gamma", "'alpha beta' | gamma"},
        {"a phrase is trimmed inside", "\"  alpha \"", "'alpha'"},
        {"quotes inside a word", "a\"b c\"d e", "a\"b c\"d | e"},
        {"an unclosed quote runs to the end", "x \"alpha beta", "x | '\"alpha beta'"},
        {"parentheses hold a token", "(a b) c", "(a b) | c"},
        {"a stray closing parenthesis", ")a b", ")a | b"},
        {"an unclosed parenthesis", "a (b c", "a | (b c"},
        {"a parenthesis in quotes does not count", "\"a (b\" c", "'a (b' | c"},
        {"negated word and phrase", "-a -\"b c\" --d", "-a | -'b c' | --d"},
        {"marks alone are no terms", "- & \"&\" -- () a", "a"},
        {"an emoji alone is no term", "\U0001F600 a\U0001F600", "a\U0001F600"},
        {"other scripts and numbers", "日記 ½ Straße", "日記 | ½ | Straße"},
        {"filters", "tag:work path:Notes/ file:Da x", "x | tag=work | path=Notes/ | file=Da"},
        {"a negated filter is the filter", "-tag:work", "tag=work"},
        {"keys in any case", "TAG:a Line:b", "tag=a | line=b"},
        {"an unknown key is a term", "foo:bar http://x", "foo:bar | http://x"},
        {"a quoted filter is a phrase", "\"tag:x\"", "'tag:x'"},
        {"only the first colon splits", "path:a:b", "path=a:b"},
        {"hashes before a tag go", "tag:#Work tag:##a#b tag:### tag:", "tag=Work | tag=a#b"},
        {"values in quotes", "tag:\"two words\" path:\" a b/ \"", "tag=two words | path=a b/"},
        {"a line group", "line:(alpha beta)", "line=alpha+beta"},
        {"a line of one word", "line:alpha", "line=alpha"},
        {"a quoted line group", "line:\"alpha beta\"", "line=alpha+beta"},
        {"marks in a line group go", "line:(\"a\" & b) line:(&) line:()", "line=a+b"},
        {"each line group stands alone", "line:a line:(b c)", "line=a | line=b+c"},
    };
    for (const auto& row : rows) {
        const auto query = SearchQuery::parse(row.input);
        EXPECT_EQ(shown(query), row.expected) << row.name;
        EXPECT_EQ(query.raw, row.input) << row.name;
        EXPECT_EQ(query.empty(), row.expected.empty()) << row.name;
    }
}

TEST(SearchQuery, HighlightsPositiveTermsThenLineWords) {
    const auto query = SearchQuery::parse("line:(x y) b -c \"d e\"");
    EXPECT_EQ(query.highlightWords(), (std::vector<std::string>{"b", "d e", "x", "y"}));
    EXPECT_EQ(query.positiveTerms().size(), 2U);
    EXPECT_EQ(query.negatedTerms(), (std::vector<SearchQuery::Term>{{"c", false, true}}));
}

TEST(SearchQuery, BuildsFullTextExpressions) {
    struct Row {
        std::string_view name, input;
        std::optional<std::string> all, any;
    };
    const Row rows[] = {
        {"words and phrases", "alpha \"b c\"", "\"alpha\"* AND \"b c\"", "\"alpha\"* OR \"b c\""},
        {"exclusion", "a b -c -\"d e\"", "\"a\"* AND \"b\"* NOT (\"c\" OR \"d e\")",
         "(\"a\"* OR \"b\"*) NOT (\"c\" OR \"d e\")"},
        {"line words are prefixes", "line:(x y) \"z\"", "\"z\" AND \"x\"* AND \"y\"*",
         "\"z\" OR \"x\"* OR \"y\"*"},
        {"quotes are doubled", "say\"hi", "\"say\"\"hi\"*", "\"say\"\"hi\"*"},
        {"operators are words", "AND NEAR(a body:x a* ^b", "\"AND\"* AND \"NEAR(a body:x a* ^b\"*",
         "\"AND\"* OR \"NEAR(a body:x a* ^b\"*"},
        {"nothing positive", "-a tag:b", std::nullopt, std::nullopt},
        {"a filter alone", "path:a", std::nullopt, std::nullopt},
    };
    for (const auto& row : rows) {
        const auto query = SearchQuery::parse(row.input);
        EXPECT_EQ(query.ftsExpression(), row.all) << row.name;
        EXPECT_EQ(query.ftsAnyExpression(), row.any) << row.name;
    }
    const auto nul = SearchQuery::parse(std::string_view("a\0b", 3));
    EXPECT_EQ(nul.ftsExpression(), "\"a b\"*")
        << "SQLite would end the expression at the NUL, inside the quotes";
}

TEST(SearchQuery, NarrowsRowsByEscapedPatterns) {
    const auto [sql, bindings] = SearchQuery::parse("tag:a_b path:50% file:c\\d").filterClause("n");
    EXPECT_EQ(sql,
              " AND EXISTS (SELECT 1 FROM tags g WHERE g.note_path = n.relative_path "
              "AND (g.tag = ? COLLATE NOCASE OR g.tag LIKE ? ESCAPE '\\'))"
              " AND n.relative_path LIKE ? ESCAPE '\\'"
              " AND n.name LIKE ? ESCAPE '\\'");
    std::vector<std::string> texts;
    for (const auto& binding : bindings) texts.push_back(std::get<std::string>(binding.value));
    EXPECT_EQ(texts, (std::vector<std::string>{"a_b", "a\\_b/%", "50\\%%", "c\\\\d%"}));
}

}  // namespace
}  // namespace vesk
