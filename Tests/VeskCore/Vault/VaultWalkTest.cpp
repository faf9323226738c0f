#include <fmt/format.h>
#include <gtest/gtest.h>

#include <cerrno>

#include "Support/Fakes.h"
#include "VeskCore/Support/VirtualTime.h"
#include "VeskCore/Vault/FolderAsk.h"
#include "VeskCore/Vault/VaultFolderPresenter.h"
#include "VeskCore/Vault/VaultWalk.h"

namespace vesk::test {
namespace {

using namespace std::chrono_literals;
using Download = UbiquitySource::DownloadingStatus;
using Names = std::vector<std::string>;
using Values = UbiquitySource::Values;

constexpr Values stale{.isUbiquitous = true, .downloadingStatus = Download::downloaded};
constexpr Values notDownloaded{.isUbiquitous = true, .downloadingStatus = Download::notDownloaded};

class VaultWalkTest : public ::testing::Test {
protected:
    PlatformFixture platform;
    const ScratchFolder& folder = platform.vaultFolder;
    VirtualTime time;
};

TEST_F(VaultWalkTest, CountsAndAsksForWhatIsOwed) {
    platform.ubiquity.setUbiquitousFolder(folder.path());
    folder.write("a/here.md", "x");
    platform.ubiquity.set(folder.write("stale.md", "old"), stale);
    platform.ubiquity.set(folder.write("far.md", ""), notDownloaded);
    folder.write(".stub.md.icloud", "");
    platform.ubiquity.set(folder.write("p.html", "old"), stale);
    folder.write(".q.css.icloud", "");
    folder.write(".hidden/x.md", "x");
    const Vault cloud(folder.path(), SyncProvider::iCloudDrive);

    Names asked;
    const auto ask = [&](const FilePath& path) {
        asked.push_back(path.filename().native());
        if (path.filename() == "far.md") throw SystemError(EIO, "download", path.native());
    };
    const VaultListing listing =
        VaultWalk::walk(cloud, DownloadAsk::everythingOwed, DownloadAsk::staleOnly, time, ask);
    std::sort(asked.begin(), asked.end());
    EXPECT_EQ(asked, (Names{"far.md", "p.html", "stale.md", "stub.md"}));
    EXPECT_EQ(listing.stubCount, 1);
    EXPECT_EQ(listing.owedCount, 3);
    EXPECT_EQ(listing.requested, 2);
    EXPECT_EQ(listing.documentOwedCount, 2);
    EXPECT_EQ(listing.documentRequested, 1);
    EXPECT_EQ(listing.folders, Names{"a"});
    EXPECT_EQ(listing.takenAt, time.now());
    EXPECT_TRUE(listing.stamps.at("stub.md").needsDownload);
    EXPECT_FALSE(listing.stamps.at("a/here.md").needsDownload);
    EXPECT_EQ(VaultWalk::stamp(cloud, "stale.md"), listing.stamps.at("stale.md"));
    EXPECT_TRUE(VaultWalk::stamp(cloud, "stub.md")->needsDownload);
    EXPECT_EQ(VaultWalk::stamp(cloud, "absent.md"), std::nullopt);

    asked.clear();
    const VaultListing elsewhere =
        VaultWalk::walk(Vault(folder.path(), SyncProvider::dropbox), DownloadAsk::everythingOwed,
                        DownloadAsk::everythingOwed, time, ask);
    EXPECT_EQ(asked, Names{});
    EXPECT_EQ(elsewhere.owedCount + elsewhere.stubCount + elsewhere.requested, 0);
    EXPECT_FALSE(elsewhere.stamps.at("stale.md").needsDownload);
}

TEST(VaultWalk, AsksForLargeDocumentsOnlyToRenewThem) {
    using State = UbiquityState;
    const std::int64_t large = 6 * 1024 * 1024, limit = 0x500000;
    EXPECT_TRUE(VaultWalk::asksForDocument(State::stale, large, DownloadAsk::staleOnly));
    EXPECT_FALSE(VaultWalk::asksForDocument(State::placeholder, large, DownloadAsk::everythingOwed));
    EXPECT_TRUE(VaultWalk::asksForDocument(State::placeholder, limit, DownloadAsk::everythingOwed));
    EXPECT_TRUE(VaultWalk::asksForDocument(State::downloading, {}, DownloadAsk::everythingOwed));
    EXPECT_FALSE(VaultWalk::asksForDocument(State::placeholder, {}, DownloadAsk::staleOnly));
    EXPECT_FALSE(VaultWalk::asksForDocument(State::stale, 1, DownloadAsk::nothing));
    EXPECT_FALSE(VaultWalk::asksForDocument(State::materialised, 1, DownloadAsk::everythingOwed));
}

/// A provider that looks at a folder for some time, or until it is cancelled.
class SlowCoordinator final : public FolderCoordinator {
public:
    SlowCoordinator(Clock& clock, Duration delay, std::function<void()> look)
        : clock_(clock), delay_(delay), look_(std::move(look)) {}
    void read(const FilePath& folder, bool, const std::function<void()>& body) override {
        if (!clock_.sleep(delay_, stop_.get_token())) throw CoordinationCancelled();
        if (folder.filename() == "broken") throw SystemError(EIO, "coordinate", "broken");
        if (look_) look_();
        body();
    }
    void cancel() override { stop_.request_stop(); }

private:
    Clock& clock_;
    Duration delay_;
    std::function<void()> look_;
    std::stop_source stop_;
};

class FolderAskTest : public VaultWalkTest {
protected:
    Duration delay = 0s;
    std::function<void()> look;
    FolderAsker asker{Vault(folder.path(), SyncProvider::iCloudDrive),
                      [this] { return std::make_shared<SlowCoordinator>(time, delay, look); }, time, time};
    std::shared_ptr<AskCancellation> cancel = std::make_shared<AskCancellation>(AskClass::automatic);
    std::optional<std::vector<FolderAsk>> answer;

