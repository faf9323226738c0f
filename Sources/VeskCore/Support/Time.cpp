#include "VeskCore/Support/Time.h"

#include <unicode/gregocal.h>

#include <cmath>
#include <condition_variable>
#include <cstdlib>
#include <limits>
#include <memory>
#include <mutex>

#include "VeskCore/Support/DateFormat.h"
#include "VeskCore/Support/Ensure.h"

namespace vesk {

namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;

constexpr std::int64_t kSecondsFrom1970To2001 = 978'307'200;

TimePoint timeFromSeconds(double seconds) {
    // The range is that of TimePoint; not a number counts as missing.
    constexpr double kLimit = 9.2e12;
    if (std::isnan(seconds)) return distantPast();
    double bounded = std::fmin(std::fmax(seconds, -kLimit), kLimit);
    double whole = std::floor(bounded);
    // Apart from the whole seconds, so that the product does not round away what the fraction holds.
    auto fraction = static_cast<std::int64_t>(std::llround((bounded - whole) * 1e6));
    return TimePoint(microseconds(static_cast<std::int64_t>(whole) * 1'000'000 + fraction));
}

double secondsOf(std::int64_t micros) {
    // One division of two exact numbers rounds once.
    constexpr std::int64_t kExact = std::int64_t{1} << 53;
    if (micros > -kExact && micros < kExact) return static_cast<double>(micros) / 1e6;
    std::int64_t whole = micros / 1'000'000;
    return static_cast<double>(whole) + static_cast<double>(micros - whole * 1'000'000) / 1e6;
}

/// A calendar set to a zone. Made once per thread for as long as the zone stays the same: making one reads
/// the zone's rules, which takes longer than the arithmetic.
icu::GregorianCalendar& gregorian(const Calendar& calendar) {
    thread_local std::string zone;
    thread_local std::unique_ptr<icu::GregorianCalendar> kept;
    if (!kept || zone != calendar.timeZone) {
        UErrorCode status = U_ZERO_ERROR;
        auto id = icu::UnicodeString::fromUTF8(calendar.timeZone);
        kept = std::make_unique<icu::GregorianCalendar>(icu::TimeZone::createTimeZone(id),
                                                        icu::Locale("en_US_POSIX"), status);
        VESK_ENSURE(U_SUCCESS(status));
        kept->setGregorianChange(-std::numeric_limits<double>::max(), status);
        VESK_ENSURE(U_SUCCESS(status));
        kept->setLenient(true);
        kept->setSkippedWallTimeOption(UCAL_WALLTIME_LAST);
        kept->setRepeatedWallTimeOption(UCAL_WALLTIME_FIRST);
        zone = calendar.timeZone;
    }
    return *kept;
}

/// The whole milliseconds that ICU counts in, and what is left.
struct Split {
    double millis;
    microseconds rest;
};

Split split(TimePoint time) {
    auto millis = std::chrono::floor<milliseconds>(time);
    return {static_cast<double>(millis.time_since_epoch().count()), time - millis};
}

TimePoint joined(double millis, microseconds rest = {}) {
    constexpr double kLimit = 9.2e15;
    double bounded = std::fmin(std::fmax(millis, -kLimit), kLimit);
    return TimePoint(milliseconds(static_cast<std::int64_t>(std::floor(bounded)))) + rest;
}

}  // namespace

