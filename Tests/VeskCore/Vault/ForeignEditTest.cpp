#include <fmt/format.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <random>

#include "VeskCore/Markdown/FrontmatterDoc.h"
#include "VeskCore/Support/Json.h"
#include "VeskCore/Support/Match.h"
#include "VeskCore/Vault/ForeignEdit.h"

namespace vesk::test {
namespace {

using namespace ForeignEdit;
using Lines = std::vector<std::string>;

std::string shown(const Disk& disk) {
    return match(
        disk, [](const Disk::Text& text) { return "'" + text.text + "'"; },
        [](Disk::Plain plain) { return std::string(plain == Disk::Plain::gone ? "gone" : "unreadable"); });
}

std::string shown(const Outcome& outcome) {
    using Plain = Outcome::Plain;
    return match(
        outcome, [](const Outcome::DiskWins& it) { return "diskWins '" + it.text + "'"; },
        [](const Outcome::KeptBoth& it) { return "keptBoth " + it.copyPath; },
        [](const Outcome::Merged& it) { return "merged '" + it.text + "'"; },
        [](const Outcome::FollowedMove& it) { return "to " + it.to + ": " + shown(*it.inner); },
        [](const Outcome::KeptAsCopy& it) { return "keptAsCopy " + it.copyPath; },
        [](Plain plain) {
            return std::string(plain == Plain::wrote           ? "wrote"
                               : plain == Plain::alreadyOnDisk ? "alreadyOnDisk"
                                                               : "noteTrashed");
        });
}

/// Files in memory that are written only while they hold what the writer expects.
struct FakeDisk {
    std::map<std::string, std::string> files;
    std::set<std::string> unreadable;
    Lines log;
    /// Called before each write with its number from 1; may change the files, or throw.
    std::function<void(int, const std::string& path)> beforeWrite;
    int writes = 0;

