#include <gtest/gtest.h>

#include <random>

#include "VeskCore/Brain/Filing/FilingPlanner.h"
#include "VeskCore/Support/Match.h"
#include "VeskCore/Support/Text.h"

namespace vesk::test {
namespace {

using Texts = std::vector<std::string>;
using Picks = std::map<std::string, std::string>;
using Move = VaultOperation::RenameNote;

const ChoiceError busy{ChoiceError::Busy{}}, tooLong{ChoiceError::TooLong{}},
    unparseable{ChoiceError::Unparseable{.slots = {}, .raw = "?"}},
    declined{ChoiceError::Declined{"I'd rather not."}};

FilingCandidate note(const std::string& name) {
    return {.path = "Inbox/" + name + ".md",
            .title = name,
            .excerpt = "text",
            .contentHash = "h-" + name,
            .modified = {}};
}

std::vector<FilingHint> votes(const Texts& folders) {
    std::vector<FilingHint> made;
    for (const auto& folder : folders) made.push_back({.path = {}, .title = {}, .folder = folder});
    return made;
}

struct World {
    FilingTaxonomy taxonomy;
    std::vector<FilingCandidate> candidates;
    std::map<std::string, JunkVerdict> junk;
    std::map<std::string, FilingDecision> cached;
    std::map<std::string, std::vector<FilingHint>> hints;
    int batchSize = 1;

