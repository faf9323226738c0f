// Putting the source of notes in order.
#include <fmt/core.h>

#include "VeskCommand/CommandSupport.h"
#include "VeskCommand/Commands.h"
#include "VeskCore/Editor/NoteFormat.h"
#include "VeskCore/Support/Unicode.h"
#include "VeskCore/Vault/AtomicWrite.h"

namespace vesk::command {
namespace {

/// Whether the note was, or would be, changed.
bool format(const CommandContext& context, const Vault& vault, const std::string& path, bool check) {
    requireNote(path);
    const auto address = vault.absolutePath(path);
    const auto text = CoordinatedIO::readForSave(address);
    if (!text) throw CommandError(fmt::format("There is no note at “{}”.", printable(path)));
    const auto formatted = utf8(NoteFormat::formatted(utf16(*text)));
    if (formatted == *text) return false;
    if (!check) {
        CoordinatedIO::replaceText(address, formatted, *text);
        context.notesChanged(vault, {path});
    }
    return true;
}

void formatAll(const CommandContext& context, const std::vector<std::string>& typed, bool check) {
    const Vault vault = context.vault();
    std::vector<std::string> failures;
    std::size_t changed = 0;
    for (const auto& name : typed) {
        // One note that can't be read or written keeps none of the others waiting.
        try {
            const auto path = context.notePath(vault, name);
            if (!format(context, vault, path, check)) continue;
            ++changed;
            context.out.line(printable(path));
        } catch (const std::exception&) {
            failures.push_back(describe(std::current_exception()));
        }
    }
    if (typed.size() == 1 && !failures.empty()) throw CommandError(failures.front());
    for (const auto& words : failures) context.err.line("vesk: " + printable(words));
    if (!failures.empty()) {
        throw CommandError(fmt::format("{} of {} notes stayed as they were.", failures.size(), typed.size()));
    }
    if (check && changed > 0) {
        throw CommandError(changed == 1 ? std::string("1 note would change.")
                                        : fmt::format("{} notes would change.", changed));
    }
}

}  // namespace

void addFormatCommand(CLI::App& program, CommandContext& context) {
    auto* command =
        addCommand(program, "format",
                   "Renumber the ordered lists and pad the tables of notes; everything else stays as it is",
                   "  vesk format Home/Shopping.md\n  vesk format --check *.md");
    auto paths = std::make_shared<std::vector<std::string>>();
    auto check = std::make_shared<bool>(false);
    command->add_option("FILE", *paths, "The notes' paths in the vault")->required();
    command->add_flag("--check", *check,
                      "Change nothing; name the notes that would change, exit status 1 if there are any");
    command->callback([&context, paths, check] { formatAll(context, *paths, *check); });
}

}  // namespace vesk::command
