// Asking a model about the notes from a terminal: questions, actions on a note, and what would be sent.
#include <fmt/core.h>

#include <algorithm>
#include <iostream>

#include "Vesk/AI/BrainSession.h"
#include "Vesk/VaultSession.h"
#include "VeskCommand/ChangedLines.h"
#include "VeskCommand/CommandSupport.h"
#include "VeskCommand/Commands.h"
#include "VeskCore/Brain/BrainProviders.h"
#include "VeskCore/Brain/QuotedChunks.h"
#include "VeskCore/Brain/VaultContextPacker.h"
#include "VeskCore/Support/Match.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Vault/AtomicWrite.h"

namespace vesk::command {
namespace {

constexpr unsigned workers = 4;
constexpr int assumedWindow = 128'000, assumedOutput = 8'000;

struct Asked {
    std::string question, scope = "vault", note, selection, provider, model, action;
    bool yes = false;
};

/// Keeps the request that would have gone out, and sends nothing.
class NotSending final : public BrainProvider {
public:
    NotSending(std::shared_ptr<BrainProvider> of, BrainProviderID id, BrainRequest& kept)
        : of_(std::move(of)), id_(id), kept_(kept) {}
    BrainProviderID id() const override { return id_; }
    std::string displayName() const override { return of_ ? of_->displayName() : "No model"; }
    bool isConfigured() const override { return true; }
    std::vector<BrainModel> models() const override {
        return of_ ? of_->models() : std::vector<BrainModel>();
    }
    void stream(const BrainRequest& request, const std::string&, const Sink& sink,
                std::stop_token) const override {
        kept_ = request;
        sink({BrainEvent::Done{}});
    }

private:
    std::shared_ptr<BrainProvider> of_;
    BrainProviderID id_;
    BrainRequest& kept_;
};

Json eventJson(const BrainEvent& event) {
    return match(
        event,
        [](const BrainEvent::Text& piece) {
            return Json::object({{"event", "text"}, {"text", piece.text}});
        },
        [](const BrainEvent::Thinking& piece) {
            return Json::object({{"event", "thinking"}, {"text", piece.text}});
        },
        [](const BrainEvent::Usage& usage) {
            return Json::object({{"event", "usage"},
                                 {"inputTokens", usage.inputTokens},
                                 {"outputTokens", usage.outputTokens}});
        },
        [](const BrainEvent::Done& done) {
            return Json::object({{"event", "done"}, {"stopReason", done.stopReason}});
        });
}

Json citationJson(const RetrievedChunk& chunk) {
    return Json::object({{"path", chunk.notePath}, {"title", chunk.noteTitle}, {"ordinal", chunk.ordinal}});
}

/// One conversation over one vault, from its beginning to the end of the program.
class Conversation {
public:
    /// With `kept` nothing is sent: the request is kept there.
    Conversation(const CommandContext& context, const Asked& asked, BrainRequest* kept = nullptr)
        : context_(context),
          asked_(asked),
          vault_(context.vault()),
          pool_(std::in_place, workers),
          events_(context.fileEvents(vault_)),
          providers_(context.transport, context.secrets, context.defaults, context.clock, *pool_) {
        context.openIndex(vault_, true);
        // Not started: what an open vault needs beside its index is the business of those who keep it open.
        session_ = VaultSession::make(vault_, {.clock = context.clock,
                                               .mainQueue = loop_,
                                               .background = *pool_,
                                               .log = context.log,
                                               .defaults = context.defaults,
                                               .fileEvents = *events_,
                                               .fileVersions = context.fileVersions,
                                               .embeddings = context.embeddings,
                                               .calendar = Calendar::system});
        brain_ = BrainSession::make(
            {.clock = context.clock,
             .mainQueue = loop_,
             .background = *pool_,
             .defaults = context.defaults,
             .providers = {
                 .options = [this, kept] { return rows(kept); },
                 .probe = [this](const std::stop_token& stop) { providers_.probeLocalServers(true, stop); }},
             .embeddings = context.embeddings,
             .languages = context.languages,
             .systemVersion = context.systemVersion,
             .flushPendingSaves = [] {}});
        brain_->attach(session_);
        runWhile([this] { return brain_->discovering.get(); });
        choose(kept != nullptr);
    }

