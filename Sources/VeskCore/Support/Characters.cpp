#include "VeskCore/Support/Characters.h"

#include <unicode/uchar.h>
#include <unicode/uscript.h>

#include <algorithm>

#include "VeskCore/Support/Ensure.h"
#include "VeskCore/Support/Text.h"

// The boundary rules of UAX #29 need no look-behind beyond the start of a character, so a forward walk from
// one boundary to the next holds no state between characters: linear in time, no memory. The properties are
// ICU's, and so is the set of scripts whose conjuncts are one character.

namespace vesk {

namespace {

constexpr bool isAsciiByte(char c) {
    return static_cast<signed char>(c) >= 0;
}

int breakClass(char32_t codePoint) {
    // No code point below U+0300 but the controls joins with anything; most text ends here.
    if (codePoint < 0x300 && codePoint >= 0x20 && (codePoint < 0x7F || codePoint > 0xAD)) return U_GCB_OTHER;
    return u_getIntPropertyValue(static_cast<UChar32>(codePoint), UCHAR_GRAPHEME_CLUSTER_BREAK);
}

bool isPictographic(char32_t codePoint) {
    return u_hasBinaryProperty(static_cast<UChar32>(codePoint), UCHAR_EXTENDED_PICTOGRAPHIC) != 0;
}

/// The Indic syllabic category of a character of a script whose consonants join across a virama, or
/// U_INSC_OTHER.
int conjunctCategory(char32_t codePoint) {
    if (codePoint < 0x0900 || codePoint > 0x0D7F) return U_INSC_OTHER;
    UErrorCode status = U_ZERO_ERROR;
    switch (uscript_getScript(static_cast<UChar32>(codePoint), &status)) {
        case USCRIPT_BENGALI:
        case USCRIPT_DEVANAGARI:
        case USCRIPT_GUJARATI:
        case USCRIPT_MALAYALAM:
        case USCRIPT_ORIYA:
        case USCRIPT_TELUGU:
            return u_getIntPropertyValue(static_cast<UChar32>(codePoint), UCHAR_INDIC_SYLLABIC_CATEGORY);
        default:
            return U_INSC_OTHER;
    }
}

bool isControl(int breakClass) {
    return breakClass == U_GCB_CONTROL || breakClass == U_GCB_CR || breakClass == U_GCB_LF;
}

/// The rules of Hangul syllables (GB6 to GB8).
bool joinsHangul(int before, int after) {
    switch (before) {
        case U_GCB_L:
            return after == U_GCB_L || after == U_GCB_V || after == U_GCB_LV || after == U_GCB_LVT;
        case U_GCB_LV:
        case U_GCB_V:
            return after == U_GCB_V || after == U_GCB_T;
        case U_GCB_LVT:
        case U_GCB_T:
            return after == U_GCB_T;
        default:
            return false;
    }
}

/// What a character holds so far, as far as the next boundary depends on it.
class Cluster {
public:
    explicit Cluster(char32_t first) { add(first, breakClass(first)); }

    /// True if the boundary rules join `codePoint` to what stands so far.
    bool joins(char32_t codePoint, int codePointClass) const {
        if (isControl(last_)) return last_ == U_GCB_CR && codePointClass == U_GCB_LF;
        if (isControl(codePointClass)) return false;
        if (codePointClass == U_GCB_EXTEND || codePointClass == U_GCB_ZWJ ||
            codePointClass == U_GCB_SPACING_MARK || last_ == U_GCB_PREPEND) {
            return true;
        }
        if (joinsHangul(last_, codePointClass)) return true;
        if (conjunct_ == Conjunct::linked && conjunctCategory(codePoint) == U_INSC_CONSONANT) return true;
        if (codePointClass == U_GCB_REGIONAL_INDICATOR) return oddIndicators_;
        return emoji_ == Emoji::joiner && isPictographic(codePoint) && isPictographic(base_);
    }

    void add(char32_t codePoint, int codePointClass) {
        last_ = codePointClass;
        oddIndicators_ = codePointClass == U_GCB_REGIONAL_INDICATOR && !oddIndicators_;
        if (codePointClass == U_GCB_ZWJ) {
            emoji_ = emoji_ == Emoji::base ? Emoji::joiner : Emoji::none;
        } else if (codePointClass != U_GCB_EXTEND) {
            base_ = codePoint;
            emoji_ = Emoji::base;
        } else if (emoji_ == Emoji::joiner) {
            emoji_ = Emoji::none;
        }
        conjunct_ = conjunctBehind(codePoint, codePointClass);
    }

private:
    /// How far "pictograph, extenders, joiner" has come (GB11); whether the base is a pictograph is asked
    /// last.
    enum class Emoji { none, base, joiner };

