#include <gtest/gtest.h>
#include <unicode/brkiter.h>
#include <unicode/utext.h>

#include <algorithm>
#include <memory>
#include <random>

#include "VeskCore/Support/Characters.h"
#include "VeskCore/Support/Text.h"

namespace vesk {
namespace {

using Pieces = std::vector<std::string_view>;

TEST(Characters, AreWhatAUserSeesAsOne) {
    struct Row {
        const char* name;
        std::string_view text;
        Pieces expected;
    };
    const std::vector<Row> rows{
        {"empty", "", {}},
        {"ASCII", "abc", {"a", "b", "c"}},
        {"CR LF is one", "a\r\nb", {"a", "\r\n", "b"}},
        {"CR LF alone", "\r\n", {"\r\n"}},
        {"LF CR are two", "\n\r", {"\n", "\r"}},
        {"CR CR LF", "\r\r\n", {"\r", "\r\n"}},
        {"an accent joins an ASCII letter", "xe\u0301y", {"x", "e\u0301", "y"}},
        {"several accents join", "e\u0301\u0327z", {"e\u0301\u0327", "z"}},
        {"an accent does not join a line end", "\n\u0301", {"\n", "\u0301"}},
        {"an accent does not join CR LF", "\r\n\u0301", {"\r\n", "\u0301"}},
        {"an accent does not join a tab", "\t\u0301", {"\t", "\u0301"}},
        {"an accent at the start stands alone", "\u0301a", {"\u0301", "a"}},
        {"precomposed letters", "éà", {"é", "à"}},
        {"astral", "😀𝄞", {"😀", "𝄞"}},
        {"family", "👨‍👩‍👧‍👦!", {"👨‍👩‍👧‍👦", "!"}},
        {"skin tone and joiner", "👩🏽‍🚀👩🏽", {"👩🏽‍🚀", "👩🏽"}},
        {"variation selector", "❤️a", {"❤️", "a"}},
        {"keycap", "1️⃣2", {"1️⃣", "2"}},
        {"a joiner without a pictograph on the left", "a\u200D👧", {"a\u200D", "👧"}},
        {"a joiner without a pictograph on the right", "👧\u200Da", {"👧\u200D", "a"}},
        {"two joiners don't chain", "👧\u200D\u200D👧", {"👧\u200D\u200D", "👧"}},
        {"an extender behind the joiner", "👧\u200D\u0301👧", {"👧\u200D\u0301", "👧"}},
        {"flags pair up from the left", "🇩🇪🇫🇷🇬", {"🇩🇪", "🇫🇷", "🇬"}},
        {"flags count anew behind a letter", "🇩a🇫🇷", {"🇩", "a", "🇫🇷"}},
        {"flag of tags", "🏴󠁧󠁢󠁳󠁣󠁴󠁿x", {"🏴󠁧󠁢󠁳󠁣󠁴󠁿", "x"}},
        {"Hangul jamo", "\u1112\u1161\u11ab\u1100\u1173\u11af", {"\u1112\u1161\u11ab", "\u1100\u1173\u11af"}},
        {"Hangul syllable with a final", "각\u11a8가", {"각\u11a8", "가"}},
        {"Hangul final then vowel", "\u11a8\u1161", {"\u11a8", "\u1161"}},
        {"conjunct", "क्षिर", {"क्षि", "र"}},
        {"conjunct across a nukta and a joiner", "क़्\u200Dष", {"क़्\u200Dष"}},
        {"chain of conjuncts", "स्त्र", {"स्त्र"}},
        {"no conjunct in Tamil", "க்ஷ", {"க்", "ஷ"}},
        {"a vowel ends the chance of a conjunct", "का्ष", {"का्", "ष"}},
        {"spacing mark", "नि", {"नि"}},
        {"prepended mark", "\u0600\u0661x", {"\u0600\u0661", "x"}},
        {"prepended mark before a line end", "\u0600\n", {"\u0600", "\n"}},
        {"soft hyphen is a control", "a\u00ad\u0301", {"a", "\u00ad", "\u0301"}},
        {"ill-formed bytes stand alone", "a\xff\xe2\x82z", {"a", "\xff", "\xe2", "\x82", "z"}},
        {"NUL", std::string_view("a\0b", 3), {"a", std::string_view("\0", 1), "b"}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(characters(row.text), row.expected);
        EXPECT_EQ(characterCount(row.text), row.expected.size());
    }
}

TEST(Characters, PrefixKeepsWholeCharacters) {
    struct Row {
        std::string_view text;
        std::size_t count;
        std::string_view expected;
    };
    const std::vector<Row> rows{
        {"abc", 0, ""},
        {"abc", 2, "ab"},
        {"abc", 3, "abc"},
        {"abc", 99, "abc"},
        {"", 3, ""},
        {"a\r\nb", 2, "a\r\n"},
        {"e\u0301x", 1, "e\u0301"},
        {"👨‍👩‍👧‍👦🇩🇪x", 2, "👨‍👩‍👧‍👦🇩🇪"},
        {"日本語", 2, "日本"},
    };
    for (const Row& row : rows) EXPECT_EQ(characterPrefix(row.text, row.count), row.expected) << row.text;
}

TEST(Characters, PrefixFittingNeverExceedsTheBytesOrCutsACharacter) {
    struct Row {
        std::string_view text;
        std::size_t bytes;
        std::string_view expected;
    };
    const std::vector<Row> rows{
        {"abc", 2, "ab"},
        {"abc", 3, "abc"},
        {"aé", 2, "a"},
        {"aé", 3, "aé"},
        {"ae\u0301", 2, "a"},
        {"ae\u0301", 3, "a"},
        {"ae\u0301", 4, "ae\u0301"},
        {"👨‍👩‍👧‍👦", 24, ""},
        {"a\r\nb", 2, "a"},
        {"abc", 0, ""},
        {"", 0, ""},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(characterPrefixFitting(row.text, row.bytes), row.expected) << row.text << " " << row.bytes;
    }
}

/// The boundaries by ICU's own break iterator, as the reference.
std::vector<std::size_t> referenceBoundaries(std::string_view text) {
    UErrorCode status = U_ZERO_ERROR;
    const std::unique_ptr<icu::BreakIterator> iterator(
        icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
    UText* const input =
        utext_openUTF8(nullptr, text.data(), static_cast<std::int64_t>(text.size()), &status);
    iterator->setText(input, status);
    EXPECT_TRUE(U_SUCCESS(status));
    std::vector<std::size_t> boundaries;
    for (std::int32_t at = iterator->first(); at != icu::BreakIterator::DONE; at = iterator->next()) {
        boundaries.push_back(static_cast<std::size_t>(at));
    }
    utext_close(input);
    return boundaries;
}

TEST(Characters, AgreeWithTheReferenceOnRandomTexts) {
    const unsigned seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    // One or more of every break class, and neighbours that the rules treat apart.
    static constexpr char32_t alphabet[] = {
        'a',     '\r',    '\n',    '\t',    ' ',     0x7F,    0x85,    0xA9,    0xAD,    0xE9,    0x300,
        0x301,   0x345,   0x600,   0x661,   0x903,   0x928,   0x915,   0x93C,   0x94D,   0x9CD,   0x995,
        0xA15,   0xA4D,   0xB95,   0xBCD,   0xD15,   0xD4D,   0x93F,   0x94D,   0x1100,  0x1161,  0x11A8,
        0xAC00,  0xAC01,  0x200B,  0x200C,  0x200D,  0x200D,  0x2028,  0x20E3,  0x2764,  0xFE0F,  0xFEFF,
        0x1F1E6, 0x1F1FA, 0x1F3FB, 0x1F466, 0x1F469, 0x1F600, 0x110BD, 0xE0067, 0xE0001, 0x10FFFF};
    for (int round = 0; round < 10000; ++round) {
        // A few code points a text, so that the sequences the rules are about come up.
        char32_t few[5];
        for (char32_t& codePoint : few) codePoint = alphabet[random() % std::size(alphabet)];
        std::string text;
        for (auto length = random() % 24; length > 0; --length) appendCodePoint(text, few[random() % 5]);
        const std::vector<std::size_t> expected = referenceBoundaries(text);
        ASSERT_EQ(characterBoundaries(text), expected) << testing::PrintToString(text);
        ASSERT_EQ(characterCount(text), expected.size() - 1) << testing::PrintToString(text);
        std::string walked;
        for (CharacterCursor cursor(text); !cursor.atEnd();) walked += cursor.next();
        ASSERT_EQ(walked, text);
    }
}

TEST(Characters, AgreeWithTheReferenceForEveryCodePointBesideLettersMarksAndAnEmoji) {
    std::string text;
    for (char32_t codePoint = 1; codePoint < 0x30000; ++codePoint) {
        if (codePoint >= 0xD800 && codePoint <= 0xDFFF) continue;
        appendCodePoint(text, codePoint);
        text += "\u0301a👧\u200D";
        appendCodePoint(text, codePoint);
        text += "\u094Dन\u094D";
    }
    EXPECT_EQ(characterBoundaries(text), referenceBoundaries(text));
}

TEST(Characters, CountsLongStretchesOfAsciiByTheirEnds) {
    const std::string stretch(1000, 'x');
    EXPECT_EQ(characterCount(stretch), 1000U);
    EXPECT_EQ(characterCount(stretch + "\u0301"), 1000U);
    EXPECT_EQ(characterCount(stretch + "é"), 1001U);
    EXPECT_EQ(characterCount(stretch + "\r\n"), 1001U);
    EXPECT_EQ(characterCount(stretch + "\r\n\u0301"), 1002U);
    EXPECT_EQ(characterCount("é" + replaceAll(stretch, "xx", "\r\n") + "é"), 502U);
}

}  // namespace
}  // namespace vesk
