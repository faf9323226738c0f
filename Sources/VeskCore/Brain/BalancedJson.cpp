#include "VeskCore/Brain/BalancedJson.h"

#include <cstddef>

#include "VeskCore/Support/Text.h"

namespace vesk {

std::optional<std::string_view> balancedJson(std::string_view text) {
    const auto start = text.find_first_of("{[");
    if (start == std::string_view::npos) return std::nullopt;
    const char open = text[start], close = open == '{' ? '}' : ']';
    std::size_t depth = 0;
    bool inString = false;
    for (auto at = start; at < text.size(); ++at) {
        const char c = text[at];
        if (inString) {
            if (c == '\\') {
                ++at;
            } else if (c == '"') {
                inString = false;
            }
        } else if (c == '"') {
            inString = true;
        } else if (c == open) {
            ++depth;
        } else if (c == close && --depth == 0) {
            return text.substr(start, at + 1 - start);
        }
    }
    return std::nullopt;
}

std::optional<std::string_view> firstFenced(std::string_view text) {
    constexpr std::string_view fence = "```", language = "json";
    const auto open = text.find(fence);
    if (open == std::string_view::npos) return std::nullopt;
    auto inner = text.substr(open + fence.size());
    const auto close = inner.find(fence);
    if (close == std::string_view::npos) return std::nullopt;
    inner = inner.substr(0, close);
    if (inner.starts_with(language)) inner.remove_prefix(language.size());
    for (std::size_t at = 0; at < inner.size();) {
        const auto before = at;
        if (!isSpaceOrNewline(nextCodePoint(inner, at))) return inner.substr(before);
    }
    return std::string_view();
}

}  // namespace vesk
