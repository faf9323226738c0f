#include "VeskCore/Watch/FileWatcher.h"

#include <algorithm>
#include <deque>
#include <iterator>
#include <map>
#include <mutex>
#include <set>
#include <unordered_map>
#include <utility>

#include "VeskCore/Platform/FilePlatform.h"
#include "VeskCore/Support/Error.h"
#include "VeskCore/Support/Localised.h"
#include "VeskCore/Support/PathText.h"

namespace vesk {

namespace {

using Plain = FileChange::Kind::Plain;
using Renamed = FileChange::Kind::Renamed;

constexpr Seconds newFileAge{2.0};

/// An event of a file that counts.
struct NoteEvent {
    std::string path, relativePath;
    std::optional<std::uint64_t> fileID;
    bool operator==(const NoteEvent&) const = default;
};

/// What became of one path.
struct Classified {
    std::string relativePath;
    FileChange::Kind kind;
    std::uint64_t fileID = 0;  ///< of a rename
};

bool isHiddenOrIgnored(std::string_view folder) {
    return folder.starts_with('.') || Vault::ignoredDirectories().contains(folder);
}

bool isVisible(std::string_view relativePath) {
    const auto components = pathComponents(relativePath);
    return !components.empty() && !components.back().starts_with('.') &&
           std::none_of(components.begin(), components.end() - 1, isHiddenOrIgnored);
}

bool isWatchedFile(std::string_view relativePath) {
    return Vault::indexedKind(relativePath).has_value() && isVisible(relativePath);
}

bool isWatchedDirectory(std::string_view relativePath) {
    const auto components = pathComponents(relativePath);
    return std::none_of(components.begin(), components.end(), isHiddenOrIgnored);
}

/// A file that can't be looked at counts as gone.
std::optional<FileInfo> lookAt(const FilePath& path, bool followsLinks) {
    const FileSystem& files = *FilePlatform::current().files;
    try {
        return followsLinks ? files.info(path) : files.linkInfo(path);
    } catch (const SystemError&) {
        return {};
    }
}

bool isDirectory(const FilePath& path) {
    const auto info = lookAt(path, true);
    return info && info->kind == FileKind::directory;
}

/// The paths that one file id left or came to, each once.
class PathsByID {
public:
    void add(const NoteEvent& event) {
        if (!event.fileID) return;
        auto& list = paths_[*event.fileID];
        // More than two make no difference: a rename has one of each.
        if (list.size() < 2 && std::find(list.begin(), list.end(), event.relativePath) == list.end())
            list.push_back(event.relativePath);
    }
    const std::string* only(std::uint64_t fileID) const {
        const auto found = paths_.find(fileID);
        return found != paths_.end() && found->second.size() == 1 ? &found->second.front() : nullptr;
    }

private:
    std::unordered_map<std::uint64_t, std::vector<std::string>> paths_;
};

/// Tells by each file's present state and identity what happened to it; an event's flags accumulate and say
/// nothing about now.
std::vector<Classified> classify(const std::vector<NoteEvent>& events, TimePoint now) {
    std::unordered_map<std::string, std::optional<FileInfo>> states;  // one look at each path
    std::vector<const NoteEvent*> gone, present, replaced;
    PathsByID departures, arrivals;
    for (const NoteEvent& event : events) {
        auto [state, isNew] = states.try_emplace(event.relativePath);
        if (isNew) state->second = lookAt(event.path, false);
        const auto& info = state->second;
        if (!info) {
            gone.push_back(&event);
            departures.add(event);
        } else if (!event.fileID || info->fileID == *event.fileID) {
            present.push_back(&event);
            arrivals.add(event);
        } else {
            replaced.push_back(&event);
            departures.add(event);
        }
    }

    std::unordered_map<std::string, Classified> renames;  // by arrival
    for (const auto* list : {&gone, &replaced}) {
        for (const NoteEvent* event : *list) {
            if (!event->fileID) continue;
            const std::string *from = departures.only(*event->fileID), *to = arrivals.only(*event->fileID);
            if (from && to && *from != *to) renames[*to] = Classified{*to, {Renamed{*from}}, *event->fileID};
        }
    }

    std::vector<Classified> result;
    std::set<std::string_view> told;
    for (const NoteEvent* event : gone) {
        if (told.insert(event->relativePath).second)
            result.push_back({event->relativePath, {Plain::deleted}});
    }
    for (const auto* list : {&present, &replaced}) {
        for (const NoteEvent* event : *list) {
            if (!told.insert(event->relativePath).second) continue;
            if (const auto rename = renames.find(event->relativePath); rename != renames.end()) {
                result.push_back(rename->second);
                continue;
            }
            const TimePoint created = states.at(event->relativePath)->created;
            result.push_back(
                {event->relativePath, {now - created < newFileAge ? Plain::created : Plain::modified}});
        }
    }
    return result;
}

/// The kind that a path has after `next` where it had `held`; none if nothing is left to tell.
std::optional<FileChange::Kind> merged(const FileChange::Kind& held, const FileChange::Kind& next,
                                       bool wasTold) {
    const Plain* nextPlain = std::get_if<Plain>(&next.value);
    const bool staysOrComes = nextPlain && *nextPlain != Plain::deleted;
    const Plain* heldPlain = std::get_if<Plain>(&held.value);
    if (!heldPlain) return staysOrComes ? held : next;
    switch (*heldPlain) {
        case Plain::created:
            if (!nextPlain || staysOrComes) return held;
            if (wasTold) return next;
            return {};
        case Plain::modified:
            return next;
        case Plain::deleted:
            return staysOrComes ? FileChange::Kind{Plain::modified} : next;
    }
    return next;
}

}  // namespace

std::string FileWatchError::description() const {
    return localised(
        "Vesk can't watch \"{}\" for changes. Check the folder still exists and that Vesk has permission to "
        "read it (System "
        "Settings → Privacy & Security → Files and Folders).",
        path.filename().native());
}

struct FileWatcher::State : std::enable_shared_from_this<State> {
    State(const FilePath& folder, Seconds quiet, Seconds own, FileEventSource& eventSource,
          Background& background, Clock& timeSource)
        : root(standardised(folder)),
          rootPath(realPath(root)),
          vault(root),
          debounce(std::chrono::duration_cast<Duration>(quiet)),
          ignoreWindow(std::chrono::duration_cast<Duration>(own)),
          source(eventSource),
          clock(timeSource),
          queue(background.serialQueue("com.tarnlight.vesk.filewatcher", Priority::utility)) {}

