#include <gtest/gtest.h>

#include "VeskCore/Vault/SyncDiagnostics.h"
#include "VeskCore/Vault/SyncLog.h"

namespace vesk::test {
namespace {

using Names = std::vector<std::string>;

const TimePoint start = timeFromSecondsSince1970(1'773'480'600);  // 2026-03-14 09:30:00 UTC

TimePoint at(double seconds) {
    return start + std::chrono::duration_cast<Duration>(Seconds(seconds));
}

Note noteOf(std::string path, TimePoint modified = start) {
    Note note;
    note.relativePath = std::move(path);
    note.modified = modified;
    return note;
}

FolderAsk askOf(FolderAsk::Outcome outcome, Names revealed = {}, double waited = 0.5) {
    return {.folder = "a",
            .revealed = std::move(revealed),
            .waited = Seconds(waited),
            .outcome = std::move(outcome)};
}

const FolderAsk::Outcome done{FolderAsk::Outcome::Plain::done};
const FolderAsk::Outcome timedOut{FolderAsk::Outcome::Plain::timedOut};

TEST(SyncLog, RecordsPassesThatDidSomething) {
    const struct {
        const char* name;
        SyncTrigger trigger;
        std::vector<Note> arrived;
        std::vector<FolderAsk> asks;
        std::optional<std::size_t> changed;
        bool applied;
        std::optional<std::string> detail;
    } rows[] = {
        {"a quiet poll", SyncTrigger::poll, {}, {askOf(done)}, 0, true, {}},
        {"a quiet push", SyncTrigger::metadata, {}, {}, {}, true, {}},
        {"a quiet foreground",
         SyncTrigger::foreground,
         {},
         {},
         {},
         true,
         "foreground: 12 notes, 0 new, 0.25 s"},
        {"an ask that timed out",
         SyncTrigger::poll,
         {},
         {askOf(done), askOf(timedOut)},
         0,
         true,
         "poll: 12 notes, 0 new, 0 changed, 2 asks, 0 revealed, 1 not done, 0.25 s"},
        {"something revealed",
         SyncTrigger::poll,
         {},
         {askOf(done, {"x.md"})},
         {},
         true,
         "poll: 12 notes, 0 new, 1 asks, 1 revealed, 0 not done, 0.25 s"},
        {"a note arrived",
         SyncTrigger::presenter,
         {noteOf("x.md")},
         {},
         3,
         true,
         "presenter: 12 notes, 1 new, 3 changed, 0.25 s"},
        {"not applied",
         SyncTrigger::poll,
         {},
         {},
         0,
         false,
         "poll: 12 notes, 0 new, 0 changed, 0.25 s, not applied"},
    };
    for (const auto& row : rows) {
        SyncLog log;
        log.recordPass(row.trigger, row.arrived, row.asks, 12, row.changed, 0.25, row.applied, at(1));
        ASSERT_EQ(log.events.size(), row.detail ? 1u : 0u) << row.name;
        if (row.detail) {
            EXPECT_EQ(log.events[0], (SyncEvent{at(1), "pass", *row.detail})) << row.name;
        }
    }
}

TEST(SyncLog, TellsWhatThePickerMayHaveBrought) {
    SyncLog log;
    EXPECT_FALSE(log.picker.covers(at(0)));
    log.pickerShown(at(0));
    EXPECT_FALSE(log.picker.covers(at(-1)));
    EXPECT_TRUE(log.picker.covers(at(600)));
    EXPECT_FALSE(log.picker.covers(at(601)));
    log.pickerDismissed(true, at(700));
    EXPECT_TRUE(log.picker.covers(at(500)));
    EXPECT_TRUE(log.picker.covers(at(730)));
    EXPECT_FALSE(log.picker.covers(at(731)));
    log.recordPass(SyncTrigger::poll, {noteOf("a.md", at(700)), noteOf("b.md")}, {}, 2, {}, 0.1, true,
                   at(720));
    log.recordPass(SyncTrigger::pull, {noteOf("c.md")}, {}, 3, {}, 0.1, true, at(731));
    EXPECT_EQ(log.arrivals, (std::vector<SyncArrival>{{"a.md", "poll", at(720), 20, true},
                                                      {"b.md", "poll", at(720), 720, true},
                                                      {"c.md", "pull", at(731), 731, false}}));
    log.pickerDismissed({}, at(740));
    log.pickerDismissed(false, at(741));
    EXPECT_EQ(log.events[1].detail, "dismissed, opened");
    EXPECT_EQ(log.events[4].detail, "dismissed");
    EXPECT_EQ(log.events[5].detail, "dismissed, cancelled");
    EXPECT_TRUE((PickerTimes{.shown = {}, .dismissed = at(0), .outcome = {}}.covers(at(30))));
}

TEST(SyncLog, StaysSmallAndOutlivesARun) {
    SyncLog log;
    for (int i = 0; i < 51; ++i) log.note("k", std::to_string(i), at(i));
    EXPECT_EQ(log.events.size(), 50u);
    EXPECT_EQ(log.events.front().detail, "1");
    std::vector<Note> many;
    for (int i = 0; i < 25; ++i) many.push_back(noteOf(std::to_string(i)));
    log.recordPass(SyncTrigger::pull, many, {}, 25, {}, 0.1, true, at(60));
    EXPECT_EQ(log.arrivals.size(), 20u);
    EXPECT_EQ(log.arrivals.front().name, "5");
    log.pickerShown(at(61));
    EXPECT_EQ(SyncLog::decoded(log.encoded()), log);

    SyncLog larger = log;
    larger.events.insert(larger.events.begin(), {at(0), "older", ""});
    SyncLog restored;
    restored.restore(larger);
    EXPECT_EQ(restored, log);

    SyncLog small;
    small.note("k", "d/e", at(0));
    EXPECT_EQ(
        small.encoded(),
        "{\n  \"arrivals\": [],\n  \"events\": [\n    {\n      \"at\": \"2026-03-14T09:30:00.000Z\",\n      "
        "\"detail\": \"d/e\",\n      \"kind\": \"k\"\n    }\n  ],\n  \"picker\": {}\n}");
    for (const char* text : {"", "{}", "[]", R"({"events":[{}],"arrivals":[],"picker":{}})",
                             R"({"events":[],"arrivals":[],"picker":{"shown":"yesterday"}})"}) {
        EXPECT_EQ(SyncLog::decoded(text), SyncLog{}) << text;
    }
    EXPECT_EQ(SyncLog::newlyListed({noteOf("a"), noteOf("b")}, std::set<std::string>{"a"}).size(), 1u);
    EXPECT_TRUE(SyncLog::newlyListed({noteOf("a")}, {}).empty());
}

TEST(SyncDiagnostics, CountsAsks) {
    SyncDiagnostics::Asks asks;
    asks.add(
        {askOf(done, {"a.md", "b.md"}, 1), askOf(timedOut, {}, 4),
         askOf({FolderAsk::Outcome::Plain::cancelled}), askOf({FolderAsk::Outcome::Failed{"x"}}, {"c.md"})},
        at(1));
    asks.add({askOf(done)}, at(2));
    EXPECT_EQ(asks, (SyncDiagnostics::Asks{5, 1, 1, 1, 4.0, 3, "c.md", at(1)}));
}

TEST(SyncDiagnostics, ReportsInPlainText) {
    SyncDiagnostics report;
    report.generatedAt = at(0);
    report.build = "1.2 (3)";
    report.system = "Linux 6.1";
    report.provider = "Syncthing";
    report.passes = {{"poll", 3}, {"pull", 1}};
    report.presenter.callbacks = {{"rootChanged", 2}};
    const std::string text = report.reportText("Europe/Berlin");
    EXPECT_EQ(text, R"(Vesk sync report
Generated: 2026-03-14 10:30:00 +01:00
Build: 1.2 (3)
System: Linux 6.1

Vault
  Path: none open
  Provider: Syncthing
  Asks, presenter and watcher run: no

Switches
  Folder asks: off
  Presenter: no
  Watcher: no

Presenter
  Registered: no
  Registers: 0
  Unregisters: 0
  Register timeouts: 0
  Callback subitemChanged: 0
  Callback subitemAppeared: 0
  Callback subitemMoved: 0
  Callback rootUbiquity: 0
  Callback folderMoved: 0
  Callback rootChanged: 2
  Callback folderGoingAway: 0
  Echoes of Vesk's saves: 0
  Unchanged: 0
  Ignored: 0

Folder Asks
  Asks: 0
  Timed out: 0
  Cancelled: 0
  Failed: 0
  Longest wait: 0.00 s
  Names revealed: 0
  Last revealed: none

Metadata Watcher
  start(): not started
  To gathering: not started
  Results: 0
  Updates: 0
  Added, changed, removed: 0, 0, 0
  Known to iCloud, not on disk: 0
  Download requests, errors: 0, 0

Passes Since Launch
  foreground: 0
  adopt: 0
  pull: 1
  poll: 3
  presenter: 0
  metadata: 0
  Total: 4

Last Walk
  never

Folder Picker
  Last shown: never
  Last dismissed: never

Arrivals
  no note first seen since launch

Events
)");

    report.vaultPath = "/v";
    report.reachesICloud = true;
    report.switches = {FolderAskMode::metadataOnly, true, true};
    report.asks.add({askOf(done, {"a.md"}, 1.5)}, at(1));
    report.watcher.started = true;
    report.lastWalk = SyncDiagnostics::Walk{"poll", at(2), 0.1, 0.2, 12, 3, 1000, {}};
    report.log.pickerShown(at(3));
    report.log.recordPass(SyncTrigger::pull, {noteOf("n/a.md")}, {}, 1, {}, 0.1, true, at(4));
    const auto rowsOf = [&](std::string_view id) {
        for (const auto& section : report.sections("UTC")) {
            if (section.id == id) return section.rows;
        }
        return std::vector<SyncDiagnostics::Row>{};
    };
    using Rows = std::vector<SyncDiagnostics::Row>;
    EXPECT_EQ(rowsOf("switches"),
              (Rows{{"Folder asks", "metadataOnly"}, {"Presenter", "yes"}, {"Watcher", "yes"}}));
    EXPECT_EQ(rowsOf("asks").back(), (SyncDiagnostics::Row{"Last revealed", "a.md at 09:30:01"}));
    EXPECT_EQ(rowsOf("watcher")[1], (SyncDiagnostics::Row{"To gathering", "never"}));
    EXPECT_EQ(rowsOf("walk"), (Rows{{"Time", "09:30:02"},
                                    {"Trigger", "poll"},
                                    {"Walk", "0.10 s"},
                                    {"Pass", "0.20 s"},
                                    {"Notes", "12, 3 as stubs"},
                                    {"Free before", "1000 bytes"},
                                    {"Free after", "unknown"}}));
    EXPECT_EQ(rowsOf("arrivals"), (Rows{{"n/a.md", "via pull, after picker, 4.00 s after modified"}}));
    EXPECT_EQ(rowsOf("events"),
              (Rows{{"09:30:03", "picker shown"}, {"09:30:04", "pass pull: 1 notes, 1 new, 0.10 s"}}));
}

}  // namespace
}  // namespace vesk::test
