#include "VeskLinux/InotifyJournal.h"

#include <algorithm>
#include <utility>

namespace vesk::inotify {

namespace {

// Enough for what is under way when a run ends; a longer gap is a case for a scan.
constexpr std::size_t keptEvents = 1024;

}  // namespace

EventJournal::EventJournal(FilePath root, std::shared_ptr<Counter> lastID)
    : root_(std::move(root)), lastID_(std::move(lastID)) {}

void EventJournal::startAfter(History history) {
    isStarted_ = true;
    history_ = std::move(history);
    *lastID_ = history_.lastID;
}

bool EventJournal::repeatAfter(std::uint64_t id) {
    if (id > history_.lastID || id < history_.completeAfter) return false;
    auto first = std::find_if(history_.events.begin(), history_.events.end(),
                              [id](const RawEvent& event) { return event.id > id; });
    // They come into the history again with the batch.
    batch_.assign(std::make_move_iterator(first), std::make_move_iterator(history_.events.end()));
    history_.events.erase(first, history_.events.end());
    return true;
}

void EventJournal::tell(std::string_view relativePath, std::optional<std::uint64_t> fileID, FileKind kind,
                        std::uint32_t flags) {
    if (!isStarted_) return;
    if (kind == FileKind::regular) flags |= FileEventFlag::itemIsFile;
    if (kind == FileKind::directory) flags |= FileEventFlag::itemIsDir;
    if (fileID && (flags & FileEventFlag::itemCreated)) {
        // The number of the deleted file was given to this one: side by side they would look like one file
        // that was renamed.
        if (const auto removal = removals_.find(*fileID); removal != removals_.end()) {
            batch_[removal->second].fileID.reset();
            removals_.erase(removal);
        }
    }
    std::string path = root_;
    if (!path.ends_with('/')) path += '/';
    path += relativePath;
    const auto [place, isNew] = places_.try_emplace(path, batch_.size());
    if (isNew || batch_[place->second].fileID != fileID) {
        place->second = batch_.size();
        batch_.push_back({std::move(path), fileID, 0, ++*lastID_});
    }
    batch_[place->second].flags |= flags;
    if (fileID && (flags & FileEventFlag::itemRemoved)) removals_[*fileID] = place->second;
}

void EventJournal::tellRoot(std::uint32_t flags) {
    batch_.push_back({root_, {}, flags, ++*lastID_});
}

std::vector<RawEvent> EventJournal::takeBatch() {
    const auto newFrom = batch_.size() > keptEvents ? batch_.end() - keptEvents : batch_.begin();
    if (newFrom != batch_.begin()) {
        history_.completeAfter = std::prev(newFrom)->id;
        history_.events.clear();
    }
    history_.events.insert(history_.events.end(), newFrom, batch_.end());
    while (history_.events.size() > keptEvents) {
        history_.completeAfter = history_.events.front().id;
        history_.events.pop_front();
    }
    history_.lastID = *lastID_;
    places_.clear();
    removals_.clear();
    return std::exchange(batch_, {});
}

EventJournal::History EventJournal::history() {
    takeBatch();
    return history_;
}

}  // namespace vesk::inotify
