// What is kept for the person: the trash, held text, conflict versions, reminders and flags.
#include <fmt/core.h>
#include <sys/utsname.h>

#include <algorithm>
#include <filesystem>

#include "Vesk/VaultSession.h"
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
#include "VeskCore/Vault/SyncDiagnostics.h"
#include "VeskCore/Vault/SyncProvider.h"
#include "VeskCore/Vault/VaultTrash.h"
#include "VeskCore/Vault/VaultWalk.h"

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

void emptyTrash(const CommandContext& context, bool sure) {
    const VaultTrash trash(context.vault());
    const auto [notes, others] = trash.trashedNotes();
    if (notes.empty() && others == 0) return context.out.line("The trash is empty.");
    if (!sure) throw CommandError(VaultTrash::emptyPrompt(notes, others) + " Say so with --yes.");
    trash.empty();
}

HeldTextStore heldTextOf(const CommandContext& context, const Vault& vault) {
    return HeldTextStore(HeldTextStore::directoryFor(vault.root()), context.clock);
}

/// The recovery that every opening of the vault begins with.
void recoverHeld(const CommandContext& context) {
    const Vault vault = context.vault();
    RunLoop loop;
    ThreadPool pool(1);
    const auto events = context.fileEvents(vault);
    const auto session = VaultSession::make(vault, {.clock = context.clock,
                                                    .mainQueue = loop,
                                                    .background = pool,
                                                    .log = context.log,
                                                    .defaults = context.defaults,
                                                    .fileEvents = *events,
                                                    .fileVersions = context.fileVersions,
                                                    .embeddings = context.embeddings,
                                                    .calendar = Calendar::system});
    session->start();
    const auto told = session->heldTextWarnings();
    session->stop();
    for (const auto& copy : session->recoveredHeldText()) context.out.line(printable(copy.copy));
    for (const auto& warning : told)
        context.remark(warning.title + (warning.detail.empty() ? "" : ": " + warning.detail));
    const auto left = heldTextOf(context, vault).leftovers(true);
    if (!left.empty())
        throw CommandError(fmt::format("Text is still held for “{}”; the next start tries again.",
                                       printable(left.front().entry.relativePath)));
}

void discardHeld(const CommandContext& context, const std::string& typed) {
    const Vault vault = context.vault();
    const auto path = context.notePath(vault, typed);
    auto store = heldTextOf(context, vault);
    bool found = false;
    for (const auto& leftover : store.leftovers(true)) {
        if (leftover.entry.relativePath != path) continue;
        store.remove(leftover.file);
        found = true;
    }
    if (!found) throw CommandError(fmt::format("Nothing is held for “{}”.", printable(path)));
}

