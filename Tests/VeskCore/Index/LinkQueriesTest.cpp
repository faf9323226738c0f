#include "IndexFixture.h"
#include "VeskCore/Index/LinkQueries.h"
#include "VeskCore/Support/Unicode.h"

namespace vesk::test {

namespace {

using Strings = std::vector<std::string>;

class LinkQueriesTest : public IndexFixture {
protected:
    LinkQueries queries() { return LinkQueries(index()); }
    UnlinkedMentionScan scan(std::string_view path) { return queries().unlinkedMentions(path, {}); }
    /// "path:line:column matched" of each mention.
    Strings mentions(std::string_view path) {
        Strings found;
        for (const auto& mention : scan(path).mentions)
            found.push_back(mention.sourcePath + ":" + std::to_string(mention.line) + ":" +
                            std::to_string(mention.column) + " " + mention.matchedText);
        return found;
    }
};

TEST_F(LinkQueriesTest, TellsWhereALinkStands) {
    add("Plan.md", "[[Plan]] itself\n");
    add("b.md",
        "---\ntitle: Bee\n---\nfirst\n- see [[plan]] and [[Plan#Part]]\n\n```\n[[Plan]]\n```\n![[Plan]]\r\n");
    add("A/a.md", "[it](../Plan.md) no\n[it](Plan.md \"caption\") yes\n`[[Plan]]` no\n");
    add("c.md", "[[Other]] [x](https://e.x/Plan) [y](#Plan)\n");
    index().resolveLinks();
    const auto found = queries().backlinks("Plan.md");
    ASSERT_EQ(found.size(), 3u);
    EXPECT_EQ(found[0], (Backlink{.id = "A/a.md:1",
                                  .sourcePath = "A/a.md",
                                  .sourceTitle = "a",
                                  .line = 1,
                                  .context = "[it](Plan.md \"caption\") yes"}));
    EXPECT_EQ(found[1], (Backlink{.id = "b.md:1",
                                  .sourcePath = "b.md",
                                  .sourceTitle = "Bee",
                                  .line = 1,
                                  .context = "- see [[plan]] and [[Plan#Part]]"}));
    EXPECT_EQ(found[2], (Backlink{.id = "b.md:6",
                                  .sourcePath = "b.md",
                                  .sourceTitle = "Bee",
                                  .line = 6,
                                  .context = "![[Plan]]",
                                  .isEmbed = true}));
}

TEST_F(LinkQueriesTest, ShowsOfAVeryLongLineThePartAroundTheLink) {
    add("Plan.md", "x");
    add("long.md", std::string(5000, 'a') + " [[Plan]] " + std::string(5000, 'b'));
    index().resolveLinks();
    const auto found = queries().backlinks("Plan.md");
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].context.size(), 1000u);
    EXPECT_NE(found[0].context.find(" [[Plan]] "), std::string::npos);
}

TEST_F(LinkQueriesTest, ListsWhereANoteLeads) {
    add("Plan.md", "[[Bee]] ![[Gone]] [x](b.md)\n[[Bee]]\n");
    add("b.md", "---\ntitle: Tee\naliases: [Bee]\n---\n");
    index().resolveLinks();
    Strings found;
    for (const auto& link : queries().outgoingLinks("Plan.md"))
        found.push_back(link.id + "|" + link.target + "|" + link.resolvedPath.value_or("none") + "|" +
                        link.resolvedTitle.value_or("none") + (link.isEmbed ? "|embed" : ""));
    EXPECT_EQ(found, (Strings{"0 Bee|Bee|b.md|Tee", "1 Gone|Gone|none|none|embed", "2 Bee|Bee|b.md|Tee",
                              "3 b.md|b.md|b.md|Tee"}));
}

