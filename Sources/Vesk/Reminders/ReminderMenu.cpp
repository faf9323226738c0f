#include "Vesk/Reminders/ReminderMenu.h"

#include "VeskCore/Reminders/EnglishDateDetector.h"
#include "VeskCore/Support/Match.h"
#include "VeskCore/Support/PathText.h"
#include "VeskCore/Vault/ForeignEdit.h"

namespace vesk {

ReminderMenu ReminderMenu::of(std::string_view noteText, const std::optional<std::string>& silencedCopyOf,
                              TimePoint now, const Calendar& calendar, std::string_view locale) {
    using NoteReminder::Repeat;
    ReminderMenu menu;
    menu.current = NoteReminder::reminder(noteText, calendar);
    if (menu.current) menu.rule = NoteReminder::repeatRule(noteText);
    menu.flagged = NotePriority::flagged(noteText);
    menu.summary = menu.current ? NoteReminder::describe(*menu.current, menu.rule, now, calendar, locale)
                                : localised("No reminder");
    if (menu.current && silencedCopyOf)
        menu.silenced = localised("This note is a copy of “{}”, and only that one rings.", *silencedCopyOf);
    for (const auto& pick : NoteReminder::quickPicks(now, calendar))
        menu.picks.push_back(
            {pick.label, NoteReminder::describe(pick.date, now, calendar, locale), pick.date});
    menu.rules.push_back({std::nullopt, localised("Doesn’t repeat")});
    // Before a date is set the rules are worded for the one that is offered first.
    const auto date = menu.current ? *menu.current : menu.picks.empty() ? now : menu.picks.front().date;
    for (const auto repeat :
         {Repeat::daily, Repeat::weekdays, Repeat::weekly, Repeat::monthly, Repeat::yearly})
        menu.rules.push_back({repeat, NoteReminder::menuLabel(repeat, date, calendar, locale)});
    return menu;
}

std::optional<std::string> ReminderMenu::silencedCopyOf(std::string_view path,
                                                        const std::vector<Note>& notes) {
    const auto name = ForeignEdit::originalStem(stem(path));
    if (!name) return {};
    const auto original = joinedPath(parentFolder(path), *name);
    for (const auto& note : notes)
        if (deletingExtension(note.relativePath) == original) return note.title;
    return {};
}

ReminderMenu::Reading ReminderMenu::reading(std::string_view phrase, TimePoint now, const Calendar& calendar,
                                            std::string_view locale) {
    using Intent = NoteReminder::PhraseIntent;
    if (phrase.find_first_not_of(" \t\n") == std::string_view::npos) return {};
    return match(
        NoteReminder::parseIntent(phrase, now, calendar, EnglishDateDetector()).value,
        [&](const Intent::Set& set) {
            return Reading{.words = NoteReminder::describe(set.date, now, calendar, locale),
                           .date = set.date};
        },
        [](Intent::Plain plain) {
            switch (plain) {
                case Intent::Plain::remove:
                    return Reading{.words = localised(removeLabel), .date = {}, .removes = true};
                case Intent::Plain::unknown:
                    break;
            }
            return Reading{.words = localised("No date that is still to come")};
        });
}

}  // namespace vesk
