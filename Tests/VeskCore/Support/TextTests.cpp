#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <random>

#include "VeskCore/Support/Text.h"

namespace vesk {
namespace {

using Pieces = std::vector<std::string_view>;

TEST(Text, KnowsItsWhiteSpace) {
    const std::u32string_view horizontal = U"\t \u00a0\u1680\u2000\u200a\u202f\u205f\u3000";
    const std::u32string_view newlines = U"\n\v\f\r\u0085\u2028\u2029";
    const std::u32string_view neither = U"a\0\u180e\u200b\u200d\ufeff\u001f";
    for (const char32_t c : horizontal) {
        EXPECT_TRUE(isHorizontalSpace(c) && isSpaceOrNewline(c) && !isNewline(c)) << std::uint32_t{c};
    }
    for (const char32_t c : newlines) {
        EXPECT_TRUE(!isHorizontalSpace(c) && isSpaceOrNewline(c) && isNewline(c)) << std::uint32_t{c};
    }
    for (const char32_t c : neither) EXPECT_FALSE(isSpaceOrNewline(c)) << std::uint32_t{c};
}

TEST(Text, TrimsBothEnds) {
    struct Row {
        std::string_view text, horizontal, all, trailing;
    };
    const std::vector<Row> rows{
        {"", "", "", ""},
        {" \t ", "", "", " \t "},
        {" a b ", "a b", "a b", " a b "},
        {"\n a \r\n", "\n a \r\n", "a", "\n a "},
        {"\u00a0\u3000日本\u2003", "日本", "日本", "\u00a0\u3000日本\u2003"},
        {"\u2028x\u0085\u2029", "\u2028x\u0085\u2029", "x", "\u2028x"},
        {"\u200bx\u200b", "\u200bx\u200b", "\u200bx\u200b", "\u200bx\u200b"},
        // 0xA0 and 0x85 are white space as code points, not as stray bytes or as the tail of other
        // characters.
        {"\xa0x\x85", "\xa0x\x85", "\xa0x\x85", "\xa0x\x85"},
        {"à", "à", "à", "à"},
        {" 😠 ", "😠", "😠", " 😠 "},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.text));
        EXPECT_EQ(trimHorizontal(row.text), row.horizontal);
        EXPECT_EQ(trim(row.text), row.all);
        EXPECT_EQ(trimTrailingNewlines(row.text), row.trailing);
    }
    EXPECT_EQ(trimCharacters("--a-b_-", "-_"), "a-b");
    EXPECT_EQ(trimCharacters("---", "-"), "");
}

TEST(Text, SplitsJoinsAndReplaces) {
    EXPECT_EQ(split("", ','), (Pieces{""}));
    EXPECT_EQ(split(",a,,b,", ','), (Pieces{"", "a", "", "b", ""}));
    EXPECT_EQ(splitWords("  a\tb ", " \t"), (Pieces{"a", "b"}));
    EXPECT_EQ(splitWords("", " "), Pieces{});
    EXPECT_EQ(splitLines("a\r\nb\n\r\nc\rd\r"), (Pieces{"a\r", "b", "\r", "c\rd\r"}));
    EXPECT_EQ(splitLines("a\r\nb\n\r\nc\rd\r", true), (Pieces{"a", "b", "", "c\rd"}));
    EXPECT_EQ(splitLines("a\r\r\n", true), (Pieces{"a\r", ""}));
    EXPECT_EQ(join(Pieces{"a", "", "b"}, ", "), "a, , b");
    EXPECT_EQ(join(std::vector<std::string>{}, ","), "");
    EXPECT_EQ(replaceAll("aaa", "aa", "b"), "ba");
    EXPECT_EQ(replaceAll("a.b.", ".", ".."), "a..b..");
    EXPECT_EQ(replaceAll("abc", "", "x"), "abc");
    EXPECT_EQ(asciiLowercased("AZÄ[@`"), "azÄ[@`");
    EXPECT_TRUE(asciiEqualsIgnoringCase("MD", "md"));
    EXPECT_FALSE(asciiEqualsIgnoringCase("md", "mdx"));
    EXPECT_FALSE(asciiEqualsIgnoringCase("[", "{"));
}