TimePoint distantPast() {
    return TimePoint(std::chrono::seconds(-62'135'596'800));
}

double secondsSince1970(TimePoint time) {
    return secondsOf(time.time_since_epoch().count());
}

TimePoint timeFromSecondsSince1970(double seconds) {
    return timeFromSeconds(seconds);
}

double secondsSince2001(TimePoint time) {
    return secondsOf(time.time_since_epoch().count() - kSecondsFrom1970To2001 * 1'000'000);
}

TimePoint timeFromSecondsSince2001(double seconds) {
    if (std::isnan(seconds)) return distantPast();
    return timeFromSeconds(seconds) + std::chrono::seconds(kSecondsFrom1970To2001);
}

TimePoint SystemClock::now() const {
    return std::chrono::floor<microseconds>(std::chrono::system_clock::now());
}

Duration SystemClock::monotonic() const {
    return std::chrono::floor<microseconds>(std::chrono::steady_clock::now().time_since_epoch());
}

bool SystemClock::sleep(Duration duration, std::stop_token stop) {
    // Longer waits would overflow the wait's deadline.
    constexpr Duration kLongest = std::chrono::hours(24 * 365 * 100);
    std::mutex lock;
    std::condition_variable_any stopped;
    std::unique_lock held(lock);
    stopped.wait_for(held, stop, std::min(duration, kLongest), [] { return false; });
    return !stop.stop_requested();
}

Calendar Calendar::system() {
    const char* name = nullptr;
    for (const char* variable : {"LC_ALL", "LC_TIME", "LANG"}) {
        name = std::getenv(variable);
        if (name && *name) break;
    }
    icu::Locale locale = name && *name ? icu::Locale::createCanonical(name) : icu::Locale::getDefault();
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::Calendar> week(icu::Calendar::createInstance(locale, status));
    int first = 1;
    if (U_SUCCESS(status)) {
        auto day = week->getFirstDayOfWeek(status);
        if (U_SUCCESS(status)) first = static_cast<int>(day);
    }
    return {.timeZone = deviceTimeZone(), .firstWeekday = first};
}

DateComponents components(TimePoint time, const Calendar& calendar) {
    auto& gregorianCalendar = gregorian(calendar);
    UErrorCode status = U_ZERO_ERROR;
    gregorianCalendar.setTime(split(time).millis, status);
    DateComponents result{
        .year = gregorianCalendar.get(UCAL_EXTENDED_YEAR, status),
        .month = gregorianCalendar.get(UCAL_MONTH, status) + 1,
        .day = gregorianCalendar.get(UCAL_DAY_OF_MONTH, status),
        .hour = gregorianCalendar.get(UCAL_HOUR_OF_DAY, status),
        .minute = gregorianCalendar.get(UCAL_MINUTE, status),
        .second = gregorianCalendar.get(UCAL_SECOND, status),
        .weekday = gregorianCalendar.get(UCAL_DAY_OF_WEEK, status),
    };
    VESK_ENSURE(U_SUCCESS(status));
    return result;
}

TimePoint date(const DateComponents& components, const Calendar& calendar) {
    auto& gregorianCalendar = gregorian(calendar);
    gregorianCalendar.clear();
    gregorianCalendar.set(UCAL_EXTENDED_YEAR, components.year);
    gregorianCalendar.set(UCAL_MONTH, components.month - 1);
    gregorianCalendar.set(UCAL_DAY_OF_MONTH, components.day);
    gregorianCalendar.set(UCAL_HOUR_OF_DAY, components.hour);
    gregorianCalendar.set(UCAL_MINUTE, components.minute);
    gregorianCalendar.set(UCAL_SECOND, components.second);
    UErrorCode status = U_ZERO_ERROR;
    double millis = gregorianCalendar.getTime(status);
    return U_SUCCESS(status) ? joined(millis) : distantPast();
}

TimePoint dateOrNextExisting(const DateComponents& components, const Calendar& calendar) {
    auto& gregorianCalendar = gregorian(calendar);
    gregorianCalendar.setSkippedWallTimeOption(UCAL_WALLTIME_NEXT_VALID);
    auto result = date(components, calendar);
    gregorianCalendar.setSkippedWallTimeOption(UCAL_WALLTIME_LAST);
    return result;
}

TimePoint startOfDay(TimePoint time, const Calendar& calendar) {
    auto day = components(time, calendar);
    day.hour = day.minute = day.second = 0;
    return date(day, calendar);
}

TimePoint adding(int amount, CalendarUnit unit, TimePoint time, const Calendar& calendar) {
    UCalendarDateFields field = UCAL_DAY_OF_MONTH;
    switch (unit) {
        case CalendarUnit::second:
            return time + std::chrono::seconds(amount);
        case CalendarUnit::minute:
            return time + std::chrono::minutes(amount);
        case CalendarUnit::hour:
            return time + std::chrono::hours(amount);
        case CalendarUnit::day:
            field = UCAL_DAY_OF_MONTH;
            break;
        case CalendarUnit::week:
            field = UCAL_WEEK_OF_YEAR;
            break;
        case CalendarUnit::month:
            field = UCAL_MONTH;
            break;
        case CalendarUnit::year:
            field = UCAL_YEAR;
            break;
    }
    auto& gregorianCalendar = gregorian(calendar);
    auto parts = split(time);
    UErrorCode status = U_ZERO_ERROR;
    gregorianCalendar.setTime(parts.millis, status);
    gregorianCalendar.add(field, amount, status);
    double millis = gregorianCalendar.getTime(status);
    return U_SUCCESS(status) ? joined(millis, parts.rest) : time;
}

}  // namespace vesk