    explicit World(const Texts& names = {"a"}, int batch = 1) : batchSize(batch) {
        taxonomy.targets = {"A", "B", "C"};
        taxonomy.targetsHash = "t";
        taxonomy.junkFolder = "Junk";
        for (const auto& name : names) candidates.push_back(note(name));
    }
    FilingPlanner planner() const { return {taxonomy, candidates, junk, cached, hints, batchSize, "m"}; }
};

/// "a b · full", "wait 2", "done".
std::string next(FilingPlanner& planner) {
    return match(
        planner.nextStep(),
        [](const FilingPlanner::Ask& ask) {
            Texts names;
            for (const auto& candidate : ask.batch) names.push_back(candidate.title);
            return join(names, " ") + " · " + ask.attempt.label();
        },
        [](const FilingPlanner::Wait& wait) { return "wait " + std::to_string(wait.seconds).substr(0, 3); },
        [](const FilingPlanner::Done&) { return std::string("done"); });
}

void answer(FilingPlanner& planner, Picks picks) {
    planner.record({.picks = std::move(picks)});
}

Texts moves(const VaultPlan& plan) {
    Texts made;
    for (const auto& operation : plan.operations) {
        const auto& move = std::get<Move>(operation.value);
        made.push_back(move.from + " > " + move.to);
    }
    return made;
}

TEST(FilingPlanner, BeginsWithWhatIsKnown) {
    World world({"junk", "declined", "filed", "gone", "new", "newer", "newest"}, 2);
    world.junk["Inbox/junk.md"] = {JunkVerdict::Plain::empty, "Nothing in it but the title"};
    const auto known = [&](const char* name, auto verdict) {
        world.cached["Inbox/" + std::string(name) + ".md"] = {
            .verdict = verdict, .fromCache = true, .appliedTo = {}};
    };
    known("junk", FilingDecision::Filed{"A", FilingTier::confident});
    known("declined", FilingDecision::Declined{"No."});
    known("filed", FilingDecision::Filed{"B", FilingTier::unsure});
    known("gone", FilingDecision::Filed{"No longer a target", FilingTier::confident});
    world.hints["Inbox/filed.md"] = votes({"C"});
    auto planner = world.planner();
    EXPECT_EQ(planner.askable(), 4);
    EXPECT_EQ(
        planner.counts(),
        (FilingPlanner::Counts{.decidedNow = 0, .fromCache = 1, .declined = 1, .junk = 1, .notLookedAt = 4}));
    EXPECT_EQ(planner.progress().line(), "Filing 1 of 4 · 1 move so far · \"gone\"");
    EXPECT_EQ(planner.declinedReasons().at("Inbox/declined.md"), "No.");
    EXPECT_EQ(next(planner), "gone new · no hints");
    answer(planner, {{"note1", "A"}, {"note2", "A"}});
    EXPECT_EQ(next(planner), "newer newest · no hints");
    answer(planner, {{"note1", "C"}, {"note2", "C"}});
    EXPECT_EQ(planner.progress().line(), "Filed 4 of 4 · 5 moves");
    EXPECT_EQ(next(planner), "done");
    EXPECT_EQ(planner.status(), FilingPlanner::Status(FilingPlanner::Finished{}));
    EXPECT_EQ(planner.newDecisions().size(), 4U) << "what was known isn't told again";
    EXPECT_EQ(planner.newDecisions().front().first,
              (FilingLedgerKey{
                  .path = "Inbox/gone.md", .contentHash = "h-gone", .targetsHash = "t", .modelKey = "m"}));
    const auto plan = planner.plan();
    EXPECT_EQ(plan.annotations.at("Inbox/filed.md").reason, "Best guess — similar notes are in C");
    EXPECT_TRUE(plan.annotations.at("Inbox/filed.md").fromCache);
    EXPECT_EQ(plan.summary, "5 notes to file — 5 best guesses · 1 possibly junk");
}

TEST(FilingPlanner, AsksForMissingAnswersOneByOne) {
    World world({"a", "b", "c", "d"}, 3);
    auto planner = world.planner();
    EXPECT_EQ(next(planner), "a b c · no hints");
    answer(planner, {{"note1", "Elsewhere"}, {"note2", "B"}, {"folder", "A"}});
    EXPECT_EQ(next(planner), "a · full");
    answer(planner, {{"note1", "A"}});
    EXPECT_EQ(planner.declinedReasons().at("Inbox/a.md"), "The model's answer didn't name a folder");
    EXPECT_EQ(next(planner), "c · full");
    answer(planner, {{"folder", "C"}});
    EXPECT_EQ(next(planner), "d · full") << "a group of one is a single question";
    answer(planner, {});
    EXPECT_EQ(next(planner), "d · full") << "one more try";
    answer(planner, {{"folder", "a"}});
    EXPECT_EQ(next(planner), "done");
    EXPECT_EQ(
        planner.counts(),
        (FilingPlanner::Counts{.decidedNow = 2, .fromCache = 0, .declined = 2, .junk = 0, .notLookedAt = 0}));
}

TEST(FilingPlanner, TakesEachFailureInItsOwnWay) {
    using Fail = std::variant<ChoiceError, std::string>;
    const Fail broken = std::string("The line is down.");
    const struct {
        const char* name;
        Texts notes;
        std::vector<Fail> failures;
        Texts expected;  // steps; the last one stands behind the last failure
    } rows[] = {
        {"declined once more by its title",
         {"a"},
         {declined, declined},
         {"a · full", "a · title only", "done"}},
        {"a batch that is declined is left", {"a", "b", "c"}, {declined}, {"a b · no hints", "c · full"}},
        {"unreadable twice", {"a"}, {unparseable, unparseable}, {"a · full", "a · full", "done"}},
        {"a batch that is unreadable twice is asked singly, once each",
         {"a", "b", "c"},
         {unparseable, unparseable, unparseable, unparseable},
         {"a b · no hints", "a b · no hints", "a · full", "b · full", "c · full"}},
        {"too long steps down",
         {"a"},
         {tooLong, tooLong, tooLong, tooLong},
         {"a · full", "a · no hints", "a · short 600", "a · title only", "done"}},
        {"too long, then declined without hints",
         {"a"},
         {tooLong, declined},
         {"a · full", "a · no hints", "done"}},
        {"busy waits three times, then counts as a failure",
         {"a", "b"},
         {busy, busy, busy, busy},
         {"a b · no hints", "wait 0.5", "a b · no hints", "wait 2.0", "a b · no hints", "wait 5.0",
          "a b · no hints", "a b · no hints"}},
        {"a failure is tried again once", {"a"}, {broken, broken}, {"a · full", "a · full", "done"}},
        {"three failures end it",
         {"a", "b", "c"},
         {broken, broken, broken},
         {"a b · no hints", "a b · no hints", "c · full", "done"}},
    };
    for (const auto& row : rows) {
        auto planner = World(row.notes, 2).planner();
        Texts steps;
        for (const auto& failure : row.failures) {
            steps.push_back(next(planner));
            if (steps.back().starts_with("wait")) steps.push_back(next(planner));
            std::visit([&](const auto& it) { planner.fail(it); }, failure);
        }
        steps.push_back(next(planner));
        EXPECT_EQ(steps, row.expected) << row.name;
    }
}

TEST(FilingPlanner, HalvesABatchThatIsTooLong) {
    auto planner = World({"a", "b", "c", "d", "e", "f", "g"}, 7).planner();
    EXPECT_EQ(next(planner), "a b c d e f g · no hints");
    planner.fail(tooLong);
    EXPECT_EQ(next(planner), "a b c · no hints");
    answer(planner, {{"note1", "A"}, {"note2", "A"}, {"note3", "A"}});
    EXPECT_EQ(next(planner), "d e f g · no hints");
    planner.fail(tooLong);
    EXPECT_EQ(next(planner), "d e · no hints");
}

TEST(FilingPlanner, RemembersWhyANoteWasDeclined) {
    auto planner = World({"a", "b"}).planner();
    planner.fail(declined);
    planner.fail(declined);
    for (int i = 0; i < 4; ++i) planner.fail(tooLong);
    EXPECT_EQ(planner.declinedReasons(), (std::map<std::string, std::string>{
                                             {"Inbox/a.md", "I'd rather not."}, {"Inbox/b.md", "too long"}}));
    EXPECT_EQ(planner.newDecisions().size(), 2U);
}

TEST(FilingPlanner, EndsWithWhatWasSettled) {
    auto aborted = World({"a", "b", "c", "d"}).planner();
    answer(aborted, {{"folder", "A"}});
    aborted.fail("One.");
    answer(aborted, {{"folder", "A"}});  // an answer clears the count
    for (int i = 0; i < 3; ++i) aborted.fail("Down.");
    EXPECT_EQ(aborted.status(), FilingPlanner::Status(FilingPlanner::Aborted{"Down."}));
    EXPECT_EQ(next(aborted), "done");
    EXPECT_EQ(aborted.plan().operations.size(), 2U);
    EXPECT_EQ(aborted.counts().notLookedAt, 2);
    EXPECT_EQ(aborted.progress().currentTitle, std::nullopt);

    auto stopped = World({"a", "b"}).planner();
    stopped.stop();
    answer(stopped, {{"folder", "A"}});
    stopped.fail("Late.");
    EXPECT_EQ(next(stopped), "done");
    EXPECT_EQ(stopped.status(), FilingPlanner::Status(FilingPlanner::Stopped{}));
    EXPECT_EQ(stopped.counts().notLookedAt, 2);

    auto empty = World(Texts{}).planner();
    EXPECT_EQ(next(empty), "done");
    EXPECT_EQ(empty.plan().summary, "Nothing to file");
    empty.stop();
    EXPECT_EQ(empty.status(), FilingPlanner::Status(FilingPlanner::Finished{}));
}

TEST(FilingPlanner, TicksOnlyWhereSimilarNotesAgree) {
    World world({"guess", "sure", "spread", "alone", "waste"});
    world.hints = {{"Inbox/guess.md", votes({"B", "B", "A"})},
                   {"Inbox/sure.md", votes({"A", "A", "B"})},
                   {"Inbox/spread.md", votes({"A", "B"})}};
    world.junk["Inbox/waste.md"] = {JunkVerdict::Plain::linkOnly, "A link, and nothing about it"};
    auto planner = world.planner();
    while (next(planner) != "done") answer(planner, {{"folder", "A"}});
    const auto plan = planner.plan();
    EXPECT_EQ(moves(plan), (Texts{"Inbox/sure.md > A/sure.md", "Inbox/guess.md > A/guess.md",
                                  "Inbox/spread.md > A/spread.md", "Inbox/alone.md > A/alone.md",
                                  "Inbox/waste.md > Junk/waste.md"}));
    EXPECT_EQ(plan.summary,
              "4 notes to file — 1 where similar notes agree, 3 best guesses · 1 possibly junk");
    const auto& of = plan.annotations;
    EXPECT_TRUE(of.at("Inbox/sure.md").tickedByDefault);
    EXPECT_EQ(of.at("Inbox/sure.md").reason, "Similar notes are filed here");
    EXPECT_TRUE(of.at("Inbox/sure.md").alternatives.empty());
    const auto& guess = of.at("Inbox/guess.md");
    EXPECT_FALSE(guess.tickedByDefault);
    EXPECT_EQ(guess.tier, FilingTier::unsure);
    EXPECT_EQ(guess.reason, "Best guess — similar notes are in B");
    ASSERT_EQ(guess.alternatives.size(), 2U);
    EXPECT_EQ(guess.alternatives[0].folder, "A");
    EXPECT_EQ(guess.alternatives[0].operation, plan.operations[1]);
    EXPECT_EQ(guess.alternatives[1].operation, (VaultOperation{Move{"Inbox/guess.md", "B/guess.md"}}));
    EXPECT_EQ(of.at("Inbox/spread.md").reason, "Best guess — similar notes are spread across folders");
    EXPECT_EQ(of.at("Inbox/alone.md").reason, "Best guess — no similar notes to compare against");
    EXPECT_EQ(of.at("Inbox/waste.md").group, PlanAnnotation::Group::junk);
    EXPECT_FALSE(of.at("Inbox/waste.md").tickedByDefault);

    world.taxonomy.junkFolder.reset();
    EXPECT_EQ(world.planner().plan().operations.size(), 0U);
    EXPECT_EQ(FilingPlanner::summary(1, 0, 0), "1 note to file — 1 where similar notes agree");
    EXPECT_EQ(FilingPlanner::summary(0, 1, 0), "1 note to file — 1 best guess");
    EXPECT_EQ(FilingPlanner::summary(0, 0, 2), "Nothing to file · 2 possibly junk");
}

TEST(FilingPlanner, LosesNoNoteWhateverTheModelSays) {
    std::mt19937 random(20260923);
    const auto below = [&](int end) { return std::uniform_int_distribution<int>(0, end - 1)(random); };
    const Texts words{"A", "B", "C", "a", "Inbox", "../A", "", "Junk"};
    for (int story = 0; story < 3000; ++story) {
        Texts names;
        for (int i = below(12); i > 0; --i) names.push_back("n" + std::to_string(i));
        World world(names, below(6));
        for (const auto& candidate : world.candidates) {
            if (below(6) == 0) world.junk[candidate.path] = {JunkVerdict::Plain::empty, "r"};
            if (below(4) == 0)
                world.cached[candidate.path] = {
                    .verdict =
                        FilingDecision::Filed{words[static_cast<std::size_t>(below(8))], FilingTier::unsure},
                    .fromCache = true,
                    .appliedTo = {}};
            if (below(2) == 0)
                world.hints[candidate.path] = votes({words[static_cast<std::size_t>(below(3))]});
        }
        auto planner = world.planner();
        int asked = 0;
        for (bool isDone = false; !isDone;) {
            ASSERT_LT(++asked, 2000) << "never comes to an end";
            if (below(60) == 0) planner.stop();
            match(
                planner.nextStep(), [](const FilingPlanner::Wait&) {},
                [&](const FilingPlanner::Done&) { isDone = true; },
                [&](const FilingPlanner::Ask& ask) {
                    ASSERT_FALSE(ask.batch.empty());
                    Picks picks{{"folder", words[static_cast<std::size_t>(below(8))]}};
                    for (std::size_t i = 1; i <= ask.batch.size() + 1; ++i)
                        picks["note" + std::to_string(i)] = words[static_cast<std::size_t>(below(8))];
                    const ChoiceError* errors[] = {&busy, &tooLong, &unparseable, &declined};
                    const auto what = below(8);
                    if (what < 4) {
                        planner.fail(*errors[what]);
                    } else if (what == 4) {
                        planner.fail("Down.");
                    } else {
                        answer(planner, picks);
                    }
                });
            const auto progress = planner.progress();
            ASSERT_LE(progress.completed, progress.total);
        }
        const auto counts = planner.counts();
        ASSERT_EQ(counts.decidedNow + counts.fromCache + counts.declined + counts.junk + counts.notLookedAt,
                  static_cast<int>(world.candidates.size()));
        std::set<std::string> seen, told;
        for (const auto& operation : planner.plan().operations) {
            const auto& move = std::get<Move>(operation.value);
            ASSERT_TRUE(seen.insert(move.from).second) << "twice in one plan";
            ASSERT_TRUE(move.to.starts_with("A/") || move.to.starts_with("B/") || move.to.starts_with("C/") ||
                        (move.to.starts_with("Junk/") && world.junk.contains(move.from)))
                << move.to;
        }
        for (const auto& [key, decision] : planner.newDecisions())
            ASSERT_TRUE(told.insert(key.path).second) << "decided twice";
    }
}

}  // namespace
}  // namespace vesk::test
