// Plain string work on UTF-8: trimming, splitting, replacing, decoding. No locale, no allocation where a view
// serves. Every function is pure and safe on any thread.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vesk {

// White space, defined once. "Horizontal" is tab, space and the Unicode space separators (general category
// Zs). "With newlines" adds U+000A to U+000D, U+0085, U+2028 and U+2029.
bool isHorizontalSpace(char32_t codePoint);
bool isSpaceOrNewline(char32_t codePoint);
/// The characters that end a line in the widest reading: U+000A to U+000D, U+0085, U+2028, U+2029.
bool isNewline(char32_t codePoint);

/// `text` without horizontal white space at both ends.
std::string_view trimHorizontal(std::string_view text);
/// `text` without white space and newlines at both ends.
std::string_view trim(std::string_view text);
/// `text` without newlines at its end.
std::string_view trimTrailingNewlines(std::string_view text);
/// `text` without any of the ASCII characters of `set` at both ends.
std::string_view trimCharacters(std::string_view text, std::string_view set);

/// The pieces between single-byte separators, empty ones included; an empty text gives one empty piece.
std::vector<std::string_view> split(std::string_view text, char separator);
/// The pieces between any of the ASCII `separators`, empty ones left out.
std::vector<std::string_view> splitWords(std::string_view text, std::string_view separators);
/// The lines of `text`, ended by LF; with `dropCarriageReturn` a CR right before an LF or at the text's end
/// does not count as part of the line. A text that ends with LF has an empty last line.
std::vector<std::string_view> splitLines(std::string_view text, bool dropCarriageReturn = false);

std::string join(const std::vector<std::string>& parts, std::string_view separator);
std::string join(const std::vector<std::string_view>& parts, std::string_view separator);
std::string replaceAll(std::string_view text, std::string_view from, std::string_view to);

/// ASCII letters lowered, everything else as it stands.
std::string asciiLowercased(std::string_view text);
bool asciiEqualsIgnoringCase(std::string_view left, std::string_view right);
constexpr bool isAsciiDigit(char c) {
    return c >= '0' && c <= '9';
}
constexpr bool isAsciiLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}
constexpr bool isAsciiAlphanumeric(char c) {
    return isAsciiDigit(c) || isAsciiLetter(c);
}

/// The first byte at or after `offset` that is not ASCII, or the size. Reads a word at a time.
std::size_t asciiRunEnd(std::string_view text, std::size_t offset);
inline bool isAscii(std::string_view text) {
    return asciiRunEnd(text, 0) == text.size();
}

/// True if the bytes are well-formed UTF-8 (Unicode Standard, table 3-7: no surrogates, no overlong forms).
bool isValidUtf8(std::string_view bytes);
/// ISO Latin 1 read as text: each byte is the code point of its value.
std::string latin1ToUtf8(std::string_view bytes);
/// Windows-1252 read as text, by the WHATWG Encoding Standard's index (the five free bytes map to C1
/// controls).
std::string windows1252ToUtf8(std::string_view bytes);
/// Well-formed UTF-8 with U+FFFD in place of each maximal ill-formed subsequence (WHATWG decoding).
std::string repairedUtf8(std::string_view bytes);
/// UTF-8 as it stands if well-formed, else the bytes as ISO Latin 1. How files and arguments become text.
std::string decodedText(std::string bytes);

/// Reads the code point that begins at `offset` and moves `offset` behind it. The text is well-formed UTF-8;
/// an ill-formed byte reads as U+FFFD and moves by one.
char32_t nextCodePoint(std::string_view text, std::size_t& offset);
/// The first code point, or none of an empty text.
std::optional<char32_t> firstCodePoint(std::string_view text);
void appendCodePoint(std::string& text, char32_t codePoint);

/// The shortest decimal form that reads back as the same double: plain digits from 1e-6 up to, not including,
/// 1e16 in magnitude ("0.1", "1000000000000000"), an unpadded exponent outside ("1e-7", "1e+20"). "-0" for
/// negative zero; "inf", "-inf", "nan" for what is not finite.
std::string shortestDecimal(double value);
/// A decimal number: optional sign, digits with optional fraction (".5" and "5." count), optional exponent,
/// nothing else, ASCII only. Above the range of double it is infinity, below it zero.
std::optional<double> parseDecimal(std::string_view text);
/// An integer in decimal: optional sign and digits, nothing else; none on overflow.
std::optional<long long> parseInteger(std::string_view text);

}  // namespace vesk
