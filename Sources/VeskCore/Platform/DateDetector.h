// Finding a date in what a person typed.
#pragma once

#include <optional>
#include <string_view>

#include "VeskCore/Support/Time.h"

namespace vesk {

/// Any thread.
class DateDetector {
public:
    virtual ~DateDetector() = default;
    /// The first date that the text names, seen from `now`; none if it names none that can be read.
    virtual std::optional<TimePoint> firstDate(std::string_view text, TimePoint now,
                                               const Calendar& calendar) const = 0;
};

}  // namespace vesk