    void ask(const Names& folders, double perFolder, double budget,
             FolderAskMode mode = FolderAskMode::full) {
        asker.ask(folders, mode, Seconds(perFolder), Seconds(budget), cancel,
                  [this](std::vector<FolderAsk> asks) { answer = std::move(asks); });
    }
    Names outcomes() const {
        Names words;
        for (const FolderAsk& one : answer.value()) {
            const auto* plain = std::get_if<FolderAsk::Outcome::Plain>(&one.outcome.value);
            using Plain = FolderAsk::Outcome::Plain;
            words.push_back(fmt::format("'{}' {} after {}", one.folder,
                                        !plain                      ? "failed"
                                        : *plain == Plain::done     ? "done"
                                        : *plain == Plain::timedOut ? "timed out"
                                                                    : "cancelled",
                                        one.waited.count()));
        }
        return words;
    }
};

TEST_F(FolderAskTest, TellsWhichNotesCameIntoView) {
    folder.write("n/.old.md.icloud", "");
    look = [&] {
        for (const char* name : {"n/new.md", "n/.far.txt.icloud", "n/.x.md", "n/picture.png", "n/old.md"})
            folder.write(name, "");
    };
    ask({"n", "broken"}, 4, 6);
    time.runToRest(1h);
    EXPECT_EQ(outcomes(), (Names{"'n' done after 0", "'broken' failed after 0"}));
    EXPECT_EQ(answer->at(0).revealed, (Names{"far.txt", "new.md"}));
    EXPECT_EQ(answer->at(1).outcome,
              (FolderAsk::Outcome{FolderAsk::Outcome::Failed{"coordinate broken: Input/output error"}}));
}

TEST_F(FolderAskTest, AHungProviderCostsItsTimeAndNoMore) {
    delay = 1h;
    ask({"a", "b", "c"}, 4, 6);
    time.advance(10s);
    EXPECT_EQ(outcomes(), (Names{"'a' timed out after 4", "'b' timed out after 2"}));
}

TEST_F(FolderAskTest, LeavingEndsTheAskThatWaits) {
    delay = 3s;
    ask({"a", "b"}, 4, 60);
    time.advance(4s);
    cancel->cancel();
    time.advance(1s);
    EXPECT_EQ(outcomes(), (Names{"'a' done after 3", "'b' cancelled after 1"}));
    answer.reset();
    ask({"a"}, 4, 60);
    time.advance(1s);
    EXPECT_EQ(outcomes(), Names{});
}

TEST_F(FolderAskTest, AsksNothingWhereThereIsNobodyToAsk) {
    ask({"a"}, 4, 6, FolderAskMode::off);
    time.advance(1s);
    EXPECT_EQ(outcomes(), Names{});
    FolderAsker plain{Vault(folder.path(), SyncProvider::dropbox),
                      [this] { return std::make_shared<SlowCoordinator>(time, delay, look); }, time, time};
    EXPECT_TRUE(plain.askProvider({"a"}, FolderAskMode::full, Seconds(4), Seconds(6), *cancel).empty());
}

/// The system's side of a presenter.
class FakePresenting final : public FolderPresenting {
public:
    bool timesOut = false;
    int present = 0;
    std::function<void()> duringAdd, evict;
    std::function<void(const PresenterEvent&)> send;

    bool add(const FilePath&, Seconds, std::function<void(const PresenterEvent&)> onEvent,
             std::function<void()> onEviction) override {
        if (duringAdd) duringAdd();
        if (timesOut) return false;
        ++present;
        send = std::move(onEvent);
        evict = std::move(onEviction);
        return true;
    }
    void remove() override { --present; }
};

TEST(VaultFolderPresenter, RegistersByTicketAndTellsWhatItHears) {
    using Counts = VaultFolderPresenter::Counts;
    FakePresenting system;
    Names heard;
    VaultFolderPresenter presenter("/v", system,
                                   [&](const PresenterEvent& event) { heard.emplace_back(event.kind()); });
    EXPECT_FALSE(presenter.registerPresenter(7, Seconds(1)));
    system.timesOut = true;
    EXPECT_FALSE(presenter.registerPresenter(0, Seconds(1)));
    system.timesOut = false;
    EXPECT_TRUE(presenter.registerPresenter(0, Seconds(1)));
    EXPECT_TRUE(presenter.registerPresenter(0, Seconds(1)));
    EXPECT_EQ(system.present, 1);
    system.send({PresenterEvent::FolderMoved{"/w"}});
    system.send({PresenterEvent::SubitemMoved{"/w/a", "/w/b"}});
    system.send({PresenterEvent::RootUbiquity{{"x"}}});
    EXPECT_EQ(presenter.root(), "/w");
    system.send({PresenterEvent::FolderGoingAway{}});
    EXPECT_TRUE(presenter.isAdded());
    system.evict();
    EXPECT_FALSE(presenter.isAdded());
    EXPECT_EQ(heard, (Names{"folderMoved", "subitemMoved", "rootUbiquity", "folderGoingAway"}));
    EXPECT_EQ(presenter.currentCounts(), (Counts{1, 1, 1, 4}));

    // Left while the registration was under way.
    EXPECT_EQ(presenter.registrationTicket(), 1);
    system.duringAdd = [&] { presenter.unregister(); };
    EXPECT_FALSE(presenter.registerPresenter(1, Seconds(1)));
    EXPECT_EQ(system.present, 0);
    EXPECT_FALSE(presenter.isAdded());
}

}  // namespace
}  // namespace vesk::test
