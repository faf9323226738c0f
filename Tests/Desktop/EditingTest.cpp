#include <gtest/gtest.h>

#include <iostream>

#include "DesktopWorld.h"

namespace vesk::test {
namespace {

constexpr const char* text = "Note text";

class EditingTest : public ::testing::Test, public DesktopWorld {
protected:
    void TearDown() override {
        if (HasFailure()) std::cerr << output();
    }
};

TEST_F(EditingTest, SavesWhatIsTypedByItself) {
    vault.write("Plan.md", "One\n");
    start("Plan.md");
    key("ctrl+End");
    type("two and 3");
    EXPECT_TRUE(fileBecomes("Plan.md", "One\ntwo and 3")) << vault.read("Plan.md");
    EXPECT_EQ(end(), 0);
}

TEST_F(EditingTest, FollowsAnOutsideChangeAndKeepsTheCaret) {
    vault.write("Plan.md", "First line\nLast line\n");
    start("Plan.md");
    ASSERT_TRUE(setCaret(text, 15));  // behind "Last"
    ASSERT_TRUE(until([&] { return caretOf(text) == 15; }));
    vault.write("Plan.md", "Written elsewhere\nFirst line\nLast line\n");
    EXPECT_TRUE(until([&] { return textOf(text) == "Written elsewhere\nFirst line\nLast line\n"; }))
        << textOf(text);
    EXPECT_TRUE(until([&] { return caretOf(text) == 33; })) << caretOf(text);
}

TEST_F(EditingTest, KeepsBothWhenBothSidesChange) {
    vault.write("Plan.md", "One\n");
    start("Plan.md");
    key("ctrl+End");
    whileItStands([&] {
        type("mine");
        vault.write("Plan.md", "Theirs\n");
    });
    EXPECT_TRUE(until([&] { return shows("“Plan” also changed on another device"); }));
    EXPECT_TRUE(fileBecomes("Plan.md", "One\nmine"));
    EXPECT_EQ(vault.read("Plan (conflict from another device).md"), "Theirs\n");
    ASSERT_TRUE(press("Show Other Version"));
    EXPECT_TRUE(until([&] { return textOf(text) == "Theirs\n"; })) << textOf(text);
}

TEST_F(EditingTest, SavesWhatIsTypedWhenItIsClosedAtOnce) {
    vault.write("Plan.md", "One\n");
    start("Plan.md");
    key("ctrl+End");
    type("last words");
    ASSERT_TRUE(until([&] { return textOf(text) == "One\nlast words"; }));
    key("ctrl+q");
    EXPECT_EQ(waitForEnd(), 0);
    EXPECT_EQ(vault.read("Plan.md"), "One\nlast words");
}

TEST_F(EditingTest, StylesWhatIsTypedAndKeepsTheSource) {
    vault.write("Plan.md", "");
    start("Plan.md");
    type("- [ ] pack the bag");
    key("Return");
    type("tent");
    key("ctrl+b");
    EXPECT_TRUE(fileBecomes("Plan.md", "- [ ] pack the bag\n- [ ] **tent**")) << vault.read("Plan.md");
    key("ctrl+z");
    EXPECT_TRUE(fileBecomes("Plan.md", "- [ ] pack the bag\n- [ ] tent")) << vault.read("Plan.md");
    key("ctrl+Return");
    EXPECT_TRUE(fileBecomes("Plan.md", "- [ ] pack the bag\n- [x] tent")) << vault.read("Plan.md");
}

TEST_F(EditingTest, CompletesALinkAndFollowsIt) {
    vault.write("Garden calendar.md", "Sow\n");
    vault.write("Plan.md", "");
    start("Plan.md");
    type("see [[gard");
    ASSERT_TRUE(until([&] { return shows("Garden calendar") && shows("Completions"); }));
    key("Return");
    EXPECT_TRUE(fileBecomes("Plan.md", "see [[Garden calendar]]")) << vault.read("Plan.md");
}

TEST_F(EditingTest, RenamesANoteByItsTitle) {
    vault.write("Plan.md", "One\n");
    start("Plan.md");
    key("F2");
    key("ctrl+a");
    type("Holiday");
    key("Return");
    EXPECT_TRUE(until([&] { return vault.exists("Holiday.md") && !vault.exists("Plan.md"); }));
    type("more ");
    EXPECT_TRUE(fileBecomes("Holiday.md", "more One\n")) << vault.read("Holiday.md");
}

TEST_F(EditingTest, FindsAndReplaces) {
    vault.write("Plan.md", "red apple, red pear\n");
    start("Plan.md");
    key("ctrl+h");
    ASSERT_TRUE(until([&] { return shows("Find in this note"); }));
    type("red");
    // The first place that fits is selected.
    ASSERT_TRUE(until([&] { return caretOf(text) == 3; }));
    EXPECT_TRUE(press("Replace All"));
    EXPECT_TRUE(fileBecomes("Plan.md", " apple,  pear\n")) << vault.read("Plan.md");
}

TEST_F(EditingTest, PutsANoteInTheTrashAndTakesItBack) {
    vault.write("Plan.md", "One\n");
    vault.write("Other.md", "Two\n");
    start("Plan.md");
    key("ctrl+Delete");
    EXPECT_TRUE(until([&] { return vault.exists(".trash/Plan.md") && !vault.exists("Plan.md"); }));
    ASSERT_TRUE(until([&] { return shows("No note selected"); }));
    key("ctrl+shift+p");
    ASSERT_TRUE(until([&] { return control("Command Palette", "window") || shows("Command Palette"); }));
    type("trash");
    ASSERT_TRUE(until([&] { return !shows("About Vesk"); }));
    key("Return");
    ASSERT_TRUE(until([&] { return shows("Empty Trash…"); }));
    key("Return");
    EXPECT_TRUE(fileBecomes("Plan.md", "One\n"));
}

TEST_F(EditingTest, HandsWhatIsOpenedTwiceToTheWindowThatStands) {
    vault.write("Plan.md", "One\n");
    vault.write("Other.md", "Two\n");
    start("Plan.md");
    EXPECT_EQ(startAgain({(vault / "Other.md").string()}), 0);
    EXPECT_TRUE(until([&] { return textOf(text) == "Two\n"; })) << textOf(text);
}

TEST_F(EditingTest, RefusesInWordsWhatIsTooLarge) {
    vault.write("Large.md", std::string(13'000'000, 'x'));
    vault.write("Nul.md", std::string("a\0b", 3));
    start();
    EXPECT_EQ(startAgain({(vault / "Large.md").string()}), 0);
    EXPECT_TRUE(until([&] { return shows("This note is too large to show"); }));
    EXPECT_EQ(startAgain({(vault / "Nul.md").string()}), 0);
    EXPECT_TRUE(until([&] { return shows("This note holds characters that can't be shown"); }));
    EXPECT_EQ(vault.read("Nul.md"), std::string("a\0b", 3));
}

TEST_F(EditingTest, SaysWhyWhereThereIsNoDisplay) {
    std::string said;
    EXPECT_EQ(startAgain({}, {"DISPLAY=", "DBUS_SESSION_BUS_ADDRESS="}, &said), 1);
    EXPECT_NE(said.find("there is no display to open a window on"), std::string::npos) << said;
}

}  // namespace
}  // namespace vesk::test