void held(const CommandContext& context) {
    const Vault vault = context.vault();
    const auto store = heldTextOf(context, vault);
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

/// Settles one note's conflict, or every one.
void resolveConflicts(const CommandContext& context, const std::string& typed, const std::string& keep) {
    const Vault vault = context.vault();
    const auto wanted = typed.empty() ? std::string() : context.notePath(vault, typed);
    using Plain = ConflictResolution::Plain;
    const ConflictResolution resolution = keep == "current" ? ConflictResolution{Plain::keepCurrent}
                                          : keep == "both"
                                              ? ConflictResolution{Plain::keepBoth}
                                              : ConflictResolution{ConflictResolution::KeepOther{keep}};
    const ConflictResolver resolver(context.fileVersions);
    vault.ensureSupportDirectory();  // by which its trash is found
    bool found = false;
    for (const auto& conflict : resolver.scan(vault)) {
        if (!wanted.empty() && conflict.relativePath != wanted) continue;
        if (const auto* other = std::get_if<ConflictResolution::KeepOther>(&resolution.value)) {
            if (std::none_of(conflict.others.begin(), conflict.others.end(),
                             [&](const auto& version) { return version.identifier == other->identifier; }))
                continue;
        }
        found = true;
        resolver.resolve(conflict, resolution, vault);
        context.notesChanged(vault, {conflict.relativePath});
        context.out.line(printable(conflict.relativePath));
    }
    if (!found &&
        (!wanted.empty() || std::holds_alternative<ConflictResolution::KeepOther>(resolution.value)))
        throw CommandError("There is no such conflict.");
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

/// What the two buttons of a reminder's notification do.
void actOnReminder(const CommandContext& context, const Vault& vault, const std::string& path,
                   NoteReminder::ActionKind kind) {
    using Outcome = NoteReminder::ActionOutcome;
    const auto text = textOf(vault, path);
    const auto calendar = Calendar::system();
    match(
        NoteReminder::applying(kind, text, context.clock.now(), calendar),
        [&](const Outcome::Write& write) {
            rewrite(context, vault, path, text, write.text);
            if (const auto date = NoteReminder::reminder(write.text, calendar))
                context.out.line(NoteReminder::format(*date, calendar));
        },
        [&](const Outcome::LocalSnooze&) {
            throw CommandError(fmt::format("“{}” repeats, so its date stays: it is snoozed where it rings.",
                                           printable(path)));
        },
        [&](const Outcome::Nothing&) {
            throw CommandError(fmt::format("“{}” has no reminder.", printable(path)));
        });
}

void remind(const CommandContext& context, const std::string& typed, const std::string& phrase,
            const std::string& repeat) {
    using Intent = NoteReminder::PhraseIntent;
    const Vault vault = context.vault();
    const auto path = context.notePath(vault, typed);
    if (phrase == "done") return actOnReminder(context, vault, path, NoteReminder::ActionKind::done);
    if (phrase == "snooze") return actOnReminder(context, vault, path, NoteReminder::ActionKind::snooze);
    const auto text = textOf(vault, path);
    const auto calendar = Calendar::system();
    const auto intent = phrase == "off" ? Intent{Intent::Plain::remove}
                                        : NoteReminder::parseIntent(phrase, context.clock.now(), calendar,
                                                                    EnglishDateDetector());
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

std::string systemName() {
    utsname names{};
    if (::uname(&names) != 0) return "Linux";
    return fmt::format("{} {} {}", names.sysname, names.release, names.machine);
}

std::optional<std::int64_t> freeBytes(const Vault& vault) {
    std::error_code failed;
    const auto space = std::filesystem::space(vault.root(), failed);
    if (failed) return {};
    return static_cast<std::int64_t>(space.available);
}

void syncReport(const CommandContext& context) {
    const Vault vault = context.vault();
    const auto provider = detectSyncProvider(vault.root());
    SyncDiagnostics report{.generatedAt = context.clock.now(), .build = VESK_VERSION, .system = systemName()};
    report.vaultPath = vault.root().native();
    report.provider = displayName(provider);
    report.reachesICloud = provider == SyncProvider::iCloudDrive;
    SyncDiagnostics::Walk walk{.trigger = std::string(rawValue(SyncTrigger::pull)),
                               .at = context.clock.now()};
    walk.freeBefore = freeBytes(vault);
    const auto listing = VaultWalk::walk(vault, DownloadAsk::nothing, DownloadAsk::nothing, context.clock);
    walk.walk = walk.pass = listing.duration.count();
    walk.notes = static_cast<int>(listing.notes.size());
    walk.stubs = listing.stubCount;
    walk.freeAfter = freeBytes(vault);
    report.lastWalk = std::move(walk);
    report.passes[std::string(rawValue(SyncTrigger::pull))] = 1;
    report.log.recordPass(SyncTrigger::pull, {}, {}, listing.notes.size(), {}, listing.duration.count(), true,
                          listing.takenAt);
    for (const auto& conflict : vault.conflictFiles())
        report.log.note("conflict file", conflict.native(), context.clock.now());
    context.out.print(report.reportText(Calendar::system().timeZone));
}

}  // namespace

void addSafetyCommands(CLI::App& program, CommandContext& context) {
    const auto withPath = [](CLI::App* command, const char* what) {
        auto path = std::make_shared<std::string>();
        command->add_option("PATH", *path, what)->required();
        return path;
    };
    {
        auto* trash =
            addCommand(program, "trash", "Put a note in the vault's own trash, or see to what is in it",
                       "  vesk trash Old.md\n  vesk trash restore Old.md\n  vesk trash list\n"
                       "  vesk trash put list");
        trash->require_subcommand(0, 1);
        auto note = std::make_shared<std::string>();
        trash->add_option("NOTE", *note, "The note's path in the vault");
        trash->callback([&context, trash, note] {
            if (!trash->get_subcommands().empty()) return;
            if (note->empty()) throw CLI::RequiredError("A note or what to do");
            putInTrash(context, *note);
        });
        auto* list = trash->add_subcommand("list", "What is in it, newest first");
        answersWithData(list, context);
        list->callback([&context] { listTrash(context); });
        auto* empty = trash->add_subcommand("empty", "Delete all that is in it for ever");
        auto sure = std::make_shared<bool>(false);
        empty->add_flag("--yes", *sure, "Without this nothing is deleted");
        empty->callback([&context, sure] { emptyTrash(context, *sure); });
        auto* put = trash->add_subcommand("put", "Put a note in it, whatever its name");
        put->callback(
            [&context, path = withPath(put, "The note's path in the vault")] { putInTrash(context, *path); });
        auto* back = trash->add_subcommand("restore", "Put a note back where it came from");
        back->callback([&context, path = withPath(back, "Its path in the trash, or where it came from")] {
            restore(context, *path);
        });
    }
    {
        auto* command = addCommand(program, "held", "List the text that could not be saved yet, or see to it",
                                   "  vesk held --json\n  vesk held recover\n  vesk held discard Plan.md");
        answersWithData(command, context);
        command->require_subcommand(0, 1);
        command->callback([&context, command] {
            if (command->get_subcommands().empty()) held(context);
        });
        auto* recover = command->add_subcommand("recover", "Bring back what an earlier run could not save");
        recover->callback([&context] { recoverHeld(context); });
        auto* discard = command->add_subcommand("discard", "Let go of what is held for a note");
        discard->callback([&context, path = withPath(discard, "The note's path in the vault")] {
            discardHeld(context, *path);
        });
    }
    {
        auto* command =
            addCommand(program, "conflicts", "List the notes with versions of other devices, or settle them",
                       "  vesk conflicts --json\n  vesk conflicts resolve\n"
                       "  vesk conflicts resolve Plan.md --keep current");
        answersWithData(command, context);
        command->require_subcommand(0, 1);
        command->callback([&context, command] {
            if (command->get_subcommands().empty()) conflicts(context);
        });
        auto* resolve = command->add_subcommand("resolve", "Settle the conflict of a note, or of all");
        auto path = std::make_shared<std::string>();
        auto keep = std::make_shared<std::string>("both");
        resolve->add_option("PATH", *path, "The note's path in the vault; all notes without it");
        resolve->add_option("--keep", *keep, "both, current, or the identifier of another version")
            ->type_name("WHICH");
        resolve->callback([&context, path, keep] { resolveConflicts(context, *path, *keep); });
    }
    {
        auto* command = addCommand(program, "remind", "Set a note's reminder, or remove it",
                                   "  vesk remind Bills.md 'tomorrow 9am' --repeat monthly\n"
                                   "  vesk remind Bills.md off\n  vesk remind Bills.md done");
        auto path = withPath(command, "The note's path in the vault");
        auto phrase = std::make_shared<std::string>();
        auto repeat = std::make_shared<std::string>();
        command->add_option("WHEN", *phrase, "A date, “off”, “done” or “snooze”")->required();
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
    {
        auto* command = addCommand(program, "sync-report",
                                   "Report where the vault lies and what its synchronisation has been doing",
                                   "  vesk sync-report");
        command->callback([&context] { syncReport(context); });
    }
}

}  // namespace vesk::command