TEST_F(LinkQueriesTest, SaysInWordsThatTheIndexCannotBeRead) {
    add("Plan.md", "x");
    index().close();
    EXPECT_EQ(queries().overview("Plan.md"),
              (LinkOverview{.backlinks = {}, .outgoing = {}, .failure = "Couldn't read the link index."}));
    EXPECT_EQ(
        scan("Plan.md").failure,
        "Vesk couldn't read its index just now, so this list is not an answer about the note. Your notes "
        "are untouched — the index is only a cache, and reopening the vault rebuilds it.");
}

TEST_F(LinkQueriesTest, GathersTheNamesOfANote) {
    add("Go.md",
        "---\ntitle: ' Weiqi '\naliases: [baduk, Go, WEIQI, '', 围棋, Cafe\u0301, Café, '5%']\n---\n");
    EXPECT_EQ(queries().mentionTerms("Go.md"),
              (LinkQueries::Terms{{"Weiqi", "baduk", "Cafe\u0301"}, {"Go", "围棋", "5%"}}));
    add("Many.md", "---\nalias: [one1, two2, three, four, five, six6, seven, eight]\n---\n");
    const auto terms = queries().mentionTerms("Many.md").terms;
    EXPECT_EQ(terms.size(), 8u);
    EXPECT_EQ(terms.front(), "Many");
}

TEST_F(LinkQueriesTest, OffersMentionsOfWholeNamesOutsideLinksAndCode) {
    add("Plan.md", "---\naliases: [Émile, 100% sure, C++ (old)]\n---\nThe Plan of this note\n");
    add("a.md", "---\nplan: Plan\n---\nPlanet, replan, Plan_1, plan2; the PLAN.\r\n\tÉmile2 and Émile!\n");
    add("b.md", "100% sure, 100x sure; c++ (old)er C++ (old)\n");
    add("c.md", "[[Plan]] ![[x|Plan]] [Plan](x.md) ![Plan](y.png) `Plan` ``a ` Plan`` 😀 Plan\n");
    add("d.md", "~~~\nPlan\n```\nPlan\n \t```\nPlan\n```\nPlan");
    add("page.html", "Plan");
    EXPECT_EQ(mentions("Plan.md"),
              (Strings{"a.md:0:35 PLAN", "a.md:1:12 Émile", "b.md:0:0 100% sure", "b.md:0:34 C++ (old)",
                       "c.md:0:72 Plan", "d.md:3:0 Plan", "d.md:7:0 Plan"}));
    const auto found = scan("Plan.md");
    EXPECT_EQ(found.candidateNotes, 4);
    EXPECT_EQ(found.searchedNotes, 4);
    EXPECT_FALSE(found.truncated);
    EXPECT_EQ(found.mentions[1].context, "\tÉmile2 and Émile!");
    EXPECT_EQ(found.mentions[1].range, (TextRange{54, 5}));
}

TEST_F(LinkQueriesTest, KeepsTheFirstOfOverlappingMentions) {
    add("Oslo Plan.md", "---\naliases: [Plan, Plan for June, Oslo]\n---\n");
    add("a.md", "Oslo Plan for June; plan for june\n");
    EXPECT_EQ(mentions("Oslo Plan.md"), (Strings{"a.md:0:0 Oslo Plan", "a.md:0:20 plan for june"}));
}

TEST_F(LinkQueriesTest, SetsShortNamesAsideAndSaysSo) {
    add("Go.md", "");
    add("a.md", "Go Go Go");
    const auto found = scan("Go.md");
    EXPECT_EQ(found.skipped, Strings{"Go"});
    EXPECT_EQ(found.terms, Strings{});
    EXPECT_EQ(found.mentions.size(), 0u);
    EXPECT_EQ(found.failure, std::nullopt);
}

TEST_F(LinkQueriesTest, StopsAtTwoHundredMentions) {
    add("Plan.md", "");
    std::string text;
    for (int i = 0; i < 150; ++i) text += "Plan ";
    add("a.md", text);
    add("b.md", text.substr(0, 50 * 5));
    EXPECT_EQ(scan("Plan.md").mentions.size(), 200u);
    EXPECT_FALSE(scan("Plan.md").truncated);
    add("c.md", "Plan");
    add("d.md", "Plan");
    const auto found = scan("Plan.md");
    EXPECT_EQ(found.mentions.size(), 200u);
    EXPECT_TRUE(found.truncated);
    EXPECT_EQ(found.searchedNotes, 3);
    EXPECT_EQ(found.candidateNotes, 4);
}

