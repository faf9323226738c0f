// What a person types into the phrase field.
#include <algorithm>

#include "VeskCore/Reminders/NoteReminder.h"
#include "VeskCore/Support/Localised.h"
#include "VeskCore/Support/Pattern.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"

namespace vesk::NoteReminder {
namespace {

constexpr int morningHour = 9, eveningHour = 18;
/// The last year that the key has digits for.
constexpr int lastYear = 9999;
constexpr long long mostUnits = 100'000'000;

TimePoint atHour(int hour, TimePoint day, const Calendar& calendar) {
    auto parts = components(day, calendar);
    parts.hour = hour;
    parts.minute = parts.second = 0;
    return vesk::date(parts, calendar);
}

/// Back to the beginning of the minute on the clock.
TimePoint withoutSeconds(TimePoint time, const Calendar& calendar) {
    const auto second = std::chrono::floor<std::chrono::seconds>(time);
    return second - std::chrono::seconds(components(second, calendar).second);
}

std::vector<std::string> wordsOf(std::string_view text) {
    std::vector<std::string> words(1);
    for (std::size_t at = 0; at < text.size();) {
        const auto codePoint = nextCodePoint(text, at);
        if (isLetter(codePoint) || isNumber(codePoint)) {
            appendCodePoint(words.back(), codePoint);
        } else if (!words.back().empty()) {
            words.emplace_back();
        }
    }
    if (words.back().empty()) words.pop_back();
    return words;
}

bool isRemoval(std::string_view text) {
    const auto words = wordsOf(lowercased(text));
    if (words.empty()) return false;
    const auto phrase = join(words, " ");
    for (std::string_view none : {"none", "off", "never", "no reminder", "no reminders"}) {
        if (phrase == none) return true;
    }
    for (std::string_view verb : {"remove", "delete", "clear", "cancel", "stop"}) {
        if (words.front() != verb) continue;
        if (words.size() == 1) return true;
        for (std::size_t i = 1; i < words.size(); ++i) {
            if (words[i].starts_with("remind")) return true;
        }
    }
    return false;
}

bool mentionsTime(std::string_view lowercasedText) {
    static const Pattern clock(R"(\d{1,2}(:\d{2})?\s*(am|pm)|\d{1,2}:\d{2}|\bat\s+\d)");
    for (std::string_view word : {"midnight", "morning", "evening", "afternoon", "tonight"}) {
        if (lowercasedText.find(word) != std::string_view::npos) return true;
    }
    return clock.occursIn(lowercasedText);
}

bool mentionsWeekday(std::string_view lowercasedText) {
    static const Pattern weekday(
        R"(\b(monday|tuesday|wednesday|thursday|friday|saturday|sunday|mon|tue|wed|thu|fri|sat|sun)\b)");
    return weekday.occursIn(lowercasedText);
}

bool mentionsYear(std::string_view text) {
    static const Pattern year(R"(\b(19|20)\d{2}\b)");
    return year.occursIn(text);
}

/// "in 5 min": the moment that far from now, upward to a whole minute.
std::optional<TimePoint> relativeOffset(std::string_view text, TimePoint now, const Calendar& calendar) {
    static const Pattern offset(
        R"(^in\s+(\d+)\s*(min|mins|minute|minutes|h|hr|hrs|hour|hours|d|day|days|w|wk|week|weeks)$)",
        Pattern::Case::insensitive);
    const auto groups = offset.firstGroups(text);
    if (!groups) return {};
    const auto amount = parseInteger((*groups)[1]);
    if (!amount || *amount > mostUnits) return {};
    auto unit = CalendarUnit::week;
    switch ((*groups)[2].front()) {
        case 'm':
        case 'M':
            unit = CalendarUnit::minute;
            break;
        case 'h':
        case 'H':
            unit = CalendarUnit::hour;
            break;
        case 'd':
        case 'D':
            unit = CalendarUnit::day;
            break;
        default:
            break;
    }
    const auto exact = adding(static_cast<int>(*amount), unit, now, calendar);
    const auto parts = components(exact, calendar);
    if (parts.year > lastYear) return {};
    const auto minute = withoutSeconds(exact, calendar);
    return parts.second == 0 ? minute : minute + std::chrono::minutes(1);
}

std::optional<TimePoint> detected(std::string_view text, TimePoint now, const Calendar& calendar,
                                  const DateDetector& detector) {
    auto found = detector.firstDate(text, now, calendar);
    if (!found) return {};
    const auto lower = lowercased(text);
    if (!mentionsTime(lower)) found = atHour(morningHour, *found, calendar);
    if (*found > now || mentionsYear(text)) return found;
    const auto unit = mentionsWeekday(lower) ? CalendarUnit::week : CalendarUnit::year;
    const auto later = adding(1, unit, *found, calendar);
    return later > now ? later : found;
}

/// The first Monday at nine after `now`.
TimePoint nextMonday(TimePoint now, const Calendar& calendar) {
    constexpr int monday = 2;
    auto parts = components(now, calendar);
    parts.day += (monday - parts.weekday + 7) % 7;
    parts.hour = morningHour;
    parts.minute = parts.second = 0;
    if (vesk::date(parts, calendar) <= now) parts.day += 7;
    return vesk::date(parts, calendar);
}

}  // namespace

std::optional<TimePoint> parse(std::string_view phrase, TimePoint now, const Calendar& calendar,
                               const DateDetector& detector) {
    const auto text = trim(phrase);
    if (text.empty()) return {};
    auto date = relativeOffset(text, now, calendar);
    if (!date) date = detected(text, now, calendar, detector);
    return date && *date > now ? date : std::nullopt;
}

PhraseIntent parseIntent(std::string_view phrase, TimePoint now, const Calendar& calendar,
                         const DateDetector& detector) {
    if (isRemoval(phrase)) return {PhraseIntent::Plain::remove};
    if (const auto date = parse(phrase, now, calendar, detector)) return {PhraseIntent::Set{*date}};
    return {PhraseIntent::Plain::unknown};
}

std::vector<QuickPick> quickPicks(TimePoint now, const Calendar& calendar) {
    std::vector<QuickPick> picks;
    const auto add = [&](std::string_view label, TimePoint date) {
        if (date <= now || (!picks.empty() && date <= picks.back().date)) return;
        picks.push_back({.label = std::string(label), .date = date});
    };
    const int hour = components(now, calendar).hour;
    if (hour < eveningHour) {
        const auto later = std::chrono::floor<std::chrono::seconds>(now) + std::chrono::hours(3);
        const auto parts = components(later, calendar);
        const auto onTheHour = withoutSeconds(later, calendar) - std::chrono::minutes(parts.minute);
        add(localised("Later today"), onTheHour == later ? later : onTheHour + std::chrono::hours(1));
    }
    if (hour < eveningHour - 1) add(localised("This evening"), atHour(eveningHour, now, calendar));
    const auto daysOn = [&](int days) { return adding(days, CalendarUnit::day, now, calendar); };
    add(localised("Tomorrow morning"), atHour(morningHour, daysOn(1), calendar));
    add(localised("Next Monday"), nextMonday(now, calendar));
    add(localised("In a week"), atHour(morningHour, daysOn(7), calendar));
    return picks;
}

TimePoint snoozed(TimePoint from, int minutes, const Calendar& calendar) {
    return withoutSeconds(from + std::chrono::minutes(minutes), calendar);
}

ActionOutcome applying(ActionKind kind, std::string_view noteText, TimePoint now, const Calendar& calendar) {
    const auto date = reminder(noteText, calendar);
    if (!date) return {ActionOutcome::Nothing{}};
    const auto repeat = repeatRule(noteText);
    constexpr int snoozeMinutes = 60;
    if (kind == ActionKind::snooze) {
        const auto later = snoozed(now, snoozeMinutes, calendar);
        // The file holds a repeat's anchor, which stays.
        if (repeat) return {ActionOutcome::LocalSnooze{later}};
        return {ActionOutcome::Write{setting(later, noteText, calendar)}};
    }
    auto text = repeat ? setting(nextOccurrence(*date, *repeat, std::max(now, *date), calendar), repeat,
                                 noteText, calendar)
                       : setting(std::nullopt, noteText, calendar);
    if (text == noteText) return {ActionOutcome::Nothing{}};
    return {ActionOutcome::Write{std::move(text)}};
}

}  // namespace vesk::NoteReminder
