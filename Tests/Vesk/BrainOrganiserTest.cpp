#include <gtest/gtest.h>

#include "Vesk/AI/BrainSession.h"
#include "Vesk/AI/PlanReview.h"
#include "Vesk/SessionWorld.h"
#include "VeskCore/Support/BrainError.h"

namespace vesk::test {
namespace {

using Texts = std::vector<std::string>;

/// Puts every note where the test says, one note a question.
class FolderPicker final : public BrainProvider {
public:
    std::string folder = "Work";
    std::function<void()> whileAsked;
    mutable int asked = 0;

    BrainProviderID id() const override { return BrainProviderID::anthropic; }
    std::string displayName() const override { return "Picker (cloud)"; }
    bool isConfigured() const override { return true; }
    std::vector<BrainModel> models() const override {
        BrainModel model;
        model.id = "m";
        model.displayName = "Model M";
        return {model};
    }
    void stream(const BrainRequest&, const std::string&, const Sink& sink, std::stop_token) const override {
        sink({BrainEvent::Text{"An answer."}});
        sink({BrainEvent::Done{"end_turn"}});
    }
    ChoiceAnswer choose(const ChoiceQuestion&, const std::string&, std::stop_token stop) const override {
        ++asked;
        if (whileAsked) whileAsked();
        if (stop.stop_requested()) throw BrainError(BrainError::Cancelled{});
        ChoiceAnswer answer;
        answer.picks["folder"] = folder;
        return answer;
    }
    int preferredChoiceBatchSize() const override { return 1; }
};

class BrainOrganiserTest : public ::testing::Test, public SessionWorld {
protected:
    void SetUp() override {
        for (int i = 0; i < 5; ++i) {
            vault().write("Work/Boat " + std::to_string(i) + ".md", "boat mooring harbour");
            vault().write("Home/Garden " + std::to_string(i) + ".md", "tomatoes soil rain");
        }
        vault().write("Inbox/Sails.md", "boat mooring harbour sails");
        vault().write("Inbox/Beans.md", "tomatoes soil rain beans");
        setModified("Inbox/Beans.md", -60);
        open();
        pass(2);
        brain = BrainSession::make(
            {.clock = time,
             .mainQueue = time,
             .background = time,
             .defaults = defaults,
             .providers = {.options = [this] { return rows(); }, .probe = [](const std::stop_token&) {}},
             .embeddings = embeddings,
             .languages = languages,
             .systemVersion = "12.5.0",
             .flushPendingSaves = [this] { bridge->flushAllPendingSaves(); }});
        brain->attach(session);
        time.settle();
    }
    void TearDown() override {
        brain.reset();
        stop();
    }
    std::vector<ProviderOption> rows() const {
        return {{.providerID = provider->id(),
                 .provider = provider,
                 .isReady = isReady,
                 .blockedReason = {},
                 .models = provider->models()}};
    }
    void setModified(std::string_view path, int seconds) const {
        std::filesystem::last_write_time(
            vault() / path, std::filesystem::last_write_time(vault() / path) + std::chrono::seconds(seconds));
    }
    void organise() {
        brain->organiseVault();
        time.settle();
    }
    const ChatTurn& last() const { return brain->turns->back(); }
    Texts destinations() const {
        Texts made;
        for (const auto& preview : brain->pendingPlan.get())
            made.push_back(std::get<VaultOperation::RenameNote>(preview.operation.value).to);
        return made;
    }

