#include "VeskCore/Index/FilingLedger.h"
#include "VeskCore/Index/IndexFixture.h"

namespace vesk::test {
namespace {

using Filed = FilingDecision::Filed;
using Declined = FilingDecision::Declined;

FilingLedgerKey key(std::string path, std::string hash = "h", std::string targets = "t",
                    std::string model = "m") {
    return {std::move(path), std::move(hash), std::move(targets), std::move(model)};
}

FilingDecision decision(std::variant<Declined, Filed> verdict) {
    return {.verdict = std::move(verdict), .fromCache = false, .appliedTo = {}};
}

/// Both keep the same promises.
class FilingLedgers : public IndexFixture, public ::testing::WithParamInterface<bool> {
protected:
    InMemoryFilingLedger memory;
    FilingLedger& ledger() { return GetParam() ? static_cast<FilingLedger&>(index()) : memory; }
    std::optional<FilingDecision> known(const FilingLedgerKey& of) {
        const auto found = ledger().lookup({of});
        return found.contains(of) ? std::optional(found.at(of)) : std::nullopt;
    }
    /// What is known, as the folder or the reason; "" if nothing is.
    std::string verdict(const FilingLedgerKey& of) {
        const auto found = known(of);
        if (!found) return "";
        const auto* filed = std::get_if<Filed>(&found->verdict);
        return filed ? filed->folder : std::get<Declined>(found->verdict).reason;
    }
};
INSTANTIATE_TEST_SUITE_P(Each, FilingLedgers, ::testing::Bool(),
                         [](const auto& row) { return row.param ? "Index" : "Memory"; });

TEST_P(FilingLedgers, HoldADecisionForOneTextFoldersAndModel) {
    ledger().record({{key("a.md"), decision(Filed{"Work", FilingTier::confident})},
                     {key("b.md"), decision(Declined{"No."})}});
    const auto found = known(key("a.md"));
    ASSERT_TRUE(found);
    EXPECT_EQ(found->verdict, (std::variant<Declined, Filed>(Filed{"Work", FilingTier::confident})));
    EXPECT_TRUE(found->fromCache);
    EXPECT_EQ(found->appliedTo, std::nullopt);
    EXPECT_EQ(verdict(key("b.md")), "No.");
    EXPECT_EQ(verdict(key("a.md", "changed")), "");
    EXPECT_EQ(verdict(key("a.md", "h", "other folders")), "");
    EXPECT_EQ(verdict(key("a.md", "h", "t", "other model")), "");

    ledger().record({{key("a.md"), decision(Filed{"Home", FilingTier::unsure})}});
    EXPECT_EQ(verdict(key("a.md")), "Home");
    ledger().forgetDecisions({"a.md", "c.md"}, "other model");
    EXPECT_EQ(verdict(key("a.md")), "Home");
    ledger().forgetDecisions({"a.md", "c.md"}, "m");
    EXPECT_EQ(verdict(key("a.md")), "");
    EXPECT_EQ(verdict(key("b.md")), "No.");
}

TEST_P(FilingLedgers, FollowWhatTheUserLetMove) {
    ledger().record({{key("In/a.md"), decision(Filed{"Work", FilingTier::unsure})},
                     {key("Home/a.md"), decision(Declined{"of what was there"})},
                     {key("In/b.md"), decision(Filed{"Work", FilingTier::unsure})},
                     {key("In/a.md", "h", "t", "n"), decision(Filed{"Work", FilingTier::unsure})}});
    ledger().markApplied({{"In/a.md", "Home/a.md"}, {"In/b.md", "In/b.md"}}, "m");
    EXPECT_EQ(verdict(key("In/a.md")), "");
    EXPECT_EQ(verdict(key("Home/a.md")), "Home") << "where it went, not where it was proposed";
    EXPECT_EQ(known(key("Home/a.md"))->appliedTo, "Home");
    EXPECT_EQ(known(key("In/b.md"))->appliedTo, std::nullopt);
    EXPECT_EQ(verdict(key("In/a.md", "h", "t", "n")), "Work") << "of another model";

    const auto placed = [&](const FilingLedgerKey& of) { return !ledger().userPlaced({of}).empty(); };
    EXPECT_TRUE(placed(key("Home/a.md", "h", "whatever", "whichever")));
    EXPECT_FALSE(placed(key("Home/a.md", "changed")));
    EXPECT_FALSE(placed(key("In/b.md")));
    // Decided anew, it isn't placed any more.
    ledger().record({{key("Home/a.md"), decision(Filed{"Work", FilingTier::unsure})}});
    EXPECT_FALSE(placed(key("Home/a.md")));
}

TEST_P(FilingLedgers, TakeThousandsAtOnce) {
    FilingLedger::Entries entries;
    std::vector<FilingLedgerKey> keys;
    std::vector<std::string> paths;
    for (int i = 0; i < 1201; ++i) {
        paths.push_back(std::to_string(i) + ".md");
        keys.push_back(key(paths.back(), "h", i % 2 ? "t" : "u"));
        entries.emplace_back(keys.back(), decision(Filed{"Work", FilingTier::unsure}));
    }
    ledger().record(entries);
    EXPECT_EQ(ledger().lookup(keys).size(), 1201U);
    ledger().forgetDecisions(paths, "m");
    EXPECT_TRUE(ledger().lookup(keys).empty());
}

using FilingDecisionsInIndex = IndexFixture;

TEST_F(FilingDecisionsInIndex, GoWithTheirNote) {
    ASSERT_TRUE(add("a.md", "text"));
    index().record({{key("a.md"), decision(Filed{"Work", FilingTier::unsure})}});
    index().storeNoteVectors({{"a.md", "h", {1, 2}}}, "p");
    ASSERT_EQ(index().noteVector("a.md", "h", "p"), (std::vector<float>{1, 2}));
    index().removeNote("a.md");
    EXPECT_EQ(index().lookup({key("a.md")}).size(), 0U);
    EXPECT_EQ(index().noteVector("a.md", "h", "p"), std::nullopt);
}

TEST_F(FilingDecisionsInIndex, AreMadeOnEveryNoteOnce) {
    for (int i = 0; i < 501; ++i) ASSERT_TRUE(add(std::to_string(i) + ".md", "---\ntags: [a]\n---\nNote"));
    std::vector<std::string> paths;
    index().noteTexts(
        [&](const std::string& path, const std::string& name, const std::string&, std::string_view body) {
            paths.push_back(path);
            EXPECT_EQ(name + ".md", path);
            EXPECT_EQ(body.find("tags"), std::string_view::npos);
        });
    EXPECT_EQ(paths.size(), 501U);
    EXPECT_TRUE(std::is_sorted(paths.begin(), paths.end()));
    EXPECT_EQ(std::adjacent_find(paths.begin(), paths.end()), paths.end());
}

TEST_F(FilingDecisionsInIndex, ArePassedOverWhereTheyMakeNoSense) {
    for (const char* row :
         {"'filed', NULL, 'unsure'", "'filed', 'Work', 'certain'", "'moved', 'Work', 'unsure'"}) {
        index().run(
            "INSERT OR REPLACE INTO filing_decisions (note_path, content_hash, targets_hash, model_key, "
            "verdict, target, tier, decided) VALUES ('a.md', 'h', 't', 'm', " +
            std::string(row) + ", 0)");
        EXPECT_TRUE(index().lookup({key("a.md")}).empty()) << row;
    }
}

}  // namespace
}  // namespace vesk::test
