#include "VeskCore/Reminders/EnglishDateDetector.h"

#include <algorithm>
#include <chrono>
#include <initializer_list>
#include <string>
#include <vector>

#include "VeskCore/Support/Text.h"

namespace vesk {
namespace {

struct Token {
    enum class Kind { word, number, sign, end };
    Kind kind = Kind::end;
    std::string text;    // words in lower case; a sign is one byte
    int value = -1;      // of a number of at most four digits, else -1
    bool glued = false;  // no white space before it
};

std::vector<Token> tokens(std::string_view text) {
    std::vector<Token> result;
    bool glued = false;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t start = at;
        const char c = text[at];
        Token token;
        token.glued = glued;
        glued = true;
        if (isAsciiDigit(c)) {
            while (at < text.size() && isAsciiDigit(text[at])) ++at;
            token.kind = Token::Kind::number;
            token.text = text.substr(start, at - start);
            if (at - start <= 4) token.value = static_cast<int>(parseInteger(token.text).value_or(-1));
        } else if (isAsciiLetter(c)) {
            while (at < text.size() && isAsciiLetter(text[at])) ++at;
            token.kind = Token::Kind::word;
            token.text = asciiLowercased(text.substr(start, at - start));
        } else {
            const auto codePoint = nextCodePoint(text, at);
            if (isSpaceOrNewline(codePoint)) {
                glued = false;
                continue;
            }
            token.kind = Token::Kind::sign;
            token.text = codePoint == U'\u2019' ? "'" : std::string(1, codePoint < 0x80 ? c : '?');
        }
        result.push_back(std::move(token));
    }
    return result;
}

template <class Value>
struct Named {
    std::string_view name;
    Value value;
};

template <class Value, std::size_t size>
std::optional<Value> lookUp(const Named<Value> (&table)[size], std::string_view name) {
    for (const auto& entry : table) {
        if (entry.name == name) return entry.value;
    }
    return {};
}

constexpr Named<int> weekdays[] = {
    {"sunday", 1}, {"sun", 1},       {"monday", 2}, {"mon", 2},      {"tuesday", 3}, {"tue", 3},
    {"tues", 3},   {"wednesday", 4}, {"wed", 4},    {"thursday", 5}, {"thu", 5},     {"thur", 5},
    {"thurs", 5},  {"friday", 6},    {"fri", 6},    {"saturday", 7}, {"sat", 7},
};
constexpr Named<int> months[] = {
    {"january", 1},  {"jan", 1},    {"february", 2},  {"feb", 2},       {"march", 3},     {"mar", 3},
    {"april", 4},    {"apr", 4},    {"may", 5},       {"june", 6},      {"jun", 6},       {"july", 7},
    {"jul", 7},      {"august", 8}, {"aug", 8},       {"september", 9}, {"sep", 9},       {"sept", 9},
    {"october", 10}, {"oct", 10},   {"november", 11}, {"nov", 11},      {"december", 12}, {"dec", 12},
};
constexpr Named<int> numerals[] = {
    {"one", 1},      {"two", 2},        {"three", 3},     {"four", 4},      {"five", 5},
    {"six", 6},      {"seven", 7},      {"eight", 8},     {"nine", 9},      {"ten", 10},
    {"eleven", 11},  {"twelve", 12},    {"thirteen", 13}, {"fourteen", 14}, {"fifteen", 15},
    {"sixteen", 16}, {"seventeen", 17}, {"eighteen", 18}, {"nineteen", 19}, {"twenty", 20},
    {"thirty", 30},  {"forty", 40},     {"fifty", 50},    {"sixty", 60},    {"ninety", 90},
};
struct Span {
    CalendarUnit unit;
    int factor = 1;
};
constexpr Named<Span> units[] = {
    {"minute", {CalendarUnit::minute}},
    {"minutes", {CalendarUnit::minute}},
    {"min", {CalendarUnit::minute}},
    {"mins", {CalendarUnit::minute}},
    {"hour", {CalendarUnit::hour}},
    {"hours", {CalendarUnit::hour}},
    {"hr", {CalendarUnit::hour}},
    {"hrs", {CalendarUnit::hour}},
    {"h", {CalendarUnit::hour}},
    {"day", {CalendarUnit::day}},
    {"days", {CalendarUnit::day}},
    {"d", {CalendarUnit::day}},
    {"week", {CalendarUnit::week}},
    {"weeks", {CalendarUnit::week}},
    {"wk", {CalendarUnit::week}},
    {"w", {CalendarUnit::week}},
    {"fortnight", {CalendarUnit::week, 2}},
    {"month", {CalendarUnit::month}},
    {"months", {CalendarUnit::month}},
    {"year", {CalendarUnit::year}},
    {"years", {CalendarUnit::year}},
};

enum class DayPart { morning, afternoon, evening, night };
constexpr Named<DayPart> dayParts[] = {
    {"morning", DayPart::morning},
    {"afternoon", DayPart::afternoon},
    {"evening", DayPart::evening},
};

int hourOf(DayPart part) {
    switch (part) {
        case DayPart::morning:
            return 9;
        case DayPart::afternoon:
            return 15;
        case DayPart::evening:
            return 18;
        case DayPart::night:
            return 20;
    }
    return 12;
}

struct ClockTime {
    int hour = 0, minute = 0;
    bool isOpen = false;  // the half of the day is not said: 1 to 12
};

int daysIn(int year, int month) {
    const auto last =
        std::chrono::year(year) / std::chrono::month(static_cast<unsigned>(month)) / std::chrono::last;
    return static_cast<int>(static_cast<unsigned>(std::chrono::year_month_day(last).day()));
}

/// One reading of a text. Every rule looks at a few tokens from a place on and gives the number of tokens it
/// takes.
class Reading {
public:
    Reading(std::vector<Token> all, TimePoint now, const Calendar& calendar)
        : tokens_(std::move(all)), now_(now), calendar_(calendar), today_(components(now, calendar)) {}

