#include <gtest/gtest.h>

#include "Support/Fakes.h"
#include "VeskCore/Brain/Filing/FilingRunner.h"
#include "VeskCore/Brain/Filing/FilingTiming.h"
#include "VeskCore/Support/BrainError.h"
#include "VeskCore/Support/VirtualTime.h"
#include "VeskCore/Vault/AtomicWrite.h"

namespace vesk::test {
namespace {

using Texts = std::vector<std::string>;
using Picks = std::map<std::string, std::string>;

/// Answers closed questions as the test wrote it down.
class Chooser final : public BrainProvider {
public:
    std::function<ChoiceAnswer(const ChoiceQuestion&)> answer;
    mutable std::vector<ChoiceQuestion> asked;
    int batchSize = 1;

    BrainProviderID id() const override { return BrainProviderID::anthropic; }
    std::string displayName() const override { return "Chooser"; }
    bool isConfigured() const override { return true; }
    std::vector<BrainModel> models() const override { return {}; }
    void stream(const BrainRequest&, const std::string&, const Sink&, std::stop_token) const override {
        throw BrainError(BrainError::Unavailable{"Not to be streamed."});
    }
    ChoiceAnswer choose(const ChoiceQuestion& question, const std::string&, std::stop_token) const override {
        asked.push_back(question);
        return answer(question);
    }
    int preferredChoiceBatchSize() const override { return batchSize; }
};

class FailingLedger final : public FilingLedger {
public:
    [[noreturn]] static void fail() { throw SystemError(EIO, "write", "the ledger"); }
    std::map<FilingLedgerKey, FilingDecision> lookup(const std::vector<FilingLedgerKey>&) const override {
        fail();
    }
    void record(const Entries&) override { fail(); }
    void markApplied(const std::map<std::string, std::string>&, std::string_view) override { fail(); }
    void forgetDecisions(const Texts&, std::string_view) override { fail(); }
    std::set<std::string> userPlaced(const std::vector<FilingLedgerKey>&) const override { fail(); }
};

class FilingRunnerTest : public ::testing::Test {
protected:
    PlatformFixture platform;
    VirtualTime time;
    RecordingLog log;
    FakeSentenceEmbeddings embeddings;
    FakeLanguageRecogniser languages;
    Vault vault{platform.vaultFolder.path()};
    std::shared_ptr<Chooser> provider = std::make_shared<Chooser>();
    std::shared_ptr<FilingLedger> ledger = std::make_shared<InMemoryFilingLedger>();
    std::shared_ptr<FilingHintSource> hints = std::make_shared<NoHintSource>("no reason");
    std::shared_ptr<NoteIndex> index;
    std::function<bool()> shouldStop;
    std::stop_source stop = freshStopSource();
    std::optional<FilingPreflight> preflight;
    std::optional<FilingOutcome> outcome;
    Texts progress;

