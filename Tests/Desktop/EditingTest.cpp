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
    type("mine");
    ASSERT_TRUE(until([&] { return textOf(text) == "One\nmine"; })) << textOf(text);
    vault.write("Plan.md", "Theirs\n");
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

TEST_F(EditingTest, SaysWhyWhereThereIsNoDisplay) {
    std::string said;
    EXPECT_EQ(startAgain({}, {"DISPLAY=", "DBUS_SESSION_BUS_ADDRESS="}, &said), 1);
    EXPECT_NE(said.find("there is no display to open a window on"), std::string::npos) << said;
}

}  // namespace
}  // namespace vesk::test
