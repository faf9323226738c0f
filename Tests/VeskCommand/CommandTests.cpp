#include <gtest/gtest.h>

#include <fstream>
#include <random>
#include <thread>

#include "Program.h"
#include "VeskCore/Support/Json.h"

namespace vesk::test {
namespace {

using Words = std::vector<std::string>;

TEST(CommandTest, TellsFailureAndWrongUsageApart) {
    Program program;
    program.vault.write("a.md", "# A\n");
    program.vault.write("page.html", "<p>x");
    const struct {
        Words arguments;
        int status;
        std::string said;  // on standard error
    } rows[] = {
        {{"list"}, 0, ""},
        {{}, 2, "A command is required"},
        {{"nonsense"}, 2, "nonsense"},
        {{"search", "x", "--limit", "0"}, 2, "--limit"},
        {{"search", "x", "--mode", "psychic"}, 2, "--mode"},
        {{"show", "missing.md"}, 1, "vesk: There is no note at “missing.md”."},
        {{"show", "../outside.md"}, 1, "is outside the vault."},
        {{"write", "page.html"}, 1, "\"page.html\" is a web page or stylesheet, which Vesk opens read-only."},
        {{"write", "picture.png"}, 1, "isn't a note"},
        {{"set", "a.md", "bad: key", "1"}, 1, "can't be a property's name"},
        {{"search", "x"}, 1, "This vault has no index yet. Run “vesk index” first."},
        {{"key", "show", "anthropic"}, 1, "vesk: "},
        {{"key", "show", "nobody"}, 2, "PROVIDER"},
    };
    for (const auto& row : rows) {
        const auto ran = program.run(row.arguments);
        EXPECT_EQ(ran.status, row.status) << ran.err;
        EXPECT_NE(ran.err.find(row.said), std::string::npos) << ran.err;
        if (row.status == 1) {
            EXPECT_EQ(ran.out, "");
        }
    }
    EXPECT_EQ(program.vault.read("page.html"), "<p>x");
}

TEST(CommandTest, SaysWhatIsWrongWithAFolder) {
    Program program;
    const auto gone = (program.vault / "gone").string();
    const auto file = program.vault.write("a.md", "x").string();
    EXPECT_EQ(program.runPlain({"--vault", gone, "list"}).err,
              "vesk: Vault folder is missing: " + gone + " doesn't exist.\n");
    EXPECT_EQ(program.runPlain({"--vault", file, "list"}).err,
              "vesk: " + file + " is a file. A vault is a folder.\n");
    EXPECT_EQ(program.runPlain({"list"}).err,
              "vesk: No vault is known yet. Name one with --vault DIR or in VESK_VAULT.\n");
    program.vault.write("b (conflict from Mac).md", "x");
    program.vault.write("c 2.md", "x");
    const auto warnings = Json::parse(program.run({"diagnose", "--json"}).out);
    EXPECT_EQ(warnings, Json::parse(R"([{"code": "conflicts", "title": "1 possible conflict copy",
        "detail": "Files like \"c 2.md\" look like sync conflicts. Vesk can show you the differences and let you merge or delete them.",
        "severity": "info"}])"));
}

TEST(CommandTest, RemembersTheLastVaultAndTakesTheNearestWord) {
    Program program;
    ScratchFolder other;
    program.vault.write("here.md", "x");
    other.write("there.md", "x");
    EXPECT_EQ(program.run({"list"}).status, 0);
    EXPECT_NE(program.runPlain({"list"}).out.find("here.md"), std::string::npos) << "the last one used";
    const auto byVariable = program.runPlain({"list"}, "", {"VESK_VAULT=" + other.path().string()});
    EXPECT_NE(byVariable.out.find("there.md"), std::string::npos);
    const auto both = program.runPlain({"--vault", program.vault.path().string(), "list"}, "",
                                       {"VESK_VAULT=" + other.path().string()});
    EXPECT_NE(both.out.find("here.md"), std::string::npos) << "the option comes first";
    const auto below = program.runPlain({"show", "here.md"}, "", {}, program.vault.path());
    EXPECT_EQ(below.out, "x");
}

TEST(CommandTest, MakesWritesRenamesAndMovesNotes) {
    Program program;
    EXPECT_EQ(program.run({"new", "Plan: a/b", "--folder", "In"}, "text").out, "In/Plan- a-b.md\n");
    EXPECT_EQ(program.run({"new", "Plan: a/b", "--folder", "In"}, "other").out, "In/Plan- a-b 2.md\n");
    EXPECT_EQ(program.run({"write", "In/Plan- a-b.md"}, "new text\r\n").status, 0);
    EXPECT_EQ(program.vault.read("In/Plan- a-b.md"), "new text\n");
    EXPECT_EQ(program.run({"rename", "In/Plan- a-b.md", "Plan- a-b 2"}).err,
              "vesk: One called “Plan- a-b 2” is already in this folder.\n");
    EXPECT_EQ(program.run({"rename", "In/Plan- a-b.md", "Done"}).out, "In/Done.md\n");
    EXPECT_EQ(program.run({"move", "In/Done.md", "Out/Deep"}).out, "Out/Deep/Done.md\n");
    EXPECT_EQ(program.vault.read("Out/Deep/Done.md"), "new text\n");
    EXPECT_EQ(program.vault.list("In"), (Words{"Plan- a-b 2.md"}));
    EXPECT_EQ(program.run({"move", "Out/Deep/Done.md", "../.."}).status, 1);
}

TEST(CommandTest, ChangesAPropertyAndNothingElse) {
    Program program;
    const std::string before = "---\r\n# comment\r\ntags:\r\n  - a\r\nodd:   'x'\r\n---\r\nbody\r\n";
    program.vault.write("n.md", before);
    EXPECT_EQ(program.run({"set", "n.md", "priority", "2"}).status, 0);
    EXPECT_EQ(program.vault.read("n.md"),
              "---\r\n# comment\r\ntags:\r\n  - a\r\nodd:   'x'\r\npriority: 2\r\n---\r\nbody\r\n");
    EXPECT_EQ(program.run({"set", "n.md", "priority", "--text", "2"}).status, 0);
    EXPECT_EQ(Json::parse(program.run({"props", "n.md", "--json"}).out), Json::parse(R"({
        "odd": {"string": {"text": "x"}}, "priority": {"string": {"text": "2"}},
        "tags": {"list": {"items": [{"string": {"text": "a"}}]}}})"));
    EXPECT_EQ(program.run({"unset", "n.md", "priority"}).status, 0);
    EXPECT_EQ(program.vault.read("n.md"), before);
}

TEST(CommandTest, AnswersFromTheIndexAsJson) {
    Program program;
    program.vault.write(
        "a.md", "---\ntags: [x]\n---\n# Alpha\nSee [[b]] and [[nowhere]] #y\n- [ ] do it\n- [x] done\n");
    program.vault.write("b.md", "# Beta\nalpha words\n");
    program.vault.write("p.html", "<title>Page</title><p>alpha page");
    const auto summary = Json::parse(program.run({"index", "--json"}).out);
    EXPECT_EQ(summary.integer("indexed"), 2);
    EXPECT_EQ(summary.integer("documentsIndexed"), 1);
    EXPECT_EQ(Json::parse(program.run({"index", "--json"}).out).integer("unchanged"), 2);
    const struct {
        Words arguments;
        std::string expected;
    } rows[] = {
        {{"tags", "--json"}, R"([{"tag": "x", "count": 1}, {"tag": "y", "count": 1}])"},
        {{"tasks", "--open", "--json"},
         R"([{"notePath": "a.md", "line": 2, "text": "do it", "done": false}])"},
        {{"links", "b.md", "--json"}, R"({"backlinks": ["a.md"], "outgoingLinks": []})"},
        {{"unresolved", "--json"}, R"([{"target": "nowhere", "count": 1}])"},
        {{"search", "--json", "--", "-alpha", "-nothing"}, "[]"},
    };
    for (const auto& row : rows) {
        const auto ran = program.run(row.arguments);
        EXPECT_EQ(Json::parse(ran.out), Json::parse(row.expected)) << ran.err;
    }
    const auto hits = Json::parse(program.run({"search", "alpha", "file:b", "--json"}).out);
    ASSERT_EQ(hits.asArray()->size(), 1u);
    const auto& hit = hits.asArray()->front();
    EXPECT_EQ(hit.string("notePath"), "b.md");
    EXPECT_EQ(hit.string("mode"), "keyword");
    EXPECT_TRUE(hit.find("chunkOrdinal")->isNull());
    EXPECT_EQ(*hit.find("matchRanges"), Json::parse(R"([{"location": 7, "length": 5}])"));
    // What this program writes is found at once, and where links lead follows a rename.
    EXPECT_EQ(program.run({"rename", "b.md", "gamma"}).status, 0);
    EXPECT_EQ(Json::parse(program.run({"links", "gamma.md", "--json"}).out),
              Json::parse(R"({"backlinks": [], "outgoingLinks": []})"));
    const auto status = Json::parse(program.run({"status", "--json"}).out);
    EXPECT_EQ(status.string("keywordBackend"), "fts5");
    EXPECT_EQ(status.integer("noteCount"), 2);
}

TEST(CommandTest, ShowsHostileNamesWithoutSteeringTheTerminal) {
    Program program;
    program.vault.write("evil\x1b[2J\nname.md", "x");
    program.vault.write("latin\xe9.md", "caf\xe9");
    const auto listed = program.run({"list"}).out;
    EXPECT_NE(listed.find("evil\\x1b[2J\\nname.md"), std::string::npos) << listed;
    EXPECT_EQ(listed.find('\x1b'), std::string::npos);
    EXPECT_EQ(program.run({"show", "latin\xe9.md"}).out, "café");
    EXPECT_EQ(Json::parse(program.run({"index", "--json"}).out).integer("indexed"), 2);
}

TEST(CommandTest, InspectsAFileWithoutAVault) {
    Program program;
    const auto file = program.home.write("x.md", "---\nk: 1\n---\n# T\n[[a|b]]\n");
    const auto scan = Json::parse(program.runPlain({"inspect", "scan", file.string()}).out);
    EXPECT_EQ(*scan.find("wikilinks"),
              Json::parse(R"([{"target": "a", "heading": null, "blockID": null, "alias": "b",
        "isEmbed": false, "range": {"location": 4, "length": 7}}])"));
    const auto doc =
        Json::parse(program.runPlain({"inspect", "frontmatter", "-"}, "---\nk: 1\n# c\n---\n").out);
    EXPECT_EQ(
        *doc.find("slots"),
        Json::parse(R"([{"entry": {"key": "k", "value": {"number": {"number": 1}}, "rawLines": ["k: 1"]}},
        {"passthrough": {"line": "# c"}}])"));
    EXPECT_EQ(Json::parse(program.runPlain({"inspect", "chunks", "-"}, "# H\ntext").out),
              Json::parse(R"(["H\n\ntext"])"));
    EXPECT_EQ(Json::parse(program.runPlain({"inspect", "html", "-"}, "<title>t</title><h1>a</h1>").out)
                  .string("title"),
              "t");
}

