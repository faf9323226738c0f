// Plans against a vault that doesn't stand still: random plans are reviewed while other devices, other
// programs and the sync service change the notes, and carried out while calls fail and the service comes in
// between. What was not shown and ticked is never done, everything is reported, nothing is lost, and what a
// plan removes is in the vault's trash.
//
// The ordinary run takes a few hundred plans. VESK_PLANS=100000 takes so many, from VESK_PLANS_SEED on, and
// tells of a single one what happens.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <set>

#include "Simulation/MemoryFiles.h"
#include "Simulation/Oracle.h"
#include "Simulation/SyncService.h"
#include "Simulation/Texts.h"
#include "Simulation/WorldTime.h"
#include "VeskCore/Brain/VaultPlanExecutor.h"
#include "VeskCore/Brain/VaultPlanner.h"
#include "VeskCore/Markdown/FrontmatterDoc.h"
#include "VeskCore/Platform/FilePlatform.h"
#include "VeskCore/Support/Json.h"
#include "VeskCore/Support/Match.h"
#include "VeskCore/Support/PathText.h"
#include "VeskCore/Vault/AtomicWrite.h"

namespace vesk::simulation {
namespace {

using Op = VaultOperation;
using VaultPlanExecutor::Preview;
using VaultPlanExecutor::Report;

const std::string root = "/vault", outside = "/outside";

/// Files are current, or what the service says of them.
class ServiceStatus final : public UbiquitySource {
public:
    bool isActive = false;
    SyncService* service = nullptr;

    std::optional<Values> values(const FilePath& path) const override {
        if (!isActive || !path.native().starts_with(root)) return Values{};
        Values values{
            .isUbiquitous = true, .isDownloading = false, .downloadingStatus = DownloadingStatus::current};
        if (path.native().size() > root.size() &&
            service->statusOf(path.native().substr(root.size() + 1)) != SyncService::Status::current) {
            values.downloadingStatus = DownloadingStatus::downloaded;
        }
        return values;
    }
    bool isDataless(const FilePath&) const override { return false; }
    void startDownload(const FilePath& path) override {
        if (!isActive) throw SystemError(ENOTSUP, "download", path.native());
        if (path.native().size() > root.size()) service->request(path.native().substr(root.size() + 1));
    }
    void withoutMaterialising(const std::function<void()>& body) override { body(); }
};

/// One plan's life.
class PlanWorld {
public:
    /// With `tells` the plan is printed, and each call of the process to the file system.
    PlanWorld(std::uint64_t seed, bool tells)
        : tells_(tells),
          random_(seed),
          hasPlaceholders_(below(3) == 0),
          time_(WorldTime::make(false)),
          files_(*time_),
          service_(
              files_, oracle_, texts_, root,
              {.devices = 2, .leavesPlaceholders = hasPlaceholders_, .renamesTheLocalSide = below(2) == 0}),
          installation_(
              FilePlatform{.files = &files_, .coordination = &coordination_, .ubiquity = &status_}) {
        isCalm_ = below(3) == 0;
        files_.hasExchange = below(4) != 0;
        files_.supportDirectory = "/support";
        status_.service = &service_;
        status_.isActive = hasPlaceholders_;
        for (const auto* path : {"a.md", "b.md", "n/c.md", "n/deep/d.md", "m/a.md"}) {
            if (below(5) != 0) putText(path, texts_.changed(texts_.fresh(), below(7)));
        }
        if (below(2) == 0) putText("n/picture.png", texts_.fresh());
        if (below(2) == 0) putText("site/index.html", texts_.fresh());
        if (below(2) == 0) putText("site/.hidden/x.md", texts_.fresh());
        files_.put(outside + "/secret.md", "secret", false);
        service_.begin();
        files_.fate = [this](std::string_view operation, const FilePath& path, bool mutates) {
            return fateOf(operation, path.native(), mutates);
        };
    }
    ~PlanWorld() { files_.fate = nullptr; }