    /// How far "consonant, marks, virama, marks" has come (GB9c).
    enum class Conjunct { none, consonant, linked };

    Conjunct conjunctBehind(char32_t codePoint, int codePointClass) const {
        const int category = conjunctCategory(codePoint);
        if (category == U_INSC_CONSONANT) return Conjunct::consonant;
        if (conjunct_ == Conjunct::none || codePointClass == U_GCB_ZWJ) return conjunct_;
        if (category == U_INSC_VIRAMA) return Conjunct::linked;
        const bool mark =
            codePointClass == U_GCB_EXTEND && u_getCombiningClass(static_cast<UChar32>(codePoint)) != 0;
        return mark ? conjunct_ : Conjunct::none;
    }

    int last_ = U_GCB_OTHER;
    bool oddIndicators_ = false;
    Emoji emoji_ = Emoji::none;
    Conjunct conjunct_ = Conjunct::none;
    char32_t base_ = 0;
};

/// The end of the character that begins at `start`, which is not the end of the text.
std::size_t characterEnd(std::string_view text, std::size_t start) {
    std::size_t offset = start + 1;
    if (isAsciiByte(text[start])) {
        if (offset == text.size()) return offset;
        if (isAsciiByte(text[offset]))
            return text[start] == '\r' && text[offset] == '\n' ? offset + 1 : offset;
    }
    offset = start;
    Cluster cluster(nextCodePoint(text, offset));
    while (offset < text.size()) {
        std::size_t behind = offset;
        const char32_t codePoint = nextCodePoint(text, behind);
        const int codePointClass = breakClass(codePoint);
        if (!cluster.joins(codePoint, codePointClass)) break;
        cluster.add(codePoint, codePointClass);
        offset = behind;
    }
    return offset;
}

/// The end of the stretch of ASCII at `offset` whose characters are settled: what follows the stretch may
/// still join its last byte.
std::size_t settledAsciiEnd(std::string_view text, std::size_t offset) {
    std::size_t end = asciiRunEnd(text, offset);
    if (end == offset || end == text.size()) return end;
    --end;
    if (end > offset && text[end] == '\n' && text[end - 1] == '\r') --end;
    return end;
}

std::size_t asciiCharacterCount(std::string_view text) {
    std::size_t pairs = 0;
    for (std::size_t at = text.find("\r\n"); at != std::string_view::npos; at = text.find("\r\n", at + 2)) {
        ++pairs;
    }
    return text.size() - pairs;
}

}  // namespace

std::size_t characterCount(std::string_view text) {
    std::size_t count = 0;
    for (std::size_t offset = 0; offset < text.size();) {
        const std::size_t settled = settledAsciiEnd(text, offset);
        count += asciiCharacterCount(text.substr(offset, settled - offset));
        offset = settled;
        if (offset == text.size()) break;
        offset = characterEnd(text, offset);
        ++count;
    }
    return count;
}

std::string_view characterPrefix(std::string_view text, std::size_t count) {
    if (count >= text.size()) return text;
    std::size_t offset = 0;
    for (; count > 0 && offset < text.size(); --count) offset = characterEnd(text, offset);
    return text.substr(0, offset);
}

std::string_view characterPrefixFitting(std::string_view text, std::size_t maxBytes) {
    if (text.size() <= maxBytes) return text;
    std::size_t offset = 0;
    while (true) {
        const std::size_t end = characterEnd(text, offset);
        if (end > maxBytes) return text.substr(0, offset);
        offset = end;
    }
}

std::vector<std::string_view> characters(std::string_view text) {
    std::vector<std::string_view> list;
    for (std::size_t offset = 0; offset < text.size();) {
        const std::size_t end = characterEnd(text, offset);
        list.push_back(text.substr(offset, end - offset));
        offset = end;
    }
    return list;
}

std::vector<std::size_t> characterBoundaries(std::string_view text) {
    std::vector<std::size_t> boundaries{0};
    while (boundaries.back() < text.size()) boundaries.push_back(characterEnd(text, boundaries.back()));
    return boundaries;
}

std::string_view CharacterCursor::next() {
    VESK_ENSURE(!atEnd());
    const std::size_t start = offset_;
    offset_ = characterEnd(text_, start);
    return text_.substr(start, offset_ - start);
}

}  // namespace vesk
