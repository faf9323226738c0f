// Moments as a table of a test writes them.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "VeskCore/Support/DateFormat.h"

namespace vesk::test {

inline const Calendar utc{}, berlin{.timeZone = "Europe/Berlin", .firstWeekday = 2},
    newYork{.timeZone = "America/New_York"};

/// "2026-11-18 12:00:30" on the clock of the calendar's zone.
inline TimePoint at(std::string_view text, const Calendar& calendar = utc) {
    return DateFormat("yyyy-MM-dd HH:mm:ss", calendar.timeZone).parse(text).value();
}

/// "Wed 2026-11-18 12:00" with ":30" if there are seconds; "none".
inline std::string shown(std::optional<TimePoint> time, const Calendar& calendar = utc) {
    if (!time) return "none";
    auto text = DateFormat("EEE yyyy-MM-dd HH:mm:ss", calendar.timeZone).format(*time);
    return text.ends_with(":00") ? text.substr(0, text.size() - 3) : text;
}

/// A Wednesday, half a minute past noon.
inline const TimePoint wednesdayNoon = at("2026-11-18 12:00:30");

}  // namespace vesk::test