    std::optional<std::string> run() {
        const auto plan = randomPlan();
        if (!plan) return fault_;
        review(*plan);
        if (fault_) return fault_;
        if (!isCalm_) {
            for (int i = below(6); i > 0; --i) somethingHappens();
        }
        carryOut();
        // What the service has under way is in its hands alone until it has caught up.
        if (!fault_ && isCalm_) judge("after the plan");
        for (int i = 0; i < 4 && !fault_; ++i) service_.catchUp();
        if (!fault_) judge("once the service has caught up");
        return fault_;
    }
    /// What the plans of a run did, so that a run in which nothing happens is seen.
    struct Counts {
        std::size_t applied = 0, skipped = 0, failed = 0, blocked = 0;
    };
    const Counts& counts() const { return counts_; }

private:
    int below(int limit) { return static_cast<int>(random_() % static_cast<unsigned>(limit)); }
    template <class List>
    auto oneOf(const List& list) {
        return *(std::begin(list) + below(static_cast<int>(std::size(list))));
    }
    void broken(const std::string& what) {
        if (!fault_) fault_ = what;
    }
    static std::string absolute(const std::string& path) { return root + "/" + path; }
    void putText(const std::string& path, const std::string& text) {
        oracle_.made(text, {});
        oracle_.stands(text);
        files_.put(absolute(path), text, false);
    }

    // The plan

    std::string notePath() {
        static const std::vector<std::string> hostile = {"../secret.md",
                                                         "/outside/secret.md",
                                                         "n/../../outside/secret.md",
                                                         ".trash/a.md",
                                                         "n/.hidden/x.md",
                                                         "site/index.html",
                                                         "node_modules/x.md",
                                                         "A.md",
                                                         "N/C.md",
                                                         "n/picture.png",
                                                         "n",
                                                         "./a",
                                                         ".vesk/style.css.md"};
        if (below(10) == 0) return oneOf(hostile);
        if (below(3) == 0) return "x/new " + std::to_string(below(3)) + ".md";
        if (below(4) == 0) return "n/deep/d.md";
        return oneOf(SyncService::places());
    }
    /// A note that is there.
    std::string existing() {
        std::vector<std::string> notes;
        for (const auto& note : vault_.enumerateNotes()) notes.push_back(note.relativePath);
        return notes.empty() ? notePath() : oneOf(notes);
    }
    /// None that is called like a note: the service would put the note in its place.
    std::string folderPath() {
        static const std::vector<std::string> hostile = {"site", "N", "", "..", ".trash", "/"};
        static const std::vector<std::string> folders = {"n", "m", "k", "n/deep", "m/n", "x"};
        return oneOf(below(8) == 0 ? hostile : folders);
    }
    Json randomOperation() {
        const auto path = below(3) == 0 ? notePath() : existing();
        switch (below(9)) {
            case 0:
                return Json::object({{"op", "create"}, {"path", notePath()}, {"content", texts_.fresh()}});
            case 1:
                return Json::object({{"op", "update"}, {"path", path}, {"content", texts_.fresh()}});
            case 2:
                return Json::object({{"op", "rename"}, {"from", path}, {"to", notePath()}});
            case 3:
                return Json::object({{"op", "move"}, {"path", path}, {"to_folder", folderPath()}});
            case 4: {
                static const std::vector<std::pair<std::string, std::string>> properties = {
                    {"status", "done"},   {"remind", "2026-09-18T09:00"}, {"remind", "soon"},
                    {"repeat", "weekly"}, {"k", "x\n---\n# Injected"},    {"tags", "a, b"}};
                const auto [key, value] = oneOf(properties);
                return Json::object({{"op", "set_property"}, {"path", path}, {"key", key}, {"value", value}});
            }
            case 5:
                return Json::object({{"op", "remove_property"}, {"path", path}, {"key", "remind"}});
            case 6:
                return Json::object({{"op", "trash"}, {"path", path}});
            case 7:
                return below(2) == 0 ? Json::object({{"op", "create_folder"}, {"path", folderPath()}})
                                     : Json::object({{"op", "trash_folder"}, {"path", folderPath()}});
            default:
                return Json::object({{"op", "rename_folder"}, {"from", folderPath()}, {"to", folderPath()}});
        }
    }
    std::optional<VaultPlan> randomPlan() {
        Json::Array operations;
        for (int i = 1 + below(7); i > 0; --i) operations.push_back(randomOperation());
        const Json plan = Json::object({{"summary", "s"}, {"operations", Json(std::move(operations))}});
        try {
            return VaultPlanner::parse("So:\n```json\n" + plan.dump() + "\n```");
        } catch (const VaultPlanError&) {
            return std::nullopt;  // none of it could be read
        }
    }

