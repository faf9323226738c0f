// The sheets in which a person reviews what a model proposed, without their widgets.
#include <gtest/gtest.h>

#include "Vesk/AI/DiffApproval.h"
#include "Vesk/AI/PlanReview.h"
#include "Vesk/AI/TitleProposals.h"
#include "VeskCore/Support/VirtualTime.h"

namespace vesk::test {
namespace {

using Op = VaultOperation;
using VaultPlanExecutor::Preview;
using Text = std::optional<std::string>;

NoteEdit edit(bool isSelection, Text subject = {}) {
    return {.id = "1",
            .notePath = "Roses.md",
            .noteTitle = "Roses",
            .action = "Rewrite Clearly",
            .original = "cut them\n",
            .replacement = "prune them well\n",
            .isSelectionOnly = isSelection,
            .noteTextAtAsk = {},
            .selectionLocation = {},
            .subjectDescription = std::move(subject)};
}

TEST(RewriteReviews, SayWhatIsReplaced) {
    const struct {
        NoteEdit edit;
        std::string_view subtitle;
    } rows[] = {
        {edit(false), "Replaces the whole of Roses."},
        {edit(true), "Replaces the text you selected in Roses."},
        {edit(false, "the text of Roses; its frontmatter is kept exactly as it is"),
         "Replaces the text of Roses; its frontmatter is kept exactly as it is."},
    };
    for (const auto& row : rows) EXPECT_EQ(DiffApproval::subtitle(row.edit), row.subtitle);
    EXPECT_EQ(DiffApproval::title(edit(true)), "Rewrite Clearly — review before saving");
}

TEST(RewriteReviews, CompareInTheBackgroundAndWriteOnceAfterTheyClose) {
    VirtualTime time;
    std::vector<std::string> written;
    auto review = DiffApproval::make(
        edit(false), time, time, [&](const NoteEdit& approved) { written.push_back(approved.replacement); });
    EXPECT_FALSE(review->result->has_value());
    time.settle();
    ASSERT_TRUE(review->result->has_value());
    EXPECT_EQ(DiffApproval::addedLabel(*review->result.get()), "2 added");
    EXPECT_EQ(DiffApproval::removedLabel(*review->result.get()), "1 removed");
    EXPECT_EQ(DiffApproval::addedLabel({}), "");
    EXPECT_EQ(review->unavailableReason(), std::nullopt);
    review->approve("as the user left it");
    review->approve("again");
    EXPECT_TRUE(written.empty());
    EXPECT_EQ(review->unavailableReason(), std::nullopt);
    review.reset();
    time.settle();
    EXPECT_EQ(written, std::vector<std::string>{"as the user left it"});
}

TEST(RewriteReviews, OfferCopyingAloneWhereNothingCanBeWritten) {
    VirtualTime time;
    auto review = DiffApproval::make(edit(false), time, time, nullptr);
    EXPECT_EQ(review->unavailableReason(),
              "Vesk can't write this into the note from here yet. Copy it and paste it where you want it.");
    review->approve("x");
    review.reset();  // while it compares
    time.settle();
}

Preview row(int id, Op operation, Text issue = {}, std::optional<PlanAnnotation> annotation = {}) {
    Preview made{.id = id,
                 .operation = operation,
                 .description = operation.describedForReview(),
                 .before = {},
                 .after = {},
                 .issue = {},
                 .annotation = std::move(annotation)};
    if (issue) made.issue = PlanIssue{.operationIndex = id, .message = std::move(*issue)};
    return made;
}

PlanAnnotation filing(std::optional<FilingTier> tier, bool ticked,
                      PlanAnnotation::Group group = PlanAnnotation::Group::move) {
    return {.group = group, .tier = tier, .reason = "r", .alternatives = {}, .tickedByDefault = ticked};
}

TEST(PlanReviews, ListRowsBySureness) {
    auto warning = row(6, {Op::SetProperty{"b.md", "k", "v"}}, "b.md already has k set to that.");
    warning.issue->severity = PlanIssue::Severity::warning;
    PlanReview review({
        row(0, {Op::RenameNote{"j.md", "Junk/j.md"}}, {}, filing({}, false, PlanAnnotation::Group::junk)),
        row(1, {Op::RenameNote{"u.md", "U/u.md"}}, {}, filing(FilingTier::unsure, false)),
        row(2, {Op::RenameNote{"c.md", "C/c.md"}}, {}, filing(FilingTier::confident, true)),
        row(3, {Op::RenameNote{"d.md", "C/d.md"}}, {}, filing(FilingTier::confident, true)),
        row(4, {Op::TrashNote{"gone.md"}}, "The note gone.md doesn't exist."),
        row(5, {Op::TrashNote{"a.md"}}),
        warning,
    });
    EXPECT_EQ(review.sections(), (std::vector<PlanReview::Section>{{"", {5, 6}},
                                                                   {"Similar notes agree (2)", {2, 3}},
                                                                   {"Best guess (1)", {1}},
                                                                   {"Possibly junk (1)", {0}},
                                                                   {"Can't be applied", {4}}}));
    EXPECT_EQ(review.countLabel(), "4 of 7 selected");
    EXPECT_FALSE(review.isTicked(1));
    EXPECT_TRUE(review.isTicked(6)) << "a warning keeps nothing back";
    review.tick(4, true);
    EXPECT_FALSE(review.isTicked(4));
    review.selectAll();
    EXPECT_EQ(review.applyLabel(), "Apply 6");
    review.selectNone();
    EXPECT_EQ(review.applyLabel(), "Apply 0");
    review.tick(3, true);
    review.tick(1, true);
    review.tick(99, true);
    ASSERT_EQ(review.approved().size(), 2U);
    EXPECT_EQ(review.approved()[0].id, 1) << "in the plan's order";
    EXPECT_TRUE(review.destinations().empty());
}

TEST(PlanReviews, SendANoteWhereThePersonChose) {
    auto annotation = filing(FilingTier::unsure, false);
    annotation.alternatives = {{.folder = "A", .operation = {Op::RenameNote{"n.md", "A/n.md"}}, .issue = {}},
                               {.folder = "B", .operation = {Op::RenameNote{"n.md", "B/n.md"}}, .issue = {}},
                               {.folder = "C",
                                .operation = {Op::RenameNote{"n.md", "C/n.md"}},
                                .issue = PlanIssue{.message = "A note is already called C/n.md."}}};
    PlanReview review(
        {row(0, {Op::RenameNote{"n.md", "A/n.md"}}, {}, annotation), row(1, {Op::CreateFolder{"D"}})});
    review.selectNone();
    review.tick(0, true);
    review.switchDestination(0, 1);
    EXPECT_EQ(review.preview(0).description, "Move n.md → B/n.md");
    EXPECT_EQ(review.details(0).after, "B/n.md");
    EXPECT_EQ(review.approved()[0].operation, (Op{Op::RenameNote{"n.md", "B/n.md"}}));
    EXPECT_EQ(review.destinations(), (std::map<int, Op>{{0, {Op::RenameNote{"n.md", "B/n.md"}}}}));
    EXPECT_EQ(review.sections()[1].title, "Best guess (1)") << "the row stays where it is";
    review.switchDestination(0, 0);
    EXPECT_TRUE(review.destinations().empty());
    review.switchDestination(0, 2);
    EXPECT_FALSE(review.isTicked(0)) << "it can't go there";
    review.selectAll();
    EXPECT_EQ(review.countLabel(), "1 of 2 selected");
    review.switchDestination(0, {});
    review.switchDestination(0, 7);
    review.switchDestination(1, 0);
    review.switchDestination(9, 0);
    review.tick(0, true);
    EXPECT_EQ(review.approved()[0].operation, (Op{Op::RenameNote{"n.md", "A/n.md"}}));
}

TEST(PlanReviews, ShowBothSides) {
    auto update = row(0, {Op::UpdateNote{"a.md", "new"}});
    update.before = "old";
    update.after = "new";
    auto rename = row(3, {Op::RenameFolder{"A", "B"}});
    rename.before = "A/x.md";
    rename.after = "B/x.md";
    auto created = row(1, {Op::CreateNote{"b.md", "text"}});
    created.after = "text";
    auto trashed = row(2, {Op::TrashNote{"c.md"}});
    trashed.before = "gone soon";
    const PlanReview review({update, created, trashed, rename, row(4, {Op::CreateFolder{"D"}})});
    const PlanReview::Details expected[] = {
        {"Before", "old", "After", "new"},
        {"Before", "(does not exist)", "After", "text"},
        {"Before", "gone soon", "After", "(removed)"},
        {"Notes in this folder", "A/x.md", "After", "B/x.md"},
        {"Before", "(does not exist)", "After", "(no notes in this folder)"},
    };
    for (int id = 0; id < 5; ++id) EXPECT_EQ(review.details(id), expected[id]) << id;
}

/// A model that answers when the test says so, and a vault of which only the names are told.
class Titles : public testing::Test {
protected:
    struct Asked {
        std::string text;
        std::function<void(Text)> done;
        std::stop_token stop;
    };
    std::vector<Asked> asked;
    std::vector<std::string> renamed;
    bool canRename = true;
    TitleProposals proposals{[this](std::string_view text, std::function<void(Text)> done) {
                                 auto source = freshStopSource();
                                 asked.push_back({std::string(text), std::move(done), source.get_token()});
                                 return TaskHandle(std::move(source));
                             },
                             [this](const std::string& path, const std::string& title) {
                                 renamed.push_back(path + " " + title);
                                 return canRename ? Text("x.md") : Text();
                             }};
    static constexpr std::string_view words = "The roses need pruning before winter";
};

TEST_F(Titles, AreOfferedOnceForNotesThatHaveNone) {
    EXPECT_FALSE(proposals.consider("Roses.md", words));
    EXPECT_FALSE(proposals.consider("Untitled.md", "only a few x"));
    ASSERT_TRUE(proposals.consider("Garden/Untitled 2.md", words));
    EXPECT_FALSE(proposals.consider("Untitled.md", words)) << "one offer at a time";
    const auto offer = proposals.pending.get();
    EXPECT_EQ(asked.front().text, words);
    EXPECT_EQ(offer->message(), "Thinking of a title…");
    EXPECT_FALSE(offer->canUse());
    asked.front().done("Pruning the roses");
    EXPECT_EQ(offer->message(),
              "“Untitled 2” has no title yet. Vesk suggested one from what you wrote — use it, change it, or "
              "keep Untitled.");
    EXPECT_EQ(offer->draft.get(), "Pruning the roses");
    proposals.keepUntitled();
    EXPECT_EQ(proposals.pending.get(), nullptr);
    EXPECT_FALSE(proposals.consider("Garden/Untitled 2.md", words)) << "it was turned down";
    proposals.withdraw("Garden/Untitled 2.md");
    EXPECT_TRUE(proposals.consider("Garden/Untitled 2.md", words)) << "another note of that name";
}

TEST_F(Titles, RenameToWhatThePersonTyped) {
    ASSERT_TRUE(proposals.consider("Untitled.md", words));
    const auto offer = proposals.pending.get();
    offer->draft.set(" My roses ");
    asked.front().done("Pruning the roses");
    EXPECT_EQ(offer->draft.get(), " My roses ") << "what was typed while the model thought stays";
    canRename = false;
    proposals.useTitle();
    EXPECT_EQ(offer->problem.get(), "Couldn't rename this note.");
    EXPECT_EQ(proposals.pending.get(), offer);
    canRename = true;
    proposals.useTitle();
    EXPECT_EQ(renamed, (std::vector<std::string>{"Untitled.md My roses", "Untitled.md My roses"}));
    EXPECT_EQ(offer->problem.get(), std::nullopt);
    EXPECT_EQ(proposals.pending.get(), nullptr);
    proposals.useTitle();
    EXPECT_EQ(renamed.size(), 2U);
}

TEST_F(Titles, AreNotWaitedForWhenTheNoteGoes) {
    ASSERT_TRUE(proposals.consider("Untitled.md", words));
    proposals.withdraw("Other.md");
    EXPECT_NE(proposals.pending.get(), nullptr);
    proposals.withdraw("Untitled.md");
    EXPECT_EQ(proposals.pending.get(), nullptr);
    EXPECT_TRUE(asked.front().stop.stop_requested());
    asked.front().done("Too late");
    ASSERT_TRUE(proposals.consider("Untitled.md", words));
    asked.back().done(std::nullopt);
    EXPECT_EQ(proposals.pending.get()->message(),
              "Vesk couldn't think of one — type a title or keep Untitled.");
}

}  // namespace
}  // namespace vesk::test
