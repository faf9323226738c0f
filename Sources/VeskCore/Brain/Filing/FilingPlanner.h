// The organiser's decisions as a state machine: which question is next, what an answer or a failure means,
// and the plan that comes of it. A plain value that does nothing by itself.
#pragma once

#include <cstddef>
#include <deque>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "VeskCore/Brain/Choice.h"
#include "VeskCore/Brain/Filing/FilingCandidate.h"
#include "VeskCore/Brain/Filing/FilingHints.h"
#include "VeskCore/Brain/Filing/FilingTaxonomy.h"
#include "VeskCore/Brain/Filing/JunkDetector.h"
#include "VeskCore/Brain/VaultPlan.h"
#include "VeskCore/Index/FilingLedger.h"

namespace vesk {

struct FilingProgress {
    int completed = 0, total = 0, moves = 0;
    std::optional<std::string> currentTitle;
    /// "Filing 3 of 10 · 2 moves so far · "Boat"".
    std::string line() const;
    bool operator==(const FilingProgress&) const = default;
};

/// Of the one task that runs the pass.
class FilingPlanner {
public:
    struct Ask {
        std::vector<FilingCandidate> batch;
        FilingAttempt attempt;
        bool operator==(const Ask&) const = default;
    };
    struct Wait {
        double seconds = 0;
        bool operator==(const Wait&) const = default;
    };
    struct Done {
        bool operator==(const Done&) const = default;
    };
    using Step = std::variant<Ask, Wait, Done>;

    struct Aborted {
        std::string message;
        bool operator==(const Aborted&) const = default;
    };
    struct Running {
        bool operator==(const Running&) const = default;
    };
    struct Finished {
        bool operator==(const Finished&) const = default;
    };
    struct Stopped {
        bool operator==(const Stopped&) const = default;
    };
    using Status = std::variant<Aborted, Running, Finished, Stopped>;

    struct Counts {
        int decidedNow = 0, fromCache = 0, declined = 0, junk = 0, notLookedAt = 0;
        bool operator==(const Counts&) const = default;
    };

    /// `junk`, `cached` and `hints` are by path.
    FilingPlanner(FilingTaxonomy taxonomy, std::vector<FilingCandidate> candidates,
                  std::map<std::string, JunkVerdict> junk,
                  const std::map<std::string, FilingDecision>& cached,
                  std::map<std::string, std::vector<FilingHint>> hints, int batchSize, std::string modelKey);

    /// An Ask is answered by record() or fail() before the next step.
    Step nextStep();
    void record(const ChoiceAnswer& answer);
    void fail(const ChoiceError& error);
    /// Any other failure of a question, in the user's words.
    void fail(const std::string& description);
    /// What was settled goes to the plan.
    void stop();

    FilingProgress progress() const;
    Counts counts() const;
    VaultPlan plan() const;

    const Status& status() const { return status_; }
    int askable() const { return askableCount_; }
    const std::vector<FilingHint>& hints(const std::string& path) const;
    /// Every decision of this pass, in order.
    const FilingLedger::Entries& newDecisions() const { return newDecisions_; }
    /// By path.
    const std::map<std::string, std::string>& declinedReasons() const { return declinedReasons_; }

    static std::string summary(int confident, int unsure, int junk);

private:
    /// A question without an answer yet.
    struct Pending {
        std::vector<FilingCandidate> notes;
        FilingAttempt attempt;
        int transientRetries = 0, unparseableRetries = 0;
        bool declinedRetried = false;
    };
    /// A note that has a folder.
    struct Row {
        std::string folder;
        FilingTier tier = FilingTier::unsure;
        std::optional<std::string> vote;
        bool hadHints = false, fromCache = false;
    };

    bool awaitsAnswer() const;
    Pending takeHead();
    void askAgain(Pending pending) { queue_.push_front(std::move(pending)); }
    void askSingly(const std::vector<FilingCandidate>& notes);
    void settle(const FilingCandidate& note, const std::string& folder);
    void decline(const FilingCandidate& note, std::string reason);
    void declined(Pending head, const std::string& reason);
    void unparseable(Pending head);
    void tooLong(Pending head);
    void busy(const std::string& description);
    void transient(const std::string& description);
    FilingLedgerKey key(const FilingCandidate& note) const;
    PlanAnnotation annotation(const FilingCandidate& note, const Row& row) const;

    FilingTaxonomy taxonomy_;
    std::set<std::string> targets_;
    std::string modelKey_;
    std::vector<FilingCandidate> candidates_;
    std::map<std::string, JunkVerdict> junk_;
    std::map<std::string, std::vector<FilingHint>> hints_;
    std::deque<Pending> queue_;
    std::map<std::string, Row> rows_;
    std::map<std::string, std::string> declinedReasons_;
    FilingLedger::Entries newDecisions_;
    Status status_ = Running{};
    std::optional<double> pendingWait_;  // seconds
    int busyStreak_ = 0, consecutiveFailures_ = 0;
    int askableCount_ = 0, settledCount_ = 0, filedNow_ = 0, declinedNow_ = 0;
    int fromCacheCount_ = 0, cachedDeclinedCount_ = 0;
};

}  // namespace vesk
