#include "IndexFixture.h"

namespace vesk::test {
namespace {

class NoteIndexRemindersTest : public IndexFixture {
protected:
    void addReminder(std::string_view path, std::string_view keys = "remind: 2026-11-20") {
        add(path, "---\n" + std::string(keys) + "\n---\nBody\n");
    }
    /// "path date rule flag", rule as its number.
    Strings reminders() {
        Strings result;
        for (const auto& it : index().reminders(calendar, now)) {
            result.push_back(it.path + " " + NoteReminder::format(it.date, calendar) +
                             (it.repeatRule ? " " + std::string(rawValue(*it.repeatRule)) : "") +
                             (it.flagged ? " !" : ""));
        }
        return result;
    }

    const Calendar calendar{.timeZone = "Europe/Berlin"};
    const TimePoint now = date({.year = 2026, .month = 11, .day = 18, .hour = 12}, calendar);
};

TEST_F(NoteIndexRemindersTest, ReadsRemindersInTheOrderTheyFire) {
    addReminder("later.md", "remind: 2026-11-25T08:00\npriority: urgent");
    addReminder("b/same.md", "remind: 2026-11-20 10:00\nrepeat: often");
    addReminder("a/same.md", "repeat: Daily\nremind: 2026-01-01T12:00\npriority: low");
    addReminder("c/same.md", "remind: 2026-11-19T12:00");
    addReminder("past.md", "remind: 2026-11-01");
    addReminder("dateless.md", "priority: high\nrepeat: daily");
    addReminder("unreadable.md", "remind: soon");
    addReminder("list.md", "remind: [2026-11-20]");
    addReminder("block.md", "remind:\n  2026-11-20");
    EXPECT_EQ(reminders(), (Strings{"past.md 2026-11-01T09:00", "a/same.md 2026-01-01T12:00 daily",
                                    "c/same.md 2026-11-19T12:00", "b/same.md 2026-11-20T10:00",
                                    "later.md 2026-11-25T08:00 !"}));
    EXPECT_EQ(index().reminders(calendar, now).back().title, "later");
    EXPECT_EQ(index().flaggedNotes(), (std::set<std::string>{"dateless.md", "later.md"}));
}

TEST_F(NoteIndexRemindersTest, SilencesKeptCopiesBesideTheirNote) {
    add("n.md", "no reminder of its own");
    add("d/m.txt", "A");
    index().recordPending("waiting.md", "downloading");
    index().recordPending("page.html", "downloading");
    for (auto silent : {"n (recovered).md", "n (recovered 2).md", "n (recovered) 3.md",
                        "n (conflict from another device).md", "n (conflict from Ann (recovered) 2) 4.md",
                        "d/m (recovered).md", "waiting (recovered).md"}) {
        addReminder(silent);
    }
    const Strings loud{"copies (recovered).md", "d/n (recovered).md", "m (recovered).md",
                       "n (recovered x).md",    "n (recovered) b.md", "n(recovered).md",
                       "page (recovered).md"};
    Strings expected;
    for (const auto& path : loud) {
        addReminder(path);
        expected.push_back(path + " 2026-11-20T09:00");
    }
    EXPECT_EQ(reminders(), expected);
    // The copy speaks again when its note is gone.
    index().removeNote("n.md");
    EXPECT_EQ(reminders().size(), expected.size() + 5);
}

TEST_F(NoteIndexRemindersTest, ReportsAClosedIndex) {
    index().close();
    EXPECT_THROW(index().reminders(calendar, now), IndexError);
    EXPECT_THROW(index().flaggedNotes(), IndexError);
}

}  // namespace
}  // namespace vesk::test
