#include <gtest/gtest.h>

#include "Moments.h"
#include "VeskCore/Reminders/NoteReminder.h"

namespace vesk::test {
namespace {

using NoteReminder::Repeat;

const TimePoint morning = at("2026-11-22 09:30:00");

TEST(NoteReminderTest, ReadsDatesAsTheyStandOnTheClock) {
    struct Row {
        const char* text;
        const char* expected;
    };
    const Row rows[] = {
        {"2026-11-22T09:30", "Sun 2026-11-22 09:30"},
        {" 2026-11-22 23:59 ", "Sun 2026-11-22 23:59"},
        {"2026-11-22", "Sun 2026-11-22 09:00"},
        {"2026-1-2 7:5", "Fri 2026-01-02 07:05"},
        {"2026-02-31", "Tue 2026-03-03 09:00"},
        {"2026-13-01", "none"},
        {"2026-00-01", "none"},
        {"2026-01-32", "none"},
        {"2026-01-01 24:00", "none"},
        {"2026-01-01 10:60", "none"},
        {"2026-01-01 10", "none"},
        {"2026-01-01 10:00:00", "none"},
        {"2026-01-01  10:00", "none"},
        {"2026-01-01T10:00 Uhr", "none"},
        {"2026-01", "none"},
        {"2026-01-01-01", "none"},
        {"99999999999-01-01", "none"},
        {"tomorrow", "none"},
        {"", "none"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(shown(NoteReminder::date(row.text, utc)), row.expected) << row.text;
        EXPECT_EQ(shown(NoteReminder::date(row.text, newYork), newYork), row.expected) << row.text;
    }
    EXPECT_EQ(NoteReminder::format(at("0980-03-04 05:06:59", berlin), berlin), "0980-03-04T05:06");
}

TEST(NoteReminderTest, SetsAndRemovesTheKeys) {
    struct Row {
        const char* name;
        std::string note;
        std::optional<TimePoint> date;
        std::optional<Repeat> repeat;
        std::string expected;
    };
    const Row rows[] = {
        {"no frontmatter", "Hello\n", morning, {}, "---\nremind: 2026-11-22T09:30\n---\nHello\n"},
        {"no line end", "Hello", morning, {}, "---\nremind: 2026-11-22T09:30\n---\nHello\n"},
        {"empty note", "", morning, {}, "---\nremind: 2026-11-22T09:30\n---\n\n"},
        {"in place", "---\nremind: x # y\nicon: star\n---\nA\n", morning, Repeat::weekly,
         "---\nremind: 2026-11-22T09:30\nicon: star\nrepeat: weekly\n---\nA\n"},
        {"repeat goes",
         "---\nrepeat: daily\nremind: 2026-01-01\n---\nA\n",
         morning,
         {},
         "---\nremind: 2026-11-22T09:30\n---\nA\n"},
        {"CR LF", "A\r\n", morning, Repeat::yearly,
         "---\r\nremind: 2026-11-22T09:30\r\nrepeat: yearly\r\n---\r\nA\r\n"},
        {"frontmatter alone",
         "---\nicon: star\n---",
         morning,
         {},
         "---\nicon: star\nremind: 2026-11-22T09:30\n---\n\n"},
        {"removing leaves others",
         "---\nicon: star\nremind: x\nrepeat: y\n---\nA\n",
         {},
         Repeat::daily,
         "---\nicon: star\n---\nA\n"},
        {"removing the last leaves the body", "---\nremind: x\n---\n\n  # A\n", {}, {}, "\n  # A\n"},
        {"removing a lone repeat", "---\nrepeat: daily\n---\nA\n", {}, {}, "A\n"},
        {"nothing to remove", "---\n...\nA  \r\nB", {}, {}, "---\n...\nA  \r\nB"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(NoteReminder::setting(row.date, row.repeat, row.note, utc), row.expected) << row.name;
    }
    // Setting it again changes nothing, also where the text is a template.
    for (std::string note : {"", "A", "---\nicon: star\n---"}) {
        const auto once = NoteReminder::setting(morning, note, utc);
        EXPECT_EQ(NoteReminder::setting(morning, once, utc), once);
    }
    EXPECT_EQ(NoteReminder::noteTemplate(morning, utc), "---\nremind: 2026-11-22T09:30\n---\n\n");
    EXPECT_EQ(NoteReminder::noteTemplate(morning, utc), NoteReminder::setting(morning, "", utc));
}

TEST(NoteReminderTest, SettingTheDateKeepsTheRepeat) {
    const auto set = [](std::string_view repeat) {
        const auto note = "---\nremind: x\nrepeat:" + std::string(repeat) + "\n---\nA\n";
        return NoteReminder::setting(morning, note, utc);
    };
    EXPECT_EQ(set(" Every Week "), "---\nremind: 2026-11-22T09:30\nrepeat: weekly\n---\nA\n");
    EXPECT_EQ(set(" each full moon"), "---\nremind: 2026-11-22T09:30\nrepeat: each full moon\n---\nA\n");
    EXPECT_EQ(set("\n  - daily"), "---\nremind: 2026-11-22T09:30\nrepeat:\n  - daily\n---\nA\n");
}

TEST(NoteReminderTest, ReadsTheKeysOfANote) {
    const std::string_view note = "---\nremind: 2026-11-22\nrepeat: Annually\npriority: ' URGENT '\n---\nA\n";
    EXPECT_EQ(shown(NoteReminder::reminder(note, utc)), "Sun 2026-11-22 09:00");
    EXPECT_EQ(NoteReminder::repeatRule(note), Repeat::yearly);
    EXPECT_EQ(NoteReminder::rawRule(note), "Annually");
    EXPECT_TRUE(NotePriority::flagged(note));

    const std::string_view other = "---\nremind:\n  2026-11-22 10:00\nrepeat: hourly\npriority: low\n---\n";
    EXPECT_EQ(NoteReminder::reminder(other, utc), std::nullopt);
    EXPECT_EQ(NoteReminder::repeatRule(other), std::nullopt);
    EXPECT_EQ(NoteReminder::rawRule(other), "hourly");
    EXPECT_FALSE(NotePriority::flagged(other));
    EXPECT_EQ(NoteReminder::reminder("remind: 2026-11-22", utc), std::nullopt);
}

TEST(NoteReminderTest, KnowsRepeatsAndFlagsByTheirWords) {
    const std::pair<const char*, std::optional<Repeat>> repeats[] = {
        {"daily", Repeat::daily},
        {"EVERY DAY", Repeat::daily},
        {"everyday", Repeat::daily},
        {"weekdays", Repeat::weekdays},
        {" weekday\n", Repeat::weekdays},
        {"every weekday", Repeat::weekdays},
        {"every week", Repeat::weekly},
        {"monthly", Repeat::monthly},
        {"every month", Repeat::monthly},
        {"every year", Repeat::yearly},
        {"every  day", {}},
        {"month", {}},
        {"", {}},
    };
    for (const auto& [text, expected] : repeats) EXPECT_EQ(NoteReminder::repeatFrom(text), expected) << text;
    for (auto text : {"high", "Highest", " urgent\n"}) EXPECT_TRUE(NotePriority::isFlagged(text)) << text;
    for (auto text : {"", "1", "higher", "medium"}) EXPECT_FALSE(NotePriority::isFlagged(text)) << text;
    EXPECT_FALSE(NotePriority::isFlagged(std::nullopt));

    EXPECT_EQ(NotePriority::setting(true, "A\n"), "---\npriority: high\n---\nA\n");
    EXPECT_EQ(NotePriority::setting(true, "---\npriority: low\nx: 1\n---\nA\n"),
              "---\npriority: high\nx: 1\n---\nA\n");
    EXPECT_EQ(NotePriority::setting(false, "---\npriority: high\n---\nA\n"), "A\n");
    EXPECT_EQ(NotePriority::setting(false, "A"), "A");
}

TEST(NoteReminderTest, ActionsWriteTheNoteOrLeaveIt) {
    using Outcome = NoteReminder::ActionOutcome;
    using NoteReminder::ActionKind;
    const auto write = [](std::string text) { return Outcome{Outcome::Write{std::move(text)}}; };
    const Outcome nothing{Outcome::Nothing{}};
    struct Row {
        const char* name;
        ActionKind kind;
        const char* note;
        Outcome expected;
    };
    const Row rows[] = {
        {"snooze", ActionKind::snooze, "---\nremind: 2026-11-18T08:00\n---\nA\n",
         write("---\nremind: 2026-11-18T13:00\n---\nA\n")},
        {"snooze with an unknown repeat", ActionKind::snooze,
         "---\nremind: 2026-11-18\nrepeat: often\n---\nA\n",
         write("---\nremind: 2026-11-18T13:00\nrepeat: often\n---\nA\n")},
        {"snooze of a repeat", ActionKind::snooze, "---\nremind: 2026-11-18\nrepeat: daily\n---\nA\n",
         Outcome{Outcome::LocalSnooze{at("2026-11-18 13:00:00")}}},
        {"done", ActionKind::done, "---\nremind: 2026-11-18T08:00\nrepeat: often\n---\nA\n", write("A\n")},
        {"done of a repeat", ActionKind::done, "---\nremind: 2026-11-02T08:00\nrepeat: daily\n---\nA\n",
         write("---\nremind: 2026-11-19T08:00\nrepeat: daily\n---\nA\n")},
        {"done ahead of time", ActionKind::done, "---\nremind: 2026-11-30T08:00\nrepeat: weekly\n---\nA\n",
         write("---\nremind: 2026-12-07T08:00\nrepeat: weekly\n---\nA\n")},
        {"monthly on the 31st", ActionKind::done, "---\nremind: 2026-10-31\nrepeat: monthly\n---\nA\n",
         write("---\nremind: 2026-11-28T09:00\nrepeat: monthly\n---\nA\n")},
        {"no key", ActionKind::done, "---\nrepeat: daily\n---\nA\n", nothing},
        {"unreadable", ActionKind::snooze, "---\nremind: soon\n---\nA\n", nothing},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(NoteReminder::applying(row.kind, row.note, wednesdayNoon, utc), row.expected) << row.name;
    }
}

TEST(NoteReminderTest, DescribesWhenItFires) {
    struct Row {
        const char* date;
        std::optional<Repeat> repeat;
        const char* locale;
        const char* expected;
    };
    const Row rows[] = {
        {"2026-11-18 15:00:00", {}, "en_US", "Today at 3:00 PM"},
        {"2026-11-18 08:00:00", {}, "en_GB", "Overdue Today at 08:00"},
        {"2026-11-19 00:00:00", {}, "en_GB", "Tomorrow at 00:00"},
        {"2026-11-20 09:00:00", {}, "en_US", "Friday at 9:00 AM"},
        {"2026-11-24 12:00:00", {}, "de_DE", "Dienstag at 12:00"},
        {"2026-11-24 12:00:30", {}, "en_GB", "24 Nov at 12:00"},
        {"2026-11-17 23:59:00", {}, "en_GB", "Overdue 17 Nov at 23:59"},
        {"2026-12-24 18:00:00", {}, "en_US", "Dec 24 at 6:00 PM"},
        {"2027-03-03 09:00:00", {}, "en_GB", "3 Mar 27 at 09:00"},
        {"2025-03-03 09:00:00", {}, "en_US", "Overdue Mar 3, 25 at 9:00 AM"},
        {"2025-01-31 09:00:00", Repeat::daily, "en_GB", "Every day at 09:00"},
        {"2025-01-31 09:00:00", Repeat::weekdays, "en_GB", "Weekdays at 09:00"},
        {"2025-01-31 09:00:00", Repeat::weekly, "en_US", "Every Friday at 9:00 AM"},
        {"2025-01-31 09:00:00", Repeat::monthly, "en_GB", "Every 28th at 09:00"},
        {"2025-01-03 09:00:00", Repeat::monthly, "de_DE", "Every 3. at 09:00"},
        {"2025-01-31 09:00:00", Repeat::yearly, "en_US", "Every Jan 31 at 9:00 AM"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(NoteReminder::describe(at(row.date), row.repeat, wednesdayNoon, utc, row.locale),
                  row.expected)
            << row.date;
    }
    // The day is that of the calendar's zone: in Berlin it is the 19th already.
    const auto late = at("2026-11-18 23:30:00");
    EXPECT_EQ(NoteReminder::describe(late, wednesdayNoon, berlin, "en_GB"), "Tomorrow at 00:30");

    const auto label = [](Repeat repeat, const char* locale) {
        return NoteReminder::menuLabel(repeat, at("2026-05-31 09:00:00"), utc, locale);
    };
    EXPECT_EQ(label(Repeat::daily, "en_GB"), "Every day");
    EXPECT_EQ(label(Repeat::weekdays, "en_GB"), "Every weekday");
    EXPECT_EQ(label(Repeat::weekly, "de_DE"), "Every Sonntag");
    EXPECT_EQ(label(Repeat::monthly, "en_US"), "Every 28th");
    EXPECT_EQ(label(Repeat::yearly, "en_GB"), "Every 31 May");
}

TEST(NoteReminderTest, SummarisesTheFirstProse) {
    const auto summary = [](std::string_view note) { return NoteReminder::summary(note, 12); };
    EXPECT_EQ(summary("---\nremind: x\n---\n# Title\n\nCall [[mum]] today, she waits\n"), "Call mum tod");
    EXPECT_EQ(summary("Café au lait 👩‍👩‍👧 and more"), "Café au lait");
    EXPECT_EQ(summary("---\nremind: x\n---\n\n# Only a title\n"), "");
}

}  // namespace
}  // namespace vesk::test
