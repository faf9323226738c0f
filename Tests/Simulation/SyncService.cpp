#include "Simulation/SyncService.h"

#include <cstdlib>
#include <utility>

#include "VeskCore/Support/PathText.h"

namespace vesk::simulation {

namespace {

constexpr std::string_view trashPrefix = ".trash/";

bool isTrashed(std::string_view path) {
    return path.starts_with(trashPrefix);
}

std::size_t wrapped(int pick, std::size_t size) {
    return static_cast<std::size_t>(std::abs(pick)) % size;
}

}  // namespace

SyncService::SyncService(MemoryFiles& files, Oracle& oracle, Texts& texts, std::string root, Manner manner)
    : files_(files),
      oracle_(oracle),
      texts_(texts),
      root_(std::move(root)),
      manner_(manner),
      replicas_(static_cast<std::size_t>(manner.devices)) {}

const std::vector<std::string>& SyncService::places() {
    static const std::vector<std::string> all = {"a.md",   "b.md",   "c.md",   "n/a.md",
                                                 "n/c.md", "n/d.md", "m/a.md", "m/e.md"};
    return all;
}

std::string SyncService::stubOf(const std::string& path) const {
    return absolute(joinedPath(parentFolder(path), "." + std::string(lastComponent(path)) + ".icloud"));
}

std::map<std::string, const std::string*> SyncService::localFiles() const {
    std::map<std::string, const std::string*> found;
    for (auto& [path, bytes] : files_.filesBelow(root_)) {
        if (lastComponent(path).starts_with('.') || (path.starts_with('.') && !isTrashed(path))) continue;
        found.emplace(std::move(path), bytes);
    }
    return found;
}

void SyncService::begin() {
    for (const auto& [path, text] : localFiles()) {
        cloud_[path] = {*text, ++version_};
        met_[path] = version_;
    }
    known_ = cloud_;
    for (auto& replica : replicas_) replica = cloud_;
}

// The other devices

void SyncService::look(int device) {
    replicas_[wrapped(device, replicas_.size())] = cloud_;
}

std::optional<std::string> SyncService::chosen(const Listing& replica, int pick, bool inTrash) const {
    std::vector<std::string> paths;
    for (const auto& entry : replica) {
        if (isTrashed(entry.first) == inTrash) paths.push_back(entry.first);
    }
    if (paths.empty()) return {};
    return paths[wrapped(pick, paths.size())];
}

std::string SyncService::freeConflictName(const std::string& path,
                                          const std::function<bool(const std::string&)>& taken) {
    while (true) {
        const auto number = std::to_string(100000 + ++conflicts_);
        const std::string stemPart(path.substr(0, path.size() - pathExtension(path).size() - 1));
        auto name =
            stemPart + ".sync-conflict-20260301-" + number + "-ABCDEFG." + std::string(pathExtension(path));
        if (!taken(name)) return name;
    }
}

/// The service takes what a device did if nobody was faster, else as a conflict or not at all.
void SyncService::send(int device, Delivery delivery) {
    auto& replica = replicas_[wrapped(device, replicas_.size())];
    const auto mine = replica.find(delivery.path);
    const auto theirs = cloud_.find(delivery.path);
    const bool isNew = mine == replica.end();
    const bool isCurrent = isNew ? theirs == cloud_.end()
                                 : theirs != cloud_.end() && theirs->second.version == mine->second.version;
    switch (delivery.kind) {
        case Delivery::Kind::put:
            if (!isCurrent) {
                delivery.path = freeConflictName(
                    delivery.path, [&](const std::string& path) { return cloud_.contains(path); });
            }
            delivery.version = ++version_;
            replica[delivery.path] = cloud_[delivery.path] = {delivery.text, delivery.version};
            break;
        case Delivery::Kind::move:
            if (!isCurrent || cloud_.contains(delivery.to)) return;
            delivery.version = ++version_;
            delivery.text = theirs->second.text;
            cloud_.erase(delivery.path);
            replica.erase(delivery.path);
            replica[delivery.to] = cloud_[delivery.to] = {delivery.text, delivery.version};
            break;
        case Delivery::Kind::remove:
            if (!isCurrent) return;
            delivery.version = ++version_;
            delivery.text = theirs->second.text;
            cloud_.erase(delivery.path);
            replica.erase(delivery.path);
            break;
    }
    inbox_.push_back(std::move(delivery));
}

void SyncService::edit(int device, int pick, int style) {
    const auto& replica = replicas_[wrapped(device, replicas_.size())];
    const auto path = chosen(replica, pick, false);
    if (!path) return;
    const auto seen = replica.at(*path).text;
    auto text = texts_.changed(seen, style);
    oracle_.made(text, seen);
    send(device, {.kind = Delivery::Kind::put, .path = *path, .to = {}, .text = std::move(text)});
}

void SyncService::create(int device, int pick) {
    const auto& replica = replicas_[wrapped(device, replicas_.size())];
    const auto& path = places()[wrapped(pick, places().size())];
    if (replica.contains(path)) return;
    auto text = texts_.fresh();
    oracle_.made(text, {});
    send(device, {.kind = Delivery::Kind::put, .path = path, .to = {}, .text = std::move(text)});
}

void SyncService::move(int device, int pick, int place) {
    const auto path = chosen(replicas_[wrapped(device, replicas_.size())], pick, false);
    if (path)
        send(device, {.kind = Delivery::Kind::move,
                      .path = *path,
                      .to = places()[wrapped(place, places().size())],
                      .text = {}});
}

void SyncService::trash(int device, int pick) {
    const auto path = chosen(replicas_[wrapped(device, replicas_.size())], pick, false);
    if (!path) return;
    send(device, {.kind = Delivery::Kind::move,
                  .path = *path,
                  .to = std::string(trashPrefix) + std::string(lastComponent(*path)),
                  .text = {}});
}

void SyncService::restore(int device, int pick) {
    const auto path = chosen(replicas_[wrapped(device, replicas_.size())], pick, true);
    if (path)
        send(device, {.kind = Delivery::Kind::move,
                      .path = *path,
                      .to = std::string(lastComponent(*path)),
                      .text = {}});
}

void SyncService::remove(int device, int pick) {
    const auto path = chosen(replicas_[wrapped(device, replicas_.size())], pick, false);
    if (path) send(device, {.kind = Delivery::Kind::remove, .path = *path, .to = {}, .text = {}});
}

// On this device

SyncService::Status SyncService::statusOf(const std::string& path) const {
    const auto waiting = waiting_.find(path);
    if (waiting == waiting_.end() || waiting->second.isPlaceholder) return Status::current;
    return requested_.contains(path) ? Status::downloading : Status::older;
}

std::vector<std::string> SyncService::textsElsewhere() const {
    std::vector<std::string> texts;
    for (const auto& entry : waiting_) {
        if (entry.second.isPlaceholder) texts.push_back(entry.second.file.text);
    }
    return texts;
}

bool SyncService::waitsBelow(const std::string& folder) const {
    const auto next = waiting_.lower_bound(folder + "/");
    return next != waiting_.end() && next->first.starts_with(folder + "/");
}

bool SyncService::isClean(const std::string& path) const {
    const auto local = files_.textAt(absolute(path));
    const auto known = known_.find(path);
    if (!local) return known == known_.end();
    return known != known_.end() && known->second.text == *local;
}

void SyncService::upload() {
    const auto local = localFiles();
    const auto isMissing = [&](const std::string& path) {
        return !local.contains(path) && !waiting_.contains(path);
    };
    const auto agrees = [&](const std::string& path) {
        const auto cloud = cloud_.find(path);
        const auto known = known_.find(path);
        return cloud != cloud_.end() && known != known_.end() &&
               cloud->second.version == known->second.version;
    };
    for (const auto& [path, text] : local) {
        if (waiting_.contains(path)) continue;
        const auto known = known_.find(path);
        if (known != known_.end()) {
            if (known->second.text == *text || !agrees(path)) continue;
        } else {
            if (cloud_.contains(path)) continue;
            for (const auto& [from, file] : known_) {
                if (!isMissing(from) || file.text != *text || !agrees(from)) continue;
                met_[from] = ++version_;
                cloud_.erase(from);
                known_.erase(from);
                break;
            }
        }
        known_[path] = cloud_[path] = {*text, ++version_};
        met_[path] = version_;
    }
    for (auto known = known_.begin(); known != known_.end();) {
        const auto path = known->first;
        if (!isMissing(path) || (cloud_.contains(path) && !agrees(path))) {
            ++known;
            continue;
        }
        if (cloud_.erase(path) > 0) met_[path] = ++version_;
        known = known_.erase(known);
    }
}

void SyncService::tick(std::mt19937_64& random) {
    if (random() % 2 == 0) upload();
    for (auto count = random() % 3; count > 0 && !inbox_.empty(); --count) {
        const auto place = inbox_.begin() + static_cast<std::ptrdiff_t>(random() % inbox_.size());
        const Delivery delivery = *place;
        inbox_.erase(place);
        deliver(delivery, &random);
    }
    if (!waiting_.empty() && random() % 2 == 0) {
        auto next = std::next(waiting_.begin(), static_cast<std::ptrdiff_t>(random() % waiting_.size()));
        if (requested_.contains(next->first) || random() % 4 == 0) materialise(std::string(next->first));
    }
}

bool SyncService::catchUp() {
    const int before = version_;
    const bool waited = !inbox_.empty() || !waiting_.empty();
    for (auto& delivery : std::exchange(inbox_, {})) deliver(delivery, nullptr);
    while (!waiting_.empty()) materialise(std::string(waiting_.begin()->first));
    upload();
    return waited || version_ != before;
}

void SyncService::deliver(const Delivery& delivery, std::mt19937_64* random) {
    switch (delivery.kind) {
        case Delivery::Kind::put:
            delivered_.push_back(delivery);
            if (delivery.version > met_[delivery.path])
                deliverPut(delivery.path, {delivery.text, delivery.version}, random);
            return;
        case Delivery::Kind::move:
            return deliverMove(delivery, random);
        case Delivery::Kind::remove:
            return deliverRemove(delivery);
    }
}

void SyncService::deliverPut(const std::string& path, const CloudFile& file, std::mt19937_64* random) {
    met_[path] = file.version;
    if (const auto waiting = waiting_.find(path); waiting != waiting_.end()) {
        waiting->second.file = file;
        return;
    }
    const auto local = files_.textAt(absolute(path));
    if (local == file.text) {
        known_[path] = file;
    } else if (local && !isClean(path)) {
        conflict(path, file);
    } else if (manner_.leavesPlaceholders && random && (*random)() % 2 == 0) {
        if (touches) touches(path);
        waiting_[path] = {file, !local};
        if (!local) {
            files_.put(stubOf(path), "", false);
            known_.erase(path);
        }
    } else {
        place(path, file, random && (*random)() % 3 == 0);
    }
}

void SyncService::place(const std::string& path, const CloudFile& file, bool inPlace) {
    if (touches) touches(path);
    oracle_.stands(file.text);
    files_.put(absolute(path), file.text, inPlace);
    known_[path] = file;
}

void SyncService::conflict(const std::string& path, const CloudFile& theirs) {
    const auto copy =
        freeConflictName(path, [&](const std::string& name) { return files_.isTaken(absolute(name)); });
    if (touches) touches(copy);
    if (manner_.renamesTheLocalSide && files_.rename(absolute(path), absolute(copy)))
        return place(path, theirs, false);
    oracle_.stands(theirs.text);
    files_.put(absolute(copy), theirs.text, false);
    known_[path] = theirs;
}

void SyncService::materialise(const std::string& path) {
    const auto waiting = waiting_.extract(path).mapped();
    requested_.erase(path);
    if (waiting.isPlaceholder) files_.erase(stubOf(path));
    const auto local = files_.textAt(absolute(path));
    if (local == waiting.file.text) {
        known_[path] = waiting.file;
    } else if (local && !isClean(path)) {
        conflict(path, waiting.file);
    } else {
        place(path, waiting.file, false);
    }
}

void SyncService::deliverMove(const Delivery& delivery, std::mt19937_64* random) {
    const auto &from = delivery.path, &to = delivery.to;
    const CloudFile file{delivery.text, delivery.version};
    const bool leaves = delivery.version > met_[from], arrives = delivery.version > met_[to];
    const bool isFree = !files_.isTaken(absolute(to)) && !waiting_.contains(to) && !waiting_.contains(from);
    if (leaves && arrives && isFree && files_.textAt(absolute(from)) && known_.contains(from)) {
        const bool wasClean = isClean(from), knewIt = known_.at(from).text == file.text;
        met_[from] = met_[to] = delivery.version;
        if (touches) touches(from);
        if (touches) touches(to);
        files_.rename(absolute(from), absolute(to));
        known_.erase(from);
        known_[to] = file;
        if (!wasClean && !knewIt) {
            conflict(to, file);
        } else if (!knewIt) {
            place(to, file, false);
        }
        return;
    }
    if (arrives) deliverPut(to, file, random);
    if (!leaves) return;
    met_[from] = delivery.version;
    if (const auto waiting = waiting_.find(from); waiting != waiting_.end()) {
        if (waiting->second.isPlaceholder) files_.erase(stubOf(from));
        waiting_.erase(waiting);
    }
    const bool wasClean = isClean(from);
    known_.erase(from);
    if (!wasClean || !files_.isTaken(absolute(from))) return;
    if (touches) touches(from);
    files_.erase(absolute(from));
}

void SyncService::deliverRemove(const Delivery& delivery) {
    const auto& path = delivery.path;
    oracle_.made(delivery.text, {});
    oracle_.thrownAway(delivery.text);
    if (delivery.version <= met_[path]) return;
    met_[path] = delivery.version;
    if (const auto waiting = waiting_.find(path); waiting != waiting_.end()) {
        if (waiting->second.isPlaceholder) files_.erase(stubOf(path));
        waiting_.erase(waiting);
    }
    const bool wasClean = isClean(path);
    known_.erase(path);
    if (!wasClean || !files_.isTaken(absolute(path))) return;
    if (touches) touches(path);
    files_.erase(absolute(path));
}

/// An earlier version comes once more, and the newest after it.
void SyncService::deliverAgain(int pick, bool inPlace) {
    if (delivered_.empty()) return;
    const Delivery& old = delivered_[wrapped(pick, delivered_.size())];
    const auto cloud = cloud_.find(old.path);
    if (cloud == cloud_.end() || waiting_.contains(old.path) || !known_.contains(old.path) ||
        !isClean(old.path) || known_.at(old.path).version != cloud->second.version)
        return;
    place(old.path, {old.text, old.version}, inPlace);
    if (old.version == cloud->second.version) return;
    met_[old.path] = old.version;
    inbox_.push_back({.kind = Delivery::Kind::put,
                      .path = old.path,
                      .to = {},
                      .text = cloud->second.text,
                      .version = cloud->second.version});
}

/// Takes the bytes of a note off this device.
void SyncService::evict(int pick) {
    if (!manner_.leavesPlaceholders) return;
    std::vector<std::string> candidates;
    for (const auto& [path, file] : known_) {
        const auto cloud = cloud_.find(path);
        if (!isTrashed(path) && !waiting_.contains(path) && isClean(path) && cloud != cloud_.end() &&
            cloud->second.version == file.version && files_.isTaken(absolute(path)))
            candidates.push_back(path);
    }
    if (candidates.empty()) return;
    const auto& path = candidates[wrapped(pick, candidates.size())];
    if (touches) touches(path);
    files_.put(stubOf(path), "", false);
    files_.erase(absolute(path));
    waiting_[path] = {known_.at(path), true};
    known_.erase(path);
}

std::optional<std::string> SyncService::disagreement() const {
    const auto local = localFiles();
    for (const auto& [path, text] : local) {
        const auto cloud = cloud_.find(path);
        if (cloud == cloud_.end()) return "the service doesn't have " + path;
        if (cloud->second.text != *text) return "the service has another text of " + path;
    }
    for (const auto& entry : cloud_) {
        if (!local.contains(entry.first)) return "the vault doesn't have " + entry.first;
    }
    return {};
}

}  // namespace vesk::simulation
