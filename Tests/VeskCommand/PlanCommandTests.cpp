#include <fmt/format.h>
#include <gtest/gtest.h>

#include "Program.h"
#include "Support/ModelServer.h"
#include "VeskCore/Support/Json.h"

namespace vesk::test {
namespace {

constexpr std::string_view reply = R"(Here is my plan.

```json
{"summary": "Tidy up", "operations": [
  {"op": "set_property", "path": "a.md", "key": "status", "value": "done"},
  {"op": "move", "path": "b.md", "to_folder": "Archive"},
  {"op": "update", "path": "gone.md", "content": "x"},
  {"op": "update", "path": "c.md", "content": "one 2 three\n"},
  {"op": "trash_folder", "path": "Old"}
]}
```
)";

class PlanCommands : public testing::Test {
protected:
    PlanCommands() {
        program.vault.write("a.md", "words\n");
        program.vault.write("b.md", "see [[a]]\n");
        program.vault.write("c.md", "same\none two three\n");
        program.vault.write("Old/x.md", "x\n");
        plan = program.home.write("reply.txt", reply).string();
    }
    Program program;
    std::string plan;
};

constexpr std::string_view previews = R"(Tidy up
1. Set status: done on a.md
   | {+---+}
   | {+status: done+}
   | {+---+}
2. Move b.md → Archive/b.md
   Changes the note's path, so links by path need updating.
3. Rewrite gone.md (1 characters)
   The note gone.md doesn't exist.
4. Rewrite c.md (12 characters)
   Replaces the whole note.
   | [-same-]
   | one [-two-]{+2+} three
5. Move the folder Old/ and its 1 note to the vault's trash
   Takes the folder and every note inside it. Recoverable from the vault's .trash folder.
   | Old/x.md
)";