    std::optional<TimePoint> result() {
        for (std::size_t at = 0; at < tokens_.size() && !impossible_;) {
            std::size_t taken = readDay(at);
            if (taken == 0) taken = readTime(at);
            at += std::max<std::size_t>(taken, 1);
        }
        if (impossible_) return {};
        if (moment_) return moment_;
        if (!day_) return partOrClock() ? std::optional(nextTime()) : std::nullopt;
        return momentOfDay();
    }

private:
    using Taken = std::size_t;

    // Tokens

    const Token& token(std::size_t at) const {
        static const Token none;
        return at < tokens_.size() ? tokens_[at] : none;
    }
    bool isWord(std::size_t at, std::string_view word) const {
        return token(at).kind == Token::Kind::word && token(at).text == word;
    }
    bool isWord(std::size_t at, std::initializer_list<std::string_view> words) const {
        return std::any_of(words.begin(), words.end(),
                           [&](std::string_view word) { return isWord(at, word); });
    }
    bool isSign(std::size_t at, char sign) const {
        return token(at).kind == Token::Kind::sign && token(at).text.front() == sign;
    }
    bool isNumber(std::size_t at) const { return token(at).kind == Token::Kind::number; }
    /// A sign between two numbers without white space: the dash of a date, the colon of a time.
    bool joins(std::size_t at, char sign) const {
        return isSign(at, sign) && token(at).glued && isNumber(at + 1) && token(at + 1).glued;
    }
    /// A number that does not go on in a word or another number: "v3", "1.30" and "-5" are none.
    bool beginsNumber(std::size_t at) const {
        if (!isNumber(at)) return false;
        if (at == 0 || !token(at).glued) return true;
        const auto& before = token(at - 1);
        if (before.kind == Token::Kind::word) return before.text == "t" && at - 1 == isoTimeMark_;
        return isSign(at - 1, '(') || isSign(at - 1, '@') || isSign(at - 1, ',') || isSign(at - 1, '\'') ||
               isSign(at - 1, '"');
    }
    std::optional<int> month(std::size_t at) const { return word(months, at); }
    std::optional<int> weekday(std::size_t at) const {
        // "the sun" is no day.
        if (token(at).text.size() == 3 && at > 0 && isWord(at - 1, "the")) return {};
        return word(weekdays, at);
    }
    template <class Value, std::size_t size>
    std::optional<Value> word(const Named<Value> (&table)[size], std::size_t at) const {
        return token(at).kind == Token::Kind::word ? lookUp(table, token(at).text) : std::nullopt;
    }
    bool isOrdinalEnding(std::size_t at) const {
        return token(at).glued && isWord(at, {"st", "nd", "rd", "th"});
    }

