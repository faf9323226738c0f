// Reminders in the words that a person reads.
#include <algorithm>

#include "VeskCore/Markdown/FrontmatterDoc.h"
#include "VeskCore/Markdown/MarkdownScanner.h"
#include "VeskCore/Reminders/NoteReminder.h"
#include "VeskCore/Support/Characters.h"
#include "VeskCore/Support/DateFormat.h"
#include "VeskCore/Support/Localised.h"
#include "VeskCore/Support/Text.h"

namespace vesk::NoteReminder {
namespace {

constexpr std::string_view dayAndMonth = "d MMM", dayMonthAndYear = "d MMM yy";
/// From here on a weekday's name could mean two days.
constexpr int daysByName = 6;
constexpr int lastDayOfEveryMonth = 28;

std::string dayText(TimePoint date, TimePoint now, const Calendar& calendar, std::string_view locale) {
    const auto day = startOfDay(date, calendar);
    if (day == startOfDay(now, calendar)) return localised("Today");
    if (day == startOfDay(adding(1, CalendarUnit::day, now, calendar), calendar))
        return localised("Tomorrow");
    if (date > now && date < adding(daysByName, CalendarUnit::day, now, calendar))
        return weekdayName(date, calendar.timeZone, locale);
    const bool sameYear = components(date, calendar).year == components(now, calendar).year;
    return localisedDate(date, sameYear ? dayAndMonth : dayMonthAndYear, calendar.timeZone, locale);
}

}  // namespace

std::string describe(TimePoint date, TimePoint now, const Calendar& calendar, std::string_view locale) {
    return localised(date < now ? marked("Overdue {} at {}") : marked("{} at {}"),
                     dayText(date, now, calendar, locale), shortTime(date, calendar.timeZone, locale));
}

std::string describe(TimePoint date, std::optional<Repeat> repeat, TimePoint now, const Calendar& calendar,
                     std::string_view locale) {
    if (!repeat) return describe(date, now, calendar, locale);
    const auto days =
        *repeat == Repeat::weekdays ? localised("Weekdays") : menuLabel(*repeat, date, calendar, locale);
    return localised("{} at {}", days, shortTime(date, calendar.timeZone, locale));
}

std::string menuLabel(Repeat repeat, TimePoint date, const Calendar& calendar, std::string_view locale) {
    switch (repeat) {
        case Repeat::daily:
            return localised("Every day");
        case Repeat::weekdays:
            return localised("Every weekday");
        case Repeat::weekly:
            return localised("Every {}", weekdayName(date, calendar.timeZone, locale));
        case Repeat::monthly:
            return localised("Every {}",
                             ordinal(std::min(components(date, calendar).day, lastDayOfEveryMonth), locale));
        case Repeat::yearly:
            return localised("Every {}", localisedDate(date, dayAndMonth, calendar.timeZone, locale));
    }
    return {};
}

std::string summary(std::string_view noteText, std::size_t maxLength) {
    const auto excerpt = MarkdownScanner::scan(FrontmatterDoc(noteText).body(), true).excerpt;
    const auto plain = MarkdownScanner::withoutEmbeds(excerpt);
    return std::string(trim(characterPrefix(trim(plain), maxLength)));
}

}  // namespace vesk::NoteReminder