TEST_F(PlanCommands, ShowWhatAPlanWouldDo) {
    const auto ran = program.run({"plan", "check", plan});
    EXPECT_EQ(ran.status, 0) << ran.err;
    EXPECT_EQ(ran.out, previews);
    EXPECT_EQ(program.vault.list(), (std::vector<std::string>{"Old", "a.md", "b.md", "c.md"}));
    EXPECT_EQ(program.vault.read("a.md"), "words\n");

    const auto answer = Json::parse(program.run({"plan", "check", "-", "--json"}, std::string(reply)).out);
    EXPECT_EQ(answer.string("summary"), "Tidy up");
    const auto& rows = *answer.find("operations")->asArray();
    ASSERT_EQ(rows.size(), 5U);
    EXPECT_EQ(rows[0], Json::parse(R"({"number": 1, "op": "set_property",
        "description": "Set status: done on a.md", "risk": null, "before": "words\n",
        "after": "---\nstatus: done\n---\nwords\n", "issue": null})"));
    EXPECT_EQ(*rows[2].find("issue"),
              Json::parse(R"({"severity": "blocking", "message": "The note gone.md doesn't exist."})"));
}

TEST_F(PlanCommands, CarryOutWhatWasChosen) {
    const auto ran = program.run({"plan", "apply", plan, "--only", "2,3,5"});
    EXPECT_EQ(ran.status, 0) << ran.err;
    EXPECT_EQ(ran.out, std::string(previews) + R"(
applied Move b.md → Archive/b.md
applied Move the folder Old/ and its 1 note to the vault's trash
skipped Rewrite gone.md (1 characters): The note gone.md doesn't exist.
2 applied · 1 skipped
)");
    EXPECT_EQ(program.vault.read("a.md"), "words\n");
    EXPECT_EQ(program.vault.read("c.md"), "same\none two three\n");
    EXPECT_EQ(program.vault.read("Archive/b.md"), "see [[a]]\n");
    EXPECT_EQ(program.vault.read(".trash/Old/x.md"), "x\n");
}

TEST_F(PlanCommands, KeepTheIndexAndTellEverything) {
    ASSERT_EQ(program.run({"index"}).status, 0);
    const auto ran = program.run({"plan", "apply", plan, "--json"});
    EXPECT_EQ(ran.status, 0) << ran.err;
    const auto answer = Json::parse(ran.out);
    const auto& report = *answer.find("report");
    EXPECT_EQ(report.string("summary"), "4 applied · 1 skipped");
    EXPECT_EQ(*report.find("renamed"), Json::parse(R"({"b.md": "Archive/b.md"})"));
    EXPECT_EQ(*report.find("removed"), Json::parse(R"(["Old/x.md"])"));
    EXPECT_EQ(program.vault.read("c.md"), "one 2 three\n");
    const auto found = program.run({"search", "see"}).out;
    EXPECT_NE(found.find("Archive/b.md"), std::string::npos) << found;
    EXPECT_EQ(program.run({"search", "two"}).out.find("c.md"), std::string::npos);
}

TEST_F(PlanCommands, ReportFailures) {
    // The vault's trash is a file: nothing can go there.
    program.vault.write(".trash", "");
    const auto ran = program.run({"plan", "apply", plan, "--only", "1,5"});
    EXPECT_EQ(ran.status, 1);
    EXPECT_EQ(ran.err, "vesk: 1 of 2 operations failed.\n");
    EXPECT_NE(ran.out.find("1 applied · 1 failed\n"), std::string::npos) << ran.out;
    EXPECT_EQ(program.vault.read("Old/x.md"), "x\n");
    EXPECT_EQ(program.vault.read("a.md"), "---\nstatus: done\n---\nwords\n");
}

TEST_F(PlanCommands, TouchNothingOutsideTheVault) {
    const ScratchFolder outside;
    outside.write("secret.md", "secret\n");
    outside.write("Deep/deep.md", "deep\n");
    const auto& vault = program.vault;
    std::filesystem::create_directory_symlink(outside.path(), vault / "link");
    std::filesystem::create_symlink(outside / "secret.md", vault / "note.md");
    vault.write("Site/index.html", "<p>page</p>\n");
    vault.write("look.css", "p {}\n");
    const std::string hidden = " is inside a hidden folder, where notes can't be seen.",
                      pages =
                          "Vesk leaves web pages and stylesheets where they are. A page finds its styles and "
                          "pictures by where it sits.",
                      holdsPages =
                          "This folder holds web pages. Move it to the Trash from the sidebar if you mean "
                          "to.";
    const struct {
        std::string operation, issue;
    } rows[] = {
        {R"("create", "path": "../up.md", "content": "x")", "\"../up.md\" is outside the vault."},
        {R"("create", "path": "/../../up", "content": "x")", "\"../../up.md\" is outside the vault."},
        {R"("update", "path": "x/../../a.md", "content": "x")", "\"x/../../a.md\" is outside the vault."},
        {R"("rename", "from": "a.md", "to": "../a.md")", "\"../a.md\" is outside the vault."},
        {R"("move", "path": "a.md", "to_folder": "..")", "\"../a.md\" is outside the vault."},
        {R"("trash", "path": "..")", "\"...md\"" + hidden},
        {R"("create", "path": ".vesk/style.md", "content": "x")", "\".vesk/style.md\"" + hidden},
        {R"("rename", "from": "a.md", "to": "Old/.a.md")", "\"Old/.a.md\"" + hidden},
        {R"("create", "path": "page.html", "content": "x")", pages},
        {R"("trash", "path": "Site/index.html")", pages},
        {R"("rename", "from": "look.css", "to": "look.md")", pages},
        {R"("trash_folder", "path": "Site")", holdsPages},
        {R"("create", "path": "A.MD", "content": "x")",
         "A.MD already exists — Vesk won't overwrite it with a new note."},
        {R"("rename", "from": "a.md", "to": "old/X.md")", "A note is already called old/X.md."},
        {R"("create_folder", "path": "OLD")", "OLD/ already exists."},
        {R"("create", "path": "link/new.md", "content": "x")", "\"link/new.md\" is outside the vault."},
        {R"("update", "path": "link/secret.md", "content": "x")", "The note link/secret.md doesn't exist."},
        {R"("rename", "from": "a.md", "to": "link/a.md")", "\"link/a.md\" is outside the vault."},
        {R"("trash", "path": "link/secret.md")", "The note link/secret.md doesn't exist."},
        {R"("rename_folder", "from": "link/Deep", "to": "Deep")", "There's no folder called link/Deep."},
        {R"("rename_folder", "from": "Old", "to": "link/Old")", "\"link/Old\" is outside the vault."},
        {R"("trash_folder", "path": "link")", "There's no folder called link."},
        {R"("update", "path": "note.md", "content": "x")", "\"note.md\" is outside the vault."},
        {R"("set_property", "path": "note.md", "key": "k", "value": "v")",
         "\"note.md\" is outside the vault."},
        {R"("trash_folder", "path": "/")",
         "Vesk won't do that — that names the whole vault, not a folder inside it."},
        {R"("rename_folder", "from": "Old", "to": "../Old")",
         "Vesk won't do that — \"../Old\" isn't a usable folder path."},
        {R"("trash_folder", "path": ".trash")",
         "Vesk won't do that — \".trash\" is one of Vesk's own folders."},
    };
    std::string hostile;
    for (const auto& row : rows)
        hostile += (hostile.empty() ? "[{\"op\": " : "},\n{\"op\": ") + row.operation;
    hostile += "}]";
    const auto before = vault.list();
    const auto checked = Json::parse(program.run({"plan", "check", "-", "--json"}, hostile).out);
    const auto& told = *checked.find("operations")->asArray();
    ASSERT_EQ(told.size(), std::size(rows));
    for (std::size_t i = 0; i < told.size(); ++i) {
        EXPECT_EQ(told[i].find("issue")->string("severity"), "blocking") << rows[i].operation;
        EXPECT_EQ(told[i].find("issue")->string("message"), rows[i].issue) << rows[i].operation;
    }

    const auto applied = Json::parse(program.run({"plan", "apply", "-", "--json"}, hostile).out);
    EXPECT_EQ(applied.find("report")->string("summary"), fmt::format("0 applied · {} skipped", told.size()));
    // What looks like a place on this machine is one in the vault.
    const auto absolute = outside.path().string() + "/new.md";
    EXPECT_EQ(
        program.run({"plan", "apply", "-"}, R"([{"op": "create", "path": ")" + absolute + "\"}]").status, 0);
    EXPECT_TRUE(vault.exists(absolute.substr(1)));
    std::filesystem::remove_all(vault / absolute.substr(1, absolute.find('/', 1) - 1));
    EXPECT_EQ(vault.list(), before);
    EXPECT_EQ(vault.read("a.md"), "words\n");
    EXPECT_EQ(outside.list(), (std::vector<std::string>{"Deep", "secret.md"}));
    EXPECT_EQ(outside.read("secret.md"), "secret\n");
    EXPECT_EQ(outside.read("Deep/deep.md"), "deep\n");
}

TEST_F(PlanCommands, RefuseWhatTheyCannotRead) {
    const struct {
        std::vector<std::string> arguments;
        std::string_view input, error;
        int status;
    } rows[] = {
        {{"check", "-"},
         "I can't.",
         "vesk: The model didn't return a plan Vesk could act on. Ask again, or try a model with stronger "
         "instruction-following.\n",
         1},
        {{"check", "-"},
         "{\"operations\": []}",
         "vesk: The model's plan couldn't be read: the plan contained no operations\n",
         1},
        {{"apply", "/nowhere/at/all"}, "", "vesk: There is no file “/nowhere/at/all”.\n", 1},
        {{"apply", plan, "--only", "6"}, "", "vesk: The plan has no operation 6.\n", 1},
        {{"apply", plan, "--only", "0"}, "", "vesk: The plan has no operation 0.\n", 1},
    };
    for (const auto& row : rows) {
        auto arguments = row.arguments;
        arguments.insert(arguments.begin(), "plan");
        const auto ran = program.run(arguments, std::string(row.input));
        EXPECT_EQ(ran.status, row.status) << row.error;
        EXPECT_EQ(ran.err, row.error);
    }
    EXPECT_EQ(program.run({"plan"}).status, 2);
    EXPECT_EQ(program.run({"plan", "apply", plan, "--only", "x"}).status, 2);
    EXPECT_EQ(program.vault.read("a.md"), "words\n");
}

/// A home whose every request goes to a scripted server.
class TitleCommand : public testing::Test {
protected:
    TitleCommand() {
        server.answer("/v1/models", ModelServer::reply(200, R"({"data":[{"id":"qwen3"},{"id":"llama"}]})"));
        program.vault.write("Untitled.md", "# Untitled\n\nThe roses need pruning before winter.\n");
    }
    void reply(std::string_view text) {
        const auto delta = Json::object(
            {{"choices", Json::array({Json::object({{"delta", Json::object({{"content", text}})}})})}});
        server.answer("/v1/chat/completions",
                      ModelServer::events("data: " + delta.dump() + "\n\ndata: [DONE]\n\n"));
    }
    Ran run(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), {"--vault", program.vault.path().string(), "title"});
        return program.runPlain(arguments, "", {"VESK_MODEL_SERVER=" + server.address()});
    }
    Json lastAsked() const { return Json::parse(server.requests().back().body); }
    Program program;
    ModelServer server;
};