    struct Amount {
        int number = 0;
        Taken taken = 0;
    };
    /// "two", "twenty-five", "12", "a", "a couple of"; taken 0 if there is none.
    Amount amount(std::size_t at) const {
        if (isNumber(at)) return token(at).value >= 0 ? Amount{token(at).value, 1} : Amount{};
        if (isWord(at, {"a", "an"})) {
            if (isWord(at + 1, "couple") && isWord(at + 2, "of")) return {2, 3};
            return {1, 1};
        }
        const auto first = word(numerals, at);
        if (!first) return {};
        if (*first >= 20) {
            const std::size_t next = isSign(at + 1, '-') ? at + 2 : at + 1;
            if (const auto last = word(numerals, next); last && *last < 10)
                return {*first + *last, next + 1 - at};
        }
        return {*first, 1};
    }

    // Days

    void setDay(int year, int monthOfYear, int day) {
        day_ = DateComponents{.year = year, .month = monthOfYear, .day = day};
    }
    void setDayFromToday(int days) { setDay(today_.year, today_.month, today_.day + days); }

    Taken readDay(std::size_t at) {
        if (moment_ || (day_ && !mayReplaceWeekday(at))) return 0;
        if (const Taken taken = readDate(at)) {
            isWeekday_ = false;
            dayEnd_ = at + taken;
            return taken;
        }
        if (day_) return 0;
        Taken taken = readOffset(at);
        if (taken == 0) taken = readNamedDay(at);
        if (taken == 0) taken = readWeekday(at);
        if (taken > 0) dayEnd_ = at + taken;
        return taken;
    }
    /// In "friday, 3 march" the date says it all.
    bool mayReplaceWeekday(std::size_t at) const {
        if (!isWeekday_ || at < dayEnd_) return false;
        for (std::size_t i = dayEnd_; i < at; ++i) {
            if (i > dayEnd_ + 2 || !(isSign(i, ',') || isWord(i, {"the", "on"}))) return false;
        }
        return true;
    }

