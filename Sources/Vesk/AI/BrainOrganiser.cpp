// The organiser's pass as one turn of the conversation.
#include "Vesk/AI/BrainTasks.h"
#include "Vesk/VaultSession.h"
#include "VeskCore/Brain/Filing/FilingRunner.h"
#include "VeskCore/Brain/Filing/FilingTiming.h"
#include "VeskCore/Brain/Filing/OrganiseStopFlag.h"
#include "VeskCore/Brain/VaultOrganiser.h"
#include "VeskCore/Support/Match.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Vault/AtomicWrite.h"

namespace vesk {

namespace {

constexpr std::string_view stopping =
    marked("\nStopping after this note — the review will show what's done so far");
constexpr std::string_view nothingProposed = marked("Nothing was proposed.");
constexpr std::string_view answersKept =
    marked(" The answers so far are kept — organise again to pick up where this left off.");
constexpr std::string_view endedWithoutResult =
    marked("The organiser stopped without a result. Nothing was changed.");
constexpr std::string_view notRemembered =
    marked("Decisions won't be remembered this pass — the index is still being built");
constexpr std::string_view noVault = marked("No vault is open.");

}  // namespace

/// A pass under way. Of the main thread, but for the flag.
struct BrainSession::Organising {
    std::shared_ptr<OrganiseStopFlag> stopFlag = std::make_shared<OrganiseStopFlag>();
    std::shared_ptr<FilingLedger> ledger;
    bool ledgerIsTemporary = false;
    BrainProviderID providerID;
    std::string providerName;
    std::optional<FilingPreflight> preflight;
    std::optional<FilingProgress> progress;
};

/// A pass that has ended, its plan held against the vault.
struct BrainSession::Organised {
    FilingOutcome outcome;
    std::vector<VaultPlanExecutor::Preview> previews;
};

void BrainSession::organiseVault() {
    if (isStreaming || isOrganising) return;
    organise({});
}

void BrainSession::decideAgain() {
    if (isStreaming || isOrganising) return;
    auto result = std::move(organiseResult_);
    discardPendingPlan();
    organise(std::move(result));
}

void BrainSession::organise(std::optional<OrganiseResult> forgetting) {
    begin(std::string(VaultOrganiser::transcriptLabel), AIScope::vault);
    if (!canAsk()) return appendFailure(noProviderConfigured);
    const auto session = vaultSession_.lock();
    if (!session) return appendFailure(noVault);

    const auto by = answering();
    const auto access = session->searchAccess();
    auto pass = std::make_shared<Organising>();
    pass->providerID = by.provider->id();
    pass->providerName = by.provider->shortDisplayName();
    pass->ledgerIsTemporary = session->indexing;
    std::shared_ptr<NoteIndex> index;
    if (!pass->ledgerIsTemporary) index = access.index;
    std::shared_ptr<FilingHintSource> hints;
    if (index) {
        pass->ledger = index;
        hints = std::make_shared<FreshHintSource>(index, services_.embeddings, services_.languages);
    } else {
        pass->ledger = std::make_shared<InMemoryFilingLedger>();
        hints = NoHintSource::indexBusy();
    }
    FilingRunner::Configuration configuration;
    configuration.perCallEstimate = FilingTiming::perCallEstimate(
        pass->providerID, by.provider->preferredChoiceBatchSize() > 1, services_.defaults);
    FilingRunner::Inputs inputs{
        .vault = access.vault,
        .provider = by.provider,
        .model = by.modelID,
        .systemVersion = services_.systemVersion,
        .settings = {},
        .ledger = pass->ledger,
        .index = index,
        .hintSource = std::move(hints),
        .configuration = configuration,
        .ledgerNote = pass->ledgerIsTemporary ? std::optional(localised(notRemembered)) : std::nullopt,
        .shouldStop = [flag = pass->stopFlag] { return flag->isRaised(); },
        .bench = {},
        .clock = services_.clock};

    organising_ = std::move(pass);
    organiseStopRequested.setIfChanged(false);
    isOrganising.set(true);
    ChatTurn turn;
    turn.role = ChatTurn::Role::assistant;
    turn.streaming = true;
    turn.providerLabel = by.label;
    turn.isOrganiserReport = true;
    append(std::move(turn));

    work_ = services_.background.run(
        Priority::userInitiated,
        [weak = weak_from_this(), number = generation_, &mainQueue = services_.mainQueue,
         inputs = std::move(inputs), forgetting = std::move(forgetting)](const std::stop_token& stop) {
            const auto tell = [&](auto job) {
                mainQueue.post([weak, number, job = std::move(job)]() mutable {
                    const auto self = weak.lock();
                    if (self && self->generation_ == number) job(*self);
                });
            };
            const auto end = [&](std::string failure) {
                tell([failure = std::move(failure)](BrainSession& self) {
                    const auto text = self.turns->empty() ? std::string() : self.turns->back().text;
                    self.endOrganising(text, failure, {});
                });
            };
            const auto finished = [&](const FilingOutcome& outcome) {
                Organised organised{.outcome = outcome, .previews = {}};
                auto& plan = organised.outcome.plan;
                plan = VaultOrganiser::filingOnly(std::move(plan)).first;
                organised.previews =
                    VaultPlanExecutor::validate(plan, inputs.vault, {}, outcome.taxonomy.forbiddenFolders());
                tell([organised = std::move(organised)](BrainSession& self) mutable {
                    self.finishOrganising(std::move(organised));
                });
            };
            bool hasFinished = false;
            try {
                try {
                    if (forgetting)
                        forgetting->ledger->forgetDecisions(forgetting->paths, forgetting->modelKey);
                } catch (const Error&) {  // what is known is offered once more
                }
                FilingRunner::execute(
                    inputs,
                    [&](const FilingEvent& event) {
                        match(
                            event,
                            [&](const FilingPreflight& preflight) {
                                tell([preflight](BrainSession& self) {
                                    self.organising_->preflight = preflight;
                                    self.showOrganising();
                                });
                            },
                            [&](const FilingProgress& progress) {
                                tell([progress](BrainSession& self) {
                                    self.organising_->progress = progress;
                                    self.showOrganising();
                                });
                            },
                            [&](const FilingOutcome& outcome) {
                                finished(outcome);
                                hasFinished = true;
                            });
                    },
                    stop);
                if (!hasFinished) end(localised(endedWithoutResult));
            } catch (const OperationCancelled&) {
                end(localised("Stopped."));
            } catch (const std::exception&) {  // a refusal says so itself
                end(describe(std::current_exception()));
            }
        });
}

void BrainSession::showOrganising() {
    std::string text;
    if (organising_->preflight) text = join(organising_->preflight->lines(), "\n");
    if (organising_->progress) text += "\n" + organising_->progress->line();
    if (organiseStopRequested) text += localised(stopping);
    changeLastAnswer(turns, [&](ChatTurn& turn) { turn.text = std::move(text); });
}

void BrainSession::stopOrganising() {
    if (!organising_ || organiseStopRequested) return;
    organising_->stopFlag->raise();
    organiseStopRequested.set(true);
    showOrganising();
}

void BrainSession::finishOrganising(Organised organised) {
    const auto pass = organising_;
    auto& [outcome, previews] = organised;
    FilingTiming::remember(outcome.report, pass->providerID, services_.defaults);
    std::vector<std::string> lines;
    if (pass->preflight) lines = pass->preflight->lines();
    auto coverage = outcome.coverage.lines(pass->providerName);
    lines.insert(lines.end(), coverage.begin(), coverage.end());
    discardPendingPlan();
    const auto count = static_cast<int>(previews.size());
    if (count > 0) {
        OrganiseResult result{.ledger = pass->ledger,
                              .modelKey = outcome.modelKey,
                              .forbiddenFolders = outcome.taxonomy.forbiddenFolders(),
                              .paths = {}};
        for (const auto& operation : outcome.plan.operations)
            if (const auto* move = std::get_if<VaultOperation::RenameNote>(&operation.value))
                result.paths.push_back(move->from);
        organiseResult_ = std::move(result);
        pendingPlanSummary.set(outcome.plan.summary);
        pendingPlanCoverage.set(std::move(coverage));
    }
    endOrganising(join(lines, "\n"), {}, count > 0 ? std::optional(count) : std::nullopt);
    if (count > 0) pendingPlan.set(std::move(previews));
}

void BrainSession::endOrganising(std::string text, std::optional<std::string> failure,
                                 std::optional<int> planOperations) {
    organising_.reset();
    changeLastAnswer(turns, [&](ChatTurn& turn) {
        turn.streaming = false;
        turn.text = std::move(text);
        turn.failure = std::move(failure);
        turn.planOperations = planOperations;
    });
    organiseStopRequested.setIfChanged(false);
    isOrganising.setIfChanged(false);
}

std::optional<std::string> BrainSession::abandonOrganising() {
    if (!organising_) return {};
    const bool isKept = !std::exchange(organising_, nullptr)->ledgerIsTemporary;
    organiseStopRequested.setIfChanged(false);
    isOrganising.setIfChanged(false);
    return localised(nothingProposed) + (isKept ? localised(answersKept) : "");
}

void BrainSession::rememberApplied(const std::map<std::string, std::string>& moves) {
    if (!organiseResult_ || moves.empty()) return;
    services_.background.run(Priority::userInitiated,
                             [ledger = organiseResult_->ledger, modelKey = organiseResult_->modelKey,
                              moves](const std::stop_token&) {
                                 try {
                                     ledger->markApplied(moves, modelKey);
                                 } catch (const Error&) {  // asked about again, should they come back
                                 }
                             });
}

}  // namespace vesk
