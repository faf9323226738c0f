#include <gtest/gtest.h>

#include <cmath>

#include "SearchFixture.h"
#include "VeskCore/Index/SearchEngine.h"

namespace vesk::test {
namespace {

using Rarity = SearchEngine::Rarity;

Rarity counted(std::initializer_list<std::pair<std::string, int>> counts, int total) {
    Rarity rarity{.counts = {}, .total = total};
    for (const auto& [text, count] : counts) rarity.counts[{.text = text}] = count;
    return rarity;
}
Strings terms(const SearchQuery& query) {
    Strings result;
    for (const auto& term : query.terms) result.push_back((term.isNegated ? "-" : "") + term.text);
    return result;
}

TEST(SearchRarity, CountsNotesAndWeighsByThem) {
    SearchFixture world;
    world.note("a.md", "red green");
    world.note("b.md", "Red reddish");
    world.note("c.md", "blue");
    const auto rarity = world.engine->rarity(SearchQuery::parse("RED \"red\" blue zebra -green"));
    EXPECT_EQ(rarity.total, 3);
    EXPECT_EQ(rarity.count({"RED", false, false}), 2);
    EXPECT_EQ(rarity.count({"red", true, false}), 2);
    EXPECT_EQ(rarity.count({"blue", false, false}), 1);
    EXPECT_EQ(rarity.count({"zebra", false, false}), 0);
    EXPECT_EQ(rarity.counts.size(), 4U) << "what is excluded is not counted";
    const auto weights = rarity.weights();
    EXPECT_DOUBLE_EQ(weights.at("red"), std::log(3.0 / 2 + 1));
    EXPECT_DOUBLE_EQ(weights.at("blue"), std::log(4.0));
    EXPECT_DOUBLE_EQ(weights.at("zebra"), std::log(4.0)) << "a word found nowhere weighs as one found once";
    EXPECT_DOUBLE_EQ((counted({{"x", 0}}, 0).weights().at("x")), std::log(2.0));

    SearchFixture plain(KeywordBackend::likeScan);
    plain.note("a.md", "red");
    EXPECT_EQ(plain.engine->rarity(SearchQuery::parse("red")).count({"red", false, false}), 0);
}

TEST(SearchRarity, NarrowsQuestionsToTheWordsThatTell) {
    struct Row {
        std::string_view name, query;
        Rarity rarity;
        Strings informative, rarest;
    };
    const Row rows[] = {
        {"a common word goes",
         "the zebra -x",
         counted({{"the", 5}, {"zebra", 4}}, 12),
         {"zebra", "-x"},
         {"the", "zebra", "-x"}},
        {"a third is not common yet",
         "the zebra",
         counted({{"the", 4}, {"zebra", 1}}, 14),
         {"the", "zebra"},
         {"zebra"}},
        {"a small vault has no common words",
         "the zebra",
         counted({{"the", 11}, {"zebra", 1}}, 11),
         {"the", "zebra"},
         {"zebra"}},
        {"all common stays as it is",
         "the and",
         counted({{"the", 12}, {"and", 9}}, 12),
         {"the", "and"},
         {"the", "and"}},
        {"one word stays", "the", counted({{"the", 12}}, 12), {"the"}, {"the"}},
        {"twice the lowest is still rare",
         "a b c",
         counted({{"a", 4}, {"b", 8}, {"c", 9}}, 100),
         {"a", "b", "c"},
         {"a", "b"}},
        {"up to three is rare",
         "a b c",
         counted({{"a", 1}, {"b", 3}, {"c", 4}}, 100),
         {"a", "b", "c"},
         {"a", "b"}},
        {"a word found nowhere tells nothing", "a b", counted({{"a", 0}, {"b", 9}}, 100), {"a", "b"}, {"b"}},
        {"found nowhere at all", "a b", counted({{"a", 0}, {"b", 0}}, 100), {"a", "b"}, {"a", "b"}},
        {"contractions never lead",
         "what’s I'LL o'clock",
         counted({{"what’s", 1}, {"I'LL", 1}, {"o'clock", 9}}, 100),
         {"what’s", "I'LL", "o'clock"},
         {"o'clock"}},
    };
    SearchFixture world;
    SearchFixture plain(KeywordBackend::likeScan);
    for (const auto& row : rows) {
        const auto query = SearchQuery::parse(row.query);
        EXPECT_EQ(terms(world.engine->informativeTerms(query, row.rarity)), row.informative) << row.name;
        EXPECT_EQ(terms(world.engine->rarestTerms(query, row.rarity)), row.rarest) << row.name;
        EXPECT_EQ(plain.engine->informativeTerms(query, row.rarity), query) << row.name;
        EXPECT_EQ(plain.engine->rarestTerms(query, row.rarity), query) << row.name;
    }
}

TEST(SearchRetrieval, TakesTheTwoBestPassagesOfANote) {
    SearchFixture world;
    world.note("long.md", "zebra\n# B\n\nzebra zebra zebra\n# C\n\nnothing\n# D\n\nzebras and zebra\n");
    const auto chunks = world.engine->retrieveSync("zebra", {}, 10);
    EXPECT_EQ(ids(chunks), (Strings{"long.md#1", "long.md#3"}));
    EXPECT_EQ(chunks[0].text, "B\n\nzebra zebra zebra");
    EXPECT_EQ(chunks[0].noteTitle, "B");
    EXPECT_DOUBLE_EQ(chunks[0].score, 1.0 / 61);
    EXPECT_EQ(ids(world.engine->retrieveSync("zebra", {}, 1)), Strings{"long.md#1"});
    EXPECT_TRUE(world.engine->retrieveSync("zebra", {}, 0).empty());
    EXPECT_TRUE(world.engine->retrieveSync("", {}, 10).empty());
}

TEST(SearchRetrieval, FiltersAloneGiveTheFirstPassages) {
    SearchFixture world;
    world.note("a.md", "one #t\n# B\n\ntwo\n# C\n\nthree\n");
    EXPECT_EQ(ids(world.engine->retrieveSync("tag:t", {}, 10)), (Strings{"a.md#0", "a.md#1"}));
}

TEST(SearchRetrieval, PadsOnlyWhereAllWordsWereFound) {
    SearchFixture world;
    world.note("Zebra.md", "# Zebra\n\nstripes only\n# More\n\nmore stripes\n");
    world.note("fish.md", "zebrafish in a tank");
    EXPECT_EQ(ids(world.engine->retrieveSync("zebra", {}, 10)), (Strings{"Zebra.md#0", "fish.md#0"}))
        << "a note found as a whole is quoted from its start";
    // No note has both words, so any will do, but a note without a whole word in text or title is left out.
    EXPECT_EQ(ids(world.engine->retrieveSync("zebra quagga", {}, 10)), Strings{"Zebra.md#0"});
}

TEST(SearchRetrieval, RareWordsKeepAQuestionToThePoint) {
    SearchFixture world;
    for (int i = 0; i < 9; ++i)
        world.note("common" + std::to_string(i) + ".md", "meeting minutes of the week");
    world.note("rare.md", "meeting about the quagga");
    // Nothing holds every word. Any-term search alone would quote every meeting.
    EXPECT_EQ(ids(world.engine->retrieveSync("meeting quagga unicorn", {}, 10)), Strings{"rare.md#0"});
    const auto both = world.engine->retrieveSync("meeting quagga", {}, 10);
    ASSERT_EQ(ids(both), Strings{"rare.md#0"});
    EXPECT_DOUBLE_EQ(both[0].score, 1.0 / 61 + 1.0 / 61) << "found by all words and by the rare one";
}

TEST(SearchRetrieval, MeaningAddsPassagesCappedBesideKeywords) {
    SearchFixture world;
    world.note("a.md", "one\n# B\n\ntwo\n# C\n\nthree\n");
    world.note("z.md", "zebra");
    for (int ordinal : {0, 1, 2}) world.embed("a.md", ordinal, {1, 0.1F * static_cast<float>(ordinal)});
    world.embed("z.md", 0, {1, 1});
    const std::vector<float> vector{1, 0};
    EXPECT_EQ(ids(world.engine->retrieveSync("unknown", vector, 10)),
              (Strings{"a.md#0", "a.md#1", "a.md#2", "z.md#0"}));
    const auto chunks = world.engine->retrieveSync("zebra", vector, 10);
    EXPECT_EQ(ids(chunks), (Strings{"z.md#0", "a.md#0", "a.md#1"}));
    EXPECT_DOUBLE_EQ(chunks[0].score, 1.0 / 61 + 1.0 / 63);
    EXPECT_DOUBLE_EQ(chunks[1].score, 1.0 / 61);
    EXPECT_EQ(chunks[1].noteTitle, "B");
}

TEST(SearchRetrieval, PutsPicturesAndThenStylesheetsBehindProse) {
    SearchFixture world;
    world.note("pictures.md", "## Attachments\n\n![zebra](a.png)\n![zebra](b.png)\n");
    world.note("prose.md",
               "a zebra among very many other words that make its rank a low one " + std::string(300, 'x'));
    world.document("zebra.css", "zebra { color: red }");
    world.document("other.css", ".zebrafish { color: red }");
    EXPECT_EQ(ids(world.engine->retrieveSync("zebra", {}, 10)),
              (Strings{"prose.md#0", "pictures.md#0", "zebra.css#0"}))
        << "a stylesheet without the word itself is never quoted";
}

TEST(SearchRetrieval, WorksWithoutFullText) {
    SearchFixture world(KeywordBackend::likeScan);
    world.note("a.md", "a zebra\n# B\n\nanother zebra zebra\n");
    EXPECT_EQ(ids(world.engine->retrieveSync("zebra", {}, 10)), (Strings{"a.md#1", "a.md#0"}));
    EXPECT_TRUE(world.engine->retrieveSync("zebra quagga", {}, 10).empty());
}

TEST(SearchRetrieval, AnswersOnTheSearchQueue) {
    SearchFixture world;
    world.note("a.md", "zebra");
    const auto queue = world.time.serialQueue("com.tarnlight.vesk.search", Priority::userInitiated);
    std::optional<std::vector<RetrievedChunk>> answer;
    bool onQueue = false;
    world.engine->retrieve("zebra", {}, 5, *queue, [&](std::vector<RetrievedChunk> chunks) {
        onQueue = queue->isCurrent();
        answer = std::move(chunks);
    });
    EXPECT_FALSE(answer.has_value());
    world.time.settle();
    ASSERT_TRUE(answer.has_value());
    EXPECT_EQ(ids(*answer), Strings{"a.md#0"});
    EXPECT_TRUE(onQueue);
}

TEST(RetrievedChunks, AreNamedByPathAndLabelledByKind) {
    struct Row {
        std::string_view path;
        std::optional<std::string> label;
    };
    const Row rows[] = {
        {"a/b.md", std::nullopt}, {"a/b.HTML", "web page"}, {"a/b.css", "stylesheet"}, {"a/b", std::nullopt}};
    for (const auto& row : rows) {
        const RetrievedChunk chunk{.notePath = std::string(row.path), .ordinal = 3};
        EXPECT_EQ(chunk.id(), std::string(row.path) + "#3");
        EXPECT_EQ(chunk.documentLabel(), row.label) << row.path;
        EXPECT_EQ(chunk.sourceKind().has_value(), row.label.has_value()) << row.path;
        EXPECT_EQ(RetrievedChunk::includesDocuments({RetrievedChunk{.notePath = "x.md"}, chunk}),
                  row.label.has_value());
    }
}

}  // namespace
}  // namespace vesk::test
