// Reading and writing the keys in a note's text.
#include "VeskCore/Reminders/NoteReminder.h"

#include <fmt/format.h>

#include "VeskCore/Markdown/FrontmatterDoc.h"
#include "VeskCore/Support/Match.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"

namespace vesk {
namespace NoteReminder {
namespace {

constexpr int hourWithoutTime = 9;

/// The integers between the separators; none unless there are just `count` of them.
std::optional<std::vector<long long>> integers(std::string_view text, char separator, std::size_t count) {
    std::vector<long long> numbers;
    for (auto part : split(text, separator)) {
        const auto number = parseInteger(part);
        if (!number || numbers.size() == count) return {};
        numbers.push_back(*number);
    }
    return numbers.size() == count ? std::optional(numbers) : std::nullopt;
}

bool isIn(long long number, long long first, long long last) {
    return number >= first && number <= last;
}

/// The value of a key as the index keeps it: opaque YAML and lists are no reminder.
std::optional<std::string> plainValue(const FrontmatterDoc& doc, std::string_view name) {
    const auto value = doc[name];
    if (!value || std::holds_alternative<YAMLValue::Raw>(value->value)) return {};
    return value->stringValue();
}

std::optional<Repeat> repeatOf(const FrontmatterDoc& doc) {
    const auto text = plainValue(doc, repeatKey);
    return text ? repeatFrom(*text) : std::nullopt;
}

std::string finished(const FrontmatterDoc& doc) {
    auto text = doc.serialized();
    const auto end = doc.lineEnding();
    if (!text.ends_with(end)) text += end;
    // The frontmatter is never the last thing in the file.
    if (doc.body().empty() && !doc.slots().empty()) text += end;
    return text;
}

std::string removing(FrontmatterDoc doc, std::string_view noteText) {
    if (!doc[key] && !doc[repeatKey]) return std::string(noteText);
    doc.remove(key);
    doc.remove(repeatKey);
    return finished(doc);
}

}  // namespace

std::string_view rawValue(Repeat repeat) {
    switch (repeat) {
        case Repeat::daily:
            return "daily";
        case Repeat::weekdays:
            return "weekdays";
        case Repeat::weekly:
            return "weekly";
        case Repeat::monthly:
            return "monthly";
        case Repeat::yearly:
            return "yearly";
    }
    return {};
}

std::optional<Repeat> repeatFrom(std::string_view text) {
    struct Spelling {
        std::string_view text;
        Repeat repeat;
    };
    static constexpr Spelling spellings[] = {
        {"daily", Repeat::daily},         {"every day", Repeat::daily},   {"everyday", Repeat::daily},
        {"weekdays", Repeat::weekdays},   {"weekday", Repeat::weekdays},  {"every weekday", Repeat::weekdays},
        {"weekly", Repeat::weekly},       {"every week", Repeat::weekly}, {"monthly", Repeat::monthly},
        {"every month", Repeat::monthly}, {"yearly", Repeat::yearly},     {"annually", Repeat::yearly},
        {"every year", Repeat::yearly},
    };
    const auto word = lowercased(trim(text));
    for (const auto& spelling : spellings) {
        if (spelling.text == word) return spelling.repeat;
    }
    return {};
}

std::optional<TimePoint> date(std::string_view text, const Calendar& calendar) {
    const auto spaced = replaceAll(trim(text), "T", " ");
    const auto space = spaced.find(' ');
    const auto day = integers(std::string_view(spaced).substr(0, space), '-', 3);
    if (!day || !isIn((*day)[0], 1, 9999) || !isIn((*day)[1], 1, 12) || !isIn((*day)[2], 1, 31)) return {};
    DateComponents parts{.year = static_cast<int>((*day)[0]),
                         .month = static_cast<int>((*day)[1]),
                         .day = static_cast<int>((*day)[2]),
                         .hour = hourWithoutTime};
    if (space != std::string::npos) {
        const auto time = integers(std::string_view(spaced).substr(space + 1), ':', 2);
        if (!time || !isIn((*time)[0], 0, 23) || !isIn((*time)[1], 0, 59)) return {};
        parts.hour = static_cast<int>((*time)[0]);
        parts.minute = static_cast<int>((*time)[1]);
    }
    return vesk::date(parts, calendar);
}

std::string format(TimePoint date, const Calendar& calendar) {
    const auto parts = components(date, calendar);
    return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}", parts.year, parts.month, parts.day, parts.hour,
                       parts.minute);
}

std::optional<TimePoint> reminder(std::string_view noteText, const Calendar& calendar) {
    const auto text = plainValue(FrontmatterDoc(noteText), key);
    return text ? date(*text, calendar) : std::nullopt;
}

std::optional<Repeat> repeatRule(std::string_view noteText) {
    return repeatOf(FrontmatterDoc(noteText));
}

std::optional<std::string> rawRule(std::string_view noteText) {
    const auto value = FrontmatterDoc(noteText)[repeatKey];
    return value ? value->stringValue() : std::nullopt;
}

std::string setting(std::optional<TimePoint> date, std::string_view noteText, const Calendar& calendar) {
    FrontmatterDoc doc(noteText);
    if (!date) return removing(std::move(doc), noteText);
    doc.set(key, YAMLValue::string(format(*date, calendar)));
    // A repeat that isn't known is the user's own and stays as it stands.
    if (const auto repeat = repeatOf(doc)) doc.set(repeatKey, YAMLValue::string(rawValue(*repeat)));
    return finished(doc);
}

std::string setting(std::optional<TimePoint> date, std::optional<Repeat> repeat, std::string_view noteText,
                    const Calendar& calendar) {
    FrontmatterDoc doc(noteText);
    if (!date) return removing(std::move(doc), noteText);
    doc.set(key, YAMLValue::string(format(*date, calendar)));
    doc.set(repeatKey, repeat ? std::optional(YAMLValue::string(rawValue(*repeat))) : std::nullopt);
    return finished(doc);
}

std::string noteTemplate(TimePoint date, const Calendar& calendar) {
    return fmt::format("---\n{}: {}\n---\n\n", key, format(date, calendar));
}

}  // namespace NoteReminder

namespace NotePriority {

bool isFlagged(const std::optional<std::string>& value) {
    if (!value) return false;
    const auto word = lowercased(trim(*value));
    return word == "high" || word == "highest" || word == "urgent";
}

bool flagged(std::string_view noteText) {
    return isFlagged(raw(noteText));
}

std::optional<std::string> raw(std::string_view noteText) {
    const auto value = FrontmatterDoc(noteText)[key];
    return value ? value->stringValue() : std::nullopt;
}

std::string setting(bool flag, std::string_view noteText) {
    FrontmatterDoc doc(noteText);
    if (flag) {
        doc.set(key, YAMLValue::string("high"));
    } else if (doc[key]) {
        doc.remove(key);
    } else {
        return std::string(noteText);
    }
    return NoteReminder::finished(doc);
}

}  // namespace NotePriority
}  // namespace vesk
