// A scratch folder under a real event source, and waiting for what it tells.
#pragma once

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <fstream>
#include <mutex>
#include <optional>
#include <stop_token>
#include <thread>

#include "Support/Fakes.h"
#include "VeskLinux/InotifyEventSource.h"
#include "VeskLinux/InotifySnapshot.h"
#include "VeskLinux/LinuxFileSystem.h"

namespace vesk::test {

namespace fs = std::filesystem;
using namespace FileEventFlag;

class InotifyTest : public ::testing::Test {
protected:
    ~InotifyTest() override { stop(); }

    /// What was made until now is older than the stream by the files' stamps.
    void start(std::uint64_t since = noEventID) {
        // Some kernels stamp by the fine clock what was looked at since its last change, and all later changes
        // not before that. A tick of the coarse clock may still be behind it.
        const auto now = std::chrono::duration_cast<std::chrono::nanoseconds>(
            std::chrono::system_clock::now().time_since_epoch());
        while (inotify::stampOfNow() <= now.count()) std::this_thread::yield();
        source = std::make_unique<InotifyEventSource>(state / "sub", FolderNames{".git", "node_modules"}, log,
                                                      limits);
        stream = source->stream(root(), since, *queue, [this](std::vector<RawEvent> batch) {
            std::lock_guard held(eventsLock);
            events.insert(events.end(), batch.begin(), batch.end());
            arrived.notify_all();
        });
        ASSERT_TRUE(stream->start());
    }
    /// As start(), with the scan held before its item of this number.
    void startHeld(std::size_t item, std::uint64_t since = noEventID) {
        holdScan(item);
        start(since);
        waitUntilHeld();
    }
    /// Of the next scan that comes so far. The stream's end releases it too.
    void holdScan(std::size_t item) {
        holdAt = item;
        isHeld = false;
        limits.duringScan = [this](std::size_t count, const std::stop_token& stop) {
            std::unique_lock locked(holdLock);
            lastItem = count;
            if (holdAt != count) return;
            isHeld = true;
            holdChanged.notify_all();
            holdChanged.wait(locked, stop, [this] { return !holdAt; });
        };
    }
    void waitUntilHeld() {
        std::unique_lock locked(holdLock);
        ASSERT_TRUE(holdChanged.wait_for(locked, std::chrono::seconds(60), [this] { return isHeld; }));
    }
    void release() {
        std::lock_guard locked(holdLock);
        holdAt.reset();
        holdChanged.notify_all();
    }
    void stop() {
        if (stream) stream->stop();
        stream.reset();
        queue->drain();
    }
    /// Ends the run and begins the next one where the former ended, or at `since`. Forgets what was told.
    void resume(std::function<void()> meanwhile, std::optional<std::uint64_t> since = {}) {
        stop();
        meanwhile();
        events.clear();
        const std::uint64_t last = source->currentEventID(root());
        start(since.value_or(last));
        ASSERT_TRUE(waitFor([&] { return has("", historyDone) || has("", mustScanSubDirs); }));
    }

    FilePath root() const { return outer / "vault"; }
    /// Waits for the condition, which is asked under the lock at each batch.
    bool waitFor(const std::function<bool()>& condition) {
        std::unique_lock held(eventsLock);
        return arrived.wait_for(held, std::chrono::seconds(60), condition);
    }
    /// Waits for all that was done until now to be told of: that of a last file comes after it.
    void settle() {
        const std::string name = ".mark" + std::to_string(++marks);
        folder.write("vault/" + name, "");
        ASSERT_TRUE(waitFor([&] { return has(name); }));
    }
    std::optional<RawEvent> find(const std::string& path, std::uint32_t flags = 0) const {
        std::lock_guard held(eventsLock);
        const std::string absolute = path.empty() ? root().native() : (root() / path).native();
        const auto found = std::find_if(events.begin(), events.end(), [&](const RawEvent& event) {
            return event.path == absolute && (event.flags & flags) == flags;
        });
        return found == events.end() ? std::nullopt : std::optional(*found);
    }
    bool has(const std::string& path, std::uint32_t flags = 0) const { return find(path, flags).has_value(); }
    /// Paths below the root without marks, each once, sorted.
    std::vector<std::string> paths() const {
        std::lock_guard held(eventsLock);
        std::set<std::string> all;
        for (const RawEvent& event : events) {
            const std::string path = FilePath(*event.path).lexically_relative(root());
            if (path != "." && !path.starts_with(".mark")) all.insert(path);
        }
        return {all.begin(), all.end()};
    }
    std::uint64_t idOf(const std::string& path) const { return files.linkInfo(root() / path)->fileID; }

    using FolderNames = std::set<std::string, std::less<>>;
    using Paths = std::vector<std::string>;

    LinuxFileSystem files;
    ScratchFolder folder, state;
    FilePath outer = (fs::create_directories(folder / "vault"), folder.path());
    RecordingLog log;
    InotifyEventSource::Limits limits;
    ThreadPool pool{1};
    std::unique_ptr<SerialQueue> queue = pool.serialQueue("test", Priority::utility);
    std::mutex holdLock;  // guards the next three
    std::optional<std::size_t> holdAt;
    std::size_t lastItem = 0;
    bool isHeld = false;
    std::condition_variable_any holdChanged;
    std::unique_ptr<InotifyEventSource> source;
    std::unique_ptr<FileEventStream> stream;
    int marks = 0;

    mutable std::recursive_mutex eventsLock;  // guards events
    std::condition_variable_any arrived;
    std::vector<RawEvent> events;
};

}  // namespace vesk::test
