// An answer to a reminder's notification, carried out on a note whose vault isn't open.
#pragma once

#include "Vesk/Reminders/ReminderCenter.h"

namespace vesk {

namespace ReminderAnswer {

/// An action handled later than this counts from when it is handled.
inline constexpr Seconds tapHolds{3540.0};
/// The moment that an action counts from.
TimePoint moment(TimePoint tappedAt, TimePoint now);

/// Writes the note, if the answer changes it, and tells `service` when it rings next, since no index is there
/// to tell. A note that has gone or has no reminder is left alone. Throws Error with the answer not carried
/// out: the note can't be read now, or changed while it was being written. Any thread; blocks.
void carryOut(const ReminderAction& action, TimePoint tappedAt, TimePoint now, const Calendar& calendar,
              NotificationService& service);

}  // namespace ReminderAnswer
}  // namespace vesk
