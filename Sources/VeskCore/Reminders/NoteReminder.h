// A reminder is two properties of a note, so that it travels with the file. The pure logic around them:
// reading and writing, phrases, repeats, and the plan that reconciles reminders with pending notifications.
// Any thread.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "VeskCore/Platform/DateDetector.h"
#include "VeskCore/Support/Time.h"

namespace vesk {

namespace NoteReminder {

inline constexpr std::string_view key = "remind";
inline constexpr std::string_view repeatKey = "repeat";

enum class Repeat { daily, weekdays, weekly, monthly, yearly };
std::string_view rawValue(Repeat repeat);
/// By what a person may write ("every day"); none for anything else.
std::optional<Repeat> repeatFrom(std::string_view text);

struct QuickPick {
    std::string label;
    TimePoint date;
    bool operator==(const QuickPick&) const = default;
};

struct PhraseIntent {
    struct Set {
        TimePoint date;
        bool operator==(const Set&) const = default;
    };
    enum class Plain { remove, unknown };
    std::variant<Set, Plain> value = Plain::unknown;
    bool operator==(const PhraseIntent&) const = default;
};

/// The fields of a calendar pattern or moment; absent ones match anything.
struct CalendarFields {
    std::optional<int> year, month, day, hour, minute, weekday;
    bool operator==(const CalendarFields&) const = default;
};

/// A reminder of a note.
struct Reminder {
    std::string path, title;
    TimePoint date;
    std::optional<Repeat> repeatRule;
    bool flagged = false;
    bool operator==(const Reminder&) const = default;
};

/// A notification that is wanted.
struct Scheduled {
    std::string path, title, identifier;
    CalendarFields components;
    bool repeats = false, flagged = false;
    TimePoint fires;
    bool operator==(const Scheduled&) const = default;
};

/// A notification that waits in the system.
struct PendingRequest {
    std::string identifier;
    CalendarFields components;
    bool repeats = false;
    std::string title;
    bool operator==(const PendingRequest&) const = default;
};

struct SchedulePlan {
    std::vector<Scheduled> add;
    std::vector<std::string> remove, clearDelivered;
    bool operator==(const SchedulePlan&) const = default;
};

enum class ActionKind { snooze, done };

struct ActionOutcome {
    struct Write {
        std::string text;  ///< the note's new full text
        bool operator==(const Write&) const = default;
    };
    struct LocalSnooze {
        TimePoint date;
        bool operator==(const LocalSnooze&) const = default;
    };
    struct Nothing {
        bool operator==(const Nothing&) const = default;
    };
    std::variant<Write, LocalSnooze, Nothing> value = Nothing{};
    bool operator==(const ActionOutcome&) const = default;
};

/// Identifiers of requests begin with one of these; any other request belongs to somebody else.
inline constexpr std::string_view reminderPrefix = "remind:", snoozePrefix = "snooze:";
std::string snoozeIdentifier(std::string_view path);
/// The fields of a request that fires once.
CalendarFields calendarFields(TimePoint date, const Calendar& calendar);

std::optional<TimePoint> date(std::string_view text, const Calendar& calendar);
std::string format(TimePoint date, const Calendar& calendar);
std::optional<TimePoint> reminder(std::string_view noteText, const Calendar& calendar);
std::optional<Repeat> repeatRule(std::string_view noteText);
std::optional<std::string> rawRule(std::string_view noteText);
/// The note with its date set (keeping its repeat, also one that isn't known) or, with none, without its
/// reminder.
std::string setting(std::optional<TimePoint> date, std::string_view noteText, const Calendar& calendar);
std::string setting(std::optional<TimePoint> date, std::optional<Repeat> repeat, std::string_view noteText,
                    const Calendar& calendar);
/// The text of a new note that has only a reminder.
std::string noteTemplate(TimePoint date, const Calendar& calendar);
std::optional<TimePoint> parse(std::string_view phrase, TimePoint now, const Calendar& calendar,
                               const DateDetector& detector);
PhraseIntent parseIntent(std::string_view phrase, TimePoint now, const Calendar& calendar,
                         const DateDetector& detector);
std::vector<QuickPick> quickPicks(TimePoint now, const Calendar& calendar);
TimePoint snoozed(TimePoint from, int minutes, const Calendar& calendar);
TimePoint nextOccurrence(TimePoint anchor, Repeat repeat, TimePoint after, const Calendar& calendar);
TimePoint effectiveDate(TimePoint date, std::optional<Repeat> repeat, TimePoint now,
                        const Calendar& calendar);
std::vector<Scheduled> requests(const Reminder& reminder, TimePoint now, const Calendar& calendar);
SchedulePlan schedulePlan(const std::vector<Reminder>& desired, const std::vector<PendingRequest>& pending,
                          TimePoint now, std::size_t cap, const Calendar& calendar);
/// Of these requests the reminders' and snoozes whose notes want no reminder any more.
std::vector<std::string> withoutOwner(const std::vector<std::string>& identifiers,
                                      const std::vector<Reminder>& desired);
ActionOutcome applying(ActionKind kind, std::string_view noteText, TimePoint now, const Calendar& calendar);
std::string describe(TimePoint date, TimePoint now, const Calendar& calendar, std::string_view locale);
std::string describe(TimePoint date, std::optional<Repeat> repeat, TimePoint now, const Calendar& calendar,
                     std::string_view locale);
std::string menuLabel(Repeat repeat, TimePoint date, const Calendar& calendar, std::string_view locale);
/// The note's first line of prose, at most `maxLength` characters (and never more than 200); empty if it has
/// none.
std::string summary(std::string_view noteText, std::size_t maxLength);

}  // namespace NoteReminder

/// A flag on a note.
namespace NotePriority {

inline constexpr std::string_view key = "priority";

bool isFlagged(const std::optional<std::string>& value);
bool flagged(std::string_view noteText);
std::optional<std::string> raw(std::string_view noteText);
std::string setting(bool flag, std::string_view noteText);

}  // namespace NotePriority
}  // namespace vesk
