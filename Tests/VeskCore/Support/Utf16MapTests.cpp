#include <gtest/gtest.h>

#include <random>

#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Utf16Map.h"

namespace vesk {
namespace {

TEST(Utf16Map, ConvertsBetweenBytesUnitsAndCodePoints) {
    const Utf16Map map("aé😀b");  // bytes 0 1 3 7 8, units 0 1 2 4 5, code points 0 1 2 3 4
    EXPECT_EQ(map.byteLength(), 8U);
    EXPECT_EQ(map.utf16Length(), 5U);
    const std::size_t bytes[] = {0, 1, 3, 3, 7, 8, 8};
    const std::size_t codePoints[] = {0, 1, 2, 2, 3, 4, 4};
    for (std::size_t unit = 0; unit < 7; ++unit) {
        EXPECT_EQ(map.byteFromUtf16(unit), bytes[unit]) << unit;
        EXPECT_EQ(map.codePointFromUtf16(unit), codePoints[unit]) << unit;
    }
    const std::size_t units[] = {0, 1, 1, 2, 2, 2, 2, 4, 5, 5};
    for (std::size_t byte = 0; byte < 10; ++byte) EXPECT_EQ(map.utf16FromByte(byte), units[byte]) << byte;
    const std::size_t ofCodePoint[] = {0, 1, 2, 4, 5, 5};
    for (std::size_t i = 0; i < 6; ++i) EXPECT_EQ(map.utf16FromCodePoint(i), ofCodePoint[i]) << i;
}

TEST(Utf16Map, ClampsInAsciiAndEmptyTexts) {
    const Utf16Map ascii("hello");
    EXPECT_EQ(ascii.byteFromUtf16(3), 3U);
    EXPECT_EQ(ascii.codePointFromUtf16(99), 5U);
    EXPECT_EQ(ascii.utf16Length(), 5U);
    const Utf16Map empty("");
    EXPECT_EQ(empty.byteFromUtf16(1), 0U);
    EXPECT_EQ(empty.utf16FromByte(0), 0U);
}

TEST(Utf16Map, AgreesWithANaiveWalkOnLongRandomTexts) {
    const unsigned seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    static constexpr char32_t alphabet[] = {'a', '\n', 0xE9, 0x301, 0x20AC, 0xFFFD, 0x1F600, 0x10FFFF};
    for (int round = 0; round < 20; ++round) {
        std::string text;
        for (auto length = random() % 900; length > 0; --length) {
            // Long ASCII stretches between others, so that samples fall on each kind.
            if (random() % 3 == 0) text.append(random() % 40, 'x');
            appendCodePoint(text, alphabet[random() % std::size(alphabet)]);
        }
        const Utf16Map map(text);
        std::size_t unit = 0;
        std::size_t codePoint = 0;
        for (std::size_t byte = 0; byte < text.size();) {
            const std::size_t start = byte;
            const std::size_t units = nextCodePoint(text, byte) > 0xFFFF ? 2 : 1;
            for (std::size_t inside = start; inside < byte; ++inside)
                ASSERT_EQ(map.utf16FromByte(inside), unit);
            for (std::size_t inside = unit; inside < unit + units; ++inside) {
                ASSERT_EQ(map.byteFromUtf16(inside), start);
                ASSERT_EQ(map.codePointFromUtf16(inside), codePoint);
            }
            ASSERT_EQ(map.utf16FromCodePoint(codePoint), unit);
            unit += units;
            ++codePoint;
        }
        ASSERT_EQ(map.utf16Length(), unit);
        ASSERT_EQ(map.byteFromUtf16(unit), text.size());
        ASSERT_EQ(map.utf16FromByte(text.size() + 7), unit);
    }
}

}  // namespace
}  // namespace vesk