    const FilePath root, rootPath;
    const Vault vault;
    const Duration debounce, ignoreWindow;
    FileEventSource& source;
    Clock& clock;
    // Copies, so that a callback may drop the watcher. Set while no event is handled.
    std::function<void(std::vector<FileChange>)> onChange;
    std::function<void()> onRescanRequired, onTrashChange;
    bool tellsEveryDeletion = false;
    const std::unique_ptr<SerialQueue> queue;

    mutable std::mutex lock;                                      // guards the next six
    std::unordered_map<std::string, Duration> ignoredPaths;       // to when they were marked
    std::deque<std::pair<Duration, std::string>> ignoredInOrder;  // the same, oldest first
    std::uint64_t currentEventID = noEventID;
    bool isStopped = true;
    std::uint64_t run = 0;  // rises with each start
    std::unique_ptr<FileEventStream> stream;

    // On the queue only
    struct Pending {
        FileChange::Kind kind;
        std::uint64_t place = 0;  // among the others
    };
    std::unordered_map<std::string, Pending> pending;  // by relative path
    std::uint64_t nextPlace = 0;
    std::set<std::string> told;  // every path that was handed over in this life
    struct Route {
        std::string origin, current;
    };
    std::unordered_map<std::uint64_t, Route> routes;  // where renamed files came from in this window
    std::uint64_t pendingEventID = 0;                 // 0: nothing waits
    bool rescanPending = false, trashPending = false, flushScheduled = false;

    void stop() {
        std::unique_ptr<FileEventStream> ended;
        {
            std::lock_guard held(lock);
            isStopped = true;
            ended = std::move(stream);
        }
        if (ended) ended->stop();
        if (!queue->isCurrent()) queue->drain();
    }

    void resetPending() {
        pending.clear();
        routes.clear();
        pendingEventID = 0;
        rescanPending = trashPending = flushScheduled = false;
    }

    // Both under the lock
    void sweep(Duration now) {
        while (!ignoredInOrder.empty() && now - ignoredInOrder.front().first > ignoreWindow) {
            const auto& [marked, path] = ignoredInOrder.front();
            const auto entry = ignoredPaths.find(path);
            if (entry != ignoredPaths.end() && entry->second == marked) ignoredPaths.erase(entry);
            ignoredInOrder.pop_front();
        }
    }
    bool isIgnored(const std::string& path) {
        std::lock_guard held(lock);
        sweep(clock.monotonic());
        return ignoredPaths.contains(path);
    }

