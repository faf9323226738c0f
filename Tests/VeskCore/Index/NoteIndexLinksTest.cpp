#include <algorithm>
#include <random>

#include "IndexFixture.h"
#include "VeskCore/Support/PathText.h"

namespace vesk::test {

namespace {

using Strings = std::vector<std::string>;

class NoteIndexLinksTest : public IndexFixture {
protected:
    using Links = std::vector<std::pair<std::string, std::optional<std::string>>>;
};

TEST(LinkTextTest, ReadsTheTargetsOfInternalLinks) {
    using Target = std::optional<std::pair<std::string, std::optional<std::string>>>;
    struct {
        std::string url;
        Target expected;
    } cases[] = {
        {"sub/page.md#part", {{"sub/page.md", "part"}}},
        {"./././a%20b.md", {{"a b.md", std::nullopt}}},
        {"a.md#", {{"a.md", std::nullopt}}},
        {"a%23b.md", {{"a", "b.md"}}},
        {"100%.md", {{"100%.md", std::nullopt}}},
        {"../up.md", {{"../up.md", std::nullopt}}},
        {"1:1.md", {{"1:1.md", std::nullopt}}},
        {"", {}},
        {"#part", {}},
        {"./#part", {}},
        {"//host/x", {}},
        {"a://b", {}},
        {"x y://b", {}},
        {"MailTo:a@b", {}},
        {"foo:bar", {}},
        {"x-a+1.z:bar", {}},
        {std::string(512, 'a'), {{std::string(512, 'a'), std::nullopt}}},
        {std::string(513, 'a'), {}},
    };
    for (const auto& c : cases) EXPECT_EQ(NoteIndex::internalLinkTarget(c.url), c.expected) << c.url;
}

TEST(LinkTextTest, FoldsNamesToKeys) {
    struct {
        const char *text, *expected;
    } cases[] = {
        {" ././Folder/NOTE.md ", "folder/note"},
        {"a.md.md", "a.md"},
        {"a.txt.md", "a.txt"},
        {"a.md.txt", "a.md"},
        {"a.markdown", "a"},
        {"a.mdown", "a"},
        {"a.png", "a.png"},
        {"ÉTÉ", "été"},
        {"E\u0301te\u0301", "été"},
        {".md", ""},
        {".hidden.md", ".hidden"},
    };
    for (const auto& c : cases) EXPECT_EQ(NoteIndex::linkKey(c.text), c.expected) << c.text;
}

TEST(LinkTextTest, PicksTheNearestCandidate) {
    struct {
        Strings candidates;
        const char* folder;
        std::optional<std::string> expected;
    } cases[] = {
        {{}, "", std::nullopt},
        {{"deep/er/x.md"}, "elsewhere", "deep/er/x.md"},
        {{"x.md", "a/x.md"}, "a", "a/x.md"},
        {{"a/x.txt", "a/x.md"}, "a", "a/x.txt"},
        {{"a/b/x.md", "long-folder/x.md", "mid/x.md"}, "z", "mid/x.md"},
        {{"bb/x.md", "aa/x.md"}, "z", "bb/x.md"},
        {{"ee/x.md", "éé/x.md"}, "z", "ee/x.md"},  // characters, not bytes
        {{"éé/x.md", "eee/x.md"}, "z", "éé/x.md"},
    };
    for (const auto& c : cases) EXPECT_EQ(NoteIndex::pick(c.candidates, c.folder), c.expected);
}

TEST_F(NoteIndexLinksTest, StoresNoRowForWhatIsNoNoteAndResolvesTheRest) {
    add("sub/page.md", "p");
    add("Café.md", "---\naliases: [Coffee House, Bar]\n---\nc");
    add("n.md",
        "[[a.png]] [[#x]] [[PAGE]] [[sub/page]] [[cafe\u0301]] [[coffee house]] [[nowhere]] [t](foo:bar) "
        "[u](https://x.org/a.md) [v](sub/page.md#part) ![w](w.PNG) [[v1.2 notes]]");
    EXPECT_EQ(index().outgoingLinks("n.md"), (Links{{"n.md", "n.md"},
                                                    {"PAGE", "sub/page.md"},
                                                    {"sub/page", "sub/page.md"},
                                                    {"cafe\u0301", "Café.md"},
                                                    {"coffee house", "Café.md"},
                                                    {"nowhere", std::nullopt},
                                                    {"v1.2 notes", std::nullopt},
                                                    {"sub/page.md", "sub/page.md"}}));
}

TEST_F(NoteIndexLinksTest, ANewNoteIsFoundByLaterSavesAndByAFullPassOnly) {
    add("a.md", "[[later]]");
    add("later.md", "l");
    EXPECT_EQ(index().outgoingLinks("a.md"), (Links{{"later", std::nullopt}}));
    EXPECT_EQ(index().resolveLinks(), 1);
    EXPECT_EQ(index().backlinks("later.md"), Strings{"a.md"});
    // A target that no longer leads anywhere leaves the row as it is.
    add("b.md", "---\nalias: Bee\n---\n");
    add("c.md", "[[bee]]");
    add("b.md", "no alias now");
    EXPECT_EQ(index().resolveLinks("c.md"), 0);
    EXPECT_EQ(index().outgoingLinks("c.md"), (Links{{"bee", "b.md"}}));
}

TEST_F(NoteIndexLinksTest, SeesTheNamesThatAnotherConnectionWrote) {
    add("a.md", "[[x]]");
    auto other = open();
    other->reindexText(note("x.md"), "x");
    index().run("INSERT INTO properties VALUES ('a.md', 'alias', 'ex', NULL, 'string')");
    add("b.md", "[[x]] [[ex]]");
    EXPECT_EQ(index().outgoingLinks("b.md"), (Links{{"x", "x.md"}, {"ex", "a.md"}}));
    other->removeNote("x.md");
    add("b.md", "[[x]] again");
    EXPECT_EQ(index().outgoingLinks("b.md"), (Links{{"x", std::nullopt}}));
}

/// The whole lookup built for one question, as the rules word it.
std::optional<std::string> resolveByReadingEverything(const NoteIndex& index, const std::string& source,
                                                      const std::string& target) {
    std::vector<std::string> candidates;
    auto offer = [&](const std::string& name, const std::string& path) {
        std::string key = NoteIndex::linkKey(name);
        if (key.empty() || key != NoteIndex::linkKey(target)) return;
        if (std::find(candidates.begin(), candidates.end(), path) == candidates.end())
            candidates.push_back(path);
    };
    index.query("SELECT relative_path, name FROM notes WHERE " + Vault::sqlIsNote("relative_path"), {},
                [&](const Row& row) {
                    offer(row.text(0), row.text(0));
                    offer(std::string(deletingExtension(row.text(0))), row.text(0));
                    offer(row.text(1), row.text(0));
                });
    index.query(
        "SELECT note_path, value_text FROM properties WHERE key IN ('alias', 'aliases') AND value_text IS "
        "NOT "
        "NULL ORDER BY key, value_text, note_path",
        {}, [&](const Row& row) { offer(row.text(1), row.text(0)); });
    return NoteIndex::pick(candidates, parentFolder(source));
}

TEST_F(NoteIndexLinksTest, ResolvesAsIfAllNamesWereReadForEachSave) {
    const unsigned seed = 20250611;
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    auto any = [&](const std::vector<std::string>& list) { return list[random() % list.size()]; };
    const Strings paths = {"x.md",         "a/x.md", "b/x.md", "a/b/X.MD", "y.txt",  "y.md",
                           "a/y.markdown", "b/z.md", "z.md",   "Ä.md",     "a/ä.md", "c.css"};
    const Strings names = {"x",   "a/x", "X.md",    "y",   "Y.txt", "z",
                           "b/z", "Ä",   "A\u0308", "One", "two",   "missing"};
    for (int round = 0; round < 400; ++round) {
        std::string path = any(paths);
        switch (random() % 6) {
            case 0:
                index().removeNote(path);
                continue;
            case 1:
                index().exec("UPDATE notes SET size = 1");  // drops what is kept between saves
                [[fallthrough]];
            default:
                break;
        }
        std::string text = std::to_string(round);
        if (random() % 3 == 0) text = "---\naliases: [" + any(names) + ", " + any(names) + "]\n---\n" + text;
        for (int link = 0; link < 3; ++link) text += " [[" + any(names) + "]]";
        add(path, text);
        for (const auto& [target, resolved] : index().outgoingLinks(path)) {
            ASSERT_EQ(resolved, resolveByReadingEverything(index(), path, target)) << path << " " << target;
        }
    }
    index().resolveLinks();
    index().query("SELECT source_path, target_name, target_resolved_path FROM links", {},
                  [&](const Row& row) {
                      auto expected = resolveByReadingEverything(index(), row.text(0), row.text(1));
                      if (expected) {
                          EXPECT_EQ(row.text(2), *expected) << row.text(0) << " " << row.text(1);
                      }
                  });
}

}  // namespace

}  // namespace vesk::test
