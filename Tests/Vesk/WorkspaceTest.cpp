#include <gtest/gtest.h>

#include <filesystem>

#include "Vesk/WorkspaceWorld.h"
#include "VeskCore/Brain/Filing/OrganiseSettings.h"

namespace vesk::test {
namespace {

using Names = std::vector<std::string>;

class WorkspaceTest : public WorkspaceWorld {};

TEST_F(WorkspaceTest, OpensAChosenVaultAndFindsItAgainAtTheNextLaunch) {
    vault().write("a.md", "---\nicon: star\n---\none");
    vault().write("Folder/b.md", "two");
    launch();
    workspace->restoreLastVault();
    EXPECT_EQ(workspace->launchProblem.get(), std::nullopt);
    workspace->chooseVault(Workspace::StartIn::documents);
    EXPECT_FALSE(workspace->vault.get()) << "nothing was chosen";
    chosen = vault().path();
    workspace->chooseVault(Workspace::StartIn::documents);
    EXPECT_EQ(panels.back().prompt, "Open Vault");
    EXPECT_TRUE(workspace->status.get().starts_with("Opening "));
    pass(4);
    EXPECT_EQ(listed(), (Names{"Folder/b.md", "a.md"}));
    EXPECT_EQ(workspace->status.get(), "2 notes · " + std::string(displayName(SyncProvider::none)));
    EXPECT_EQ(workspace->tree.get().allFolderPaths(), Names{"Folder"});
    EXPECT_EQ(workspace->noteIcons.get(), (std::map<std::string, std::string>{{"a.md", "star"}}));

    workspace->close();
    workspace.reset();
    launch();
    workspace->restoreLastVault();
    pass(4);
    EXPECT_EQ(listed(), (Names{"Folder/b.md", "a.md"}));
}

TEST_F(WorkspaceTest, OffersOlderVaultsWhenTheLastOneIsGone) {
    ScratchFolder older, gone;
    launch();
    workspace->openAndRemember(older.path());
    workspace->openAndRemember(gone.path());
    pass(4);
    workspace->close();
    workspace.reset();
    std::filesystem::remove_all(gone.path());
    launch();
    workspace->restoreLastVault();
    const auto problem = workspace->launchProblem.get();
    ASSERT_TRUE(problem);
    EXPECT_EQ(problem->path, gone.path().string());
    EXPECT_EQ(problem->alternatives, std::vector<FilePath>{older.path()});
}

TEST_F(WorkspaceTest, WarnsOfTheFolderOnceTheListStands) {
    ScratchFolder clean;
    vault().write("a.md", "one");
    vault().write("a 2.md", "one");
    launch();
    std::vector<std::string> order;
    const auto first = workspace->notes.subscribe([&](const auto& list) {
        if (!list.empty()) order.push_back("list");
    });
    const auto second = workspace->warnings.subscribe([&](const auto& list) {
        for (const auto& warning : list) order.push_back(warning.code);
    });
    workspace->openAndRemember(vault().path());
    pass(4);
    EXPECT_EQ(order, (Names{"list", "conflicts"}));
    workspace->openAndRemember(clean.path());
    pass(4);
    EXPECT_TRUE(workspace->warnings.get().empty()) << "those of the former folder";
}

TEST_F(WorkspaceTest, StaysWithUnsavedTextAndOpensAnotherVaultAfterwards) {
    vault().write("a.md", "one");
    openVault();
    workspace->select("a.md");
    ASSERT_TRUE(pane().edit("typed"));
    fillDisk();
    prompt.choice = LeavingChoice::stay;
    ScratchFolder other;
    bool opened = true;
    workspace->open(other.path(), [&](bool isOpen) { opened = isOpen; });
    EXPECT_FALSE(opened);
    EXPECT_EQ(workspace->selection.get(), "a.md");
    EXPECT_EQ(prompt.asked.back().leave, "Open Anyway");
    fillDisk(false);
    workspace->open(other.path(), [&](bool isOpen) { opened = isOpen; });
    EXPECT_TRUE(opened);
    pass(4);
    EXPECT_EQ(vault().read("a.md"), "typed");
    EXPECT_EQ(workspace->selection.get(), std::nullopt);
    EXPECT_EQ(listed(), Names{});
}

TEST_F(WorkspaceTest, FollowsTheSelectionThroughRenamesMovesAndTheTrash) {
    vault().write("a.md", "one");
    vault().write("Sub/taken.md", "other");
    vault().write("taken.md", "other");
    openVault();
    workspace->select("a.md");
    ASSERT_TRUE(pane().edit("typed"));
    EXPECT_EQ(workspace->renameNote("a.md", "taken"), std::nullopt);
    EXPECT_EQ(failure(), "Couldn't rename this note — one called “taken” is already in this folder.");
    EXPECT_EQ(workspace->renameNote("a.md", "z"), "z.md");
    EXPECT_EQ(workspace->selection.get(), "z.md");
    EXPECT_EQ(pane().loadedPath(), "z.md");
    EXPECT_EQ(pane().text(), "typed");

    workspace->moveNote("taken.md", "Sub");
    EXPECT_EQ(failure(), "Couldn't move taken: a note with that name is already in Sub.");
    workspace->moveNote("z.md", "Sub");
    EXPECT_EQ(workspace->selection.get(), "Sub/z.md");
    workspace->renameFolder("Sub", "Done");
    pass(2);
    EXPECT_EQ(workspace->selection.get(), "Done/z.md");
    EXPECT_EQ(pane().loadedPath(), "Done/z.md");
    ASSERT_TRUE(pane().edit("typed on"));
    workspace->trashNote("Done/z.md");
    EXPECT_EQ(workspace->selection.get(), std::nullopt);
    EXPECT_EQ(vault().read(".trash/z.md"), "typed on");
    ASSERT_EQ(workspace->trashedNotes.get().size(), 1u);
    workspace->restoreTrashed(workspace->trashedNotes.get().front());
    EXPECT_EQ(workspace->selection.get(), "Done/z.md");
    EXPECT_EQ(pane().text(), "typed on");
    workspace->trashFolder("Done");
    pass(2);
    EXPECT_EQ(workspace->selection.get(), std::nullopt);
    EXPECT_EQ(listed(), Names{"taken.md"});
}

TEST_F(WorkspaceTest, GoesBackToNotesByTheirPresentNames) {
    for (const char* path : {"a.md", "F/b.md", "c.md", "d.md", "e.md"}) vault().write(path, path);
    openVault();
    workspace->select("a.md");
    // By the name that the pane holds, and that changes with it.
    EXPECT_NE(workspace->renameNote(*pane().loadedPath(), "y"), std::nullopt);
    EXPECT_EQ(workspace->selection.get(), "y.md");
    EXPECT_EQ(workspace->canGo.get(), (std::pair{false, false}));
    EXPECT_NE(workspace->renameNote("y.md", "a"), std::nullopt);
    for (const char* path : {"F/b.md", "c.md", "d.md", "e.md"}) workspace->select(path);
    EXPECT_EQ(workspace->canGo.get(), (std::pair{true, false}));
    workspace->renameNote("a.md", "z");
    workspace->renameFolder("F", "G");
    workspace->trashNote("c.md");
    workspace->renameNote("e.md", "shown");
    std::filesystem::remove(vault() / "d.md");
    workspace->reload();
    pass(2);
    workspace->goBack();
    EXPECT_EQ(workspace->selection.get(), "G/b.md");
    workspace->goBack();
    EXPECT_EQ(workspace->selection.get(), "z.md");
    EXPECT_EQ(pane().text(), "a.md");
    EXPECT_EQ(workspace->canGo.get(), (std::pair{false, true}));
    workspace->goForward();
    workspace->goForward();
    EXPECT_EQ(workspace->selection.get(), "shown.md");
    std::filesystem::remove_all(vault() / "G");
    std::filesystem::remove(vault() / "z.md");
    workspace->reload();
    workspace->goBack();
    EXPECT_EQ(workspace->selection.get(), "shown.md");
    EXPECT_EQ(workspace->canGo.get(), (std::pair{false, false}));
    workspace->trashNote("shown.md");
    EXPECT_EQ(workspace->canGo.get(), (std::pair{false, false}));
}

TEST_F(WorkspaceTest, RemembersTheInspector) {
    using Tab = Workspace::InspectorTab;
    launch();
    EXPECT_FALSE(workspace->showInspector.get());
    EXPECT_EQ(workspace->inspectorTab.get(), Tab::links);
    workspace->showInspector.set(true);
    workspace->inspectorTab.set(Tab::ai);
    launch();
    EXPECT_TRUE(workspace->showInspector.get());
    EXPECT_EQ(workspace->inspectorTab.get(), Tab::ai);
}

TEST_F(WorkspaceTest, ShowsWhatOtherDevicesDo) {
    vault().write("a.md", "one");
    openVault();
    workspace->select("a.md");
    foreign("b.md", "two");
    foreignMove("a.md", "Sub/moved.md");
    pass(2);
    EXPECT_EQ(listed(), (Names{"Sub/moved.md", "b.md"}));
    EXPECT_EQ(workspace->selection.get(), "Sub/moved.md");
    EXPECT_EQ(pane().loadedPath(), "Sub/moved.md");
}

TEST_F(WorkspaceTest, SelectsTheCopyThatUnsavedTextBecameForANoteWithItsName) {
    vault().write("a.md", "one");
    vault().write("b.md", "two");
    openVault();
    workspace->select("b.md");
    ASSERT_TRUE(pane().edit("typed"));
    fillDisk();
    pane().flush();
    std::filesystem::remove(vault() / "b.md");
    ASSERT_EQ(workspace->renameNote("a.md", "b"), "b.md");
    EXPECT_EQ(pane().loadedPath(), "b (recovered).md");
    EXPECT_EQ(workspace->selection.get(), "b (recovered).md");
    fillDisk(false);
    ASSERT_TRUE(pane().edit("typed on"));
    pass(2);
    EXPECT_EQ(vault().read("b (recovered).md"), "typed on");
    EXPECT_EQ(vault().read("b.md"), "one");
}

TEST_F(WorkspaceTest, RestampsWrittenNotesOnceAfterABurst) {
    vault().write("a.md", "one");
    vault().write("b.md", "two");
    openVault();
    std::filesystem::last_write_time(vault() / "a.md", std::filesystem::file_time_type::min());
    workspace->reload();
    ASSERT_EQ(workspace->notes.get().front().relativePath, "b.md");
    int listings = 0;
    const auto counting = workspace->notes.subscribe([&](const auto&) { ++listings; });
    workspace->select("a.md");
    for (int i = 0; i < 5; ++i) {
        ASSERT_TRUE(pane().edit("typed " + std::to_string(i)));
        pane().flush();
        pass(0.2);
    }
    EXPECT_EQ(listings, 0);
    pass(3);
    EXPECT_EQ(listings, 1);
    EXPECT_EQ(workspace->notes.get().front().relativePath, "a.md");
}

TEST_F(WorkspaceTest, SchedulesRemindersAndActsOnWhatIsPressed) {
    vault().write("once.md", "---\nremind: 2031-01-02 09:00\n---\nPay the rent\n");
    vault().write("each.md", "---\nremind: 2031-01-02 09:00\nrepeat: daily\n---\nStretch\n");
    openVault();
    ASSERT_TRUE(notifications.pending.contains("remind:once.md"));
    const auto request = notifications.pending.at("remind:once.md");
    EXPECT_EQ(request.title, "once");
    EXPECT_EQ(request.body, "Pay the rent");
    EXPECT_EQ(request.categoryIdentifier, "vesk.reminder");
    EXPECT_FALSE(workspace->home.get().comingUp.empty());

    notifications.onResponse(
        {.requestIdentifier = "remind:once.md", .action = "vesk.done", .userInfo = request.userInfo});
    notifications.onResponse(
        {.requestIdentifier = "remind:each.md", .action = "vesk.snooze", .userInfo = {{"path", "each.md"}}});
    pass(4);
    EXPECT_EQ(vault().read("once.md"), "Pay the rent\n");
    EXPECT_FALSE(notifications.pending.contains("remind:once.md"));
    EXPECT_TRUE(notifications.pending.contains("snooze:each.md"));
    EXPECT_EQ(vault().read("each.md"), "---\nremind: 2031-01-02 09:00\nrepeat: daily\n---\nStretch\n");
    notifications.onResponse(
        {.requestIdentifier = "remind:each.md", .action = {}, .userInfo = {{"path", "each.md"}}});
    pass(1);
    EXPECT_EQ(workspace->selection.get(), "each.md");
    workspace->removeReminder("each.md");
    pass(1);
    EXPECT_EQ(vault().read("each.md"), "Stretch\n");
    EXPECT_FALSE(notifications.pending.contains("snooze:each.md"));
    workspace->removeReminder("gone.md");
    EXPECT_EQ(failure(), "Couldn't change the reminder: “gone.md” is no longer there.");
}

TEST_F(WorkspaceTest, LetsOnlyWhatIsStillWantedRingLate) {
    vault().write("late.md", "---\nremind: 2020-01-02 09:00\n---\nPay the rent\n");
    vault().write("letgo.md", "No more\n");
    notifications.overdue = {"remind:late.md", "remind:letgo.md", "snooze:letgo.md", "another's"};
    openVault();
    EXPECT_EQ(notifications.overdue, (Names{"remind:late.md", "another's"}));
    workspace->removeReminder("late.md");
    pass(4);
    EXPECT_EQ(notifications.overdue, Names{"another's"});
}

TEST_F(WorkspaceTest, FollowsTheDeviceToAnotherZone) {
    vault().write("each.md", "---\nremind: 2031-01-02 09:00\nrepeat: daily\n---\nStretch\n");
    openVault();
    const auto snoozedHour = [&] {
        workspace->applyReminderAction("each.md", ReminderAction::Kind::snooze, time.now());
        pass(1);
        return notifications.pending.at("snooze:each.md").trigger.hour;
    };
    const auto here = snoozedHour();
    calendar.timeZone = "Asia/Tokyo";
    EXPECT_EQ(snoozedHour(), (*here + 9) % 24);
}

TEST_F(WorkspaceTest, CarriesAnAnswerOutInTheVaultThatItCameFrom) {
    vault().write("a.md", "---\nremind: 2031-01-02 09:00\n---\nOpen vault\n");
    openVault();
    ScratchFolder other;
    other.write("a.md", "---\nremind: 2031-01-02 09:00\nrepeat: daily\n---\nOther vault\n");
    other.write("b.md", "---\nremind: 2031-01-02 09:00\n---\nOther vault\n");
    const auto press = [&](const char* path, const char* action, std::optional<TimePoint> tappedAt) {
        notifications.onResponse({.requestIdentifier = std::string("remind:") + path,
                                  .action = action,
                                  .userInfo = {{"path", path}, {"vault", other.path().string()}},
                                  .tappedAt = tappedAt});
        pass(1);
    };
    press("a.md", "vesk.done", {});
    EXPECT_EQ(other.read("a.md"), "---\nremind: 2031-01-03T09:00\nrepeat: daily\n---\nOther vault\n");
    EXPECT_EQ(vault().read("a.md"), "---\nremind: 2031-01-02 09:00\n---\nOpen vault\n");
    press("a.md", "vesk.snooze", {});
    ASSERT_TRUE(notifications.pending.contains("snooze:a.md"));
    EXPECT_EQ(notifications.pending.at("snooze:a.md").userInfo.at("vault"), other.path().string());
    press("a.md", "vesk.done", {});
    EXPECT_FALSE(notifications.pending.contains("snooze:a.md"));

    // A snooze counts from the tap, and rings though nothing has indexed the note.
    press("b.md", "vesk.snooze", time.now() - std::chrono::minutes(10));
    const auto date = NoteReminder::reminder(other.read("b.md"), Calendar{});
    ASSERT_TRUE(date);
    EXPECT_LE(*date, time.now() + std::chrono::minutes(50));
    ASSERT_TRUE(notifications.pending.contains("remind:b.md"));
    EXPECT_EQ(notifications.pending.at("remind:b.md").body, "Other vault");
    press("b.md", "vesk.done", {});
    EXPECT_EQ(other.read("b.md"), "Other vault\n");
    press("gone.md", "vesk.done", {});
    EXPECT_FALSE(workspace->folderError.get());
}

TEST_F(WorkspaceTest, OwesAnActionOnANoteThatIsStillComing) {
    vault().write("a.md", "---\nremind: 2031-01-02 09:00\n---\nPay\n");
    openVault();
    makeStale("a.md");
    workspace->applyReminderAction("a.md", ReminderAction::Kind::done, time.now());
    const std::string owed =
        "A newer version of “a” is still downloading from iCloud. The reminder will be marked done once it "
        "arrives.";
    EXPECT_EQ(failure(), owed);
    workspace->folderError.set(std::nullopt);
    workspace->applyReminderAction("a.md", ReminderAction::Kind::done, time.now());
    EXPECT_EQ(failure(), "") << "said once";
    makeCurrent("a.md");
    pass(5);
    EXPECT_EQ(vault().read("a.md"), "Pay\n");
}

TEST_F(WorkspaceTest, KeepsColoursIconsAndDocumentsWithTheVault) {
    vault().write("Folder/a.md", "one");
    vault().write("Pages/site.html", "<p>x");
    vault().write("Pages/site_files/frame.html", "<p>y");
    openVault();
    workspace->setFolderColor("Folder", FolderColor::teal);
    EXPECT_EQ(vault().read(".vesk/style.json"), R"({"folderColors":{"Folder":"teal"}})");
    workspace->setNoteIcon("Folder/a.md", "airplane");
    pass(1);
    EXPECT_EQ(vault().read("Folder/a.md"), "---\nicon: airplane\n---\none");
    EXPECT_EQ(workspace->noteIcons.get().at("Folder/a.md"), "airplane");
    EXPECT_TRUE(workspace->openDocument("Pages/site.html"));
    EXPECT_EQ(workspace->selection.get(), "Pages/site.html");
    EXPECT_FALSE(workspace->openDocument("Pages/site_files/frame.html"));
    EXPECT_FALSE(workspace->openDocument("../outside.html"));
    EXPECT_EQ(workspace->selection.get(), "Pages/site.html");
    EXPECT_EQ(workspace->document(" site.html ", "Pages/x.md"), "Pages/site.html");
    EXPECT_EQ(workspace->document("site.html", "x.md"), std::nullopt);
}

TEST_F(WorkspaceTest, ShowsNotesThatWaitToBeFiledUntilTheyAre) {
    vault().write("Work/a.md", "a");
    vault().write("Home/b.md", "b");
    vault().write("loose.md", "c");
    vault().write("due.md", "---\nremind: 2031-01-02 09:00\n---\nd");
    openVault();
    const auto waiting = [&] {
        Names paths;
        for (const auto& note : workspace->home.get().unfiled.candidates) paths.push_back(note.relativePath);
        return paths;
    };
    EXPECT_EQ(waiting(), Names{"loose.md"}) << "what is coming up isn't repeated";
    workspace->moveNote("loose.md", "Work");
    pass(4);
    EXPECT_EQ(waiting(), Names{});
    OrganiseSettings{.inbox = {"Work"}}.save(*workspace->vault.get());
    vault().write("Third/c.md", "e");
    workspace->reload();
    pass(4);
    auto paths = waiting();
    std::sort(paths.begin(), paths.end());
    EXPECT_EQ(paths, (Names{"Work/a.md", "Work/loose.md"}));

    ScratchFolder other;
    workspace->open(other.path());
    EXPECT_EQ(workspace->home.get(), HomeSections()) << "nothing of the other vault";
    pass(4);
    EXPECT_EQ(workspace->home.get(), HomeSections());
}

TEST(HomeSections, ShowEachNoteOnce) {
    std::vector<NoteReminder::Reminder> reminders;
    for (const char* path : {"a.md", "a.md", "b.md", "c.md", "d.md"}) reminders.push_back({.path = path});
    std::vector<Note> notes;
    for (const char* path : {"a.md", "d.md", "e.md", "X/f.md", "g.md", "h.md", "i.md", "j.md"})
        notes.push_back({.relativePath = path});
    const HomeSections home(reminders, notes, {{notes[1], notes[2]}});
    EXPECT_EQ(home.comingUp.size(), 3u);
    ASSERT_EQ(home.unfiled.candidates.size(), 2u);
    ASSERT_EQ(home.recent.size(), 5u);
    EXPECT_EQ(home.recent.front().relativePath, "X/f.md");
    EXPECT_EQ(home.section("d.md"), HomeSections::Section::unfiled);
    EXPECT_EQ(home.sectionHighlighting("X/f.md", {}), HomeSections::Section::recent);
    EXPECT_EQ(home.sectionHighlighting("X/f.md", {"X"}), std::nullopt);
    EXPECT_EQ(home.sectionHighlighting("a.md", {"X"}), HomeSections::Section::comingUp);
    EXPECT_EQ(home.section("z.md"), std::nullopt);
}

}  // namespace
}  // namespace vesk::test
