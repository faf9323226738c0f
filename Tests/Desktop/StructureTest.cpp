#include <gtest/gtest.h>

#include <iostream>

#include "DesktopWorld.h"

namespace vesk::test {
namespace {

constexpr const char* text = "Note text";

/// Notes and folders as a person arranges them in the list.
class StructureTest : public ::testing::Test, public DesktopWorld {
protected:
    void TearDown() override {
        if (HasFailure()) std::cerr << output();
    }
};

TEST_F(StructureTest, MovesANoteThatIsDraggedToAFolderAndToTheTrash) {
    vault.write("Plan.md", "One\n");
    vault.write("Trips/Oslo.md", "Two\n");
    vault.write(".trash/Old.md", "Three\n");
    start("Trips/Oslo.md");
    ASSERT_TRUE(drag("Plan", "Trips"));
    EXPECT_TRUE(until([&] { return vault.exists("Trips/Plan.md") && !vault.exists("Plan.md"); }));
    ASSERT_TRUE(drag("Plan", "Trash"));
    EXPECT_TRUE(until([&] { return vault.exists(".trash/Plan.md") && !vault.exists("Trips/Plan.md"); }));
}

TEST_F(StructureTest, GivesANoteAnIconByKeysAlone) {
    vault.write("Plan.md", "One\n");
    start("Plan.md");
    key("ctrl+shift+p");
    ASSERT_TRUE(until([&] { return shows("Command Palette"); }));
    type("choose note icon");
    ASSERT_TRUE(until([&] { return !shows("About Vesk"); }));
    key("Return");
    ASSERT_TRUE(until([&] { return shows("Search icons"); }));
    type("coffee");
    ASSERT_TRUE(until([&] { return !shows("Car"); }));
    key("Return");
    EXPECT_TRUE(fileBecomes("Plan.md", "---\nicon: cup.and.saucer\n---\nOne\n")) << vault.read("Plan.md");
    EXPECT_TRUE(until([&] { return shows("☕"); }));
}

TEST_F(StructureTest, ColoursAFolderAndRemembersWhatIsOpen) {
    vault.write("Plan.md", "One\n");
    vault.write("Trips/Oslo.md", "Two\n");
    start("Plan.md");
    ASSERT_TRUE(click("Trips"));
    key("shift+F10");
    ASSERT_TRUE(press("Teal"));
    EXPECT_TRUE(until([&] {
        return vault.exists(".vesk/style.json") &&
               vault.read(".vesk/style.json").find("\"Trips\":\"teal\"") != std::string::npos;
    })) << (vault.exists(".vesk/style.json") ? vault.read(".vesk/style.json") : "no file");
    ASSERT_TRUE(click("Trips"));
    key("shift+Right");
    ASSERT_TRUE(until([&] { return shows("Oslo"); }));
    key("ctrl+q");
    ASSERT_EQ(waitForEnd(), 0);
    start();
    EXPECT_TRUE(until([&] { return shows("Oslo"); }));
}

TEST_F(StructureTest, HighlightsTheOpenNoteInItsFolderWhileThatIsOpen) {
    vault.write("Trips/Oslo.md", "Two\n");
    start("Trips/Oslo.md");
    const auto isChosenBelow = [&](bool folder) {
        return until([&] {
            const auto chosen = areaOfChosenRow(), above = areaOf("Trips");
            return chosen && above && (chosen->y > above->y) == folder;
        });
    };
    ASSERT_TRUE(isChosenBelow(false)) << "among the recent ones";
    ASSERT_TRUE(click("Expand"));
    EXPECT_TRUE(isChosenBelow(true));
    ASSERT_TRUE(click("Expand"));
    EXPECT_TRUE(isChosenBelow(false));
}

TEST_F(StructureTest, RenamesFoldersAndNotesWhereTheyStandInTheList) {
    vault.write("Trips/Oslo.md", "By boat\n");
    vault.write("Trips/Bergen.md", "By train\n");
    vault.write("Work/Plan.md", "One\n");
    start("Trips/Oslo.md");
    // What changes elsewhere meanwhile doesn't disturb who is writing.
    ASSERT_TRUE(click("Trips"));
    key("F2");
    type("Jour");
    vault.write("Added.md", "Three\n");
    ASSERT_TRUE(until([&] { return shows("4 notes · this Mac only"); }));
    type("neys");
    key("Return");
    ASSERT_TRUE(until([&] { return vault.exists("Journeys/Oslo.md"); }));
    ASSERT_TRUE(until([&] { return shows("Added"); }));
    // It is as open as it was, and the shown note went along.
    ASSERT_TRUE(until([&] { return shows("Journeys") && shows("Bergen"); }));
    key("F6");
    type("Go ");
    EXPECT_TRUE(fileBecomes("Journeys/Oslo.md", "Go By boat\n"));
    ASSERT_TRUE(click("Journeys"));
    key("F2");
    ASSERT_TRUE(until([&] { return shows("New name"); }));
    type("Work");
    key("Return");
    const char* const reason = "One called “Work” is already in this folder.";
    EXPECT_TRUE(until([&] { return shows(reason); }));
    EXPECT_EQ(descriptionOf("New name"), reason) << "read out to who can't see it";
    EXPECT_TRUE(vault.exists("Journeys/Oslo.md"));
    // What was written is there to be mended.
    key("End");
    type(" trips");
    key("Return");
    ASSERT_TRUE(until([&] { return vault.exists("Work trips/Oslo.md") && !shows("New name"); }));
    EXPECT_TRUE(until([&] { return !shows(reason); })) << "it is no longer true";
    ASSERT_TRUE(click("Work"));
    key("F2");
    type("Elsewhere");
    key("Escape");
    ASSERT_TRUE(until([&] { return !shows("New name"); }));
    EXPECT_TRUE(vault.exists("Work/Plan.md"));
    ASSERT_TRUE(click("Bergen", 3));
    ASSERT_TRUE(press("Rename"));
    ASSERT_TRUE(until([&] { return shows("New name"); }));
    type("Voss");
    key("Return");
    EXPECT_TRUE(fileBecomes("Work trips/Voss.md", "By train\n"));
}

TEST_F(StructureTest, NamesANewFolderWhereItWillStand) {
    vault.write("Plan.md", "One\n");
    vault.write("Trips/Tickets/Ferry times.md", "Two\n");
    prepareFullDisk();
    start("Plan.md");
    const auto isAsked = [&] { return until([&] { return shows("New name"); }); };
    const auto isOver = [&] { return until([&] { return !shows("New name") && !shows("New Folder"); }); };
    key("ctrl+shift+n");
    type("Work");
    key("Return");
    EXPECT_TRUE(until([&] { return vault.exists("Work") && shows("Work"); }));
    ASSERT_TRUE(isOver());
    ASSERT_TRUE(press("Main Menu"));
    ASSERT_TRUE(press("New Folder"));
    ASSERT_TRUE(isAsked());
    type("Never");
    key("Escape");
    ASSERT_TRUE(isOver());
    EXPECT_FALSE(vault.exists("Never"));
    // In a folder that is closed, and while the disk is full.
    ASSERT_FALSE(shows("Tickets"));
    ASSERT_TRUE(click("Trips", 3));
    ASSERT_TRUE(press("New Folder Here"));
    ASSERT_TRUE(isAsked());
    EXPECT_TRUE(until([&] { return shows("Tickets"); })) << "what it will stand beside";
    type("Ferries");
    fillDisk(true);
    key("Return");
    const auto reason = "create folder " + (vault / "Trips/Ferries").string() + ": No space left on device";
    EXPECT_TRUE(until([&] { return shows(reason); }));
    EXPECT_FALSE(vault.exists("Trips/Ferries"));
    fillDisk(false);
    key("Return");
    EXPECT_TRUE(until([&] { return vault.exists("Trips/Ferries") && shows("Ferries"); }));
    EXPECT_TRUE(isOver());
}

TEST_F(StructureTest, TellsWhyANameIsRefused) {
    vault.write("Plan.md", "One\n");
    vault.write("Oslo.md", "Two\n");
    start("Plan.md");
    key("F2");
    key("ctrl+a");
    type("Oslo");
    key("Return");
    EXPECT_TRUE(until(
        [&] { return shows("Couldn't rename this note — one called “Oslo” is already in this folder."); }));
    EXPECT_EQ(vault.read("Plan.md"), "One\n");
    EXPECT_EQ(textOf(text), "One\n");
}

}  // namespace
}  // namespace vesk::test
