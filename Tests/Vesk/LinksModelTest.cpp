#include "Vesk/Links/LinksModel.h"
#include "Vesk/WorkspaceWorld.h"

namespace vesk::test {
namespace {

using State = LinksModel::State;
using Message = LinksModel::Message;

class LinksModelTest : public WorkspaceWorld {
protected:
    ~LinksModelTest() override { model.reset(); }
    void openPane(const std::string& path) {
        openVault();
        model = LinksModel::make(*workspace, time, time);
        model->setVisible(true);
        workspace->select(path);
        pass(1);
    }
    Names sources() const {
        Names paths;
        for (const auto& link : model->overview->backlinks) paths.push_back(link.id);
        return paths;
    }
    /// "path: line as it would read" of each mention.
    Names offers() const {
        Names lines;
        for (const auto& mention : model->mentions->mentions)
            lines.push_back(mention.sourcePath + ": " + model->pendingLink(mention).after);
        return lines;
    }
    std::optional<PendingLink> linkFirst() {
        const auto mention = model->mentions->mentions.at(0);
        return model->link(mention);
    }
    std::string error() const { return model->editor.lastError.get().value_or(""); }

    std::shared_ptr<LinksModel> model;
};

TEST_F(LinksModelTest, FollowsTheSelectionAndWhatIsSaved) {
    vault().write("Plan.md", "[[Bee]] [[Gone]] [[gone]]");
    vault().write("b.md", "---\naliases: Bee\n---\nto [[Plan]]\nand [[Plan]]\nthe Plan\n");
    openPane("Plan.md");
    EXPECT_EQ(model->state.get(), State::shown);
    EXPECT_EQ(sources(), (Names{"b.md:0", "b.md:1"}));
    ASSERT_EQ(model->groups().size(), 1u);
    EXPECT_EQ(model->groups()[0].title, "b");
    ASSERT_EQ(model->outgoing().size(), 2u) << "each place once";
    EXPECT_EQ(model->outgoing()[0].resolvedPath, "b.md");
    EXPECT_EQ(offers(), Names{"b.md: the [[Plan]]"});

    workspace->select("b.md");
    pass(1);
    EXPECT_EQ(sources(), Names{"Plan.md:0"});
    ASSERT_TRUE(pane().edit("---\naliases: Bee\n---\nno link any more\n"));
    pass(2);
    workspace->select("Plan.md");
    pass(1);
    EXPECT_EQ(sources(), Names{});
    EXPECT_EQ(
        model->backlinksMessage(),
        (Message{"Nothing links here yet.", "Type [[Plan]] in another note and it appears in this list."}));
}

TEST_F(LinksModelTest, SaysWhyThereIsNothingToList) {
    launch();
    model = LinksModel::make(*workspace, time, time);
    model->setVisible(true);
    EXPECT_EQ(model->message(), (Message{"No note selected", "Pick a note to see what links to it."}));
    vault().write("a.md", "x");
    vault().write("page.html", "<p>");
    std::set<std::string> said;
    const auto listening = model->state.subscribe([&](State) {
        if (const auto message = model->message()) said.insert(message->text);
    });
    workspace->open(vault().path());
    workspace->select("a.md");
    pass(4);
    EXPECT_TRUE(said.contains("Indexing the vault — links appear when it finishes."));
    EXPECT_EQ(model->message(), std::nullopt);
    EXPECT_EQ(model->outgoingMessage(), (Message{"", "This note doesn't link anywhere."}));
    workspace->session.get()->index().close();
    model->refresh();
    pass(1);
    EXPECT_EQ(model->message(), (Message{"", "Couldn't read the link index."}));
    workspace->select("page.html");
    EXPECT_EQ(model->state.get(), State::noNote);
    workspace->select("a.md");
    EXPECT_EQ(model->message(), (Message{"", "Reading the link index…"}));
    workspace->close();
    EXPECT_EQ(model->message(),
              (Message{"",
                       "Vesk couldn't open its index, so it can't tell which notes link here. Your notes are "
                       "untouched — the index is only a cache. Reopening the vault rebuilds it."}));
}

TEST_F(LinksModelTest, ReadsNothingWhileNobodyLooks) {
    vault().write("a.md", "[[b]]");
    vault().write("b.md", "x");
    openVault();
    model = LinksModel::make(*workspace, time, time);
    int changes = 0;
    const auto listening = model->overview.subscribe([&](const auto&) { ++changes; });
    workspace->select("b.md");
    pass(1);
    EXPECT_EQ(changes, 0);
    model->setVisible(true);
    pass(1);
    EXPECT_EQ(sources(), Names{"a.md:0"});
}

TEST_F(LinksModelTest, DropsWhatWasReadForAnotherNote) {
    vault().write("a.md", "[[b]]");
    vault().write("b.md", "[[a]]");
    openPane("a.md");
    std::vector<std::string> shown;
    const auto listening = model->overview.subscribe([&](const LinkOverview& overview) {
        for (const auto& link : overview.backlinks) shown.push_back(link.sourcePath);
    });
    workspace->select("b.md");
    workspace->select("a.md");
    pass(1);
    EXPECT_EQ(shown, Names{"b.md"});
}

TEST_F(LinksModelTest, PutsALinkInAndTakesItOutAgain) {
    vault().write("Plan.md", "x");
    const std::string before = "---\r\nkey:   odd \r\n---\r\n\r\nThe plan, a Plan\r\nPlan 😀 plan";
    vault().write("b.md", before);
    openPane("Plan.md");
    EXPECT_EQ(offers(), (Names{"b.md: The [[Plan|plan]], a Plan", "b.md: The plan, a [[Plan]]",
                               "b.md: [[Plan]] 😀 plan", "b.md: Plan 😀 [[Plan|plan]]"}));
    const auto first = linkFirst();
    ASSERT_TRUE(first) << error();
    EXPECT_EQ(vault().read("b.md"),
              "---\r\nkey:   odd \r\n---\r\n\r\nThe [[Plan|plan]], a Plan\r\nPlan 😀 plan");
    EXPECT_EQ(offers(), (Names{"b.md: The [[Plan|plan]], a [[Plan]]", "b.md: [[Plan]] 😀 plan",
                               "b.md: Plan 😀 [[Plan|plan]]"}));
    ASSERT_TRUE(linkFirst()) << error();
    ASSERT_TRUE(linkFirst()) << error();
    ASSERT_TRUE(linkFirst()) << error();
    EXPECT_EQ(vault().read("b.md"),
              "---\r\nkey:   odd \r\n---\r\n\r\nThe [[Plan|plan]], a [[Plan]]\r\n[[Plan]] 😀 [[Plan|plan]]");
    pass(1);
    EXPECT_EQ(sources(), (Names{"b.md:1", "b.md:2"}));
    ASSERT_TRUE(model->undo(*first)) << error();
    EXPECT_EQ(vault().read("b.md"),
              "---\r\nkey:   odd \r\n---\r\n\r\nThe plan, a [[Plan]]\r\n[[Plan]] 😀 [[Plan|plan]]");
    pass(1);
    EXPECT_EQ(offers(), Names{"b.md: The [[Plan|plan]], a [[Plan]]"});
    EXPECT_FALSE(model->undo(*first)) << "there is nothing to take out any more";
}

TEST_F(LinksModelTest, LeavesANoteAloneThatChangedSinceTheScan) {
    vault().write("Plan.md", "x");
    const struct {
        const char *name, *text;
    } rows[] = {
        {"another word there", "A clan\n"},
        {"shorter", "A"},
        {"moved along", "Not a Plan\n"},
        {"in code by now", "`Plan`\n"},
    };
    vault().write("b.md", "A Plan\n");
    openPane("Plan.md");
    for (const auto& row : rows) {
        vault().write("b.md", row.text);
        EXPECT_FALSE(linkFirst()) << row.name;
        EXPECT_EQ(error(), "Couldn't write “b” changed on disk, so Vesk left it alone. ") << row.name;
        EXPECT_EQ(vault().read("b.md"), row.text) << row.name;
    }
    std::filesystem::remove(vault() / "b.md");
    EXPECT_FALSE(linkFirst());
    EXPECT_FALSE(vault().exists("b.md"));
    EXPECT_EQ(model->mentions->mentions.size(), 1u);
    // Properties that came above the text move no mention.
    vault().write("b.md", "---\nnew: 1\n---\nA Plan\n");
    EXPECT_TRUE(linkFirst()) << error();
    EXPECT_EQ(vault().read("b.md"), "---\nnew: 1\n---\nA [[Plan]]\n");
    EXPECT_EQ(error(), "");
}

TEST_F(LinksModelTest, ChangesAnOpenNoteInItsEditorWithWhatWasTyped) {
    vault().write("Plan.md", "x");
    vault().write("b.md", "A Plan\n");
    openPane("Plan.md");
    const auto mention = model->mentions->mentions.at(0);
    const auto pending = model->pendingLink(mention);
    workspace->select("b.md");
    pass(1);
    pane().selection = {6, 0};
    ASSERT_TRUE(pane().edit("A Plan\ntyped"));
    ASSERT_TRUE(model->editor.insert(pending, *workspace));
    EXPECT_EQ(pane().text(), "A [[Plan]]\ntyped");
    EXPECT_EQ(pane().selection, (TextRange{10, 0}));
    EXPECT_EQ(vault().read("b.md"), "A [[Plan]]\ntyped");
    ASSERT_TRUE(pane().edit("A [[Plan]]\ntyped more"));
    ASSERT_TRUE(model->undo(pending));
    EXPECT_EQ(pane().text(), "A Plan\ntyped more");
    pass(5);
    EXPECT_EQ(vault().read("b.md"), "A Plan\ntyped more");
    EXPECT_EQ(listed(), (Names{"Plan.md", "b.md"})) << "no copy was made";
}

TEST_F(LinksModelTest, TouchesNoNoteWhoseTextIsHeld) {
    vault().write("Plan.md", "x");
    vault().write("b.md", "A Plan\n");
    openPane("Plan.md");
    const auto pending = model->pendingLink(model->mentions->mentions.at(0));
    workspace->select("b.md");
    pass(1);
    fillDisk();
    ASSERT_TRUE(pane().edit("A Plan\ntyped"));
    EXPECT_FALSE(model->editor.insert(pending, *workspace));
    EXPECT_EQ(error(), "Couldn't write “b”: what you typed there isn't saved yet.");
    fillDisk(false);
    workspace->select("Plan.md");
    pass(1);
    EXPECT_EQ(vault().read("b.md"), "A Plan\ntyped");
    EXPECT_TRUE(model->editor.insert(pending, *workspace));
    EXPECT_EQ(vault().read("b.md"), "A [[Plan]]\ntyped");
}

TEST_F(LinksModelTest, TellsWhenAWriteFails) {
    vault().write("Plan.md", "x");
    vault().write("b.md", "A Plan\n");
    openPane("Plan.md");
    fillDisk();
    EXPECT_FALSE(linkFirst());
    EXPECT_TRUE(error().starts_with("Couldn't write “b”: ")) << error();
    EXPECT_EQ(vault().read("b.md"), "A Plan\n");
    EXPECT_EQ(offers().size(), 1u) << "the offer stays";
}

TEST_F(LinksModelTest, MarksRowsOfNotesThatAreGone) {
    vault().write("Plan.md", "[[b]]");
    vault().write("b.md", "[[Plan]]");
    openPane("Plan.md");
    EXPECT_FALSE(model->isStale("b.md"));
    std::filesystem::remove(vault() / "b.md");
    model->refresh();
    pass(1);
    EXPECT_TRUE(model->isStale("b.md"));
    EXPECT_EQ(LinksModel::staleMessage("A/b.md"),
              "b is in Vesk's index but not in the vault folder any more. It drops off these lists after the "
              "next reindex.");
}

TEST_F(LinksModelTest, MakesTheNoteThatALinkMisses) {
    using Missing = LinksModel::MissingTarget;
    const auto outside = [](const std::string& target) {
        return Missing{.refusal =
                           Message{"“" + target + "” points outside the vault, so Vesk won't create it. ",
                                   "Rename the link to something inside the vault folder."}};
    };
    EXPECT_EQ(LinksModel::missingTarget(" Oslo "), (Missing{.name = "Oslo"}));
    EXPECT_EQ(LinksModel::missingTarget("./A/B/Oslo.md"), (Missing{.name = "Oslo", .folder = "A/B"}));
    EXPECT_EQ(LinksModel::missingTarget("v1.2"), (Missing{.name = "v1.2"}));
    EXPECT_EQ(LinksModel::missingTarget("../Oslo"), outside("../Oslo"));
    EXPECT_EQ(LinksModel::missingTarget("/etc/x"), outside("/etc/x"));
    for (const char* target : {".trash/x", "A/.md", ""})
        EXPECT_TRUE(LinksModel::missingTarget(target).refusal) << target;

    vault().write("Plan.md", "[[Trips/Oslo]]");
    openPane("Plan.md");
    EXPECT_FALSE(model->createMissing("../Oslo"));
    EXPECT_EQ(failure(),
              "“../Oslo” points outside the vault, so Vesk won't create it. Rename the link to something "
              "inside the vault folder.");
    ASSERT_TRUE(model->createMissing("Trips/Oslo"));
    pass(1);
    EXPECT_EQ(workspace->selection.get(), "Trips/Oslo.md");
    EXPECT_EQ(sources(), Names{"Plan.md:0"}) << "the link leads there at once";
}

TEST_F(LinksModelTest, SaysWhatItDidNotLookFor) {
    vault().write("Go.md", "x");
    vault().write("Alone.md", "x");
    openPane("Go.md");
    EXPECT_EQ(model->mentionsMessage(), (Message{"", "“Go” is too short to look for."}));
    workspace->select("Alone.md");
    EXPECT_EQ(model->mentionsMessage(), (Message{"", "Looking for mentions…"}));
    pass(1);
    EXPECT_EQ(model->mentionsMessage(), (Message{"", "No other note mentions this one without a link."}));
}

}  // namespace
}  // namespace vesk::test