    Disk at(const std::string& path) const {
        if (unreadable.contains(path)) return {Disk::Plain::unreadable};
        const auto found = files.find(path);
        if (found == files.end()) return {Disk::Plain::gone};
        return {Disk::Text{found->second}};
    }
    Effects effects() {
        return {
            .readDisk =
                [this](const std::string& path) {
                    log.push_back("read " + path);
                    return at(path);
                },
            .write =
                [this](const std::string& text, const std::string& path, const Disk& expected) {
                    log.push_back(fmt::format("write {} '{}' over {}", path, text, shown(expected)));
                    ++writes;
                    if (beforeWrite) beforeWrite(writes, path);
                    if (expected != Disk{Disk::Plain::unreadable} && at(path) != expected) {
                        throw DiskChangedMeanwhile(at(path));
                    }
                    unreadable.erase(path);
                    files[path] = text;
                },
            .exists =
                [this](const std::string& path) { return files.contains(path) || unreadable.contains(path); },
        };
    }
};

const std::string conflictCopy = "n/a (conflict from another device).md";
const std::string conflictCopy2 = "n/a (conflict from another device 2).md";
const std::string recoveredCopy = "n/a (recovered).md";

TEST(ForeignEditSave, TakesEachRoadWithItsEffectsInOrder) {
    const auto withKeys = [](const std::string& keys, const std::string& body) {
        return "---\n" + keys + "---\n" + body;
    };
    const struct {
        const char* name;
        std::string text;
        std::optional<std::string> baseline;
        std::map<std::string, std::string> files;
        std::function<void(Departures&)> history;
        std::string outcome;
        Lines effects;
    } rows[] = {
        {"a new note", "mine", {}, {}, {}, "wrote", {"read n/a.md", "write n/a.md 'mine' over gone"}},
        {"the ordinary save",
         "mine",
         "base",
         {{"n/a.md", "base"}},
         {},
         "wrote",
         {"read n/a.md", "write n/a.md 'mine' over 'base'"}},
        {"the file can't be read",
         "mine",
         "base",
         {{"n/a.md", "?unreadable"}},
         {},
         "wrote",
         {"read n/a.md", "write n/a.md 'mine' over unreadable"}},
        {"the same text", "mine", "base", {{"n/a.md", "mine"}}, {}, "alreadyOnDisk", {"read n/a.md"}},
        {"the same text without a baseline",
         "mine",
         {},
         {{"n/a.md", "mine"}},
         {},
         "alreadyOnDisk",
         {"read n/a.md"}},
        {"another text without a baseline",
         "mine",
         {},
         {{"n/a.md", "theirs"}},
         {},
         "keptBoth " + conflictCopy,
         {"read n/a.md", "write " + conflictCopy + " 'theirs' over gone",
          "write n/a.md 'mine' over 'theirs'"}},
        {"only the disk changed",
         "base",
         "base",
         {{"n/a.md", "theirs"}},
         {},
         "diskWins 'theirs'",
         {"read n/a.md"}},
        {"both changed",
         "mine",
         "base",
         {{"n/a.md", "theirs"}, {conflictCopy, "older"}},
         {},
         "keptBoth " + conflictCopy2,
         {"read n/a.md", "write " + conflictCopy2 + " 'theirs' over gone",
          "write n/a.md 'mine' over 'theirs'"}},
        {"body here, key there",
         withKeys("remind: x\n", "mine"),
         withKeys("remind: x\n", "base"),
         {{"n/a.md", withKeys("remind: y\n", "base")}},
         {},
         "merged '---\nremind: y\n---\nmine'",
         {"read n/a.md", "write n/a.md '---\nremind: y\n---\nmine' over '---\nremind: y\n---\nbase'"}},
        {"key here, body there",
         withKeys("repeat: daily\n", "base"),
         "base",
         {{"n/a.md", "theirs"}},
         {},
         "merged '---\nrepeat: daily\n---\ntheirs'",
         {"read n/a.md", "write n/a.md '---\nrepeat: daily\n---\ntheirs' over 'theirs'"}},
        {"a merge that the disk holds already",
         withKeys("remind: y\n", "base"),
         withKeys("remind: x\n", "base"),
         {{"n/a.md", withKeys("remind: y\n", "theirs")}},
         {},
         "merged '---\nremind: y\n---\ntheirs'",
         {"read n/a.md"}},
        {"gone with nothing known of it",
         "mine",
         "base",
         {},
         {},
         "keptAsCopy " + recoveredCopy,
         {"read n/a.md", "write " + recoveredCopy + " 'mine' over gone"}},
        {"gone to the trash",
         "mine",
         "base",
         {},
         [](Departures& it) { it.trashed("n"); },
         "noteTrashed",
         {"read n/a.md"}},
        {"trashed before it came to be",
         "mine",
         "base",
         {},
         [](Departures& it) {
             it.trashed("n/a.md");
             it.arrived("n/a.md");
         },
         "keptAsCopy " + recoveredCopy,
         {"read n/a.md", "write " + recoveredCopy + " 'mine' over gone"}},
        {"moved",
         "mine",
         "base",
         {{"m/a.md", "base"}},
         [](Departures& it) { it.moved("n", "m"); },
         "to m/a.md: wrote",
         {"read n/a.md", "read m/a.md", "write m/a.md 'mine' over 'base'"}},
        {"moved and changed there",
         "mine",
         "base",
         {{"b.md", "theirs"}},
         [](Departures& it) { it.moved("n/a.md", "b.md"); },
         "to b.md: keptBoth b (conflict from another device).md",
         {"read n/a.md", "read b.md", "write b (conflict from another device).md 'theirs' over gone",
          "write b.md 'mine' over 'theirs'"}},
        {"moved and trashed there",
         "mine",
         "base",
         {},
         [](Departures& it) {
             it.moved("n/a.md", "b.md");
             it.trashed("b.md");
         },
         "noteTrashed",
         {"read n/a.md"}},
        {"moved to where nothing is",
         "mine",
         "base",
         {},
         [](Departures& it) { it.moved("n/a.md", "b.md"); },
         "keptAsCopy " + recoveredCopy,
         {"read n/a.md", "write " + recoveredCopy + " 'mine' over gone"}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        FakeDisk disk;
        disk.files = row.files;
        if (row.files.contains("n/a.md") && row.files.at("n/a.md") == "?unreadable")
            disk.unreadable = {"n/a.md"};
        Departures departures;
        if (row.history) row.history(departures);
        EXPECT_EQ(shown(save(row.text, "n/a.md", row.baseline, disk.effects(), departures)), row.outcome);
        EXPECT_EQ(disk.log, row.effects);
    }
}

TEST(ForeignEditSave, DecidesAnewAboutWhatComesInMeanwhile) {
    const struct {
        const char* name;
        std::optional<std::string> baseline;
        std::string disk;
        std::map<int, std::optional<std::string>> arrivals;  // before which write; none for a removal
        std::string outcome;
        std::map<std::string, std::string> files;
    } rows[] = {
        {"a foreign text",
         "base",
         "base",
         {{1, "theirs"}},
         "keptBoth " + conflictCopy,
         {{"n/a.md", "mine"}, {conflictCopy, "theirs"}}},
        {"the same text", "base", "base", {{1, "mine"}}, "alreadyOnDisk", {{"n/a.md", "mine"}}},
        {"the note goes",
         "base",
         "base",
         {{1, std::nullopt}},
         "keptAsCopy " + recoveredCopy,
         {{recoveredCopy, "mine"}}},
        {"another text after the copy",
         "base",
         "theirs",
         {{2, "newer"}},
         "keptBoth " + conflictCopy2,
         {{"n/a.md", "mine"}, {conflictCopy, "theirs"}, {conflictCopy2, "newer"}}},
        {"back to the baseline after the copy",
         "base",
         "theirs",
         {{2, "base"}},
         "keptBoth " + conflictCopy,
         {{"n/a.md", "mine"}, {conflictCopy, "theirs"}}},
        {"a new note's place is taken",
         {},
         "",
         {{1, "theirs"}},
         "keptBoth " + conflictCopy,
         {{"n/a.md", "mine"}, {conflictCopy, "theirs"}}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        FakeDisk disk;
        if (!row.disk.empty()) disk.files["n/a.md"] = row.disk;
        disk.beforeWrite = [&](int number, const std::string&) {
            const auto arrival = row.arrivals.find(number);
            if (arrival == row.arrivals.end()) return;
            disk.files.erase("n/a.md");
            if (arrival->second) disk.files["n/a.md"] = *arrival->second;
        };
        EXPECT_EQ(shown(save("mine", "n/a.md", row.baseline, disk.effects(), {})), row.outcome);
        EXPECT_EQ(disk.files, row.files);
    }

    // A copy's name that another takes in the last moment isn't overwritten.
    FakeDisk disk;
    disk.files["n/a.md"] = "theirs";
    disk.beforeWrite = [&](int number, const std::string&) {
        if (number == 1) disk.files[conflictCopy] = "a stranger's";
    };
    EXPECT_EQ(shown(save("mine", "n/a.md", "base", disk.effects(), {})), "keptBoth " + conflictCopy2);
    EXPECT_EQ(disk.files[conflictCopy], "a stranger's");
    EXPECT_EQ(disk.files[conflictCopy2], "theirs");
}

TEST(ForeignEditSave, EndsAlsoWhenTheFileNeverStandsStill) {
    FakeDisk disk;
    disk.files["n/a.md"] = "base";
    disk.beforeWrite = [&](int number, const std::string& path) {
        if (path == "n/a.md") disk.files[path] = "theirs " + std::to_string(number);
    };
    try {
        save("mine", "n/a.md", "base", disk.effects(), {});
        ADD_FAILURE() << "saved into a file that changed all the time";
    } catch (const CopyKeptButSaveFailed& error) {
        EXPECT_EQ(error.preservedText, disk.files["n/a.md"]);
        EXPECT_TRUE(disk.files.contains(error.copyPath));
    }
    EXPECT_LT(disk.writes, 30);
}

TEST(ForeignEditSave, AFailingStepLosesNothing) {
    const auto failingAt = [](FakeDisk& disk, int number) {
        disk.beforeWrite = [number](int write, const std::string& path) {
            if (write == number) throw SystemError(ENOSPC, "write", path);
        };
    };
    FakeDisk disk;
    disk.files["n/a.md"] = "theirs";
    failingAt(disk, 1);
    EXPECT_THROW(save("mine", "n/a.md", "base", disk.effects(), {}), SystemError);
    EXPECT_EQ(disk.files, (std::map<std::string, std::string>{{"n/a.md", "theirs"}}));

    disk.writes = 0;
    failingAt(disk, 2);
    try {
        save("mine", "n/a.md", "base", disk.effects(), {});
        ADD_FAILURE() << "the note could not be written";
    } catch (const CopyKeptButSaveFailed& error) {
        EXPECT_EQ(error.copyPath, conflictCopy);
        EXPECT_EQ(error.preservedText, "theirs");
        EXPECT_EQ(
            error.description(),
            "The other device's version was kept as \"a (conflict from another device).md\". but your text "
            "couldn't be saved: write n/a.md: No space left on device");
    }
    EXPECT_EQ(disk.files["n/a.md"], "theirs");

    Effects unread = disk.effects();
    unread.readDisk = [](const std::string& path) -> Disk { throw SystemError(EIO, "read", path); };
    EXPECT_THROW(save("mine", "n/a.md", "base", unread, {}), SystemError);
}

/// The text without its frontmatter: what may not be merged away.
std::string bodyOf(const std::string& text) {
    return FrontmatterDoc(text).body();
}

TEST(ForeignEditSave, NoHistoryLosesAText) {
    for (unsigned seed = 1; seed <= 20'000; ++seed) {
        std::mt19937 random(seed);
        const auto below = [&](unsigned count) { return static_cast<int>(random() % count); };
        int fresh = 0;
        const auto anyText = [&]() -> std::string {
            const char* keys[] = {"", "", "---\nremind: 2026-01-02 09:00\n---\n",
                                  "---\npriority: high\ntags: a\n---\n"};
            const std::string bodies[] = {"base", "one", fmt::format("fresh {}", ++fresh)};
            return keys[below(4)] + bodies[below(3)];
        };
        FakeDisk disk;
        Departures departures;
        std::optional<std::string> baseline;
        if (below(5) > 0) baseline = anyText();
        const std::string text = below(4) == 0 && baseline ? *baseline : anyText();
        if (below(5) > 0) disk.files["n/a.md"] = below(2) == 0 && baseline ? *baseline : anyText();
        if (below(6) == 0 && disk.files.contains("n/a.md")) {
            disk.files["m/a.md"] = disk.files["n/a.md"];
            disk.files.erase("n/a.md");
            departures.moved("n", "m");
        }
        if (below(8) == 0) departures.trashed("n/a.md");
        const bool nobodyElse = below(3) == 0;
        disk.beforeWrite = [&](int, const std::string& path) {
            if (nobodyElse || below(3) > 0) return;
            if (below(4) == 0) {
                disk.files.erase(path);
            } else if (disk.files.contains(path) || below(4) == 0) {
                // A program that puts its text in the place of what it has seen.
                disk.files[path] = anyText();
            }
        };
        // What is on the disk right before a write of the save, and not taken away by others, has to survive
        // it.
        std::vector<std::string> texts;
        const Effects plain = disk.effects();
        Effects effects = plain;
        effects.write = [&](const std::string& written, const std::string& path, const Disk& expected) {
            const auto others = disk.beforeWrite;
            others(0, path);
            disk.beforeWrite = nullptr;
            if (disk.files.contains(path)) texts.push_back(disk.files[path]);
            try {
                plain.write(written, path, expected);
                disk.beforeWrite = others;
            } catch (...) {
                disk.beforeWrite = others;
                texts.clear();  // nothing was written; what stands there is met again
                throw;
            }
        };
        SCOPED_TRACE(fmt::format("seed {}", seed));
        std::optional<Outcome> outcome;
        try {
            outcome = save(text, "n/a.md", baseline, effects, departures);
        } catch (const Error&) {  // the caller keeps the text
        }
        if (outcome && *outcome != Outcome{Outcome::Plain::noteTrashed}) texts.push_back(text);
        for (const std::string& one : texts) {
            const bool stands = std::any_of(disk.files.begin(), disk.files.end(), [&](const auto& file) {
                return file.second == one || bodyOf(file.second) == bodyOf(one);
            });
            // What the editor had loaded is known to the user, who went on from it.
            const bool isKnown = baseline && bodyOf(*baseline) == bodyOf(one);
            ASSERT_TRUE(stands || isKnown)
                << "lost '" << one << "' with " << (outcome ? shown(*outcome) : "a failure");
        }
    }
}

TEST(ForeignEdit, DecidesWithoutEffects) {
    using Plain = Decision::Plain;
    const struct {
        const char* name;
        std::optional<std::string> baseline;
        Disk disk;
        std::string incoming;
        Decision expected;
    } rows[] = {
        {"unreadable", "base", {Disk::Plain::unreadable}, "mine", {Plain::write}},
        {"gone", "base", {Disk::Plain::gone}, "mine", {Plain::noteGone}},
        {"never there", {}, {Disk::Plain::gone}, "mine", {Plain::write}},
        {"the same", {}, {Disk::Text{"mine"}}, "mine", {Plain::alreadyOnDisk}},
        {"unknown", {}, {Disk::Text{"theirs"}}, "mine", {Plain::keepBoth}},
        {"unchanged", "base", {Disk::Text{"base"}}, "mine", {Plain::write}},
        {"only the disk", "base", {Disk::Text{"theirs"}}, "base", {Plain::diskWins}},
        {"both", "base", {Disk::Text{"theirs"}}, "mine", {Plain::keepBoth}},
        {"keys",
         "base",
         {Disk::Text{"---\nremind: x\n---\nbase"}},
         "mine",
         {Decision::Merged{"---\nremind: x\n---\nmine"}}},
    };
    for (const auto& row : rows)
        EXPECT_EQ(decide(row.baseline, row.disk, row.incoming), row.expected) << row.name;
}

TEST(ForeignEditKeys, MergeOnlyWhatTouchesSeparateThings) {
    const struct {
        const char* name;
        std::string baseline, disk, incoming;
        std::optional<std::string> expected;
    } rows[] = {
        {"both set remind", "---\nremind: a\n---\nbody", "---\nremind: b\n---\nbody",
         "---\nremind: c\n---\nbody", "---\nremind: c\n---\nbody"},
        {"one takes it off, the other writes", "---\nremind: a\n---\n\nbody",
         "---\nremind: a\n---\n\nbody more", "body", "body more"},
        {"taken off there", "---\nremind: a\ntags: x\n---\nbody", "---\ntags: x\n---\nbody",
         "---\nremind: a\ntags: y\n---\nbody", "---\ntags: y\n---\nbody"},
        {"different keys on both sides", "body", "---\nrepeat: daily\n---\nbody", "---\nremind: a\n---\nbody",
         "---\nrepeat: daily\nremind: a\n---\nbody"},
        {"both bodies", "body", "---\nremind: a\n---\ntheirs", "mine", {}},
        {"a comment in the block is the user's text", "---\n# old\nremind: a\n---\nbody",
         "---\n# old\nremind: b\n---\nbody", "---\n# new\nremind: a\n---\nbody",
         "---\n# new\nremind: b\n---\nbody"},
        {"a comment keeps the block alive", "---\n# why\nremind: a\n---\nbody", "---\n# why\n---\nbody",
         "---\n# why\nremind: a\n---\nmore", "---\n# why\n---\nmore"},
        {"a time of day in ISO form", "---\nremind: 2026-01-02T09:00:00\n---\nbody",
         "---\nremind: 2026-01-02T10:00:00\n---\nbody", "---\nremind: 2026-01-02T09:00:00\n---\nmine",
         "---\nremind: 2026-01-02T10:00:00\n---\nmine"},
        {"nothing differs: untouched to the byte", "---\nremind:   a\n---\nbody",
         "---\nremind:   a\n---\nbody\n\n", "---\nremind:   a\n---\nmine", "---\nremind:   a\n---\nmine"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(foldReminderKeys(row.baseline, row.disk, row.incoming), row.expected) << row.name;
    }
}

TEST(ForeignEditKeys, AChangeIsToldStoredAndApplied) {
    const std::string before = "---\nremind: 2026-01-02 09:00\nrepeat: daily\ntags: x\n---\nbody\n";
    const std::string after = "---\nremind: 2026-01-03 09:00\ntags: x\npriority: high\n---\nbody\n\n";
    const auto change = reminderKeyChange(before, after);
    ASSERT_TRUE(change);
    EXPECT_EQ(change->written,
              (std::map<std::string, std::string>{{"priority", "high"}, {"remind", "2026-01-03 09:00"}}));
    EXPECT_EQ(change->removed, Lines{"repeat"});
    EXPECT_FALSE(change->removesReminder());
    EXPECT_EQ(change->applied("---\nremind: x\n---\nother"),
              "---\nremind: 2026-01-03 09:00\npriority: high\n---\nother");
    EXPECT_EQ(change->json().dump(),
              R"({"written":{"priority":"high","remind":"2026-01-03 09:00"},"removed":["repeat"]})");
    EXPECT_EQ(ReminderKeyChange::fromJson(change->json()), change);
    EXPECT_EQ(ReminderKeyChange::fromJson(Json::parse(R"({"written":{"remind":1},"removed":[]})")),
              std::nullopt);

    EXPECT_EQ(reminderKeyChange("---\nremind: x\n---\n\nbody", "body")->removed, Lines{"remind"});
    EXPECT_EQ(reminderKeyChange("body", "body\n"), std::nullopt);
    EXPECT_EQ(reminderKeyChange("body", "---\nremind: x\n---\nother"), std::nullopt);
    EXPECT_EQ((ReminderKeyChange{.written = {{"remind", "x"}}, .removed = {"repeat"}}.applied(
                  "---\nremind: 'x'\n---\n\n\nb")),
              "---\nremind: 'x'\n---\n\n\nb");
}

TEST(ForeignEditLeaving, DecidesWhatBecomesOfABuffer) {
    using Plain = LeavingDecision::Plain;
    const LeavingDecision owe{LeavingDecision::Owe{{.written = {{"remind", "x"}}, .removed = {}}}};
    const std::string keyed = "---\nremind: x\n---\nbody";
    const struct {
        const char* name;
        std::optional<std::string> baseline;
        std::string buffer;
        bool heldForDownload, background, switchingVault;
        LeavingDecision expected;
    } rows[] = {
        {"only a key, waiting", "body", keyed, true, false, false, owe},
        {"only a key, waiting in the back", "body", keyed, true, true, false, owe},
        {"not waiting", "body", keyed, false, false, false, {Plain::keepCopy}},
        {"the vault goes", "body", keyed, true, true, true, {Plain::hold}},
        {"no baseline", {}, keyed, true, true, false, {Plain::hold}},
        {"more than a key", "other", keyed, true, false, false, {Plain::keepCopy}},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(leavingDecision(row.baseline, row.buffer, row.heldForDownload, row.background,
                                  row.switchingVault),
                  row.expected)
            << row.name;
    }
}

TEST(ForeignEditNames, FindFreeNamesThatFit) {
    const auto path = [](std::string_view of, std::set<std::string> taken) {
        return conflictCopyPath(of, [taken](const std::string& name) { return taken.contains(name); });
    };
    EXPECT_EQ(path("a/b.md", {}), "a/b (conflict from another device).md");
    EXPECT_EQ(path("a/b.md", {"a/b (conflict from another device).md"}),
              "a/b (conflict from another device 2).md");
    const auto free = [](const std::string&) { return false; };
    EXPECT_EQ(recoveredCopyPath("b.TXT", free), "b (recovered).TXT");
    EXPECT_EQ(recoveredCopyPath("b.html", free), "b (recovered).md");
    EXPECT_EQ(recoveredCopyPath("v1.2 notes", free), "v1.2 notes (recovered).md");
    int asked = 0;
    EXPECT_EQ(recoveredCopyPath("b.md", [&](const std::string&) { return ++asked < 12; }),
              "b (recovered 12).md");

    std::string long64;
    for (int i = 0; i < 64; ++i) long64 += "👍🏽";  // 8 bytes each
    const std::string cut = recoveredCopyPath("f/" + long64 + ".md", free).substr(2);
    EXPECT_EQ(cut.size(), 30 * 8 + std::string_view(" (recovered).md").size());
    const std::string numbered = conflictCopyPath(
        long64 + ".md", [](const std::string& name) { return name.find("device 2)") == name.npos; });
    EXPECT_LE(numbered.size(), 255u);
    EXPECT_TRUE(numbered.ends_with("👍🏽 (conflict from another device 2).md"));
}

TEST(ForeignEditNames, RecogniseKeptCopies) {
    const struct {
        const char* stem;
        std::optional<std::string> original;
    } rows[] = {
        {"plan (conflict from another device)", "plan"},
        {"plan (conflict from another device 2)", "plan"},
        {"plan (conflict from Mac) 2", "plan"},
        {"plan (recovered 3)", "plan"},
        {"plan (recovered) 2 3", "plan"},
        {"plan (recovered) (recovered 2)", "plan (recovered)"},
        {"Grüße 👍 (recovered)", "Grüße 👍"},
        {"Caf\xE9 (recovered)", "Caf\xE9"},
        {"plan (recovered from x)", {}},
        {"plan (recovered)x", {}},
        {"plan(recovered)", {}},
        {"plan", {}},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(originalStem(row.stem), row.original) << row.stem;
        EXPECT_EQ(isKeptCopy(row.stem), row.original.has_value()) << row.stem;
    }
    EXPECT_TRUE(isConflictCopy("plan (conflict from another device 2)"));
    EXPECT_FALSE(isConflictCopy("plan (conflict from Mac)"));
}

TEST(Departures, FollowMovesInTheirOrder) {
    struct Step {
        enum class Kind { move, trash, arrive } kind;
        std::string path, to;
    };
    const auto move = [](std::string from, std::string to) {
        return Step{Step::Kind::move, std::move(from), std::move(to)};
    };
    const auto arrive = [](std::string path) { return Step{Step::Kind::arrive, std::move(path), {}}; };
    const auto trash = [](std::string path) { return Step{Step::Kind::trash, std::move(path), {}}; };
    std::vector<Step> nine;
    for (int i = 0; i < 9; ++i) nine.push_back(move(fmt::format("{}.md", i), fmt::format("{}.md", i + 1)));
    const struct {
        const char* name;
        std::vector<Step> steps;
        const char* path;
        std::optional<std::string> destination;
        int since;
        bool trashed;
    } rows[] = {
        {"never moved", {}, "a.md", {}, 0, false},
        {"twice", {move("a.md", "b.md"), move("b.md", "c.md")}, "a.md", "c.md", 0, false},
        {"with its folder", {move("n", "m")}, "n/x/a.md", "m/x/a.md", 0, false},
        {"a folder of a longer name stays", {move("n", "m")}, "nn/a.md", {}, 0, false},
        {"away and back", {move("a.md", "b.md"), move("b.md", "a.md")}, "a.md", {}, 2, false},
        {"nine moves end at the eighth", nine, "0.md", "8.md", 0, false},
        {"a new note at the old path", {move("a.md", "b.md"), arrive("a.md")}, "a.md", {}, 2, false},
        {"the new note moves too",
         {move("a.md", "b.md"), arrive("a.md"), move("a.md", "c.md")},
         "a.md",
         "c.md",
         2,
         false},
        {"a note doesn't become a page", {move("a.md", "a.html")}, "a.md", {}, 0, false},
        {"what comes with a folder is new there", {move("n", "m")}, "m/a.md", {}, 1, false},
        {"trashed with its folder", {trash("n")}, "n/a.md", {}, 0, true},
        {"trashed before it arrived", {trash("a.md"), arrive("a.md")}, "a.md", {}, 2, false},
        {"told again later, entered once",
         {move("a.md", "b.md"), trash("b.md"), move("a.md", "b.md")},
         "b.md",
         {},
         1,
         true},
        {"the same way a second time",
         {move("a.md", "b.md"), move("b.md", "a.md"), move("a.md", "b.md")},
         "a.md",
         "b.md",
         2,
         false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        Departures departures;
        for (const Step& step : row.steps) {
            switch (step.kind) {
                case Step::Kind::move:
                    departures.moved(step.path, step.to);
                    break;
                case Step::Kind::trash:
                    departures.trashed(step.path);
                    break;
                case Step::Kind::arrive:
                    departures.arrived(step.path);
                    break;
            }
        }
        EXPECT_EQ(departures.destination(row.path), row.destination);
        EXPECT_EQ(departures.since(row.path), row.since);
        EXPECT_EQ(departures.wasTrashed(row.path), row.trashed);
        EXPECT_EQ(departures.notFollowing().route(row.path), std::nullopt);
    }
}

}  // namespace
}  // namespace vesk::test
