// What is kept for the person: the trash, held text, conflict versions, reminders and flags.
#include <fmt/core.h>

#include <algorithm>

#include "VeskCommand/CommandSupport.h"
#include "VeskCommand/Commands.h"
#include "VeskCommand/JsonForm.h"
#include "VeskCore/Index/NoteIndex.h"
#include "VeskCore/Reminders/EnglishDateDetector.h"
#include "VeskCore/Reminders/NoteReminder.h"
#include "VeskCore/Support/DateFormat.h"
#include "VeskCore/Support/Match.h"
#include "VeskCore/Support/PathText.h"
#include "VeskCore/Vault/AtomicWrite.h"
#include "VeskCore/Vault/ConflictResolver.h"
#include "VeskCore/Vault/HeldTextStore.h"
#include "VeskCore/Vault/VaultTrash.h"

namespace vesk::command {
namespace {

void listTrash(const CommandContext& context) {
    const auto [notes, others] = VaultTrash(context.vault()).trashedNotes();
    Json::Array list;
    for (const auto& note : notes) {
        list.push_back(Json::object({{"trashPath", note.trashPath},
                                     {"origin", note.origin},
                                     {"name", note.name()},
                                     {"trashedAt", toJson(note.trashedAt)}}));
    }
    if (context.json) {
        context.answer(Json::object({{"notes", Json(std::move(list))}, {"otherItems", others}}));
        return;
    }
    for (const auto& note : notes) context.out.line(printable(note.trashPath));
}

void putInTrash(const CommandContext& context, const std::string& typed) {
    const Vault vault = context.vault();
    const auto path = context.notePath(vault, typed);
    const auto trashed = VaultTrash(vault).trashNote(path);
    context.notesChanged(vault, {path});
    context.out.line(printable(trashed));
}

void restore(const CommandContext& context, const std::string& path) {
    const Vault vault = context.vault();
    const VaultTrash trash(vault);
    const auto notes = trash.trashedNotes().first;
    const auto matching = [&](auto test) { return std::find_if(notes.begin(), notes.end(), test); };
    auto note = matching([&](const TrashedNote& candidate) {
        return candidate.trashPath == path || ".trash/" + candidate.trashPath == path;
    });
    if (note == notes.end()) note = matching([&](const TrashedNote& one) { return one.origin == path; });
    if (note == notes.end()) throw CommandError(fmt::format("The trash holds no “{}”.", printable(path)));
    const auto restored = trash.restore(*note);
    context.notesChanged(vault, {restored});
    context.out.line(printable(restored));
}

void held(const CommandContext& context) {
    const Vault vault = context.vault();
    const HeldTextStore store(HeldTextStore::directoryFor(vault.root()), context.clock);
    Json::Array list;
    for (const auto& leftover : store.leftovers(true)) {
        const auto& entry = leftover.entry;
        list.push_back(Json::object({{"path", entry.relativePath},
                                     {"text", entry.text},
                                     {"savedAt", toJson(entry.savedAt)},
                                     {"trashed", entry.trashed}}));
        if (!context.json) context.out.line(printable(entry.relativePath));
    }
    if (context.json) context.answer(Json(std::move(list)));
}

void conflicts(const CommandContext& context) {
    Json::Array list;
    for (const auto& conflict : ConflictResolver(context.fileVersions).scan(context.vault())) {
        Json::Array others;
        if (!context.json) context.out.line(printable(conflict.relativePath));
        for (const auto& version : conflict.others) {
            others.push_back(Json::object({{"identifier", version.identifier},
                                           {"device", version.deviceName},
                                           {"modified", toJson(version.modified)},
                                           {"text", version.text}}));
            if (!context.json) {
                context.out.line("  " + printable(version.identifier) + ", " +
                                 printable(version.summary(deviceTimeZone(), "en_GB")));
            }
        }
        list.push_back(Json::object({{"path", conflict.relativePath}, {"others", Json(std::move(others))}}));
    }
    if (context.json) context.answer(Json(std::move(list)));
}

/// Puts `changed` in the place of what was read, which nobody may have changed meanwhile.
void rewrite(const CommandContext& context, const Vault& vault, const std::string& path,
             const std::string& before, const std::string& changed) {
    if (changed == before) return;
    CoordinatedIO::replaceText(vault.absolutePath(path), changed, before);
    context.notesChanged(vault, {path});
}

std::string textOf(const Vault& vault, const std::string& path) {
    AtomicWrite::refuseDocument(FilePath(path));
    auto text = CoordinatedIO::readForSave(vault.absolutePath(path));
    if (!text) throw CommandError(fmt::format("There is no note at “{}”.", printable(path)));
    return *text;
}

void remind(const CommandContext& context, const std::string& typed, const std::string& phrase,
            const std::string& repeat) {
    using Intent = NoteReminder::PhraseIntent;
    const Vault vault = context.vault();
    const auto path = context.notePath(vault, typed);
    const auto text = textOf(vault, path);
    const auto calendar = Calendar::system();
    const auto intent =
        NoteReminder::parseIntent(phrase, context.clock.now(), calendar, EnglishDateDetector());
    std::optional<NoteReminder::Repeat> rule;
    if (!repeat.empty()) {
        rule = NoteReminder::repeatFrom(repeat);
        if (!rule) throw CommandError(fmt::format("“{}” is no repeat that is known.", printable(repeat)));
    }
    match(
        intent,
        [&](const Intent::Set& set) {
            rewrite(context, vault, path, text,
                    rule ? NoteReminder::setting(set.date, rule, text, calendar)
                         : NoteReminder::setting(set.date, text, calendar));
            context.out.line(NoteReminder::format(set.date, calendar));
        },
        [&](Intent::Plain plain) {
            if (plain == Intent::Plain::unknown)
                throw CommandError(fmt::format("“{}” names no date that is known.", printable(phrase)));
            rewrite(context, vault, path, text, NoteReminder::setting(std::nullopt, text, calendar));
        });
}

void reminders(const CommandContext& context) {
    const Vault vault = context.vault();
    const auto index = context.openIndex(vault, true);
    const auto calendar = Calendar::system();
    Json::Array list;
    for (const auto& reminder : index->reminders(calendar, context.clock.now())) {
        Json entry = Json::object({{"path", reminder.path},
                                   {"title", reminder.title},
                                   {"date", toJson(reminder.date)},
                                   {"flagged", reminder.flagged}});
        if (reminder.repeatRule) entry.set("repeat", NoteReminder::rawValue(*reminder.repeatRule));
        list.push_back(std::move(entry));
        if (!context.json) {
            context.out.line(NoteReminder::format(reminder.date, calendar) + "  " + printable(reminder.path));
        }
    }
    if (context.json) context.answer(Json(std::move(list)));
}

void flag(const CommandContext& context, const std::string& typed, bool on) {
    const Vault vault = context.vault();
    const auto path = context.notePath(vault, typed);
    const auto text = textOf(vault, path);
    rewrite(context, vault, path, text, NotePriority::setting(on, text));
}

}  // namespace

void addSafetyCommands(CLI::App& program, CommandContext& context) {
    const auto withPath = [](CLI::App* command, const char* what) {
        auto path = std::make_shared<std::string>();
        command->add_option("PATH", *path, what)->required();
        return path;
    };
    {
        auto* trash = addCommand(program, "trash", "The vault's own trash",
                                 "  vesk trash put Old.md\n  vesk trash restore Old.md\n  vesk trash list");
        trash->require_subcommand(1);
        auto* list = trash->add_subcommand("list", "What is in it, newest first");
        answersWithData(list, context);
        list->callback([&context] { listTrash(context); });
        auto* put = trash->add_subcommand("put", "Put a note in it");
        put->callback(
            [&context, path = withPath(put, "The note's path in the vault")] { putInTrash(context, *path); });
        auto* back = trash->add_subcommand("restore", "Put a note back where it came from");
        back->callback([&context, path = withPath(back, "Its path in the trash, or where it came from")] {
            restore(context, *path);
        });
    }
    {
        auto* command =
            addCommand(program, "held", "List the text that could not be saved yet", "  vesk held --json");
        answersWithData(command, context);
        command->callback([&context] { held(context); });
    }
    {
        auto* command = addCommand(program, "conflicts", "List the notes with versions of other devices",
                                   "  vesk conflicts --json");
        answersWithData(command, context);
        command->callback([&context] { conflicts(context); });
    }
    {
        auto* command = addCommand(program, "remind", "Set a note's reminder, or remove it",
                                   "  vesk remind Bills.md 'tomorrow 9am' --repeat monthly\n"
                                   "  vesk remind Bills.md never");
        auto path = withPath(command, "The note's path in the vault");
        auto phrase = std::make_shared<std::string>();
        auto repeat = std::make_shared<std::string>();
        command->add_option("WHEN", *phrase, "A date, or “never”")->required();
        command->add_option("--repeat", *repeat, "daily, weekdays, weekly, monthly or yearly");
        command->callback([&context, path, phrase, repeat] { remind(context, *path, *phrase, *repeat); });
    }
    {
        auto* command =
            addCommand(program, "reminders", "List the reminders in the notes", "  vesk reminders --json");
        answersWithData(command, context);
        command->callback([&context] { reminders(context); });
    }
    {
        auto* command = addCommand(program, "flag", "Flag a note, or take its flag away",
                                   "  vesk flag Plan.md\n  vesk flag Plan.md --off");
        auto path = withPath(command, "The note's path in the vault");
        auto off = std::make_shared<bool>(false);
        command->add_flag("--off", *off, "Take the flag away");
        command->callback([&context, path, off] { flag(context, *path, !*off); });
    }
}

}  // namespace vesk::command
