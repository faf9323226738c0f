#include <gtest/gtest.h>

#include "Moments.h"
#include "VeskCore/Reminders/EnglishDateDetector.h"
#include "VeskCore/Reminders/NoteReminder.h"

namespace vesk::test {
namespace {

using NoteReminder::PhraseIntent;

const EnglishDateDetector detector;

/// Answers with one date, whatever the text.
struct FixedDetector final : DateDetector {
    explicit FixedDetector(std::optional<TimePoint> date) : answer(date) {}
    std::optional<TimePoint> firstDate(std::string_view, TimePoint, const Calendar&) const override {
        return answer;
    }
    std::optional<TimePoint> answer;
};

TEST(ReminderPhraseTest, ReadsPhrases) {
    struct Row {
        const char* phrase;
        const char* expected;
        TimePoint now = wednesdayNoon;
    };
    const auto mondayEvening = at("2026-11-16 19:00:00");
    const Row rows[] = {
        {"in 5 min", "Wed 2026-11-18 12:06"},
        {"in 5 min", "Wed 2026-11-18 12:05", at("2026-11-18 12:00:00")},
        {" IN 2 H\n", "Wed 2026-11-18 14:01"},
        {"in 2hr", "Wed 2026-11-18 14:01"},
        {"in\t3 days", "Sat 2026-11-21 12:01"},
        {"in 2 weeks", "Wed 2026-12-02 12:01"},
        {"in 0 min", "Wed 2026-11-18 12:01"},
        {"in 0 min", "none", at("2026-11-18 12:00:00")},
        {"in 99999999999999999999 days", "none"},
        {"in 99999999 weeks", "none"},
        {"in 99999999 minutes", "Sun 2217-01-05 22:40"},
        {"tomorrow 3pm", "Thu 2026-11-19 15:00"},
        {"tomorrow", "Thu 2026-11-19 09:00"},
        {"tomorrow evening", "Thu 2026-11-19 18:00"},
        {"monday", "Mon 2026-11-23 09:00", mondayEvening},
        {"monday 20:00", "Mon 2026-11-16 20:00", mondayEvening},
        {"3 march", "Wed 2027-03-03 09:00"},
        {"18 november", "Thu 2027-11-18 09:00"},
        {"18 november at 13", "Wed 2026-11-18 13:00"},
        {"18 november 2026", "none"},
        {"3 march 2025", "none"},
        {"1 june 2027", "Tue 2027-06-01 09:00"},
        {"stop the car tomorrow", "Thu 2026-11-19 09:00"},
        {"clear the desk at 3pm", "Wed 2026-11-18 15:00"},
        {"buy milk", "none"},
        {"", "none"},
        {" \n", "none"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(shown(NoteReminder::parse(row.phrase, row.now, utc, detector)), row.expected) << row.phrase;
        const auto intent = NoteReminder::parseIntent(row.phrase, row.now, utc, detector);
        EXPECT_EQ(std::holds_alternative<PhraseIntent::Set>(intent.value),
                  row.expected != std::string_view("none"));
    }
}

TEST(ReminderPhraseTest, CountsHoursByElapsedTimeAndDaysByTheClock) {
    // On 25 October 2026 the clock in Berlin goes back from 3 to 2.
    const auto now = at("2026-10-24 12:00:00", berlin);
    EXPECT_EQ(shown(NoteReminder::parse("in 1 day", now, berlin, detector), berlin), "Sun 2026-10-25 12:00");
    EXPECT_EQ(shown(NoteReminder::parse("in 24 hours", now, berlin, detector), berlin),
              "Sun 2026-10-25 11:00");
}

TEST(ReminderPhraseTest, MovesADetectedDateForwardByWhatTheTextSays) {
    struct Row {
        const char* text;
        const char* detected;
        const char* expected;
    };
    const Row rows[] = {
        {"no time said", "2026-11-20 12:00:00", "Fri 2026-11-20 09:00"},
        {"Tonight", "2026-11-18 20:15:00", "Wed 2026-11-18 20:15"},
        {"MIDNIGHT", "2026-11-19 00:00:00", "Thu 2026-11-19 00:00"},
        {"7 PM", "2026-11-18 19:00:00", "Wed 2026-11-18 19:00"},
        {"13:45", "2026-11-18 13:45:00", "Wed 2026-11-18 13:45"},
        {"at 14", "2026-11-18 14:00:00", "Wed 2026-11-18 14:00"},
        {"flat 14", "2026-11-18 14:00:00", "Thu 2027-11-18 09:00"},
        {"last tue at 9", "2026-11-10 09:00:00", "none"},
        {"tue at 9", "2026-11-17 09:00:00", "Tue 2026-11-24 09:00"},
        {"tues at 9", "2026-11-17 09:00:00", "Wed 2027-11-17 09:00"},
        {"at 9 in 2026", "2026-11-17 09:00:00", "none"},
        {"at 9 in 20266", "2026-11-17 09:00:00", "Wed 2027-11-17 09:00"},
        {"at 9", "2024-11-17 09:00:00", "none"},
        {"29 february, at 9", "2024-02-29 09:00:00", "none"},
    };
    for (const auto& row : rows) {
        const FixedDetector fixed(at(row.detected));
        EXPECT_EQ(shown(NoteReminder::parse(row.text, wednesdayNoon, utc, fixed)), row.expected) << row.text;
    }
    // The date of now itself is past.
    EXPECT_EQ(NoteReminder::parse("at 12:00 in 2026", wednesdayNoon, utc, FixedDetector(wednesdayNoon)),
              std::nullopt);
}

TEST(ReminderPhraseTest, TellsRemovalFromTimes) {
    const PhraseIntent remove{PhraseIntent::Plain::remove}, unknown{PhraseIntent::Plain::unknown};
    for (auto text : {"none", "Off!", "never.", "No reminders", "no-reminder", "remove reminder",
                      "Cancel the REMINDER", "stop", "clear all reminders", "delete, remind"}) {
        EXPECT_EQ(NoteReminder::parseIntent(text, wednesdayNoon, utc, detector), remove) << text;
    }
    for (auto text : {"", "!", "no", "none of it", "stop it", "remove redemption", "please remove reminder",
                      "stöp", "offline"}) {
        EXPECT_EQ(NoteReminder::parseIntent(text, wednesdayNoon, utc, detector), unknown) << text;
    }
}

TEST(ReminderPhraseTest, OffersPicksInOrder) {
    struct Row {
        const char* name;
        const char* now;
        std::vector<std::string> expected;
    };
    const Row rows[] = {
        {"a morning",
         "2026-11-18 08:20:00",
         {"Later today: Wed 2026-11-18 12:00", "This evening: Wed 2026-11-18 18:00",
          "Tomorrow morning: Thu 2026-11-19 09:00", "Next Monday: Mon 2026-11-23 09:00",
          "In a week: Wed 2026-11-25 09:00"}},
        {"on the hour",
         "2026-11-18 13:00:00",
         {"Later today: Wed 2026-11-18 16:00", "This evening: Wed 2026-11-18 18:00",
          "Tomorrow morning: Thu 2026-11-19 09:00", "Next Monday: Mon 2026-11-23 09:00",
          "In a week: Wed 2026-11-25 09:00"}},
        {"an evening that comes before",
         "2026-11-18 15:00:01",
         {"Later today: Wed 2026-11-18 19:00", "Tomorrow morning: Thu 2026-11-19 09:00",
          "Next Monday: Mon 2026-11-23 09:00", "In a week: Wed 2026-11-25 09:00"}},
        {"a Sunday night",
         "2026-11-22 18:00:00",
         {"Tomorrow morning: Mon 2026-11-23 09:00", "In a week: Sun 2026-11-29 09:00"}},
        {"a Monday before nine",
         "2026-11-23 08:59:00",
         {"Later today: Mon 2026-11-23 12:00", "This evening: Mon 2026-11-23 18:00",
          "Tomorrow morning: Tue 2026-11-24 09:00", "In a week: Mon 2026-11-30 09:00"}},
        {"a Monday evening",
         "2026-11-23 17:00:00",
         {"Later today: Mon 2026-11-23 20:00", "Tomorrow morning: Tue 2026-11-24 09:00",
          "Next Monday: Mon 2026-11-30 09:00"}},
    };
    for (const auto& row : rows) {
        std::vector<std::string> picks;
        for (const auto& pick : NoteReminder::quickPicks(at(row.now, berlin), berlin))
            picks.push_back(pick.label + ": " + shown(pick.date, berlin));
        EXPECT_EQ(picks, row.expected) << row.name;
    }
}

TEST(ReminderPhraseTest, SnoozesToAWholeMinute) {
    EXPECT_EQ(shown(NoteReminder::snoozed(wednesdayNoon + std::chrono::milliseconds(250), 10, utc)),
              "Wed 2026-11-18 12:10");
}

TEST(ReminderPhraseTest, HostileTextTakesLinearTime) {
    const std::string pieces[] = {"in 1 ", "1",  " ",      "at ",      "a ",
                                  "12/",   "1:", "march ", "friday, ", "sun the "};
    for (const auto& piece : pieces) {
        std::string text = "in ";
        while (text.size() < 300'000) text += piece;
        NoteReminder::parseIntent(text + "x", wednesdayNoon, utc, detector);
    }
}

}  // namespace
}  // namespace vesk::test