TEST(CommandTest, ReplacesAnIndexOfGarbage) {
    Program program;
    program.vault.write("a.md", "needle");
    EXPECT_EQ(program.run({"index"}).status, 0);
    std::ofstream(program.indexFile(), std::ios::binary) << std::string(20'000, 'z');
    EXPECT_EQ(program.run({"index"}).status, 0);
    EXPECT_NE(program.run({"search", "needle"}).out.find("a.md"), std::string::npos);
}

TEST(CommandTest, ReportsAnOutputThatCantBeWritten) {
    Program program;
    program.vault.write("a.md", "x");
    const auto command = std::string(VESK_PROGRAM) + " --vault " + program.vault.path().string() +
                         " list > /dev/full 2>/dev/null";
    EXPECT_EQ(WEXITSTATUS(std::system(command.c_str())), 1);
}

TEST(CommandTest, KeepsOldOrNewWholeWhenKilledAtAnyMoment) {
    Program program;
    const auto seed = std::random_device{}();
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const std::string texts[] = {std::string(200'000, 'a') + "\n", std::string(150'000, 'b') + "\n"};
    program.vault.write("n.md", texts[0]);
    for (int i = 0; i < 300; ++i)
        program.vault.write("f/" + std::to_string(i) + ".md", "word" + std::to_string(i));
    for (int turn = 0; turn < 25; ++turn) {
        program.runAndKill({"write", "n.md"}, texts[turn % 2 == 0], static_cast<int>(random() % 25'000));
        const auto now = program.vault.read("n.md");
        EXPECT_TRUE(now == texts[0] || now == texts[1]) << now.size() << " bytes";
        program.runAndKill({"index"}, "", static_cast<int>(random() % 60'000));
    }
    const auto summary = Json::parse(program.run({"index", "--json"}).out);
    EXPECT_EQ(*summary.integer("indexed") + *summary.integer("unchanged"), 301);
    EXPECT_NE(program.run({"search", "word299"}).out.find("f/299.md"), std::string::npos);
}

TEST(CommandTest, LetsTwoIndexAtOnce) {
    Program program;
    for (int i = 0; i < 500; ++i) program.vault.write(std::to_string(i) + ".md", "word" + std::to_string(i));
    Ran first;
    std::thread other([&] { first = program.run({"index"}); });
    const auto second = program.run({"index"});
    other.join();
    EXPECT_EQ(first.status, 0) << first.err;
    EXPECT_EQ(second.status, 0) << second.err;
    EXPECT_EQ(Json::parse(program.run({"index", "--json"}).out).integer("unchanged"), 500);
}

TEST(CommandTest, PrintsCompletionsAndAManPage) {
    Program program;
    for (const std::string kind : {"bash", "zsh", "fish", "man"}) {
        const auto text = program.runPlain({"generate", kind}).out;
        for (const std::string command : {"search", "unresolved", "inspect"}) {
            EXPECT_NE(text.find(command), std::string::npos) << kind << ": " << command;
        }
    }
}

}  // namespace
}  // namespace vesk::test
