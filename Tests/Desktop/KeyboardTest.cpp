#include <gtest/gtest.h>

#include <iostream>
#include <set>

#include "DesktopWorld.h"

namespace vesk::test {
namespace {

constexpr const char* text = "Note text";

/// The window without a pointer, and as it is read aloud.
class KeyboardTest : public ::testing::Test, public DesktopWorld {
protected:
    void TearDown() override {
        if (HasFailure()) std::cerr << output();
    }
    std::string unnamed() const {
        static const std::set<std::string> roles{"button", "toggle button", "text",      "text box",
                                                 "entry",  "password text", "list",      "check box",
                                                 "slider", "spin button",   "combo box", "list box"};
        std::string found;
        for (const auto& control : controls())
            if (roles.contains(control.role) && control.name.empty()) found += control.role + ", ";
        return found;
    }
};

TEST_F(KeyboardTest, GoesFromNoteToNote) {
    vault.write("Plan.md", "One\n");
    vault.write("Trips/Oslo.md", "By boat\n");
    vault.write("Trips/Bergen.md", "By train\n");
    start("Plan.md");
    key("ctrl+p");
    ASSERT_TRUE(until([&] { return shows("Go to Note"); }));
    type("osl");
    ASSERT_TRUE(until([&] { return shows("New note “osl”"); }));
    key("Return");
    ASSERT_TRUE(until([&] { return textOf(text) == "By boat\n"; })) << textOf(text);
    key("alt+Left");
    ASSERT_TRUE(until([&] { return textOf(text) == "One\n"; })) << textOf(text);
    key("alt+Right");
    ASSERT_TRUE(until([&] { return textOf(text) == "By boat\n"; })) << textOf(text);
    key("ctrl+shift+f");
    ASSERT_TRUE(until([&] { return shows("How to search"); }));
    type("train");
    ASSERT_TRUE(until([&] { return shows("Search results"); }));
    key("Return");
    ASSERT_TRUE(until([&] { return textOf(text) == "By train\n"; })) << textOf(text);
    // The keyboard is in the text: what is typed goes there.
    type("Go ");
    EXPECT_TRUE(fileBecomes("Trips/Bergen.md", "Go By train\n")) << vault.read("Trips/Bergen.md");
}

TEST_F(KeyboardTest, SearchesAndComesBack) {
    vault.write("Plan.md", "One\n");
    vault.write("Trips/Oslo.md", "By boat, and from there by train\n");
    vault.write("Trips/Bergen.md", "By train\n");
    home.write("data/vesk/sentence-en.model", "no model");
    start("Plan.md");
    key("ctrl+shift+f");
    ASSERT_TRUE(until([&] { return shows("How to search"); }));
    // Return comes before anything can have been found.
    whileItStands([&] {
        type("boat");
        key("Return");
    });
    ASSERT_TRUE(until([&] { return textOf(text).starts_with("By boat"); })) << textOf(text);
    key("ctrl+shift+f");
    type("train");
    ASSERT_TRUE(until([&] { return shows("By train"); }));
    EXPECT_TRUE(isEnabled("Words"));
    EXPECT_FALSE(isEnabled("Meaning"));
    EXPECT_NE(descriptionOf("Meaning").find("sentence-en.model"), std::string::npos)
        << descriptionOf("Meaning");
    key("Down");
    key("Escape");
    type(" -boat");
    ASSERT_TRUE(until([&] { return !shows("Oslo"); }));
    key("Down");
    key("Return");
    ASSERT_TRUE(until([&] { return textOf(text) == "By train\n"; })) << textOf(text);
    // Escape leads from an emptied field back to the text.
    key("ctrl+shift+f");
    key("Delete");
    ASSERT_TRUE(until([&] { return shows("How to search"); }));
    key("Escape");
    ASSERT_TRUE(until([&] { return !shows("How to search"); }));
    type("Go ");
    EXPECT_TRUE(fileBecomes("Trips/Bergen.md", "Go By train\n")) << vault.read("Trips/Bergen.md");
}

TEST_F(KeyboardTest, GivesEveryControlAName) {
    vault.write("Plan.md", "# Top\n\n## Below\n\nOne [[Oslo]]\n");
    vault.write("Oslo.md", "See [[Plan]]\n");
    start("Plan.md");
    EXPECT_EQ(unnamed(), "") << "in the window";
    struct Place {
        const char *keys, *shown;
    };
    for (const auto& place : {Place{"ctrl+h", "Find in this note"}, Place{"ctrl+shift+l", "Linked From"},
                              Place{"ctrl+shift+f", "How to search"}, Place{"ctrl+p", "Go to Note"},
                              Place{"Escape", "Search notes"}, Place{"ctrl+comma", "Text size"}}) {
        key(place.keys);
        ASSERT_TRUE(until([&] { return shows(place.shown); })) << place.shown;
        EXPECT_EQ(unnamed(), "") << place.shown;
    }
}

}  // namespace
}  // namespace vesk::test
