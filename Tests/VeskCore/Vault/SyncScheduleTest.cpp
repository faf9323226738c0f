// When a pass runs, what it asks and what it redoes.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include "VeskCore/Vault/AskPlan.h"
#include "VeskCore/Vault/EditorRefresh.h"
#include "VeskCore/Vault/MetadataUpdate.h"
#include "VeskCore/Vault/SyncSchedule.h"
#include "VeskCore/Vault/VaultWalk.h"

namespace vesk::test {
namespace {

using Names = std::vector<std::string>;

TimePoint at(double seconds) {
    return timeFromSecondsSince1970(1'000'000 + seconds);
}

TEST(SyncRequest, OfTwoTheStrongerNamesThePass) {
    const auto request = [](SyncTrigger trigger, bool touches, std::set<std::string> notes, double arrival) {
        return SyncRequest{trigger, touches, std::move(notes), at(arrival)};
    };
    const SyncRequest presenter = request(SyncTrigger::presenter, true, {"a.md"}, 5);
    const SyncRequest metadata = request(SyncTrigger::metadata, false, {"b.md"}, 3);
    EXPECT_EQ(presenter.merged(metadata), request(SyncTrigger::metadata, true, {"a.md", "b.md"}, 5));
    EXPECT_EQ(metadata.merged(presenter), request(SyncTrigger::presenter, true, {"a.md", "b.md"}, 5));
    const SyncRequest poll = request(SyncTrigger::poll, false, {}, 0),
                      pull = request(SyncTrigger::pull, false, {}, 0);
    EXPECT_EQ(poll.merged(pull).trigger, SyncTrigger::pull);
    EXPECT_EQ(pull.merged(poll).trigger, SyncTrigger::pull);
    EXPECT_EQ(request(SyncTrigger::foreground, false, {}, 0).merged(pull).trigger, SyncTrigger::pull);
}

TEST(SyncSchedule, DecidesByTheFirstRuleThatHolds) {
    using Decision = SyncSchedule::Decision;
    using State = SyncSchedule::State;
    const Decision asks{Decision::Run{true}}, quiet{Decision::Run{false}};
    const Decision skip{Decision::Plain::skip}, coalesce{Decision::Plain::coalesce};
    const auto wait = [](double seconds) { return Decision{Decision::Wait{Seconds(seconds)}}; };
    const double now = 100;
    const struct {
        const char* name;
        SyncTrigger trigger;
        bool touchesOpenNote;
        double lastArrival;
        State state;
        Decision expected;
    } rows[] = {
        {"poll while a pass runs, in the back", SyncTrigger::poll, false, 0, {.passRunning = true}, coalesce},
        {"poll in the back", SyncTrigger::poll, false, 0, {}, skip},
        {"pull in the back", SyncTrigger::pull, false, 0, {}, asks},
        {"adopt in the back", SyncTrigger::adopt, false, 0, {}, asks},
        {"first foreground", SyncTrigger::foreground, false, 0, {.inFront = true}, asks},
        {"asked this foreground",
         SyncTrigger::foreground,
         false,
         0,
         {.inFront = true, .lastForegroundPass = at(now - 3600), .askedThisForeground = true},
         quiet},
        {"soon after a foreground pass",
         SyncTrigger::foreground,
         false,
         0,
         {.inFront = true, .lastForegroundPass = at(now - 29)},
         quiet},
        {"after the gap",
         SyncTrigger::foreground,
         false,
         0,
         {.inFront = true, .lastForegroundPass = at(now - 30)},
         asks},
        {"poll right after a pass",
         SyncTrigger::poll,
         false,
         0,
         {.inFront = true, .lastPassEnded = at(now - 4)},
         skip},
        {"poll after the gap",
         SyncTrigger::poll,
         false,
         0,
         {.inFront = true, .lastPassEnded = at(now - 5)},
         asks},
        {"a push of the open note",
         SyncTrigger::metadata,
         true,
         now,
         {.inFront = true, .lastPushPass = at(now - 1)},
         asks},
        {"a push waits for its burst",
         SyncTrigger::presenter,
         false,
         now - 0.5,
         {.inFront = true, .lastPushPass = at(now - 9)},
         wait(1.5)},
        {"a push keeps its distance",
         SyncTrigger::presenter,
         false,
         now - 5,
         {.inFront = true, .lastPushPass = at(now - 4)},
         wait(6)},
        {"a push whose time has come", SyncTrigger::presenter, false, now - 2, {.inFront = true}, asks},
    };
    for (const auto& row : rows) {
        const SyncRequest request{row.trigger, row.touchesOpenNote, {}, at(row.lastArrival)};
        EXPECT_EQ(SyncSchedule::decide(request, row.state, at(now)), row.expected) << row.name;
    }
    EXPECT_TRUE(SyncSchedule::leavingCancels(AskClass::user, true));
    EXPECT_TRUE(SyncSchedule::leavingCancels(AskClass::automatic, false));
    EXPECT_FALSE(SyncSchedule::leavingCancels(AskClass::user, false));
}

TEST(AskPlan, AsksWidelyOnlyNowAndThen) {
    const AskScope all{AskScope::All{7}}, root{AskScope::RootOnly{}};
    for (int tick = 0; tick <= 8; ++tick) {
        const bool isWide = tick < 2 || tick % 4 == 0;
        EXPECT_EQ(AskPlan::forTrigger(SyncTrigger::poll, tick, 7, {}),
                  (AskPlan{isWide ? all : root, Seconds(4), Seconds(6)}))
            << tick;
    }
    EXPECT_EQ(AskPlan::forTrigger(SyncTrigger::adopt, 3, 7, {}), (AskPlan{all, Seconds(4), Seconds(8)}));
    EXPECT_EQ(AskPlan::forTrigger(SyncTrigger::pull, 3, 7, {}), (AskPlan{all, Seconds(4), Seconds(15)}));
    EXPECT_EQ(AskPlan::forTrigger(SyncTrigger::metadata, 0, 7, {"a.md"}),
              (AskPlan{{AskScope::Containing{{"a.md"}}}, Seconds(4), Seconds(6)}));
}

TEST(AskPlan, ChoosesFolders) {
    const Names folders = {"b", "a/Attachments", "Attachments", "Attachments/x",  "a",
                           "",  ".trash",        "a/.git/x",    "node_modules/y", "a"};
    EXPECT_EQ(foldersToAsk(folders, {AskScope::RootOnly{}}), Names{""});
    EXPECT_EQ(foldersToAsk(folders, {AskScope::All{5}}), (Names{"", "a", "a/Attachments", "b"}));
    EXPECT_EQ(foldersToAsk(
                  {}, {AskScope::Containing{{"b/1.md", "top.md", "a/2.md", "b/3.md", "Attachments/4.md"}}}),
              (Names{"", "a", "b"}));
    EXPECT_EQ(foldersToAsk({}, {AskScope::Containing{{"b/1.md", "a/2.md", "c/3.md"}}}, 3),
              (Names{"", "a", "b"}));

    Names hundred;
    for (int i = 0; i < 100; ++i) hundred.push_back(fmt::format("f{:02}", i));
    const Names asked = foldersToAsk(hundred, {AskScope::All{90}});
    ASSERT_EQ(asked.size(), 64u);
    EXPECT_EQ(asked[1], "f90");
    EXPECT_EQ(asked[10], "f99");
    EXPECT_EQ(asked[11], "f00");
    EXPECT_EQ(asked[63], "f52");
    EXPECT_EQ(foldersToAsk(hundred, {AskScope::All{190}}), asked);
    EXPECT_EQ(foldersToAsk(hundred, {AskScope::All{-10}}), asked);
}

TEST(ListingChanges, LeaveOutTheApplicationsOwnActs) {
    const NoteStamp old{at(0), 10, false}, saved{at(5), 20, false}, larger{at(6), 30, false};
    VaultListing before, after;
    before.stamps = {{"kept.md", old}, {"own.md", old}, {"gone.md", old}, {"foreign.md", old}};
    before.documentStamps = {{"p.html", old}};
    before.folders = {"a", "b"};
    after = before;
    after.takenAt = at(4);
    after.folders = {"b", "a"};
    EXPECT_EQ(VaultWalk::listingChanges(nullptr, after, {}), std::nullopt);
    EXPECT_EQ(VaultWalk::listingChanges(&before, after, {}), ListingChanges{});

    after.stamps["own.md"] = saved;
    after.stamps.erase("gone.md");
    after.stamps["foreign.md"] = larger;
    after.documentStamps["p.html"] = saved;
    after.folders = {"a"};
    const OwnWrites ownWrites = {{"own.md", {saved, at(3)}},
                                 {"gone.md", {std::nullopt, at(3)}},
                                 {"foreign.md", {saved, at(3)}},
                                 {"p.html", {saved, at(3)}}};
    EXPECT_EQ(VaultWalk::listingChanges(&before, after, ownWrites),
              (ListingChanges{.notes = {"foreign.md"}, .documents = {"p.html"}, .foldersChanged = true}));
    // An act after the walk began isn't in it yet, and counts as if it were.
    after.stamps["own.md"] = old;
    EXPECT_EQ(VaultWalk::listingChanges(&before, after, {{"own.md", {saved, at(4)}}})->notes,
              (std::set<std::string>{"foreign.md", "gone.md"}));

    NoteStamps owed = before.stamps;
    owed["kept.md"].needsDownload = true;
    EXPECT_EQ(VaultWalk::changedPaths(before.stamps, owed), std::set<std::string>{"kept.md"});
    EXPECT_EQ(VaultWalk::countedNotes({"a.md", "b.md"}, {"b.md", "c.md"}), 1u);
}

TEST(SyncPlan, RedoesWhatChanged) {
    const ListingChanges none, notes{.notes = {"a.md"}}, pages{.documents = {"p.html"}},
        folders{.foldersChanged = true};
    const struct {
        const char* name;
        SyncTrigger trigger;
        std::optional<ListingChanges> changes;
        std::optional<std::string> openNote;
        int tick, pending;
        SyncPlan expected;
    } rows[] = {
        {"first listing in front", SyncTrigger::foreground, {}, "a.md", 0, 0, {true, true, false, true}},
        {"first listing with no note open",
         SyncTrigger::foreground,
         {},
         {},
         0,
         0,
         {true, true, false, false}},
        {"quarter tick", SyncTrigger::poll, none, "a.md", 4, 0, {true, false, true, false}},
        {"quarter tick with notes pending", SyncTrigger::poll, none, {}, 8, 1, {true, true, true, false}},
        {"tick 0", SyncTrigger::poll, none, {}, 0, 0, {false, false, false, false}},
        {"a push is no tick", SyncTrigger::metadata, none, {}, 4, 0, {false, false, false, false}},
        {"the open note changed", SyncTrigger::metadata, notes, "a.md", 1, 0, {true, true, true, true}},
        {"another note changed", SyncTrigger::metadata, notes, "b.md", 1, 0, {true, true, true, false}},
        {"a page changed", SyncTrigger::poll, pages, "a.md", 1, 0, {true, true, true, false}},
        {"folders changed", SyncTrigger::poll, folders, "a.md", 1, 0, {true, false, true, false}},
        {"pull", SyncTrigger::pull, none, "a.md", 1, 0, {true, true, true, true}},
        {"adopt", SyncTrigger::adopt, none, "a.md", 1, 0, {true, true, false, false}},
        {"foreground without changes",
         SyncTrigger::foreground,
         none,
         "a.md",
         1,
         0,
         {false, true, false, false}},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(SyncPlan::refresh(row.trigger, row.changes, row.openNote, row.tick, row.pending),
                  row.expected)
            << row.name;
    }
}

TEST(MetadataUpdate, NamesNotesOrGivesUp) {
    const Names prefixes = {"/private/v", "/v"};
    const auto read = [&](Names changed, Names added, Names removed) {
        return MetadataUpdate::read(changed, added, removed, prefixes);
    };
    EXPECT_EQ(read({"/v/a/b.md", "/private/v/.c.md.icloud"}, {"/v/x/.d.TXT.icloud"}, {"/v/e.md"}),
              (MetadataUpdate{{"a/b.md", "c.md", "x/d.TXT", "e.md"}, false}));
    EXPECT_EQ(read({"/v/folder"}, {"/v/p.html", "/v/.hidden", "/v/.x.md"}, {}), MetadataUpdate{});
    EXPECT_EQ(read({}, {"/v/folder"}, {}), (MetadataUpdate{{}, true}));
    EXPECT_EQ(read({}, {}, {"/v/a/folder/"}), (MetadataUpdate{{}, true}));
    EXPECT_EQ(read({"/v/.trash/a.md", "/v/node_modules/x/a.md"}, {"/v/.git", "/v/__pycache__"}, {}),
              MetadataUpdate{});
    EXPECT_EQ(read({"/v/a.md"}, {"/v2/b.md"}, {}), std::nullopt);
    EXPECT_EQ(MetadataUpdate::read({}, {}, {}, {}), std::nullopt);
}

TEST(EditorRefresh, AdoptsOnlyOverAnUntouchedBuffer) {
    const struct {
        const char* name;
        std::optional<std::string> disk;
        bool stale;
        std::optional<std::string> atRead, baseline;
        std::string buffer;
        bool dirty, busy, expected;
    } rows[] = {
        {"newer text", "new", false, "base", "base", "base", false, false, true},
        {"no text", {}, false, "base", "base", "base", false, false, false},
        {"perhaps stale", "new", true, "base", "base", "base", false, false, false},
        {"saved meanwhile", "new", false, "base", "saved", "saved", false, false, false},
        {"nothing known", "new", false, {}, {}, "", false, false, false},
        {"one character typed", "new", false, "base", "base", "base!", false, false, false},
        {"dirty", "new", false, "base", "base", "base", true, false, false},
        {"busy", "new", false, "base", "base", "base", false, true, false},
        {"nothing new", "base", false, "base", "base", "base", false, false, false},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(EditorRefresh::shouldAdopt(row.disk, row.stale, row.atRead, row.baseline, row.buffer,
                                             row.dirty, row.busy),
                  row.expected)
            << row.name;
    }
}

}  // namespace
}  // namespace vesk::test
