#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "VeskCore/Brain/WordDiff.h"

namespace vesk::test {
namespace {

using WordDiff::Kind;

std::string side(const WordDiff::Result& result, Kind own) {
    std::string text;
    for (const auto& run : result.runs) {
        if (run.kind == Kind::same || run.kind == own) text += run.text;
    }
    return text;
}

/// "a -b- +c+"
std::string marked(const WordDiff::Result& result) {
    std::string text;
    for (const auto& run : result.runs) {
        const std::string sign = run.kind == Kind::same ? "" : run.kind == Kind::removed ? "-" : "+";
        text += sign + run.text + sign;
    }
    return text;
}

TEST(WordDiffs, LineUpByLineThenByWord) {
    struct Row {
        std::string_view name, oldText, newText, marked;
        std::size_t added, removed;
    };
    const Row rows[] = {
        {"nothing", "", "", "", 0, 0},
        {"the same", "a b\nc", "a b\nc", "a b\nc", 0, 0},
        {"a word", "one two three\n", "one 2 three\n", "one -two-+2+ three\n", 1, 1},
        {"all new", "", "one two", "+one two+", 2, 0},
        {"all gone", "one two\n", "", "-one two\n-", 0, 2},
        {"a line between", "a\nb\n", "a\nx y\nb\n", "a\n+x y\n+b\n", 2, 0},
        {"white space alone", "a b", "a  b", "a- -+  +b", 0, 0},
        {"a last line without end", "a\nb", "a\nb\n", "a\nb+\n+", 0, 0},
        {"lines joined", "a\nb\n", "a b\n", "a-\n-+ +b\n", 0, 0},
        {"unchanged lines between changes", "1 x\nsame\n2 x\n", "1 y\nsame\n2 y\n",
         "1 -x-+y+\nsame\n2 -x-+y+\n", 2, 2},
        {"carriage returns stay", "a\r\nb\r\n", "a\r\nc\r\n", "a\r\n-b-+c+\r\n", 1, 1},
        {"accents and scripts", "né 東京 fin", "né 大阪 fin", "né -東京-+大阪+ fin", 1, 1},
    };
    for (const auto& row : rows) {
        const auto result = WordDiff::compare(row.oldText, row.newText);
        EXPECT_EQ(marked(result), row.marked) << row.name;
        EXPECT_EQ(result.added, row.added) << row.name;
        EXPECT_EQ(result.removed, row.removed) << row.name;
        EXPECT_EQ(result.hasChanges, row.oldText != row.newText) << row.name;
        EXPECT_FALSE(result.coarse) << row.name;
        for (std::size_t i = 0; i < result.runs.size(); ++i) {
            EXPECT_EQ(result.runs[i].id, static_cast<int>(i)) << row.name;
        }
    }
}

std::string numbered(std::size_t count, std::string_view word, std::string_view separator) {
    std::string text;
    for (std::size_t i = 0; i < count; ++i) {
        text += std::string(word) + std::to_string(i) + std::string(separator);
    }
    return text;
}

TEST(WordDiffs, AreCoarseBeyondTheirSizes) {
    // A word and a blank are two tokens.
    const struct {
        std::string_view name;
        std::string oldText, newText;
        bool coarse;
    } rows[] = {
        {"2000 tokens", numbered(500, "a", " "), numbered(500, "b", " "), false},
        {"2002 tokens", numbered(501, "a", " "), numbered(500, "b", " "), true},
        {"4000 lines", numbered(2000, "a", " x\n") + "end", numbered(2000, "b", " x\n") + "end", true},
        {"4000 lines that differ here and there", "0\n" + numbered(1998, "same", "\n") + "1\n",
         "2\n" + numbered(1998, "same", "\n") + "3\n", false},
        {"4001 lines that differ here and there", "0\n" + numbered(1998, "same", "\n") + "1\n",
         "2\n" + numbered(1998, "same", "\n") + "3\n4\n", true},
    };
    for (const auto& row : rows) {
        const auto result = WordDiff::compare(row.oldText, row.newText);
        EXPECT_EQ(result.coarse, row.coarse) << row.name;
        EXPECT_EQ(side(result, Kind::removed), row.oldText) << row.name;
        EXPECT_EQ(side(result, Kind::added), row.newText) << row.name;
    }
    const auto coarse = WordDiff::compare("x " + numbered(1500, "a", " "), "y " + numbered(1500, "a", " "));
    ASSERT_EQ(coarse.runs.size(), 2U) << "a change of one word in a line of 3000 tokens stands whole";
    EXPECT_EQ(coarse.added, 1501U);
}

/// Edit distance by insertion and removal, from the table that every textbook has.
std::size_t distance(const std::string& a, const std::string& b) {
    std::vector<std::size_t> row(b.size() + 1);
    for (std::size_t j = 0; j <= b.size(); ++j) row[j] = j;
    for (std::size_t i = 1; i <= a.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const auto up = row[j];
            row[j] = a[i - 1] == b[j - 1] ? diagonal : 1 + std::min(up, row[j - 1]);
            diagonal = up;
        }
    }
    return row[b.size()];
}

TEST(WordDiffs, KeepBothTextsAndFindTheShortestChange) {
    std::mt19937 random(20260117);
    const auto below = [&](int limit) { return std::uniform_int_distribution<>(0, limit - 1)(random); };
    for (int round = 0; round < 2000; ++round) {
        const std::string_view pieces[] = {"a", "b", " ", "\n", "é", "\r\n", "\u2028", "a b\n", "\t", "word"};
        const int kinds = 2 + below(9);
        const auto text = [&] {
            std::string made;
            for (int i = below(40); i > 0; --i) made += pieces[below(kinds)];
            return made;
        };
        const auto oldText = text(), newText = text();
        const auto result = WordDiff::compare(oldText, newText);
        ASSERT_EQ(side(result, Kind::removed), oldText) << round;
        ASSERT_EQ(side(result, Kind::added), newText) << round;
        for (std::size_t i = 1; i < result.runs.size(); ++i) {
            ASSERT_NE(result.runs[i].kind, result.runs[i - 1].kind) << round;
        }
    }
    for (int round = 0; round < 500; ++round) {
        std::string a, b;
        for (int i = below(12); i > 0; --i) a += static_cast<char>('a' + below(3));
        for (int i = below(12); i > 0; --i) b += static_cast<char>('a' + below(3));
        const auto asLines = [](const std::string& letters) {
            std::string text;
            for (const char letter : letters) text += std::string(1, letter) + "\n";
            return text;
        };
        const auto result = WordDiff::compare(asLines(a), asLines(b));
        ASSERT_LE(result.added + result.removed, distance(a, b)) << a << " " << b;
    }
}

}  // namespace
}  // namespace vesk::test
