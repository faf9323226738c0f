#include "VeskCore/Index/WordMatcher.h"

#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"

namespace vesk {

namespace {

bool isWordPart(char32_t codePoint) {
    if (codePoint < 0x80) return isAsciiAlphanumeric(static_cast<char>(codePoint));
    return isLetter(codePoint) || isNumber(codePoint);
}

bool wordPartEndsAt(std::string_view text, std::size_t offset) {
    if (offset == 0) return false;
    std::size_t start = offset - 1;
    while (start > 0 && offset - start < 4 && (static_cast<unsigned char>(text[start]) & 0xC0) == 0x80)
        --start;
    return isWordPart(nextCodePoint(text, start));
}

bool wordPartBeginsAt(std::string_view text, std::size_t offset) {
    return offset < text.size() && isWordPart(nextCodePoint(text, offset));
}

}  // namespace

WordMatcher::WordMatcher(std::string_view word) : word_(caseAndDiacriticFolded(word)) {}

std::size_t WordMatcher::find(std::string_view folded, std::size_t& from) const {
    if (word_.empty()) return std::string_view::npos;
    for (;; ++from) {
        from = folded.find(word_, from);
        if (from == std::string_view::npos) return from;
        if (wordPartEndsAt(folded, from)) continue;
        std::size_t end = from + word_.size();
        const std::string_view rest = folded.substr(end);
        if (rest.starts_with("es")) {
            end += 2;
        } else if (rest.starts_with('s')) {
            end += 1;
        }
        if (!wordPartBeginsAt(folded, end)) return end;
    }
}

std::size_t WordMatcher::count(std::string_view folded) const {
    std::size_t matches = 0, from = 0;
    for (std::size_t end = find(folded, from); end != std::string_view::npos; end = find(folded, from)) {
        ++matches;
        from = end;
    }
    return matches;
}

bool WordMatcher::occursIn(std::string_view folded) const {
    std::size_t from = 0;
    return find(folded, from) != std::string_view::npos;
}

std::vector<WordMatcher> WordMatcher::all(const std::vector<std::string>& words) {
    std::vector<WordMatcher> matchers;
    matchers.reserve(words.size());
    for (const auto& word : words) matchers.emplace_back(word);
    return matchers;
}

}  // namespace vesk