    /// What still runs asks for the members.
    ~Conversation() { pool_.reset(); }
    Conversation(const Conversation&) = delete;
    Conversation& operator=(const Conversation&) = delete;

    BrainSession& brain() { return *brain_; }
    const Vault& vault() const { return vault_; }

    AskSubject subject() const {
        AskSubject about;
        if (!asked_.note.empty()) {
            const auto path = context_.notePath(vault_, asked_.note);
            requireNote(path);
            Note note;
            note.relativePath = path;
            note.path = vault_.absolutePath(path);
            note.title = note.name();
            auto text = CoordinatedIO::readForSave(note.path);
            if (!text) throw CommandError(fmt::format("There is no note “{}”.", printable(path)));
            about.note = std::move(note);
            about.noteText = std::move(text);
        }
        if (!asked_.selection.empty()) {
            about.selection = EditorSelection{.text = asked_.selection, .location = {}};
            if (about.noteText && about.noteText->find(asked_.selection) == std::string::npos)
                throw CommandError("The selection doesn't stand in the note.");
        }
        return about;
    }

    /// Until the reply is there. Throws what became of it otherwise.
    void await() {
        runWhile([this] { return brain_->isStreaming.get(); });
        if (context_.stop.stop_requested()) throw CommandError("Stopped.");
        const auto& turns = brain_->turns.get();
        if (!turns.empty() && turns.back().failure) throw CommandError(*turns.back().failure);
    }

private:
    std::vector<ProviderOption> rows(BrainRequest* kept) const {
        auto rows = providers_.options();
        if (!kept) return rows;
        for (auto& row : rows)
            if (row.isReady) row.provider = std::make_shared<NotSending>(row.provider, row.providerID, *kept);
        return rows;
    }

    void choose(bool isDry) {
        auto rows = brain_->options.get();
        if (!asked_.provider.empty()) {
            const auto id = brainProviderID(asked_.provider);
            const auto row =
                std::find_if(rows.begin(), rows.end(), [&](const auto& one) { return one.providerID == id; });
            if (row == rows.end())
                throw CommandError(
                    "The custom endpoint has no address yet. Give it one with “vesk providers custom”.");
            if (!row->isReady && !isDry)
                throw CommandError(row->blockedReason.value_or("This provider isn't ready."));
            brain_->activeProviderID.set(id);
            brain_->activeModelID.set(ProviderSelection::adopt(*row, std::nullopt, ""));
        }
        if (!asked_.model.empty()) {
            const auto* row = brain_->activeOption();
            if (!row) throw CommandError(std::string(BrainSession::noProviderConfigured));
            const bool isKnown = std::any_of(row->models.begin(), row->models.end(),
                                             [&](const auto& model) { return model.id == asked_.model; });
            if (!isKnown)
                throw CommandError(fmt::format("{} has no model “{}”.", row->provider->displayName(),
                                               printable(asked_.model)));
            brain_->activeModelID.set(asked_.model);
        }
    }

    void runWhile(const std::function<bool()>& busy) {
        const std::stop_callback interrupted(context_.stop,
                                             [this] { loop_.post([this] { brain_->cancel(); }); });
        while (busy() && !context_.stop.stop_requested())
            loop_.runUntil([&] { return !busy() || context_.stop.stop_requested(); },
                           std::chrono::duration_cast<Duration>(Seconds{3600.0}));
    }

