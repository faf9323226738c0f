#include "VeskCore/Support/DisplayWidth.h"

#include <unicode/uchar.h>

#include <algorithm>
#include <string>

#include "VeskCore/Support/Characters.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"

namespace vesk {

namespace {

std::size_t columnsOf(char32_t codePoint) {
    const auto unit = static_cast<UChar32>(codePoint);
    constexpr std::uint32_t withoutWidth = U_GC_MN_MASK | U_GC_ME_MASK | U_GC_CF_MASK | U_GC_CC_MASK;
    if ((U_GET_GC_MASK(unit) & withoutWidth) != 0) return 0;
    const int width = u_getIntPropertyValue(unit, UCHAR_EAST_ASIAN_WIDTH);
    return width == U_EA_WIDE || width == U_EA_FULLWIDTH ? 2 : 1;
}

/// The widest of its code points; flags and what is drawn as an emoji on request are wide too.
std::size_t columnsOfCharacter(std::string_view character) {
    constexpr char32_t emojiPresentation = 0xFE0F;
    std::size_t columns = 0;
    for (std::size_t offset = 0; offset < character.size();) {
        const char32_t codePoint = nextCodePoint(character, offset);
        const bool wide = codePoint == emojiPresentation ||
                          u_hasBinaryProperty(static_cast<UChar32>(codePoint), UCHAR_REGIONAL_INDICATOR) != 0;
        columns = std::max(columns, wide ? 2 : columnsOf(codePoint));
    }
    return columns;
}

}  // namespace

std::size_t displayColumns(std::u16string_view text) {
    const auto isPlain = [](char16_t unit) { return unit >= 0x20 && unit < 0x7F; };
    if (std::all_of(text.begin(), text.end(), isPlain)) return text.size();
    const std::string bytes = utf8(text);
    std::size_t columns = 0;
    for (CharacterCursor cursor(bytes); !cursor.atEnd();) columns += columnsOfCharacter(cursor.next());
    return columns;
}

}  // namespace vesk