    Taken readDate(std::size_t at) {
        if (beginsNumber(at)) {
            if (joins(at + 1, '-') && joins(at + 3, '-')) return readIsoDate(at);
            if (joins(at + 1, '/')) return readSlashDate(at);
            return readDayAndMonth(at);
        }
        return month(at) ? readMonthAndDay(at) : 0;
    }
    Taken readIsoDate(std::size_t at) {
        if (token(at).text.size() != 4) return 0;
        setExact(token(at).value, token(at + 2).value, token(at + 4).value);
        constexpr Taken length = 5;
        if (token(at + length).glued && isWord(at + length, "t")) {
            isoTimeMark_ = at + length;
            return length + 1;
        }
        return length;
    }
    Taken readSlashDate(std::size_t at) {
        int first = token(at).value, second = token(at + 2).value;
        if (token(at).text.size() > 2 || token(at + 2).text.size() > 2) return 0;
        if (first == 24 && second == 7) return 3;  // always, not a day
        if (first > 12) std::swap(first, second);
        if (!joins(at + 3, '/')) {
            setNext(first, second);
            return 3;
        }
        const auto& year = token(at + 4);
        constexpr int century = 2000;
        setExact(year.text.size() == 2 ? century + year.value : year.value, first, second);
        return 5;
    }
    /// "3 march", "3rd of march 2027", "on the 3rd".
    Taken readDayAndMonth(std::size_t at) {
        if (token(at).text.size() > 2) return 0;
        std::size_t next = at + 1;
        const bool isOrdinal = isOrdinalEnding(next);
        if (isOrdinal) ++next;
        const std::size_t afterDay = next;
        if (isWord(next, "of")) ++next;
        if (const auto found = month(next)) return setWithYear(*found, token(at).value, next + 1) - at;
        if (!isOrdinal || at < 2 || !isWord(at - 1, "the") || !isWord(at - 2, "on")) return 0;
        setDayOfMonth(token(at).value);
        return afterDay - at;
    }
    Taken readMonthAndDay(std::size_t at) {
        std::size_t next = isWord(at + 1, "the") ? at + 2 : at + 1;
        if (!beginsNumber(next) || token(next).text.size() > 2 || isClockNumber(next)) return 0;
        const int day = token(next).value;
        ++next;
        if (isOrdinalEnding(next)) ++next;
        return setWithYear(*month(at), day, next) - at;
    }
    /// Takes a year that stands at `next`, and gives the place behind it.
    std::size_t setWithYear(int monthOfYear, int day, std::size_t next) {
        const std::size_t place = isSign(next, ',') ? next + 1 : next;
        const auto& year = token(place);
        if (year.text.size() == 4 && year.value >= 1900 && year.value <= 2099 && !isClockNumber(place)) {
            setExact(year.value, monthOfYear, day);
            return place + 1;
        }
        setNext(monthOfYear, day);
        return next;
    }
    bool isClockNumber(std::size_t at) const { return joins(at + 1, ':') || meridiem(at + 1).taken > 0; }

    void setExact(int year, int monthOfYear, int day) {
        if (year < 1 || !isMonthAndDay(monthOfYear, day) || day > daysIn(year, monthOfYear)) {
            impossible_ = true;
            return;
        }
        setDay(year, monthOfYear, day);
    }
    /// The next such day, today included.
    void setNext(int monthOfYear, int day) {
        if (!isMonthAndDay(monthOfYear, day)) {
            impossible_ = true;
            return;
        }
        int year = today_.year;
        if (std::pair(monthOfYear, day) < std::pair(today_.month, today_.day)) ++year;
        while (day > daysIn(year, monthOfYear)) ++year;  // 29 February
        setDay(year, monthOfYear, day);
    }
    static bool isMonthAndDay(int monthOfYear, int day) {
        constexpr int leapYear = 2000;
        return monthOfYear >= 1 && monthOfYear <= 12 && day >= 1 && day <= daysIn(leapYear, monthOfYear);
    }
    /// The next day of that number after today.
    void setDayOfMonth(int day) {
        if (day < 1 || day > 31) {
            impossible_ = true;
            return;
        }
        int year = today_.year, monthOfYear = today_.month + (day > today_.day ? 0 : 1);
        for (;; ++monthOfYear) {
            if (monthOfYear > 12) {
                monthOfYear = 1;
                ++year;
            }
            if (day <= daysIn(year, monthOfYear)) break;
        }
        setDay(year, monthOfYear, day);
    }

