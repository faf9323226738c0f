// What the panel at a note's bell shows, without its widgets.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "VeskCore/Reminders/NoteReminder.h"
#include "VeskCore/Support/Localised.h"
#include "VeskCore/Vault/Vault.h"

namespace vesk {

/// Pure values; any thread.
struct ReminderMenu {
    static constexpr const char* headline = marked("Remind me");
    static constexpr const char* removeLabel = marked("Remove reminder");

    struct Pick {
        std::string label, detail;  ///< "Tomorrow morning", "Tomorrow at 9:00 AM"
        TimePoint date;
        bool operator==(const Pick&) const = default;
    };
    struct Rule {
        std::optional<NoteReminder::Repeat> repeat;
        std::string label;
        bool operator==(const Rule&) const = default;
    };
    /// What a phrase that is being typed comes to.
    struct Reading {
        std::string words;              ///< the date read, or why there is none; empty for an empty phrase
        std::optional<TimePoint> date;  ///< to be set
        bool removes = false;
        bool operator==(const Reading&) const = default;
    };

    std::optional<TimePoint> current;  ///< of the note
    std::optional<NoteReminder::Repeat> rule;
    bool flagged = false;
    std::string summary;                  ///< what is set, in words
    std::optional<std::string> silenced;  ///< why this note's reminder doesn't ring
    std::vector<Pick> picks;
    std::vector<Rule> rules;  ///< none first
    bool operator==(const ReminderMenu&) const = default;

    /// `silencedCopyOf` is the title of the note of which this one is a copy.
    static ReminderMenu of(std::string_view noteText, const std::optional<std::string>& silencedCopyOf,
                           TimePoint now, const Calendar& calendar, std::string_view locale);
    /// The title of the note whose kept copy `path` is, where that note still stands; found as the index
    /// finds the copies that it keeps silent.
    static std::optional<std::string> silencedCopyOf(std::string_view path, const std::vector<Note>& notes);
    static Reading reading(std::string_view phrase, TimePoint now, const Calendar& calendar,
                           std::string_view locale);
};

}  // namespace vesk