    void review(const VaultPlan& plan) {
        const auto before = everything();
        if (below(8) == 0) limit_ = oneOf(SyncService::places());
        std::vector<std::string> forbidden;
        if (below(8) == 0) forbidden.push_back("m");
        previews_ = VaultPlanExecutor::validate(plan, vault_, limit_, forbidden);
        if (previews_.size() != plan.operations.size()) broken("an operation has no preview");
        if (everything() != before) broken("the review changed the vault");
        for (const auto& preview : previews_) {
            if (isCalm_ || below(5) != 0) ticked_.push_back(preview);
        }
    }

    // The others

    void somethingHappens() {
        const int device = below(2), what = below(9);
        if (tells_) std::printf("  something happens: %d, device %d\n", what, device);
        switch (what) {
            case 0:
            case 1:
                return service_.edit(device, below(8), below(7));
            case 2:
                return service_.create(device, below(8));
            case 3:
                return service_.move(device, below(8), below(8));
            case 4:
                return service_.trash(device, below(8));
            case 5:
                return service_.look(device);
            case 6: {  // another program on this machine
                const auto path = oneOf(SyncService::places());
                const auto seen = files_.textAt(absolute(path));
                if (files_.isFolder(absolute(path)) || (!seen && files_.isTaken(absolute(path)))) return;
                const auto text = texts_.changed(seen.value_or(""), below(7));
                oracle_.made(text, seen);
                oracle_.stands(text);
                files_.put(absolute(path), text, below(2) == 0);
                return;
            }
            case 7:
                files_.rename(absolute(oneOf(SyncService::places())),
                              absolute("n/other " + std::to_string(below(3))));
                return;
            default:
                return service_.tick(random_);
        }
    }

    Fate fateOf(std::string_view operation, const std::string& path, bool mutates) {
        if (!isCarryingOut_) return {};
        if (tells_) std::printf("%s %s\n", std::string(operation).c_str(), path.c_str());
        // Without an exchange nobody can see who writes between the last look and the replacement.
        if (!isCalm_ && !isInside_ && operation != "replace" && below(24) == 0) {
            isInside_ = true;  // between two calls
            somethingHappens();
            isInside_ = false;
        }
        if (!mutates) return {};
        requireAllowed(operation, path);
        if (isCalm_ || below(20) != 0) return {};
        const int errors[] = {EIO, ENOSPC, EACCES};
        return {.error = oneOf(errors), .happens = false};
    }

    // What the process may do

