#include <gtest/gtest.h>

#include "Vesk/Reminders/ReminderMenu.h"

namespace vesk::test {
namespace {

const Calendar utc{};
/// A Wednesday.
const TimePoint now = date({.year = 2030, .month = 1, .day = 2, .hour = 16, .minute = 20}, utc);

TimePoint at(int day, int hour, int minute = 0) {
    return date({.year = 2030, .month = 1, .day = day, .hour = hour, .minute = minute}, utc);
}

TEST(ReminderMenuTest, OffersWhatIsStillToCome) {
    const auto menu = ReminderMenu::of("Text\n", {}, now, utc, "en_GB");
    EXPECT_EQ(menu.summary, "No reminder");
    EXPECT_FALSE(menu.current || menu.rule || menu.flagged || menu.silenced);
    const std::vector<ReminderMenu::Pick> picks{
        {"Later today", "Today at 20:00", at(2, 20)},
        {"Tomorrow morning", "Tomorrow at 09:00", at(3, 9)},
        {"Next Monday", "Monday at 09:00", at(7, 9)},
        {"In a week", "9 Jan at 09:00", at(9, 9)},
    };
    EXPECT_EQ(menu.picks, picks);
    ASSERT_EQ(menu.rules.size(), 6U);
    EXPECT_EQ(menu.rules[0], (ReminderMenu::Rule{std::nullopt, "Doesn’t repeat"}));
    EXPECT_EQ(menu.rules[3], (ReminderMenu::Rule{NoteReminder::Repeat::weekly, "Every Wednesday"}));
}

TEST(ReminderMenuTest, TellsWhatTheNoteHas) {
    const struct {
        const char *name, *text, *summary;
        std::optional<NoteReminder::Repeat> rule;
        bool flagged;
    } rows[] = {
        {"once", "---\nremind: 2030-01-03 15:00\n---\n", "Tomorrow at 15:00", {}, false},
        {"over",
         "---\nremind: 2030-01-02 15:00\npriority: urgent\n---\n",
         "Overdue Today at 15:00",
         {},
         true},
        {"repeating", "---\nremind: 2030-01-01 07:30\nrepeat: every day\n---\n", "Every day at 07:30",
         NoteReminder::Repeat::daily, false},
        {"a rule alone", "---\nrepeat: daily\n---\n", "No reminder", {}, false},
        {"no date", "---\nremind: soon\n---\n", "No reminder", {}, false},
    };
    for (const auto& row : rows) {
        const auto menu = ReminderMenu::of(row.text, {}, now, utc, "en_GB");
        EXPECT_EQ(menu.summary, row.summary) << row.name;
        EXPECT_EQ(menu.rule, row.rule) << row.name;
        EXPECT_EQ(menu.flagged, row.flagged) << row.name;
    }
    EXPECT_EQ(ReminderMenu::of(rows[0].text, "Bills", now, utc, "en_GB").silenced,
              "This note is a copy of “Bills”, and only that one rings.");
    EXPECT_FALSE(ReminderMenu::of("Text", "Bills", now, utc, "en_GB").silenced);
}

TEST(ReminderMenuTest, NamesTheNoteThatACopyIsSilentFor) {
    const auto named = [](const char* path, const char* title) {
        Note note;
        note.relativePath = path;
        note.title = title;
        return note;
    };
    const std::vector<Note> notes{named("Plan.md", "The plan"), named("Plan (draft).md", "The draft"),
                                  named("Work/Bills.markdown", "Bills"), named("Text.txt", "Text")};
    const struct {
        const char *name, *path;
        std::optional<std::string> title;
    } rows[] = {
        {"a copy", "Plan (conflict from Mac).md", "The plan"},
        {"of a name with brackets", "Plan (draft) (recovered 2).md", "The draft"},
        {"of a name with brackets whose note has gone", "Plan (old) (recovered).md", {}},
        {"in a folder", "Work/Bills (recovered).md", "Bills"},
        {"in another folder", "Bills (recovered).md", {}},
        {"of another kind of text file", "Text (recovered).md", "Text"},
        {"brackets of one's own", "Plan (draft).md", {}},
    };
    for (const auto& row : rows)
        EXPECT_EQ(ReminderMenu::silencedCopyOf(row.path, notes), row.title) << row.name;
}

TEST(ReminderMenuTest, ReadsAPhraseAsItIsTyped) {
    const struct {
        const char* phrase;
        ReminderMenu::Reading expected;
    } rows[] = {
        {" ", {}},
        {"tomorrow 3pm", {.words = "Tomorrow at 15:00", .date = at(3, 15)}},
        {"in 5 min", {.words = "Today at 16:25", .date = at(2, 16, 25)}},
        {"2 january 2029", {.words = "No date that is still to come"}},
        {"tomor", {.words = "No date that is still to come"}},
        {"remove reminder", {.words = "Remove reminder", .date = {}, .removes = true}},
    };
    for (const auto& row : rows)
        EXPECT_EQ(ReminderMenu::reading(row.phrase, now, utc, "en_GB"), row.expected) << row.phrase;
}

}  // namespace
}  // namespace vesk::test