    const CommandContext& context_;
    const Asked& asked_;
    const Vault vault_;
    RunLoop loop_;  // outlives the workers, which post to it
    std::optional<ThreadPool> pool_;
    std::unique_ptr<FileEventSource> events_;
    const BrainProviders providers_;
    std::shared_ptr<VaultSession> session_;
    std::shared_ptr<BrainSession> brain_;
};

void setScope(BrainSession& brain, const Asked& asked) {
    const auto scope = aiScope(asked.scope);
    if (scope == AIScope::note && asked.note.empty()) throw CLI::RequiredError("--note");
    if (scope == AIScope::selection && asked.selection.empty()) throw CLI::RequiredError("--selection");
    brain.scope.set(scope.value_or(AIScope::vault));
}

void ask(const CommandContext& context, const Asked& asked) {
    Conversation conversation(context, asked);
    auto& brain = conversation.brain();
    setScope(brain, asked);
    bool endsWithLine = true;
    const auto heard = brain.events.subscribe([&](const BrainEvent& event) {
        if (context.json) {
            context.out.line(eventJson(event).dump());
            std::fflush(stdout);
        } else if (const auto* piece = std::get_if<BrainEvent::Text>(&event.value)) {
            // Line ends and tabs stay; what could steer the terminal doesn't.
            std::string text;
            for (const auto line : split(piece->text, '\n')) {
                if (!text.empty() || line.data() != piece->text.data()) text += "\n";
                text += printable(line);
            }
            context.out.print(text);
            std::fflush(stdout);
            if (!piece->text.empty()) endsWithLine = piece->text.back() == '\n';
        }
    });
    brain.ask(asked.question, conversation.subject());
    try {
        conversation.await();
    } catch (const CommandError&) {
        if (!endsWithLine) context.out.line();
        throw;
    }
    const auto& turn = brain.turns->back();
    if (context.json) {
        Json::Array citations;
        for (const auto& chunk : turn.citations) citations.push_back(citationJson(chunk));
        context.out.line(
            Json::object(
                {{"event", "citations"}, {"coverage", brain.lastCoverage.get()}, {"citations", citations}})
                .dump());
        return;
    }
    if (!endsWithLine) context.out.line();
    if (const auto label = citationsLabel(turn)) {
        context.out.line();
        context.out.line(context.out.styled(*label, Tone::strong));
        std::string last;
        for (const auto& chunk : turn.citations) {
            if (chunk.notePath == last) continue;
            last = chunk.notePath;
            context.out.line("  " + printable(chunk.noteTitle) + "  " +
                             context.out.styled(printable(chunk.notePath), Tone::faint));
        }
    }
    if (const auto& coverage = brain.lastCoverage.get(); coverage && turn.scope == AIScope::vault)
        context.remark(*coverage);
    if (turn.planOperations)
        context.remark(
            fmt::format("Proposed {} change{}. Nothing was done: “vesk plan check -” shows what an "
                        "answer like this would do.",
                        *turn.planOperations, *turn.planOperations == 1 ? "" : "s"));
}

bool confirmed(const CommandContext& context) {
    context.err.print("Write this into the note? [y/N] ");
    std::string line;
    if (!std::getline(std::cin, line)) return false;
    const auto answer = asciiLowercased(trim(line));
    return answer == "y" || answer == "yes";
}

void act(const CommandContext& context, const Asked& asked) {
    Conversation conversation(context, asked);
    auto& brain = conversation.brain();
    const auto action = quickAction(asked.action);
    if (!action) throw CommandError(fmt::format("There is no action “{}”.", printable(asked.action)));
    brain.run(*action, conversation.subject());
    conversation.await();
    const auto edit = brain.pendingEdit.get();
    if (!rewritesNote(*action)) {
        for (const auto line : splitLines(trim(brain.turns->back().text))) context.out.line(printable(line));
        return;
    }
    if (!edit) {
        context.remark("The rewrite came back identical to what's already in the note.");
        return;
    }
    for (const auto& line : changedLines(context.out, edit->original, edit->replacement))
        context.out.line(line);
    std::fflush(stdout);
    if (!asked.yes && !confirmed(context)) {
        context.remark("Nothing was written.");
        return;
    }
    if (const auto problem = brain.applyEdit(*edit)) throw CommandError(*problem);
    context.remark(fmt::format("Written to {}.", printable(edit->notePath)));
}

void showContext(const CommandContext& context, const Asked& asked) {
    BrainRequest request;
    Conversation conversation(context, asked, &request);
    auto& brain = conversation.brain();
    setScope(brain, asked);
    if (!brain.canAsk()) {
        // Nobody could answer now; what a model of today's usual size would be sent is shown.
        BrainModel model;
        model.id = "none";
        model.displayName = "No model";
        model.contextWindow = assumedWindow;
        model.maxOutput = assumedOutput;
        brain.options.set(
            {{.providerID = BrainProviderID::custom,
              .provider = std::make_shared<NotSending>(nullptr, BrainProviderID::custom, request),
              .isReady = true,
              .blockedReason = {},
              .models = {model}}});
        brain.activeProviderID.set(BrainProviderID::custom);
        brain.activeModelID.set(model.id);
        context.remark(
            fmt::format("No model is ready; shown for one with a window of {} tokens.", assumedWindow));
    }
    brain.ask(asked.question, conversation.subject());
    conversation.await();

    int tokens = VaultContextPacker::estimatedTokens(request.system.value_or("")) +
                 VaultContextPacker::estimatedTokens(request.focus.value_or(""));
    for (const auto& message : request.messages) tokens += VaultContextPacker::estimatedTokens(message.text);
    for (const auto& chunk : request.context)
        tokens += VaultContextPacker::estimatedTokens(quotedChunk(chunk));
    if (context.json) {
        Json::Array messages, chunks;
        for (const auto& message : request.messages) messages.push_back(toJson(message));
        for (const auto& chunk : request.context) {
            auto row = citationJson(chunk);
            row.set("text", chunk.text);
            chunks.push_back(std::move(row));
        }
        context.answer(Json::object({{"model", brain.activeSummary()},
                                     {"estimatedTokens", tokens},
                                     {"maxTokens", request.maxTokens},
                                     {"coverage", brain.lastCoverage.get()},
                                     {"system", request.system},
                                     {"focus", request.focus},
                                     {"messages", std::move(messages)},
                                     {"context", std::move(chunks)}}));
        return;
    }
    const auto part = [&](std::string_view heading, std::string_view text) {
        context.out.line(context.out.styled(heading, Tone::strong));
        for (const auto line : splitLines(text)) context.out.line(printable(line));
        context.out.line();
    };
    part("System", request.system.value_or(""));
    for (const auto& chunk : request.context) part("Quoted", quotedChunk(chunk));
    if (request.focus) part("Focus", *request.focus);
    for (const auto& message : request.messages) part("Question", message.text);
    context.remark(fmt::format("About {} tokens for {}. Nothing was sent.", tokens, brain.activeSummary()));
    if (brain.lastCoverage.get()) context.remark(*brain.lastCoverage.get());
}

}  // namespace

void addAskCommands(CLI::App& program, CommandContext& context) {
    auto asked = std::make_shared<Asked>();
    std::vector<std::string> providers, actions;
    for (const auto id : allBrainProviderIDs) providers.emplace_back(rawValue(id));
    for (const auto action : allQuickActions) actions.emplace_back(rawValue(action));
    const auto withModel = [&](CLI::App* command) {
        command->add_option("--provider", asked->provider, "The provider; else the chosen one")
            ->check(CLI::IsMember(providers));
        command->add_option("--model", asked->model, "The model; else the chosen one");
    };
    const auto withSubject = [&](CLI::App* command) {
        command->add_option("QUESTION", asked->question, "The question")->required();
        command->add_option("--scope", asked->scope, "What it is about")
            ->check(CLI::IsMember({"vault", "note", "selection"}));
        command->add_option("--note", asked->note, "The note that is open");
        command->add_option("--selection", asked->selection, "The text that is selected in it");
        withModel(command);
    };

    auto* question = addCommand(program, "ask", "Ask a model about your notes; the answer cites them",
                                "  vesk ask 'what did the boiler cost?'\n  vesk ask --scope note --note "
                                "Home/Boiler.md 'what is missing here?'\n  vesk ask --json 'who is Ana?'");
    withSubject(question);
    question->add_flag("--json", context.json, "Print one event a line, the citations last");
    question->callback([&context, asked] { ask(context, *asked); });

    auto* once = addCommand(program, "act", "Summarise, rewrite or question a note",
                            "  vesk act summarise 'Meeting notes.md'\n  vesk act tighten Draft.md");
    once->add_option("ACTION", asked->action, "What to do")->required()->check(CLI::IsMember(actions));
    once->add_option("PATH", asked->note, "The note")->required();
    once->add_option("--selection", asked->selection, "Only this part of its text");
    once->add_flag("--yes", asked->yes, "Write a rewrite without asking");
    withModel(once);
    once->callback([&context, asked] { act(context, *asked); });

    auto* shown = addCommand(program, "context", "Show what a question would send to a model; sends nothing",
                             "  vesk context 'what did the boiler cost?'");
    withSubject(shown);
    answersWithData(shown, context);
    shown->callback([&context, asked] { showContext(context, *asked); });
}

}  // namespace vesk::command
