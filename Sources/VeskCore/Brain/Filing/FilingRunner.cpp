#include "VeskCore/Brain/Filing/FilingRunner.h"

#include <fmt/format.h>

#include <algorithm>
#include <unordered_map>

#include "VeskCore/Brain/Filing/FilingPlanner.h"
#include "VeskCore/Brain/Filing/JunkDetector.h"
#include "VeskCore/Brain/VaultOrganiser.h"
#include "VeskCore/Markdown/FrontmatterDoc.h"
#include "VeskCore/Support/BrainError.h"
#include "VeskCore/Support/Match.h"
#include "VeskCore/Support/PathText.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Vault/AtomicWrite.h"
#include "VeskCore/Vault/VaultTree.h"

namespace vesk::FilingRunner {

namespace {

constexpr std::size_t fewestTargets = 2;
constexpr int promptVersion = 1, hintsOfANote = 5;

void checkStop(const std::stop_token& stop) {
    if (stop.stop_requested()) throw OperationCancelled();
}

std::string titleOf(std::string_view path) {
    return replaceAll(lastComponent(path), ".md", "");
}

/// A note's text as it is now; none if it can't be had yet.
std::optional<std::string> currentText(const FilePath& file) {
    try {
        return CoordinatedIO::readForSave(file);
    } catch (const Error&) {
        return {};
    }
}

/// One pass.
class Pass {
public:
    Pass(const Inputs& inputs, const std::function<void(const FilingEvent&)>& emit, std::stop_token stop)
        : in_(inputs), emit_(emit), stop_(std::move(stop)), began_(inputs.clock.monotonic()) {}

    void run() {
        survey();
        readCandidates();
        readFiled();
        modelKey_ = modelKey(in_.provider->id(), in_.model, in_.systemVersion);
        findHints();
        auto planner = plan();
        preflight(planner);
        ask(planner);
        finish(planner);
    }

private:
    using Seconds = std::chrono::duration<double>;
    double secondsSince(Duration moment) const { return Seconds(in_.clock.monotonic() - moment).count(); }

    void survey() {
        notes_ = in_.vault.enumerateNotes();
        const VaultTree tree(notes_, in_.vault.emptyFolderPaths(), in_.vault.enumerateAttachments(),
                             in_.vault.enumerateDocuments());
        const auto settings = in_.settings ? *in_.settings : OrganiseSettings::load(in_.vault);
        taxonomy_ = FilingTaxonomy::detect(tree.noteDestinations(), notes_, settings);
        if (taxonomy_.targets.size() < fewestTargets)
            throw Refusal(Refusal::TooFewFolders{static_cast<int>(taxonomy_.targets.size())});
        if (in_.bench.judgeFiledNotes)
            for (const auto& note : notes_)
                if (taxonomy_.scope(parentFolder(note.relativePath)) == FilingScope::filed)
                    taxonomy_.candidatePaths.push_back(note.relativePath);
        if (in_.bench.orderByPath)
            std::sort(taxonomy_.candidatePaths.begin(), taxonomy_.candidatePaths.end());
        if (taxonomy_.candidatePaths.empty()) throw Refusal(Refusal::NothingToFile{taxonomy_.noteCount});
    }

    void readCandidates() {
        std::unordered_map<std::string_view, const Note*> byPath;
        for (const auto& note : notes_) byPath.emplace(note.relativePath, &note);
        for (const auto& path : taxonomy_.candidatePaths) {
            checkStop(stop_);
            const auto text = currentText(in_.vault.absolutePath(path));
            if (!text) {
                ++undelivered_;
                continue;
            }
            candidates_.push_back({.path = path,
                                   .title = titleOf(path),
                                   .excerpt = VaultOrganiser::excerpt(FrontmatterDoc(*text).body()),
                                   .contentHash = NoteIndex::contentHash(*text),
                                   .modified = byPath.at(path)->modified});
        }
    }

    void addFiled(const std::string& path, const std::string& hash, std::string_view body) {
        if (taxonomy_.scope(parentFolder(path)) != FilingScope::filed) return;
        subjects_.push_back({.path = path,
                             .title = titleOf(path),
                             .excerpt = VaultOrganiser::excerpt(body),
                             .contentHash = hash});
    }

