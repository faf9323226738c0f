// Dates in English phrases: "tomorrow 3pm", "next friday", "3 march", "in two hours".
#pragma once

#include "VeskCore/Platform/DateDetector.h"

namespace vesk {

/// Takes the first day and the first time of day that a text names, in whatever order and with other words
/// between. Linear in the text. An impossible date or time ("31 february", "25:00") makes the whole text have
/// none: a guess would remind at the wrong time.
///   - A day without a time is its noon. A time without a day is the next such time after `now`.
///   - "friday" is today or later, "next friday" later than today, "3 march" the next one, today included.
///   - "3/12" is the month first, unless only the other order is possible.
///   - Written times ("5:30") are of 24 hours; a spoken hour from 1 to 6 without "am" or "pm" ("at 5") is
///   after noon.
/// Stateless; any thread.
class EnglishDateDetector final : public DateDetector {
public:
    std::optional<TimePoint> firstDate(std::string_view text, TimePoint now,
                                       const Calendar& calendar) const override;
};

}  // namespace vesk
