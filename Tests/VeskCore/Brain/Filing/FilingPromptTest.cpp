#include <gtest/gtest.h>

#include "VeskCore/Brain/Filing/FilingPrompt.h"

namespace vesk::test {
namespace {

using Form = FilingPrompt::InstructionForm;

FilingTaxonomy taxonomy(std::vector<std::string> targets = {"Home", "Work/Clients"}) {
    FilingTaxonomy made;
    made.targets = std::move(targets);
    return made;
}

const FilingCandidate boat{.path = "Boat.md",
                           .title = "Boat",
                           .excerpt = "The mooring costs 340.",
                           .contentHash = "h",
                           .modified = {}};
const std::vector<FilingHint> hints{
    {.path = "Home/Sails.md", .title = "Sails", .folder = "Home", .score = 0.9},
    {.path = "Home/Rope.md", .title = "Rope", .folder = "Home", .score = 0.5}};

TEST(FilingPrompt, AsksAboutOneNote) {
    const auto question =
        FilingPrompt::question(boat, taxonomy(), hints, FilingAttempt::full(), Form::measured);
    EXPECT_EQ(
        question.instructions,
        "You file the user's Markdown notes into folders. Pick the ONE existing folder that best fits "
        "what the note is about. A note holding a password, PIN, code, licence or account detail belongs "
        "with credentials. Judge by the note's content, not by its length.");
    EXPECT_EQ(question.prompt,
              "The vault's folders:\n- Home/\n- Work/Clients/\n\n"
              "The notes most similar to this one, and where they are filed:\n"
              "- \"Sails\" is in Home/\n- \"Rope\" is in Home/\n\n"
              "Note title: Boat\n\nNote text:\nThe mooring costs 340.\n\n"
              "Which folder does this note belong in?");
    EXPECT_EQ(question.slots, (std::vector<ChoiceSlot>{{.name = "folder",
                                                        .description = "The folder this note belongs in",
                                                        .choices = {"Home", "Work/Clients"}}}));
    EXPECT_EQ(question.temperature, 0);
}

TEST(FilingPrompt, ShowsLessOnALaterAttempt) {
    const std::string start = "The vault's folders:\n- Home/\n- Work/Clients/\n\nNote title: Boat\n\n",
                      end = "Which folder does this note belong in?";
    const struct {
        FilingAttempt attempt;
        std::string label, expected;
    } rows[] = {
        {FilingAttempt::noHints(), "no hints", start + "Note text:\nThe mooring costs 340.\n\n" + end},
        {FilingAttempt::shortened(11), "short 11", start + "Note text:\nThe mooring…\n\n" + end},
        {FilingAttempt::shortened(600), "short 600", start + "Note text:\nThe mooring costs 340.\n\n" + end},
        {FilingAttempt::titleOnly(), "title only", start + end},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.attempt.label(), row.label);
        EXPECT_EQ(FilingPrompt::question(boat, taxonomy(), hints, row.attempt, Form::measured).prompt,
                  row.expected);
    }
}

TEST(FilingPrompt, AsksAboutSeveralNotesAtOnce) {
    auto second = boat;
    second.title = "Sails";
    const auto question = FilingPrompt::batchQuestion({boat, second}, taxonomy({"A", "B"}),
                                                      FilingAttempt::noHints(), Form::generic);
    EXPECT_EQ(question.prompt,
              "The vault's folders:\n- A/\n- B/\n\nNote 1 — title: Boat\nThe mooring costs 340.\n\n"
              "Note 2 — title: Sails\nThe mooring costs 340.\n\n"
              "For each of the 2 notes, which folder does it belong in?");
    ASSERT_EQ(question.slots.size(), 2U);
    EXPECT_EQ(question.slots[1].name, "note2");
    EXPECT_EQ(question.slots[1].description, "The folder for note 2");
    EXPECT_EQ(question.slots[1].choices, (std::vector<std::string>{"A", "B"}));
    EXPECT_TRUE(question.instructions.ends_with(
        "what the note is about. Judge by the note's content, not by its length."));
}

TEST(FilingPrompt, NamesCredentialsWhereTheyHaveAPlace) {
    const std::string sentence = "belongs with credentials.";
    for (const char* folder : {"My PASSWORDS", "Security", "Work/Keys", "Logins"})
        EXPECT_NE(FilingPrompt::instructions({"Home", folder}, Form::generic).find(sentence),
                  std::string::npos)
            << folder;
    EXPECT_EQ(FilingPrompt::instructions({"Home"}, Form::generic).find(sentence), std::string::npos);
    EXPECT_NE(FilingPrompt::instructions({"Home"}, Form::measured).find(sentence), std::string::npos);
}

TEST(FilingPrompt, TellsWhereANoteIsWhenItMayStay) {
    auto filed = boat;
    filed.path = "Home/Boat.md";
    const auto prompt = [&](const FilingCandidate& note) {
        return FilingPrompt::question(note, taxonomy(), {}, FilingAttempt::titleOnly(), Form::keep).prompt;
    };
    EXPECT_NE(
        prompt(filed).find("Note title: Boat\nCurrent folder: Home/\n\nIs this note in the right folder? "
                           "If not, which folder does it belong in?"),
        std::string::npos);
    EXPECT_NE(prompt(boat).find("Current folder: (none yet)\n"), std::string::npos);
}

}  // namespace
}  // namespace vesk::test
