// One pass of the organiser over a vault: finds the notes that wait, asks a model about each, and ends with a
// plan for the user to review. Nothing is moved.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <variant>

#include "VeskCore/Brain/BrainProvider.h"
#include "VeskCore/Brain/Filing/FilingHintSource.h"
#include "VeskCore/Brain/Filing/FilingOutcome.h"
#include "VeskCore/Brain/Filing/FilingPrompt.h"
#include "VeskCore/Brain/Filing/OrganiseSettings.h"
#include "VeskCore/Index/FilingLedger.h"
#include "VeskCore/Index/NoteIndex.h"
#include "VeskCore/Support/Time.h"
#include "VeskCore/Vault/Vault.h"

namespace vesk {

using FilingEvent = std::variant<FilingPreflight, FilingProgress, FilingOutcome>;

namespace FilingRunner {

struct Configuration {
    double perCallEstimate = 0;  ///< seconds
    FilingPrompt::InstructionForm instructionForm = FilingPrompt::InstructionForm::measured;
    std::optional<int> batchSize;  ///< none: the provider's
};

/// For runs that measure; the application leaves both alone.
struct BenchOptions {
    bool judgeFiledNotes = false;  ///< asks about notes that have a home, too
    bool orderByPath = false;
};

struct Inputs {
    Vault vault;
    std::shared_ptr<const BrainProvider> provider;
    std::string model;
    std::string systemVersion;                 ///< of the operating system: "12.5.0"
    std::optional<OrganiseSettings> settings;  ///< none: the vault's
    std::shared_ptr<FilingLedger> ledger;
    std::shared_ptr<const NoteIndex> index;  ///< none: filed notes are read from the vault
    std::shared_ptr<FilingHintSource> hintSource;
    Configuration configuration;
    std::optional<std::string> ledgerNote;
    std::function<bool()> shouldStop;  ///< asked between two questions; may be empty
    BenchOptions bench;
    Clock& clock;  ///< outlives the pass
};

/// Blocks a worker. A preflight, any number of progresses, the outcome. Throws Refusal before a model
/// is asked, OperationCancelled once `stop` is requested, and what reading the vault throws. Trouble of the
/// model, the hints or the ledger ends no pass with an error.
void execute(const Inputs& inputs, const std::function<void(const FilingEvent&)>& emit, std::stop_token stop);

/// What a decision is bound to besides the note and the folders.
std::string modelKey(BrainProviderID provider, std::string_view model, std::string_view systemVersion);

}  // namespace FilingRunner

}  // namespace vesk
