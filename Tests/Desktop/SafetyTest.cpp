#include <gtest/gtest.h>

#include <filesystem>
#include <iostream>
#include <set>

#include "DesktopWorld.h"

namespace vesk::test {
namespace {

namespace fs = std::filesystem;
constexpr const char* text = "Note text";
constexpr const char* cannotSave = "Couldn't save “Plan”";

/// What befalls a person's text and vault while the window is open.
class SafetyTest : public ::testing::Test, public DesktopWorld {
protected:
    void TearDown() override {
        if (HasFailure()) std::cerr << output();
    }
    /// Types until the window, which nothing reads aloud, has taken a letter and saved it.
    void pressUntilSaved(const std::string& path) const {
        const auto before = vault.read(path);
        int waited = 0;
        EXPECT_TRUE(until([&] {
            constexpr int betweenLetters = 150;  // looks, longer than what is typed waits for being saved
            if (waited++ % betweenLetters == 0) key("z");
            return vault.read(path) != before;
        }));
    }
    /// The question before text is let go.
    void quitAndBeAsked() {
        key("ctrl+q");
        ASSERT_TRUE(until([&] { return shows("Vesk couldn't save your changes to “Plan”"); }));
    }
    void answer(const std::string& name) {
        EXPECT_TRUE(until([&] {
            clickLast(name);
            return !shows("Stay");
        })) << name;
    }
    /// The folder in which a folder chooser begins.
    void setDocuments(const fs::path& folder) {
        home.write("config/user-dirs.dirs", "XDG_DOCUMENTS_DIR=\"" + folder.string() + "\"\n");
    }
    /// The open note can't be saved.
    void typeOnAFullDisk() {
        vault.write("Plan.md", "One\n");
        prepareFullDisk();
        start("Plan.md");
        key("ctrl+End");
        fillDisk(true);
        type("kept");
        ASSERT_TRUE(until([&] { return shows(cannotSave); }));
        EXPECT_EQ(vault.read("Plan.md"), "One\n");
    }
};

TEST_F(SafetyTest, TellsOfAFullDiskAndSavesWhenThereIsRoom) {
    typeOnAFullDisk();
    EXPECT_TRUE(descriptionOf(text).starts_with(cannotSave)) << "read out to who can't see it";
    fillDisk(false);
    ASSERT_TRUE(press("Try Again"));
    EXPECT_TRUE(fileBecomes("Plan.md", "One\nkept")) << vault.read("Plan.md");
    EXPECT_TRUE(until([&] { return !shows(cannotSave); }));
    EXPECT_EQ(descriptionOf(text), "");
}

TEST_F(SafetyTest, AsksBeforeItQuitsAndBringsBackWhatAPowerCutFoundUnsaved) {
    typeOnAFullDisk();
    key("ctrl+q");
    EXPECT_TRUE(until([&] { return shows("Vesk couldn't save your changes to “Plan”"); }));
    EXPECT_TRUE(shows("Stay") && shows("Save Text Elsewhere…") && shows("Quit Anyway"));
    kill();
    fillDisk(false);
    start("Plan.md");
    EXPECT_TRUE(until([&] { return shows("Text Vesk couldn't save last time is back"); }));
    EXPECT_TRUE(fileBecomes("Plan (recovered).md", "One\nkept"));
    EXPECT_EQ(vault.read("Plan.md"), "One\n");
}

TEST_F(SafetyTest, StaysWithTheTextUnlessAnotherAnswerIsGiven) {
    typeOnAFullDisk();
    for (const char* answer : {"Return", "Escape"}) {
        quitAndBeAsked();
        key(answer);
        ASSERT_TRUE(until([&] { return !shows("Quit Anyway"); })) << answer;
        EXPECT_EQ(textOf(text), "One\nkept") << answer;
    }
    EXPECT_FALSE(hasEnded());
    fillDisk(false);
    key("ctrl+q");
    EXPECT_EQ(waitForEnd(), 0);
    EXPECT_EQ(vault.read("Plan.md"), "One\nkept");
}

TEST_F(SafetyTest, LetsTheTextGoWhenToldToAndDoesNotBringItBack) {
    typeOnAFullDisk();
    quitAndBeAsked();
    answer("Quit Anyway");
    EXPECT_EQ(waitForEnd(), 0);
    EXPECT_EQ(vault.read("Plan.md"), "One\n");
    fillDisk(false);
    start("Plan.md");
    ASSERT_TRUE(until([&] { return textOf(text) == "One\n"; })) << textOf(text);
    EXPECT_FALSE(shows("Text Vesk couldn't save last time is back"));
    EXPECT_EQ(vault.list(), (std::vector<std::string>{".vesk", "Plan.md"}));
}

TEST_F(SafetyTest, SavesTheTextElsewhereAndQuits) {
    const auto documents = home / "Documents";
    fs::create_directories(documents);
    home.write("Documents/Plan.md", "another one");
    setDocuments(documents);
    typeOnAFullDisk();
    quitAndBeAsked();
    answer("Save Text Elsewhere…");
    ASSERT_TRUE(until([&] { return shows("Save Here"); }));
    ASSERT_TRUE(click("Save Here"));
    EXPECT_EQ(waitForEnd(), 0);
    EXPECT_EQ(home.read("Documents/Plan 2.md"), "One\nkept");
    EXPECT_EQ(home.read("Documents/Plan.md"), "another one");
    EXPECT_EQ(vault.read("Plan.md"), "One\n");
}

TEST_F(SafetyTest, KeepsTheTextWhenElsewhereIsFullToo) {
    setDocuments(vault.path());
    typeOnAFullDisk();
    quitAndBeAsked();
    answer("Save Text Elsewhere…");
    ASSERT_TRUE(until([&] { return shows("Save Here"); }));
    ASSERT_TRUE(click("Save Here"));
    ASSERT_TRUE(until([&] { return shows("Vesk couldn't save the text there"); }));
    key("Return");
    ASSERT_TRUE(until([&] { return !shows("Vesk couldn't save the text there"); }));
    EXPECT_FALSE(hasEnded());
    EXPECT_EQ(textOf(text), "One\nkept");
    EXPECT_EQ(vault.list(), (std::vector<std::string>{".vesk", "Plan.md"}));
    quitAndBeAsked();
    answer("Save Text Elsewhere…");
    ASSERT_TRUE(until([&] { return shows("Save Here"); }));
    key("Escape");
    ASSERT_TRUE(until([&] { return !shows("Save Here"); }));
    EXPECT_FALSE(hasEnded()) << "nothing was chosen";
    fillDisk(false);
    key("ctrl+s");
    key("ctrl+q");
    EXPECT_EQ(waitForEnd(), 0);
    EXPECT_EQ(vault.read("Plan.md"), "One\nkept");
}

TEST_F(SafetyTest, KeepsTypedTextWhenTheVaultVanishes) {
    vault.write("Plan.md", "One\n");
    start("Plan.md");
    key("ctrl+End");
    const auto away = vault.path().string() + ".away";
    fs::rename(vault.path(), away);
    type("kept");
    EXPECT_TRUE(fileBecomes("Plan (recovered).md", "One\nkept"));
    EXPECT_TRUE(until([&] { return shows("“Plan” was moved or deleted elsewhere while you were typing"); }));
    EXPECT_EQ(textOf(text), "One\nkept");
    EXPECT_FALSE(hasEnded());
    fs::remove_all(away);
}

TEST_F(SafetyTest, WorksWithoutASessionBus) {
    vault.write("Plan.md", "One\n");
    variables = {"DBUS_SESSION_BUS_ADDRESS=unix:path=/nonexistent", "GTK_A11Y=none"};
    startBare({vault.path().string(), (vault / "Plan.md").string()});
    // Nothing reads the window aloud: what a key did is seen in the file.
    pressUntilSaved("Plan.md");
    key("ctrl+q");
    EXPECT_EQ(waitForEnd(), 0);
}

TEST_F(SafetyTest, StaysAliveBesidePicturesThatCannotBeShown) {
    // A header that promises 20,000 × 20,000 pixels and nothing behind it, and no picture at all.
    std::string huge("\x89PNG\r\n\x1a\n\0\0\0\rIHDR\0\0\x4e\x20\0\0\x4e\x20\x08\x06\0\0\0", 29);
    vault.write("Attachments/huge.png", huge + std::string(4, '\0'));
    vault.write("Attachments/broken.png", "no picture");
    vault.write("Plan.md", "![a](Attachments/huge.png)\n![b](Attachments/broken.png)\n![c](gone.png)\nOne\n");
    start("Plan.md");
    const auto before = vault.read("Plan.md");
    key("ctrl+End");
    type("two");
    EXPECT_TRUE(fileBecomes("Plan.md", before + "two")) << vault.read("Plan.md");
}

TEST_F(SafetyTest, OffersOlderVaultsWhenTheLastOneIsGone) {
    vault.write("Plan.md", "One\n");
    const auto former = home / "Former notes";
    fs::create_directories(former);
    start();
    EXPECT_EQ(startAgain({former.string()}), 0);
    ASSERT_TRUE(until([&] { return shows("Former notes"); }));
    key("ctrl+q");
    ASSERT_EQ(waitForEnd(), 0);
    fs::remove_all(former);
    startBare();
    EXPECT_TRUE(until([&] { return shows("Your vault can't be opened"); }));
    ASSERT_TRUE(press("Open " + vault.path().filename().string()));
    EXPECT_TRUE(until([&] { return shows("Plan"); }));
}

}  // namespace
}  // namespace vesk::test
