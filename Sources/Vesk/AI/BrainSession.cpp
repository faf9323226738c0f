// The conversation: its turns, who answers, and what a question takes along.
#include "Vesk/AI/BrainSession.h"

#include <fmt/format.h>

#include <algorithm>

#include "Vesk/AI/BrainPrompts.h"
#include "Vesk/AI/BrainTasks.h"
#include "Vesk/VaultSession.h"
#include "VeskCore/Brain/ChatRewrite.h"
#include "VeskCore/Brain/FocusLines.h"
#include "VeskCore/Brain/NoteRefinement.h"
#include "VeskCore/Brain/NoteTitler.h"
#include "VeskCore/Brain/SlashCommand.h"
#include "VeskCore/Brain/VaultContextPacker.h"
#include "VeskCore/Brain/VaultOrganiser.h"
#include "VeskCore/Brain/VaultPlanner.h"
#include "VeskCore/Platform/FilePlatform.h"
#include "VeskCore/Support/BrainError.h"
#include "VeskCore/Support/Characters.h"
#include "VeskCore/Support/Match.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"
#include "VeskCore/Support/Uuid.h"
#include "VeskCore/Vault/AtomicWrite.h"

namespace vesk {

namespace {

constexpr std::size_t rememberedTurns = 6;
constexpr std::size_t longProposal = 2000, shownOfProposal = 1200;  // characters
constexpr int unknownWindow = 8000, unknownOutput = 4096, budgetWithoutVault = 8000;
constexpr auto probePause = std::chrono::duration_cast<Duration>(Seconds{15.0});

constexpr std::string_view nothingInVault = marked(
    "I couldn't find anything in your notes about that, so I have nothing to cite. Try different words, or "
    "the terms you'd actually have written.");
constexpr std::string_view emptyNote = marked("This note is empty, so there's nothing for me to read.");
constexpr std::string_view nothingSelected = marked("Nothing is selected in the editor.");
constexpr std::string_view nothingToWorkOn =
    marked("There's no text to work on. Open a note, or select some text in the editor.");
constexpr std::string_view tooLongToRewrite =
    marked("This note is too long to rewrite in one go — select a part of it and try again.");

const std::vector<std::string>& scopeNames() {
    static const std::vector<std::string> names{"vault", "note", "selection"};
    return names;
}

int quarterOfCharacters(const RetrievedChunk& chunk) {
    return static_cast<int>(characterCount(chunk.text) / 4);
}

/// The note's own passages first, then of the others as many as there is room for.
std::vector<RetrievedChunk> openNoteFirst(std::vector<RetrievedChunk> own, std::vector<RetrievedChunk> packed,
                                          const std::string& path, int budget) {
    std::erase_if(packed, [&](const RetrievedChunk& chunk) { return chunk.notePath == path; });
    int used = 0;
    for (const auto& chunk : own) used += quarterOfCharacters(chunk);
    for (auto& chunk : packed) {
        used += quarterOfCharacters(chunk);
        if (used > budget) break;
        own.push_back(std::move(chunk));
    }
    return own;
}

}  // namespace

std::string_view rawValue(AIScope scope) {
    return scopeNames()[static_cast<std::size_t>(scope)];
}

std::optional<AIScope> aiScope(std::string_view rawValue) {
    for (const auto scope : {AIScope::vault, AIScope::note, AIScope::selection})
        if (vesk::rawValue(scope) == rawValue) return scope;
    return {};
}

std::string shownText(const ChatTurn& turn) {
    if (turn.role == ChatTurn::Role::user) return turn.text;
    if (turn.streaming) {
        const bool isProposal = turn.text.find("\"operations\"") != std::string::npos ||
                                ChatRewrite::looksLikeReplacement(turn.text);
        if (!isProposal || characterCount(turn.text) <= longProposal) return turn.text;
        return std::string(characterPrefix(turn.text, shownOfProposal)) + "\n" +
               localised("…writing the proposal…");
    }
    std::string prose, line;
    if (turn.proposedRewrite) {
        prose = ChatRewrite::removing(turn.text);
        line = localised("Proposed an edit — review and apply in the sheet");
    } else if (turn.planOperations) {
        prose = VaultPlanner::removingPlanJSON(turn.text);
        line = localisedCount("Proposed {} change", "Proposed {} changes",
                              static_cast<std::size_t>(*turn.planOperations), *turn.planOperations);
    } else {
        return turn.text;
    }
    const auto said = trim(prose);
    return said.empty() ? line : std::string(said) + "\n\n" + line;
}

std::optional<std::string> citationsLabel(const ChatTurn& turn) {
    std::set<std::string_view> paths;
    for (const auto& chunk : turn.citations) paths.insert(chunk.notePath);
    if (paths.empty()) return {};
    return localisedCount("From {} note", "From {} notes", paths.size(), paths.size());
}

std::shared_ptr<BrainSession> BrainSession::make(BrainServices services) {
    return std::shared_ptr<BrainSession>(new BrainSession(std::move(services)));
}

BrainSession::BrainSession(BrainServices services) : services_(std::move(services)) {}

BrainSession::~BrainSession() {
    work_.cancel();
    probeTask_.cancel();
}

// The vault and the providers

void BrainSession::attach(const std::shared_ptr<VaultSession>& session) {
    const auto root = session ? std::optional(session->vault().root()) : std::nullopt;
    vaultSession_ = session;
    if (root != attachedRoot_) {
        attachedRoot_ = root;
        cancel();
        turns.set({});
        lastCoverage.setIfChanged(std::nullopt);
        lastCoverageKind_.reset();
        lastPlanReport.setIfChanged(std::nullopt);
        discardPendingPlan();
        discardPendingEdit();
    }
    refreshProviders(false);
}

void BrainSession::refreshProviders(bool force) {
    const auto now = services_.clock.monotonic();
    if (!force && lastProbe_ && now - *lastProbe_ < probePause) return;
    lastProbe_ = now;
    probeTask_.cancel();
    discovering.setIfChanged(true);
    probeTask_ = services_.background.run(
        Priority::userInitiated,
        [weak = weak_from_this(), number = ++probeGeneration_, &mainQueue = services_.mainQueue,
         providers = services_.providers](const std::stop_token& stop) {
            const auto tell = [&](bool isLast) {
                mainQueue.post([weak, number, isLast, rows = providers.options()]() mutable {
                    if (const auto self = weak.lock()) self->probed(number, std::move(rows), isLast);
                });
            };
            tell(false);
            try {
                providers.probe(stop);
            } catch (const std::exception&) {  // what didn't answer has its reason in its row
            }
            tell(true);
        });
}

void BrainSession::probed(std::uint64_t number, std::vector<ProviderOption> rows, bool isLast) {
    if (number != probeGeneration_) return;
    options.set(std::move(rows));
    resolveActiveProvider();
    if (isLast) discovering.setIfChanged(false);
}

void BrainSession::resolveActiveProvider() {
    auto selection = ProviderSelection::resolve(
        options, services_.defaults.string(ProviderSelection::providerKey),
        services_.defaults.string(ProviderSelection::modelKey), activeModelID.get());
    activeProviderID.setIfChanged(selection.providerID);
    activeModelID.setIfChanged(std::move(selection.modelID));
}

void BrainSession::choose(BrainProviderID provider, const std::optional<std::string>& model) {
    activeProviderID.setIfChanged(provider);
    services_.defaults.set(ProviderSelection::providerKey, rawValue(provider));
    if (const auto* option = activeOption())
        activeModelID.setIfChanged(ProviderSelection::adopt(*option, model, activeModelID.get()));
    services_.defaults.set(ProviderSelection::modelKey, activeModelID.get());
}

const ProviderOption* BrainSession::activeOption() const {
    for (const auto& option : options.get())
        if (activeProviderID.get() == option.providerID) return &option;
    return nullptr;
}

const BrainModel* BrainSession::activeModel() const {
    if (const auto* option = activeOption())
        for (const auto& model : option->models)
            if (model.id == activeModelID.get()) return &model;
    return nullptr;
}

bool BrainSession::canAsk() const {
    const auto* option = activeOption();
    return option && option->isReady && option->provider && !activeModelID->empty();
}

std::string BrainSession::activeSummary() const {
    if (const auto* model = activeModel()) return model->displayName;
    const auto* option = activeOption();
    return option && option->provider ? option->provider->displayName() : "No model";
}

BrainSession::Answering BrainSession::answering() const {
    const auto* option = activeOption();
    const auto* model = activeModel();
    return {.provider = option ? option->provider : nullptr,
            .isOnDevice = activeProviderID.get() == BrainProviderID::apple,
            .modelID = activeModelID,
            .label = activeSummary(),
            .model = model ? std::optional(*model) : std::nullopt};
}

// Asking

std::optional<std::string> BrainSession::submitted(std::string_view draft) {
    if (!canAsk()) return {};
    std::string text(draft);
    if (auto command = SlashCommand::parse(draft, scopeNames())) {
        if (const auto wanted = aiScope(command->command)) scope.setIfChanged(*wanted);
        text = std::move(command->remainder);
    }
    const auto trimmed = trim(text);
    if (trimmed.empty() || trimmed == "/") return {};
    return std::string(trimmed);
}

void BrainSession::append(ChatTurn turn) {
    turn.id = randomUuid();
    turns.modify([&](std::vector<ChatTurn>& list) { list.push_back(std::move(turn)); });
}

void BrainSession::appendFailure(std::string_view message) {
    isStreaming.setIfChanged(false);
    pendingAskContext_.reset();
    planFilter_.reset();
    ChatTurn turn;
    turn.role = ChatTurn::Role::assistant;
    turn.failure = localised(message);
    append(std::move(turn));
}

void BrainSession::appendNothingFound(AIScope about) {
    isStreaming.setIfChanged(false);
    pendingAskContext_.reset();
    planFilter_.reset();
    ChatTurn turn;
    turn.role = ChatTurn::Role::assistant;
    turn.scope = about;
    switch (about) {
        case AIScope::vault:
            turn.failure = localised(nothingInVault);
            turn.offersUnsourcedAnswer = true;
            break;
        case AIScope::note:
            turn.failure = localised(emptyNote);
            break;
        case AIScope::selection:
            turn.failure = localised(nothingSelected);
            break;
    }
    append(std::move(turn));
}

/// Ends what was under way and adds the person's turn.
void BrainSession::begin(std::string words, AIScope about) {
    cancel();
    ChatTurn turn;
    turn.text = std::move(words);
    turn.scope = about;
    append(std::move(turn));
}

std::vector<BrainMessage> BrainSession::conversationHistory() const {
    std::vector<BrainMessage> history;
    const auto& list = turns.get();
    for (std::size_t i = 0; i + 1 < list.size(); ++i) {
        const auto& turn = list[i];
        if (turn.failure || turn.text.empty() || turn.isOrganiserReport) continue;
        history.push_back({.role = turn.role == ChatTurn::Role::user ? BrainMessage::Role::user
                                                                     : BrainMessage::Role::assistant,
                           .text = turn.text});
    }
    if (history.size() > rememberedTurns)
        history.erase(history.begin(), history.end() - static_cast<std::ptrdiff_t>(rememberedTurns));
    return history;
}

void BrainSession::ask(std::string_view text, const AskSubject& subject, bool ignoringRetrieval) {
    const std::string question(trim(text));
    if (question.empty()) return;
    const AIScope about = scope;
    begin(question, about);
    if (about != AIScope::vault && subject.note) {
        const bool isSelection = about == AIScope::selection;
        const auto original = !isSelection        ? subject.noteText
                              : subject.selection ? std::optional(subject.selection->text)
                                                  : std::nullopt;
        if (original && !original->empty())
            pendingAskContext_ =
                AskContext{.note = *subject.note,
                           .original = *original,
                           .isSelection = isSelection,
                           .noteTextAtAsk = subject.noteText,
                           .selectionLocation = isSelection ? subject.selection->location : std::nullopt};
    }
    if (!canAsk()) return appendFailure(noProviderConfigured);
    isStreaming.set(true);
    gather(question, subject, about, conversationHistory(), ignoringRetrieval);
}

void BrainSession::gather(const std::string& question, const AskSubject& subject, AIScope about,
                          std::vector<BrainMessage> history, bool ignoringRetrieval) {
    const auto session = vaultSession_.lock();
    const auto access = session ? std::optional(session->searchAccess()) : std::nullopt;
    const auto* model = activeModel();
    const int budget = VaultContextPacker::budget(model ? model->contextWindow : unknownWindow,
                                                  model ? model->maxOutput : unknownOutput);
    Gathered found{.number = generation_,
                   .by = answering(),
                   .question = question,
                   .about = about,
                   .history = std::move(history),
                   .ignoringRetrieval = ignoringRetrieval,
                   .chunks = {},
                   .coverageLine = {},
                   .coverage = {}};
    work_ = services_.background.run(
        Priority::userInitiated, [weak = weak_from_this(), &mainQueue = services_.mainQueue, access, subject,
                                  budget, found = std::move(found)](const std::stop_token& stop) mutable {
            switch (found.about) {
                case AIScope::note:
                    found.chunks = BrainPrompts::chunks(subject.noteText.value_or(""), subject.note, "");
                    break;
                case AIScope::selection:
                    found.chunks = BrainPrompts::chunks(subject.selection ? subject.selection->text : "",
                                                        subject.note, "selection");
                    break;
                case AIScope::vault:
                    if (access && !found.ignoringRetrieval) {
                        std::vector<float> embedding;
                        if (access->embedder->isConfigured()) {
                            try {
                                auto vectors = access->embedder->embed({found.question}, stop);
                                if (!vectors.empty()) embedding = std::move(vectors.front());
                            } catch (const std::exception&) {  // searched for by its words alone
                            }
                        }
                        auto pack = VaultContextPacker::pack(access->vault, *access->index, *access->search,
                                                             found.question, embedding, budget, stop);
                        found.coverageLine = pack.summary();
                        if (!pack.undelivered.empty())
                            *found.coverageLine +=
                                fmt::format(" · {} still downloading from iCloud", pack.undelivered.size());
                        found.coverage = pack.coverage;
                        found.chunks = std::move(pack.chunks);
                    }
                    if (subject.note && subject.noteText && !subject.noteText->empty())
                        found.chunks =
                            openNoteFirst(BrainPrompts::chunks(*subject.noteText, subject.note, ""),
                                          std::move(found.chunks), subject.note->relativePath,
                                          access ? budget : budgetWithoutVault);
                    break;
            }
            if (stop.stop_requested()) return;
            mainQueue.post([weak, found = std::move(found)]() mutable {
                if (const auto self = weak.lock()) self->gathered(std::move(found));
            });
        });
}

void BrainSession::gathered(Gathered found) {
    if (found.number != generation_) return;
    if (found.coverageLine) {
        lastCoverage.set(found.coverageLine);
        lastCoverageKind_ = found.coverage;
    }
    if (found.chunks.empty() && !found.ignoringRetrieval) return appendNothingFound(found.about);
    const bool withoutContext = found.chunks.empty();
    BrainRequest request;
    request.system = withoutContext
                         ? std::string(BrainPrompts::generalKnowledge)
                         : BrainPrompts::system(found.about, lastCoverageKind_, found.by.isOnDevice);
    request.messages = std::move(found.history);
    request.messages.push_back({.role = BrainMessage::Role::user, .text = std::move(found.question)});
    request.context = std::move(found.chunks);
    stream({.by = std::move(found.by),
            .request = std::move(request),
            .about = found.about,
            .withoutContext = withoutContext,
            .rewrite = {}});
}

void BrainSession::askWithoutContext() {
    auto list = turns.get();
    if (!list.empty() && list.back().role == ChatTurn::Role::assistant) list.pop_back();
    if (list.empty() || list.back().role != ChatTurn::Role::user) return;
    const auto question = list.back().text;
    list.pop_back();
    turns.set(std::move(list));
    ask(question, {}, true);
}

void BrainSession::run(QuickAction action, const AskSubject& subject) {
    const bool isSelection = subject.selection && !subject.selection->text.empty();
    const std::string whole = isSelection ? subject.selection->text : subject.noteText.value_or("");
    const bool rewrites = rewritesNote(action);
    const auto [frontmatter, body] =
        rewrites && !isSelection ? NoteRefinement::split(whole)
                                 : std::pair<std::string_view, std::string_view>(std::string_view(), whole);
    const AIScope about = isSelection ? AIScope::selection : AIScope::note;
    if (trim(body).empty()) {
        begin(std::string(title(action)), about);
        return appendFailure(nothingToWorkOn);
    }
    const std::string noteTitle = subject.note ? subject.note->title : "this note";
    begin(std::string(title(action)) + " — " + (isSelection ? "selection" : noteTitle), about);
    if (!canAsk()) return appendFailure(noProviderConfigured);
    if (rewrites && !isSelection && characterCount(body) > BrainPrompts::longestText)
        return appendFailure(tooLongToRewrite);
    std::optional<Rewrite> rewrite;
    if (rewrites && subject.note) {
        rewrite =
            Rewrite{.action = action,
                    .of = {.note = *subject.note,
                           .original = std::string(body),
                           .isSelection = isSelection,
                           .noteTextAtAsk = subject.noteText,
                           .selectionLocation = isSelection ? subject.selection->location : std::nullopt},
                    .subjectDescription = {}};
        if (!frontmatter.empty())
            rewrite->subjectDescription =
                "the text of " + noteTitle + "; its frontmatter is kept exactly as it is";
    }
    isStreaming.set(true);
    BrainRequest request;
    request.system = instruction(action);
    request.messages = {{.role = BrainMessage::Role::user, .text = "Apply that to the text I gave you."}};
    request.context = BrainPrompts::chunks(body, subject.note, isSelection ? "selection" : "");
    stream({.by = answering(),
            .request = std::move(request),
            .about = about,
            .withoutContext = false,
            .rewrite = std::move(rewrite)});
}

void BrainSession::fileNote(const Note& note, std::string_view noteText,
                            const std::vector<std::string>& folders) {
    begin(localised("File this note — {}", note.title), AIScope::note);
    if (!canAsk()) return appendFailure(noProviderConfigured);
    planFilter_ = FileNote{note.relativePath};
    isStreaming.set(true);
    BrainRequest request;
    request.system = VaultOrganiser::fileNoteInstructions();
    request.messages = {{.role = BrainMessage::Role::user,
                         .text = VaultOrganiser::fileNoteUserMessage(note.relativePath, folders)}};
    request.context = BrainPrompts::chunks(noteText, note, "");
    stream({.by = answering(),
            .request = std::move(request),
            .about = AIScope::note,
            .withoutContext = false,
            .rewrite = {}});
}

TaskHandle BrainSession::suggestTitle(std::string_view noteText,
                                      std::function<void(std::optional<std::string>)> done) {
    const auto provider = canAsk() ? activeOption()->provider : nullptr;
    auto request = NoteTitler::request(NoteTitler::excerpt(noteText));
    return services_.background.run(
        Priority::userInitiated,
        [weak = weak_from_this(), &mainQueue = services_.mainQueue, provider, model = activeModelID.get(),
         request = std::move(request), done = std::move(done)](const std::stop_token& stop) {
            std::optional<std::string> title;
            std::string reply;
            try {
                if (provider)
                    provider->stream(
                        request, model,
                        [&](const BrainEvent& event) {
                            if (const auto* text = std::get_if<BrainEvent::Text>(&event.value))
                                reply += text->text;
                        },
                        stop);
                title = NoteTitler::parse(reply);
            } catch (const std::exception&) {  // a note may stay without a title
            }
            mainQueue.post([weak, stop, title = std::move(title), done] {
                if (weak.lock() && !stop.stop_requested()) done(title);
            });
        });
}

void BrainSession::cancel() {
    work_.cancel();
    ++generation_;
    pendingAskContext_.reset();
    planFilter_.reset();
    const auto leftByOrganiser = abandonOrganising();
    if (!isStreaming.get() && !leftByOrganiser) return;
    isStreaming.setIfChanged(false);
    if (turns->empty() || !turns->back().streaming) return;
    changeLastAnswer(turns, [&](ChatTurn& turn) {
        turn.streaming = false;
        if (leftByOrganiser) turn.text = *leftByOrganiser;
        if (trim(turn.text).empty()) turn.failure = localised("Stopped.");
    });
}

void BrainSession::clear() {
    cancel();
    turns.set({});
    lastCoverage.setIfChanged(std::nullopt);
    lastCoverageKind_.reset();
}

// Proposals

void BrainSession::applyPendingPlan(const std::vector<VaultPlanExecutor::Preview>& previews,
                                    const std::map<int, VaultOperation>& destinations) {
    const auto session = vaultSession_.lock();
    if (!session) return;
    services_.flushPendingSaves();
    auto approved = previews;
    if (!destinations.empty()) {
        VaultPlan plan;
        for (const auto& preview : previews) {
            const auto chosen = destinations.find(preview.id);
            plan.operations.push_back(chosen == destinations.end() ? preview.operation : chosen->second);
        }
        approved = VaultPlanExecutor::validate(
            plan, session->vault(), pendingPlanLimit_,
            organiseResult_ ? organiseResult_->forbiddenFolders : std::vector<std::string>());
        // What was shown of the others is what they are held against.
        for (std::size_t i = 0; i < approved.size() && i < previews.size(); ++i)
            if (!destinations.contains(previews[i].id)) approved[i].before = previews[i].before;
    }
    auto report = VaultPlanExecutor::apply(
        approved, session->vault(),
        [&](const std::string& text, const FilePath& path, const ForeignEdit::Disk& expected) {
            session->write(text, path, &expected);
        });
    // Before the index learns that the old paths are gone and drops what was decided about them.
    rememberApplied(report.renamed);
    for (const auto& departure : report.departures) {
        if (departure.to) {
            session->notesMoved({{departure.from, *departure.to}});
        } else {
            session->notesTrashed({departure.from});
        }
    }
    if (!report.applied.empty()) session->rebuildIndex();
    if (onNotesMoved && (!report.renamed.empty() || !report.removed.empty()))
        onNotesMoved(report.renamed, report.removed);
    auto summary = report.summary();
    lastReport_ = std::move(report);
    lastPlanReport.set(std::move(summary));
    discardPendingPlan();
}

void BrainSession::discardPendingPlan() {
    pendingPlanLimit_.reset();
    organiseResult_.reset();
    pendingPlanSummary.setIfChanged("");
    pendingPlanCoverage.setIfChanged({});
    pendingPlan.setIfChanged({});
}

std::optional<std::string> BrainSession::applyEdit(const NoteEdit& edit) {
    const auto session = vaultSession_.lock();
    if (!session) return localised("No vault is open.");
    services_.flushPendingSaves();
    const auto file = session->vault().absolutePath(edit.notePath);
    std::optional<std::string> current;
    try {
        current = CoordinatedIO::readForSave(file);
    } catch (const std::exception&) {
        return localised("{} couldn't be checked before writing, so nothing was written: {}", edit.noteTitle,
                         describe(std::current_exception()));
    }
    if (!current) return localised("{} is no longer in the vault, so nothing was written.", edit.noteTitle);
    // An edit of a whole note takes everything's place: also that of text typed since, which nobody compared.
    const bool isStale = !edit.isSelectionOnly && *current != edit.original &&
                         NoteRefinement::split(*current).second != edit.original;
    const auto changed = isStale ? std::nullopt : edit.applied(*current);
    if (!changed)
        return localised(
            "{} changed since Vesk proposed this edit — or the selected text now appears more than once, so "
            "there is no safe place to put it. Nothing was written; ask again for a fresh suggestion.",
            edit.noteTitle);
    try {
        const ForeignEdit::Disk expected{ForeignEdit::Disk::Text{*current}};
        session->write(*changed, file, &expected);
    } catch (const std::exception&) {
        return describe(std::current_exception());
    }
    return {};
}

void BrainSession::discardPendingEdit() {
    pendingEdit.setIfChanged(std::nullopt);
}

}  // namespace vesk
