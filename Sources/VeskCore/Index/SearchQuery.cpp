#include "VeskCore/Index/SearchQuery.h"

#include "VeskCore/Index/QueryText.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"

namespace vesk {

namespace {

bool separatesTokens(char32_t codePoint) {
    return codePoint == ' ' || codePoint == '\t' || isNewline(codePoint);
}

/// Quotes and parentheses hold a token together and stay in it.
std::vector<std::string_view> tokenise(std::string_view raw) {
    std::vector<std::string_view> tokens;
    bool quoted = false;
    std::size_t depth = 0, start = 0, offset = 0;
    auto endToken = [&](std::size_t end) {
        if (end > start) tokens.push_back(raw.substr(start, end - start));
    };
    while (offset < raw.size()) {
        const std::size_t at = offset;
        const char32_t codePoint = nextCodePoint(raw, offset);
        if (codePoint == '"') {
            quoted = !quoted;
        } else if (quoted) {
            continue;
        } else if (codePoint == '(') {
            ++depth;
        } else if (codePoint == ')') {
            if (depth > 0) --depth;
        } else if (depth == 0 && separatesTokens(codePoint)) {
            endToken(at);
            start = offset;
        }
    }
    endToken(raw.size());
    return tokens;
}

std::string_view unquote(std::string_view text) {
    text = trim(text);
    if (text.size() >= 2 && text.front() == '"' && text.back() == '"') text = text.substr(1, text.size() - 2);
    return trim(text);
}

std::vector<std::string> splitGroup(std::string_view value) {
    value = unquote(value);
    if (value.size() >= 2 && value.front() == '(' && value.back() == ')')
        value = value.substr(1, value.size() - 2);
    std::vector<std::string> words;
    for (std::string_view piece : splitWords(value, " \t")) {
        const std::string_view word = unquote(piece);
        if (containsLetterOrNumber(word)) words.emplace_back(word);
    }
    return words;
}

/// True if the token is a filter, whose value then went where it belongs.
bool takeFilter(std::string_view token, SearchQuery& query) {
    const std::size_t colon = token.find(':');
    if (colon == std::string_view::npos) return false;
    const std::string key = asciiLowercased(token.substr(0, colon));
    const std::string_view value = token.substr(colon + 1);
    auto add = [](std::vector<std::string>& list, std::string_view text) {
        if (!text.empty()) list.emplace_back(text);
    };
    if (key == "tag") {
        std::string_view tag = unquote(value);
        while (!tag.empty() && tag.front() == '#') tag.remove_prefix(1);
        add(query.tags, tag);
    } else if (key == "path") {
        add(query.paths, unquote(value));
    } else if (key == "file") {
        add(query.files, unquote(value));
    } else if (key == "line") {
        if (auto group = splitGroup(value); !group.empty()) query.lineGroups.push_back(std::move(group));
    } else {
        return false;
    }
    return true;
}

struct Operators {
    std::string_view between;        // joins what is asked for
    std::string_view before, after;  // stand around it when something is excluded
};

std::optional<std::string> expression(const SearchQuery& query, const Operators& operators) {
    std::vector<std::string> parts, excluded;
    for (const auto& term : query.terms) {
        if (term.isNegated) {
            excluded.push_back(ftsPhrase(term.text));
        } else {
            parts.push_back(term.isPhrase ? ftsPhrase(term.text) : ftsPrefix(term.text));
        }
    }
    for (const auto& group : query.lineGroups) {
        for (const auto& word : group) parts.push_back(ftsPrefix(word));
    }
    if (parts.empty()) return std::nullopt;
    std::string joined = join(parts, operators.between);
    if (excluded.empty()) return joined;
    return std::string(operators.before) + joined + std::string(operators.after) + " NOT (" +
           join(excluded, " OR ") + ")";
}

}  // namespace

SearchQuery SearchQuery::parse(std::string_view raw) {
    SearchQuery query;
    query.raw = raw;
    for (std::string_view token : tokenise(raw)) {
        const bool isNegated = token.size() >= 2 && token.front() == '-';
        if (isNegated) token.remove_prefix(1);
        if (takeFilter(token, query)) continue;
        const std::string_view text = unquote(token);
        if (!containsLetterOrNumber(text)) continue;
        query.terms.push_back(
            {.text = std::string(text), .isPhrase = token.front() == '"', .isNegated = isNegated});
    }
    return query;
}

std::vector<SearchQuery::Term> SearchQuery::positiveTerms() const {
    std::vector<Term> result;
    for (const auto& term : terms) {
        if (!term.isNegated) result.push_back(term);
    }
    return result;
}

std::vector<SearchQuery::Term> SearchQuery::negatedTerms() const {
    std::vector<Term> result;
    for (const auto& term : terms) {
        if (term.isNegated) result.push_back(term);
    }
    return result;
}

std::vector<std::string> SearchQuery::highlightWords() const {
    std::vector<std::string> words;
    for (const auto& term : terms) {
        if (!term.isNegated) words.push_back(term.text);
    }
    for (const auto& group : lineGroups) words.insert(words.end(), group.begin(), group.end());
    return words;
}

bool SearchQuery::empty() const {
    return terms.empty() && tags.empty() && paths.empty() && files.empty() && lineGroups.empty();
}

std::optional<std::string> SearchQuery::ftsExpression() const {
    return expression(*this, {.between = " AND ", .before = "", .after = ""});
}

std::optional<std::string> SearchQuery::ftsAnyExpression() const {
    return expression(*this, {.between = " OR ", .before = "(", .after = ")"});
}

std::pair<std::string, SQLBindings> SearchQuery::filterClause(std::string_view alias) const {
    const std::string row(alias);
    std::string sql;
    SQLBindings bindings;
    for (const auto& tag : tags) {
        sql += " AND EXISTS (SELECT 1 FROM tags g WHERE g.note_path = " + row +
               ".relative_path AND (g.tag = ? COLLATE NOCASE OR g.tag LIKE ? ESCAPE '\\'))";
        bindings.push_back(SQLValue::text(tag));
        bindings.push_back(SQLValue::text(likeEscaped(tag) + "/%"));
    }
    auto addPrefix = [&](std::string_view column, const std::string& value) {
        sql += " AND " + row + "." + std::string(column) + " LIKE ? ESCAPE '\\'";
        bindings.push_back(SQLValue::text(likeEscaped(value) + "%"));
    };
    for (const auto& path : paths) addPrefix("relative_path", path);
    for (const auto& file : files) addPrefix("name", file);
    return {std::move(sql), std::move(bindings)};
}

}  // namespace vesk