    Taken readNamedDay(std::size_t at) {
        if (isWord(at, "today")) {
            setDayFromToday(0);
            isToday_ = true;
            return 1;
        }
        if (isWord(at, "tonight")) {
            setDayFromToday(0);
            isToday_ = true;
            part_ = DayPart::night;
            return 1;
        }
        if (isWord(at, {"tomorrow", "tmr", "tmrw"})) {
            setDayFromToday(1);
            return 1;
        }
        if (isWord(at, "day") && isWord(at + 1, "after") && isWord(at + 2, "tomorrow")) {
            setDayFromToday(2);
            return 3;
        }
        if (!isWord(at, "next")) return 0;
        if (isWord(at + 1, "week")) {
            const std::size_t next = isWord(at + 2, "on") ? at + 3 : at + 2;
            if (const auto day = weekday(next)) {
                setDayNextWeek(*day);
                return next + 1 - at;
            }
            setDayFromToday(7);
            return 2;
        }
        if (isWord(at + 1, {"month", "year"})) {
            setLater(1, isWord(at + 1, "month") ? CalendarUnit::month : CalendarUnit::year);
            keepsTime_ = false;
            return 2;
        }
        return 0;
    }
    Taken readWeekday(std::size_t at) {
        const bool isNext = isWord(at, "next");
        const std::size_t place = isNext ? at + 1 : at;
        const auto day = weekday(place);
        if (!day || (place > 0 && isWord(place - 1, "last"))) return 0;
        if (isWord(place + 1, "next") && isWord(place + 2, "week")) {
            setDayNextWeek(*day);
            return place + 3 - at;
        }
        int days = (*day - today_.weekday + 7) % 7;
        if (isNext && days == 0) days = 7;
        setDayFromToday(days);
        isWeekday_ = !isNext;
        return place + 1 - at;
    }
    void setDayNextWeek(int day) {
        const auto inWeek = [&](int weekdayNumber) {
            return (weekdayNumber - calendar_.firstWeekday + 7) % 7;
        };
        setDayFromToday(7 - inWeek(today_.weekday) + inWeek(day));
    }

    /// "in two hours", "in half an hour", "a week from now".
    Taken readOffset(std::size_t at) {
        const bool isIn = isWord(at, "in");
        const std::size_t start = isIn ? at + 1 : at;
        if (isIn && isWord(start, "half") && isWord(start + 1, {"a", "an"}) && isWord(start + 2, "hour")) {
            moment_ = now_ + std::chrono::minutes(30);
            return 4;
        }
        if (isNumber(start) && !beginsNumber(start)) return 0;
        const auto count = amount(start);
        if (count.taken == 0) return 0;
        std::size_t next = start + count.taken;
        const auto span = word(units, next);
        if (!span) return 0;
        ++next;
        int extraMinutes = 0;
        if (span->unit == CalendarUnit::hour && isWord(next, "and") && isWord(next + 1, "a") &&
            isWord(next + 2, "half")) {
            extraMinutes = 30;
            next += 3;
        }
        if (!isIn) {
            if (!isWord(next, "from") || !isWord(next + 1, {"now", "today"})) return 0;
            next += 2;
        }
        setLater(count.number * span->factor, span->unit);
        if (moment_) *moment_ += std::chrono::minutes(extraMinutes);
        return next - at;
    }
    void setLater(int number, CalendarUnit unit) {
        const auto later = adding(number, unit, now_, calendar_);
        constexpr int lastYear = 9999;
        const auto parts = components(later, calendar_);
        if (parts.year > lastYear) {
            impossible_ = true;
        } else if (unit == CalendarUnit::minute || unit == CalendarUnit::hour) {
            moment_ = later;
        } else {
            day_ = parts;
            keepsTime_ = true;
        }
    }

    // Times of day

    struct Meridiem {
        bool isAfterNoon = false;
        Taken taken = 0;
    };
    /// "am", "p.m."
    Meridiem meridiem(std::size_t at) const {
        if (isWord(at, {"am", "pm"})) return {isWord(at, "pm"), 1};
        if (!isWord(at, {"a", "p"}) || !isSign(at + 1, '.') || !isWord(at + 2, "m")) return {};
        return {isWord(at, "p"), isSign(at + 3, '.') && token(at + 3).glued ? Taken{4} : Taken{3}};
    }

