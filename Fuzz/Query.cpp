// Typed queries against the parser, the FTS5 expressions made of them, and the snippets cut for their words.
// The first byte is the snippet's window; the rest is the query, a NUL, and the body.
#include <sqlite3.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "VeskCore/Index/SearchEngine.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"

namespace {

void require(bool condition) {
    if (!condition) std::abort();
}

sqlite3* fullTextTable() {
    sqlite3* database = nullptr;
    require(sqlite3_open(":memory:", &database) == SQLITE_OK);
    require(sqlite3_exec(
                database,
                "CREATE VIRTUAL TABLE f USING fts5(title, body, tokenize='unicode61 remove_diacritics 2');"
                "INSERT INTO f VALUES ('Alpha', 'beta gamma'), ('NOT', 'a AND b OR c')",
                nullptr, nullptr, nullptr) == SQLITE_OK);
    return database;
}

/// FTS5 understands every expression that a query makes.
void requireUnderstood(const std::string& expression) {
    static sqlite3* const database = fullTextTable();
    sqlite3_stmt* statement = nullptr;
    require(sqlite3_prepare_v2(database, "SELECT COUNT(*) FROM f WHERE f MATCH ?", -1, &statement, nullptr) ==
            SQLITE_OK);
    require(sqlite3_bind_text(statement, 1, expression.c_str(), -1, SQLITE_TRANSIENT) == SQLITE_OK);
    require(sqlite3_step(statement) == SQLITE_ROW);
    sqlite3_finalize(statement);
}

void requireSound(const vesk::SearchEngine::Snippet& snippet) {
    require(vesk::isValidUtf8(snippet.text));
    const std::size_t length = vesk::utf16Length(snippet.text);
    for (const auto& range : snippet.matchRanges) require(range.length > 0 && range.end() <= length);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0 || size > 4096) return 0;
    const std::string text = vesk::repairedUtf8({reinterpret_cast<const char*>(data) + 1, size - 1});
    const std::size_t split = text.find('\0');
    const std::string_view typed = std::string_view(text).substr(0, split);
    const std::string_view body =
        split == std::string::npos ? std::string_view() : std::string_view(text).substr(split + 1);

    const auto query = vesk::SearchQuery::parse(typed);
    if (const auto expression = query.ftsExpression()) requireUnderstood(*expression);
    if (const auto expression = query.ftsAnyExpression()) requireUnderstood(*expression);
    require(query.ftsExpression().has_value() == !query.highlightWords().empty());
    for (const auto& term : query.terms) require(vesk::containsLetterOrNumber(term.text));

    const auto words = query.highlightWords();
    const auto snippet = vesk::SearchEngine::makeSnippet(body, words, data[0]);
    requireSound(snippet);
    requireSound(vesk::SearchEngine::parseMarkedSnippet(body));
    require(vesk::SearchEngine::likeScore(typed, body, words) >= 0);
    vesk::SearchEngine::isPictureOnly(body);
    const vesk::SearchHit hit{.notePath = "a.md",
                              .title = "a",
                              .snippet = snippet.text,
                              .matchRanges = snippet.matchRanges,
                              .score = 0,
                              .mode = vesk::SearchHit::Mode::keyword,
                              .chunkOrdinal = std::nullopt};
    if (const auto passage = hit.passage()) require(vesk::isValidUtf8(*passage));
    return 0;
}
