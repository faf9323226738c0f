#include <gtest/gtest.h>

#include <iostream>

#include "DesktopWorld.h"

namespace vesk::test {
namespace {

constexpr const char* text = "Note text";

/// The pane at the right.
class LinksTest : public ::testing::Test, public DesktopWorld {
protected:
    void TearDown() override {
        if (HasFailure()) std::cerr << output();
    }
};

TEST_F(LinksTest, MakesAMentionALinkAndTakesItBack) {
    vault.write("Plan.md", "One\n");
    vault.write("Oslo.md", "See the plan & more\n");
    start("Plan.md");
    key("ctrl+shift+l");
    ASSERT_TRUE(until([&] { return shows("See the [[Plan|plan]] & more"); }));
    EXPECT_TRUE(shows("Nothing links here yet.\nType [[Plan]] in another note and it appears in this list."));
    ASSERT_TRUE(press("Link"));
    EXPECT_TRUE(fileBecomes("Oslo.md", "See the [[Plan|plan]] & more\n")) << vault.read("Oslo.md");
    EXPECT_TRUE(until([&] { return shows("No other note mentions this one without a link."); }));
    ASSERT_TRUE(click("Undo"));
    EXPECT_TRUE(fileBecomes("Oslo.md", "See the plan & more\n")) << vault.read("Oslo.md");
    EXPECT_TRUE(until([&] { return shows("See the [[Plan|plan]] & more"); }));
    EXPECT_EQ(textOf(text), "One\n");
}

TEST_F(LinksTest, StaysAsItWasFromRunToRun) {
    vault.write("Plan.md", "One\n");
    start("Plan.md");
    constexpr const char* pane = "Links and Assistant";
    key("ctrl+shift+l");
    ASSERT_TRUE(until([&] { return isOn(pane) && isOn("Links"); }));
    key("ctrl+shift+a");
    ASSERT_TRUE(until([&] { return isOn("Assistant"); }));
    key("ctrl+q");
    ASSERT_EQ(waitForEnd(), 0);
    start("Plan.md");
    ASSERT_TRUE(until([&] { return isOn("Assistant"); }));
    key("ctrl+shift+l");
    ASSERT_TRUE(until([&] { return !isOn("Assistant"); }));
    key("ctrl+shift+l");
    ASSERT_TRUE(until([&] { return !isOn(pane); }));
    key("ctrl+q");
    ASSERT_EQ(waitForEnd(), 0);
    EXPECT_NE(home.read("config/vesk/defaults.json").find("\"vesk.window.inspector.shown\": false"),
              std::string::npos);
}

TEST_F(LinksTest, BeginsTheNoteThatALinkMisses) {
    vault.write("Plan.md", "To [[Trips/Oslo]] and [[../Out]]\n");
    start("Plan.md");
    key("ctrl+shift+l");
    ASSERT_TRUE(until([&] { return shows("Trips/Oslo"); }));
    ASSERT_TRUE(click("Trips/Oslo"));
    ASSERT_TRUE(until([&] { return shows("“Trips/Oslo” isn't there yet"); }));
    ASSERT_TRUE(click("Create Note"));
    EXPECT_TRUE(until([&] { return vault.exists("Trips/Oslo.md"); }));
    ASSERT_TRUE(until([&] { return textOf(text).empty(); }));
    EXPECT_TRUE(until([&] { return shows("To [[Trips/Oslo]] and [[../Out]]"); })) << "its own backlink";
}

}  // namespace
}  // namespace vesk::test