    void SetUp() override {
        provider->answer = [](const ChoiceQuestion& question) {
            Picks picks;
            for (const auto& slot : question.slots) picks[slot.name] = "Work";
            return ChoiceAnswer{picks};
        };
        write("Work/Mooring.md", "What the mooring costs.");
        write("Home/Tomatoes.md", "When they go out.");
    }
    void write(std::string_view path, std::string_view text) { platform.vaultFolder.write(path, text); }
    void indexAll() {
        index = std::make_shared<NoteIndex>(vault, time, log);
        index->fullReindex(vault);
        hints = std::make_shared<FreshHintSource>(index, embeddings, languages);
    }
    FilingRunner::Inputs inputs() const {
        return {.vault = vault,
                .provider = provider,
                .model = "m",
                .systemVersion = "12.5.0",
                .settings = {},
                .ledger = ledger,
                .index = index,
                .hintSource = hints,
                .configuration = {.perCallEstimate = 2},
                .ledgerNote = {},
                .shouldStop = shouldStop,
                .bench = {},
                .clock = const_cast<VirtualTime&>(time)};
    }
    void run(const FilingRunner::Inputs& with) {
        preflight.reset();
        outcome.reset();
        progress.clear();
        provider->asked.clear();
        FilingRunner::execute(
            with,
            [this](const FilingEvent& event) {
                if (const auto* prepared = std::get_if<FilingPreflight>(&event)) preflight = *prepared;
                if (const auto* step = std::get_if<FilingProgress>(&event)) progress.push_back(step->line());
                if (const auto* end = std::get_if<FilingOutcome>(&event)) outcome = *end;
            },
            stop.get_token());
        ASSERT_TRUE(preflight && outcome);
        EXPECT_TRUE(outcome->coverage.identityHolds());
    }
    void run() { run(inputs()); }
    std::string refusal() {
        try {
            run();
        } catch (const FilingRunner::Refusal& error) {
            return error.description();
        }
        return "";
    }
    Texts moves() const {
        Texts made;
        for (const auto& operation : outcome->plan.operations)
            made.push_back(std::get<VaultOperation::RenameNote>(operation.value).to);
        return made;
    }
};

TEST_F(FilingRunnerTest, RefusesWhatCannotBeFiled) {
    EXPECT_EQ(refusal(), "Nothing is waiting to be filed — all 2 notes are in folders.");
    std::filesystem::remove_all(platform.vaultFolder / "Home");
    EXPECT_EQ(refusal(),
              "Make two or more folders first — Vesk files notes into folders that already exist, and one "
              "folder is not a choice.");
    std::filesystem::create_directory(platform.vaultFolder / "Home");
    EXPECT_EQ(refusal(), "Nothing is waiting to be filed — all 1 note is in folders.");
    std::filesystem::remove(platform.vaultFolder / "Work/Mooring.md");
    EXPECT_EQ(refusal(), "Nothing is waiting to be filed — the vault has no notes yet.");
    EXPECT_TRUE(provider->asked.empty());
}

TEST_F(FilingRunnerTest, FilesByTheModelAndTicksWhereSimilarNotesAgree) {
    for (int i = 0; i < 5; ++i) {
        write("Work/Boat " + std::to_string(i) + ".md", "boat mooring harbour");
        write("Home/Garden " + std::to_string(i) + ".md", "tomatoes soil rain");
    }
    write("Inbox/Sails.md", "---\nkind: boat\n---\nboat mooring harbour");
    write("Beans.md", "tomatoes soil rain beans");
    write("Inbox/Copy.md", "boat mooring harbour");
    indexAll();
    run();
    EXPECT_EQ(preflight->hintsUnavailable, std::nullopt);
    EXPECT_EQ(preflight->inScope, 3);
    EXPECT_EQ(preflight->junk, 1);
    EXPECT_EQ(preflight->estimatedSeconds, 4);
    EXPECT_EQ(
        preflight->lines(),
        (Texts{"2 notes waiting to be filed into 2 folders · 1 looks like junk · 0 decided earlier · a few "
               "seconds",
               "Treated as inbox: notes at the vault root and Inbox"}));
    EXPECT_EQ(moves(), (Texts{"Work/Sails.md", "Work/Beans.md", "Junk/Copy.md"}));
    const auto& of = outcome->plan.annotations;
    EXPECT_TRUE(of.at("Inbox/Sails.md").tickedByDefault);
    EXPECT_EQ(of.at("Beans.md").reason, "Best guess — similar notes are in Home");
    EXPECT_EQ(of.at("Inbox/Copy.md").reason, "The same text as Work/Boat 0.md");
    EXPECT_EQ(outcome->coverage.lines("Chooser"),
              (Texts{"Checked 3 notes in your inbox",
                     "2 decided now · 0 from last time · 0 declined by Chooser · 1 looks like junk · 0 still "
                     "downloading · 0 not looked at"}));
    ASSERT_EQ(provider->asked.size(), 2U);
    EXPECT_NE(provider->asked.back().prompt.find("- \"Boat 0\" is in Work/"), std::string::npos);
    EXPECT_EQ(provider->asked.back().prompt.find("kind: boat"), std::string::npos)
        << "frontmatter isn't shown";
    EXPECT_EQ(progress.back(), "Filed 2 of 2 · 2 moves");
    EXPECT_TRUE(platform.vaultFolder.exists("Inbox/Sails.md")) << "nothing moves during a pass";
}

TEST_F(FilingRunnerTest, AsksOnlyAboutWhatChanged) {
    indexAll();
    ledger = index;
    write("Inbox/A.md", "alpha and more");
    write("Inbox/B.md", "beta and more");
    run();
    EXPECT_EQ(provider->asked.size(), 2U);
    run();
    EXPECT_EQ(provider->asked.size(), 0U);
    EXPECT_EQ(outcome->coverage.fromCache, 2);
    EXPECT_EQ(preflight->decidedEarlier, 2);
    EXPECT_EQ(moves().size(), 2U);
    write("Inbox/B.md", "beta, changed");
    run();
    EXPECT_EQ(provider->asked.size(), 1U);
    std::filesystem::create_directory(platform.vaultFolder / "Another");
    run();
    EXPECT_EQ(provider->asked.size(), 2U) << "other folders to choose from";

    // A note that the user let go where it waits now isn't asked about.
    ledger->markApplied({{"Elsewhere/A.md", "Inbox/A.md"}, {"Inbox/B.md", "Inbox/C.md"}}, outcome->modelKey);
    std::filesystem::rename(platform.vaultFolder / "Inbox/B.md", platform.vaultFolder / "Inbox/C.md");
    run();
    EXPECT_EQ(outcome->coverage.userPlaced, 1);
    EXPECT_EQ(
        preflight->headline(),
        "1 note waiting to be filed into 3 folders · 0 look like junk · 0 decided earlier · 1 placed by "
        "you · a few seconds — without similar-note hints, so nothing will be ticked for you (too few "
        "filed notes to compare against — 2 so far, and hints need at least 10 across 2 folders)");
}

TEST_F(FilingRunnerTest, LeavesNotesThatAreNotHereYet) {
    write("Inbox/A.md", "alpha and more");
    write("Inbox/B.md", "beta and more");
    platform.ubiquity.set(
        platform.vaultFolder / "Inbox/B.md",
        {.isUbiquitous = true, .downloadingStatus = UbiquitySource::DownloadingStatus::notDownloaded});
    run();
    EXPECT_EQ(outcome->coverage.undelivered, 1);
    EXPECT_EQ(moves(), Texts{"Work/A.md"});
    EXPECT_EQ(
        outcome->coverage.lines("X")[1],
        "1 decided now · 0 from last time · 0 declined by X · 0 look like junk · 1 still downloading · 0 "
        "not looked at");
    EXPECT_NE(preflight->headline().find(" · 1 still downloading from iCloud · "), std::string::npos);
}

TEST_F(FilingRunnerTest, KeepsTheAnswerOfTheQuestionItStopsAt) {
    for (const char* name : {"A", "B", "C"})
        write("Inbox/" + std::string(name) + ".md", "text of " + std::string(name));
    bool isStopping = false;
    shouldStop = [&] { return isStopping; };
    const auto willing = provider->answer;
    provider->answer = [&](const ChoiceQuestion& question) {
        isStopping = true;
        return willing(question);
    };
    run();
    EXPECT_EQ(provider->asked.size(), 1U);
    EXPECT_TRUE(outcome->stopped);
    EXPECT_EQ(outcome->coverage.lines("X").back(),
              "Stopped after 1 of 3 — run again to finish; decisions so far are kept");
    isStopping = false;
    provider->answer = willing;
    run();
    EXPECT_EQ(outcome->coverage.fromCache, 1);
    EXPECT_EQ(provider->asked.size(), 2U);
}

TEST_F(FilingRunnerTest, EndsAfterThreeFailuresWithWhatIsDecided) {
    for (const char* name : {"A", "B", "C"})
        write("Inbox/" + std::string(name) + ".md", "text of " + std::string(name));
    provider->answer = [this](const ChoiceQuestion&) {
        if (provider->asked.size() == 1) return ChoiceAnswer{Picks{{"folder", "Home"}}};
        throw BrainError(BrainError::Unavailable{"The line is down."});
    };
    run();
    EXPECT_EQ(outcome->aborted, "The line is down.");
    EXPECT_EQ(outcome->plan.operations.size(), 1U);
    EXPECT_EQ(outcome->report.errors.size(), 3U);
    EXPECT_EQ(outcome->coverage.lines("X").back(),
              "Stopped early — The line is down. Run again to finish; decisions so far are kept");
}

TEST_F(FilingRunnerTest, WaitsForABusyModelAndTimesItsCalls) {
    write("Inbox/A.md", "alpha and more");
    int busy = 3;
    provider->answer = [&](const ChoiceQuestion&) {
        time.sleep(std::chrono::milliseconds(250), {});
        if (busy-- > 0) throw ChoiceError(ChoiceError::Busy{});
        return ChoiceAnswer{Picks{{"folder", "Home"}}};
    };
    run();
    EXPECT_EQ(moves(), Texts{"Home/A.md"});
    EXPECT_EQ(outcome->report.calls, 4);
    EXPECT_NEAR(outcome->report.duration, 0.5 + 2 + 5 + 4 * 0.25, 0.01);
    EXPECT_NEAR(*outcome->report.meanCallSeconds(), 0.25, 0.001);
    EXPECT_TRUE(outcome->report.errors.empty());
}

TEST_F(FilingRunnerTest, EndsAtOnceWhenItIsCancelled) {
    write("Inbox/A.md", "alpha and more");
    write("Inbox/B.md", "beta and more");
    provider->answer = [this](const ChoiceQuestion&) -> ChoiceAnswer {
        stop.request_stop();
        throw BrainError(BrainError::Cancelled{});
    };
    EXPECT_THROW(run(), OperationCancelled);
    EXPECT_FALSE(outcome);
    EXPECT_EQ(provider->asked.size(), 1U);
}

TEST_F(FilingRunnerTest, GoesOnWithoutHintsOrLedger) {
    for (const char* name : {"A", "B"})
        write("Inbox/" + std::string(name) + ".md", "text of " + std::string(name));
    indexAll();
    embeddings.throwsOn = [](std::string_view) -> bool {
        throw BrainError(BrainError::Unavailable{"No vectors."});
    };
    ledger = std::make_shared<FailingLedger>();
    run();
    EXPECT_EQ(moves().size(), 2U);
    EXPECT_EQ(outcome->report.ledgerWriteFailures, 2);
    EXPECT_TRUE(preflight->hintsUnavailable);
    for (const auto& [path, annotation] : outcome->plan.annotations) EXPECT_FALSE(annotation.tickedByDefault);

    hints = NoHintSource::indexBusy();
    index.reset();
    run();
    EXPECT_EQ(preflight->hintsUnavailable, "the index hasn't finished reading your notes yet");
}

TEST_F(FilingRunnerTest, ReadsFiledNotesFromTheVaultWithoutAnIndex) {
    write("Inbox/Copy.md", "What the mooring costs.");
    write("Inbox/Other.md", "Something else.");
    run();
    EXPECT_EQ(outcome->plan.annotations.at("Inbox/Copy.md").reason, "The same text as Work/Mooring.md");
}

TEST_F(FilingRunnerTest, AsksInBatchesAndMeasuresOnRequest) {
    for (int i = 0; i < 7; ++i)
        write("Inbox/" + std::to_string(i) + " notes.md", "text " + std::to_string(i));
    provider->batchSize = 3;
    run();
    EXPECT_EQ(provider->asked.size(), 3U);
    EXPECT_EQ(preflight->estimatedCalls, 3);
    EXPECT_EQ(provider->asked.back().slots.front().name, "folder") << "the last one is alone";

    ledger = std::make_shared<InMemoryFilingLedger>();
    auto measuring = inputs();
    measuring.bench = {.judgeFiledNotes = true, .orderByPath = true};
    measuring.configuration.batchSize = 0;
    run(measuring);
    EXPECT_EQ(provider->asked.size(), 9U);
    EXPECT_NE(provider->asked.front().prompt.find("Note title: Tomatoes"), std::string::npos);
}

TEST(FilingWords, TellTimesAndModels) {
    const struct {
        double seconds;
        const char* expected;
    } rows[] = {{0, "a few seconds"},       {9.9, "a few seconds"},   {10, "about 10 seconds"},
                {12.4, "about 10 seconds"}, {13, "about 15 seconds"}, {89, "about 90 seconds"},
                {90, "about 2 minutes"},    {151, "about 3 minutes"}, {6000, "about 100 minutes"}};
    for (const auto& row : rows) EXPECT_EQ(FilingRunner::describe(row.seconds), row.expected) << row.seconds;
    EXPECT_EQ(FilingRunner::modelKey(BrainProviderID::anthropic, "m", "12.5.0"), "anthropic/m#p1");
    EXPECT_EQ(FilingRunner::modelKey(BrainProviderID::apple, "m", "12.5.0"), "apple/m#p1#os12.5.0");
}

TEST(FilingTiming, LearnsFromLongPasses) {
    MemoryUserDefaults defaults;
    const auto id = BrainProviderID::gemini;
    EXPECT_EQ(FilingTiming::perCallEstimate(id, true, defaults), 1.5);
    EXPECT_EQ(FilingTiming::perCallEstimate(id, false, defaults), 0.5);
    FilingTiming::remember({.callSeconds = {1, 2, 3, 4}}, id, defaults);
    EXPECT_EQ(FilingTiming::perCallEstimate(id, false, defaults), 0.5);
    FilingTiming::remember({.callSeconds = {1, 2, 3, 4, 5}}, id, defaults);
    EXPECT_EQ(FilingTiming::perCallEstimate(id, false, defaults), 3);
    EXPECT_EQ(FilingTiming::perCallEstimate(BrainProviderID::openai, false, defaults), 0.5);
    EXPECT_EQ(defaults.number("vesk.organise.secondsPerCall.gemini"), 3);
    defaults.set("vesk.organise.secondsPerCall.gemini", -1);
    EXPECT_EQ(FilingTiming::perCallEstimate(id, true, defaults), 1.5);
}

}  // namespace
}  // namespace vesk::test
