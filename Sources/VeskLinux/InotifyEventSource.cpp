#include "VeskLinux/InotifyEventSource.h"

#include <poll.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <optional>
#include <stop_token>
#include <thread>
#include <utility>

#include "VeskLinux/InotifyPoller.h"
#include "VeskLinux/InotifyReader.h"
#include "VeskLinux/InotifySnapshot.h"
#include "VeskLinux/InotifyTree.h"

namespace vesk {

using namespace inotify;
using namespace linuxfiles;

namespace {

using SteadyClock = std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr std::string_view category = "watcher";
constexpr auto latency = 50ms;
constexpr std::size_t itemsBetweenReads = 256;
// Someone may write faster than the tree takes it in.
constexpr int mostRounds = 10;

/// Where the count begins without a snapshot: above every id that was given before a snapshot was lost, since
/// ids are given out more slowly than microseconds pass.
std::uint64_t idOfNow() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::microseconds>(now).count());
}

class InotifyStream final : public FileEventStream {
public:
    struct Setting {
        FilePath root, snapshotFile;
        FolderNames skipped;
        InotifyEventSource::Limits limits;
        std::uint64_t since = noEventID;
        std::shared_ptr<EventJournal::Counter> lastID;
    };

    InotifyStream(Setting setting, Log& log, SerialQueue& queue,
                  std::function<void(std::vector<RawEvent>)> deliver)
        : setting_(std::move(setting)),
          log_(log),
          queue_(queue),
          receiver_(std::make_shared<Receiver>()),
          journal_(setting_.root, setting_.lastID),
          tree_(setting_.root, setting_.skipped, setting_.limits.watches),
          reader_(tree_, journal_) {
        receiver_->deliver = std::move(deliver);
    }
    ~InotifyStream() override { stop(); }