TEST(Text, RepairsIllFormedBytesByTheirMaximalSubsequences) {
    struct Row {
        const char* name;
        std::string_view bytes, repaired;
    };
    const std::vector<Row> rows{
        {"stray continuation", "a\x80z", "a\uFFFDz"},
        {"bytes that never occur", "\xC0\xAF\xF5\xFF", "\uFFFD\uFFFD\uFFFD\uFFFD"},
        {"overlong in three bytes", "\xE0\x80\x80", "\uFFFD\uFFFD\uFFFD"},
        {"surrogate", "\xED\xA0\x80z", "\uFFFD\uFFFD\uFFFDz"},
        {"overlong in four bytes", "\xF0\x8F\xBF\xBF", "\uFFFD\uFFFD\uFFFD\uFFFD"},
        {"above the last code point", "\xF4\x90\x80\x80", "\uFFFD\uFFFD\uFFFD\uFFFD"},
        {"cut after two of three", "\xE2\x82", "\uFFFD"},
        {"cut after three of four", "\xF0\x9F\x98z", "\uFFFDz"},
        {"cut, then whole", "\xF0\x9F\x98\xF0\x9F\x98\x80", "\uFFFD😀"},
        {"the example of the Unicode Standard",
         "a\xF1\x80\x80\xE1\x80\xC2"
         "b\x80"
         "c\x80\xBF"
         "d",
         "a\uFFFD\uFFFD\uFFFD"
         "b\uFFFD"
         "c\uFFFD\uFFFD"
         "d"},
        {"far behind ASCII",
         "0123456789abcdef\xFF"
         "0123456789",
         "0123456789abcdef\uFFFD"
         "0123456789"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_FALSE(isValidUtf8(row.bytes));
        EXPECT_EQ(repairedUtf8(row.bytes), row.repaired);
    }
    for (const std::string_view good :
         {"", "abc", "\u0080\u07FF\u0800\uD7FF\uE000\uFFFF\U00010000\U0010FFFF"}) {
        EXPECT_TRUE(isValidUtf8(good));
        EXPECT_EQ(repairedUtf8(good), good);
    }
}

TEST(Text, CutAtEveryByteIsRepairedToTheWholeCodePointsAndOneMark) {
    const std::string text = "aé€😀";
    struct Row {
        std::size_t bytes;
        std::string_view expected;
    };
    const std::vector<Row> rows{{1, "a"},         {2, "a\uFFFD"}, {3, "aé"},        {4, "aé\uFFFD"},
                                {5, "aé\uFFFD"},  {6, "aé€"},     {7, "aé€\uFFFD"}, {8, "aé€\uFFFD"},
                                {9, "aé€\uFFFD"}, {10, text}};
    for (const Row& row : rows) {
        EXPECT_EQ(repairedUtf8(std::string_view(text).substr(0, row.bytes)), row.expected) << row.bytes;
    }
}

TEST(Text, RandomBytesBecomeValidTextOnce) {
    const unsigned seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    static constexpr unsigned char alphabet[] = {'a',  0x7F, 0x80, 0x8F, 0x90, 0x9F, 0xA0, 0xBF, 0xC1, 0xC2,
                                                 0xDF, 0xE0, 0xE1, 0xED, 0xEF, 0xF0, 0xF1, 0xF4, 0xF5};
    for (int round = 0; round < 5000; ++round) {
        std::string bytes;
        for (auto length = random() % 20; length > 0; --length) {
            bytes.push_back(static_cast<char>(alphabet[random() % std::size(alphabet)]));
        }
        const std::string repaired = repairedUtf8(bytes);
        ASSERT_TRUE(isValidUtf8(repaired)) << testing::PrintToString(bytes);
        ASSERT_EQ(isValidUtf8(bytes), repaired == bytes) << testing::PrintToString(bytes);
        std::string walked;
        for (std::size_t offset = 0; offset < repaired.size();) {
            appendCodePoint(walked, nextCodePoint(repaired, offset));
        }
        ASSERT_EQ(walked, repaired);
    }
}

TEST(Text, DecodesTheOneByteEncodings) {
    EXPECT_EQ(latin1ToUtf8("caf\xE9\x80\xFF"), "caf\u00E9\u0080\u00FF");
    EXPECT_EQ(windows1252ToUtf8("\x80\x85\x91\x93\x99\x9F\xA0\xFF"), "€…‘“™Ÿ\u00A0ÿ");
    EXPECT_EQ(windows1252ToUtf8("\x81\x8D\x8F\x90\x9D"), "\u0081\u008D\u008F\u0090\u009D");
    EXPECT_EQ(decodedText("caf\xC3\xA9"), "café");
    EXPECT_EQ(decodedText("caf\xE9"), "café");
}

TEST(Text, ReadsAndWritesCodePoints) {
    std::size_t offset = 1;
    EXPECT_EQ(nextCodePoint("a€b", offset), U'€');
    EXPECT_EQ(offset, 4U);
    offset = 0;
    EXPECT_EQ(nextCodePoint("\xE2\x82", offset), U'\uFFFD');
    EXPECT_EQ(offset, 1U);
    EXPECT_EQ(firstCodePoint("😀a"), U'😀');
    EXPECT_EQ(firstCodePoint(""), std::nullopt);
    std::string text;
    for (const char32_t bad : {char32_t{0xD800}, char32_t{0xDFFF}, char32_t{0x110000}})
        appendCodePoint(text, bad);
    EXPECT_EQ(text, "\uFFFD\uFFFD\uFFFD");
}

TEST(Text, WritesTheShortestDecimalWithoutNeedlessExponents) {
    struct Row {
        double value;
        std::string_view expected;
    };
    const std::vector<Row> rows{
        {0, "0"},
        {-0.0, "-0"},
        {1, "1"},
        {-2.5, "-2.5"},
        {0.1, "0.1"},
        {0.1 + 0.2, "0.30000000000000004"},
        {100000, "100000"},
        {1e15, "1000000000000000"},
        {9007199254740993.0, "9007199254740992"},
        {9999999999999998.0, "9999999999999998"},
        {1e16, "1e+16"},
        {1e20, "1e+20"},
        {-1.5e300, "-1.5e+300"},
        {0.000001, "0.000001"},
        {0.00012345, "0.00012345"},
        {1e-7, "1e-7"},
        {-1.25e-9, "-1.25e-9"},
        {5e-324, "5e-324"},
        {std::numeric_limits<double>::infinity(), "inf"},
        {-std::numeric_limits<double>::infinity(), "-inf"},
        {std::numeric_limits<double>::quiet_NaN(), "nan"},
    };
    for (const Row& row : rows) EXPECT_EQ(shortestDecimal(row.value), row.expected);
}

TEST(Text, ReadsDecimalsStrictly) {
    const double infinity = std::numeric_limits<double>::infinity();
    struct Row {
        std::string_view text;
        std::optional<double> expected;
    };
    const std::vector<Row> rows{
        {"0", 0},
        {"-1.5", -1.5},
        {"+2", 2},
        {".5", 0.5},
        {"5.", 5},
        {"1e3", 1000},
        {"1E+3", 1000},
        {"25e-1", 2.5},
        {"-.5e1", -5},
        {"5.e1", 50},
        {"007", 7},
        {"1e999", infinity},
        {"-1e999", -infinity},
        {"1e-999", 0},
        {"0e999", 0},
        {"1e99999999999999999999", infinity},
        {"1e-99999999999999999999", 0},
        {"0.0001e-400", 0},
        {"", std::nullopt},
        {".", std::nullopt},
        {"-", std::nullopt},
        {"1e", std::nullopt},
        {"e5", std::nullopt},
        {"1e+", std::nullopt},
        {" 1", std::nullopt},
        {"1 ", std::nullopt},
        {"1,5", std::nullopt},
        {"0x10", std::nullopt},
        {"inf", std::nullopt},
        {"nan", std::nullopt},
        {"+-1", std::nullopt},
        {"1.2.3", std::nullopt},
        {"١", std::nullopt},
        {"-+1", std::nullopt},
    };
    for (const Row& row : rows) EXPECT_EQ(parseDecimal(row.text), row.expected) << row.text;
    EXPECT_TRUE(std::signbit(*parseDecimal("-0")));
    // A magnitude told by the digits, not by the exponent alone.
    EXPECT_EQ(parseDecimal("1" + std::string(400, '0') + "e-400"), 1.0);
    EXPECT_EQ(parseDecimal("1" + std::string(800, '0') + "e-100"), infinity);
    EXPECT_EQ(parseDecimal("0." + std::string(800, '0') + "1e100"), 0.0);
}

TEST(Text, DecimalsReadBackAsTheSameDouble) {
    const unsigned seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937_64 random(seed);
    for (int round = 0; round < 5000; ++round) {
        const double any = std::bit_cast<double>(random());
        const double near = static_cast<double>(random() % 1'000'000) / 1000;
        for (const double value : {any, near}) {
            if (std::isfinite(value)) {
                ASSERT_EQ(parseDecimal(shortestDecimal(value)), value);
            }
        }
    }
}

TEST(Text, ReadsIntegersStrictly) {
    struct Row {
        std::string_view text;
        std::optional<long long> expected;
    };
    const std::vector<Row> rows{
        {"0", 0},
        {"-12", -12},
        {"+12", 12},
        {"9223372036854775807", std::numeric_limits<long long>::max()},
        {"-9223372036854775808", std::numeric_limits<long long>::min()},
        {"9223372036854775808", std::nullopt},
        {"", std::nullopt},
        {"+", std::nullopt},
        {"+-1", std::nullopt},
        {"1.0", std::nullopt},
        {"1 ", std::nullopt},
        {"٣", std::nullopt},
    };
    for (const Row& row : rows) EXPECT_EQ(parseInteger(row.text), row.expected) << row.text;
}

}  // namespace
}  // namespace vesk
