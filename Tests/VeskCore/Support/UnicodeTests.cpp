#include <gtest/gtest.h>

#include <random>

#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"

namespace vesk {
namespace {

TEST(Unicode, KnowsLettersAndNumbers) {
    for (const char32_t c : U"aÉßж日אʰ") {
        if (c != 0) {
            EXPECT_TRUE(isLetter(c) && !isNumber(c)) << std::uint32_t{c};
        }
    }
    for (const char32_t c : {U'0', U'٣', U'Ⅷ', U'½', U'²'}) {
        EXPECT_TRUE(isNumber(c) && !isLetter(c)) << std::uint32_t{c};
    }
    for (const char32_t c : {U'_', U' ', U'\u0301', U'😀', U'-', U'€'}) {
        EXPECT_FALSE(isNumber(c) || isLetter(c)) << std::uint32_t{c};
    }
    EXPECT_TRUE(containsLetterOrNumber("--- 語"));
    EXPECT_FALSE(containsLetterOrNumber("— 😀 !?\u0301"));
}

TEST(Unicode, MapsCaseWhateverItDoesToTheLength) {
    struct Row {
        std::string_view text, lower, upper, folded;
    };
    const std::vector<Row> rows{
        {"", "", "", ""},
        {"Hello", "hello", "HELLO", "hello"},
        {"Straße", "straße", "STRASSE", "strasse"},
        {"İ", "i\u0307", "İ", "i\u0307"},
        {"I", "i", "I", "i"},
        {"ΟΔΟΣ", "οδος", "ΟΔΟΣ", "οδοσ"},
        {"ǅ", "ǆ", "Ǆ", "ǆ"},
        {"ﬁ", "ﬁ", "FI", "fi"},
        {"😀", "😀", "😀", "😀"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.text);
        EXPECT_EQ(lowercased(row.text), row.lower);
        EXPECT_EQ(uppercased(row.text), row.upper);
        EXPECT_EQ(caseFolded(row.text), row.folded);
    }
    EXPECT_EQ(caseAndDiacriticFolded("Crème BRÛLÉE"), "creme brulee");
    EXPECT_EQ(caseAndDiacriticFolded("Crème"), "creme");
    EXPECT_EQ(caseAndDiacriticFolded("İstanbul Łódź"), "istanbul łodz");
}

TEST(Unicode, ComparesUnderCanonicalEquivalence) {
    EXPECT_EQ(normalisedNfc("e\u0301 \u212b"), "é Å");
    EXPECT_EQ(normalisedNfc("ﬁ"), "ﬁ");
    EXPECT_EQ(normalisedNfkc("ﬁ①e\u0301"), "fi1é");
    struct Row {
        std::string_view left, right;
        bool canonical, caseless;
    };
    const std::vector<Row> rows{
        {"é", "e\u0301", true, true}, {"É", "e\u0301", false, true},
        {"\u212a", "K", true, true},  {"\u212a", "k", false, true},
        {"ß", "SS", false, true},     {"a\u0323\u0307", "a\u0307\u0323", true, true},
        {"ﬁ", "fi", false, true},     {"①", "1", false, false},
        {"a", "A", false, true},      {"a", "ab", false, false},
        {"", "", true, true},         {"ａ", "a", false, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.left) + " " + std::string(row.right));
        EXPECT_EQ(canonicallyEqual(row.left, row.right), row.canonical);
        EXPECT_EQ(canonicallyEqual(row.right, row.left), row.canonical);
        EXPECT_EQ(equalsIgnoringCase(row.left, row.right), row.caseless);
    }
}

TEST(CaselessHaystack, MapsMatchesBackToTheText) {
    struct Row {
        const char* name;
        std::u16string_view text, needle;
        std::size_t from;
        std::optional<TextRange> expected;
    };
    const std::vector<Row> rows{
        {"plain", u"Hello World", u"WORLD", 0, TextRange{6, 5}},
        {"from", u"aAa", u"a", 1, TextRange{1, 1}},
        {"past the end", u"abc", u"c", 3, std::nullopt},
        {"empty needle", u"abc", u"", 0, std::nullopt},
        {"empty text", u"", u"a", 0, std::nullopt},
        {"ß found by ss", u"Straße x", u"STRASSE", 0, TextRange{0, 6}},
        {"behind ß", u"ßßend", u"End", 0, TextRange{2, 3}},
        {"half of ß is no match", u"ßs", u"s", 0, TextRange{1, 1}},
        {"nor is its second half", u"ßx", u"sx", 0, std::nullopt},
        {"ss across two ß", u"ßß", u"sss", 0, std::nullopt},
        {"behind İ, which folds to two code points", u"aİb", u"B", 0, TextRange{2, 1}},
        {"i alone is half of İ", u"İi", u"i", 0, TextRange{1, 1}},
        {"needle folds longer", u"x SS y", u"ß", 0, TextRange{2, 2}},
        {"ligature", u"oﬃce Fi", u"fi", 0, TextRange{5, 2}},
        {"whole ligature", u"oﬃce", u"FFI", 0, TextRange{1, 1}},
        {"behind an astral character", u"😀😀Ab", u"ab", 0, TextRange{4, 2}},
        {"astral case", u"x𐐀y", u"𐐨", 0, TextRange{1, 2}},
        {"half a surrogate pair", u"😀", u"\xD83D", 0, std::nullopt},
        {"second half of a surrogate pair", u"😀", u"\xDE00", 0, std::nullopt},
        {"a lone surrogate finds itself",
         u"a\xD83D"
         u"b",
         u"\xD83D", 0, TextRange{1, 1}},
        {"from inside a pair", u"😀😀", u"😀", 1, TextRange{2, 2}},
        {"from behind an expansion", u"ßaßa", u"A", 2, TextRange{3, 1}},
        {"Kelvin sign", u"5 \u212a", u"k", 0, TextRange{2, 1}},
        {"final sigma", u"ΟΔΟΣ", u"οδος", 0, TextRange{0, 4}},
        {"overlapping start", u"aabaabaac", u"AABAAC", 0, TextRange{3, 6}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(CaselessHaystack(row.text).find(row.needle, row.from), row.expected);
    }
}

TEST(CaselessHaystack, FindsWhatASearchAtEachCodePointFinds) {
    const unsigned seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    static constexpr std::u16string_view alphabet[] = {u"s", u"S", u"ß", u"a", u"İ", u"i", u"😀", u"ﬀ", u"f"};
    const auto randomText = [&](unsigned most) {
        std::u16string text;
        for (auto length = random() % most; length > 0; --length)
            text += alphabet[random() % std::size(alphabet)];
        return text;
    };
    for (int round = 0; round < 3000; ++round) {
        const std::u16string text = randomText(14);
        const std::u16string needle = randomText(4);
        const std::string folded = caseFolded(utf8(needle));
        std::optional<TextRange> expected;
        const auto inPair = [&](std::size_t at) {
            return at > 0 && at < text.size() && text[at] >= 0xDC00 && text[at] <= 0xDFFF;
        };
        for (std::size_t at = 0; at < text.size() && !expected && !needle.empty(); ++at) {
            for (std::size_t length = 1; at + length <= text.size(); ++length) {
                if (inPair(at) || inPair(at + length)) continue;
                if (caseFolded(utf8(text.substr(at, length))) != folded) continue;
                expected = TextRange{at, length};
                break;
            }
        }
        ASSERT_EQ(CaselessHaystack(text).find(needle), expected) << utf8(text) << " / " << utf8(needle);
        ASSERT_EQ(containsIgnoringCase(utf8(text), utf8(needle)), expected.has_value());
    }
}

TEST(CaselessHaystack, StaysLinearOnTextMadeOfItsNeedle) {
    // A search that starts over at every unit would take some 10^11 steps here.
    const std::u16string text(1'000'000, u'a');
    const std::u16string needle = std::u16string(200'000, u'A') + u"b";
    EXPECT_EQ(CaselessHaystack(text).find(needle), std::nullopt);
}

TEST(Unicode, ConvertsBetweenTheEncodings) {
    struct Row {
        std::string_view bytes;
        std::u16string_view units;
    };
    const std::vector<Row> rows{
        {"", u""},
        {"abc", u"abc"},
        {"a long stretch of ASCII, then é", u"a long stretch of ASCII, then é"},
        {"😀é\u07FF\u0800\uFFFF\U00010000\U0010FFFF", u"😀é\u07FF\u0800\uFFFF\U00010000\U0010FFFF"},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(utf16(row.bytes), row.units);
        EXPECT_EQ(utf8(row.units), row.bytes);
        EXPECT_EQ(utf16Length(row.bytes), row.units.size());
    }
    EXPECT_EQ(utf8(u"\xD83D"), "\uFFFD");
    EXPECT_EQ(utf8(u"a\xDE00\xD83D"
                   u"b\xD83D\xD83D\xDE00"),
              "a\uFFFD\uFFFD"
              "b\uFFFD😀");
}

TEST(Unicode, NamesLanguagesInEnglish) {
    EXPECT_EQ(languageDisplayName("de"), "German");
    EXPECT_EQ(languageDisplayName("EN"), "English");
    EXPECT_EQ(languageDisplayName("zh-Hans"), "Chinese");
    EXPECT_EQ(languageDisplayName("xx"), "xx");
    EXPECT_EQ(languageDisplayName(""), "");
    EXPECT_EQ(languageDisplayName("not a language"), "not a language");
}

TEST(Unicode, ComparesNamesAsAFileListDoes) {
    // Each row comes before the next.
    const std::vector<std::string_view> order{"",      "2", "10",     "a",       "A",       "a2",    "a10",
                                              "Ärger", "b", "note 2", "note 10", "Note 10", "Zebra", "日本"};
    for (std::size_t i = 0; i < order.size(); ++i) {
        for (std::size_t j = 0; j < order.size(); ++j) {
            const int expected = i < j ? -1 : (i > j ? 1 : 0);
            EXPECT_EQ(localisedStandardCompare(order[i], order[j]), expected)
                << order[i] << " / " << order[j];
        }
    }
    // Equal for the collation, told apart by their bytes.
    EXPECT_GT(localisedStandardCompare("é", "e\u0301"), 0);
    EXPECT_GT(localisedStandardCompare("note 1", "note 01"), 0);
    // Swedish sorts ä behind z; an unknown locale sorts as the root does.
    EXPECT_LT(localisedStandardCompare("ä", "z", "de_DE"), 0);
    EXPECT_GT(localisedStandardCompare("ä", "z", "sv_SE"), 0);
    EXPECT_LT(localisedStandardCompare("ä", "z", "nowhere"), 0);
    EXPECT_LT(localisedStandardCompare("ä", "z", std::string(500, 'x')), 0);
}

TEST(Unicode, SplitsSentencesWithoutLosingAByte) {
    using Pieces = std::vector<std::string_view>;
    EXPECT_EQ(sentences(""), Pieces{});
    EXPECT_EQ(sentences("One. Two? Three"), (Pieces{"One. ", "Two? ", "Three"}));
    EXPECT_EQ(sentences("It costs 3.5 euros. Grüße! 😀"), (Pieces{"It costs 3.5 euros. ", "Grüße! ", "😀"}));
    EXPECT_EQ(sentences("これは文。次の文。"), (Pieces{"これは文。", "次の文。"}));
    EXPECT_EQ(sentences("line\nnext"), (Pieces{"line\n", "next"}));
    EXPECT_EQ(join(sentences("a\xff. b\xe2\x82. c"), ""), "a\xff. b\xe2\x82. c");
}

}  // namespace
}  // namespace vesk
