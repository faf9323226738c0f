#include <gtest/gtest.h>

#include <iostream>

#include "DesktopWorld.h"
#include "Support/ModelServer.h"
#include "VeskCore/Support/Json.h"

namespace vesk::test {
namespace {

constexpr const char* text = "Note text";
constexpr const char* composer = "Your question";
constexpr const char* organiseRow = "Organise My Notes…";

std::string delta(std::string_view words) {
    const auto piece = Json::object({{"delta", Json::object({{"content", std::string(words)}})}});
    return "data: " + Json::object({{"choices", Json(Json::Array{piece})}}).dump() + "\n\n";
}

constexpr std::string_view ending =
    "data: {\"choices\":[{\"delta\":{},\"finish_reason\":\"stop\"}]}\n\ndata: [DONE]\n\n";

/// A conversation with a model server of the test's own.
class AssistantTest : public ::testing::Test, public DesktopWorld {
protected:
    void SetUp() override {
        variables = {"VESK_MODEL_SERVER=" + server.address()};
        server.answer("/v1/models", ModelServer::reply(200, R"({"data":[{"id":"house-model"}]})"));
    }
    void TearDown() override {
        if (HasFailure()) std::cerr << output();
    }

    void reply(std::string_view words) {
        server.answer("/v1/chat",
                      ModelServer::events(delta(words.substr(0, words.size() / 2)) +
                                          delta(words.substr(words.size() / 2)) + std::string(ending)));
    }
    /// Opens the panel and waits until the model is there.
    bool open() {
        key("ctrl+shift+a");
        return until([&] { return shows(composer) && shows("Model: house-model"); });
    }
    /// Two notes and an empty one wait.
    void fillInbox() {
        vault.write("Inbox/Ideas.md", "A shed for the garden tools, with shelves and a workbench.\n");
        vault.write("Inbox/Quote.md", "“A river cuts through rock by persistence.” From a book.\n");
        vault.write("Inbox/Untitled.md", "");
        // The newest is asked about first.
        std::filesystem::last_write_time(
            vault / "Inbox/Quote.md",
            std::filesystem::last_write_time(vault / "Inbox/Ideas.md") - std::chrono::hours(1));
    }
    static constexpr std::string_view folders = R"({"note1": "Projects", "note2": "Reading"})";
    /// Presses the row once it says that a model is ready.
    bool organise() {
        return open() && until([&] {
                   return descriptionOf(organiseRow) == "Organise My Notes — file these with the AI";
               }) &&
               click(organiseRow);
    }
    void ask(const std::string& words) {
        type(words);
        key("Return");
    }
    /// The bodies of the questions that were sent.
    std::vector<std::string> questions() const {
        std::vector<std::string> bodies;
        for (const auto& request : server.requests())
            if (request.method == "POST") bodies.push_back(request.body);
        return bodies;
    }

