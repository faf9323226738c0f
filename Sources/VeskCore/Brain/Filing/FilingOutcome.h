// What a pass of the organiser tells: before it asks, and at its end. Plain values with the user's words.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "VeskCore/Brain/Filing/FilingPlanner.h"
#include "VeskCore/Brain/Filing/FilingTaxonomy.h"
#include "VeskCore/Brain/VaultPlan.h"
#include "VeskCore/Support/Error.h"

namespace vesk {

/// Known before a model is asked.
struct FilingPreflight {
    FilingTaxonomy taxonomy;
    int inScope = 0;  ///< notes that wait
    int askable = 0, junk = 0, decidedEarlier = 0, userPlaced = 0, undelivered = 0, estimatedCalls = 0;
    double estimatedSeconds = 0;
    std::optional<std::string> hintsUnavailable;  ///< why, as a part of a sentence
    std::optional<std::string> ledgerNote;

    std::string headline() const;
    std::vector<std::string> lines() const;
    bool operator==(const FilingPreflight&) const = default;
};

/// What became of every note that waited.
struct FilingCoverage {
    int inScope = 0, decidedNow = 0, fromCache = 0, userPlaced = 0, declined = 0, junk = 0, undelivered = 0,
        notLookedAt = 0;
    std::optional<int> stoppedAfter;
    int askable = 0;
    std::optional<std::string> aborted;

    /// No note was lost on the way.
    bool identityHolds() const;
    std::vector<std::string> lines(std::string_view providerName) const;
    bool operator==(const FilingCoverage&) const = default;
};

struct FilingReport {
    int calls = 0;
    std::vector<double> callSeconds;
    double duration = 0;  ///< seconds
    int embedded = 0;     ///< notes with a vector
    int ledgerWriteFailures = 0;
    std::vector<std::string> errors;
    std::map<std::string, std::string> declined;  ///< reasons by path

    std::optional<double> meanCallSeconds() const;
    bool operator==(const FilingReport&) const = default;
};

struct FilingOutcome {
    VaultPlan plan;
    FilingTaxonomy taxonomy;
    FilingCoverage coverage;
    FilingReport report;
    std::string modelKey;
    bool stopped = false;
    std::optional<std::string> aborted;
};

namespace FilingRunner {

/// Why a pass doesn't begin. No model was asked.
class Refusal : public Error {
public:
    struct TooFewFolders {
        int count = 0;
        bool operator==(const TooFewFolders&) const = default;
    };
    struct NothingToFile {
        int noteCount = 0;
        bool operator==(const NothingToFile&) const = default;
    };
    using Value = std::variant<TooFewFolders, NothingToFile>;

    explicit Refusal(Value refusal) : value(refusal) {}
    std::string description() const override;

    Value value;
};

/// "a few seconds", "about 25 seconds", "about 3 minutes".
std::string describe(double seconds);

}  // namespace FilingRunner

}  // namespace vesk