    void readFiled() {
        checkStop(stop_);
        const std::set<std::string_view> waiting(taxonomy_.candidatePaths.begin(),
                                                 taxonomy_.candidatePaths.end());
        if (in_.index) {
            in_.index->noteTexts([&](const std::string& path, const std::string&, const std::string& hash,
                                     std::string_view body) {
                if (!waiting.contains(path)) addFiled(path, hash, body);
            });
        } else {
            for (const auto& note : notes_) {
                checkStop(stop_);
                const auto& path = note.relativePath;
                if (waiting.contains(path) || taxonomy_.scope(parentFolder(path)) != FilingScope::filed)
                    continue;
                if (const auto text = currentText(note.path))
                    addFiled(path, NoteIndex::contentHash(*text), FrontmatterDoc(*text).body());
            }
        }
        std::map<std::string, std::vector<std::string>> filed;
        for (const auto& subject : subjects_) filed[subject.contentHash].push_back(subject.path);
        junk_ = JunkDetector::classify(candidates_, filed);
    }

    void findHints() {
        std::optional<std::string> failure;
        std::map<std::string, std::vector<float>> vectors;
        const auto filed = static_cast<std::ptrdiff_t>(subjects_.size());
        for (const auto& note : candidates_)
            subjects_.push_back({note.path, note.title, note.excerpt, note.contentHash});
        if (!in_.hintSource->unavailableReason()) {
            try {
                vectors = in_.hintSource->vectors(subjects_, stop_);
            } catch (const std::exception&) {
                checkStop(stop_);
                failure = vesk::describe(std::current_exception());
            }
        }
        report_.embedded = static_cast<int>(vectors.size());
        std::vector<FilingPoolNote> comparable;
        for (auto subject = subjects_.begin(); subject != subjects_.end(); ++subject) {
            const auto vector = vectors.find(subject->path);
            if (vector == vectors.end()) continue;
            // A note that waits is asked about by its vector, and is seldom one to compare with.
            const bool isFiled = subject < subjects_.begin() + filed;
            if (!isFiled && !in_.bench.judgeFiledNotes) continue;
            comparable.push_back({.path = subject->path,
                                  .title = subject->title,
                                  .folder = {},
                                  .vector = isFiled ? std::move(vector->second) : vector->second});
        }
        subjects_.clear();
        const auto pool = FilingHints::pool(std::move(comparable), taxonomy_);
        for (const auto& note : candidates_) {
            checkStop(stop_);
            const auto vector = vectors.find(note.path);
            if (vector == vectors.end()) continue;
            auto near = FilingHints::neighbours(vector->second, note.path, pool, hintsOfANote);
            if (!near.empty()) hints_.emplace(note.path, std::move(near));
        }
        hintsUnavailable_ = in_.hintSource->unavailableReason();
        if (!hintsUnavailable_) hintsUnavailable_ = failure;
        if (!hintsUnavailable_) hintsUnavailable_ = FilingHints::poolShortfall(pool);
    }

    FilingPlanner plan() {
        std::vector<FilingLedgerKey> keys;
        for (const auto& note : candidates_)
            keys.push_back({note.path, note.contentHash, taxonomy_.targetsHash, modelKey_});
        std::map<std::string, FilingDecision> cached;
        std::set<std::string> placed;
        try {
            for (auto& [key, decision] : in_.ledger->lookup(keys))
                cached.emplace(key.path, std::move(decision));
            placed = in_.ledger->userPlaced(keys);
        } catch (const Error&) {  // asks about everything again
        }
        userPlaced_ = static_cast<int>(std::erase_if(
            candidates_, [&](const FilingCandidate& note) { return placed.contains(note.path); }));
        batchSize_ =
            std::max(in_.configuration.batchSize.value_or(in_.provider->preferredChoiceBatchSize()), 1);
        return {taxonomy_, candidates_, junk_, cached, std::move(hints_), batchSize_, modelKey_};
    }

    void preflight(const FilingPlanner& planner) {
        const auto counts = planner.counts();
        const int calls = (planner.askable() + batchSize_ - 1) / batchSize_;
        emit_(FilingPreflight{.taxonomy = taxonomy_,
                              .inScope = static_cast<int>(taxonomy_.candidatePaths.size()),
                              .askable = planner.askable(),
                              .junk = counts.junk,
                              .decidedEarlier = counts.fromCache + counts.declined,
                              .userPlaced = userPlaced_,
                              .undelivered = undelivered_,
                              .estimatedCalls = calls,
                              .estimatedSeconds = calls * in_.configuration.perCallEstimate,
                              .hintsUnavailable = hintsUnavailable_,
                              .ledgerNote = in_.ledgerNote});
    }

    void ask(FilingPlanner& planner) {
        for (bool isDone = false; !isDone;) {
            checkStop(stop_);
            if (in_.shouldStop && in_.shouldStop()) {
                planner.stop();
                return;
            }
            match(
                planner.nextStep(), [&](const FilingPlanner::Done&) { isDone = true; },
                [&](const FilingPlanner::Wait& wait) {
                    const auto pause =
                        std::chrono::duration_cast<Duration>(Seconds(std::max(wait.seconds, 0.0)));
                    if (!in_.clock.sleep(pause, stop_)) throw OperationCancelled();
                },
                [&](const FilingPlanner::Ask& step) {
                    choose(planner, step);
                    store(planner);
                    emit_(planner.progress());
                });
        }
    }

