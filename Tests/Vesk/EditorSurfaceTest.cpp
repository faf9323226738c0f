#include <gtest/gtest.h>

#include "Vesk/SessionWorld.h"
#include "VeskCore/Vault/VaultTrash.h"

namespace vesk::test {
namespace {

using Names = std::vector<std::string>;
using Notice = EditorSurface::SaveNotice;
using Banner = EditorSurface::Banner;
using State = EditorSurface::LoadState;

class EditorSurfaceTest : public ::testing::Test, public SessionWorld {
protected:
    void opened(std::string_view path = "a.md", std::string_view text = "base") {
        vault().write(path, text);
        open();
        surface->load(std::string(path));
    }
    bool isLoaded() const { return surface->state.get() == State{State::Plain::loaded}; }
};

TEST_F(EditorSurfaceTest, SavesOnceWhenTypingHasStopped) {
    opened();
    int saves = 0;
    auto counting = surface->saved.subscribe(
        [&](const std::string&, const std::string&, const ForeignEdit::Outcome&) { ++saves; });
    for (int i = 0; i < 10; ++i) {
        type("base" + std::to_string(i));
        pass(0.5);
    }
    EXPECT_EQ(vault().read("a.md"), "base");
    pass(0.29);
    EXPECT_EQ(saves, 0);
    pass(0.02);
    EXPECT_EQ(vault().read("a.md"), "base9");
    pass(10);
    EXPECT_EQ(saves, 1);
    EXPECT_EQ(surface->text(), "base9");
}

TEST_F(EditorSurfaceTest, SavesTheNoteItLeavesBeforeTheNextIsLoaded) {
    vault().write("b.md", "other");
    opened();
    type("typed");
    pass(0.1);
    surface->load("b.md");
    EXPECT_EQ(vault().read("a.md"), "typed");
    EXPECT_EQ(surface->text(), "other");
    pass(5);
    EXPECT_EQ(vault().read("b.md"), "other");
}

TEST_F(EditorSurfaceTest, TakesAForeignTextInPlaceOfAnUntouchedOneAndKeepsTheSelection) {
    opened("a.md", "one two three");
    surface->selection = {8, 5};
    const int generation = surface->loadGeneration;
    foreign("a.md", "one and two three");
    pass(1);
    EXPECT_EQ(surface->text(), "one and two three");
    EXPECT_EQ(surface->selection, (TextRange{12, 5}));
    EXPECT_EQ(surface->loadGeneration, generation + 1);
    type("one and two three!");
    pass(1);
    EXPECT_EQ(vault().list(), (Names{".vesk", "a.md"}));  // no copy: it was saved against what it shows
}

TEST_F(EditorSurfaceTest, KeepsBothWhenAForeignTextComesWhileItIsTypedIn) {
    opened();
    type("typed");
    foreign("a.md", "foreign");
    pass(0.5);
    EXPECT_EQ(surface->text(), "typed");
    EXPECT_EQ(vault().read("a.md"), "typed");
    EXPECT_EQ(vault().read("a (conflict from another device).md"), "foreign");
    const auto kept = Notice{"a.md", Notice::KeptBoth{"a (conflict from another device).md"}};
    EXPECT_EQ(notice(), kept);
    type("typed on");
    pass(1);
    EXPECT_EQ(notice(), kept);  // a success doesn't take it away
}

TEST_F(EditorSurfaceTest, ShowsTheMergeOfAForeignReminder) {
    opened();
    type("typed");
    vault().write("a.md", "---\nremind: 2030-01-02 10:00\n---\nbase");
    pass(1);
    EXPECT_EQ(surface->text(), "---\nremind: 2030-01-02 10:00\n---\ntyped");
    EXPECT_EQ(vault().read("a.md"), surface->text());
    EXPECT_EQ(notice(), std::nullopt);
}

TEST_F(EditorSurfaceTest, HoldsWhatAFullDiskRefusesAndTriesAgain) {
    vault().write("b.md", "other");
    opened();
    fillDisk();
    type("typed");
    pass(1);
    EXPECT_EQ(vault().read("a.md"), "base");
    EXPECT_EQ(surface->text(), "typed");
    ASSERT_TRUE(notice());
    const auto banner = EditorSurface::banner(*notice(), true);
    EXPECT_EQ(banner.heading, "Couldn't save “a”");
    EXPECT_EQ(banner.text,
              "No space left on device. Your text is still here. Vesk tries again the next time you type, or "
              "now with Try Again.");
    ASSERT_EQ(heldFiles(), 1U);
    EXPECT_EQ(session->heldText().leftovers(true)[0].entry.text, "typed");
    EXPECT_EQ(session->heldText().leftovers(true)[0].entry.baseline, "base");

    surface->load("b.md");
    time.settle();
    EXPECT_EQ(EditorSurface::banner(*notice(), false).actions, Names{"Open Note"});
    surface->load("a.md");
    EXPECT_EQ(surface->text(), "typed");
    time.settle();
    fillDisk(false);
    surface->retrySave();
    time.settle();
    EXPECT_EQ(vault().read("a.md"), "typed");
    EXPECT_EQ(notice(), std::nullopt);
    EXPECT_EQ(heldFiles(), 0U);
}

TEST_F(EditorSurfaceTest, ComesBackWithHeldTextAfterACrash) {
    opened();
    fillDisk();
    type("typed");
    pass(1);
    crash();
    fillDisk(false);
    vault().write("a.md", "foreign meanwhile");
    open();
    EXPECT_EQ(vault().read("a.md"), "foreign meanwhile");
    EXPECT_EQ(vault().read("a (recovered).md"), "typed");
}

TEST_F(EditorSurfaceTest, LetsGoOfHeldTextUnderTheNameItsNoteGotMeanwhile) {
    opened();
    fillDisk();
    type("typed");
    pass(1);
    fillDisk(false);
    std::filesystem::rename(vault() / "a.md", vault() / "b.md");
    session->noteMoved("a.md", "b.md");
    surface->follow("a.md", "b.md");
    type("typed on");
    pass(1);
    EXPECT_EQ(vault().read("b.md"), "typed on");
    EXPECT_EQ(heldFiles(), 0U);
    EXPECT_EQ(vault().list(), (Names{".vesk", "b.md"}));
    EXPECT_EQ(surface->title, "b");
}

TEST_F(EditorSurfaceTest, FollowsANoteMovedWhileItIsTypedIn) {
    opened("a.md", "base");
    foreignMove("a.md", "n/b.md");
    pass(0.35);
    type("typed");
    pass(1);
    EXPECT_EQ(vault().read("n/b.md"), "typed");
    EXPECT_FALSE(vault().exists("a.md"));
    EXPECT_EQ(surface->loadedPath(), "n/b.md");
    EXPECT_EQ(notice(), (Notice{"a.md", Notice::Followed{"n/b.md"}}));
    type("typed on");
    pass(1);
    EXPECT_EQ(vault().read("n/b.md"), "typed on");
    EXPECT_EQ(vault().list("n"), Names{"b.md"});
}

TEST_F(EditorSurfaceTest, KeepsTextOfANoteThatLeftAsACopyAndGoesOnThere) {
    opened();
    std::filesystem::remove(vault() / "a.md");
    type("typed");
    pass(1);
    EXPECT_EQ(surface->loadedPath(), "a (recovered).md");
    EXPECT_EQ(notice(), (Notice{"a.md", Notice::Recovered{"a (recovered).md"}}));
    type("typed on");
    pass(1);
    EXPECT_EQ(vault().list(), (Names{".vesk", "a (recovered).md"}));
    EXPECT_EQ(vault().read("a (recovered).md"), "typed on");
}

TEST_F(EditorSurfaceTest, PutsTypingInATrashedNoteBesideItInTheTrash) {
    opened();
    fillDisk();
    type("typed");
    pass(1);
    fillDisk(false);
    VaultTrash trash(session->vault());
    trash.trashNote("a.md");
    session->notesTrashed({"a.md"});
    surface->close();
    EXPECT_FALSE(vault().exists("a.md"));
    Names texts;
    for (const auto& note : trash.trashedNotes().first)
        texts.push_back(vault().read(".trash/" + note.trashPath));
    std::sort(texts.begin(), texts.end());
    EXPECT_EQ(texts, (Names{"base", "typed"}));
    EXPECT_EQ(heldFiles(), 0U);
}

TEST_F(EditorSurfaceTest, ShowsAnOlderCopyUntilTheNewerComesAndHoldsWhatIsTyped) {
    vault().write("a.md", "old");
    open();
    makeStale("a.md");
    surface->load("a.md");
    EXPECT_EQ(surface->state.get(), State{State::Plain::downloading});
    EXPECT_FALSE(surface->edit("too early"));
    pass(4);
    ASSERT_TRUE(isLoaded());
    EXPECT_EQ(surface->text(), "old");
    EXPECT_EQ(surface->olderCopyPath.get(), "a.md");

    vault().write("a.md", "new");
    makeCurrent("a.md");
    pass(2);
    EXPECT_EQ(surface->text(), "new");
    EXPECT_EQ(surface->olderCopyPath.get(), std::nullopt);
}

TEST_F(EditorSurfaceTest, SaysWhyANoteCannotBeOpened) {
    open();
    surface->load("n/lost.md");
    time.settle();
    EXPECT_EQ(surface->state.get(), (State{State::Failed{"lost no longer exists on disk."}}));
    vault().write("n/lost.md", "back");
    surface->followDisk(true);
    EXPECT_EQ(surface->text(), "back");
}

TEST_F(EditorSurfaceTest, KeepsLineEndsAsTheFileGivesThemBack) {
    opened();
    type("a\r\nb");
    pass(1);
    EXPECT_EQ(surface->text(), "a\nb");
    type("a\nbc");
    pass(1);
    EXPECT_EQ(vault().list(), (Names{".vesk", "a.md"}));
}

TEST(SaveNoticeBanner, SaysWhatHappenedToTheText) {
    struct Row {
        Notice::Kind kind;
        bool shown;
        Banner expected;
    };
    const Row rows[] = {
        {Notice::KeptBoth{"n/x (conflict from another device).md"},
         true,
         {"“x” also changed on another device",
          "Nothing was lost. Your text is in the note, and the other version is beside it as x (conflict "
          "from "
          "another device)",
          {"Show Other Version", "Dismiss"}}},
        {Notice::Failed{"It broke."},
         false,
         {"Couldn't save “x”",
          "It broke. Your text is still here. Vesk tries again the next time you type, or now with Try "
          "Again.",
          {"Open Note"}}},
        {Notice::Waiting{"Not yet."},
         true,
         {"Waiting for iCloud before saving “x”",
          "Not yet. Your text is safe here, and is saved against the newer version when it arrives.",
          {"Try Again"}}},
        {Notice::Waiting{"Not yet."},
         false,
         {"Waiting for iCloud before saving “x”",
          "Not yet. Your text is kept in Vesk, and goes back into the note when you open it.",
          {"Open Note"}}},
        {Notice::Followed{"m/y.md"},
         true,
         {"“x” was moved or renamed while you were typing",
          "Nothing was lost. Your text went with it, to “m/y.md”",
          {"Show Note", "Dismiss"}}},
        {Notice::Recovered{"n/x (recovered).md"},
         true,
         {"“x” was moved or deleted elsewhere while you were typing",
          "Nothing was lost. It isn't brought back where it was; your text is kept as “x (recovered)”",
          {"Show Note", "Dismiss"}}},
    };
    for (const auto& row : rows) {
        const auto banner = EditorSurface::banner({"n/x.md", row.kind}, row.shown);
        EXPECT_EQ(banner.heading, row.expected.heading);
        EXPECT_EQ(banner.text, row.expected.text);
        EXPECT_EQ(banner.actions, row.expected.actions);
    }
}

// Leaving

TEST(LeavingAlert, NamesTheNotesAndWhatIsAtStake) {
    EXPECT_EQ(
        EditorBridge::leavingAlert(LeavingContext::quitting, {"plan"}),
        (LeavingAlert{"Vesk couldn't save your changes to “plan”",
                      "The text is still in Vesk, but writing it to the file failed again just now. If "
                      "you quit now, those changes are lost. Save Text Elsewhere puts it in a folder you "
                      "choose first. Or stay, and try again once the problem is fixed.",
                      "Stay", "Save Text Elsewhere…", "Quit Anyway"}));
    EXPECT_EQ(
        EditorBridge::leavingAlert(LeavingContext::openingAnotherVault, {"b", "a"}),
        (LeavingAlert{"Vesk couldn't save your changes to 2 notes",
                      "“a”, “b”. The text is still in Vesk, but writing it to the file failed again just "
                      "now. If you open another vault now, those changes are lost. Save Text Elsewhere "
                      "puts it in a folder you choose first. Or stay, and try again once the problem is "
                      "fixed.",
                      "Stay", "Save Text Elsewhere…", "Open Anyway"}));
}

class LeavingTest : public EditorSurfaceTest {
protected:
    bool leaves() {
        std::optional<bool> safe;
        bridge->flushAllPendingSaves();
        bridge->confirmLeavingUnsavedText(LeavingContext::quitting, [&](bool answer) { safe = answer; });
        return safe.value();
    }
};

TEST_F(LeavingTest, AsksOnlyAboutTextThatStillCannotBeSaved) {
    opened();
    type("typed");
    EXPECT_TRUE(leaves());
    EXPECT_EQ(vault().read("a.md"), "typed");
    fillDisk();
    type("typed on");
    EXPECT_FALSE(leaves());  // stays
    EXPECT_EQ(heldFiles(), 1U);
    fillDisk(false);
    EXPECT_TRUE(leaves());
    EXPECT_EQ(vault().read("a.md"), "typed on");
    EXPECT_EQ(prompt.asked.size(), 1U);
}

TEST_F(LeavingTest, LetsGoOfTextTheyChoseToLose) {
    opened();
    fillDisk();
    type("typed");
    prompt.choice = LeavingChoice::leave;
    EXPECT_TRUE(leaves());
    EXPECT_EQ(heldFiles(), 0U);
    EXPECT_TRUE(bridge->everythingHeld().empty());
}

TEST_F(LeavingTest, SavesElsewhereUnderFreeNames) {
    opened();
    fillDisk();
    type("typed");
    prompt.choice = LeavingChoice::saveElsewhere;
    EXPECT_FALSE(leaves());  // no folder chosen

    ScratchFolder elsewhere;
    elsewhere.write("a.md", "theirs");
    prompt.folder = elsewhere.path();
    const auto vaultIsFull = platform.files.fault;
    platform.files.fault = [](std::string_view operation, const FilePath&) -> std::optional<int> {
        return operation == "writeNew" ? std::optional(EACCES) : std::nullopt;
    };
    EXPECT_FALSE(leaves());
    ASSERT_EQ(prompt.told.size(), 1U);
    EXPECT_TRUE(prompt.told[0].starts_with("Vesk couldn't save the text there|"));
    EXPECT_TRUE(prompt.told[0].ends_with(" Nothing has been let go; the text is still in Vesk."));

    platform.files.fault = vaultIsFull;
    EXPECT_TRUE(leaves());
    EXPECT_EQ(elsewhere.read("a.md"), "theirs");
    EXPECT_EQ(elsewhere.read("a 2.md"), "typed");
    EXPECT_EQ(prompt.revealed, std::vector<FilePath>{elsewhere / "a 2.md"});
    EXPECT_EQ(heldFiles(), 0U);
}

}  // namespace
}  // namespace vesk::test
