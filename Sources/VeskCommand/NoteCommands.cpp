#include <fmt/core.h>

#include <algorithm>
#include <ctime>

#include "VeskCommand/CommandSupport.h"
#include "VeskCommand/Commands.h"
#include "VeskCommand/JsonForm.h"
#include "VeskCore/Platform/FilePlatform.h"
#include "VeskCore/Support/DateFormat.h"
#include "VeskCore/Support/PathText.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Vault/AtomicWrite.h"

namespace vesk::command {
namespace {

void list(const CommandContext& context, bool documents) {
    const Vault vault = context.vault();
    auto [notes, pages] = vault.enumerateNotesAndDocuments();
    const auto newestFirst = [](const auto& a, const auto& b) {
        return a.modified != b.modified ? a.modified > b.modified : a.relativePath < b.relativePath;
    };
    std::sort(notes.begin(), notes.end(), newestFirst);
    std::sort(pages.begin(), pages.end(), newestFirst);
    if (context.json) {
        Json answer = Json::object({{"notes", toJson(notes)}});
        if (documents) answer.set("documents", toJson(pages));
        context.answer(answer);
        return;
    }
    const DateFormat day("yyyy-MM-dd HH:mm", deviceTimeZone());
    const auto row = [&](TimePoint modified, std::int64_t size, const std::string& path) {
        context.out.line(
            context.out.styled(fmt::format("{}  {:>8}", day.format(modified), size), Tone::faint) + "  " +
            printable(path));
    };
    for (const auto& note : notes) row(note.modified, note.size, note.relativePath);
    if (documents) {
        for (const auto& page : pages) row(page.modified, page.size, page.relativePath);
    }
}

void diagnose(const CommandContext& context) {
    const Vault vault = context.namedVault();
    const auto warnings = vault.diagnose();
    if (context.json) {
        context.answer(toJson(warnings));
        return;
    }
    if (warnings.empty())
        context.out.line(context.out.styled("Nothing is wrong with this folder.", Tone::good));
    for (const auto& warning : warnings) {
        const auto tone = warning.severity == VaultWarning::Severity::critical  ? Tone::bad
                          : warning.severity == VaultWarning::Severity::warning ? Tone::warning
                                                                                : Tone::strong;
        context.out.line(context.out.styled(warning.title, tone));
        context.out.line("  " + printable(warning.detail));
    }
}

std::string textOf(const Vault& vault, const std::string& path) {
    auto text = AtomicWrite::read(vault.absolutePath(path));
    if (!text) throw CommandError(fmt::format("There is no note at “{}”.", printable(path)));
    return *text;
}

/// Text that came through a pipe, as a note holds it.
std::string noteText() {
    return LineEndings::normalized(decodedText(readStandardInput()));
}

}  // namespace

void addNoteCommands(CLI::App& program, CommandContext& context) {
    {
        auto* command = addCommand(
            program, "list", "List the notes, newest first",
            "  vesk list\n  vesk list --documents\n  vesk list --json | jq -r '.notes[].relativePath'");
        auto documents = std::make_shared<bool>(false);
        command->add_flag("--documents", *documents, "Saved web pages and stylesheets too");
        answersWithData(command, context);
        command->callback([&context, documents] { list(context, *documents); });
    }
    {
        auto* command = addCommand(program, "diagnose", "Tell what is wrong with the folder",
                                   "  vesk diagnose --vault ~/Notes");
        answersWithData(command, context);
        command->callback([&context] { diagnose(context); });
    }
    {
        auto* command = addCommand(program, "show", "Print a note", "  vesk show Recipes/Bread.md");
        auto path = std::make_shared<std::string>();
        command->add_option("PATH", *path, "The note's path in the vault")->required();
        answersWithData(command, context);
        command->callback([&context, path] {
            const Vault vault = context.vault();
            const auto relative = context.notePath(vault, *path);
            const auto text = textOf(vault, relative);
            if (context.json) {
                context.answer(Json::object({{"relativePath", relative}, {"text", text}}));
            } else {
                context.out.print(text);
            }
        });
    }
    {
        auto* command =
            addCommand(program, "new", "Make a note from standard input",
                       "  vesk new 'Shopping list' --folder Home < list.txt\n  vesk new Empty < /dev/null");
        auto name = std::make_shared<std::string>();
        auto folder = std::make_shared<std::string>();
        command->add_option("NAME", *name, "The note's name, without extension")->required();
        command->add_option("--folder", *folder, "The folder it goes to; made if it isn't there");
        answersWithData(command, context);
        command->callback([&context, name, folder] {
            const Vault vault = context.vault();
            const auto note = vault.createNote(*name, context.notePath(vault, *folder), noteText());
            context.notesChanged(vault, {note.relativePath});
            if (context.json) {
                context.answer(toJson(note));
            } else {
                context.out.line(printable(note.relativePath));
            }
        });
    }
    {
        auto* command = addCommand(
            program, "write", "Put standard input in the place of a note's text, or make the note",
            "  vesk write Inbox.md < text.md\n  vesk show a.md | sed 's/colour/color/' | vesk write a.md");
        auto path = std::make_shared<std::string>();
        command->add_option("PATH", *path, "The note's path in the vault")->required();
        command->callback([&context, path] {
            const Vault vault = context.vault();
            const auto relative = context.notePath(vault, *path);
            requireNote(relative);
            vault.writeText(noteText(), relative);
            context.notesChanged(vault, {relative});
        });
    }
    const auto moved = [&context](const Vault& vault, const std::string& from, const std::string& to) {
        context.notesChanged(vault, {from, to});
        if (context.json) {
            context.answer(Json::object({{"relativePath", to}}));
        } else {
            context.out.line(printable(to));
        }
    };
    {
        auto* command = addCommand(program, "rename", "Give a note another name in its folder",
                                   "  vesk rename Inbox/idea.md 'A better idea'");
        auto path = std::make_shared<std::string>();
        auto name = std::make_shared<std::string>();
        command->add_option("PATH", *path, "The note's path in the vault")->required();
        command->add_option("NAME", *name, "The new name, without extension")->required();
        answersWithData(command, context);
        command->callback([&context, path, name, moved] {
            const Vault vault = context.vault();
            const auto from = context.notePath(vault, *path);
            textOf(vault, from);
            moved(vault, from, vault.renameNote(from, *name));
        });
    }
    {
        auto* command =
            addCommand(program, "move", "Move a note to another folder",
                       "  vesk move Inbox/idea.md Projects/Garden\n  vesk move Projects/idea.md ''");
        auto path = std::make_shared<std::string>();
        auto folder = std::make_shared<std::string>();
        command->add_option("PATH", *path, "The note's path in the vault")->required();
        command
            ->add_option("FOLDER", *folder, "The folder it goes to, '' for the top; made if it isn't there")
            ->required();
        answersWithData(command, context);
        command->callback([&context, path, folder, moved] {
            const Vault vault = context.vault();
            const auto from = context.notePath(vault, *path);
            textOf(vault, from);
            moved(vault, from, vault.moveNote(from, context.notePath(vault, *folder)));
        });
    }
}

}  // namespace vesk::command