    void choose(FilingPlanner& planner, const FilingPlanner::Ask& step) {
        const auto form = in_.configuration.instructionForm;
        const auto question =
            step.batch.size() == 1
                ? FilingPrompt::question(step.batch.front(), taxonomy_,
                                         planner.hints(step.batch.front().path), step.attempt, form)
                : FilingPrompt::batchQuestion(step.batch, taxonomy_, step.attempt, form);
        const auto asked = in_.clock.monotonic();
        const auto count = [&] {
            ++report_.calls;
            report_.callSeconds.push_back(secondsSince(asked));
        };
        try {
            const auto answer = in_.provider->choose(question, in_.model, stop_);
            count();
            planner.record(answer);
        } catch (const ChoiceError& error) {
            count();
            planner.fail(error);
        } catch (const BrainError& error) {
            if (std::holds_alternative<BrainError::Cancelled>(error.value)) throw OperationCancelled();
            count();
            foreign(planner, error.description());
        } catch (const std::exception&) {
            checkStop(stop_);
            count();
            foreign(planner, vesk::describe(std::current_exception()));
        }
    }

    void foreign(FilingPlanner& planner, const std::string& description) {
        report_.errors.push_back(description);
        planner.fail(description);
    }

    /// At once, so that a stop loses no answer.
    void store(const FilingPlanner& planner) {
        const auto& decisions = planner.newDecisions();
        if (decisions.size() == stored_) return;
        const FilingLedger::Entries fresh(decisions.begin() + static_cast<std::ptrdiff_t>(stored_),
                                          decisions.end());
        stored_ = decisions.size();
        try {
            in_.ledger->record(fresh);
        } catch (const Error&) {
            ++report_.ledgerWriteFailures;
        }
    }

    void finish(const FilingPlanner& planner) {
        const auto counts = planner.counts();
        const bool stopped = std::holds_alternative<FilingPlanner::Stopped>(planner.status());
        const auto* aborted = std::get_if<FilingPlanner::Aborted>(&planner.status());
        FilingOutcome outcome;
        outcome.plan = planner.plan();
        outcome.coverage = {
            .inScope = static_cast<int>(taxonomy_.candidatePaths.size()),
            .decidedNow = counts.decidedNow,
            .fromCache = counts.fromCache,
            .userPlaced = userPlaced_,
            .declined = counts.declined,
            .junk = counts.junk,
            .undelivered = undelivered_,
            .notLookedAt = counts.notLookedAt,
            .stoppedAfter = stopped ? std::optional(planner.progress().completed) : std::nullopt,
            .askable = planner.askable(),
            .aborted = aborted ? std::optional(aborted->message) : std::nullopt};
        outcome.taxonomy = std::move(taxonomy_);
        outcome.stopped = stopped;
        outcome.aborted = outcome.coverage.aborted;
        outcome.modelKey = modelKey_;
        report_.declined = planner.declinedReasons();
        report_.duration = secondsSince(began_);
        outcome.report = std::move(report_);
        emit_(outcome);
    }

    const Inputs& in_;
    const std::function<void(const FilingEvent&)>& emit_;
    const std::stop_token stop_;
    const Duration began_;
    std::vector<Note> notes_;
    FilingTaxonomy taxonomy_;
    std::vector<FilingCandidate> candidates_;
    std::vector<FilingSubject> subjects_;  // the notes that are filed
    std::map<std::string, JunkVerdict> junk_;
    std::map<std::string, std::vector<FilingHint>> hints_;
    std::optional<std::string> hintsUnavailable_;
    std::string modelKey_;
    FilingReport report_;
    int undelivered_ = 0, userPlaced_ = 0, batchSize_ = 1;
    std::size_t stored_ = 0;  // of the planner's decisions
};

}  // namespace

std::string modelKey(BrainProviderID provider, std::string_view model, std::string_view systemVersion) {
    auto key = fmt::format("{}/{}#p{}", rawValue(provider), model, promptVersion);
    if (provider == BrainProviderID::apple) key += fmt::format("#os{}", systemVersion);
    return key;
}

void execute(const Inputs& inputs, const std::function<void(const FilingEvent&)>& emit,
             std::stop_token stop) {
    Pass(inputs, emit, std::move(stop)).run();
}

}  // namespace vesk::FilingRunner
