// When a notification's calendar fields come round.
#pragma once

#include <optional>

#include "VeskCore/Platform/NotificationService.h"
#include "VeskCore/Support/Time.h"

namespace vesk {

/// The first minute after `after` that has the trigger's fields; none if there never is one. A time in the
/// gap of a clock change is the first moment behind it, one that comes twice is its first. Pure.
std::optional<TimePoint> nextDate(const NotificationTrigger& trigger, TimePoint after,
                                  const Calendar& calendar);
/// Whether the fields lie in their ranges, so that nextDate can be asked.
bool isSensible(const NotificationTrigger& trigger);

}  // namespace vesk
