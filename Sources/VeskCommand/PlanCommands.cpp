// Plans that a model wrote, looked at and carried out, and titles for notes that have none.
#include <fmt/core.h>

#include <algorithm>
#include <filesystem>
#include <set>

#include "Vesk/AI/BrainSession.h"
#include "Vesk/AI/TitleProposals.h"
#include "VeskCommand/ChangedLines.h"
#include "VeskCommand/CommandSupport.h"
#include "VeskCommand/Commands.h"
#include "VeskCore/Brain/BrainProviders.h"
#include "VeskCore/Brain/NoteTitler.h"
#include "VeskCore/Brain/VaultPlanExecutor.h"
#include "VeskCore/Brain/VaultPlanner.h"
#include "VeskCore/Support/Match.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Vault/AtomicWrite.h"

namespace vesk::command {
namespace {

using VaultPlanExecutor::Preview;
using VaultPlanExecutor::Report;

struct Asked {
    std::string file, path, provider, model;
    std::vector<int> only;
    bool yes = false;
};

// Plans

/// A model's reply, or the plan in it alone.
VaultPlan planIn(const std::string& file) {
    if (file == "-") return VaultPlanner::parse(decodedText(readStandardInput()));
    std::error_code ignored;
    const auto text = AtomicWrite::read(standardised(std::filesystem::absolute(file, ignored)));
    if (!text) throw CommandError(fmt::format("There is no file “{}”.", printable(file)));
    return VaultPlanner::parse(*text);
}

std::vector<std::string> shownLines(const CommandContext& context, const Preview& preview) {
    const auto both = [&] {
        return changedLines(context.out, preview.before.value_or(""), preview.after.value_or(""));
    };
    const auto notes = [&] {
        std::vector<std::string> lines;
        for (const auto line : splitLines(preview.before.value_or(""))) lines.push_back(printable(line));
        return lines;
    };
    using Lines = std::vector<std::string>;
    using Op = VaultOperation;
    return match(
        preview.operation, [&](const Op::CreateNote&) { return both(); },
        [&](const Op::UpdateNote&) { return both(); }, [&](const Op::SetProperty&) { return both(); },
        [&](const Op::RemoveProperty&) { return both(); }, [](const Op::RenameNote&) { return Lines(); },
        [](const Op::TrashNote&) { return Lines(); }, [](const Op::CreateFolder&) { return Lines(); },
        [&](const Op::RenameFolder&) { return notes(); }, [&](const Op::TrashFolder&) { return notes(); });
}

void show(const CommandContext& context, const VaultPlan& plan, const std::vector<Preview>& previews) {
    context.out.line(context.out.styled(printable(plan.summary), Tone::strong));
    for (const auto& preview : previews) {
        context.out.line(fmt::format("{}. {}", preview.id + 1, printable(preview.description)));
        if (preview.issue) {
            context.out.line("   " + context.out.styled(printable(preview.issue->message),
                                                        preview.isBlocked() ? Tone::bad : Tone::warning));
        }
        if (preview.isBlocked()) continue;
        if (const auto risk = preview.operation.riskNote()) {
            context.out.line("   " + context.out.styled(*risk, Tone::faint));
        }
        for (const auto& line : shownLines(context, preview)) context.out.line("   | " + line);
    }
}

Json previewJson(const Preview& preview) {
    Json issue;
    if (preview.issue) {
        issue = Json::object({{"severity", preview.isBlocked() ? "blocking" : "warning"},
                              {"message", preview.issue->message}});
    }
    return Json::object({{"number", preview.id + 1},
                         {"op", preview.operation.op()},
                         {"description", preview.description},
                         {"risk", preview.operation.riskNote()},
                         {"before", preview.before},
                         {"after", preview.after},
                         {"issue", std::move(issue)}});
}

Json previewsJson(const VaultPlan& plan, const std::vector<Preview>& previews) {
    Json::Array rows;
    for (const auto& preview : previews) rows.push_back(previewJson(preview));
    return Json::object({{"summary", plan.summary}, {"operations", std::move(rows)}});
}

Json leftJson(const std::vector<Report::Left>& left) {
    Json::Array rows;
    for (const auto& one : left) {
        rows.push_back(Json::object({{"operation", one.operation}, {"reason", one.reason}}));
    }
    return Json(std::move(rows));
}

Json reportJson(const Report& report) {
    Json::Array applied, removed;
    for (const auto& one : report.applied) applied.emplace_back(one);
    for (const auto& one : report.removed) removed.emplace_back(one);
    Json renamed = Json::object();
    for (const auto& [from, to] : report.renamed) renamed.set(from, to);
    return Json::object({{"summary", report.summary()},
                         {"applied", std::move(applied)},
                         {"skipped", leftJson(report.skipped)},
                         {"failed", leftJson(report.failed)},
                         {"renamed", std::move(renamed)},
                         {"removed", std::move(removed)}});
}

void show(const CommandContext& context, const Report& report) {
    const auto tell = [&](std::string_view what, Tone tone, const std::string& words) {
        context.out.line(context.out.styled(what, tone) + " " + words);
    };
    for (const auto& one : report.applied) tell("applied", Tone::good, printable(one));
    for (const auto& one : report.skipped) {
        tell("skipped", Tone::warning, printable(one.operation) + ": " + printable(one.reason));
    }
    for (const auto& one : report.failed) {
        tell("failed ", Tone::bad, printable(one.operation) + ": " + printable(one.reason));
    }
    context.out.line(report.summary());
}

/// The previews of the numbered operations, all of them without numbers.
std::vector<Preview> chosen(const std::vector<Preview>& previews, const std::vector<int>& only) {
    if (only.empty()) return previews;
    const std::set<int> numbers(only.begin(), only.end());
    for (const int number : numbers) {
        if (number > 0 && static_cast<std::size_t>(number) <= previews.size()) continue;
        throw CommandError(fmt::format("The plan has no operation {}.", number));
    }
    std::vector<Preview> kept;
    std::copy_if(previews.begin(), previews.end(), std::back_inserter(kept),
                 [&](const Preview& preview) { return numbers.contains(preview.id + 1); });
    return kept;
}

void check(const CommandContext& context, const Asked& asked) {
    const auto plan = planIn(asked.file);
    const auto previews = VaultPlanExecutor::validate(plan, context.vault());
    context.json ? context.answer(previewsJson(plan, previews)) : show(context, plan, previews);
}

void apply(const CommandContext& context, const Asked& asked) {
    const Vault vault = context.vault();
    const auto plan = planIn(asked.file);
    const auto previews = VaultPlanExecutor::validate(plan, vault);
    const auto wanted = chosen(previews, asked.only);
    if (!context.json) show(context, plan, previews);
    std::vector<std::string> changed;
    const auto report = VaultPlanExecutor::apply(
        wanted, vault, [&](const std::string& text, const FilePath& path, const ForeignEdit::Disk& expected) {
            const auto* found = std::get_if<ForeignEdit::Disk::Text>(&expected.value);
            CoordinatedIO::replaceText(path, text, found ? std::optional(found->text) : std::nullopt);
            changed.push_back(vault.relativePath(path).value_or(""));
        });
    for (const auto& departure : report.departures) {
        changed.push_back(departure.from);
        if (departure.to) changed.push_back(*departure.to);
    }
    context.notesChanged(vault, changed);
    if (context.json) {
        Json answer = previewsJson(plan, previews);
        answer.set("report", reportJson(report));
        context.answer(answer);
    } else {
        context.out.line();
        show(context, report);
    }
    if (!report.failed.empty()) {
        throw CommandError(fmt::format("{} of {} operations failed.", report.failed.size(), wanted.size()));
    }
}

// Titles

/// The provider and model that were asked for, else those that answer everywhere.
std::pair<ProviderOption, std::string> answering(const CommandContext& context, const Asked& asked,
                                                 const std::vector<ProviderOption>& options) {
    auto id = brainProviderID(asked.provider);
    auto preference = context.defaults.string(ProviderSelection::modelKey);
    if (!asked.provider.empty()) preference.reset();
    if (!id) {
        id = ProviderSelection::resolve(options, context.defaults.string(ProviderSelection::providerKey),
                                        preference, "")
                 .providerID;
    }
    if (!id) throw CommandError(std::string(BrainSession::noProviderConfigured));
    const auto option = std::find_if(options.begin(), options.end(),
                                     [&](const ProviderOption& row) { return row.providerID == *id; });
    if (option == options.end()) {
        throw CommandError(
            "The custom endpoint has no address yet. Give it one with “vesk providers custom”.");
    }
    if (!option->isReady) throw CommandError(option->blockedReason.value_or(""));
    if (!asked.model.empty()) return {*option, asked.model};
    return {*option, ProviderSelection::adopt(*option, preference, "")};
}

std::optional<std::string> suggestion(const CommandContext& context, const Asked& asked,
                                      const std::string& excerpt) {
    ThreadPool workers(2);
    const BrainProviders providers(context.transport, context.secrets, context.defaults, context.clock,
                                   workers);
    providers.probeLocalServers(true, context.stop);
    const auto [option, model] = answering(context, asked, providers.options());
    std::string reply;
    option.provider->stream(
        NoteTitler::request(excerpt), model,
        [&](const BrainEvent& event) {
            if (const auto* text = std::get_if<BrainEvent::Text>(&event.value)) reply += text->text;
        },
        context.stop);
    return NoteTitler::parse(reply);
}

void title(const CommandContext& context, const Asked& asked) {
    const Vault vault = context.vault();
    const auto path = context.notePath(vault, asked.path);
    requireNote(path);
    const auto text = CoordinatedIO::readForSave(vault.absolutePath(path));
    if (!text) throw CommandError(fmt::format("There is no note at “{}”.", printable(path)));
    if (!NoteTitler::hasEnoughText(*text)) {
        throw CommandError(fmt::format("“{}” says too little for a title.", printable(path)));
    }
    const auto title = suggestion(context, asked, NoteTitler::excerpt(*text));
    if (!title) throw CommandError("The model couldn't think of a title.");
    auto renamed = path;
    if (asked.yes) {
        renamed = vault.renameNote(path, *title);
        context.notesChanged(vault, {path, renamed});
    }
    if (context.json) {
        context.answer(Json::object({{"title", *title}, {"relativePath", renamed}}));
    } else {
        context.out.line(printable(asked.yes ? renamed : *title));
    }
}

}  // namespace

void addPlanCommands(CLI::App& program, CommandContext& context) {
    auto asked = std::make_shared<Asked>();
    auto* plan = addCommand(program, "plan", "Look at a plan that a model wrote, and carry it out",
                            "  vesk plan check reply.txt\n  vesk plan apply reply.txt --only 1,3");
    plan->require_subcommand(1);
    auto* checked = addCommand(*plan, "check", "Show what a plan would do; nothing is changed",
                               "  vesk plan check plan.json");
    auto* applied = addCommand(*plan, "apply", "Show what a plan would do, then do it",
                               "  vesk plan apply plan.json\n  vesk plan apply - --only 2 < reply.txt");
    for (auto* part : {checked, applied}) {
        part->add_option("FILE", asked->file, "A model's reply with a plan in it; - for standard input")
            ->required();
        answersWithData(part, context);
    }
    applied
        ->add_option("--only", asked->only,
                     "The numbers of the operations to carry out; else all that can be")
        ->delimiter(',')
        ->type_name("N,…");
    checked->callback([&context, asked] { check(context, *asked); });
    applied->callback([&context, asked] { apply(context, *asked); });

    auto* command =
        addCommand(program, "title", "Ask a model for a note's title",
                   "  vesk title Untitled.md\n  vesk title 'Inbox/Untitled 2.md' --provider ollama --yes");
    std::vector<std::string> known;
    for (auto id : allBrainProviderIDs) known.emplace_back(rawValue(id));
    command->add_option("PATH", asked->path, "The note's path in the vault")->required();
    command->add_option("--provider", asked->provider, "Who is asked; else the provider in use")
        ->check(CLI::IsMember(known));
    command->add_option("--model", asked->model, "Its model; else the one in use");
    command->add_flag("--yes", asked->yes, "Rename the note to the title");
    answersWithData(command, context);
    command->callback([&context, asked] { title(context, *asked); });
}

}  // namespace vesk::command