    std::shared_ptr<FolderPicker> provider = std::make_shared<FolderPicker>();
    FakeLanguageRecogniser languages;
    bool isReady = true;
    std::shared_ptr<BrainSession> brain;
};

TEST_F(BrainOrganiserTest, EndsInAPlanToReview) {
    bool wasOrganising = false;
    std::string shown;
    provider->whileAsked = [&] {
        wasOrganising = brain->isOrganising;
        shown = last().text;
    };
    organise();
    EXPECT_TRUE(wasOrganising);
    EXPECT_FALSE(brain->isOrganising.get());
    EXPECT_EQ(brain->turns->front().text, "Organise my notes");
    const std::string head =
        "2 notes waiting to be filed into 2 folders · 0 look like junk · 0 decided earlier · a few seconds\n"
        "Treated as inbox: notes at the vault root and Inbox\n";
    EXPECT_TRUE(last().isOrganiserReport);
    EXPECT_FALSE(last().streaming);
    EXPECT_EQ(last().text,
              head +
                  "Checked 2 notes in your inbox\n"
                  "2 decided now · 0 from last time · 0 declined by Picker · 0 look like junk · 0 "
                  "still downloading · 0 not looked at");
    EXPECT_EQ(shownText(last()), last().text + "\n\nProposed 2 changes");
    EXPECT_EQ(brain->pendingPlanSummary.get(), "2 notes to file — 1 where similar notes agree, 1 best guess");
    EXPECT_EQ(brain->pendingPlanCoverage->front(), "Checked 2 notes in your inbox");
    EXPECT_EQ(destinations(), (Texts{"Work/Sails.md", "Work/Beans.md"}));
    PlanReview review(brain->pendingPlan);
    EXPECT_EQ(review.approved().size(), 1U) << "ticked where similar notes agree";

    // The guess goes where similar notes are; then both are known.
    review.tick(1, true);
    review.switchDestination(1, 1);
    brain->applyPendingPlan(review.approved(), review.destinations());
    pass(5);
    EXPECT_TRUE(vault().exists("Work/Sails.md") && vault().exists("Home/Beans.md"));
    EXPECT_TRUE(brain->pendingPlanCoverage->empty());
    organise();
    EXPECT_EQ(last().failure, "Nothing is waiting to be filed — all 12 notes are in folders.");

    // A filed note that comes back as it was is asked about like any other.
    const auto before = provider->asked;
    foreignMove("Work/Sails.md", "Inbox/Sails.md");
    pass(5);
    organise();
    EXPECT_EQ(provider->asked, before + 1);
}

TEST_F(BrainOrganiserTest, RemembersItsAnswersAndAsksAgainWhenTold) {
    organise();
    EXPECT_EQ(provider->asked, 2);
    organise();
    EXPECT_EQ(provider->asked, 2);
    EXPECT_NE(last().text.find("0 decided now · 2 from last time"), std::string::npos);
    EXPECT_EQ(destinations().size(), 2U);
    provider->folder = "Home";
    brain->decideAgain();
    EXPECT_TRUE(brain->pendingPlan->empty());
    time.settle();
    EXPECT_EQ(provider->asked, 4);
    EXPECT_EQ(destinations(), (Texts{"Home/Beans.md", "Home/Sails.md"}));
}

TEST_F(BrainOrganiserTest, StopsAfterTheQuestionAtHand) {
    provider->whileAsked = [&] {
        time.post([&] { brain->stopOrganising(); });
        time.sleep(Duration(1), {});
    };
    brain->organiseVault();
    std::string shown;
    auto watch = brain->organiseStopRequested.subscribe([&](bool requested) {
        if (requested) time.post([&] { shown = last().text; });
    });
    pass(1);
    EXPECT_EQ(provider->asked, 1);
    EXPECT_TRUE(shown.ends_with("\nStopping after this note — the review will show what's done so far"))
        << shown;
    EXPECT_TRUE(
        last().text.ends_with("\nStopped after 1 of 2 — run again to finish; decisions so far are kept"));
    EXPECT_EQ(destinations().size(), 1U);
    EXPECT_FALSE(brain->organiseStopRequested.get());
}

TEST_F(BrainOrganiserTest, LeavesNothingProposedWhenItIsBrokenOff) {
    provider->whileAsked = [&] {
        if (provider->asked < 2) return;
        time.post([&] { brain->cancel(); });
        time.sleep(Duration(1), {});
    };
    brain->organiseVault();
    pass(1);
    EXPECT_EQ(last().text,
              "Nothing was proposed. The answers so far are kept — organise again to pick up where this left "
              "off.");
    EXPECT_EQ(last().failure, std::nullopt);
    EXPECT_FALSE(brain->isOrganising.get());
    EXPECT_TRUE(brain->pendingPlan->empty());
    provider->whileAsked = nullptr;
    organise();
    EXPECT_EQ(provider->asked, 3) << "the first answer was kept";
}

TEST_F(BrainOrganiserTest, AsksWithoutMemoryWhileTheIndexIsBuilt) {
    session->indexing.set(true);
    provider->whileAsked = [&] {
        if (provider->asked != 4) return;
        time.post([&] { brain->cancel(); });
        time.sleep(Duration(1), {});
    };
    organise();
    EXPECT_NE(last().text.find("(the index hasn't finished reading your notes yet)"), std::string::npos);
    EXPECT_NE(
        last().text.find("\nDecisions won't be remembered this pass — the index is still being built\n"),
        std::string::npos);
    EXPECT_TRUE(PlanReview(brain->pendingPlan).approved().empty());
    brain->organiseVault();
    pass(1);
    EXPECT_EQ(provider->asked, 4) << "asked again";
    EXPECT_EQ(last().text, "Nothing was proposed.");
    session->indexing.set(false);
}

TEST_F(BrainOrganiserTest, SaysWhyItDoesNotBegin) {
    isReady = false;
    brain->refreshProviders(true);
    time.settle();
    organise();
    EXPECT_EQ(last().failure, std::string(BrainSession::noProviderConfigured));
    isReady = true;
    brain->refreshProviders(true);
    time.settle();
    std::filesystem::remove_all(vault() / "Home");
    organise();
    EXPECT_TRUE(last().failure->starts_with("Make two or more folders first"));
    EXPECT_EQ(provider->asked, 0);
    // What it told is no part of a later conversation.
    brain->ask("What now?");
    brain->organiseVault();
    EXPECT_FALSE(brain->isOrganising.get()) << "an answer is on its way";
    time.settle();
}

TEST_F(BrainOrganiserTest, ChecksWhatItProposesAgainstTheVault) {
    vault().write("Work/Sails.md", "another note of that name");
    vault().write("Home/Beans.md", "another note of that name, at home");
    pass(2);
    organise();
    std::map<std::string, std::string> issues;
    for (const auto& preview : brain->pendingPlan.get()) {
        const auto& from = std::get<VaultOperation::RenameNote>(preview.operation.value).from;
        issues[from] = preview.issue ? preview.issue->message : "";
        if (from != "Inbox/Beans.md") continue;
        ASSERT_TRUE(preview.annotation);
        ASSERT_EQ(preview.annotation->alternatives.size(), 2U);
        EXPECT_EQ(preview.annotation->alternatives[0].issue, std::nullopt);
        ASSERT_TRUE(preview.annotation->alternatives[1].issue);
        EXPECT_EQ(preview.annotation->alternatives[1].issue->message,
                  "A note is already called Home/Beans.md.");
    }
    EXPECT_EQ(issues,
              (std::map<std::string, std::string>{
                  {"Inbox/Beans.md", ""}, {"Inbox/Sails.md", "A note is already called Work/Sails.md."}}));
}

}  // namespace
}  // namespace vesk::test
