// Repeats, and the plan that brings the system's requests in line with the notes.
#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <set>
#include <tuple>

#include "VeskCore/Reminders/NoteReminder.h"
#include "VeskCore/Support/Text.h"

namespace vesk::NoteReminder {
namespace {

constexpr int monday = 2, friday = 6, february = 2;
/// The last day that every month has.
constexpr int lastSafeDay = 28;

std::vector<CalendarFields> patterns(TimePoint anchor, Repeat repeat, const Calendar& calendar) {
    const auto parts = components(anchor, calendar);
    CalendarFields fields{.hour = parts.hour, .minute = parts.minute};
    switch (repeat) {
        case Repeat::daily:
            break;
        case Repeat::weekdays: {
            std::vector<CalendarFields> days;
            for (int weekday = monday; weekday <= friday; ++weekday) {
                fields.weekday = weekday;
                days.push_back(fields);
            }
            return days;
        }
        case Repeat::weekly:
            fields.weekday = parts.weekday;
            break;
        case Repeat::monthly:
            fields.day = std::min(parts.day, lastSafeDay);
            break;
        case Repeat::yearly:
            fields.month = parts.month;
            fields.day = parts.month == february ? std::min(parts.day, lastSafeDay) : parts.day;
            break;
    }
    return {fields};
}

/// The next time after `after` on the days that the pattern names, none if the calendar has none.
std::optional<TimePoint> nextMatch(const CalendarFields& pattern, TimePoint after, const Calendar& calendar) {
    auto day = components(after, calendar);
    day.hour = pattern.hour.value_or(0);
    day.minute = pattern.minute.value_or(0);
    day.second = 0;
    if (pattern.weekday) day.day += (*pattern.weekday - day.weekday + 7) % 7;
    if (pattern.day) day.day = *pattern.day;
    if (pattern.month) day.month = *pattern.month;
    // The day at hand may be over, and a clock change may move one across the day's end.
    for (int tries = 0; tries < 3; ++tries) {
        const auto found = dateOrNextExisting(day, calendar);
        if (found > after) return found;
        if (pattern.month) {
            ++day.year;
        } else if (pattern.day) {
            ++day.month;
        } else {
            day.day += pattern.weekday ? 7 : 1;
        }
    }
    return {};
}

bool isSameMinute(TimePoint left, TimePoint right) {
    return std::chrono::floor<std::chrono::minutes>(left) == std::chrono::floor<std::chrono::minutes>(right);
}

std::string baseIdentifier(std::string_view path) {
    return std::string(reminderPrefix).append(path);
}

bool isSettled(const Scheduled& wanted, const PendingRequest& pending) {
    return pending.repeats == wanted.repeats && pending.title == wanted.title &&
           pending.components == wanted.components;
}

/// Whether the note that a request belongs to still wants a reminder.
bool hasOwner(std::string_view identifier, const std::set<std::string, std::less<>>& desiredPaths) {
    const auto path = identifier.substr(reminderPrefix.size());
    if (desiredPaths.contains(path)) return true;
    // Only now, for a path may itself end in "#2".
    const auto mark = path.rfind('#');
    if (mark == std::string_view::npos || mark + 1 == path.size()) return false;
    const auto digits = path.substr(mark + 1);
    return std::all_of(digits.begin(), digits.end(), isAsciiDigit) &&
           desiredPaths.contains(path.substr(0, mark));
}

}  // namespace

std::string snoozeIdentifier(std::string_view path) {
    return std::string(snoozePrefix).append(path);
}

CalendarFields calendarFields(TimePoint date, const Calendar& calendar) {
    const auto parts = components(date, calendar);
    return {.year = parts.year,
            .month = parts.month,
            .day = parts.day,
            .hour = parts.hour,
            .minute = parts.minute,
            .weekday = {}};
}

TimePoint nextOccurrence(TimePoint anchor, Repeat repeat, TimePoint after, const Calendar& calendar) {
    auto pattern = patterns(anchor, repeat, calendar).front();
    if (repeat != Repeat::weekdays) return nextMatch(pattern, after, calendar).value_or(anchor);
    pattern.weekday.reset();
    constexpr int mostTries = 8;
    for (int tries = 0; tries < mostTries; ++tries) {
        const auto found = nextMatch(pattern, after, calendar);
        if (!found) break;
        const int weekday = components(*found, calendar).weekday;
        if (weekday >= monday && weekday <= friday) return *found;
        after = *found;
    }
    return anchor;
}

TimePoint effectiveDate(TimePoint date, std::optional<Repeat> repeat, TimePoint now,
                        const Calendar& calendar) {
    return repeat ? nextOccurrence(date, *repeat, now, calendar) : date;
}

std::vector<Scheduled> requests(const Reminder& reminder, TimePoint now, const Calendar& calendar) {
    Scheduled once{.path = reminder.path,
                   .title = reminder.title,
                   .identifier = baseIdentifier(reminder.path),
                   .components = calendarFields(reminder.date, calendar),
                   .flagged = reminder.flagged,
                   .fires = reminder.date};
    const bool isAhead = reminder.date > now;
    if (!reminder.repeatRule) return isAhead ? std::vector{once} : std::vector<Scheduled>{};
    const auto next = nextOccurrence(reminder.date, *reminder.repeatRule, now, calendar);
    // A first firing that isn't on the pattern would be lost to it.
    if (isAhead && !isSameMinute(reminder.date, next)) return {once};
    const auto fields = patterns(reminder.date, *reminder.repeatRule, calendar);
    std::vector<Scheduled> result;
    for (const auto& pattern : fields) {
        auto request = once;
        if (fields.size() > 1) request.identifier += fmt::format("#{}", pattern.weekday.value_or(0));
        request.components = pattern;
        request.repeats = true;
        request.fires = next;
        result.push_back(std::move(request));
    }
    return result;
}

SchedulePlan schedulePlan(const std::vector<Reminder>& desired, const std::vector<PendingRequest>& pending,
                          TimePoint now, std::size_t cap, const Calendar& calendar) {
    std::map<std::string_view, const PendingRequest*> ours;
    std::set<std::string_view> snoozes;
    std::size_t notOurs = 0;  // snoozes and other programs' requests: they keep their places
    for (const auto& request : pending) {
        const std::string_view identifier = request.identifier;
        if (identifier.starts_with(reminderPrefix)) {
            ours.emplace(identifier, &request);
            continue;
        }
        ++notOurs;
        if (identifier.starts_with(snoozePrefix)) snoozes.insert(identifier);
    }
    std::size_t budget = cap > notOurs ? cap - notOurs : 0;

    std::set<std::string, std::less<>> desiredPaths;
    std::vector<std::vector<Scheduled>> groups;
    for (const auto& reminder : desired) {
        desiredPaths.insert(reminder.path);
        auto group = requests(reminder, now, calendar);
        if (!group.empty()) groups.push_back(std::move(group));
    }
    std::stable_sort(groups.begin(), groups.end(), [](const auto& left, const auto& right) {
        return std::tie(left.front().fires, left.front().path) <
               std::tie(right.front().fires, right.front().path);
    });

    SchedulePlan plan;
    std::set<std::string, std::less<>> taken;
    for (const auto& group : groups) {
        if (group.size() > budget) continue;
        budget -= group.size();
        for (const auto& request : group) {
            taken.insert(request.identifier);
            const auto waiting = ours.find(request.identifier);
            if (waiting == ours.end() || !isSettled(request, *waiting->second)) plan.add.push_back(request);
        }
    }

    // "remind:" sorts before "snooze:".
    for (const auto& [identifier, request] : ours) {
        if (taken.contains(identifier)) continue;
        plan.remove.emplace_back(identifier);
        if (!hasOwner(identifier, desiredPaths)) plan.clearDelivered.emplace_back(identifier);
    }
    for (const auto identifier : snoozes) {
        if (desiredPaths.contains(identifier.substr(snoozePrefix.size()))) continue;
        plan.remove.emplace_back(identifier);
        plan.clearDelivered.emplace_back(identifier);
    }
    return plan;
}

std::vector<std::string> withoutOwner(const std::vector<std::string>& identifiers,
                                      const std::vector<Reminder>& desired) {
    std::set<std::string, std::less<>> desiredPaths;
    for (const auto& reminder : desired) desiredPaths.insert(reminder.path);
    std::vector<std::string> found;
    for (const std::string_view identifier : identifiers) {
        const bool isOwned = identifier.starts_with(reminderPrefix) ? hasOwner(identifier, desiredPaths)
                             : identifier.starts_with(snoozePrefix)
                                 ? desiredPaths.contains(identifier.substr(snoozePrefix.size()))
                                 : true;
        if (!isOwned) found.emplace_back(identifier);
    }
    return found;
}

}  // namespace vesk::NoteReminder
