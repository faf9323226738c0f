#include "VeskLinux/Notifications/CalendarTrigger.h"

#include <chrono>

namespace vesk {

namespace {

/// 29 February comes back to a weekday within 40 years, over the year 2100 too.
constexpr int mostDays = 41 * 366;

bool within(const std::optional<int>& value, int least, int most) {
    return !value || (*value >= least && *value <= most);
}

bool fits(const std::optional<int>& wanted, int value) {
    return !wanted || *wanted == value;
}

}  // namespace

bool isSensible(const NotificationTrigger& trigger) {
    return within(trigger.year, 1, 9999) && within(trigger.month, 1, 12) && within(trigger.day, 1, 31) &&
           within(trigger.hour, 0, 23) && within(trigger.minute, 0, 59) && within(trigger.weekday, 1, 7);
}

std::optional<TimePoint> nextDate(const NotificationTrigger& trigger, TimePoint after,
                                  const Calendar& calendar) {
    using namespace std::chrono;
    if (!isSensible(trigger)) return {};
    const auto from = components(after, calendar);
    sys_days first = sys_days{year{from.year} / month{static_cast<unsigned>(from.month)} /
                              day{static_cast<unsigned>(from.day)}};
    if (trigger.year && *trigger.year > from.year) first = sys_days{year{*trigger.year} / January / 1};
    for (int ahead = 0; ahead < mostDays; ++ahead) {
        const sys_days at = first + days{ahead};
        const year_month_day date{at};
        const int yearNumber = int{date.year()};
        if (trigger.year && yearNumber > *trigger.year) return {};
        const int monthNumber = static_cast<int>(unsigned{date.month()});
        const int dayNumber = static_cast<int>(unsigned{date.day()});
        const int weekdayNumber = static_cast<int>(weekday{at}.c_encoding()) + 1;
        if (!fits(trigger.year, yearNumber) || !fits(trigger.month, monthNumber) ||
            !fits(trigger.day, dayNumber) || !fits(trigger.weekday, weekdayNumber))
            continue;
        for (int hour = trigger.hour.value_or(0); hour <= trigger.hour.value_or(23); ++hour) {
            for (int minute = trigger.minute.value_or(0); minute <= trigger.minute.value_or(59); ++minute) {
                const auto moment = dateOrNextExisting({.year = yearNumber,
                                                        .month = monthNumber,
                                                        .day = dayNumber,
                                                        .hour = hour,
                                                        .minute = minute},
                                                       calendar);
                if (moment > after) return moment;
            }
        }
    }
    return {};
}

}  // namespace vesk