    ModelServer server;
};

TEST_F(AssistantTest, AnswersFromTheNotesAndOpensWhatItCites) {
    vault.write("Garden.md", "---\nstatus: active\n---\nBroad beans go out in March.\n");
    vault.write("Plan.md", "One\n");
    reply("You wrote that **broad beans** go out in `March`.\n\n- See [[Garden]].");
    start("Plan.md");
    ASSERT_TRUE(open());
    ask("When do the beans go out?");
    EXPECT_TRUE(until([&] { return shows("You wrote that broad beans go out in March."); }));
    EXPECT_TRUE(shows("When do the beans go out?"));
    ASSERT_EQ(questions().size(), 1u);
    EXPECT_NE(questions()[0].find("Broad beans go out in March."), std::string::npos);
    ASSERT_TRUE(until([&] { return shows("From 2 notes"); }));
    ASSERT_TRUE(click("From 2 notes"));
    ASSERT_TRUE(until([&] { return control("Garden", "list item").has_value(); }));
    ASSERT_TRUE(click("Garden"));
    EXPECT_TRUE(until([&] { return textOf(text).find("Broad beans") != std::string::npos; })) << textOf(text);
    EXPECT_TRUE(until([&] { return caretOf(text) > 23; })) << "the caret stands at the passage";
}

TEST_F(AssistantTest, StopsAtOnce) {
    vault.write("Plan.md", "One\n");
    server.answer("/v1/chat", {{.bytes = ModelServer::eventStreamHead() + delta("It begins")},
                               {.kind = ModelServer::Step::Kind::stall}});
    reply("Second answer.");
    start("Plan.md");
    ASSERT_TRUE(open());
    ask("Anything?");
    ASSERT_TRUE(until([&] { return shows("It begins"); }));
    EXPECT_TRUE(shows("Stop"));
    key("Escape");
    EXPECT_TRUE(until([&] { return !shows("Stop"); }));
    EXPECT_TRUE(shows("It begins")) << "what came stays";
    // The next question goes out: the connection before it was let go.
    ask("More?");
    EXPECT_TRUE(until([&] { return shows("Second answer."); }));
}

TEST_F(AssistantTest, ReviewsARewriteBeforeItIsWritten) {
    vault.write("Plan.md", "One long sentence that goes on.\n");
    reply("Shorter now.\n\n```replacement\nOne sentence.\n```");
    start("Plan.md");
    ASSERT_TRUE(open());
    type("/no");
    ASSERT_TRUE(until([&] { return shows("Commands"); }));
    key("Tab");
    ask("shorten it");
    ASSERT_TRUE(until([&] { return shows("AI edit — review before saving"); }));
    EXPECT_TRUE(until([&] { return shows("1 added"); }));
    EXPECT_TRUE(shows("Nothing is written until you click Approve."));
    EXPECT_EQ(vault.read("Plan.md"), "One long sentence that goes on.\n");
    ASSERT_TRUE(press("New text"));
    ASSERT_TRUE(press("Approve"));
    EXPECT_TRUE(until([&] { return vault.read("Plan.md").starts_with("One sentence."); }))
        << vault.read("Plan.md");
    EXPECT_TRUE(until([&] { return textOf(text).starts_with("One sentence."); })) << textOf(text);
}

TEST_F(AssistantTest, CarriesOutOnlyWhatIsTickedOfAPlan) {
    vault.write("Plan.md", "One\n");
    vault.write("Old.md", "Two\n");
    reply(
        "Like this.\n\n```json\n{\"summary\":\"Tidy up\",\"operations\":["
        "{\"op\":\"rename\",\"from\":\"Plan.md\",\"to\":\"Work/Plan.md\"},"
        "{\"op\":\"trash\",\"path\":\"Old.md\"},"
        "{\"op\":\"trash\",\"path\":\"Gone.md\"}]}\n```");
    start("Plan.md");
    ASSERT_TRUE(open());
    ask("tidy up");
    ASSERT_TRUE(
        until([&] { return shows("Nothing has been changed yet. Vesk applies only what you tick."); }));
    EXPECT_TRUE(shows("Tidy up"));
    EXPECT_TRUE(shows("2 of 3 selected"));
    EXPECT_TRUE(shows("Can't be applied"));
    ASSERT_TRUE(click("Apply: Move Old.md to the vault's trash"));
    ASSERT_TRUE(until([&] { return shows("1 of 3 selected"); }));
    ASSERT_TRUE(press("Apply 1"));
    EXPECT_TRUE(until([&] { return vault.exists("Work/Plan.md") && !vault.exists("Plan.md"); }));
    EXPECT_TRUE(vault.exists("Old.md"));
    // The open note went along.
    ASSERT_TRUE(click(text));
    key("ctrl+End");
    type("more");
    EXPECT_TRUE(fileBecomes("Work/Plan.md", "One\nmore")) << vault.read("Work/Plan.md");
    EXPECT_FALSE(vault.exists("Plan.md"));
}

TEST_F(AssistantTest, TellsWhatOfAPlanWasNotDoneAndWhy) {
    vault.write("Plan.md", "One\n");
    vault.write("Old.md", "Two\n");
    reply(
        "```json\n{\"summary\":\"Tidy up\",\"operations\":["
        "{\"op\":\"update\",\"path\":\"Old.md\",\"content\":\"New\\n\"},"
        "{\"op\":\"create_folder\",\"path\":\"Work\"}]}\n```");
    start("Plan.md");
    ASSERT_TRUE(open());
    ask("tidy up");
    ASSERT_TRUE(until([&] { return shows("2 of 2 selected"); }));
    ASSERT_TRUE(click("Rewrite Old.md (4 characters)"));
    EXPECT_TRUE(until([&] { return shows("Before") && shows("Two\n") && shows("New\n"); }));
    vault.write("Old.md", "Three\n");
    ASSERT_TRUE(press("Apply 2"));
    EXPECT_TRUE(until([&] { return shows("1 applied · 1 skipped"); }));
    EXPECT_TRUE(until(
        [&] { return shows("Old.md changed while you were reviewing — ask again for a fresh proposal"); }));
    EXPECT_EQ(vault.read("Old.md"), "Three\n");
    EXPECT_TRUE(vault.exists("Work"));
    ASSERT_TRUE(press("Close"));
    EXPECT_TRUE(until([&] { return !shows("Skipped"); }));
}

TEST_F(AssistantTest, OffersATitleToANoteThatIsLeftWithoutOne) {
    vault.write("Untitled.md", "The walk along the river took three hours.\n");
    vault.write("Plan.md", "One\n");
    reply("River walk");
    start("Untitled.md");
    ASSERT_TRUE(open());
    ASSERT_TRUE(click("Plan"));
    ASSERT_TRUE(until([&] { return shows("Name this note?"); }));
    // The keyboard stays where it was.
    ASSERT_TRUE(click(text));
    key("ctrl+End");
    type("two");
    EXPECT_TRUE(fileBecomes("Plan.md", "One\ntwo")) << vault.read("Plan.md");
    ASSERT_TRUE(until([&] { return textOf("Title") == "River walk" || shows("Use Title"); }));
    ASSERT_TRUE(press("Use Title"));
    EXPECT_TRUE(fileBecomes("River walk.md", "The walk along the river took three hours.\n"));
    EXPECT_TRUE(until([&] { return !shows("Name this note?"); }));
}

TEST_F(AssistantTest, OrganisesWhatWaitsAndMovesOnlyWhatIsTicked) {
    home.write("data/vesk/sentence-en.model", "no model");
    fillInbox();
    reply(folders);
    vault.write("Projects/Boat.md", "One\n");
    vault.write("Reading/Books.md", "Two\n");
    start("Projects/Boat.md");
    ASSERT_TRUE(organise());
    ASSERT_TRUE(until([&] { return shows("2 notes to file — 2 best guesses · 1 possibly junk"); }));
    EXPECT_TRUE(shows("Checked 3 notes in your inbox"));
    EXPECT_TRUE(shows("Best guess (2)") && shows("Possibly junk (1)"));
    EXPECT_TRUE(shows("Best guess — no similar notes to compare against"));
    EXPECT_TRUE(shows("0 of 3 selected")) << "nothing speaks for a folder but the model";
    // Once more, from the model and not from what is remembered.
    const auto asked = questions().size();
    ASSERT_TRUE(press("Decide again"));
    ASSERT_TRUE(until([&] { return questions().size() > asked && shows("0 of 3 selected"); }));
    ASSERT_TRUE(press("What changes: Move Inbox/Ideas.md → Projects/Ideas.md"));
    EXPECT_TRUE(until([&] { return shows("After") && shows("Projects/Ideas.md"); }));
    ASSERT_TRUE(press("What changes: Move Inbox/Quote.md → Reading/Quote.md"));
    EXPECT_TRUE(until([&] { return shows("Reading/Quote.md") && !shows("Projects/Ideas.md"); }));
    ASSERT_TRUE(click("Apply: Move Inbox/Ideas.md → Projects/Ideas.md"));
    ASSERT_TRUE(press("Apply 1"));
    EXPECT_TRUE(until([&] { return vault.exists("Projects/Ideas.md") && !vault.exists("Inbox/Ideas.md"); }));
    EXPECT_TRUE(vault.exists("Inbox/Quote.md") && vault.exists("Inbox/Untitled.md"));
    EXPECT_TRUE(until([&] { return shows("1 applied"); }));
}

TEST_F(AssistantTest, FilesANoteWhereSimilarOnesAreIfThatIsChosen) {
    const auto build = std::filesystem::path(VESK_DESKTOP).parent_path().parent_path().parent_path();
    if (!std::filesystem::exists(build / "model/sentence-en.model"))
        GTEST_SKIP() << "the sentence model isn't installed: run scripts/sentence-model";
    fillInbox();
    reply(folders);
    for (const char* name : {"Fence", "Greenhouse", "Workbench", "Tool rack"})
        vault.write("Home/" + std::string(name) + ".md",
                    "Building the " + std::string(name) + " in the garden: wood, shelves, tools.\n");
    vault.write("Projects/Boat.md", "Sails and ropes, and what the harbour costs a year.\n");
    vault.write("Reading/Books.md", "Novels and poems that others liked.\n");
    start("Projects/Boat.md");
    ASSERT_TRUE(organise());
    ASSERT_TRUE(until([&] { return shows("Best guess — similar notes are in Home"); }));
    ASSERT_TRUE(click("Where this note goes"));
    key("Down");
    key("Return");
    ASSERT_TRUE(click("Apply: Move Inbox/Ideas.md → Home/Ideas.md"));
    EXPECT_TRUE(until([&] { return isOn("Apply: Move Inbox/Ideas.md → Home/Ideas.md"); }));
    ASSERT_TRUE(press("Apply 1"));
    EXPECT_TRUE(until([&] { return vault.exists("Home/Ideas.md") && !vault.exists("Inbox/Ideas.md"); }));
}

TEST_F(AssistantTest, StopsOrganisingAfterTheQuestionAtHandOrAtOnce) {
    fillInbox();
    vault.write("Projects/Boat.md", "One\n");
    vault.write("Reading/Books.md", "Two\n");
    server.answer("/v1/chat",
                  {{.bytes = ModelServer::eventStreamHead()}, {.kind = ModelServer::Step::Kind::stall}});
    start("Projects/Boat.md");
    ASSERT_TRUE(organise());
    ASSERT_TRUE(until([&] { return shows("Stop"); }));
    server.waitUntilStalled();
    ASSERT_TRUE(press("Stop"));
    EXPECT_TRUE(until([&] {
        for (const auto& control : controls())
            if (control.name.find("Stopping after this note — the review will show what's done so far") !=
                control.name.npos)
                return true;
        return false;
    }));
    ASSERT_TRUE(press("Stop"));
    EXPECT_TRUE(until([&] { return !shows("Stop"); }));
    EXPECT_TRUE(vault.exists("Inbox/Ideas.md") && vault.exists("Inbox/Quote.md"));
}

TEST_F(AssistantTest, LeadsToTheSettingsWhereNothingCanOrganise) {
    variables = {"VESK_MODEL_SERVER=127.0.0.1:9"};
    vault.write("Recipes/Soup.md", "Leeks\n");
    vault.write("Travel/Oslo.md", "By boat\n");
    start("Travel/Oslo.md");
    // Only where something waits.
    ASSERT_FALSE(shows(organiseRow));
    vault.write("Bergen.md", "By train\n");
    ASSERT_TRUE(until([&] { return shows("Not yet filed") && shows(organiseRow); }));
    EXPECT_EQ(descriptionOf(organiseRow), "Set up a provider in AI Settings… to organise");
    ASSERT_TRUE(click(organiseRow));
    EXPECT_TRUE(until([&] { return shows("Models on This Computer"); }));
}

TEST_F(AssistantTest, SaysWhatToDoWhereNoModelIsSetUp) {
    variables = {"VESK_MODEL_SERVER=127.0.0.1:9"};
    vault.write("Plan.md", "One\n");
    start("Plan.md");
    key("ctrl+shift+a");
    ASSERT_TRUE(until([&] { return shows(composer) && shows("Model: No model"); }));
    EXPECT_TRUE(until([&] {
        return shows(
            "No AI provider is set up yet. Vesk can use a local model with nothing to pay for — start LM "
            "Studio or Ollama, turn on Apple Intelligence, or paste a key. All three live in Settings → AI "
            "(⌘,).");
    }));
    ask("Anything?");
    EXPECT_TRUE(until([&] { return textOf(composer) == "Anything?"; })) << "it stays to be sent";
    ASSERT_TRUE(press("AI Settings…"));
    EXPECT_TRUE(until([&] { return shows("Models on This Computer"); }));
    EXPECT_TRUE(until([&] {
        return shows(
            "Ollama isn't answering. Start it from the menu bar, or run `ollama serve` in Terminal.");
    }));
}

}  // namespace
}  // namespace vesk::test
