#include "VeskCore/Support/Text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <system_error>

namespace vesk {

namespace {

constexpr char32_t replacementCharacter = 0xFFFD;

constexpr unsigned char byteOf(char c) {
    return static_cast<unsigned char>(c);
}

/// What stands at an offset: a well-formed sequence, or the length of the maximal ill-formed subsequence.
struct Decoded {
    char32_t codePoint = replacementCharacter;
    std::size_t length = 1;
    bool wellFormed = false;
};

/// Table 3-7 of the Unicode Standard: the lead byte fixes the length and the range of the second byte.
Decoded decodeAt(std::string_view text, std::size_t offset) {
    const unsigned lead = byteOf(text[offset]);
    if (lead < 0x80) return {lead, 1, true};
    std::size_t length = 0;
    unsigned low = 0x80;
    unsigned high = 0xBF;
    char32_t codePoint = 0;
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
        codePoint = lead & 0x1F;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        codePoint = lead & 0x0F;
        if (lead == 0xE0) low = 0xA0;
        if (lead == 0xED) high = 0x9F;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        codePoint = lead & 0x07;
        if (lead == 0xF0) low = 0x90;
        if (lead == 0xF4) high = 0x8F;
    } else {
        return {};
    }
    for (std::size_t i = 1; i < length; ++i) {
        if (offset + i >= text.size()) return {replacementCharacter, i, false};
        const unsigned next = byteOf(text[offset + i]);
        if (next < low || next > high) return {replacementCharacter, i, false};
        low = 0x80;
        high = 0xBF;
        codePoint = (codePoint << 6) | (next & 0x3F);
    }
    return {codePoint, length, true};
}

/// The offset at which the last code point of `text` begins; an ill-formed byte stands for itself.
std::size_t lastCodePointStart(std::string_view text) {
    const std::size_t last = text.size() - 1;
    if (byteOf(text[last]) < 0x80) return last;
    for (std::size_t back = 1; back < 4 && back <= last; ++back) {
        const std::size_t start = last - back;
        if ((byteOf(text[start]) & 0xC0) == 0x80) continue;
        const Decoded decoded = decodeAt(text, start);
        return decoded.wellFormed && start + decoded.length == text.size() ? start : last;
    }
    return last;
}

template <typename Predicate>
std::string_view trimmedEnd(std::string_view text, Predicate drops) {
    while (!text.empty()) {
        const std::size_t start = lastCodePointStart(text);
        const Decoded decoded = decodeAt(text, start);
        if (!decoded.wellFormed || !drops(decoded.codePoint)) break;
        text = text.substr(0, start);
    }
    return text;
}

template <typename Predicate>
std::string_view trimmedStart(std::string_view text, Predicate drops) {
    while (!text.empty()) {
        const Decoded decoded = decodeAt(text, 0);
        if (!decoded.wellFormed || !drops(decoded.codePoint)) break;
        text.remove_prefix(decoded.length);
    }
    return text;
}

template <typename Piece>
std::string joinPieces(const std::vector<Piece>& parts, std::string_view separator) {
    std::size_t size = 0;
    for (const auto& part : parts) size += part.size() + separator.size();
    std::string joined;
    joined.reserve(size);
    bool first = true;
    for (const auto& part : parts) {
        if (!first) joined += separator;
        first = false;
        joined += part;
    }
    return joined;
}

char asciiLower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

/// The parts of a decimal number, as the grammar of parseDecimal tells them apart.
struct DecimalParts {
    std::string_view digits;    // before the full stop
    std::string_view fraction;  // behind it
    std::string_view exponent;  // digits only
    bool negative = false;
    bool negativeExponent = false;
};

std::string_view takeDigits(std::string_view& text) {
    std::size_t count = 0;
    while (count < text.size() && isAsciiDigit(text[count])) ++count;
    const std::string_view digits = text.substr(0, count);
    text.remove_prefix(count);
    return digits;
}

/// Takes a "+" or "-" if there is one; true for "-".
bool takeSign(std::string_view& text) {
    if (text.empty() || (text.front() != '+' && text.front() != '-')) return false;
    const bool negative = text.front() == '-';
    text.remove_prefix(1);
    return negative;
}

std::optional<DecimalParts> decimalParts(std::string_view text) {
    DecimalParts parts;
    parts.negative = takeSign(text);
    parts.digits = takeDigits(text);
    if (!text.empty() && text.front() == '.') {
        text.remove_prefix(1);
        parts.fraction = takeDigits(text);
    }
    if (parts.digits.empty() && parts.fraction.empty()) return std::nullopt;
    if (!text.empty() && (text.front() == 'e' || text.front() == 'E')) {
        text.remove_prefix(1);
        parts.negativeExponent = takeSign(text);
        parts.exponent = takeDigits(text);
        if (parts.exponent.empty()) return std::nullopt;
    }
    if (!text.empty()) return std::nullopt;
    return parts;
}

/// Tells overflow from underflow for a number outside the range of double: true if its magnitude is above 1.
bool isAboveOne(const DecimalParts& parts) {
    constexpr long long far = 1'000'000'000'000;  // beyond any exponent that a text in memory can offset
    long long exponent = 0;
    for (const char digit : parts.exponent) exponent = std::min(far, exponent * 10 + (digit - '0'));
    if (parts.negativeExponent) exponent = -exponent;
    const std::size_t leading = parts.digits.find_first_not_of('0');
    if (leading != std::string_view::npos) {
        return static_cast<long long>(parts.digits.size() - leading) + exponent > 0;
    }
    const std::size_t zeros = parts.fraction.find_first_not_of('0');
    if (zeros == std::string_view::npos) return false;
    return exponent - static_cast<long long>(zeros) > 0;
}

}  // namespace

