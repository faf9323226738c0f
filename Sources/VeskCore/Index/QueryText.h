// Typed text made safe inside the little languages of SQLite: FTS5 expressions and LIKE patterns. Pure; any
// thread.
#pragma once

#include <string>
#include <string_view>

namespace vesk {

/// The text as one quoted FTS5 string: every word of it in order, nothing in it read as an operator.
std::string ftsPhrase(std::string_view text);
/// The same, the last word standing for all words that begin with it.
std::string ftsPrefix(std::string_view text);
/// The text as a LIKE pattern that matches it literally, under ESCAPE '\'.
std::string likeEscaped(std::string_view text);

}  // namespace vesk