    /// Changes only where a ticked row says so, and never away from the vault but into its trash.
    void requireAllowed(std::string_view operation, const std::string& path) {
        if (operation == "setAttribute" || operation == "carryMetadata" || operation == "setCreationDate") {
            return requireBelow(path, operation);
        }
        const auto name = lastComponent(path);
        if (operation == "remove" || operation == "removeTree") {
            if (!name.starts_with(".vesk-tmp-")) broken("removed for good: " + path);
            return;
        }
        requireBelow(path, operation);
    }
    void requireBelow(const std::string& path, std::string_view operation) {
        if (!path.starts_with(root + "/") && path != root) {
            return broken("outside the vault: " + std::string(operation) + " " + path);
        }
        const std::string relative = path == root ? "" : path.substr(root.size() + 1);
        if (relative == ".trash" || relative.starts_with(".trash/")) return;
        for (const auto& place : allowed_) {
            // A parent that is made, the place itself, a temporary file beside it, what lies in a folder.
            if (isAtOrBelow(place, relative) && operation == "createDirectories") return;
            if (isAtOrBelow(relative, place)) return;
            if (lastComponent(relative).starts_with(".vesk-tmp-") &&
                parentFolder(relative) == parentFolder(place))
                return;
        }
        broken("not shown or not ticked: " + std::string(operation) + " " + relative);
    }
    static std::vector<std::string> placesOf(const Op& operation) {
        if (const auto* it = std::get_if<Op::CreateFolder>(&operation.value)) return {it->path};
        if (const auto* it = std::get_if<Op::RenameFolder>(&operation.value)) return {it->from, it->to};
        if (const auto* it = std::get_if<Op::TrashFolder>(&operation.value)) return {it->path};
        return operation.notePaths();
    }

    void write(const std::string& text, const FilePath& path, const ForeignEdit::Disk& expected) {
        const auto* found = std::get_if<ForeignEdit::Disk::Text>(&expected.value);
        const auto relative = path.native().substr(root.size() + 1);
        const bool isShown = std::any_of(ticked_.begin(), ticked_.end(), [&](const Preview& preview) {
            const auto paths = preview.operation.notePaths();
            if (preview.isBlocked() || paths.empty() || paths.front() != relative) return false;
            if (preview.after == text && (!found || preview.before == found->text)) return true;
            return found && preview.after == FrontmatterDoc(text).serialized() &&
                   preview.before == FrontmatterDoc(found->text).serialized();
        });
        if (!isShown) broken("a text that no ticked row shows goes to " + relative);
        oracle_.made(text, found ? std::optional(found->text) : std::nullopt);
        CoordinatedIO::replaceText(path, text, found ? std::optional(found->text) : std::nullopt);
        oracle_.stands(text);
    }

    void carryOut() {
        for (const auto& preview : ticked_) {
            if (preview.isBlocked()) {
                ++counts_.blocked;
                continue;
            }
            for (auto& place : placesOf(preview.operation)) allowed_.push_back(std::move(place));
            if (limit_ && placesOf(preview.operation).empty()) broken("beyond the one note");
        }
        if (tells_) {
            for (const auto& preview : ticked_) {
                std::printf("%s%s\n", preview.description.c_str(), preview.isBlocked() ? " (blocked)" : "");
            }
            for (const auto& [path, text] : everything()) std::printf("%s: %s\n", path.c_str(), text.c_str());
        }
        const auto before = everything();
        isCarryingOut_ = true;
        const auto report = VaultPlanExecutor::apply(
            ticked_, vault_,
            [this](const std::string& text, const FilePath& path, const ForeignEdit::Disk& expected) {
                write(text, path, expected);
            });
        isCarryingOut_ = false;
        counts_.applied += report.applied.size();
        counts_.skipped += report.skipped.size();
        counts_.failed += report.failed.size();
        if (report.applied.size() + report.skipped.size() + report.failed.size() != ticked_.size()) {
            broken("a ticked row is missing in the report");
        }
        if (isCalm_) judgeCalm(report, before);
    }

    using Files = std::map<std::string, std::string>;
    Files everything() const {
        Files all;
        for (const auto& [path, bytes] : files_.filesBelow("/")) all.emplace("/" + path, *bytes);
        return all;
    }