bool isHorizontalSpace(char32_t c) {
    if (c < 0x80) return c == ' ' || c == '\t';
    return c == 0x00A0 || c == 0x1680 || (c >= 0x2000 && c <= 0x200A) || c == 0x202F || c == 0x205F ||
           c == 0x3000;
}

bool isNewline(char32_t c) {
    return (c >= 0x0A && c <= 0x0D) || c == 0x0085 || c == 0x2028 || c == 0x2029;
}

bool isSpaceOrNewline(char32_t c) {
    return isHorizontalSpace(c) || isNewline(c);
}

std::string_view trimHorizontal(std::string_view text) {
    const auto isSpace = [](char c) { return c == ' ' || c == '\t'; };
    while (!text.empty() && isSpace(text.front())) text.remove_prefix(1);
    while (!text.empty() && isSpace(text.back())) text.remove_suffix(1);
    if (text.empty() || (byteOf(text.front()) < 0x80 && byteOf(text.back()) < 0x80)) return text;
    return trimmedEnd(trimmedStart(text, isHorizontalSpace), isHorizontalSpace);
}

std::string_view trim(std::string_view text) {
    return trimmedEnd(trimmedStart(text, isSpaceOrNewline), isSpaceOrNewline);
}

std::string_view trimTrailingNewlines(std::string_view text) {
    return trimmedEnd(text, isNewline);
}

std::string_view trimCharacters(std::string_view text, std::string_view set) {
    const std::size_t first = text.find_first_not_of(set);
    if (first == std::string_view::npos) return text.substr(0, 0);
    return text.substr(first, text.find_last_not_of(set) - first + 1);
}

std::vector<std::string_view> split(std::string_view text, char separator) {
    std::vector<std::string_view> pieces;
    std::size_t start = 0;
    while (true) {
        const std::size_t end = text.find(separator, start);
        pieces.push_back(text.substr(start, end == std::string_view::npos ? end : end - start));
        if (end == std::string_view::npos) return pieces;
        start = end + 1;
    }
}

std::vector<std::string_view> splitWords(std::string_view text, std::string_view separators) {
    std::vector<std::string_view> words;
    std::size_t start = text.find_first_not_of(separators);
    while (start != std::string_view::npos) {
        const std::size_t end = std::min(text.find_first_of(separators, start), text.size());
        words.push_back(text.substr(start, end - start));
        start = text.find_first_not_of(separators, end);
    }
    return words;
}

std::vector<std::string_view> splitLines(std::string_view text, bool dropCarriageReturn) {
    std::vector<std::string_view> lines = split(text, '\n');
    if (dropCarriageReturn) {
        for (std::string_view& line : lines) {
            if (line.ends_with('\r')) line.remove_suffix(1);
        }
    }
    return lines;
}

std::string join(const std::vector<std::string>& parts, std::string_view separator) {
    return joinPieces(parts, separator);
}

std::string join(const std::vector<std::string_view>& parts, std::string_view separator) {
    return joinPieces(parts, separator);
}

std::string replaceAll(std::string_view text, std::string_view from, std::string_view to) {
    if (from.empty()) return std::string(text);
    std::string result;
    result.reserve(text.size());
    std::size_t start = 0;
    while (true) {
        const std::size_t found = text.find(from, start);
        if (found == std::string_view::npos) return result.append(text.substr(start));
        result.append(text.substr(start, found - start)).append(to);
        start = found + from.size();
    }
}

std::string asciiLowercased(std::string_view text) {
    std::string lowered(text);
    std::transform(lowered.begin(), lowered.end(), lowered.begin(), asciiLower);
    return lowered;
}

bool asciiEqualsIgnoringCase(std::string_view left, std::string_view right) {
    return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                      [](char a, char b) { return asciiLower(a) == asciiLower(b); });
}

std::size_t asciiRunEnd(std::string_view text, std::size_t offset) {
    constexpr std::uint64_t highBits = 0x8080808080808080U;
    while (offset + sizeof(std::uint64_t) <= text.size()) {
        std::uint64_t word = 0;
        std::memcpy(&word, text.data() + offset, sizeof word);
        if ((word & highBits) != 0) break;
        offset += sizeof word;
    }
    while (offset < text.size() && byteOf(text[offset]) < 0x80) ++offset;
    return offset;
}