    bool start() override {
        wake_ = Descriptor(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
        // Tells by POLLPRI when something is mounted or unmounted, which the watches don't.
        mounts_ = Descriptor(::open("/proc/self/mountinfo", O_RDONLY | O_CLOEXEC));
        begin_ = stampOfNow();
        if (!wake_) return false;
        // The root is watched when this returns, so that another in its place is noticed.
        if (tree_.open() ? !tree_.hasRoot() : !isFolder(setting_.root)) return false;
        thread_ = std::thread([this] {
            if (catchUp()) run();
        });
        return true;
    }

    void stop() override {
        receiver_->isStopped = true;
        if (!thread_.joinable()) return;
        ending_.request_stop();
        const std::uint64_t one = 1;
        [[maybe_unused]] const ssize_t written = ::write(wake_.get(), &one, sizeof one);
        thread_.join();
        leaveSnapshot();
    }

private:
    /// Outlives the stream in batches that are still posted.
    struct Receiver {
        std::atomic<bool> isStopped = false;
        std::function<void(std::vector<RawEvent>)> deliver;
    };

    static bool isFolder(const FilePath& path) {
        const auto state = itemState(AT_FDCWD, path.c_str(), true);
        return state && state->kind == FileKind::directory;
    }
    bool isEnding() const { return ending_.stop_requested(); }

    /// Goes through the whole tree, unless the end comes first.
    void scan() {
        isWhole_ = false;
        std::size_t count = 0;
        const auto goesOn = [this, &count] {
            if (setting_.limits.duringScan) setting_.limits.duringScan(count, ending_.get_token());
            // The kernel's queue must hold what happens meanwhile.
            if (++count % itemsBetweenReads == 0) reader_.drain();
            return !isEnding();
        };
        if (!goesOn()) return;
        if (!tree_.hasEnoughWatches() || !tree_.fill(goesOn)) beginPolling();
        isWhole_ = !isEnding();
    }
    void reopen() {
        reader_.reset();
        tree_.open();
        scan();
    }

    void beginPolling() {
        log_.line(LogLevel::error, category,
                  "The system allows too few file watches for {}; it is listed every few seconds instead. "
                  "Raise {}.",
                  {logPrivate(setting_.root.native()),
                   logPublic(tree_.descriptor() < 0 ? "fs.inotify.max_user_instances"
                                                    : "fs.inotify.max_user_watches")});
        tree_.close();
        poller_.emplace(setting_.root, setting_.skipped, setting_.limits.pollInterval);
        poller_->open(ending_.get_token());
    }

    Listing listing() const {
        Listing items = poller_ ? poller_->listing() : tree_.listing();
        if (!poller_) forgetFreshTimes(items);
        return items;
    }
    std::uint64_t rootID() const { return poller_ ? poller_->rootID() : tree_.rootID(); }

    /// The first scan, and the first batch. False if the end came first: nothing was told, and the former
    /// snapshot holds.
    bool catchUp() {
        scan();
        if (isEnding()) return false;
        resume();
        isTelling_ = true;
        ::unlink(setting_.snapshotFile.c_str());
        return true;
    }

    /// Puts into the first batch what the asker hasn't heard of.
    void resume() {
        auto former = loadSnapshot(setting_.snapshotFile);
        if (former && former->root != setting_.root) former.reset();
        const std::uint64_t last = former ? former->history.lastID : idOfNow();
        const bool compares = setting_.since != noEventID && former;
        if (compares && !poller_) {
            // First the tree takes in what happened during the scan, so that the comparison tells all of it:
            // of a file that moved between a folder that was watched and one that wasn't the kernel tells
            // half.
            for (int rounds = 1; reader_.read() && rounds < mostRounds; ++rounds) continue;
        }
        const bool isAnotherRoot = !poller_ && !tree_.isRootInPlace();
        if (!compares || isAnotherRoot) {
            journal_.startAfter({.lastID = last, .completeAfter = last});
            if (isAnotherRoot) {
                reopen();
                journal_.tellRoot(FileEventFlag::rootChanged);
            } else if (setting_.since != noEventID || (poller_ && !poller_->isListed())) {
                journal_.tellRoot(FileEventFlag::mustScanSubDirs);
            } else {
                tellTouched(poller_ ? poller_->listing() : tree_.listing(), begin_, !poller_, journal_);
                if (poller_ && poller_->rootTouched() >= begin_)
                    journal_.tellRoot(FileEventFlag::mustScanSubDirs);
            }
            return;
        }
        journal_.startAfter(std::move(former->history));
        if (former->rootID != rootID() || !journal_.repeatAfter(setting_.since) || reader_.isLost() ||
            (poller_ && !poller_->isListed())) {
            journal_.tellRoot(FileEventFlag::mustScanSubDirs);
            return;
        }
        tellDifferences(former->items, poller_ ? poller_->listing() : tree_.listing(), journal_);
        journal_.tellRoot(FileEventFlag::historyDone);
    }

    void run() {
        auto lastPost = SteadyClock::now() - latency;
        bool hasMore = !poller_;
        while (!isEnding()) {
            const auto now = SteadyClock::now();
            if (journal_.hasBatch() && !reader_.deadline() && now >= lastPost + latency) {
                post();
                lastPost = now;
            }
            wait(hasMore ? std::optional(now) : nextMoment(lastPost));
            if (isEnding()) return;
            hasMore = poller_ ? pollTree() : readEvents();
        }
    }

    std::optional<SteadyClock::time_point> nextMoment(SteadyClock::time_point lastPost) const {
        std::optional<SteadyClock::time_point> next;
        if (reader_.deadline()) next = reader_.deadline();
        if (!next && journal_.hasBatch()) next = lastPost + latency;
        if (poller_) next = std::min(next.value_or(poller_->due()), poller_->due());
        return next;
    }

    void wait(std::optional<SteadyClock::time_point> until) {
        std::array<pollfd, 3> sources{
            {{.fd = wake_.get(), .events = POLLIN, .revents = 0},
             {.fd = mounts_.get(), .events = POLLPRI, .revents = 0},
             {.fd = poller_ ? -1 : tree_.descriptor(), .events = POLLIN, .revents = 0}}};
        int timeout = -1;
        if (until) {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(*until - SteadyClock::now());
            timeout = static_cast<int>(std::clamp<std::int64_t>(left.count(), 0, 60'000));
        }
        ::poll(sources.data(), sources.size(), timeout);
        if (sources[1].revents != 0) mountsChanged_ = true;
    }

    bool pollTree() {
        if (SteadyClock::now() >= poller_->due()) poller_->poll(journal_, ending_.get_token());
        return false;
    }

    /// True if more waits to be read.
    bool readEvents() {
        if (setting_.limits.beforeRead) setting_.limits.beforeRead();
        const bool hasMore = reader_.read();
        if (reader_.deadline() && SteadyClock::now() >= *reader_.deadline()) reader_.giveUpWaiting();
        const bool isDoubtful = reader_.takeRootDoubt() || std::exchange(mountsChanged_, false);
        if (!tree_.hasEnoughWatches()) {
            // What was not watched may have changed since it was met.
            reader_.giveUpWaiting();
            beginPolling();
            journal_.tellRoot(FileEventFlag::mustScanSubDirs);
            return false;
        }
        if (isDoubtful) {
            // Without a root the folders above may be others now, and it may come back while they are
            // watched.
            const bool hadRoot = tree_.hasRoot();
            if (!hadRoot || !tree_.isRootInPlace()) {
                reopen();
                if (hadRoot || rootID() != 0) journal_.tellRoot(FileEventFlag::rootChanged);
                return reader_.hasUnread();
            }
        }
        if (reader_.isLost()) {
            reopen();
            journal_.tellRoot(FileEventFlag::mustScanSubDirs);
            return reader_.hasUnread();
        }
        return hasMore;
    }

    void post() {
        queue_.post([receiver = receiver_, events = journal_.takeBatch()]() mutable {
            if (!receiver->isStopped) receiver->deliver(std::move(events));
        });
    }

    void leaveSnapshot() {
        if (!isTelling_ || !isWhole_ || (poller_ && !poller_->isListed())) return;
        if (!poller_) {
            // First a look at what has changed, then the last events: whatever changes after the look is
            // either among these or differs from the snapshot later.
            tree_.refresh();
            for (int rounds = 1; reader_.read(); ++rounds) {
                if (rounds == mostRounds) return;
            }
            reader_.giveUpWaiting();
            if (reader_.isLost() || reader_.takeRootDoubt() || !tree_.hasEnoughWatches()) return;
        }
        if (rootID() == 0) return;
        try {
            save({setting_.root, rootID(), journal_.history(), listing()}, setting_.snapshotFile);
        } catch (const SystemError& error) {
            log_.line(LogLevel::error, category, "The state of the watched folder can't be kept: {}",
                      {logPrivate(error.description())});
        }
    }

    const Setting setting_;
    Log& log_;
    SerialQueue& queue_;
    const std::shared_ptr<Receiver> receiver_;
    // The reading thread's while it runs
    EventJournal journal_;
    InotifyTree tree_;
    InotifyReader reader_;
    std::optional<InotifyPoller> poller_;
    bool mountsChanged_ = false;
    bool isTelling_ = false;  // the asker may have heard of what isn't in the former snapshot
    bool isWhole_ = false;    // the tree was gone through to its end

    std::int64_t begin_ = 0;  // by stampOfNow()
    Descriptor wake_, mounts_;
    std::stop_source ending_ = freshStopSource();
    std::thread thread_;
};

}  // namespace

InotifyEventSource::InotifyEventSource(FilePath stateFolder,
                                       std::set<std::string, std::less<>> skippedFolders, Log& log,
                                       Limits limits)
    : snapshotFile_(std::move(stateFolder) / "events.snapshot"),
      skippedFolders_(std::move(skippedFolders)),
      log_(log),
      limits_(std::move(limits)) {}

std::uint64_t InotifyEventSource::currentEventID(const FilePath& root) {
    {
        std::lock_guard held(runningLock_);
        const auto running = running_.find(root);
        const auto lastID = running == running_.end() ? nullptr : running->second.lock();
        // A stream that was not started has no id yet.
        if (lastID && *lastID != 0) return *lastID;
    }
    return loadLastID(snapshotFile_, root).value_or(idOfNow());
}

std::unique_ptr<FileEventStream> InotifyEventSource::stream(
    const FilePath& root, std::uint64_t sinceEventID, SerialQueue& queue,
    std::function<void(std::vector<RawEvent>)> deliver) {
    auto lastID = std::make_shared<EventJournal::Counter>(0);
    {
        std::lock_guard held(runningLock_);
        running_[root] = lastID;
    }
    return std::make_unique<InotifyStream>(InotifyStream::Setting{root, snapshotFile_, skippedFolders_,
                                                                  limits_, sinceEventID, std::move(lastID)},
                                           log_, queue, std::move(deliver));
}

}  // namespace vesk