    Taken readTime(std::size_t at) {
        if (const auto found = dayPart(at)) {
            if (!part_) part_ = found;
            return 1;
        }
        if (clock_ || moment_) return 0;
        if (isWord(at, {"noon", "midday"})) return setClock({.hour = 12}, 1);
        if (isWord(at, "midnight")) {
            isMidnight_ = true;
            return setClock({}, 1);
        }
        if (const Taken taken = readSpokenMinutes(at)) return taken;
        if (isWord(at, {"at", "by", "around"})) {
            const Taken taken = readHour(at + 1, isWord(at, "at"));
            return taken > 0 ? taken + 1 : 0;
        }
        return readHour(at, false);
    }
    std::optional<DayPart> dayPart(std::size_t at) const {
        if (isWord(at, "night")) {
            const bool isTime = (day_ && dayEnd_ == at) || (at > 0 && isWord(at - 1, {"at", "this"}));
            return isTime ? std::optional(DayPart::night) : std::nullopt;
        }
        return word(dayParts, at);
    }
    Taken setClock(ClockTime time, Taken taken) {
        clock_ = time;
        return taken;
    }
    /// Sets an hour of twelve by what stands at `next`; gives the place behind it.
    std::size_t setHour(int hour, int minute, std::size_t next) {
        const auto half = meridiem(next);
        if (half.taken == 0) {
            setClock({.hour = hour, .minute = minute, .isOpen = hour >= 1 && hour <= 12}, 0);
            return next;
        }
        if (hour < 1 || hour > 12) impossible_ = true;
        setClock({.hour = hour % 12 + (half.isAfterNoon ? 12 : 0), .minute = minute}, 0);
        return next + half.taken;
    }
    /// "3pm", "15:30", "3.30pm", "9 o'clock"; with `said` ("at") also a bare hour.
    Taken readHour(std::size_t at, bool said) {
        const bool isNumeral = isNumber(at);
        if (isNumeral && !beginsNumber(at)) return 0;
        const auto spoken = word(numerals, at);
        if (!isNumeral && !spoken) return 0;
        const int hour = isNumeral ? token(at).value : *spoken;
        if (isNumeral && joins(at + 1, ':')) return readWritten(at);
        if (isNumeral && joins(at + 1, '.')) {
            const auto& minute = token(at + 2);
            if (minute.text.size() != 2 || (!said && meridiem(at + 3).taken == 0)) return 0;
            if (hour < 0 || hour > 23 || minute.value > 59) return 0;
            return setHour(hour, minute.value, at + 3) - at;
        }
        if (isNumeral && token(at).text.size() > 2) return 0;
        if (meridiem(at + 1).taken > 0) return setHour(hour, 0, at + 1) - at;
        if (isWord(at + 1, "o") && isSign(at + 2, '\'') && isWord(at + 3, "clock")) {
            if (hour > 23) impossible_ = true;
            return setHour(spokenHour(hour), 0, at + 4) - at;
        }
        if (isWord(at + 1, "oclock")) return setHour(spokenHour(hour), 0, at + 2) - at;
        if (!said || hour > 23) return 0;
        // "at 3 march", "at 12/24", "at 50%" and "at 3rd street" say no hour.
        const auto& after = token(at + 1);
        const bool goesOn = after.glued && (after.kind == Token::Kind::word || joins(at + 1, '/') ||
                                            joins(at + 1, '-') || isSign(at + 1, '%'));
        if (goesOn || month(at + 1)) return 0;
        setHour(spokenHour(hour), 0, at + 1);
        return 1;
    }
    Taken readWritten(std::size_t at) {
        const int hour = token(at).value;
        const auto& minute = token(at + 2);
        if (hour < 0 || hour > 23 || minute.text.size() != 2 || minute.value > 59) {
            impossible_ = true;
            return 3;
        }
        std::size_t next = at + 3;
        if (joins(next, ':')) next += 2;  // seconds
        const auto half = meridiem(next);
        if (half.taken > 0) return setHour(hour, minute.value, next) - at;
        return setClock({.hour = hour, .minute = minute.value, .isOpen = hour >= 1 && hour <= 12}, next - at);
    }
    /// Who says "at 5" means the afternoon, unless a part of the day says otherwise.
    int spokenHour(int hour) {
        isSpoken_ = true;
        return hour;
    }
    /// "half past 8", "quarter to 5", "ten past nine", "at 5 to 3".
    Taken readSpokenMinutes(std::size_t at) {
        std::size_t start = isWord(at, "at") ? at + 1 : at;
        if (isWord(start, "a") && isWord(start + 1, "quarter")) ++start;
        int minutes = 0;
        std::size_t next = start + 1;
        if (isWord(start, "half")) {
            minutes = 30;
        } else if (isWord(start, "quarter")) {
            minutes = 15;
        } else {
            if (isNumber(start) && !beginsNumber(start)) return 0;
            const auto count = amount(start);
            // Without "at", figures are as likely a range: "read 5 to 10 pages".
            if (count.taken == 0 || (isNumber(start) && start == at && isWord(start + count.taken, "to")))
                return 0;
            minutes = count.number;
            next = start + count.taken;
            if (isWord(next, {"minutes", "mins"})) ++next;
        }
        const bool isTo = isWord(next, "to");
        if ((!isTo && !isWord(next, "past")) || minutes > 59 || (isTo && minutes == 30)) return 0;
        const auto hour = amount(next + 1);
        if (hour.taken == 0 || hour.number < 1 || hour.number > 23 || isWord(next + 1, "a")) return 0;
        const std::size_t end =
            setHour(spokenHour(hour.number), isTo ? -minutes : minutes, next + 1 + hour.taken);
        return end - at;
    }

