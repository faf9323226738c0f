#include <gtest/gtest.h>

#include "Moments.h"
#include "VeskCore/Reminders/EnglishDateDetector.h"

namespace vesk::test {
namespace {

struct Row {
    const char* text;
    const char* expected;
};

void expectRows(const std::vector<Row>& rows, TimePoint now, const Calendar& calendar = utc) {
    for (const auto& row : rows)
        EXPECT_EQ(shown(EnglishDateDetector().firstDate(row.text, now, calendar), calendar), row.expected)
            << row.text;
}

TEST(EnglishDateDetectorTest, ReadsDays) {
    expectRows(
        {
            {"today", "Wed 2026-11-18 12:00"},
            {"Tomorrow", "Thu 2026-11-19 12:00"},
            {"the day after tomorrow", "Fri 2026-11-20 12:00"},
            {"next week", "Wed 2026-11-25 12:00"},
            {"next month", "Fri 2026-12-18 12:00"},
            {"friday", "Fri 2026-11-20 12:00"},
            {"on tuesday", "Tue 2026-11-24 12:00"},
            {"this Sunday", "Sun 2026-11-22 12:00"},
            {"wednesday", "Wed 2026-11-18 12:00"},
            {"next wednesday", "Wed 2026-11-25 12:00"},
            {"next friday", "Fri 2026-11-20 12:00"},
            {"monday next week", "Mon 2026-11-23 12:00"},
            {"next week on sunday", "Sun 2026-11-22 12:00"},
            {"friday, 4 december", "Fri 2026-12-04 12:00"},
            {"last friday", "none"},
            {"lying in the sun", "none"},
        },
        wednesdayNoon);
    const Row sunday{"next week on sunday", "Sun 2026-11-29 12:00"};
    expectRows({sunday}, wednesdayNoon, berlin);
}

TEST(EnglishDateDetectorTest, ReadsDates) {
    expectRows(
        {
            {"3 march", "Wed 2027-03-03 12:00"},
            {"march 3rd", "Wed 2027-03-03 12:00"},
            {"the 3rd of March, 2028", "Fri 2028-03-03 12:00"},
            {"3 Mar 2027", "Wed 2027-03-03 12:00"},
            {"December 24", "Thu 2026-12-24 12:00"},
            {"Dec 1st, 2026", "Tue 2026-12-01 12:00"},
            {"18 nov", "Wed 2026-11-18 12:00"},
            {"17 nov", "Wed 2027-11-17 12:00"},
            {"29 february", "Tue 2028-02-29 12:00"},
            {"on the 3rd", "Thu 2026-12-03 12:00"},
            {"on the 31st", "Thu 2026-12-31 12:00"},
            {"12/24", "Thu 2026-12-24 12:00"},
            {"24/12", "Thu 2026-12-24 12:00"},
            {"1/2/27", "Sat 2027-01-02 12:00"},
            {"2026-12-01", "Tue 2026-12-01 12:00"},
            {"2020-02-29", "Sat 2020-02-29 12:00"},
            {"2026-12-01T15:30:00", "Tue 2026-12-01 15:30"},
            {"2026-12-01 7:05", "Tue 2026-12-01 07:05"},
            {"3 march 10:30", "Wed 2027-03-03 10:30"},
            {"march 3 at 17", "Wed 2027-03-03 17:00"},
            {"31 february", "none"},
            {"31 april", "none"},
            {"29 february 2027", "none"},
            {"0 march", "none"},
            {"13/13", "none"},
            {"2026-13-01", "none"},
            {"tomorrow or 2026-02-30", "Thu 2026-11-19 12:00"},
            {"march", "none"},
            {"we may march", "none"},
            {"open 24/7", "none"},
            {"1500 march protesters", "none"},
            {"version 1.2-3", "none"},
        },
        wednesdayNoon);
}

TEST(EnglishDateDetectorTest, ReadsTimes) {
    expectRows(
        {
            {"3pm", "Wed 2026-11-18 15:00"},
            {"11 a.m.", "Thu 2026-11-19 11:00"},
            {"15:30", "Wed 2026-11-18 15:30"},
            {"5:30", "Thu 2026-11-19 05:30"},
            {"5:30 pm", "Wed 2026-11-18 17:30"},
            {"3.30pm", "Wed 2026-11-18 15:30"},
            {"at 9", "Thu 2026-11-19 09:00"},
            {"at 5", "Wed 2026-11-18 17:00"},
            {"at five", "Wed 2026-11-18 17:00"},
            {"at 5 in the morning", "Thu 2026-11-19 05:00"},
            {"at 9 in the evening", "Wed 2026-11-18 21:00"},
            {"tonight at 9", "Wed 2026-11-18 21:00"},
            {"tonight at 12", "Thu 2026-11-19 00:00"},
            {"7 o'clock", "Thu 2026-11-19 07:00"},
            {"noon", "Thu 2026-11-19 12:00"},
            {"midnight", "Thu 2026-11-19 00:00"},
            {"today at midnight", "Thu 2026-11-19 00:00"},
            {"friday midnight", "Fri 2026-11-20 00:00"},
            {"half past 8", "Thu 2026-11-19 08:30"},
            {"quarter to 5", "Wed 2026-11-18 16:45"},
            {"a quarter past three", "Wed 2026-11-18 15:15"},
            {"at 10 to 1 pm", "Wed 2026-11-18 12:50"},
            {"ten past seven in the evening", "Wed 2026-11-18 19:10"},
            {"12am", "Thu 2026-11-19 00:00"},
            {"12pm", "Thu 2026-11-19 12:00"},
            {"in the morning", "Thu 2026-11-19 09:00"},
            {"in the afternoon", "Wed 2026-11-18 15:00"},
            {"this evening", "Wed 2026-11-18 18:00"},
            {"tonight", "Wed 2026-11-18 20:00"},
            {"tomorrow night", "Thu 2026-11-19 20:00"},
            {"25:00", "none"},
            {"tomorrow 25:00", "none"},
            {"9:75", "none"},
            {"13pm", "none"},
            {"at 50%", "none"},
            {"at 3rd street", "none"},
            {"read 5 to 10 pages", "none"},
            {"room v3:30", "none"},
            {"12345", "none"},
        },
        wednesdayNoon);
    const Row late{"tonight", "Thu 2026-11-19 00:00"};
    expectRows({late}, at("2026-11-18 23:10:00"));
}

TEST(EnglishDateDetectorTest, ReadsDistances) {
    expectRows(
        {
            {"in two hours", "Wed 2026-11-18 14:00:30"},
            {"in an hour and a half", "Wed 2026-11-18 13:30:30"},
            {"in half an hour", "Wed 2026-11-18 12:30:30"},
            {"in twenty-five minutes", "Wed 2026-11-18 12:25:30"},
            {"in a couple of days", "Fri 2026-11-20 12:00:30"},
            {"a week from now", "Wed 2026-11-25 12:00:30"},
            {"in three weeks at 8:15", "Wed 2026-12-09 08:15"},
            {"twelve months from today", "Thu 2027-11-18 12:00:30"},
            {"in 9999 years", "none"},
            {"two hours of work", "none"},
            {"a week", "none"},
        },
        wednesdayNoon);
}

TEST(EnglishDateDetectorTest, FindsDatesInSentences) {
    expectRows(
        {
            {"call mum tomorrow at 3pm please", "Thu 2026-11-19 15:00"},
            {"At 3pm, call mum about friday's party", "Fri 2026-11-20 15:00"},
            {"dentist (monday) 9:15!", "Mon 2026-11-23 09:15"},
            {"next friday in the afternoon at 4", "Fri 2026-11-20 16:00"},
            {"tomorrow, or friday, or 3 march", "Thu 2026-11-19 12:00"},
            {"pick up 3 parcels on tue, half past ten", "Tue 2026-11-24 10:30"},
            {"Tomorrow’s meeting at 9 o’clock", "Thu 2026-11-19 09:00"},
            {"réunion tomorrow 🎉", "Thu 2026-11-19 12:00"},
            {"tomorrowland", "none"},
            {"sundays are fine", "none"},
            {"", "none"},
        },
        wednesdayNoon);
}

TEST(EnglishDateDetectorTest, ReadsTheClockOfTheZone) {
    // 29 March 2026: 2:30 does not exist in Berlin. 1 November 2026: 1:30 comes twice in New York.
    expectRows({{"tomorrow 2:30", "Sun 2026-03-29 03:30"}, {"tomorrow 3pm", "Sun 2026-03-29 15:00"}},
               at("2026-03-28 12:00:00", berlin), berlin);
    const auto halfPastOne =
        EnglishDateDetector().firstDate("tomorrow 1:30", at("2026-10-31 12:00:00", newYork), newYork);
    EXPECT_EQ(shown(halfPastOne, utc), "Sun 2026-11-01 05:30");
}

}  // namespace
}  // namespace vesk::test