TEST_F(TitleCommand, ProposesAndRenamesOnlyWhenTold) {
    reply("Title: “Pruning the roses.”");
    const auto proposed = run({"Untitled.md"});
    EXPECT_EQ(proposed.status, 0) << proposed.err;
    EXPECT_EQ(proposed.out, "Pruning the roses\n");
    EXPECT_EQ(program.vault.list(), std::vector<std::string>{"Untitled.md"});
    const auto asked = lastAsked();
    EXPECT_EQ(asked.string("model"), "qwen3");
    EXPECT_EQ((*asked.find("messages")->asArray())[1].string("content"),
              "Name this note.\n\nThe roses need pruning before winter.");
    const auto renamed =
        run({"Untitled.md", "--provider", "lmstudio", "--model", "llama", "--yes", "--json"});
    EXPECT_EQ(Json::parse(renamed.out),
              Json::parse(R"({"title": "Pruning the roses", "relativePath": "Pruning the roses.md"})"));
    EXPECT_EQ(lastAsked().string("model"), "llama");
    EXPECT_EQ(program.vault.list(), std::vector<std::string>{"Pruning the roses.md"});
}

TEST_F(TitleCommand, SaysWhyThereIsNone) {
    program.vault.write("short.md", "a few words");
    EXPECT_EQ(run({"short.md"}).err, "vesk: “short.md” says too little for a title.\n");
    EXPECT_EQ(run({"gone.md"}).err, "vesk: There is no note at “gone.md”.\n");
    EXPECT_EQ(run({"Untitled.md", "--provider", "anthropic"}).err,
              "vesk: No API key for Claude (Anthropic). Add one in Settings → AI.\n");
    for (const auto& request : server.requests()) EXPECT_EQ(request.method, "GET") << "no text was sent";
    reply("Reply with the title only.");
    const auto echo = run({"Untitled.md", "--yes"});
    EXPECT_EQ(echo.err, "vesk: The model couldn't think of a title.\n");
    EXPECT_EQ(echo.status, 1);
    EXPECT_TRUE(program.vault.exists("Untitled.md"));
}

}  // namespace
}  // namespace vesk::test
