#include <gtest/gtest.h>

#include <limits>
#include <thread>
#include <vector>

#include "VeskCore/Support/Time.h"

namespace vesk {
namespace {

TimePoint at(std::int64_t seconds, std::int64_t micros = 0) {
    return TimePoint(std::chrono::seconds(seconds) + std::chrono::microseconds(micros));
}

const Calendar kUtc, kBerlin{.timeZone = "Europe/Berlin"}, kNewYork{.timeZone = "America/New_York"};

TEST(TimeTest, SecondsComeBackToTheMicrosecond) {
    for (std::int64_t seconds :
         {-7'600'000'000LL, -1LL, 0LL, 1'750'000'000LL, 7'258'118'400LL, 8'589'934'590LL}) {
        for (std::int64_t micros : {0, 1, 333'333, 499'999, 500'001, 999'999}) {
            auto time = at(seconds, micros);
            EXPECT_EQ(timeFromSecondsSince1970(secondsSince1970(time)), time) << seconds << " " << micros;
            EXPECT_EQ(timeFromSecondsSince2001(secondsSince2001(time)), time) << seconds << " " << micros;
        }
    }
    // Years in which a double has milliseconds left.
    for (auto time : {distantPast() + std::chrono::milliseconds(123), at(253'402'300'799, 999'000)}) {
        EXPECT_EQ(
            std::chrono::round<std::chrono::milliseconds>(timeFromSecondsSince1970(secondsSince1970(time))),
            std::chrono::round<std::chrono::milliseconds>(time));
    }
    EXPECT_EQ(secondsSince1970(at(1'750'000'000, 250'000)), 1'750'000'000.25);
    EXPECT_EQ(secondsSince1970(distantPast()), -62'135'596'800.0);
    EXPECT_EQ(secondsSince2001(at(978'307'200, 500'000)), 0.5);
    EXPECT_EQ(timeFromSecondsSince2001(-0.25), at(978'307'199, 750'000));
}

TEST(TimeTest, SecondsOutsideEveryCalendarDoNotOverflow) {
    constexpr double kInfinity = std::numeric_limits<double>::infinity();
    EXPECT_EQ(timeFromSecondsSince1970(std::numeric_limits<double>::quiet_NaN()), distantPast());
    EXPECT_EQ(timeFromSecondsSince2001(std::numeric_limits<double>::quiet_NaN()), distantPast());
    EXPECT_LT(timeFromSecondsSince1970(-kInfinity), distantPast());
    EXPECT_LT(timeFromSecondsSince2001(-1e300), distantPast());
    EXPECT_GT(timeFromSecondsSince1970(1e300), at(253'402'300'799));
    EXPECT_GT(timeFromSecondsSince2001(kInfinity), at(253'402'300'799));
}

TEST(TimeTest, ComponentsAndDatesAgree) {
    struct Row {
        const char* name;
        std::int64_t seconds;
        Calendar calendar;
        DateComponents expected;
    };
    const Row rows[] = {
        {"first moment", -62'135'596'800, kUtc, {1, 1, 1, 0, 0, 0, 2}},
        {"last second", 253'402'300'799, kUtc, {9999, 12, 31, 23, 59, 59, 6}},
        {"before 1970", -1, kUtc, {1969, 12, 31, 23, 59, 59, 4}},
        {"no Julian calendar before 1582", -12'219'724'800, kUtc, {1582, 10, 10, 0, 0, 0, 1}},
        {"1900 is no leap year", -2'203'891'200, kUtc, {1900, 3, 1, 0, 0, 0, 5}},
        {"leap day", 1'709'210'096, kUtc, {2024, 2, 29, 12, 34, 56, 5}},
        {"last second of winter", 1'774'745'999, kBerlin, {2026, 3, 29, 1, 59, 59, 1}},
        {"first second of summer", 1'774'746'000, kBerlin, {2026, 3, 29, 3, 0, 0, 1}},
        {"summer in New York", 1'772'953'200, kNewYork, {2026, 3, 8, 3, 0, 0, 1}},
        {"a zone nobody knows is UTC",
         1'709'210'096,
         {.timeZone = "Nowhere/Atlantis"},
         {2024, 2, 29, 12, 34, 56, 5}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(components(at(row.seconds, 999'999), row.calendar), row.expected);
        EXPECT_EQ(date(row.expected, row.calendar), at(row.seconds));
    }
}

TEST(TimeTest, DatesThatAClockShowsNeverOrTwiceAreSettled) {
    struct Row {
        const char* name;
        DateComponents components;
        Calendar calendar;
        std::int64_t expected;
    };
    const Row rows[] = {
        {"gap in Berlin", {2026, 3, 29, 2, 30, 0}, kBerlin, 1'774'747'800},
        {"gap in New York", {2026, 3, 8, 2, 30, 0}, kNewYork, 1'772'955'000},
        {"overlap in Berlin", {2026, 10, 25, 2, 30, 0}, kBerlin, 1'792'888'200},
        {"overlap in New York", {2026, 11, 1, 1, 30, 0}, kNewYork, 1'793'511'000},
        {"31 April", {2026, 4, 31, 0, 0, 0}, kUtc, 1'777'593'600},
        {"29 February of a common year", {2026, 2, 29, 0, 0, 0}, kUtc, 1'772'323'200},
        {"month 13", {2025, 13, 1, 0, 0, 0}, kUtc, 1'767'225'600},
        {"minute 90", {1970, 1, 1, 0, 90, 0}, kUtc, 5'400},
    };
    for (const auto& row : rows) EXPECT_EQ(date(row.components, row.calendar), at(row.expected)) << row.name;
}

TEST(TimeTest, ADayStartsWithItsFirstMoment) {
    EXPECT_EQ(startOfDay(at(1'783'063'800, 5), kBerlin), at(1'783'029'600));
    EXPECT_EQ(startOfDay(at(1'783'029'600), kBerlin), at(1'783'029'600));
    // The clock goes from 23:59 to 01:00, and from 00:59 back to 00:00.
    EXPECT_EQ(startOfDay(at(1'541'340'000), {.timeZone = "America/Sao_Paulo"}), at(1'541'300'400));
    EXPECT_EQ(startOfDay(at(1'793'509'200 + 60), {.timeZone = "America/Havana"}), at(1'793'505'600));
}

TEST(TimeTest, AddingKeepsTheTimeOfDayForDaysAndAbove) {
    struct Row {
        const char* name;
        DateComponents from;
        int amount;
        CalendarUnit unit;
        DateComponents expected;
    };
    const Row rows[] = {
        {"31 January + 1 month", {2026, 1, 31, 9, 0, 0}, 1, CalendarUnit::month, {2026, 2, 28, 9, 0, 0, 7}},
        {"in a leap year", {2024, 1, 31, 9, 0, 0}, 1, CalendarUnit::month, {2024, 2, 29, 9, 0, 0, 5}},
        {"back over the year", {2026, 1, 31, 9, 0, 0}, -2, CalendarUnit::month, {2025, 11, 30, 9, 0, 0, 1}},
        {"leap day + 1 year", {2024, 2, 29, 9, 0, 0}, 1, CalendarUnit::year, {2025, 2, 28, 9, 0, 0, 6}},
        {"a day over the change", {2026, 3, 28, 9, 0, 0}, 1, CalendarUnit::day, {2026, 3, 29, 9, 0, 0, 1}},
        {"a week over the change",
         {2026, 10, 21, 9, 0, 0},
         1,
         CalendarUnit::week,
         {2026, 10, 28, 9, 0, 0, 4}},
        {"a day into the gap", {2026, 3, 28, 2, 30, 0}, 1, CalendarUnit::day, {2026, 3, 29, 3, 30, 0, 1}},
        {"hours are elapsed", {2026, 3, 29, 1, 0, 0}, 24, CalendarUnit::hour, {2026, 3, 30, 2, 0, 0, 2}},
        {"back before 1970", {1970, 1, 1, 0, 0, 0}, -90, CalendarUnit::minute, {1969, 12, 31, 22, 30, 0, 4}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        auto from = date(row.from, kBerlin) + std::chrono::microseconds(123'456);
        auto moved = adding(row.amount, row.unit, from, kBerlin);
        EXPECT_EQ(components(moved, kBerlin), row.expected);
        EXPECT_EQ(moved - std::chrono::floor<std::chrono::seconds>(moved),
                  std::chrono::microseconds(123'456));
    }
}

TEST(TimeTest, ASleepEndsWithItsStop) {
    SystemClock clock;
    EXPECT_TRUE(clock.sleep(std::chrono::microseconds(1), {}));
    std::stop_source stop;
    bool slept = true;
    std::thread sleeper([&] { slept = clock.sleep(Duration::max(), stop.get_token()); });
    stop.request_stop();
    sleeper.join();
    EXPECT_FALSE(slept);
    EXPECT_FALSE(clock.sleep(Duration::max(), stop.get_token()));
}

}  // namespace
}  // namespace vesk
