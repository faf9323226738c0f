#include <fmt/core.h>

#include "VeskCommand/CommandSupport.h"
#include "VeskCommand/Commands.h"
#include "VeskCore/Brain/BrainProviderID.h"
#include "VeskCore/Brain/Keychain.h"

namespace vesk::command {
namespace {

CLI::App* addKeyCommand(CLI::App& key, const std::string& name, const std::string& description,
                        const std::string& example, std::shared_ptr<std::string> provider) {
    std::vector<std::string> known;
    for (auto id : allBrainProviderIDs) known.emplace_back(rawValue(id));
    auto* command = addCommand(key, name, description, example);
    command->add_option("PROVIDER", *provider, "Whose key")->required()->check(CLI::IsMember(known));
    return command;
}

/// Asked before a key is changed and after: Keychain itself says nothing of a store that refuses.
std::optional<std::string> stored(const CommandContext& context, const std::string& account) {
    return context.secrets.get(Keychain::service, account);
}

}  // namespace

void addKeyCommands(CLI::App& program, CommandContext& context) {
    auto* key = addCommand(program, "key", "Keys of the model providers, kept in the system's keyring",
                           "  vesk key set anthropic\n  vesk key show anthropic");
    key->require_subcommand(1);
    auto provider = std::make_shared<std::string>();
    addKeyCommand(*key, "set", "Store a key, typed without echo or from standard input",
                  "  vesk key set anthropic\n  pass show anthropic | vesk key set anthropic", provider)
        ->callback([&context, provider] {
            stored(context, *provider);  // an unreachable store is told before the key is asked for
            const auto value =
                readSecret(fmt::format("Key for {}: ", displayName(*brainProviderID(*provider))));
            if (value.empty()) throw CommandError("No key was given; nothing has changed.");
            Keychain(context.secrets).set(value, *provider);
            if (stored(context, *provider) != value) throw CommandError("The keyring didn't keep the key.");
        });
    auto* show = addKeyCommand(*key, "show", "Show a key, masked", "  vesk key show openai", provider);
    answersWithData(show, context);
    show->callback([&context, provider] {
        stored(context, *provider);
        const auto masked = Keychain(context.secrets).masked(*provider);
        if (context.json) {
            context.answer(Json::object({{"provider", *provider}, {"key", masked}}));
        } else if (masked) {
            context.out.line(*masked);
        } else {
            throw CommandError(
                fmt::format("There is no key for {}.", displayName(*brainProviderID(*provider))));
        }
    });
    addKeyCommand(*key, "delete", "Delete a key", "  vesk key delete openai", provider)
        ->callback([&context, provider] {
            stored(context, *provider);
            Keychain(context.secrets).set(std::nullopt, *provider);
            if (stored(context, *provider)) throw CommandError("The keyring didn't let go of the key.");
        });
}

}  // namespace vesk::command
