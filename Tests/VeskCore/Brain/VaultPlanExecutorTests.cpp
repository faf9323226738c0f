#include <gtest/gtest.h>

#include "Support/Fakes.h"
#include "VeskCore/Brain/VaultPlanExecutor.h"
#include "VeskCore/Brain/VaultPlanner.h"
#include "VeskCore/Vault/AtomicWrite.h"
#include "VeskCore/Vault/VaultTrash.h"

namespace vesk::test {
namespace {

using Op = VaultOperation;
using VaultPlanExecutor::Preview;
using VaultPlanExecutor::Report;
using Strings = std::vector<std::string>;
using Left = std::vector<Report::Left>;

class PlanExecution : public testing::Test {
protected:
    PlatformFixture platform;
    const ScratchFolder& folder = platform.vaultFolder;
    Vault vault{platform.vaultFolder.path(), SyncProvider::none};

    std::vector<Preview> validate(std::vector<Op> operations, const std::optional<std::string>& limit = {},
                                  const Strings& forbidden = {}) const {
        return VaultPlanExecutor::validate(
            {.summary = "s", .operations = std::move(operations), .annotations = {}}, vault, limit,
            forbidden);
    }
    static Report apply(const std::vector<Preview>& previews, const Vault& where) {
        return VaultPlanExecutor::apply(
            previews, where,
            [](const std::string& text, const FilePath& path, const ForeignEdit::Disk& expected) {
                const auto* found = std::get_if<ForeignEdit::Disk::Text>(&expected.value);
                CoordinatedIO::replaceText(path, text, found ? std::optional(found->text) : std::nullopt);
            });
    }
    Report apply(const std::vector<Preview>& previews) const { return apply(previews, vault); }
    /// What each operation is told; "" for nothing, "warning: …".
    Strings issues(const std::vector<Op>& operations, const std::optional<std::string>& limit = {},
                   const Strings& forbidden = {}) const {
        Strings told;
        for (const auto& preview : validate(operations, limit, forbidden)) {
            told.push_back(!preview.issue        ? ""
                           : preview.isBlocked() ? preview.issue->message
                                                 : "warning: " + preview.issue->message);
        }
        return told;
    }
    std::string issue(Op operation, const std::optional<std::string>& limit = {},
                      const Strings& forbidden = {}) const {
        return issues({std::move(operation)}, limit, forbidden).front();
    }
};

TEST_F(PlanExecution, TellsWhatAnOperationCannotDo) {
    folder.write("a.md", "a");
    folder.write("b.md", "---\nstatus: open\n---\nb");
    folder.write("Work/w.md", "w");
    folder.write("Site/index.html", "<p>");
    folder.write("style.css", "a {}");
    folder.write("Empty/.keep", "");
    const std::string pages =
        "Vesk leaves web pages and stylesheets where they are. A page finds its styles and pictures by where "
        "it "
        "sits.";
    const struct {
        Op operation;
        std::string expected;
    } rows[] = {
        {{Op::CreateNote{"new/x.md", "x"}}, ""},
        {{Op::CreateNote{"a.md", "x"}}, "a.md already exists — Vesk won't overwrite it with a new note."},
        {{Op::CreateNote{"A.MD", "x"}}, "A.MD already exists — Vesk won't overwrite it with a new note."},
        {{Op::CreateNote{".vesk/x.md", "x"}},
         "\".vesk/x.md\" is inside a hidden folder, where notes can't be seen."},
        {{Op::CreateNote{"x/.y.md", "x"}},
         "\"x/.y.md\" is inside a hidden folder, where notes can't be seen."},
        {{Op::CreateNote{"node_modules/y.md", "x"}},
         "\"node_modules/y.md\" is inside a hidden folder, where notes can't be seen."},
        {{Op::CreateNote{"x/../../y.md", "x"}}, "\"x/../../y.md\" is outside the vault."},
        {{Op::CreateNote{"/etc/y.md", "x"}}, "\"/etc/y.md\" is outside the vault."},
        {{Op::CreateNote{"", "x"}}, "\"\" is outside the vault."},
        {{Op::CreateNote{"page.html", "x"}}, pages},
        {{Op::CreateNote{"run.sh", "x"}}, "\"run.sh\" isn't a note."},
        {{Op::CreateNote{std::string(300, 'x') + ".md", ""}},
         "open " + std::string(300, 'x') + ".md: File name too long"},
        {{Op::UpdateNote{"a.md", "x"}}, ""},
        {{Op::UpdateNote{"gone.md", "x"}}, "The note gone.md doesn't exist."},
        {{Op::UpdateNote{"A.md", "x"}}, "The note A.md doesn't exist."},
        {{Op::UpdateNote{"style.css", "x"}}, pages},
        {{Op::RenameNote{"a.md", "Work/a.md"}}, ""},
        {{Op::RenameNote{"a.md", "A.md"}}, ""},
        {{Op::RenameNote{"a.md", "a.md"}}, "A note is already called a.md."},
        {{Op::RenameNote{"gone.md", "x.md"}}, "The note gone.md doesn't exist."},
        {{Op::RenameNote{"a.md", "Work/W.md"}}, "A note is already called Work/W.md."},
        {{Op::RenameNote{"a.md", "../a.md"}}, "\"../a.md\" is outside the vault."},
        {{Op::RenameNote{"a.md", ".trash/a.md"}},
         "\".trash/a.md\" is inside a hidden folder, where notes can't be seen."},
        {{Op::RenameNote{"a.md", "a.css"}}, pages},
        {{Op::RenameNote{"a.md", "a.png"}}, "\"a.png\" isn't a note."},
        {{Op::SetProperty{"gone.md", "k", "v"}}, "The note gone.md doesn't exist."},
        {{Op::SetProperty{"a.md", "remind", "soon"}},
         "“soon” isn't a time Vesk can read for a reminder, such as 2026-09-18T09:00."},
        {{Op::SetProperty{"a.md", "remind", "2026-09-18 14:30"}}, ""},
        {{Op::SetProperty{"a.md", "repeat", "hourly"}},
         "Vesk repeats daily, weekdays, weekly, monthly or yearly, not “hourly”."},
        {{Op::SetProperty{"a.md", "repeat", "every day"}}, "That note has no reminder to repeat."},
        {{Op::SetProperty{"a.md", "k: v\n---\n#", "v"}}, "“k: v\n---\n#” can't be a property's name."},
        {{Op::SetProperty{"b.md", "status", "open"}}, "warning: b.md already has status set to that."},
        {{Op::RemoveProperty{"b.md", "due"}}, "warning: b.md has no due to remove."},
        {{Op::RemoveProperty{"b.md", "status"}}, ""},
        {{Op::TrashNote{"gone.md"}}, "The note gone.md doesn't exist."},
        {{Op::TrashNote{"style.css"}}, pages},
        {{Op::CreateFolder{"Empty"}}, "Empty/ already exists."},
        {{Op::CreateFolder{"work"}}, "work/ already exists."},
        {{Op::CreateFolder{""}}, "Vesk won't do that — that names the whole vault, not a folder inside it."},
        {{Op::CreateFolder{"a/../b"}}, "Vesk won't do that — \"a/../b\" isn't a usable folder path."},
        {{Op::CreateFolder{"/b"}}, "Vesk won't do that — \"/b\" isn't a usable folder path."},
        {{Op::CreateFolder{".trash"}}, "Vesk won't do that — \".trash\" is one of Vesk's own folders."},
        {{Op::CreateFolder{"x/.git"}}, "\"x/.git\" is inside a hidden folder, where notes can't be seen."},
        {{Op::RenameFolder{"Gone", "x"}}, "There's no folder called Gone."},
        {{Op::RenameFolder{"Work", "Work"}}, "Work/ is already called that."},
        {{Op::RenameFolder{"Work", "Work/Old"}}, "Work/ can't be moved inside itself."},
        {{Op::RenameFolder{"Work", "Empty"}}, "Empty/ already exists."},
        {{Op::RenameFolder{"Work", "a.md"}}, "A note is already called a.md."},
        {{Op::RenameFolder{"Work", "WORK"}}, ""},
        {{Op::CreateNote{"a.md/x.md", ""}}, "A note is already called a.md."},
        {{Op::CreateFolder{"style.css/x/y"}}, "\"style.css\" isn't a folder."},
        {{Op::RenameNote{"b.md", "a.md/b.md"}}, "A note is already called a.md."},
        {{Op::RenameFolder{"Work", "a.md/Work"}}, "A note is already called a.md."},
        {{Op::RenameFolder{"Site", "Web"}},
         "This folder holds web pages. Move it to the Trash from the sidebar if you mean to."},
        {{Op::TrashFolder{"Site"}},
         "This folder holds web pages. Move it to the Trash from the sidebar if you mean to."},
        {{Op::TrashFolder{"Gone"}}, "There's no folder called Gone."},
        {{Op::TrashFolder{".vesk"}}, "Vesk won't do that — \".vesk\" is one of Vesk's own folders."},
    };
    for (const auto& row : rows)
        EXPECT_EQ(issue(row.operation), row.expected) << row.operation.describedForReview();
}

TEST_F(PlanExecution, KeepsToOneNoteAndOutOfForbiddenFolders) {
    folder.write("a.md", "a");
    folder.write("b.md", "b");
    const std::string other =
        "This conversation was about one note — use Whole vault scope to change others.";
    EXPECT_EQ(
        issues({Op{Op::RenameNote{"a.md", "X/c.md"}}, Op{Op::SetProperty{"X/c.md", "k", "v"}},
                Op{Op::TrashNote{"b.md"}}, Op{Op::RenameNote{"b.md", "a.md"}}, Op{Op::CreateNote{"n.md", ""}},
                Op{Op::CreateFolder{"F"}}},
               "a.md"),
        (Strings{"", "", other, other, other,
                 "Folder changes can affect notes this conversation never saw — use Whole vault scope."}));
    EXPECT_EQ(issue({Op::RenameNote{"a.md", "Private/Deep/a.md"}}, {}, {"", " /Private/ "}),
              "Private/Deep/a.md is in Private/, which Vesk leaves alone.");
    EXPECT_EQ(issue({Op::RenameNote{"a.md", "Privates/a.md"}}, {}, {"Private"}), "");
}

TEST_F(PlanExecution, ShowsBeforeAndAfter) {
    folder.write("a.md", "---\r\nk: 1\r\n---\r\nbody\r\n");
    folder.write("F/x.md", "x");
    folder.write("F/G/y.md", "y");
    folder.write("F/p.png", "p");
    folder.write("Bare/.keep", "");
    const auto previews = validate({
        Op{Op::SetProperty{"a.md", "k", "2"}},
        Op{Op::UpdateNote{"a.md", "new"}},
        Op{Op::CreateNote{"n.md", "text"}},
        Op{Op::RenameNote{"a.md", "b.md"}},
        Op{Op::RenameFolder{"F", "H/F"}},
        Op{Op::TrashFolder{"H"}},
        Op{Op::TrashFolder{"Bare"}},
        Op{Op::TrashNote{"b.md"}},
    });
    const struct {
        std::string_view description;
        std::optional<std::string> before, after;
    } rows[] = {
        {"Set k: 2 on a.md", "---\nk: 1\n---\nbody\n", "---\nk: 2\n---\nbody\n"},
        {"Rewrite a.md (3 characters)", "---\nk: 2\n---\nbody\n", "new"},
        {"Create n.md (4 characters)", std::nullopt, "text"},
        {"Rename a.md → b.md", "a.md", "b.md"},
        {"Move the folder F/ → H/F/", "F/G/y.md\nF/x.md",
         "H/F/G/y.md\nH/F/x.md\n(1 other file move with it)"},
        {"Move the folder H/ and its 2 notes and 1 other file to the vault's trash",
         "H/F/G/y.md\nH/F/x.md\n(and 1 non-note file)", "(moved to .trash)"},
        {"Move the empty folder Bare/ to the vault's trash", "(no notes in this folder)",
         "(moved to .trash)"},
        {"Move b.md to the vault's trash", "new", std::nullopt},
    };
    ASSERT_EQ(previews.size(), std::size(rows));
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        EXPECT_EQ(previews[i].id, static_cast<int>(i));
        EXPECT_EQ(previews[i].issue, std::nullopt) << rows[i].description;
        EXPECT_EQ(previews[i].description, rows[i].description);
        EXPECT_EQ(previews[i].before, rows[i].before) << rows[i].description;
        EXPECT_EQ(previews[i].after, rows[i].after) << rows[i].description;
    }
    EXPECT_EQ(folder.read("a.md"), "---\r\nk: 1\r\n---\r\nbody\r\n") << "nothing is written";
}

TEST_F(PlanExecution, CarriesOutAPlanInOrder) {
    folder.write("a.md", "a");
    folder.write("b.md", "---\nremind: 2026-01-01T09:00\nrepeat: daily\n---\nb\n");
    folder.write("c.md", "c");
    folder.write("F/x.md", "x");
    const auto report = apply(validate({
        Op{Op::RenameNote{"a.md", "New/a.md"}},
        Op{Op::RenameNote{"New/a.md", "New/z.md"}},
        Op{Op::CreateNote{"a.md", "in its place"}},
        Op{Op::CreateNote{"a.md", "twice"}},
        Op{Op::SetProperty{"New/z.md", "tags", "x, y"}},
        Op{Op::RemoveProperty{"b.md", "remind"}},
        Op{Op::UpdateNote{"c.md", "C"}},
        Op{Op::RenameFolder{"F", "G"}},
        Op{Op::RenameNote{"G/x.md", "G/y.md"}},
        Op{Op::TrashNote{"c.md"}},
        Op{Op::CreateFolder{"Empty/Deep"}},
    }));
    EXPECT_EQ(folder.read("New/z.md"), "---\ntags:\n  - x\n  - y\n---\na");
    EXPECT_EQ(folder.read("a.md"), "in its place");
    EXPECT_EQ(folder.read("b.md"), "b\n");
    EXPECT_EQ(folder.read("G/y.md"), "x");
    EXPECT_EQ(folder.read(".trash/c.md"), "C");
    EXPECT_TRUE(folder.exists("Empty/Deep"));
    EXPECT_FALSE(folder.exists("F"));
    EXPECT_EQ(report.summary(), "10 applied · 1 skipped");
    EXPECT_EQ(report.skipped, (Left{{"Create a.md (5 characters)",
                                     "a.md already exists — Vesk won't overwrite it with a new note."}}));
    EXPECT_EQ(report.renamed,
              (std::map<std::string, std::string>{{"a.md", "New/z.md"}, {"F/x.md", "G/y.md"}}));
    EXPECT_EQ(report.removed, std::set<std::string>{"c.md"});
    EXPECT_EQ(report.departures.size(), 5U);
    EXPECT_EQ(report.departures.back(), (Report::Departure{"c.md", std::nullopt}));
}

TEST_F(PlanExecution, SwapsNames) {
    folder.write("a.md", "A");
    folder.write("b.md", "B");
    const auto report =
        apply(validate({Op{Op::RenameNote{"a.md", "t.md"}}, Op{Op::RenameNote{"b.md", "a.md"}},
                        Op{Op::RenameNote{"t.md", "b.md"}}}));
    EXPECT_EQ(folder.read("a.md"), "B");
    EXPECT_EQ(folder.read("b.md"), "A");
    EXPECT_EQ(report.renamed, (std::map<std::string, std::string>{{"a.md", "b.md"}, {"b.md", "a.md"}}));
}

TEST_F(PlanExecution, SkipsWhatBecameStaleAndGoesOn) {
    for (const auto* path :
         {"edit.md", "prop.md", "gone.md", "moved.md", "F/x.md", "G/x.md", "last.md", "trash.md"}) {
        folder.write(path, "old");
    }
    const auto previews = validate({
        Op{Op::UpdateNote{"edit.md", "new"}},
        Op{Op::SetProperty{"prop.md", "k", "v"}},
        Op{Op::RenameNote{"gone.md", "there.md"}},
        Op{Op::RenameNote{"moved.md", "Moved/moved.md"}},
        Op{Op::CreateNote{"new.md", "mine"}},
        Op{Op::CreateNote{"case.md", "mine"}},
        Op{Op::RenameNote{"F/x.md", "taken.md"}},
        Op{Op::CreateFolder{"Made"}},
        Op{Op::CreateFolder{"File"}},
        Op{Op::RenameFolder{"G", "H"}},
        Op{Op::TrashFolder{"F"}},
        Op{Op::TrashNote{"trash.md"}},
        Op{Op::UpdateNote{"last.md", "new"}},
    });
    folder.write("edit.md", "edited elsewhere");
    std::filesystem::remove(folder / "prop.md");
    std::filesystem::remove(folder / "gone.md");
    std::filesystem::create_directory(folder / "Moved");
    std::filesystem::rename(folder / "moved.md", folder / "Moved/moved.md");
    folder.write("new.md", "theirs");
    folder.write("CASE.md", "theirs");
    folder.write("taken.md", "theirs");
    std::filesystem::create_directory(folder / "Made");
    folder.write("File", "");
    std::filesystem::create_directory(folder / "H");
    folder.write("F/unseen.md", "unseen");
    std::filesystem::remove(folder / "trash.md");
    const auto report = apply(previews);
    const std::string changed = " changed while you were reviewing — ask again for a fresh proposal";
    EXPECT_EQ(report.skipped, (Left{
                                  {"Rewrite edit.md (3 characters)", "edit.md" + changed},
                                  {"Set k: v on prop.md", "prop.md" + changed},
                                  {"Rename gone.md → there.md", "gone.md is no longer there"},
                                  {"Create new.md (4 characters)", "it appeared while you were reviewing"},
                                  {"Create case.md (4 characters)", "it appeared while you were reviewing"},
                                  {"Move F/x.md → taken.md", "taken.md now exists"},
                                  {"Create the folder Made/", "it already exists"},
                                  {"Create the folder File/", "a file is already called that"},
                                  {"Rename the folder G/ → H/", "H/ now exists"},
                                  {"Move the empty folder F/ to the vault's trash", "F/" + changed},
                                  {"Move trash.md to the vault's trash", "trash.md is no longer there"},
                              }));
    EXPECT_EQ(report.applied, (Strings{"Move moved.md → Moved/moved.md", "Rewrite last.md (3 characters)"}));
    EXPECT_TRUE(report.failed.empty());
    EXPECT_EQ(report.renamed, (std::map<std::string, std::string>{{"moved.md", "Moved/moved.md"}}));
    EXPECT_EQ(folder.read("edit.md"), "edited elsewhere");
    EXPECT_EQ(folder.read("new.md"), "theirs");
    EXPECT_EQ(folder.read("F/unseen.md"), "unseen");
    EXPECT_EQ(folder.read("last.md"), "new");
}

TEST_F(PlanExecution, TrashesAndMovesOnlyWhatWasShown) {
    for (const auto* path : {"F/x.md", "F/p.png", "G/x.md", "G/p.png", "note.md", "gone.md"}) {
        folder.write(path, "old");
    }
    folder.write("G/node_modules/page.html", "<p>");
    const auto previews = validate({Op{Op::TrashFolder{"F"}}, Op{Op::TrashFolder{"G"}},
                                    Op{Op::TrashNote{"note.md"}}, Op{Op::RenameNote{"gone.md", "there.md"}}});
    folder.write("F/unseen.png", "unseen");
    for (const auto* path : {"note.md", "gone.md"}) {
        std::filesystem::remove(folder / path);
        folder.write(std::string(path) + "/unseen.md", "unseen");
    }
    const auto report = apply(previews);
    EXPECT_EQ(report.applied,
              (Strings{"Move the folder G/ and its 1 note and 1 other file to the vault's trash"}))
        << "what nobody sees, a page among it, keeps no folder back";
    EXPECT_EQ(report.skipped,
              (Left{{"Move the folder F/ and its 1 note and 1 other file to the vault's trash",
                     "F/ changed while you were reviewing — ask again for a fresh proposal"},
                    {"Move note.md to the vault's trash", "note.md is no longer there"},
                    {"Rename gone.md → there.md", "gone.md is no longer there"}}));
    EXPECT_EQ(folder.read("F/unseen.png"), "unseen");
    EXPECT_EQ(folder.read("note.md/unseen.md"), "unseen");
}

TEST_F(PlanExecution, DoesNotDoWhatReliedOnAnUntickedOperation) {
    folder.write("a.md", "a");
    folder.write("b.md", "b");
    auto previews = validate(
        {Op{Op::TrashNote{"b.md"}}, Op{Op::RenameNote{"a.md", "b.md"}}, Op{Op::UpdateNote{"b.md", "new"}}});
    ASSERT_FALSE(previews[1].issue);
    previews.erase(previews.begin());
    const auto report = apply(previews);
    EXPECT_EQ(report.summary(), "0 applied · 2 skipped");
    EXPECT_EQ(folder.read("a.md"), "a");
    EXPECT_EQ(folder.read("b.md"), "b");
}

TEST_F(PlanExecution, ReportsFailuresAndGoesOn) {
    folder.write("a.md", "a");
    folder.write("b.md", "b");
    folder.write("away.md", "x");
    const auto previews =
        validate({Op{Op::UpdateNote{"a.md", "A"}}, Op{Op::RenameNote{"away.md", "X/away.md"}},
                  Op{Op::UpdateNote{"b.md", "B"}}});
    platform.files.fault = [&](std::string_view operation, const FilePath& path) -> std::optional<int> {
        const bool isMove = operation == "move" && path.filename() == "away.md";
        const bool isWrite =
            operation == "writeNew" && folder.read("a.md") == "a" && folder.read("b.md") == "b";
        static bool failedOnce = false;
        if (isMove) return EACCES;
        if (isWrite && !failedOnce) {
            failedOnce = true;
            return ENOSPC;
        }
        return {};
    };
    const auto report = apply(previews);
    platform.files.fault = nullptr;
    EXPECT_EQ(report.summary(), "1 applied · 2 failed");
    EXPECT_EQ(report.failed[0].operation, "Rewrite a.md (1 characters)");
    EXPECT_NE(report.failed[0].reason.find("No space left on device"), std::string::npos);
    EXPECT_EQ(folder.read("a.md"), "a");
    EXPECT_EQ(folder.read("b.md"), "B");
    EXPECT_EQ(folder.read("away.md"), "x");
}

TEST_F(PlanExecution, WaitsForNewerVersions) {
    folder.write("a.md", "a");
    const auto previews = validate({Op{Op::UpdateNote{"a.md", "A"}}});
    platform.ubiquity.set(
        folder / "a.md",
        {.isUbiquitous = true, .downloadingStatus = UbiquitySource::DownloadingStatus::downloaded});
    const auto report = apply(previews);
    EXPECT_EQ(report.skipped,
              (Left{{"Rewrite a.md (1 characters)",
                     "a newer version of a.md is still downloading from iCloud — ask again once "
                     "it has arrived"}}));
    EXPECT_EQ(folder.read("a.md"), "a");
}

TEST_F(PlanExecution, FollowsNoLinkOutOfTheVault) {
    const ScratchFolder outside;
    outside.write("secret.md", "secret");
    outside.write("Deep/secret.md", "deep");
    folder.write("a.md", "a");
    std::filesystem::create_directory_symlink(outside.path(), folder / "link");
    std::filesystem::create_symlink(outside / "secret.md", folder / "note.md");
    const std::vector<Op> hostile{
        Op{Op::CreateNote{"link/new.md", "x"}},
        Op{Op::UpdateNote{"link/secret.md", "x"}},
        Op{Op::UpdateNote{"note.md", "x"}},
        Op{Op::SetProperty{"note.md", "k", "v"}},
        Op{Op::RenameNote{"a.md", "link/a.md"}},
        Op{Op::RenameNote{"link/secret.md", "b.md"}},
        Op{Op::TrashNote{"link/secret.md"}},
        Op{Op::CreateFolder{"link/New"}},
        Op{Op::RenameFolder{"link/Deep", "Deep"}},
        Op{Op::TrashFolder{"link/Deep"}},
        Op{Op::TrashFolder{"link"}},
        Op{Op::CreateNote{"../up.md", "x"}},
        Op{Op::CreateNote{"/tmp/vesk-up.md", "x"}},
        Op{Op::RenameNote{"a.md", "x/../../up.md"}},
        Op{Op::CreateNote{std::string("a\0b.md", 6), ""}},
    };
    for (const auto& told : issues(hostile)) EXPECT_NE(told, "");
    // The same although the review let everything pass.
    auto previews = validate(hostile);
    for (auto& preview : previews) {
        preview.issue.reset();
        if (!preview.before) preview.before = "secret";
    }
    const auto report = apply(previews);
    EXPECT_TRUE(report.applied.empty());
    EXPECT_EQ(outside.read("secret.md"), "secret");
    EXPECT_EQ(outside.read("Deep/secret.md"), "deep");
    EXPECT_EQ(outside.list(), (Strings{"Deep", "secret.md"}));
    EXPECT_EQ(folder.read("a.md"), "a");

    std::filesystem::create_directory_symlink(outside.path(), folder / ".trash");
    EXPECT_EQ(apply(validate({Op{Op::TrashNote{"a.md"}}})).failed,
              (Left{{"Move a.md to the vault's trash", "\".trash\" is outside the vault."}}));
    EXPECT_EQ(outside.list(), (Strings{"Deep", "secret.md"}));
}

TEST_F(PlanExecution, FollowsNoFolderThatBecameALinkDuringTheReview) {
    const struct {
        Op operation;
        std::string reason;
    } rows[] = {
        {{Op::CreateNote{"Work/new.md", "x"}}, "\"Work/new.md\" is outside the vault."},
        {{Op::CreateNote{"Work/New/new.md", "x"}}, "\"Work/New/new.md\" is outside the vault."},
        {{Op::UpdateNote{"Work/a.md", "x"}}, "\"Work/a.md\" is outside the vault."},
        {{Op::SetProperty{"Work/a.md", "k", "v"}}, "\"Work/a.md\" is outside the vault."},
        {{Op::RemoveProperty{"Work/a.md", "k"}}, "\"Work/a.md\" is outside the vault."},
        {{Op::RenameNote{"Work/a.md", "a.md"}}, "\"Work/a.md\" is outside the vault."},
        {{Op::RenameNote{"b.md", "Work/b.md"}}, "\"Work/b.md\" is outside the vault."},
        {{Op::TrashNote{"Work/a.md"}}, "\"Work/a.md\" is outside the vault."},
        {{Op::CreateFolder{"Work/New"}}, "\"Work/New\" is outside the vault."},
        {{Op::RenameFolder{"Work/Deep", "Deep"}}, "\"Work/Deep\" is outside the vault."},
        {{Op::RenameFolder{"Home", "Work/Home"}}, "\"Work/Home\" is outside the vault."},
        {{Op::TrashFolder{"Work/Deep"}}, "\"Work/Deep\" is outside the vault."},
        {{Op::RenameFolder{"Work", "Job"}}, "Work/ is no longer there"},
        {{Op::TrashFolder{"Work"}}, "Work/ is no longer there"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.operation.describedForReview());
        const PlatformFixture world;
        const Vault here(world.vaultFolder.path(), SyncProvider::none);
        const auto fill = [](const ScratchFolder& where, const std::string& below) {
            where.write(below + "a.md", "---\nk: 1\n---\na");
            where.write(below + "Deep/c.md", "c");
        };
        fill(world.vaultFolder, "Work/");
        world.vaultFolder.write("b.md", "b");
        world.vaultFolder.write("Home/h.md", "h");
        const auto previews = VaultPlanExecutor::validate(
            {.summary = "s", .operations = {row.operation}, .annotations = {}}, here);
        ASSERT_FALSE(previews.front().isBlocked());
        // The same texts, so that nothing looks as if it had changed.
        const ScratchFolder outside;
        fill(outside, "");
        std::filesystem::rename(world.vaultFolder / "Work", world.vaultFolder / ".aside");
        std::filesystem::create_directory_symlink(outside.path(), world.vaultFolder / "Work");
        const auto report = apply(previews, here);
        EXPECT_EQ(report.applied, Strings());
        const auto left = report.failed.empty() ? report.skipped : report.failed;
        EXPECT_EQ(left, (Left{{previews.front().description, row.reason}}));
        EXPECT_EQ(outside.list(), (Strings{"Deep", "a.md"}));
        EXPECT_EQ(outside.list("Deep"), Strings{"c.md"});
        EXPECT_EQ(outside.read("a.md"), "---\nk: 1\n---\na");
        EXPECT_EQ(world.vaultFolder.list(), (Strings{".aside", "Home", "Work", "b.md"}));
    }
}

TEST_F(PlanExecution, FindsNamesInAnySpelling) {
    folder.write("Cafe\u0301/no\u0308te.md", "x");  // decomposed, as some systems keep names
    const auto report = apply(
        validate({Op{Op::UpdateNote{"Café/nöte.md", "X"}}, Op{Op::RenameNote{"Café/nöte.md", "Café/new.md"}},
                  Op{Op::CreateNote{"CAFÉ/NEW.md", ""}}}));
    EXPECT_EQ(report.summary(), "2 applied · 1 skipped");
    EXPECT_EQ(folder.list(), (Strings{"Cafe\u0301"}));
    EXPECT_EQ(folder.read("Cafe\u0301/new.md"), "X");
}

TEST(PlanProperties, StayWithinTheirKey) {
    const struct {
        std::string_view key, value, text;
        std::string expected;
    } rows[] = {
        {"status", "done", "a\n", "---\nstatus: done\n---\na\n"},
        {"count", "3", "---\nk: v\n---\na", "---\nk: v\ncount: 3\n---\na"},
        {"k", "x\n---\n# Injected", "---\nk: v\n---\na", "---\nk: \"x\\n---\\n# Injected\"\n---\na"},
        {"k", "{a: b", "a", "---\nk: \"{a: b\"\n---\na"},
        {"remind", "2026-09-18", "a", "---\nremind: 2026-09-18T09:00\n---\na\n"},
        {"repeat", "Every Week", "---\nremind: 2026-09-18T09:00\n---\na",
         "---\nremind: 2026-09-18T09:00\nrepeat: weekly\n---\na"},
    };
    for (const auto& row : rows) {
        const auto set = VaultPlanExecutor::setting(row.key, row.value, row.text);
        EXPECT_EQ(set.text, row.expected) << row.value;
    }
    EXPECT_EQ(VaultPlanExecutor::removing("remind", "---\nremind: 2026-09-18\nrepeat: daily\nk: v\n---\na\n"),
              "---\nk: v\n---\na\n");
    EXPECT_EQ(VaultPlanExecutor::removing("none", "a"), "a");
    EXPECT_EQ(VaultPlanExecutor::removing("remind", "---\nrepeat: daily\n---\na\n"),
              "---\nrepeat: daily\n---\na\n")
        << "there is nothing to remove";
}

}  // namespace
}  // namespace vesk::test