TEST_F(LinkQueriesTest, StopsBetweenNotesWhenAsked) {
    add("Plan.md", "");
    add("a.md", "Plan");
    std::stop_source source;
    source.request_stop();
    EXPECT_EQ(queries().unlinkedMentions("Plan.md", source.get_token()).searchedNotes, 0);
}

TEST_F(LinkQueriesTest, NamesANoteSoThatALinkFindsIt) {
    for (const char* path : {"Plan.md", "A/Plan.txt", "A/Solo.md", "Nick.md"}) add(path, "");
    add("x.md", "---\nalias: nick\n---\n");
    EXPECT_EQ(queries().linkName("A/Solo.md"), "Solo");
    EXPECT_EQ(queries().linkName("A/Plan.txt"), "A/Plan");
    EXPECT_EQ(queries().linkName("Nick.md"), "Nick");
}

TEST(LinkTextTest, BlanksCodeAndLinksAndKeepsEveryOffset) {
    const struct {
        const char *text, *expected;
    } rows[] = {
        {"a [[b|c]] d", "a         d"},
        {"![[b]] d", "       d"},
        {"[[open d", "[[open d"},
        {"[a](b) c](d)", "       c](d)"},
        {"[a [b](c) d](e) f", "                f"},
        {"[![b](c)](d) f", "             f"},
        {"[a](b(c)) d", "          d"},
        {"[a](b d", "[a](b d"},
        {"[a] (b)", "[a] (b)"},
        {"`a` b ` c", "    b ` c"},
        {"``a`b`` `c`` d`", "                "},
        {"  ~~~ x\ny\n~~~\nz", "       \n \n   \nz"},
        {"```\n~~~\nz", "   \n   \nz"},
        {"x```\ny", "x```\ny"},
        {"`[[` a [[b]]", "     a      "},
        {"", ""},
    };
    for (const auto& row : rows) {
        const auto masked = utf8(LinkQueries::maskedForMentions(utf16(row.text)));
        EXPECT_EQ(masked, std::string(row.expected).substr(0, utf16(row.text).size())) << row.text;
    }
}

TEST(LinkTextTest, MasksLongLinesInOneWalk) {
    for (const char* piece : {"[", "(", "](", "`", "[[", "[(", "`` ` "}) {
        std::string text;
        while (text.size() < 1'000'000) text += piece;
        EXPECT_EQ(utf8(LinkQueries::maskedForMentions(utf16(text))).size(), text.size()) << piece;
    }
}

TEST(LinkTextTest, ShowsALineAsItWouldRead) {
    const auto pending = [](std::string_view context, int column, std::string_view matched,
                            std::string_view target) {
        return PendingLink::of({.id = "m",
                                .context = std::string(context),
                                .column = column,
                                .matchedText = std::string(matched),
                                .range = {900, utf16Length(matched)}},
                               target);
    };
    const auto plain = pending("😀 Plan.", 3, "Plan", "Plan");
    EXPECT_EQ(plain.replacement, "[[Plan]]");
    EXPECT_EQ(plain.after, "😀 [[Plan]].");
    EXPECT_TRUE(plain.previewAvailable);
    EXPECT_EQ(pending("the plan", 4, "plan", "A/Plan").after, "the [[A/Plan|plan]]");
    for (const char* name : {"C# notes", "a|b", "x]]y", "a#^b", ""})
        EXPECT_FALSE(pending("plan", 0, "plan", name).previewAvailable) << name;
    EXPECT_TRUE(pending("a|b", 0, "a|b", "Plan").previewAvailable);
    EXPECT_FALSE(pending("a]] b", 0, "a]] b", "Plan").previewAvailable);
}

}  // namespace

}  // namespace vesk::test
