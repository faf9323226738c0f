// Points in time, the clock seam and the user's calendar.
#pragma once

#include <chrono>
#include <stop_token>
#include <string>

namespace vesk {

/// Microseconds since 1970: reaches every year that a note may name. (Nanoseconds end in 1677 and 2262.)
using TimePoint = std::chrono::time_point<std::chrono::system_clock, std::chrono::microseconds>;
using Duration = std::chrono::microseconds;
using Seconds = std::chrono::duration<double>;

/// What a missing date counts as: 0001-01-01T00:00:00Z, before every real one.
TimePoint distantPast();

/// Seconds since 1970-01-01T00:00:00Z, to the microsecond. The form of every time in SQLite. There and back
/// gives the same time from 1697 to 2242; a double has no room for microseconds outside (milliseconds last to
/// 9999).
double secondsSince1970(TimePoint time);
TimePoint timeFromSecondsSince1970(double seconds);
/// Seconds since 2001-01-01T00:00:00Z: the form of dates in the JSON files that the application keeps.
double secondsSince2001(TimePoint time);
TimePoint timeFromSecondsSince2001(double seconds);

/// Where the present comes from. Safe on any thread.
class Clock {
public:
    virtual ~Clock() = default;
    /// The wall clock: may jump.
    virtual TimePoint now() const = 0;
    /// Time since some fixed moment: never goes back.
    virtual Duration monotonic() const = 0;
    /// Blocks the calling worker for `duration` or until `stop` is requested; false if stopped. Never on the
    /// main thread.
    virtual bool sleep(Duration duration, std::stop_token stop) = 0;
};

/// The operating system's clocks.
class SystemClock final : public Clock {
public:
    TimePoint now() const override;
    Duration monotonic() const override;
    bool sleep(Duration duration, std::stop_token stop) override;
};

/// A Gregorian calendar at a place: IANA time zone name and the week's first day (1 Sunday … 7 Saturday).
struct Calendar {
    std::string timeZone = "UTC";
    int firstWeekday = 1;
    bool operator==(const Calendar&) const = default;

    /// The zone of this machine and the locale's week. Read once by a program's main.
    static Calendar system();
};

/// A date and time of day in a calendar.
struct DateComponents {
    int year = 1970, month = 1, day = 1;  ///< month 1 to 12
    int hour = 0, minute = 0, second = 0;
    int weekday = 5;  ///< 1 Sunday … 7 Saturday; ignored when a date is made from components
    bool operator==(const DateComponents&) const = default;
};

DateComponents components(TimePoint time, const Calendar& calendar);
/// The moment of a date and time; a time in the gap of a clock change moves on by the gap, one that comes
/// twice is the first. Values out of range roll over (day 31 of April is 1 May).
TimePoint date(const DateComponents& components, const Calendar& calendar);
/// The same, but for a time in the gap the first moment behind it.
TimePoint dateOrNextExisting(const DateComponents& components, const Calendar& calendar);
/// The first moment of the day: later than 00:00 where a clock change takes midnight away.
TimePoint startOfDay(TimePoint time, const Calendar& calendar);
enum class CalendarUnit { second, minute, hour, day, week, month, year };
/// Wall-clock arithmetic for days and above (31 January + 1 month is 28 or 29 February; the time of day is
/// kept), elapsed time for hours and below.
TimePoint adding(int amount, CalendarUnit unit, TimePoint time, const Calendar& calendar);

}  // namespace vesk