    /// In a vault that stands still a plan does all that its review promised.
    void judgeCalm(const Report& report, const Files& before) {
        if (report.skipped.size() != counts_.blocked) {
            broken("skipped though nothing changed: " + report.skipped.back().operation + ": " +
                   report.skipped.back().reason);
        }
        if (!report.failed.empty()) {
            broken("failed though nothing changed: " + report.failed.front().operation + ": " +
                   report.failed.front().reason);
        }
        const auto now = everything();
        for (const auto& [from, to] : report.renamed) {
            const auto old = before.find(absolute(from));
            if (old == before.end()) continue;  // made by the plan itself
            if (!now.contains(absolute(to)) && !report.removed.contains(to)) {
                broken(from + " is not at " + to + ", where the report has it");
            }
        }
        const auto isTrashed = [](const auto& file) { return file.first.starts_with(root + "/.trash/"); };
        const auto trashed = std::count_if(now.begin(), now.end(), isTrashed);
        if (static_cast<std::size_t>(trashed) < report.removed.size())
            broken("not all that went is in the trash");
        for (const auto& [path, text] : before) {
            if (!path.starts_with(root + "/") || now.contains(path)) continue;
            const auto relative = path.substr(root.size() + 1);
            if (Vault::indexedKind(relative) != IndexedKind::note || relative.find("/.") != std::string::npos)
                continue;
            if (!report.renamed.contains(relative) && !report.removed.contains(relative)) {
                broken(relative + " went without a word in the report");
            }
        }
    }
    void judge(const std::string& when) {
        std::vector<std::string> found = service_.textsElsewhere();
        for (const auto& [path, text] : everything()) {
            if (path == outside + "/secret.md") {
                if (text != "secret") broken("the file outside was changed " + when);
            } else if (!path.starts_with(root + "/")) {
                broken("a file outside the vault " + when + ": " + path);
            } else if (!lastComponent(path).starts_with(".vesk-tmp-")) {
                found.push_back(text);
            }
        }
        const auto lost = oracle_.lost(found);
        if (!lost.empty()) broken("lost " + when + ": " + lost.front());
    }

    const bool tells_;
    std::mt19937_64 random_;
    const bool hasPlaceholders_;
    std::unique_ptr<WorldTime> time_;
    Oracle oracle_;
    Texts texts_;
    MemoryFiles files_;
    SyncService service_;
    ServiceStatus status_;
    PlainCoordination coordination_;
    FilePlatformInstallation installation_;
    const Vault vault_{root, hasPlaceholders_ ? SyncProvider::iCloudDrive : SyncProvider::none};
    bool isCalm_ = false, isCarryingOut_ = false, isInside_ = false;
    std::optional<std::string> limit_;
    std::vector<Preview> previews_, ticked_;
    std::vector<std::string> allowed_;
    std::optional<std::string> fault_;
    Counts counts_;
};

std::uint64_t setting(const char* name, std::uint64_t usual) {
    const char* given = std::getenv(name);
    return given && *given ? std::strtoull(given, nullptr, 10) : usual;
}

TEST(PlanSimulation, DoesWhatWasShownAndLosesNothing) {
    const auto first = setting("VESK_PLANS_SEED", 1), count = setting("VESK_PLANS", 600);
    PlanWorld::Counts all;
    int faults = 0;
    for (auto seed = first; seed < first + count && faults < 5; ++seed) {
        PlanWorld world(seed, count == 1);
        if (const auto fault = world.run()) {
            ++faults;
            ADD_FAILURE() << "seed " << seed << ": " << *fault;
        }
        all.applied += world.counts().applied;
        all.skipped += world.counts().skipped;
        all.failed += world.counts().failed;
        all.blocked += world.counts().blocked;
    }
    std::printf(
        "%llu plans: %zu operations applied, %zu skipped (%zu of them blocked in the review), %zu failed\n",
        static_cast<unsigned long long>(count), all.applied, all.skipped, all.blocked, all.failed);
    if (count < 100) return;
    EXPECT_GT(all.applied, count / 2);
    EXPECT_GT(all.skipped, all.blocked) << "something became stale";
    EXPECT_GT(all.failed, 0U);
}

}  // namespace
}  // namespace vesk::simulation
