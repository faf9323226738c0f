// Case, normalisation and categories of Unicode text (ICU underneath). Pure; safe on any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "VeskCore/Support/TextRange.h"

namespace vesk {

/// General category L.
bool isLetter(char32_t codePoint);
/// General category N (decimal, letter and other numbers).
bool isNumber(char32_t codePoint);
/// A character of a word, as the patterns for tags read it: general categories L, M, Nd, Nl and Pc.
bool isWordCharacter(char32_t codePoint);
/// True of what belongs to the character before it, whatever that is: combining and spacing marks, joiners.
bool joinsCharacterBefore(char32_t codePoint);
/// True if any code point of the text is a letter or a number.
bool containsLetterOrNumber(std::string_view text);

/// Full lower-casing in the root locale; its length may differ.
std::string lowercased(std::string_view text);
/// Full upper-casing in the root locale.
std::string uppercased(std::string_view text);
/// Full case folding (CaseFolding.txt, C and F): for comparing without regard to case.
std::string caseFolded(std::string_view text);
/// Case folded, decomposed, without combining marks (Mn): for comparing without regard to case and accents.
std::string caseAndDiacriticFolded(std::string_view text);
/// Unicode Normalization Forms (UAX #15).
std::string normalisedNfc(std::string_view text);
std::string normalisedNfkc(std::string_view text);
/// Equal under canonical equivalence.
bool canonicallyEqual(std::string_view left, std::string_view right);
/// Equal without regard to case, under canonical equivalence.
bool equalsIgnoringCase(std::string_view left, std::string_view right);

/// All places where `needle` stands, overlapping ones too, in order and in linear time. None for an empty
/// one.
std::vector<TextRange> occurrences(std::u16string_view text, std::u16string_view needle);

/// A text prepared for repeated caseless searches. Matches are found on the case-folded form and mapped back
/// to UTF-16 offsets of the text, never splitting a code point.
class CaselessHaystack {
public:
    explicit CaselessHaystack(std::u16string_view text);
    /// The first occurrence at or after `from`, in UTF-16 units of the text; none for an empty needle.
    std::optional<TextRange> find(std::u16string_view needle, std::size_t from = 0) const;
    /// All of them, overlapping ones too, in order and in linear time.
    std::vector<TextRange> all(std::u16string_view needle) const;

private:
    /// Calls `accepts(range)` for each occurrence from a folded offset on, until it is true.
    template <typename Accepts>
    void search(std::u16string_view needle, std::size_t from, Accepts accepts) const;

    std::u16string folded_;
    std::vector<std::uint32_t> origins_;  // folded offset → offset in the text; empty when they are the same
    std::size_t length_ = 0;
};

/// True if `needle` occurs in `text` ignoring case; an empty needle does not.
bool containsIgnoringCase(std::string_view text, std::string_view needle);

std::u16string utf16(std::string_view text);
/// Lone surrogates become U+FFFD.
std::string utf8(std::u16string_view text);
/// The length of well-formed UTF-8 text in UTF-16 units, without converting it.
std::size_t utf16Length(std::string_view text);

/// The name of a language ("de", "en") in English, or the code itself where there is none.
std::string languageDisplayName(std::string_view languageCode);

/// Compares as a file list of the desktop would: the locale's collation with numeric ordering, ties broken by
/// bytes so that the order is total. Negative, zero or positive. `locale` is an ICU locale name, "" for the
/// root.
int localisedStandardCompare(std::string_view left, std::string_view right, std::string_view locale = "");

/// Keys that compare, byte by byte, as localisedStandardCompare() compares the texts: for sorting many.
std::string localisedSortKey(std::string_view text, std::string_view locale = "");

/// Sentences of the text (UAX #29 sentence boundaries), as they stand, in order.
std::vector<std::string_view> sentences(std::string_view text);

}  // namespace vesk