    void handle(const std::vector<RawEvent>& events);
    void enqueue(Classified change);
    void scheduleFlush();
    void flush(std::uint64_t scheduledIn);
    std::vector<FileChange> takeChanges();
    void commitEventID();
};

void FileWatcher::State::handle(const std::vector<RawEvent>& events) {
    std::uint64_t highest = 0;
    std::vector<NoteEvent> collected;
    std::set<std::pair<std::string, std::optional<std::uint64_t>>> seen;
    const std::string prefix = rootPath == "/" ? "/" : rootPath.native() + "/";
    bool rescan = false;
    for (const RawEvent& event : events) {
        if (event.id != noEventID) highest = std::max(highest, event.id);
        if (event.flags & FileEventFlag::historyDone) continue;
        if (event.flags & FileEventFlag::mustScanSubDirs) {
            rescan = true;
            break;
        }
        if (event.flags & FileEventFlag::rootChanged) {
            rescan = isDirectory(root);
            if (rescan) break;
            continue;
        }
        if (!event.path) continue;
        std::string path = *event.path;
        if (path.ends_with('/')) path.pop_back();
        if (!path.starts_with(prefix) || path.size() == prefix.size()) continue;
        const std::string relativePath = path.substr(prefix.size());
        if (isIgnored(path)) continue;
        if (isAtOrBelow(relativePath, ".trash")) {
            trashPending = true;
            continue;
        }
        if (event.flags & FileEventFlag::itemIsDir) {
            constexpr auto leaves = FileEventFlag::itemRemoved | FileEventFlag::itemRenamed;
            rescan = (event.flags & leaves) && isWatchedDirectory(relativePath);
            if (rescan) break;
            continue;
        }
        if (!(event.flags & FileEventFlag::itemIsFile) || !isWatchedFile(relativePath)) continue;
        // A path that is told of again in one batch counts once.
        if (seen.emplace(relativePath, event.fileID).second)
            collected.push_back({std::move(path), relativePath, event.fileID});
    }

    pendingEventID = std::max(pendingEventID, highest);
    rescanPending = rescanPending || rescan;
    for (Classified& change : classify(collected, clock.now())) enqueue(std::move(change));
    if (pending.empty() && !rescanPending && !trashPending) {
        commitEventID();
    } else {
        scheduleFlush();
    }
}

void FileWatcher::State::enqueue(Classified change) {
    if (auto* renamed = std::get_if<Renamed>(&change.kind.value)) {
        // A file that moved on within the window came from where it first was: nobody heard of the stop
        // between.
        auto [route, isFirst] = routes.try_emplace(change.fileID, Route{renamed->fromRelativePath, {}});
        if (!isFirst && route->second.current != renamed->fromRelativePath)
            route->second.origin = renamed->fromRelativePath;
        route->second.current = change.relativePath;
        renamed->fromRelativePath = route->second.origin;
        if (renamed->fromRelativePath == change.relativePath) change.kind = {Plain::modified};
    }
    const auto held = pending.find(change.relativePath);
    if (held == pending.end()) {
        pending.emplace(std::move(change.relativePath), Pending{std::move(change.kind), nextPlace++});
        return;
    }
    if (auto kind = merged(held->second.kind, change.kind,
                           tellsEveryDeletion || told.contains(change.relativePath))) {
        held->second.kind = std::move(*kind);
    } else {
        pending.erase(held);
    }
}

void FileWatcher::State::scheduleFlush() {
    if (flushScheduled) return;
    flushScheduled = true;
    std::uint64_t scheduledIn = 0;
    {
        std::lock_guard held(lock);
        scheduledIn = run;
    }
    queue->postAfter(debounce, [weak = weak_from_this(), scheduledIn] {
        if (const auto self = weak.lock()) self->flush(scheduledIn);
    });
}

std::vector<FileChange> FileWatcher::State::takeChanges() {
    std::vector<std::pair<std::string, Pending>> ordered(std::make_move_iterator(pending.begin()),
                                                         std::make_move_iterator(pending.end()));
    std::sort(ordered.begin(), ordered.end(),
              [](const auto& left, const auto& right) { return left.second.place < right.second.place; });
    std::vector<FileChange> changes;
    for (auto& [path, change] : ordered) {
        const bool isKept = change.kind == FileChange::Kind{Plain::deleted} ||
                            Vault::indexedKind(path) == IndexedKind::note ||
                            !vault.isInsideSavedPageFolder(path);
        if (isKept) changes.push_back({appending(root, path), path, std::move(change.kind)});
    }
    pending.clear();
    routes.clear();
    return changes;
}

void FileWatcher::State::flush(std::uint64_t scheduledIn) {
    {
        // What an earlier run scheduled belongs to a window that is gone.
        std::lock_guard held(lock);
        if (run != scheduledIn) return;
    }
    flushScheduled = false;
    std::vector<FileChange> changes = takeChanges();
    const bool rescan = std::exchange(rescanPending, false), trash = std::exchange(trashPending, false);
    {
        std::lock_guard held(lock);
        if (isStopped) return;
    }
    // Whoever rescans has met these paths too.
    for (const FileChange& change : changes) told.insert(change.relativePath);
    if (rescan && onRescanRequired) {
        onRescanRequired();
    } else if (!changes.empty() && onChange) {
        onChange(std::move(changes));
    }
    if (trash && onTrashChange) onTrashChange();
    commitEventID();
}

void FileWatcher::State::commitEventID() {
    const std::uint64_t handedOver = std::exchange(pendingEventID, 0);
    if (handedOver == 0) return;
    std::lock_guard held(lock);
    if (!isStopped) currentEventID = std::max(currentEventID, handedOver);
}

FileWatcher::FileWatcher(const FilePath& root, Seconds debounce, Seconds ignoreWindow,
                         FileEventSource& source, Background& background, Clock& clock)
    : state_(std::make_shared<State>(root, debounce, ignoreWindow, source, background, clock)) {}

FileWatcher::~FileWatcher() {
    stop();
}

void FileWatcher::start(std::optional<std::uint64_t> sinceEventID) {
    State& state = *state_;
    if (!isDirectory(state.root)) throw FileWatchError(state.root);
    const std::uint64_t latest = state.source.currentEventID(state.rootPath);
    stop();
    const std::uint64_t since = sinceEventID && *sinceEventID <= latest ? *sinceEventID : noEventID;
    {
        std::lock_guard held(state.lock);
        state.currentEventID = since == noEventID ? latest : since;
        state.isStopped = false;
        ++state.run;
    }
    state.queue->post([weak = std::weak_ptr(state_), change = onChange, rescan = onRescanRequired,
                       trash = onTrashChange, every = tellsEveryDeletion] {
        const auto self = weak.lock();
        if (!self) return;
        self->resetPending();
        self->onChange = change;
        self->onRescanRequired = rescan;
        self->onTrashChange = trash;
        self->tellsEveryDeletion = every;
    });
    auto stream = state.source.stream(state.rootPath, since, *state.queue,
                                      [weak = std::weak_ptr(state_)](std::vector<RawEvent> events) {
                                          if (const auto self = weak.lock()) self->handle(events);
                                      });
    if (!stream || !stream->start()) {
        if (stream) stream->stop();
        std::lock_guard held(state.lock);
        state.isStopped = true;
        throw FileWatchError(state.root);
    }
    {
        std::lock_guard held(state.lock);
        // A callback of the first events may have stopped the watcher already.
        if (!state.isStopped) state.stream = std::move(stream);
    }
    if (stream) stream->stop();
}

void FileWatcher::stop() {
    state_->stop();
}

std::uint64_t FileWatcher::lastEventID() const {
    std::lock_guard held(state_->lock);
    return state_->currentEventID;
}

void FileWatcher::ignore(const FilePath& path) {
    std::string real = realPath(path).native();
    const Duration now = state_->clock.monotonic();
    std::lock_guard held(state_->lock);
    state_->ignoredPaths[real] = now;
    state_->ignoredInOrder.emplace_back(now, std::move(real));
    state_->sweep(now);
}

FilePath FileWatcher::realPath(const FilePath& path) {
    const FileSystem& files = *FilePlatform::current().files;
    const auto resolved = [&](const FilePath& item) -> std::optional<FilePath> {
        try {
            return files.realPath(item);
        } catch (const SystemError&) {  // as good as missing: what is above it may be resolved
            return {};
        }
    };
    if (const auto real = resolved(path)) return *real;
    const FilePath normal = standardised(path);
    FilePath missing;
    for (FilePath item = normal; item.has_relative_path();) {
        missing = missing.empty() ? item.filename() : item.filename() / missing;
        item = item.parent_path();
        if (const auto real = resolved(item)) return *real / missing;
    }
    return normal;
}

void FileWatcher::handle(const std::vector<RawEvent>& events) {
    state_->handle(events);
}

}  // namespace vesk
