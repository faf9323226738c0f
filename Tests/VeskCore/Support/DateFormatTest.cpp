#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "VeskCore/Support/DateFormat.h"

namespace vesk {
namespace {

TimePoint at(std::int64_t seconds, std::int64_t micros = 0) {
    return TimePoint(std::chrono::seconds(seconds) + std::chrono::microseconds(micros));
}

TEST(DateFormatTest, WritesAndReadsFixedForms) {
    struct Row {
        const char* pattern;
        const char* zone;
        std::int64_t seconds;
        const char* text;
    };
    const Row rows[] = {
        {"yyyy-MM-dd", "UTC", 1'709'164'800, "2024-02-29"},
        {"yyyy-MM-dd", "Europe/Berlin", 1'783'029'600, "2026-07-03"},
        {"yyyy-MM-dd", "UTC", -62'135'596'800, "0001-01-01"},
        {"yyyy-MM-dd", "UTC", -12'219'724'800, "1582-10-10"},
        {"yyyy-MM-dd'T'HH:mm:ss", "UTC", 253'402'300'799, "9999-12-31T23:59:59"},
        {"yyyy-MM-dd'T'HH:mm:ss", "America/New_York", 1'793'511'000, "2026-11-01T01:30:00"},
        {"yyyy-MM-dd-HHmmss", "UTC", 1'783'071'000, "2026-07-03-093000"},
        {"yyyy-MM-dd HH:mm:ss ZZZZZ", "Europe/Berlin", 1'783'063'800, "2026-07-03 09:30:00 +02:00"},
        {"yyyy-MM-dd HH:mm:ss ZZZZZ", "UTC", 1'783'071'000, "2026-07-03 09:30:00 Z"},
        {"EEEE, d MMMM yyyy", "UTC", 1'783'036'800, "Friday, 3 July 2026"},
        {"h:mm a, MMM d, yyyy", "UTC", 1'783'071'000, "9:30 AM, Jul 3, 2026"},
        {"dd.MM.yyyy 'o''clock' HH", "UTC", 1'783'069'200, "03.07.2026 o'clock 09"},
        {"HH:mm", "UTC", 34'200, "09:30"},
        {"yyyy年MM月dd日", "UTC", 1'783'036'800, "2026年07月03日"},
        {"yyyy-MM-dd (MM)", "UTC", 1'783'036'800, "2026-07-03 (07)"},
        {"yyyy年M月d日", "UTC", 1'783'036'800, "2026年7月3日"},
        {"yyyy/MM/dd", "America/Sao_Paulo", 1'541'300'400, "2018/11/04"},  // a day without a midnight
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        DateFormat format(row.pattern, row.zone);
        EXPECT_EQ(format.format(at(row.seconds, 999'999)), row.text);
        EXPECT_EQ(format.parse(row.text), at(row.seconds));
    }
}

TEST(DateFormatTest, RefusesWhatIsNotExactlyTheForm) {
    const DateFormat day("yyyy-MM-dd", "Europe/Berlin"), time("yyyy-MM-dd'T'HH:mm:ss", "Europe/Berlin");
    for (const char* text : {"",
                             " ",
                             "2024-2-3",
                             "2024-02-30",
                             "2023-02-29",
                             "2024-13-01",
                             "2024-00-10",
                             "2024-01-00",
                             "24-02-03",
                             "2024-02-03 ",
                             " 2024-02-03",
                             "2024-02-03x",
                             "x2024-02-03",
                             "2024-02",
                             "2024-02-03T00:00:00",
                             "+2024-02-03",
                             "-2024-02-03",
                             "02024-02-03",
                             "12024-02-03",
                             "0000-01-01",
                             "2024/02/03",
                             "20240203",
                             "2024-02- 3",
                             "2024 - 02 - 03",
                             "٢٠٢٤-٠٢-٠٣",
                             "２０２４-０２-０３",
                             "2024-02-031",
                             "2024-Feb-03"}) {
        EXPECT_EQ(day.parse(text), std::nullopt) << text;
    }
    for (const char* text :
         {"2024-02-03T24:00:00", "2024-02-03T12:60:00", "2024-02-03T12:00:60", "2024-02-03T1:00:00",
          "2024-02-03 12:00:00", "2024-02-03T12:00:00Z", "2024-02-03T12:00", "2024-02-03"}) {
        EXPECT_EQ(time.parse(text), std::nullopt) << text;
    }
    EXPECT_EQ(day.parse(std::string(2'000'000, '1')), std::nullopt);
    EXPECT_EQ(day.parse(std::string("2024-02-03\0", 11)), std::nullopt);
    EXPECT_EQ(day.parse("2024-02-\xFF"), std::nullopt);
    EXPECT_EQ(DateFormat("yyyy-MM-dd (MM)", "UTC").parse("2026-07-03 (08)"), std::nullopt);
    EXPECT_EQ(DateFormat("d.M.yyyy", "UTC").parse("30.2.2024"), std::nullopt);
    EXPECT_EQ(DateFormat("d.M.yyyy", "UTC").parse("03.07.2026"), std::nullopt);
    EXPECT_EQ(DateFormat("EEEE, d MMMM yyyy", "UTC").parse("Monday, 3 July 2026"), std::nullopt);
    EXPECT_EQ(DateFormat("yyyy-MM-dd ZZZZZ", "UTC").parse("2024-02-30 Z"), std::nullopt);
}

TEST(DateFormatTest, NamesAreReadInAnyCase) {
    DateFormat format("MMM d, yyyy", "UTC");
    EXPECT_EQ(format.parse("jul 3, 2026"), at(1'783'036'800));
    EXPECT_EQ(format.parse("JUL 3, 2026"), at(1'783'036'800));
}

TEST(DateFormatTest, ATimeThatTheClockSkipsOrRepeatsIsRead) {
    DateFormat digits("yyyy-MM-dd'T'HH:mm:ss", "Europe/Berlin"), names("d MMM yyyy H:mm", "Europe/Berlin");
    EXPECT_EQ(digits.parse("2026-03-29T02:30:00"), at(1'774'747'800));
    EXPECT_EQ(names.parse("29 Mar 2026 2:30"), at(1'774'747'800));
    EXPECT_EQ(digits.parse("2026-10-25T02:30:00"), at(1'792'888'200));
    EXPECT_EQ(names.parse("25 Oct 2026 2:30"), at(1'792'888'200));
}

TEST(DateFormatTest, AnyPatternThatAUserTypesIsHarmless) {
    for (const char* pattern :
         {"", "'", "yyyy'", "''", "qwertzuiopasdfghjklyxcvbnm", "{{date}}", "YYYY-DD", "\xFF\xFE", "jjjj",
          "%Y-%m-%d", "yyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyy", "dd.MM'"}) {
        DateFormat format(pattern, "UTC");
        auto text = format.format(at(1'783'071'000));
        format.parse(text);
        EXPECT_EQ(format.parse("2026-02-30"), std::nullopt) << pattern;
    }
}

TEST(DateFormatTest, OneFormatServesManyThreads) {
    const DateFormat format("yyyy-MM-dd'T'HH:mm:ss", "Europe/Berlin");
    std::vector<std::thread> threads;
    std::vector<int> wrong(4);
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 500; ++i) {
                auto time = at(1'700'000'000 + (t * 500 + i) * 86'400LL);
                if (format.parse(format.format(time)) != time) ++wrong[static_cast<std::size_t>(t)];
            }
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(wrong, std::vector<int>(4, 0));
}

TEST(DateFormatTest, Iso8601IsInUtcWithMilliseconds) {
    EXPECT_EQ(iso8601(at(1'783'071'000)), "2026-07-03T09:30:00.000Z");
    EXPECT_EQ(iso8601(at(-1, 999'999)), "1969-12-31T23:59:59.999Z");
    EXPECT_EQ(iso8601(distantPast()), "0001-01-01T00:00:00.000Z");
    EXPECT_EQ(iso8601(at(253'402'300'799, 1'000)), "9999-12-31T23:59:59.001Z");

    struct Row {
        const char* text;
        std::optional<TimePoint> expected;
    };
    const Row rows[] = {
        {"2026-07-03T09:30:00.000Z", at(1'783'071'000)},
        {"2026-07-03T09:30:00Z", at(1'783'071'000)},
        {"2026-07-03T09:30:00.123456789Z", at(1'783'071'000, 123'456)},
        {"2026-07-03T11:30:00+02:00", at(1'783'071'000)},
        {"2026-07-03T04:00:00.5-0530", at(1'783'071'000, 500'000)},
        {"0001-01-01T00:00:00Z", distantPast()},
        {"2024-02-29T00:00:00Z", at(1'709'164'800)},
        {"2023-02-29T00:00:00Z", {}},
        {"2026-07-03T24:00:00Z", {}},
        {"2026-07-03T09:30:60Z", {}},
        {"2026-07-03T09:30:00", {}},
        {"2026-07-03T09:30:00.Z", {}},
        {"2026-07-03T09:30:00+2:00", {}},
        {"2026-07-03T09:30:00+24:00", {}},
        {"2026-07-03T09:30:00Z ", {}},
        {"2026-07-03 09:30:00Z", {}},
        {"26-07-03T09:30:00Z", {}},
        {"2026-7-3T9:30:00Z", {}},
        {"2026-07-03T09:30", {}},
        {"2026-07-03", {}},
        {"", {}},
    };
    for (const auto& row : rows) EXPECT_EQ(parseIso8601(row.text), row.expected) << row.text;
}

TEST(DateFormatTest, TheUsersFormFollowsTheLocale) {
    auto time = at(1'783'071'000);
    EXPECT_EQ(mediumDateShortTime(time, "Europe/Berlin", "de_DE"), "03.07.2026, 11:30");
    EXPECT_EQ(mediumDateShortTime(time, "UTC", "en_GB.UTF-8"), "3 Jul 2026, 09:30");
}

}  // namespace
}  // namespace vesk
