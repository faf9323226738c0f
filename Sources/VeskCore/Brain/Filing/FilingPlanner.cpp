#include "VeskCore/Brain/Filing/FilingPlanner.h"

#include <algorithm>
#include <array>

#include "VeskCore/Brain/Filing/FilingPrompt.h"
#include "VeskCore/Support/Localised.h"
#include "VeskCore/Support/Match.h"
#include "VeskCore/Support/PathText.h"
#include "VeskCore/Support/Text.h"

namespace vesk {

namespace {

constexpr std::array<double, 3> busyWaits = {0.5, 2, 5};  // seconds
constexpr int mostFailures = 3;
constexpr std::size_t shortenedText = 600;  // characters
constexpr std::string_view noFolder = "The model's answer didn't name a folder";
constexpr std::string_view tooLongReason = "too long";

VaultOperation moveTo(const FilingCandidate& note, const std::string& folder) {
    return {VaultOperation::RenameNote{note.path, folder + "/" + std::string(lastComponent(note.path))}};
}

int asInt(std::size_t count) {
    return static_cast<int>(count);
}

}  // namespace

std::string FilingProgress::line() const {
    const auto count = static_cast<std::size_t>(moves);
    if (!currentTitle)
        return localisedCount("Filed {} of {} · {} move", "Filed {} of {} · {} moves", count, completed,
                              total, moves);
    return localisedCount("Filing {} of {} · {} move so far · \"{}\"",
                          "Filing {} of {} · {} moves so far · \"{}\"", count, std::min(total, completed + 1),
                          total, moves, *currentTitle);
}

FilingPlanner::FilingPlanner(FilingTaxonomy taxonomy, std::vector<FilingCandidate> candidates,
                             std::map<std::string, JunkVerdict> junk,
                             const std::map<std::string, FilingDecision>& cached,
                             std::map<std::string, std::vector<FilingHint>> hints, int batchSize,
                             std::string modelKey)
    : taxonomy_(std::move(taxonomy)),
      targets_(taxonomy_.targets.begin(), taxonomy_.targets.end()),
      modelKey_(std::move(modelKey)),
      candidates_(std::move(candidates)),
      junk_(std::move(junk)),
      hints_(std::move(hints)) {
    std::vector<FilingCandidate> askable;
    for (const auto& note : candidates_) {
        if (junk_.contains(note.path)) continue;
        const auto known = cached.find(note.path);
        if (known != cached.end()) {
            if (const auto* declined = std::get_if<FilingDecision::Declined>(&known->second.verdict)) {
                declinedReasons_[note.path] = declined->reason;
                ++cachedDeclinedCount_;
                continue;
            }
            const auto& filed = std::get<FilingDecision::Filed>(known->second.verdict);
            if (targets_.contains(filed.folder)) {
                const auto& similar = this->hints(note.path);
                rows_[note.path] = {.folder = filed.folder,
                                    .tier = filed.tier,
                                    .vote = FilingHints::vote(similar),
                                    .hadHints = !similar.empty(),
                                    .fromCache = true};
                ++fromCacheCount_;
                continue;
            }
        }
        askable.push_back(note);
    }
    askableCount_ = asInt(askable.size());
    const auto size = static_cast<std::size_t>(std::max(batchSize, 1));
    for (std::size_t from = 0; from < askable.size(); from += size) {
        const auto to = std::min(from + size, askable.size());
        Pending pending;
        pending.notes.assign(askable.begin() + static_cast<std::ptrdiff_t>(from),
                             askable.begin() + static_cast<std::ptrdiff_t>(to));
        pending.attempt = to - from == 1 ? FilingAttempt::full() : FilingAttempt::noHints();
        queue_.push_back(std::move(pending));
    }
}

const std::vector<FilingHint>& FilingPlanner::hints(const std::string& path) const {
    static const std::vector<FilingHint> none;
    const auto found = hints_.find(path);
    return found == hints_.end() ? none : found->second;
}

FilingPlanner::Step FilingPlanner::nextStep() {
    if (!std::holds_alternative<Running>(status_)) return Done{};
    if (pendingWait_) return Wait{*std::exchange(pendingWait_, std::nullopt)};
    if (!queue_.empty()) return Ask{queue_.front().notes, queue_.front().attempt};
    status_ = Finished{};
    return Done{};
}

void FilingPlanner::stop() {
    if (std::holds_alternative<Running>(status_)) status_ = Stopped{};
}

bool FilingPlanner::awaitsAnswer() const {
    return std::holds_alternative<Running>(status_) && !queue_.empty();
}

FilingPlanner::Pending FilingPlanner::takeHead() {
    auto head = std::move(queue_.front());
    queue_.pop_front();
    return head;
}

void FilingPlanner::askSingly(const std::vector<FilingCandidate>& notes) {
    for (auto note = notes.rbegin(); note != notes.rend(); ++note)
        askAgain({.notes = {*note}, .attempt = FilingAttempt::full(), .unparseableRetries = 1});
}

void FilingPlanner::record(const ChoiceAnswer& answer) {
    if (!awaitsAnswer()) return;
    auto head = takeHead();
    busyStreak_ = consecutiveFailures_ = 0;
    const bool isSingle = head.notes.size() == 1;
    std::vector<FilingCandidate> unanswered;
    for (std::size_t i = 0; i < head.notes.size(); ++i) {
        const auto pick = answer.picks.find(isSingle ? std::string(FilingPrompt::slotName)
                                                     : FilingPrompt::batchSlotName(i + 1));
        if (pick != answer.picks.end() && targets_.contains(pick->second)) {
            settle(head.notes[i], pick->second);
        } else {
            unanswered.push_back(head.notes[i]);
        }
    }
    if (unanswered.empty()) return;
    if (isSingle) return unparseable(std::move(head));
    askSingly(unanswered);
}

void FilingPlanner::settle(const FilingCandidate& note, const std::string& folder) {
    const auto& similar = hints(note.path);
    const auto vote = FilingHints::vote(similar);
    const auto tier = vote == folder ? FilingTier::confident : FilingTier::unsure;
    rows_[note.path] = {
        .folder = folder, .tier = tier, .vote = vote, .hadHints = !similar.empty(), .fromCache = false};
    newDecisions_.emplace_back(
        key(note),
        FilingDecision{.verdict = FilingDecision::Filed{folder, tier}, .fromCache = false, .appliedTo = {}});
    ++settledCount_;
    ++filedNow_;
}

void FilingPlanner::decline(const FilingCandidate& note, std::string reason) {
    newDecisions_.emplace_back(
        key(note),
        FilingDecision{.verdict = FilingDecision::Declined{reason}, .fromCache = false, .appliedTo = {}});
    declinedReasons_[note.path] = std::move(reason);
    ++settledCount_;
    ++declinedNow_;
}

FilingLedgerKey FilingPlanner::key(const FilingCandidate& note) const {
    return {.path = note.path,
            .contentHash = note.contentHash,
            .targetsHash = taxonomy_.targetsHash,
            .modelKey = modelKey_};
}

void FilingPlanner::fail(const ChoiceError& error) {
    if (!awaitsAnswer()) return;
    if (std::holds_alternative<ChoiceError::Busy>(error.value)) return busy(error.description());
    busyStreak_ = 0;
    auto head = takeHead();
    match(
        error.value, [&](const ChoiceError::Declined& it) { declined(std::move(head), it.words); },
        [&](const ChoiceError::Unparseable&) { unparseable(std::move(head)); },
        [&](const ChoiceError::TooLong&) { tooLong(std::move(head)); }, [](const ChoiceError::Busy&) {});
}

void FilingPlanner::fail(const std::string& description) {
    if (awaitsAnswer()) transient(description);
}

void FilingPlanner::declined(Pending head, const std::string& reason) {
    // Which of several was meant can't be told: none is decided.
    if (head.notes.size() > 1) return;
    const bool showedLittle = head.attempt.kind == FilingAttempt::Kind::noHints ||
                              head.attempt.kind == FilingAttempt::Kind::titleOnly;
    if (head.declinedRetried || showedLittle) return decline(head.notes.front(), reason);
    head.attempt = FilingAttempt::titleOnly();
    head.declinedRetried = true;
    askAgain(std::move(head));
}

void FilingPlanner::unparseable(Pending head) {
    if (head.unparseableRetries < 1) {
        ++head.unparseableRetries;
        askAgain(std::move(head));
    } else if (head.notes.size() > 1) {
        askSingly(head.notes);
    } else {
        decline(head.notes.front(), std::string(noFolder));
    }
}

void FilingPlanner::tooLong(Pending head) {
    if (head.notes.size() > 1) {
        const auto middle = head.notes.begin() + static_cast<std::ptrdiff_t>(head.notes.size() / 2);
        Pending rest{.notes = {middle, head.notes.end()},
                     .attempt = head.attempt,
                     .declinedRetried = head.declinedRetried};
        Pending first{.notes = {head.notes.begin(), middle},
                      .attempt = head.attempt,
                      .declinedRetried = head.declinedRetried};
        askAgain(std::move(rest));
        return askAgain(std::move(first));
    }
    switch (head.attempt.kind) {
        case FilingAttempt::Kind::full:
            head.attempt = FilingAttempt::noHints();
            break;
        case FilingAttempt::Kind::noHints:
            head.attempt = FilingAttempt::shortened(shortenedText);
            break;
        case FilingAttempt::Kind::shortened:
            head.attempt = FilingAttempt::titleOnly();
            break;
        case FilingAttempt::Kind::titleOnly:
            return decline(head.notes.front(), std::string(tooLongReason));
    }
    askAgain(std::move(head));
}

void FilingPlanner::busy(const std::string& description) {
    if (static_cast<std::size_t>(busyStreak_) < busyWaits.size()) {
        pendingWait_ = busyWaits[static_cast<std::size_t>(busyStreak_++)];
        return;
    }
    busyStreak_ = 0;
    transient(description);
}

void FilingPlanner::transient(const std::string& description) {
    if (++consecutiveFailures_ >= mostFailures) {
        status_ = Aborted{description};
        pendingWait_.reset();
        return;
    }
    auto head = takeHead();
    if (head.transientRetries < 1) {
        ++head.transientRetries;
        askAgain(std::move(head));
    } else {
        settledCount_ += asInt(head.notes.size());
    }
}

FilingProgress FilingPlanner::progress() const {
    return {
        .completed = settledCount_,
        .total = askableCount_,
        .moves = asInt(rows_.size()),
        .currentTitle = awaitsAnswer() ? std::optional(queue_.front().notes.front().title) : std::nullopt};
}

FilingPlanner::Counts FilingPlanner::counts() const {
    const auto isJunk = [this](const FilingCandidate& note) { return junk_.contains(note.path); };
    return {.decidedNow = filedNow_,
            .fromCache = fromCacheCount_,
            .declined = declinedNow_ + cachedDeclinedCount_,
            .junk = static_cast<int>(std::count_if(candidates_.begin(), candidates_.end(), isJunk)),
            .notLookedAt = askableCount_ - filedNow_ - declinedNow_};
}

PlanAnnotation FilingPlanner::annotation(const FilingCandidate& note, const Row& row) const {
    PlanAnnotation made{.group = PlanAnnotation::Group::move,
                        .tier = row.tier,
                        .reason = localised("Similar notes are filed here"),
                        .alternatives = {},
                        .tickedByDefault = row.tier == FilingTier::confident,
                        .fromCache = row.fromCache};
    if (row.tier == FilingTier::confident) return made;
    if (row.vote && *row.vote != row.folder) {
        made.reason = localised("Best guess — similar notes are in {}", *row.vote);
        for (const auto& folder : {row.folder, *row.vote})
            made.alternatives.push_back({.folder = folder, .operation = moveTo(note, folder), .issue = {}});
    } else if (row.hadHints) {
        made.reason = localised("Best guess — similar notes are spread across folders");
    } else {
        made.reason = localised("Best guess — no similar notes to compare against");
    }
    return made;
}

VaultPlan FilingPlanner::plan() const {
    VaultPlan made;
    std::array<int, 2> ofTier{};
    for (const auto tier : {FilingTier::confident, FilingTier::unsure}) {
        for (const auto& note : candidates_) {
            const auto row = rows_.find(note.path);
            if (row == rows_.end() || row->second.tier != tier) continue;
            made.operations.push_back(moveTo(note, row->second.folder));
            made.annotations[note.path] = annotation(note, row->second);
            ++ofTier[static_cast<std::size_t>(tier)];
        }
    }
    if (taxonomy_.junkFolder) {
        for (const auto& note : candidates_) {
            const auto verdict = junk_.find(note.path);
            if (verdict == junk_.end()) continue;
            made.operations.push_back(moveTo(note, *taxonomy_.junkFolder));
            made.annotations[note.path] = {.group = PlanAnnotation::Group::junk,
                                           .tier = {},
                                           .reason = verdict->second.reason,
                                           .alternatives = {},
                                           .tickedByDefault = false,
                                           .fromCache = false};
        }
    }
    const auto junk = asInt(made.operations.size()) - ofTier[0] - ofTier[1];
    made.summary = summary(ofTier[0], ofTier[1], junk);
    return made;
}

std::string FilingPlanner::summary(int confident, int unsure, int junk) {
    std::string text = localised("Nothing to file");
    if (const int total = confident + unsure; total > 0) {
        std::vector<std::string> parts;
        if (confident > 0) parts.push_back(localised("{} where similar notes agree", confident));
        if (unsure > 0)
            parts.push_back(
                localisedCount("{} best guess", "{} best guesses", static_cast<std::size_t>(unsure), unsure));
        text = localisedCount("{} note to file — {}", "{} notes to file — {}",
                              static_cast<std::size_t>(total), total, join(parts, ", "));
    }
    if (junk > 0) text += " · " + localised("{} possibly junk", junk);
    return text;
}

}  // namespace vesk
