#include <fmt/core.h>

#include "VeskCommand/CommandSupport.h"
#include "VeskCommand/Commands.h"
#include "VeskCommand/JsonForm.h"
#include "VeskCore/Support/Match.h"
#include "VeskCore/Support/Text.h"

namespace vesk::command {
namespace {

FrontmatterDoc noteAt(const Vault& vault, const std::string& path) {
    auto doc = vault.readNote(path);
    if (!doc) throw CommandError(fmt::format("There is no note at “{}”.", printable(path)));
    return *doc;
}

void change(const CommandContext& context, const std::string& typed, const std::string& key,
            const std::optional<YAMLValue>& value) {
    const Vault vault = context.vault();
    const auto path = context.notePath(vault, typed);
    auto doc = noteAt(vault, path);
    const auto before = doc.serialized();
    doc.set(key, value);
    if (doc.serialized() == before) return;
    vault.writeNote(doc, path);
    context.notesChanged(vault, {path});
}

/// A key that would not read back as itself is refused rather than written.
void requireKey(const std::string& key) {
    const auto slots = FrontmatterDoc::parseSlots({key + ": x"});
    const auto* entry = slots.empty() ? nullptr : std::get_if<FrontmatterDoc::Entry>(&slots.front().value);
    if (key.find('\n') != std::string::npos || !entry || entry->key != key ||
        entry->value != YAMLValue::string("x")) {
        throw CommandError(fmt::format("“{}” can't be a property's name.", printable(key)));
    }
}

}  // namespace

void addPropertyCommands(CLI::App& program, CommandContext& context) {
    {
        auto* command = addCommand(program, "props", "Show a note's properties",
                                   "  vesk props Projects/Garden.md --json");
        auto path = std::make_shared<std::string>();
        command->add_option("PATH", *path, "The note's path in the vault")->required();
        answersWithData(command, context);
        command->callback([&context, path] {
            const Vault vault = context.vault();
            const auto doc = noteAt(vault, context.notePath(vault, *path));
            if (context.json) {
                Json answer = Json::object();
                for (const auto& [key, value] : doc.properties()) answer.set(key, toJson(value));
                context.answer(answer);
                return;
            }
            for (const auto& slot : doc.slots()) {
                const auto* entry = std::get_if<FrontmatterDoc::Entry>(&slot.value);
                if (!entry) continue;
                context.out.line(context.out.styled(printable(entry->key), Tone::strong) + ": " +
                                 printable(YAMLScalar::emit(entry->value)));
            }
        });
    }
    {
        auto* command =
            addCommand(program, "set", "Set a property; everything else in the note stays as it is",
                       "  vesk set Garden.md priority 2\n  vesk set Garden.md tags '[garden, plans]'\n"
                       "  vesk set Garden.md phone --text 0301234");
        auto path = std::make_shared<std::string>();
        auto key = std::make_shared<std::string>();
        auto value = std::make_shared<std::string>();
        auto text = std::make_shared<bool>(false);
        command->add_option("PATH", *path, "The note's path in the vault")->required();
        command->add_option("KEY", *key, "The property's name")->required();
        command->add_option("VALUE", *value, "A YAML value: text, a number, a date, true, [a, b]")
            ->required();
        command->add_flag("--text", *text, "Take the value as text, whatever it looks like");
        command->callback([&context, path, key, value, text] {
            requireKey(*key);
            const auto clean = decodedText(*value);
            change(context, *path, *key, *text ? YAMLValue::string(clean) : YAMLScalar::parse(clean));
        });
    }
    {
        auto* command = addCommand(program, "unset", "Remove a property", "  vesk unset Garden.md priority");
        auto path = std::make_shared<std::string>();
        auto key = std::make_shared<std::string>();
        command->add_option("PATH", *path, "The note's path in the vault")->required();
        command->add_option("KEY", *key, "The property's name")->required();
        command->callback([&context, path, key] { change(context, *path, *key, std::nullopt); });
    }
}

}  // namespace vesk::command
