#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "VeskCore/Index/SearchEngine.h"
#include "VeskCore/Index/WordMatcher.h"
#include "VeskCore/Support/Pattern.h"
#include "VeskCore/Support/Unicode.h"

namespace vesk {
namespace {

using Snippet = SearchEngine::Snippet;

std::string repeated(std::string_view piece, int times) {
    std::string text;
    for (int i = 0; i < times; ++i) text += piece;
    return text;
}

TEST(SearchSnippet, CutsAroundTheFirstWordThatOccurs) {
    struct Row {
        std::string_view name;
        std::string body;
        std::vector<std::string> words;
        int window;
        Snippet expected;
    };
    const Row rows[] = {
        {"empty body", "", {"a"}, 20, {"", {}}},
        {"a short body stands whole", "one two", {"TWO"}, 20, {"one two", {{4, 3}}}},
        {"near the start nothing stands in front",
         "alpha beta gamma delta",
         {"beta"},
         18,
         {"alpha beta gamma…", {{6, 4}}}},
        {"both ends cut at spaces",
         repeated("abcd ", 20) + "needle " + repeated("efgh ", 20),
         {"needle"},
         60,
         {"…abcd abcd abcd needle efgh efgh efgh efgh efgh efgh efgh…", {{16, 6}}}},
        {"the first word given wins",
         "one two three",
         {"nine", "three", "one"},
         30,
         {"one two three", {{0, 3}, {8, 5}}}},
        {"no match begins at the front", repeated("ab ", 20), {"zz"}, 10, {"ab ab ab…", {}}},
        {"line ends become spaces", "\r\na\r\nb\nc\xE2\x80\xA8 d\n", {"b"}, 50, {"a b c  d", {{2, 1}}}},
        {"other cases and lengths", "STRASSE Straße", {"straße"}, 50, {"STRASSE Straße", {{0, 7}, {8, 6}}}},
        {"offsets behind an emoji", "😀 x", {"x"}, 50, {"😀 x", {{3, 1}}}},
        {"a word twice marks once", "x x", {"x", "x"}, 50, {"x x", {{0, 1}, {2, 1}}}},
        {"a surrogate pair stays whole at the end", "a😀b", {}, 2, {"a…", {}}},
        {"nothing left gives the first characters", " e\u0301xyz", {}, 3, {" e\u0301x", {}}},
    };
    for (const auto& row : rows) {
        const auto snippet = SearchEngine::makeSnippet(row.body, row.words, row.window);
        EXPECT_EQ(snippet.text, row.expected.text) << row.name;
        EXPECT_TRUE(snippet.matchRanges == row.expected.matchRanges)
            << row.name << ": " << (snippet.matchRanges.empty() ? 999 : snippet.matchRanges[0].location);
    }
}

TEST(SearchSnippet, MarksExactlyTheOccurrencesOfRandomWords) {
    const auto seed = std::random_device{}();
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const std::vector<std::string> pieces{"a", "A", "b", "B", "ß", "s", "é", "É", "😀", " ", "\n", "İ"};
    auto text = [&](std::size_t longest) {
        std::string result;
        for (std::size_t i = random() % (longest + 1); i > 0; --i) result += pieces[random() % pieces.size()];
        return result;
    };
    for (int round = 0; round < 400; ++round) {
        std::string word;
        while (word.find_first_not_of(" \n") == std::string::npos) word = text(3);
        const int window = 1 + static_cast<int>(random() % 60);
        const auto snippet = SearchEngine::makeSnippet(text(120), {word}, window);
        ASSERT_TRUE(snippet.text.find("\xEF\xBF\xBD") == std::string::npos) << "a pair was split";
        if (snippet.matchRanges.empty()) continue;
        // Shown text folds to the word, from left to right, and what lies between holds no further
        // occurrence.
        const std::u16string units = utf16(snippet.text);
        const std::string folded = caseFolded(word);
        std::size_t from = 0;
        for (const auto& range : snippet.matchRanges) {
            ASSERT_LE(range.end(), units.size());
            EXPECT_EQ(caseFolded(utf8(units.substr(range.location, range.length))), folded);
            EXPECT_FALSE(containsIgnoringCase(utf8(units.substr(from, range.location - from)), word))
                << snippet.text;
            from = range.end();
        }
        EXPECT_FALSE(containsIgnoringCase(utf8(units.substr(from)), word)) << snippet.text;
    }
}

TEST(SearchSnippet, ReadsTheMarksOfFullTextSearch) {
    struct Row {
        std::string_view name, input;
        Snippet expected;
    };
    const Row rows[] = {
        {"no marks", "abc", {"abc", {}}},
        {"two matches",
         "\x01"
         "ab\x02 c \x01"
         "d\x02",
         {"ab c d", {{0, 2}, {5, 1}}}},
        {"UTF-16 units", "é😀\x01ö\x02\x01😀\x02", {"é😀ö😀", {{3, 1}, {4, 2}}}},
        {"an unmatched opener",
         "a \x01"
         "bc",
         {"a bc", {}}},
        {"an unmatched closer", "a\x02 b", {"a b", {}}},
        {"a mark of the note's own before ours",
         "\x01"
         "a \x01"
         "b\x02",
         {"a b", {{2, 1}}}},
        {"an empty pair",
         "a\x01\x02"
         "b",
         {"ab", {}}},
    };
    for (const auto& row : rows)
        EXPECT_EQ(SearchEngine::parseMarkedSnippet(row.input), row.expected) << row.name;
}

TEST(SearchSnippet, ScoresWholeWordsAndPlainPlurals) {
    struct Row {
        std::string_view name, title, body;
        std::vector<std::string> words;
        double expected;
    };
    const Row rows[] = {
        {"each match counts", "", "box, boxes; boxs box", {"box"}, 4},
        {"inside a word nothing counts", "", "boxer outbox box1 1box", {"box"}, 0},
        {"case and accents fold", "", "Café CAFES cafe\u0301", {"café"}, 3},
        {"marks in the word are plain text", "", "c++ c+++ a.b axb", {"c++", "a.b"}, 3},
        {"the title adds twenty for each word", "Big Box", "box", {"box", "BIG"}, 41},
        {"the title keeps its accents", "Cafe", "", {"café"}, 0},
        {"a title match may lie inside a word", "Boxer", "", {"box"}, 20},
    };
    for (const auto& row : rows)
        EXPECT_EQ(SearchEngine::likeScore(row.title, row.body, row.words), row.expected) << row.name;
}

TEST(SearchSnippet, CountsWordsAsTheExpressionDoes) {
    const auto seed = std::random_device{}();
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const std::vector<std::string> pieces{"a", "e", "s", "S", "b",  "é", "ß",
                                          " ", "-", "1", "𝒳", "日", ".", "es"};
    auto text = [&](std::size_t longest) {
        std::string result;
        for (std::size_t i = 1 + random() % longest; i > 0; --i) result += pieces[random() % pieces.size()];
        return result;
    };
    for (int round = 0; round < 1000; ++round) {
        const std::string word = text(3), body = text(60);
        const std::string folded = caseAndDiacriticFolded(body);
        const Pattern pattern("(?<![\\p{L}\\p{N}])" + Pattern::escaped(caseAndDiacriticFolded(word)) +
                              "(?:e?s)?(?![\\p{L}\\p{N}])");
        ASSERT_EQ(WordMatcher(word).count(folded), pattern.matchCount(utf16(folded)))
            << word << " in " << body;
    }
}

TEST(SearchHitPassage, IsPlainTextThatShowsTheMatch) {
    struct Row {
        std::string_view name, snippet, title;
        std::vector<TextRange> ranges;
        std::optional<std::string> expected;
    };
    const std::string far = repeated("abcd ", 13) + "needle end";   // the match at 65
    const std::string near = repeated("abcd ", 12) + "needle end";  // at 60
    const std::string unbroken = repeated("x", 70) + "needle end";
    const Row rows[] = {
        {"plain", "some text", "T", {}, "some text"},
        {"marks go", "## **Bold** __and__ ==marked== ~~gone~~ `code`", "T", {}, "Bold and marked gone code"},
        {"one list prefix goes", "- [ ] - task", "T", {}, "- task"},
        {"a quote", "> said", "T", {}, "said"},
        {"an ellipsis stays in front", "… # text…", "T", {}, "…text…"},
        {"embeds go, links keep their words", "![[a.png]] see [here](b.md)", "T", {}, "see here"},
        {"nothing left", "… ** **", "T", {}, std::nullopt},
        {"the title again", "# my TITLE", "My Title", {}, std::nullopt},
        {"a match at 60 is in view", near, "T", {{60, 6}}, near},
        {"a match further back is brought into view",
         far,
         "T",
         {{65, 6}},
         "…abcd abcd abcd abcd abcd needle end"},
        {"without a space the match stays", unbroken, "T", {{70, 6}}, "…" + repeated("x", 30) + "needle end"},
        {"a range outside the snippet", "short", "T", {{90, 2}}, "short"},
    };
    for (const auto& row : rows) {
        const SearchHit hit{
            .title = std::string(row.title), .snippet = std::string(row.snippet), .matchRanges = row.ranges};
        EXPECT_EQ(hit.passage(), row.expected) << row.name;
    }
}

TEST(SearchFusion, SumsReciprocalRanksAndKeepsFirstSeenOrderInTies) {
    const auto fused = SearchEngine::reciprocalRankFusion({{"a", "b", "c"}, {"d", "b"}, {}});
    ASSERT_EQ(fused.size(), 4U);
    EXPECT_EQ(fused[0], (std::pair<std::string, double>{"b", 1.0 / 62 + 1.0 / 62}));
    EXPECT_EQ(fused[1], (std::pair<std::string, double>{"a", 1.0 / 61}))
        << "seen before d, which scores the same";
    EXPECT_EQ(fused[2], (std::pair<std::string, double>{"d", 1.0 / 61}));
    EXPECT_EQ(fused[3], (std::pair<std::string, double>{"c", 1.0 / 63}));
    EXPECT_TRUE(SearchEngine::reciprocalRankFusion({}).empty());
}

TEST(SearchPictures, AreTextsOfImagesAndHeadingsOfAttachments) {
    struct Row {
        std::string_view name, text;
        bool expected;
    };
    const Row rows[] = {
        {"images", "![a](a.png)\r\n\n  ![b](b.png)  ", true},
        {"under the usual heading", "## Attachments\n\n---\n![a](a.png)", true},
        {"no image at all", "# attachments\n---", false},
        {"empty", "", false},
        {"a word among them", "![a](a.png)\nholiday", false},
        {"words after an image", "![a](a.png) holiday", false},
        {"an embed is no image line", "![[a.png]]", false},
    };
    for (const auto& row : rows) EXPECT_EQ(SearchEngine::isPictureOnly(row.text), row.expected) << row.name;
}

}  // namespace
}  // namespace vesk
