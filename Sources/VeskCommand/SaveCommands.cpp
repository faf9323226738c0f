// One save, and watching a vault: what an editor and a script of one's own need of the application.
#include <cstdio>
#include <filesystem>
#include <set>
#include <utility>

#include "VeskCommand/CommandSupport.h"
#include "VeskCommand/Commands.h"
#include "VeskCommand/OutcomeForm.h"
#include "VeskCore/Support/Executors.h"
#include "VeskCore/Support/Match.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Vault/AtomicWrite.h"
#include "VeskCore/Watch/FileWatcher.h"

namespace vesk::command {
namespace {

Json named(const char* name, Json payload) {
    return Json::object({{name, std::move(payload)}});
}

ForeignEdit::Disk diskAt(const Vault& vault, const std::string& path) {
    const auto file = vault.absolutePath(path);
    if (!vault.isNameTaken(file)) return {ForeignEdit::Disk::Plain::gone};
    auto text = CoordinatedIO::readForSave(file);
    if (!text) return {ForeignEdit::Disk::Plain::gone};
    return {ForeignEdit::Disk::Text{std::move(*text)}};
}

/// One save of an editor that is another program: what it loaded is in a file.
void save(const CommandContext& context, const std::string& typed, const std::string& baselineFile) {
    const Vault vault = context.vault();
    const auto path = context.notePath(vault, typed);
    AtomicWrite::refuseDocument(FilePath(path));
    std::optional<std::string> baseline;
    if (!baselineFile.empty()) {
        std::error_code ignored;
        baseline = AtomicWrite::read(standardised(std::filesystem::absolute(baselineFile, ignored)));
        if (!baseline) throw CommandError("There is no file “" + printable(baselineFile) + "”.");
    }
    std::set<std::string> written;
    const ForeignEdit::Effects effects{
        .readDisk = [&](const std::string& place) { return diskAt(vault, place); },
        .write =
            [&](const std::string& text, const std::string& place, const ForeignEdit::Disk& expected) {
                const auto* found = std::get_if<ForeignEdit::Disk::Text>(&expected.value);
                CoordinatedIO::replaceText(vault.absolutePath(place), text,
                                           found ? std::optional(found->text) : std::nullopt);
                written.insert(place);
            },
        .exists = [&](const std::string& place) { return vault.isNameTaken(vault.absolutePath(place)); },
    };
    const auto text = LineEndings::normalized(decodedText(readStandardInput()));
    const auto outcome = ForeignEdit::save(text, path, baseline, effects, {});
    for (const auto& place : written) context.notesChanged(vault, {place});
    context.answer(Json::object({{"path", path}, {"outcome", toJson(outcome)}}));
}

Json changeJson(const FileChange& change) {
    Json json = Json::object({{"path", change.relativePath}});
    match(
        change.kind,
        [&](const FileChange::Kind::Renamed& renamed) {
            json.set("kind", "renamed");
            json.set("from", renamed.fromRelativePath);
        },
        [&](FileChange::Kind::Plain kind) {
            switch (kind) {
                case FileChange::Kind::Plain::created:
                    return json.set("kind", "created");
                case FileChange::Kind::Plain::modified:
                    return json.set("kind", "modified");
                case FileChange::Kind::Plain::deleted:
                    return json.set("kind", "deleted");
            }
        });
    return json;
}

std::string changeLine(const FileChange& change) {
    const auto path = printable(change.relativePath);
    return match(
        change.kind,
        [&](const FileChange::Kind::Renamed& renamed) {
            return "renamed  " + printable(renamed.fromRelativePath) + " → " + path;
        },
        [&](FileChange::Kind::Plain kind) {
            switch (kind) {
                case FileChange::Kind::Plain::created:
                    return "created  " + path;
                case FileChange::Kind::Plain::modified:
                    return "modified " + path;
                case FileChange::Kind::Plain::deleted:
                    return "deleted  " + path;
            }
            return path;
        });
}

/// Tells what happens to the vault's files until it is interrupted.
void watch(const CommandContext& context) {
    const Vault vault = context.vault();
    vault.ensureSupportDirectory();
    RunLoop loop;
    ThreadPool pool(2);
    const auto events = context.fileEvents(vault);
    FileWatcher watcher(vault.root(), Seconds{0.3}, Seconds{2.0}, *events, pool, context.clock);
    const auto say = [&](const std::string& line) {
        loop.post([&context, line] {
            context.out.line(line);
            std::fflush(stdout);
        });
    };
    const auto tell = [&](const Json& line) { say(line.dump()); };
    watcher.onChange = [&](const std::vector<FileChange>& changes) {
        if (context.json) tell(Json::object({{"batch", changes.size()}}));
        for (const auto& change : changes) context.json ? tell(changeJson(change)) : say(changeLine(change));
        if (!context.json) say("");
    };
    const auto note = [&](const char* kind) {
        context.json ? tell(Json::object({{"kind", kind}})) : say(kind);
    };
    watcher.onRescanRequired = [&] { note("rescan"); };
    watcher.onTrashChange = [&] { note("trash"); };
    watcher.start({});
    const std::stop_callback interrupted(context.stop, [&] { loop.quit(); });
    loop.run();
    watcher.stop();
}

}  // namespace

Json toJson(const ForeignEdit::Outcome& outcome) {
    using Outcome = ForeignEdit::Outcome;
    return match(
        outcome,
        [](const Outcome::DiskWins& disk) {
            return named("diskWins", Json::object({{"text", disk.text}}));
        },
        [](const Outcome::KeptBoth& kept) {
            return named("keptBoth", Json::object({{"copyPath", kept.copyPath}}));
        },
        [](const Outcome::Merged& merged) {
            return named("merged", Json::object({{"text", merged.text}}));
        },
        [](const Outcome::FollowedMove& followed) {
            return named("followedMove",
                         Json::object({{"to", followed.to}, {"inner", toJson(*followed.inner)}}));
        },
        [](const Outcome::KeptAsCopy& kept) {
            return named("keptAsCopy", Json::object({{"copyPath", kept.copyPath}}));
        },
        [](Outcome::Plain plain) -> Json {
            switch (plain) {
                case Outcome::Plain::wrote:
                    return "wrote";
                case Outcome::Plain::alreadyOnDisk:
                    return "alreadyOnDisk";
                case Outcome::Plain::noteTrashed:
                    return "noteTrashed";
            }
            return {};
        });
}

void addSaveCommands(CLI::App& program, CommandContext& context) {
    auto* saving = addCommand(
        program, "save", "Save standard input over a note as an editor does: no other text is overwritten",
        "  vesk show a.md > loaded\n  vesk save a.md --baseline loaded < edited");
    auto path = std::make_shared<std::string>();
    auto baseline = std::make_shared<std::string>();
    saving->add_option("PATH", *path, "The note's path in the vault")->required();
    saving->add_option("--baseline", *baseline, "The text that the editor loaded")->type_name("FILE");
    saving->callback([&context, path, baseline] { save(context, *path, *baseline); });

    auto* watching = addCommand(program, "watch", "Tell what changes in the vault, a line for each change",
                                "  vesk watch\n  vesk watch --json | jq -r .path");
    answersWithData(watching, context);
    watching->callback([&context] { watch(context); });
}

}  // namespace vesk::command
