#include "VeskCore/Support/Unicode.h"

#include <unicode/brkiter.h>
#include <unicode/bytestream.h>
#include <unicode/casemap.h>
#include <unicode/coll.h>
#include <unicode/locid.h>
#include <unicode/normalizer2.h>
#include <unicode/stringpiece.h>
#include <unicode/uchar.h>
#include <unicode/unorm2.h>
#include <unicode/ustring.h>
#include <unicode/utext.h>

#include <algorithm>
#include <array>
#include <limits>
#include <map>
#include <memory>

#include "VeskCore/Support/Ensure.h"
#include "VeskCore/Support/Text.h"

namespace vesk {

namespace {

constexpr bool isHighSurrogate(char16_t unit) {
    return unit >= 0xD800 && unit <= 0xDBFF;
}
constexpr bool isLowSurrogate(char16_t unit) {
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

/// ICU counts in 32 bits. What is longer keeps its bytes: none of these mappings is worth failing for.
bool fitsIcu(std::size_t size) {
    return size <= std::size_t{std::numeric_limits<std::int32_t>::max()} / 4;
}

icu::StringPiece piece(std::string_view text) {
    return {text.data(), static_cast<std::int32_t>(text.size())};
}

/// Runs an ICU mapping from UTF-8 to UTF-8: `map(sink, status)`. The text as it stands if ICU fails.
template <typename Map>
std::string mapped(std::string_view text, Map map) {
    if (!fitsIcu(text.size())) return std::string(text);
    std::string result;
    result.reserve(text.size());
    icu::StringByteSink<std::string> sink(&result);
    UErrorCode status = U_ZERO_ERROR;
    map(sink, status);
    return U_SUCCESS(status) ? result : std::string(text);
}

using NormaliserGetter = const icu::Normalizer2* (*)(UErrorCode&);

std::string normalised(std::string_view text, NormaliserGetter getter) {
    return mapped(text, [&](icu::ByteSink& sink, UErrorCode& status) {
        const icu::Normalizer2* const normaliser = getter(status);
        if (U_SUCCESS(status)) normaliser->normalizeUTF8(0, piece(text), sink, nullptr, status);
    });
}

bool comparesEqual(std::string_view left, std::string_view right, std::uint32_t options) {
    if (!fitsIcu(left.size()) || !fitsIcu(right.size())) return left == right;
    const std::u16string a = utf16(left);
    const std::u16string b = utf16(right);
    UErrorCode status = U_ZERO_ERROR;
    const std::int32_t order = unorm_compare(a.data(), static_cast<std::int32_t>(a.size()), b.data(),
                                             static_cast<std::int32_t>(b.size()), options, &status);
    return U_SUCCESS(status) ? order == 0 : left == right;
}

char32_t nextCodePoint16(std::u16string_view text, std::size_t& offset) {
    const char16_t unit = text[offset++];
    if (isHighSurrogate(unit) && offset < text.size() && isLowSurrogate(text[offset])) {
        return 0x10000 + ((char32_t{unit} - 0xD800) << 10) + (char32_t{text[offset++]} - 0xDC00);
    }
    return unit;
}

/// The folded form of one code point, which no context changes.
struct FoldedCodePoint {
    std::array<char16_t, 8> units{};
    std::size_t length = 0;
};

FoldedCodePoint foldedCodePoint(std::u16string_view codePoint) {
    FoldedCodePoint folded;
    UErrorCode status = U_ZERO_ERROR;
    const std::int32_t length =
        u_strFoldCase(folded.units.data(), static_cast<std::int32_t>(folded.units.size()), codePoint.data(),
                      static_cast<std::int32_t>(codePoint.size()), U_FOLD_CASE_DEFAULT, &status);
    VESK_ENSURE(U_SUCCESS(status) || status == U_STRING_NOT_TERMINATED_WARNING);
    folded.length = static_cast<std::size_t>(length);
    return folded;
}

/// Calls `take(start, folded units)` for each code point of `text`.
template <typename Take>
void foldEach(std::u16string_view text, Take take) {
    for (std::size_t offset = 0; offset < text.size();) {
        const std::size_t start = offset;
        if (text[start] < 0x80) {
            const char16_t unit = text[start];
            const char16_t lowered = unit >= u'A' && unit <= u'Z' ? static_cast<char16_t>(unit + 0x20) : unit;
            take(start, std::u16string_view(&lowered, 1));
            ++offset;
            continue;
        }
        nextCodePoint16(text, offset);
        const FoldedCodePoint folded = foldedCodePoint(text.substr(start, offset - start));
        take(start, std::u16string_view(folded.units.data(), folded.length));
    }
}

/// Searches for one needle again and again, in linear time whatever text and needle are (Knuth, Morris,
/// Pratt).
class Searcher {
public:
    explicit Searcher(std::u16string_view needle) : needle_(needle), borders_(needle.size() + 1) {
        std::size_t border = 0;
        for (std::size_t i = 1; i < needle.size(); ++i) {
            while (border > 0 && needle[i] != needle[border]) border = borders_[border];
            if (needle[i] == needle[border]) ++border;
            borders_[i + 1] = border;
        }
    }

    /// The first offset at or after `from` where the needle stands and `accepts(offset)`, or npos.
    template <typename Accepts>
    std::size_t find(std::u16string_view text, std::size_t from, Accepts accepts) const {
        std::size_t matched = 0;
        for (std::size_t i = from; i < text.size(); ++i) {
            while (matched > 0 && text[i] != needle_[matched]) matched = borders_[matched];
            if (text[i] == needle_[matched]) ++matched;
            if (matched < needle_.size()) continue;
            const std::size_t start = i + 1 - needle_.size();
            if (accepts(start)) return start;
            matched = borders_[matched];
        }
        return std::u16string_view::npos;
    }

private:
    std::u16string_view needle_;
    std::vector<std::size_t> borders_;
};

/// The collators of this thread; a program uses one or two locales.
const icu::Collator* numericCollator(std::string_view locale) {
    thread_local std::map<std::string, std::unique_ptr<icu::Collator>, std::less<>> collators;
    const auto known = collators.find(locale);
    if (known != collators.end()) return known->second.get();
    UErrorCode status = U_ZERO_ERROR;
    const icu::Locale name =
        locale.empty() ? icu::Locale::getRoot() : icu::Locale(std::string(locale).c_str());
    std::unique_ptr<icu::Collator> collator(
        icu::Collator::createInstance(name.isBogus() ? icu::Locale::getRoot() : name, status));
    if (collator && U_SUCCESS(status)) collator->setAttribute(UCOL_NUMERIC_COLLATION, UCOL_ON, status);
    if (U_FAILURE(status)) collator.reset();
    constexpr std::size_t maxCollators = 16;
    if (collators.size() >= maxCollators) collators.clear();
    return collators.emplace(locale, std::move(collator)).first->second.get();
}

icu::BreakIterator* sentenceIterator() {
    thread_local const std::unique_ptr<icu::BreakIterator> iterator = [] {
        UErrorCode status = U_ZERO_ERROR;
        std::unique_ptr<icu::BreakIterator> created(
            icu::BreakIterator::createSentenceInstance(icu::Locale::getRoot(), status));
        if (U_FAILURE(status)) created.reset();
        return created;
    }();
    return iterator.get();
}

struct UTextCloser {
    void operator()(UText* text) const { utext_close(text); }
};

}  // namespace

bool isLetter(char32_t codePoint) {
    return u_isalpha(static_cast<UChar32>(codePoint)) != 0;
}

bool isNumber(char32_t codePoint) {
    const auto category = u_charType(static_cast<UChar32>(codePoint));
    return category == U_DECIMAL_DIGIT_NUMBER || category == U_LETTER_NUMBER || category == U_OTHER_NUMBER;
}

bool isWordCharacter(char32_t codePoint) {
    if (codePoint < 0x80) return codePoint == U'_' || isAsciiAlphanumeric(static_cast<char>(codePoint));
    constexpr auto words = U_GC_L_MASK | U_GC_M_MASK | U_GC_ND_MASK | U_GC_NL_MASK | U_GC_PC_MASK;
    return (U_GET_GC_MASK(static_cast<UChar32>(codePoint)) & words) != 0;
}

bool joinsCharacterBefore(char32_t codePoint) {
    if (codePoint < 0x300) return false;
    const int breakClass =
        u_getIntPropertyValue(static_cast<UChar32>(codePoint), UCHAR_GRAPHEME_CLUSTER_BREAK);
    return breakClass == U_GCB_EXTEND || breakClass == U_GCB_ZWJ || breakClass == U_GCB_SPACING_MARK;
}

bool containsLetterOrNumber(std::string_view text) {
    for (std::size_t offset = 0; offset < text.size();) {
        const char32_t codePoint = nextCodePoint(text, offset);
        if (isLetter(codePoint) || isNumber(codePoint)) return true;
    }
    return false;
}

std::string lowercased(std::string_view text) {
    if (isAscii(text)) return asciiLowercased(text);
    return mapped(text, [&](icu::ByteSink& sink, UErrorCode& status) {
        icu::CaseMap::utf8ToLower("", 0, piece(text), sink, nullptr, status);
    });
}

std::string uppercased(std::string_view text) {
    return mapped(text, [&](icu::ByteSink& sink, UErrorCode& status) {
        icu::CaseMap::utf8ToUpper("", 0, piece(text), sink, nullptr, status);
    });
}

std::string caseFolded(std::string_view text) {
    if (isAscii(text)) return asciiLowercased(text);
    return mapped(text, [&](icu::ByteSink& sink, UErrorCode& status) {
        icu::CaseMap::utf8Fold(0, piece(text), sink, nullptr, status);
    });
}

std::string caseAndDiacriticFolded(std::string_view text) {
    if (isAscii(text)) return asciiLowercased(text);
    const std::string decomposed = normalised(caseFolded(text), icu::Normalizer2::getNFDInstance);
    std::string folded;
    folded.reserve(decomposed.size());
    for (std::size_t offset = 0; offset < decomposed.size();) {
        const std::size_t start = offset;
        const char32_t codePoint = nextCodePoint(decomposed, offset);
        if (u_charType(static_cast<UChar32>(codePoint)) == U_NON_SPACING_MARK) continue;
        folded.append(decomposed, start, offset - start);
    }
    return folded;
}

std::string normalisedNfc(std::string_view text) {
    if (isAscii(text)) return std::string(text);
    return normalised(text, icu::Normalizer2::getNFCInstance);
}

std::string normalisedNfkc(std::string_view text) {
    if (isAscii(text)) return std::string(text);
    return normalised(text, icu::Normalizer2::getNFKCInstance);
}

bool canonicallyEqual(std::string_view left, std::string_view right) {
    if (left == right) return true;
    // Some characters outside ASCII are canonically equal to one inside it (U+212A, the Kelvin sign).
    if (isAscii(left) && isAscii(right)) return false;
    return comparesEqual(left, right, 0);
}

bool equalsIgnoringCase(std::string_view left, std::string_view right) {
    if (left == right) return true;
    if (isAscii(left) && isAscii(right)) return asciiEqualsIgnoringCase(left, right);
    return comparesEqual(left, right, U_COMPARE_IGNORE_CASE);
}

CaselessHaystack::CaselessHaystack(std::u16string_view text) : length_(text.size()) {
    folded_.reserve(text.size());
    foldEach(text, [&](std::size_t start, std::u16string_view units) {
        // The table begins at the first code point whose folded form is not where the code point is.
        const bool same = folded_.size() == start && units.size() == 1;
        if (!same && origins_.empty()) {
            for (std::size_t i = 0; i < folded_.size(); ++i)
                origins_.push_back(static_cast<std::uint32_t>(i));
        }
        folded_ += units;
        if (!same || !origins_.empty()) origins_.resize(folded_.size(), static_cast<std::uint32_t>(start));
    });
}

template <typename Accepts>
void CaselessHaystack::search(std::u16string_view needle, std::size_t from, Accepts accepts) const {
    if (needle.empty() || from >= length_) return;
    std::u16string wanted;
    wanted.reserve(needle.size());
    foldEach(needle, [&](std::size_t, std::u16string_view units) { wanted += units; });

    // Without a table each unit is a code point of its own.
    const auto originOf = [this](std::size_t folded) {
        if (folded >= folded_.size()) return length_;
        return origins_.empty() ? folded : std::size_t{origins_[folded]};
    };
    const auto isEdge = [&](std::size_t folded) {
        return folded == 0 || originOf(folded) != originOf(folded - 1);
    };
    std::size_t start = from;
    if (!origins_.empty()) {
        start = static_cast<std::size_t>(std::lower_bound(origins_.begin(), origins_.end(), from) -
                                         origins_.begin());
    }
    Searcher(wanted).find(folded_, start, [&](std::size_t at) {
        if (!isEdge(at) || !isEdge(at + wanted.size())) return false;
        const std::size_t location = originOf(at);
        return accepts(TextRange{location, originOf(at + wanted.size()) - location});
    });
}

std::optional<TextRange> CaselessHaystack::find(std::u16string_view needle, std::size_t from) const {
    std::optional<TextRange> found;
    search(needle, from, [&](TextRange range) {
        found = range;
        return true;
    });
    return found;
}

std::vector<TextRange> CaselessHaystack::all(std::u16string_view needle) const {
    std::vector<TextRange> found;
    search(needle, 0, [&](TextRange range) {
        found.push_back(range);
        return false;
    });
    return found;
}

std::vector<TextRange> occurrences(std::u16string_view text, std::u16string_view needle) {
    std::vector<TextRange> found;
    if (needle.empty()) return found;
    Searcher(needle).find(text, 0, [&](std::size_t at) {
        found.push_back({at, needle.size()});
        return false;
    });
    return found;
}

bool containsIgnoringCase(std::string_view text, std::string_view needle) {
    if (needle.empty()) return false;
    return CaselessHaystack(utf16(text)).find(utf16(needle)).has_value();
}

std::u16string utf16(std::string_view text) {
    std::u16string units;
    units.reserve(text.size());
    for (std::size_t offset = 0; offset < text.size();) {
        const std::string_view ascii = text.substr(offset, asciiRunEnd(text, offset) - offset);
        units.append(ascii.begin(), ascii.end());
        offset += ascii.size();
        if (offset == text.size()) break;
        const char32_t codePoint = nextCodePoint(text, offset);
        if (codePoint > 0xFFFF) {
            units.push_back(static_cast<char16_t>(0xD800 + ((codePoint - 0x10000) >> 10)));
            units.push_back(static_cast<char16_t>(0xDC00 + ((codePoint - 0x10000) & 0x3FF)));
        } else {
            units.push_back(static_cast<char16_t>(codePoint));
        }
    }
    return units;
}

std::string utf8(std::u16string_view text) {
    std::string bytes;
    bytes.reserve(text.size());
    for (std::size_t offset = 0; offset < text.size();) {
        if (text[offset] < 0x80) {
            bytes.push_back(static_cast<char>(text[offset++]));
        } else {
            appendCodePoint(bytes, nextCodePoint16(text, offset));
        }
    }
    return bytes;
}

std::size_t utf16Length(std::string_view text) {
    std::size_t length = 0;
    for (std::size_t offset = 0; offset < text.size();) {
        const std::size_t ascii = asciiRunEnd(text, offset);
        length += ascii - offset;
        offset = ascii;
        if (offset < text.size()) length += nextCodePoint(text, offset) > 0xFFFF ? 2U : 1U;
    }
    return length;
}

std::string languageDisplayName(std::string_view languageCode) {
    const icu::Locale locale{std::string(languageCode).c_str()};
    icu::UnicodeString name;
    // ICU has a name for no language at all, "Unknown language"; the code says more.
    if (!locale.isBogus() && *locale.getLanguage() != 0)
        locale.getDisplayLanguage(icu::Locale::getEnglish(), name);
    std::string words;
    name.toUTF8String(words);
    return words.empty() ? std::string(languageCode) : words;
}

int localisedStandardCompare(std::string_view left, std::string_view right, std::string_view locale) {
    const icu::Collator* const collator = numericCollator(locale);
    if (collator != nullptr && fitsIcu(left.size()) && fitsIcu(right.size())) {
        UErrorCode status = U_ZERO_ERROR;
        const UCollationResult order = collator->compareUTF8(piece(left), piece(right), status);
        if (U_SUCCESS(status) && order != UCOL_EQUAL) return order == UCOL_LESS ? -1 : 1;
    }
    const int order = left.compare(right);
    return order < 0 ? -1 : (order > 0 ? 1 : 0);
}

std::string localisedSortKey(std::string_view text, std::string_view locale) {
    std::string key;
    const icu::Collator* const collator = numericCollator(locale);
    if (collator != nullptr && fitsIcu(text.size())) {
        const auto units = icu::UnicodeString::fromUTF8(piece(text));
        key.resize(text.size() * 2 + 16);
        const auto capacity = static_cast<std::int32_t>(key.size());
        auto length = collator->getSortKey(units, reinterpret_cast<std::uint8_t*>(key.data()), capacity);
        key.resize(static_cast<std::size_t>(length));
        if (length > capacity)
            length = collator->getSortKey(units, reinterpret_cast<std::uint8_t*>(key.data()), length);
    }
    // The key ends with a zero, so that what follows only breaks ties.
    key += text;
    return key;
}

std::vector<std::string_view> sentences(std::string_view text) {
    if (text.empty()) return {};
    icu::BreakIterator* const iterator = sentenceIterator();
    UErrorCode status = U_ZERO_ERROR;
    const std::unique_ptr<UText, UTextCloser> input(
        utext_openUTF8(nullptr, text.data(), static_cast<std::int64_t>(text.size()), &status));
    if (iterator != nullptr && U_SUCCESS(status)) iterator->setText(input.get(), status);
    if (iterator == nullptr || U_FAILURE(status) || !fitsIcu(text.size())) return {text};
    std::vector<std::string_view> list;
    std::size_t start = 0;
    iterator->first();
    for (std::int32_t end = iterator->next(); end != icu::BreakIterator::DONE; end = iterator->next()) {
        list.push_back(text.substr(start, static_cast<std::size_t>(end) - start));
        start = static_cast<std::size_t>(end);
    }
    return list;
}

}  // namespace vesk
