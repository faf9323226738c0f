#include "VeskCore/Vault/FolderAsk.h"

#include <algorithm>
#include <chrono>
#include <iterator>
#include <set>
#include <utility>

#include "VeskCore/Platform/FilePlatform.h"

namespace vesk {

namespace {

/// Less time than this isn't worth beginning an ask.
constexpr Seconds leastTime{0.05};

/// The end of an ask by its time, told apart from an end by the user.
class AskTimeout {
public:
    /// False if the ask has ended already.
    bool fire() {
        const std::lock_guard lock(firedLock_);
        if (ended_) return false;
        return didFire_ = true;
    }
    /// Whether the time ran out.
    bool end() {
        const std::lock_guard lock(firedLock_);
        ended_ = true;
        return didFire_;
    }

private:
    std::mutex firedLock_;
    bool didFire_ = false, ended_ = false;
};

/// The notes that a folder shows, stubs under the names that they stand for.
std::set<std::string> visibleNotes(const FilePath& folder) {
    std::set<std::string> notes;
    std::vector<std::string> names;
    try {
        names = FilePlatform::current().files->list(folder);
    } catch (const Error&) {
        return notes;
    }
    for (const std::string& name : names) {
        if (auto logical = Vault::logicalNoteName(name)) {
            notes.insert(std::move(*logical));
        } else if (!name.starts_with('.') && Vault::indexedKind(name) == IndexedKind::note) {
            notes.insert(name);
        }
    }
    return notes;
}

}  // namespace

std::string_view rawValue(FolderAskMode mode) {
    switch (mode) {
        case FolderAskMode::off:
            return "off";
        case FolderAskMode::metadataOnly:
            return "metadataOnly";
        case FolderAskMode::full:
            return "full";
    }
    return {};
}

bool AskCancellation::begin(std::shared_ptr<FolderCoordinator> coordinator) {
    const std::lock_guard lock(coordinatorLock_);
    if (!cancelled_) coordinator_ = std::move(coordinator);
    return !cancelled_;
}

void AskCancellation::cancel() {
    std::shared_ptr<FolderCoordinator> waiting;
    {
        const std::lock_guard lock(coordinatorLock_);
        cancelled_ = true;
        waiting = std::exchange(coordinator_, nullptr);
    }
    if (waiting) waiting->cancel();
}

bool AskCancellation::cancelled() const {
    const std::lock_guard lock(coordinatorLock_);
    return cancelled_;
}

FolderAsker::FolderAsker(Vault vault, MakeCoordinator makeCoordinator, Background& background, Clock& clock)
    : vault_(std::move(vault)),
      makeCoordinator_(std::move(makeCoordinator)),
      clock_(clock),
      timers_(background.serialQueue("vesk.sync.ask-timers", Priority::utility)),
      queue_(background.serialQueue("vesk.sync.ask", Priority::utility)) {}

void FolderAsker::ask(std::vector<std::string> folders, FolderAskMode mode, Seconds perFolder, Seconds budget,
                      std::shared_ptr<AskCancellation> cancel,
                      std::function<void(std::vector<FolderAsk>)> done) {
    queue_->post([this, folders = std::move(folders), mode, perFolder, budget, cancel = std::move(cancel),
                  done = std::move(done)] { done(askProvider(folders, mode, perFolder, budget, *cancel)); });
}

std::vector<FolderAsk> FolderAsker::askProvider(const std::vector<std::string>& folders, FolderAskMode mode,
                                                Seconds perFolder, Seconds budget, AskCancellation& cancel) {
    std::vector<FolderAsk> asks;
    if (vault_.provider() != SyncProvider::iCloudDrive || mode == FolderAskMode::off) return asks;
    const Duration start = clock_.monotonic();
    for (const std::string& folder : folders) {
        const Seconds left = budget - Seconds(clock_.monotonic() - start);
        if (left <= leastTime || cancel.cancelled()) break;
        asks.push_back(askFolder(folder, mode, std::min(left, perFolder), cancel));
    }
    return asks;
}

FolderAsk FolderAsker::askFolder(const std::string& folder, FolderAskMode mode, Seconds limit,
                                 AskCancellation& cancel) {
    using Outcome = FolderAsk::Outcome;
    const FilePath path = vault_.absolutePath(folder);
    const auto before = visibleNotes(path);
    FolderAsk ask{.folder = folder};
    std::shared_ptr<FolderCoordinator> coordinator = makeCoordinator_();
    if (!cancel.begin(coordinator)) {
        ask.outcome = {Outcome::Plain::cancelled};
        return ask;
    }
    const auto timeout = std::make_shared<AskTimeout>();
    const Duration start = clock_.monotonic();
    timers_->postAfter(std::chrono::duration_cast<Duration>(limit), [timeout, coordinator] {
        if (timeout->fire()) coordinator->cancel();
    });
    std::set<std::string> after;
    try {
        coordinator->read(path, mode == FolderAskMode::metadataOnly, [&] { after = visibleNotes(path); });
        timeout->end();
    } catch (const CoordinationCancelled&) {
        ask.outcome = {timeout->end() ? Outcome::Plain::timedOut : Outcome::Plain::cancelled};
    } catch (const std::exception&) {
        timeout->end();
        ask.outcome = {Outcome::Failed{describe(std::current_exception())}};
    }
    ask.waited = clock_.monotonic() - start;
    std::set_difference(after.begin(), after.end(), before.begin(), before.end(),
                        std::back_inserter(ask.revealed));
    return ask;
}

}  // namespace vesk