    // What it comes to

    bool partOrClock() const { return part_ || clock_; }
    /// The time of day that was found, a day's count of minutes; the minutes may lead to the day before or
    /// after.
    int minutesOfDay() const {
        constexpr int minutesInHour = 60, noon = 12, lastAfternoonHour = 6;
        if (!clock_) return hourOf(*part_) * minutesInHour;
        int hour = clock_->hour;
        if (clock_->isOpen) {
            if (part_ == DayPart::morning) {
                hour %= noon;
            } else if (part_ == DayPart::evening || part_ == DayPart::night) {
                hour = hour % noon + noon;
                if (clock_->hour == noon) hour = noon * 2;  // twelve at night ends the day
            } else if (part_ == DayPart::afternoon || (isSpoken_ && hour <= lastAfternoonHour)) {
                hour = hour % noon + noon;
            }
        }
        // The midnight of today is the one that comes.
        if (isMidnight_ && isToday_) hour = noon * 2;
        return hour * minutesInHour + clock_->minute;
    }
    TimePoint moment(DateComponents day, int minutes) const {
        day.hour = 0;
        day.minute = minutes;
        day.second = 0;
        return date(day, calendar_);
    }
    TimePoint nextTime() const {
        auto day = today_;
        const int minutes = minutesOfDay();
        if (moment(day, minutes) <= now_) ++day.day;
        return moment(day, minutes);
    }
    TimePoint momentOfDay() const {
        constexpr int noon = 12 * 60, minutesInHour = 60;
        if (!partOrClock()) {
            if (keepsTime_) return date(*day_, calendar_);
            return moment(*day_, noon);
        }
        const auto found = moment(*day_, minutesOfDay());
        // "tonight" said late is what is left of the night.
        const bool isLate = isToday_ && !clock_ && part_ == DayPart::night && found <= now_;
        return isLate ? moment(today_, (today_.hour + 1) * minutesInHour) : found;
    }

    const std::vector<Token> tokens_;
    const TimePoint now_;
    const Calendar& calendar_;
    const DateComponents today_;

    bool impossible_ = false;
    std::optional<TimePoint> moment_;  // hours and minutes from now: nothing else counts then
    std::optional<DateComponents> day_;
    std::size_t dayEnd_ = 0, isoTimeMark_ = std::string::npos;
    bool isToday_ = false, isWeekday_ = false, isMidnight_ = false, isSpoken_ = false;
    bool keepsTime_ = false;  // the day carries the time of day of now
    std::optional<DayPart> part_;
    std::optional<ClockTime> clock_;
};

}  // namespace

std::optional<TimePoint> EnglishDateDetector::firstDate(std::string_view text, TimePoint now,
                                                        const Calendar& calendar) const {
    return Reading(tokens(text), now, calendar).result();
}

}  // namespace vesk
