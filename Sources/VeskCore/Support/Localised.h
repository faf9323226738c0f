// The user's words in the user's language, by GNU gettext's catalogue "vesk", which a program's main binds to
// its folder. Without one they stay in English. Any thread.
//
// The collector takes the literals out of the calls of these functions by their names.
#pragma once

#include <concepts>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace vesk {

namespace localisation {

inline std::string argument(std::string_view words) {
    return std::string(words);
}
std::string argument(std::integral auto number) {
    return std::to_string(number);
}
/// With the arguments in the places "{}" or "{0}", "{1}". A translation whose places don't fit the arguments
/// gives way to the English.
std::string filled(const char* translated, const char* english, const std::vector<std::string>& arguments);
const char* translated(const char* words);
const char* translated(const char* one, const char* many, std::size_t count);

}  // namespace localisation

/// Collects words that are translated elsewhere, by localised().
constexpr const char* marked(const char* words) {
    return words;
}

/// Whole words.
std::string localised(const char* words);
/// The same, for a constant that stands for a literal.
std::string localised(std::string_view words);
/// A pattern and what belongs into it.
template <class... Arguments>
requires(sizeof...(Arguments) > 0) std::string localised(const char* pattern, const Arguments&... arguments) {
    return localisation::filled(localisation::translated(pattern), pattern,
                                {localisation::argument(arguments)...});
}
/// The pattern for this count: the first one for 1. The count is given once more among the arguments if it is
/// shown.
template <class... Arguments>
std::string localisedCount(const char* one, const char* many, std::size_t count,
                           const Arguments&... arguments) {
    return localisation::filled(localisation::translated(one, many, count), count == 1 ? one : many,
                                {localisation::argument(arguments)...});
}

}  // namespace vesk
