#include <gtest/gtest.h>

#include "SearchFixture.h"
#include "VeskCore/Index/SearchEngine.h"

namespace vesk::test {
namespace {

class SearchOnEachBackend : public testing::TestWithParam<KeywordBackend> {
protected:
    SearchOnEachBackend() : world(GetParam()) {
        world.note("Garden/Tomatoes.md", "# Tomatoes\n\nWarm soil and steady water.\nNo frost.\n");
        world.note("Garden/Soil.md",
                   "---\ntags: [garden, work/admin]\n---\n# Soil\n\nTomatoes like it warm. Work it in "
                   "spring. #earth\n");
        world.note("Work/Plan 50%.md", "# Plan\n\nalpha one\nbeta two\nalpha beta three\n#Work\n");
        world.note("Work/Report_a.md", "# Report\n\nalpha here\nbeta there\n#work/admin\n");
        world.note("Workshop.md", "# Workshop\n\nA café in the Straße. The word \"quoted\" stands here.\n");
        world.document("Saved/style.css", ".alpha .tomatoes { color: red }");
        world.document("Saved/page.html", "<title>Page</title><p>Frost on tomatoes</p>");
    }
    SearchFixture world;
};
INSTANTIATE_TEST_SUITE_P(Backends, SearchOnEachBackend,
                         testing::Values(KeywordBackend::fts5, KeywordBackend::likeScan),
                         [](const auto& backend) { return std::string(rawValue(backend.param)); });

TEST_P(SearchOnEachBackend, FindsTheSameNotes) {
    ASSERT_EQ(world.index->keywordBackend(), GetParam());
    struct Row {
        std::string_view query;
        Strings expected;  // sorted; the stylesheet, if any, comes last in the answer
    };
    const Row rows[] = {
        {"tomatoes warm", {"Garden/Soil.md", "Garden/Tomatoes.md"}},
        {"tomatoes", {"Garden/Soil.md", "Garden/Tomatoes.md", "Saved/page.html", "Saved/style.css"}},
        {"\"warm soil\"", {"Garden/Tomatoes.md"}},
        {"frost -steady", {"Saved/page.html"}},
        {"-tomatoes -alpha", {"Workshop.md"}},
        {"alpha path:Saved/", {"Saved/style.css"}},
        {"path:work", {"Work/Plan 50%.md", "Work/Report_a.md", "Workshop.md"}},
        {"path:Work/ file:Plan", {"Work/Plan 50%.md"}},
        {"file:\"Plan 50%\"", {"Work/Plan 50%.md"}},
        {"file:Plan_", {}},
        {"file:%", {}},
        {"file:Report_", {"Work/Report_a.md"}},
        {"tag:WORK", {"Garden/Soil.md", "Work/Plan 50%.md", "Work/Report_a.md"}},
        {"-tag:work/admin", {"Garden/Soil.md", "Work/Report_a.md"}},
        {"tag:work tag:garden", {"Garden/Soil.md"}},
        {"tag:wor", {}},
        {"line:(alpha beta)", {"Work/Plan 50%.md"}},
        {"line:ALPHA line:there", {"Work/Report_a.md"}},
        {"line:(alpha beta) line:here", {}},
        {"café straße", {"Workshop.md"}},
        {"zebra", {}},
        {"", {}},
        {"&", {}},
    };
    for (const auto& row : rows) {
        Strings found = paths(world.engine->keyword(row.query, 10));
        std::sort(found.begin(), found.end());
        EXPECT_EQ(found, row.expected) << row.query;
    }
    EXPECT_EQ(world.logged(), Strings{});
}

TEST_P(SearchOnEachBackend, TakesHostileTextAsWords) {
    const std::string_view hostile[] = {
        "\"",           "\"\"",       "\"quoted\"\"",  "AND",         "NOT a",   "a OR",
        "NEAR(a b, 2)", "(",          ")))",           "quoted)*",    "^quoted", "body:quoted",
        "{title}: a",   "quoted + a", "a*b*",          "' OR 1=1 --", "%_\\",    "tag:' path:\"",
        "\"a\" \"",     "-\"(",       "\x01quoted\x02"};
    for (const auto query : hostile) {
        world.engine->keyword(query, 5);
        world.engine->keywordAny(SearchQuery::parse(query), 5);
        world.engine->retrieveSync(query, {}, 5);
    }
    world.engine->keyword(std::string_view("quo\0ted", 7), 5);
    EXPECT_EQ(world.logged(), Strings{}) << "none of these is a syntax error";
    EXPECT_EQ(paths(world.engine->keyword("\"the word\" quoted", 5)), Strings{"Workshop.md"});
}

TEST_P(SearchOnEachBackend, PutsStylesheetsBehindAndCutsToTheLimit) {
    const auto hits = world.engine->keyword("alpha", 10);
    ASSERT_EQ(hits.size(), 3U);
    EXPECT_EQ(hits.back().notePath, "Saved/style.css");
    EXPECT_EQ(world.engine->keyword("alpha", 2).size(), 2U);
    EXPECT_EQ(world.engine->keyword("alpha", 0).size(), 0U);
    EXPECT_EQ(world.engine->keyword("alpha", -1).size(), 0U);
    EXPECT_EQ(paths(world.engine->keyword("tag:work", 10)),
              (Strings{"Work/Report_a.md", "Work/Plan 50%.md", "Garden/Soil.md"}))
        << "filters alone list the newest first";
}

TEST_P(SearchOnEachBackend, ShowsTheExcerptWhereABodyIsEmpty) {
    world.note("Unicorn.md", "");
    world.index->run("UPDATE notes SET excerpt = 'a unicorn' WHERE name = 'Unicorn'");
    const auto hits = world.engine->keyword("unicorn", 5);
    ASSERT_EQ(paths(hits), Strings{"Unicorn.md"});
    EXPECT_EQ(hits[0].snippet, "a unicorn");
    EXPECT_TRUE(hits[0].matchRanges.empty());
}

TEST_P(SearchOnEachBackend, FailsToAnEmptyListWithALine) {
    world.index->close();
    EXPECT_TRUE(world.engine->keyword("alpha", 5).empty());
    EXPECT_TRUE(world.engine->semantic(std::vector<float>{1, 0}, std::nullopt, 5, 0).empty());
    EXPECT_TRUE(world.engine->retrieveSync("alpha", {}, 5).empty());
    const auto lines = world.logged();
    ASSERT_GE(lines.size(), 3U);
    EXPECT_TRUE(lines[0].starts_with("Keyword search failed: Vesk couldn't open its search index ("))
        << lines[0];
    EXPECT_TRUE(lines[1].starts_with("Semantic scan failed: ")) << lines[1];
}

TEST(SearchFullText, RanksTitlesAndMarksTheSnippet) {
    SearchFixture world;
    world.note("body.md", "Some words, then zebra and zebras.");
    world.note("title.md",
               "# Zebra\n\nNothing of it here, only other words that fill the line a little more.");
    const auto hits = world.engine->keyword("zebra", 5);
    ASSERT_EQ(paths(hits), (Strings{"title.md", "body.md"}));
    EXPECT_GT(hits[0].score, hits[1].score);
    EXPECT_GT(hits[1].score, 0);
    EXPECT_EQ(hits[1].snippet, "Some words, then zebra and zebras.");
    EXPECT_EQ(marked(hits[1].snippet, hits[1].matchRanges), (Strings{"zebra", "zebras"}));
    EXPECT_EQ(hits[1].mode, SearchHit::Mode::keyword);
    EXPECT_EQ(hits[1].chunkOrdinal, std::nullopt);
}

TEST(SearchFullText, SnippetsBearMarksAndUnitsOfAnyText) {
    SearchFixture world;
    world.note("a.md", "😀 one \x02 two \x01 zébra three");
    const auto hits = world.engine->keyword("zebra", 5);
    ASSERT_EQ(hits.size(), 1U) << "accents don't count";
    EXPECT_EQ(hits[0].snippet, "😀 one  two  zébra three");
    EXPECT_EQ(marked(hits[0].snippet, hits[0].matchRanges), Strings{"zébra"});

    std::string longText;
    for (int i = 0; i < 30; ++i) longText += "word ";
    world.note("b.md", longText + "quagga " + longText);
    const auto cut = world.engine->keyword("quagga", 5);
    ASSERT_EQ(cut.size(), 1U);
    EXPECT_TRUE(cut[0].snippet.starts_with("…") && cut[0].snippet.ends_with("…")) << cut[0].snippet;
    EXPECT_EQ(marked(cut[0].snippet, cut[0].matchRanges), Strings{"quagga"});
}

TEST(SearchFullText, AnyTermWidensWhatAllTermsFind) {
    SearchFixture world;
    world.note("a.md", "red");
    world.note("b.md", "green");
    world.note("c.md", "red blue");
    const auto query = SearchQuery::parse("red green -blue");
    EXPECT_TRUE(world.engine->keyword(query, 5).empty());
    auto any = paths(world.engine->keywordAny(query, 5));
    std::sort(any.begin(), any.end());
    EXPECT_EQ(any, (Strings{"a.md", "b.md"}));
    EXPECT_TRUE(world.engine->keywordAny(SearchQuery::parse("tag:x"), 5).empty());
}

TEST(SearchLike, ScoresAndCutsItself) {
    SearchFixture world(KeywordBackend::likeScan);
    world.note("once.md", "# One\n\nzebra");
    world.note("thrice.md", "# Two\n\nzebra zebras zebra");
    world.note("title.md", "# Zebra crossing\n\nstripes");
    world.note("inside.md", "# Four\n\nzebrafish");
    const auto hits = world.engine->keyword("zebra", 10);
    EXPECT_EQ(paths(hits), (Strings{"title.md", "thrice.md", "once.md", "inside.md"}));
    EXPECT_EQ(hits[0].score, 21) << "the heading is in the body too";
    EXPECT_EQ(hits[1].score, 3);
    EXPECT_EQ(hits[3].score, 0) << "found, but no whole word";
    EXPECT_EQ(marked(hits[1].snippet, hits[1].matchRanges), (Strings{"zebra", "zebra", "zebra"}));
    EXPECT_TRUE(world.engine->keywordAny(SearchQuery::parse("zebra"), 5).empty());
}

TEST(SearchSemantic, KeepsTheBestPassagesInStableOrder) {
    SearchFixture world;
    world.note("a.md", "# A\n\nfirst\n# B\n\nsecond\n# C\n\nthird\n");
    world.note("b.md", "other");
    world.note("c.md", std::string(500, 'x'));
    world.embed("a.md", 0, {1, 0});
    world.embed("a.md", 1, {3, 4});
    world.embed("a.md", 2, {0, 1});
    world.embed("b.md", 0, {6, 8}, "q");
    world.embed("c.md", 0, {1, 0, 0});

    auto search = [&](std::vector<float> vector, int limit, double minimum = 0,
                      std::optional<std::string> provider = std::nullopt) {
        return world.engine->semantic(vector, provider, limit, minimum);
    };
    const auto hits = search({3, 4}, 10);
    EXPECT_EQ(paths(hits), (Strings{"a.md#1", "b.md#0", "a.md#2", "a.md#0"}))
        << "equal scores keep their order";
    EXPECT_DOUBLE_EQ(hits[0].score, 1.0);
    EXPECT_DOUBLE_EQ(hits[2].score, 0.8);
    EXPECT_EQ(hits[0].snippet, "B\n\nsecond");
    EXPECT_EQ(hits[0].title, "A");
    EXPECT_EQ(hits[0].mode, SearchHit::Mode::semantic);
    EXPECT_TRUE(hits[0].matchRanges.empty());

    EXPECT_EQ(paths(search({3, 4}, 1)), Strings{"a.md#1"})
        << "a later equal does not push out an earlier one";
    EXPECT_EQ(paths(search({3, 4}, 10, 0.8)), (Strings{"a.md#1", "b.md#0"}))
        << "the minimum itself is too little";
    EXPECT_EQ(paths(search({3, 4}, 10, 0, "q")), Strings{"b.md#0"});
    EXPECT_EQ(paths(search({0, 1}, 10)), (Strings{"a.md#2", "a.md#1", "b.md#0"}))
        << "a right angle is no likeness";
    EXPECT_EQ(search({1, 0, 0}, 10).at(0).snippet, std::string(400, 'x'));
    EXPECT_TRUE(search({0, 0}, 10).empty());
    EXPECT_TRUE(search({}, 10).empty());
    EXPECT_TRUE(search({3, 4}, 0).empty());
}

TEST(SearchHybrid, FusesNotesOnceAndKeepsKeywordSnippets) {
    SearchFixture world;
    world.note("both.md", "# Both\n\nzebra one\n# B\n\ntwo\n# C\n\nthree\n");
    world.note("meaning.md", "striped horse");
    world.note("word.md", "a zebra in a longer text that ranks lower than the other one does");
    world.document("s.css", ".zebra { color: red }");
    for (int ordinal : {0, 1, 2}) world.embed("both.md", ordinal, {1, 0.1F * static_cast<float>(ordinal)});
    world.embed("meaning.md", 0, {1, 0.15F});

    const auto hits = world.engine->hybrid("zebra", std::vector<float>{1, 0}, "p", 10);
    ASSERT_EQ(paths(hits), (Strings{"both.md", "word.md", "meaning.md#0", "s.css"}));
    EXPECT_DOUBLE_EQ(hits[0].score, 1.0 / 61 + 1.0 / 61) << "three passages count once, at the best rank";
    EXPECT_DOUBLE_EQ(hits[1].score, 1.0 / 62);
    EXPECT_DOUBLE_EQ(hits[2].score, 1.0 / 62) << "the second note by meaning, not the third passage";
    EXPECT_EQ(marked(hits[0].snippet, hits[0].matchRanges), Strings{"zebra"});
    EXPECT_EQ(hits[2].snippet, "striped horse");
    for (const auto& hit : hits) EXPECT_EQ(hit.mode, SearchHit::Mode::hybrid) << hit.notePath;

    EXPECT_EQ(world.engine->hybrid("zebra", std::vector<float>{1, 0}, "p", 2).size(), 2U);
    EXPECT_EQ(world.engine->hybrid("zebra", {}, "p", 1).size(), 3U) << "keyword hits alone are not cut";
}

}  // namespace
}  // namespace vesk::test
