// A reply as it comes, and what it proposes once it is complete.
#include <algorithm>

#include "Vesk/AI/BrainTasks.h"
#include "Vesk/VaultSession.h"
#include "VeskCore/Brain/ChatRewrite.h"
#include "VeskCore/Brain/FocusLines.h"
#include "VeskCore/Brain/NoteRefinement.h"
#include "VeskCore/Brain/VaultOrganiser.h"
#include "VeskCore/Brain/VaultPlanner.h"
#include "VeskCore/Support/BrainError.h"
#include "VeskCore/Support/Match.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"
#include "VeskCore/Support/Uuid.h"

namespace vesk {

namespace {

constexpr int usualOutput = 4096, leastWindow = 8192, smallReply = 1024, shareOfWindow = 8;

constexpr std::string_view stopped = marked("Stopped.");
constexpr std::string_view rewriteWasCut = marked(
    "The rewrite hit the model's length limit and was cut off, so nothing was proposed. Ask again, or select "
    "a smaller piece.");
constexpr std::string_view planWasCut = marked(
    "The answer hit the model's length limit and the plan was cut off, so nothing was proposed. Ask again — "
    "or ask for part of the vault at a time.");
constexpr std::string_view unreadableNotePlan = marked(
    "That answer contains a plan Vesk couldn't read, so nothing was proposed. Nothing was changed — ask "
    "again.");
constexpr std::string_view unreadableVaultPlan = marked(
    "That answer contains a plan Vesk couldn't read, so nothing was proposed. Nothing was changed — ask "
    "again and the model will usually produce a cleaner one.");

std::string onlyNonFilingMessage(int count) {
    return localisedCount(
        "The model proposed {} change that isn't filing — rewrites or deletions — and organising only moves "
        "notes, so nothing was proposed. Nothing was changed.",
        "The model proposed {} changes that aren't filing — rewrites or deletions — and organising only "
        "moves "
        "notes, so nothing was proposed. Nothing was changed.",
        static_cast<std::size_t>(count), count);
}

bool isLengthLimit(const std::optional<std::string>& stopReason) {
    const auto reason = lowercased(stopReason.value_or(""));
    return reason == "max_tokens" || reason == "length" || reason == "max_output_tokens";
}

bool looksLikePlan(std::string_view text) {
    return text.find("```") != text.npos && text.find("\"operations\"") != text.npos;
}

/// How long a reply may be.
int longestReply(const std::optional<BrainModel>& model) {
    const int out = model && model->maxOutput > 0 ? model->maxOutput : usualOutput;
    const bool isLarge = model && model->contextWindow >= leastWindow;
    return std::min(out, isLarge ? model->contextWindow / shareOfWindow : smallReply);
}

}  // namespace

void BrainSession::stream(Streaming streaming) {
    BrainRequest request = std::move(streaming.request);
    request.maxTokens = longestReply(streaming.by.model);
    if (streaming.by.isOnDevice)
        request.focus = FocusLines::block(request.messages.back().text, request.context);

    ChatTurn turn;
    turn.role = ChatTurn::Role::assistant;
    turn.citations = request.context;
    turn.scope = streaming.about;
    turn.streaming = true;
    turn.answeredWithoutContext = streaming.withoutContext;
    turn.providerLabel = streaming.by.label;
    append(std::move(turn));

    auto mailbox = std::make_shared<Mailbox>();
    mailbox->rewrite = std::move(streaming.rewrite);
    work_ = services_.background.run(
        Priority::userInitiated,
        [weak = weak_from_this(), number = generation_, mailbox, &mainQueue = services_.mainQueue,
         provider = streaming.by.provider, request = std::move(request),
         model = streaming.by.modelID](const std::stop_token& stop) {
            const auto put = [&](const auto& change) {
                {
                    const std::lock_guard guard(mailbox->lock);
                    change();
                    if (std::exchange(mailbox->isPosted, true)) return;
                }
                mainQueue.post([weak, number, mailbox] {
                    if (const auto self = weak.lock()) self->receive(number, mailbox);
                });
            };
            std::optional<std::string> failure;
            bool wasCancelled = false;
            try {
                provider->stream(
                    request, model,
                    [&](const BrainEvent& event) { put([&] { mailbox->events.push_back(event); }); }, stop);
            } catch (const BrainError& error) {
                wasCancelled = std::holds_alternative<BrainError::Cancelled>(error.value);
                failure = error.description();
            } catch (const std::exception&) {
                failure = describe(std::current_exception());
            }
            put([&] {
                mailbox->isEnded = true;
                mailbox->wasCancelled = wasCancelled;
                mailbox->failure = failure;
            });
        });
}

void BrainSession::receive(std::uint64_t number, const std::shared_ptr<Mailbox>& mailbox) {
    std::vector<BrainEvent> arrived;
    bool isEnded = false;
    {
        const std::lock_guard guard(mailbox->lock);
        arrived.swap(mailbox->events);
        mailbox->isPosted = false;
        isEnded = mailbox->isEnded;
    }
    const auto self = shared_from_this();
    std::string text;
    const auto showText = [&] {
        if (text.empty()) return;
        mailbox->text += text;
        changeLastAnswer(turns, [&](ChatTurn& turn) { turn.text += text; });
        text.clear();
    };
    for (const auto& event : arrived) {
        if (number != generation_) return;
        match(
            event, [&](const BrainEvent::Text& piece) { text += piece.text; },
            [](const BrainEvent::Thinking&) {},
            [&](const BrainEvent::Usage& usage) {
                showText();
                changeLastAnswer(turns, [&](ChatTurn& turn) {
                    turn.inputTokens = usage.inputTokens;
                    turn.outputTokens = usage.outputTokens;
                });
            },
            [&](const BrainEvent::Done& done) { mailbox->stopReason = done.stopReason; });
        if (number == generation_) events.send(event);
    }
    if (number != generation_) return;
    showText();
    if (isEnded && number == generation_) ended(number, mailbox);
}

void BrainSession::ended(std::uint64_t number, const std::shared_ptr<Mailbox>& mailbox) {
    if (mailbox->wasCancelled)
        return finishStreaming(mailbox->text.empty() ? std::optional(localised(stopped)) : std::nullopt,
                               std::nullopt);
    if (mailbox->failure) return finishStreaming(mailbox->failure, std::nullopt);
    const auto& rewrite = mailbox->rewrite;
    // The end of the text would be missing from the note.
    if (rewrite && isLengthLimit(mailbox->stopReason))
        return finishStreaming(localised(rewriteWasCut), mailbox->stopReason);
    finishStreaming(std::nullopt, mailbox->stopReason);
    if (!rewrite || number != generation_) return;
    auto proposal = NoteRefinement::proposal(mailbox->text, rewrite->of.original);
    if (!proposal) return;
    pendingEdit.set(NoteEdit{.id = randomUuid(),
                             .notePath = rewrite->of.note.relativePath,
                             .noteTitle = rewrite->of.note.title,
                             .action = std::string(title(rewrite->action)),
                             .original = rewrite->of.original,
                             .replacement = std::move(*proposal),
                             .isSelectionOnly = rewrite->of.isSelection,
                             .noteTextAtAsk = rewrite->of.noteTextAtAsk,
                             .selectionLocation = rewrite->of.selectionLocation,
                             .subjectDescription = rewrite->subjectDescription});
}

void BrainSession::finishStreaming(std::optional<std::string> failure,
                                   const std::optional<std::string>& stopReason) {
    if (!turns->empty() && turns->back().role == ChatTurn::Role::assistant) {
        ChatTurn turn = turns->back();
        turn.streaming = false;
        if (failure) {
            turn.failure = std::move(failure);
        } else {
            findProposal(turn, stopReason);
        }
        changeLastAnswer(turns, [&](ChatTurn& last) { last = turn; });
    }
    pendingAskContext_.reset();
    planFilter_.reset();
    lastPlanDropped_ = 0;
    isStreaming.set(false);
}

void BrainSession::findProposal(ChatTurn& turn, const std::optional<std::string>& stopReason) {
    if (turn.text.empty()) return;
    const bool wasCut = isLengthLimit(stopReason);
    if (pendingAskContext_ && findRewrite(turn, wasCut)) return;
    const auto* fileNote = planFilter_ ? std::get_if<FileNote>(&*planFilter_) : nullptr;
    if (pendingAskContext_ || fileNote) {
        findPlan(turn, fileNote ? fileNote->path : pendingAskContext_->note.relativePath, unreadableNotePlan);
    } else if (turn.scope == AIScope::vault) {
        if (wasCut && looksLikePlan(turn.text)) {
            turn.failure = localised(planWasCut);
        } else {
            findPlan(turn, std::nullopt, unreadableVaultPlan);
        }
    }
}

bool BrainSession::findRewrite(ChatTurn& turn, bool wasCut) {
    if (wasCut && ChatRewrite::looksLikeReplacement(turn.text)) {
        turn.failure = localised(rewriteWasCut);
        return true;
    }
    auto replacement = ChatRewrite::extract(turn.text);
    if (!replacement) return false;
    const auto& context = *pendingAskContext_;
    const auto text = trim(*replacement);
    if (text.empty() || text == trim(context.original)) return true;
    turn.proposedRewrite = true;
    pendingEdit.set(NoteEdit{
        .id = randomUuid(),
        .notePath = context.note.relativePath,
        .noteTitle = context.note.title,
        .action = "AI edit",
        .original = context.original,
        .replacement = NoteRefinement::rewrap(trimCharacters(*replacement, "\r\n"), context.original),
        .isSelectionOnly = context.isSelection,
        .noteTextAtAsk = context.noteTextAtAsk,
        .selectionLocation = context.selectionLocation,
        .subjectDescription = {}});
    return true;
}

void BrainSession::findPlan(ChatTurn& turn, const std::optional<std::string>& limitToNote,
                            std::string_view unreadable) {
    if (const int count = extractPlan(turn.text, limitToNote); count > 0) {
        turn.planOperations = count;
    } else if (lastPlanDropped_ > 0) {
        turn.failure = onlyNonFilingMessage(lastPlanDropped_);
    } else if (looksLikePlan(turn.text)) {
        turn.failure = localised(unreadable);
    }
}

int BrainSession::extractPlan(std::string_view text, const std::optional<std::string>& limitToNote) {
    const auto session = vaultSession_.lock();
    if (!session) return 0;
    VaultPlan plan;
    try {
        plan = VaultPlanner::parse(text);
    } catch (const VaultPlanError&) {  // the caller tells what can't be read from what isn't there
        return 0;
    }
    if (planFilter_ && std::holds_alternative<Filing>(*planFilter_))
        std::tie(plan, lastPlanDropped_) = VaultOrganiser::filingOnly(std::move(plan));
    auto previews = VaultPlanExecutor::validate(plan, session->vault(), limitToNote);
    if (previews.empty()) return 0;
    const auto count = static_cast<int>(previews.size());
    auto summary = plan.summary;
    if (lastPlanDropped_ > 0)
        summary += localisedCount(" ({} change left out)", " ({} changes left out)",
                                  static_cast<std::size_t>(lastPlanDropped_), lastPlanDropped_);
    discardPendingPlan();
    pendingPlanLimit_ = limitToNote;
    pendingPlanSummary.set(std::move(summary));
    pendingPlan.set(std::move(previews));
    return count;
}

}  // namespace vesk
