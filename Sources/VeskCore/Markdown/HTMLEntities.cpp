#include "VeskCore/Markdown/HTMLEntities.h"

#include <algorithm>
#include <array>

#include "VeskCore/Markdown/HTMLEntityTable.h"
#include "VeskCore/Support/Text.h"

namespace vesk::HTMLEntities {

namespace {

constexpr std::size_t longestName = 31;

// The names that count without a semicolon.
constexpr std::array<std::string_view, 7> legacyNames{"amp", "lt", "gt", "quot", "nbsp", "copy", "reg"};

// What a numeric reference to 0x80 … 0x9F means (WHATWG HTML, "Numeric character reference end state").
constexpr std::array<char32_t, 32> windows1252{
    0x20AC, 0x81,   0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x8D,   0x017D, 0x8F,   0x90,   0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x9D,   0x017E, 0x0178};

int hexValue(char c) {
    if (isAsciiDigit(c)) return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

const NamedReference* find(std::string_view name) {
    auto found =
        std::lower_bound(namedReferences.begin(), namedReferences.end(), name,
                         [](const NamedReference& entry, std::string_view key) { return entry.name < key; });
    return found != namedReferences.end() && found->name == name ? &*found : nullptr;
}

std::optional<Reference> numeric(std::string_view text, std::size_t offset) {
    std::size_t at = offset + 2;
    const bool hexadecimal = at < text.size() && (text[at] == 'x' || text[at] == 'X');
    if (hexadecimal) ++at;
    const std::uint64_t base = hexadecimal ? 16 : 10;
    const std::size_t digits = at;
    std::uint64_t value = 0;
    for (; at < text.size(); ++at) {
        const int digit = hexadecimal ? hexValue(text[at]) : isAsciiDigit(text[at]) ? text[at] - '0' : -1;
        if (digit < 0) break;
        value = std::min<std::uint64_t>(value * base + static_cast<std::uint64_t>(digit), 0x110000);
    }
    if (at == digits) return std::nullopt;
    if (at < text.size() && text[at] == ';') ++at;
    return Reference{.length = at - offset, .first = scalar(value)};
}

}  // namespace

std::optional<std::u32string_view> scalar(std::string_view named) {
    const NamedReference* entry = find(named);
    if (!entry) return std::nullopt;
    return std::u32string_view(entry->text, entry->text[1] ? 2 : 1);
}

char32_t scalar(std::uint64_t codePoint) {
    if (codePoint == 0 || codePoint > 0x10FFFF || (codePoint >= 0xD800 && codePoint <= 0xDFFF)) return 0xFFFD;
    if (codePoint >= 0x80 && codePoint <= 0x9F) return windows1252[codePoint - 0x80];
    return static_cast<char32_t>(codePoint);
}

std::optional<Reference> reference(std::string_view text, std::size_t offset, bool inAttribute) {
    if (offset + 1 >= text.size()) return std::nullopt;
    if (text[offset + 1] == '#') return numeric(text, offset);

    const std::string_view rest = text.substr(offset + 1, longestName + 1);
    std::size_t length = 0;
    while (length < rest.size() && isAsciiAlphanumeric(rest[length])) ++length;
    if (length < rest.size() && rest[length] == ';') {
        if (const NamedReference* entry = find(rest.substr(0, length))) {
            return Reference{.length = length + 2, .first = entry->text[0], .second = entry->text[1]};
        }
    }
    for (std::string_view name : legacyNames) {
        if (!rest.starts_with(name)) continue;
        // A query such as "?a=1&copy=2" is meant as it stands.
        const char next = name.size() < rest.size() ? rest[name.size()] : '\0';
        if (inAttribute && (next == '=' || isAsciiAlphanumeric(next))) return std::nullopt;
        return Reference{.length = name.size() + 1 + (next == ';' ? 1 : 0), .first = find(name)->text[0]};
    }
    return std::nullopt;
}

std::string decode(std::string_view text, bool inAttribute) {
    std::string result;
    result.reserve(text.size());
    std::size_t at = 0;
    while (at < text.size()) {
        const std::size_t ampersand = std::min(text.find('&', at), text.size());
        result.append(text, at, ampersand - at);
        at = ampersand;
        if (at == text.size()) break;
        if (const auto found = reference(text, at, inAttribute)) {
            appendCodePoint(result, found->first);
            if (found->second) appendCodePoint(result, found->second);
            at += found->length;
        } else {
            result += '&';
            ++at;
        }
    }
    return result;
}

}  // namespace vesk::HTMLEntities
