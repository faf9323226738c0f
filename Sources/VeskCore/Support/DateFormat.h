// Dates as text. Fixed formats use a Gregorian calendar, ASCII digits and the locale en_US_POSIX, never the
// user's.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "VeskCore/Support/Time.h"

namespace vesk {

/// One fixed format by a Unicode date pattern (UTS #35) in one time zone. Parsing is strict: the whole text,
/// no date that does not exist, the digits just as they would be written, names in any case. A time of day
/// that a clock change takes away is read, moved on by the gap; years are 1 to 9999. Immutable; safe on any
/// thread.
class DateFormat {
public:
    DateFormat(std::string_view pattern, std::string_view timeZone);
    ~DateFormat();
    DateFormat(const DateFormat&);
    DateFormat& operator=(const DateFormat&);

    std::string format(TimePoint time) const;
    std::optional<TimePoint> parse(std::string_view text) const;

private:
    struct Impl;
    std::shared_ptr<const Impl> impl_;
};

/// "2026-11-22T09:30:00.000Z": ISO 8601 in UTC with milliseconds.
std::string iso8601(TimePoint time);
std::optional<TimePoint> parseIso8601(std::string_view text);

/// This machine's zone (IANA name; the environment's TZ counts), read once. Only for dates that belong to the
/// device rather than to a calendar that is handed in: those of frontmatter.
const std::string& deviceTimeZone();

/// A date as the user reads it, in a locale's medium date and short time style.
std::string mediumDateShortTime(TimePoint time, std::string_view timeZone, std::string_view locale);

/// The time of day in a locale's short style; the narrow blank that some put before "PM" is a plain one.
std::string shortTime(TimePoint time, std::string_view timeZone, std::string_view locale);
/// "Wednesday" in the locale's language.
std::string weekdayName(TimePoint time, std::string_view timeZone, std::string_view locale);
/// The fields of a skeleton (UTS #35), such as "d MMM", in the order and with the signs that the locale gives
/// them.
std::string localisedDate(TimePoint time, std::string_view skeleton, std::string_view timeZone,
                          std::string_view locale);
/// "28th" in the locale's ordinal style.
std::string ordinal(int number, std::string_view locale);

}  // namespace vesk