bool isValidUtf8(std::string_view bytes) {
    std::size_t offset = asciiRunEnd(bytes, 0);
    while (offset < bytes.size()) {
        const Decoded decoded = decodeAt(bytes, offset);
        if (!decoded.wellFormed) return false;
        offset += decoded.length;
        if (offset < bytes.size() && byteOf(bytes[offset]) < 0x80) offset = asciiRunEnd(bytes, offset);
    }
    return true;
}

std::string latin1ToUtf8(std::string_view bytes) {
    std::string text;
    text.reserve(bytes.size());
    for (const char c : bytes) appendCodePoint(text, byteOf(c));
    return text;
}

std::string windows1252ToUtf8(std::string_view bytes) {
    static constexpr std::array<char16_t, 32> upper{
        0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
        0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
        0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};
    std::string text;
    text.reserve(bytes.size());
    for (const char c : bytes) {
        const unsigned char byte = byteOf(c);
        const bool special = byte >= 0x80 && byte <= 0x9F;
        appendCodePoint(text, special ? char32_t{upper[byte - 0x80U]} : char32_t{byte});
    }
    return text;
}

std::string repairedUtf8(std::string_view bytes) {
    std::string text;
    text.reserve(bytes.size());
    std::size_t start = 0;  // of the well-formed stretch not yet copied
    std::size_t offset = 0;
    while ((offset = asciiRunEnd(bytes, offset)) < bytes.size()) {
        const Decoded decoded = decodeAt(bytes, offset);
        if (!decoded.wellFormed) {
            text.append(bytes.substr(start, offset - start));
            appendCodePoint(text, replacementCharacter);
            start = offset + decoded.length;
        }
        offset += decoded.length;
    }
    return text.append(bytes.substr(start));
}

std::string decodedText(std::string bytes) {
    return isValidUtf8(bytes) ? std::move(bytes) : latin1ToUtf8(bytes);
}

char32_t nextCodePoint(std::string_view text, std::size_t& offset) {
    const Decoded decoded = decodeAt(text, offset);
    offset += decoded.wellFormed ? decoded.length : 1;
    return decoded.codePoint;
}

std::optional<char32_t> firstCodePoint(std::string_view text) {
    if (text.empty()) return std::nullopt;
    return decodeAt(text, 0).codePoint;
}

void appendCodePoint(std::string& text, char32_t codePoint) {
    if (codePoint > 0x10FFFF || (codePoint >= 0xD800 && codePoint <= 0xDFFF))
        codePoint = replacementCharacter;
    const auto add = [&text](char32_t byte) { text.push_back(static_cast<char>(byte)); };
    if (codePoint < 0x80) {
        add(codePoint);
    } else if (codePoint < 0x800) {
        add(0xC0 | (codePoint >> 6));
        add(0x80 | (codePoint & 0x3F));
    } else if (codePoint < 0x10000) {
        add(0xE0 | (codePoint >> 12));
        add(0x80 | ((codePoint >> 6) & 0x3F));
        add(0x80 | (codePoint & 0x3F));
    } else {
        add(0xF0 | (codePoint >> 18));
        add(0x80 | ((codePoint >> 12) & 0x3F));
        add(0x80 | ((codePoint >> 6) & 0x3F));
        add(0x80 | (codePoint & 0x3F));
    }
}

std::string shortestDecimal(double value) {
    if (std::isnan(value)) return "nan";
    if (std::isinf(value)) return value < 0 ? "-inf" : "inf";
    const double magnitude = std::fabs(value);
    const bool plain = magnitude == 0 || (magnitude >= 1e-6 && magnitude < 1e16);
    std::array<char, 64> buffer{};
    const auto result = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value,
                                      plain ? std::chars_format::fixed : std::chars_format::scientific);
    std::string text(buffer.data(), result.ptr);
    // to_chars pads the exponent to two digits.
    const std::size_t sign = text.find_first_of("+-", text.find('e') == std::string::npos ? text.size() : 1);
    if (sign != std::string::npos && text[sign + 1] == '0') text.erase(sign + 1, 1);
    return text;
}

std::optional<double> parseDecimal(std::string_view text) {
    const std::optional<DecimalParts> parts = decimalParts(text);
    if (!parts) return std::nullopt;
    takeSign(text);
    double magnitude = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), magnitude);
    if (result.ec == std::errc::result_out_of_range) {
        magnitude = isAboveOne(*parts) ? std::numeric_limits<double>::infinity() : 0;
    }
    return parts->negative ? -magnitude : magnitude;
}

std::optional<long long> parseInteger(std::string_view text) {
    if (text.starts_with('+')) {
        text.remove_prefix(1);
        if (text.starts_with('-')) return std::nullopt;
    }
    long long value = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
    if (result.ec != std::errc() || result.ptr != text.data() + text.size()) return std::nullopt;
    return value;
}

}  // namespace vesk
