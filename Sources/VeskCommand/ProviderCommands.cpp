#include <fmt/core.h>

#include <algorithm>
#include <cmath>

#include "VeskCommand/CommandSupport.h"
#include "VeskCommand/Commands.h"
#include "VeskCore/Brain/BrainProviders.h"
#include "VeskCore/Brain/EndpointURL.h"

namespace vesk::command {
namespace {

struct Asked {
    bool services = false;  ///< OpenAI and the custom endpoint are asked for their lists too
    std::string provider, model, address;
    int contextSize = 0;
    bool forget = false;
};

/// A price that isn't known is null, as one that there isn't.
Json price(const std::optional<double>& dollars) {
    return dollars && std::isfinite(*dollars) ? Json(*dollars) : Json();
}

Json modelJson(const BrainModel& model) {
    return Json::object({{"id", model.id},
                         {"displayName", model.displayName},
                         {"contextWindow", model.contextWindow},
                         {"maxOutput", model.maxOutput},
                         {"inputPricePerMTok", price(model.inputPricePerMTok)},
                         {"outputPricePerMTok", price(model.outputPricePerMTok)},
                         {"priceLabel", model.priceLabel()},
                         {"note", model.note}});
}

Json optionJson(const ProviderOption& option) {
    Json::Array models;
    for (const auto& model : option.models) models.push_back(modelJson(model));
    return Json::object({{"providerID", rawValue(option.providerID)},
                         {"displayName", option.provider->displayName()},
                         {"isReady", option.isReady},
                         {"blockedReason", option.blockedReason},
                         {"leavesDevice", leavesDevice(option.providerID)},
                         {"models", std::move(models)}});
}

ProviderSelection::Selection active(const CommandContext& context,
                                    const std::vector<ProviderOption>& options) {
    return ProviderSelection::resolve(options, context.defaults.string(ProviderSelection::providerKey),
                                      context.defaults.string(ProviderSelection::modelKey), "");
}

/// The picker's rows once the local servers have answered or not.
std::vector<ProviderOption> probedOptions(const CommandContext& context, const BrainProviders& providers,
                                          bool asksServices) {
    providers.probeLocalServers(true, context.stop);
    auto options = providers.options();
    for (auto& option : options) {
        const bool isService =
            option.providerID == BrainProviderID::openai || option.providerID == BrainProviderID::custom;
        auto service = std::dynamic_pointer_cast<OpenAICompatibleProvider>(option.provider);
        if (!asksServices || !isService || !service || !service->isConfigured()) continue;
        service->refresh(true, context.stop);
        option = BrainProviders::option(std::move(service));
    }
    return options;
}

void list(const CommandContext& context, const std::vector<ProviderOption>& options) {
    const auto selection = active(context, options);
    if (context.json) {
        Json::Array rows;
        for (const auto& option : options) rows.push_back(optionJson(option));
        const auto provider = selection.providerID ? Json(rawValue(*selection.providerID)) : Json();
        context.answer(Json::object({{"activeProviderID", provider},
                                     {"activeModelID", selection.modelID},
                                     {"options", std::move(rows)}}));
        return;
    }
    for (const auto& option : options) {
        const auto state = option.isReady
                               ? context.out.styled("ready", Tone::good)
                               : context.out.styled(printable(*option.blockedReason), Tone::warning);
        context.out.line(context.out.styled(printable(option.provider->displayName()), Tone::strong) + "  " +
                         state);
        for (const auto& model : option.models) {
            const bool isActive = selection.providerID == option.providerID && selection.modelID == model.id;
            context.out.line(fmt::format("{} {}  {}", isActive ? "*" : " ", printable(model.id),
                                         context.out.styled(printable(model.priceLabel()), Tone::faint)));
        }
    }
}

void use(const CommandContext& context, const std::vector<ProviderOption>& options, const Asked& asked) {
    const auto id = brainProviderID(asked.provider);
    const auto option = std::find_if(options.begin(), options.end(),
                                     [&](const ProviderOption& row) { return row.providerID == id; });
    if (option == options.end()) {
        throw CommandError(
            "The custom endpoint has no address yet. Give it one with “vesk providers custom”.");
    }
    const bool hasModel = std::any_of(option->models.begin(), option->models.end(),
                                      [&](const BrainModel& model) { return model.id == asked.model; });
    if (!asked.model.empty() && !hasModel) {
        throw CommandError(
            fmt::format("{} has no model “{}”.", option->provider->displayName(), printable(asked.model)));
    }
    context.defaults.set(ProviderSelection::providerKey, Json(rawValue(*id)));
    const auto preference = asked.model.empty() ? std::nullopt : std::optional(asked.model);
    context.defaults.set(ProviderSelection::modelKey,
                         Json(ProviderSelection::adopt(*option, preference, "")));
    if (!option->isReady) context.remark(*option->blockedReason);
}

void setCustom(const CommandContext& context, const Asked& asked) {
    CustomEndpoint endpoint(context.defaults);
    if (asked.forget) {
        endpoint.setBaseURL(std::nullopt);
        endpoint.setModel("");
        return;
    }
    const auto address = CustomEndpoint::normalise(asked.address);
    if (!address)
        throw CommandError(fmt::format("“{}” is no address of a server.", printable(asked.address)));
    endpoint.setBaseURL(*address);
    endpoint.setModel(asked.model);
    context.out.line(printable(*address));
}

void setOnDevice(const CommandContext& context, const Asked& asked) {
    if (asked.forget) {
        for (auto key :
             {LocalServerModel::baseURLKey, LocalServerModel::modelKey, LocalServerModel::contextSizeKey}) {
            context.defaults.remove(key);
        }
        return;
    }
    auto typed = asked.address;
    if (typed.find("://") == std::string::npos) typed.insert(0, "http://");
    const auto address = CustomEndpoint::normalise(typed);
    if (!address)
        throw CommandError(fmt::format("“{}” is no address of a server.", printable(asked.address)));
    if (!EndpointURL::isLoopback(*address)) {
        throw CommandError(fmt::format("“{}” is not on this machine.", printable(asked.address)));
    }
    context.defaults.set(LocalServerModel::baseURLKey, Json(*address));
    context.defaults.set(LocalServerModel::modelKey, Json(asked.model));
    if (asked.contextSize > 0) {
        context.defaults.set(LocalServerModel::contextSizeKey, Json(asked.contextSize));
    } else {
        context.defaults.remove(LocalServerModel::contextSizeKey);
    }
    context.out.line(printable(*address));
}

}  // namespace

void addProviderCommands(CLI::App& program, CommandContext& context) {
    auto asked = std::make_shared<Asked>();
    const auto withOptions = [&context, asked](auto act) {
        ThreadPool workers(2);
        const BrainProviders providers(context.transport, context.secrets, context.defaults, context.clock,
                                       workers);
        act(probedOptions(context, providers, asked->services));
    };
    auto* command =
        addCommand(program, "providers", "Model providers: which are ready, their models and prices",
                   "  vesk providers\n  vesk providers --json\n  vesk providers use anthropic "
                   "claude-sonnet-5\n  vesk providers custom https://models.example.com");
    command->require_subcommand(0, 1);
    command->add_flag(
        "--services", asked->services,
        "Ask OpenAI and the custom endpoint for their lists too; else only servers on this machine "
        "are asked");
    answersWithData(command, context);
    command->callback([&context, command, withOptions] {
        if (!command->get_subcommands().empty()) return;
        withOptions([&](const std::vector<ProviderOption>& options) { list(context, options); });
    });

    std::vector<std::string> known;
    for (auto id : allBrainProviderIDs) known.emplace_back(rawValue(id));
    auto* choice = addCommand(*command, "use", "Choose the provider and model that answer",
                              "  vesk providers use ollama\n  vesk providers use gemini gemini-3.7-flash");
    choice->add_option("PROVIDER", asked->provider, "The provider")->required()->check(CLI::IsMember(known));
    choice->add_option("MODEL", asked->model, "The model; else its first");
    choice->callback([&context, asked, withOptions] {
        withOptions([&](const std::vector<ProviderOption>& options) { use(context, options, *asked); });
    });

    auto* custom =
        addCommand(*command, "custom", "Name a server of one's own that speaks chat completions",
                   "  vesk providers custom https://models.example.com --model house-model\n  vesk "
                   "providers custom --forget");
    auto* onDevice =
        addCommand(*command, "on-device", "Name the server on this machine that plays the on-device model",
                   "  vesk providers on-device 127.0.0.1:11434 --model qwen3:4b --context 8192");
    for (auto* part : {custom, onDevice}) {
        auto* address = part->add_option("ADDRESS", asked->address, "The server's address");
        part->add_option("--model", asked->model, "The model's name there");
        auto* forget = part->add_flag("--forget", asked->forget, "Take the address away again");
        address->excludes(forget);
        part->callback([&context, part, custom, asked] {
            if (!asked->forget && asked->address.empty()) throw CLI::RequiredError("ADDRESS");
            part == custom ? setCustom(context, *asked) : setOnDevice(context, *asked);
        });
    }
    onDevice->add_option("--context", asked->contextSize, "How many tokens it is loaded with")
        ->check(CLI::Range(512, 100000000));
}

}  // namespace vesk::command
