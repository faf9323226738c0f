#include "VeskCore/Vault/HeldTextStore.h"

#include <algorithm>
#include <map>
#include <mutex>
#include <set>
#include <tuple>

#include "VeskCore/Platform/FilePlatform.h"
#include "VeskCore/Support/Digest.h"
#include "VeskCore/Support/Json.h"
#include "VeskCore/Support/PathText.h"
#include "VeskCore/Vault/AtomicWrite.h"

namespace vesk {

namespace {

constexpr std::size_t digestDigits = 32;
constexpr std::string_view fileExtension = ".json";
constexpr std::string_view temporaryPrefix = ".vesk-tmp-";
/// Thousands of years from now: what a date in a damaged file counts as at most.
constexpr double latestSavedAt = 1e11;

struct Held {
    std::string owner, path, text;
    bool trashed = false;
    std::optional<std::string> baseline;
};

FileSystem& files() {
    return *FilePlatform::current().files;
}

void removeQuietly(const FilePath& file) {
    try {
        files().remove(file);
    } catch (const Error&) {  // the next start's recovery finds the text in its note
    }
}

std::string encoded(const Held& held, TimePoint savedAt) {
    Json entry = Json::object({
        {"relativePath", held.path},
        {"text", held.text},
        {"savedAt", secondsSince2001(savedAt)},
        {"trashed", held.trashed},
    });
    if (held.baseline) entry.set("baseline", *held.baseline);
    return entry.dump(Json::Style::compact, true);
}

/// None for a file that isn't a held text; it stays where it is.
std::optional<HeldTextStore::Entry> decoded(std::string_view bytes) {
    Json json;
    try {
        json = Json::parse(bytes);
    } catch (const JsonError&) {
        return {};
    }
    const auto path = json.string("relativePath"), text = json.string("text");
    const auto savedAt = json.number("savedAt");
    if (!path || !text || !savedAt) return {};
    const auto isAbsent = [&](std::string_view key) {
        const Json* value = json.find(key);
        return !value || value->isNull();
    };
    const auto trashed = json.boolean("trashed");
    auto baseline = json.string("baseline");
    if ((!trashed && !isAbsent("trashed")) || (!baseline && !isAbsent("baseline"))) return {};
    return HeldTextStore::Entry{
        .relativePath = *path,
        .text = *text,
        .savedAt = timeFromSecondsSince2001(std::clamp(*savedAt, -latestSavedAt, latestSavedAt)),
        .trashed = trashed.value_or(false),
        .baseline = std::move(baseline),
    };
}

bool writeFile(const FilePath& file, const Held& held, const Clock& clock) {
    try {
        AtomicWrite::writeData(file, encoded(held, clock.now()));
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

/// A move that a held text follows: a note doesn't go on as a document.
bool isFollowed(std::string_view from, std::string_view to) {
    return from != to && !(Vault::indexedKind(from) == IndexedKind::note && Vault::isDocument(to));
}

}  // namespace

struct HeldTextStore::Kept {
    explicit Kept(FilePath folder) : directory(std::move(folder)) {}

    const FilePath directory;
    std::mutex writtenLock;
    std::map<FilePath, Held> written;

    /// The record that `owner` has for the note: by where the note is now, else by the name that its file
    /// got. Under the lock.
    auto find(std::string_view path, std::string_view owner) {
        const auto present = std::find_if(written.begin(), written.end(), [&](const auto& record) {
            return record.second.owner == owner && record.second.path == path;
        });
        return present != written.end() ? present : written.find(address(path, owner));
    }

    FilePath address(std::string_view path, std::string_view owner) const {
        std::string identity(owner);
        identity.push_back('\0');
        identity.append(path);
        return directory / (digest(identity) + std::string(fileExtension));
    }

    void discardEverything() {
        const std::lock_guard lock(writtenLock);
        for (const auto& record : written) removeQuietly(record.first);
        written.clear();
    }
};

/// Every store of this process. Its lock and a store's own are never held together.
struct HeldTextStore::Registry {
    std::mutex registryLock;
    std::vector<std::shared_ptr<Kept>> stores;

    static Registry& shared() {
        static Registry registry;
        return registry;
    }
};

FilePath HeldTextStore::directoryFor(const FilePath& vaultRoot) {
    return files().applicationSupportDirectory() / "Vesk" / "Held" / digest(standardised(vaultRoot).native());
}

HeldTextStore::HeldTextStore(FilePath directory, Clock& clock)
    : kept_(std::make_shared<Kept>(std::move(directory))), clock_(clock) {
    Registry& registry = Registry::shared();
    const std::lock_guard lock(registry.registryLock);
    registry.stores.push_back(kept_);
}

/// A store that holds nothing any more has nothing to be let go of when the application ends.
HeldTextStore::~HeldTextStore() {
    {
        const std::lock_guard lock(kept_->writtenLock);
        if (!kept_->written.empty()) return;
    }
    Registry& registry = Registry::shared();
    const std::lock_guard lock(registry.registryLock);
    std::erase(registry.stores, kept_);
}

const FilePath& HeldTextStore::directory() const {
    return kept_->directory;
}

bool HeldTextStore::keep(std::string_view text, std::string_view path, std::string_view owner,
                         const std::optional<std::string>& baseline) {
    const std::lock_guard lock(kept_->writtenLock);
    const auto record = kept_->find(path, owner);
    const bool isKnown = record != kept_->written.end();
    if (isKnown && !record->second.trashed && record->second.text == text &&
        record->second.baseline == baseline) {
        return true;
    }
    const FilePath file = isKnown ? record->first : kept_->address(path, owner);
    Held held{.owner = std::string(owner),
              .path = isKnown ? record->second.path : std::string(path),
              .text = std::string(text),
              .trashed = false,
              .baseline = baseline};
    if (!writeFile(file, held, clock_)) return false;
    kept_->written.insert_or_assign(file, std::move(held));
    return true;
}

void HeldTextStore::discard(std::string_view path, std::string_view owner) {
    const std::lock_guard lock(kept_->writtenLock);
    const auto record = kept_->find(path, owner);
    if (record == kept_->written.end()) return;
    removeQuietly(record->first);
    kept_->written.erase(record);
}

void HeldTextStore::markTrashed(const std::vector<std::string>& paths) {
    const std::lock_guard lock(kept_->writtenLock);
    for (auto& [file, held] : kept_->written) {
        const std::string& path = held.path;
        const bool isMeant = std::any_of(paths.begin(), paths.end(), [&](const std::string& trashed) {
            return !trashed.empty() && isAtOrBelow(path, trashed);
        });
        if (!isMeant || held.trashed) continue;
        Held changed = held;
        changed.trashed = true;
        if (writeFile(file, changed, clock_)) held = std::move(changed);
    }
}

void HeldTextStore::moved(std::string_view from, std::string_view to) {
    if (from.empty() || !isFollowed(from, to)) return;
    const std::lock_guard lock(kept_->writtenLock);
    for (auto& [file, held] : kept_->written) {
        if (!isAtOrBelow(held.path, from)) continue;
        Held changed = held;
        changed.path = std::string(to) + held.path.substr(from.size());
        if (writeFile(file, changed, clock_)) held = std::move(changed);
    }
}

std::vector<HeldTextStore::Leftover> HeldTextStore::leftovers(bool includingThisRun) const {
    std::set<std::string> ofThisRun;
    if (!includingThisRun) {
        const std::lock_guard lock(kept_->writtenLock);
        for (const auto& record : kept_->written) ofThisRun.insert(record.first.filename().native());
    }
    std::vector<Leftover> found;
    std::vector<std::string> names;
    try {
        names = files().list(kept_->directory);
    } catch (const Error&) {
        return found;
    }
    for (const std::string& name : names) {
        if (pathExtension(name) != fileExtension.substr(1) || ofThisRun.contains(name)) continue;
        const FilePath file = kept_->directory / name;
        try {
            if (auto entry = decoded(files().read(file))) found.push_back({file, std::move(*entry)});
        } catch (const Error&) {  // stays on the disk for a later start
        }
    }
    std::sort(found.begin(), found.end(), [](const Leftover& left, const Leftover& right) {
        return std::tie(left.entry.savedAt, left.file) < std::tie(right.entry.savedAt, right.file);
    });
    return found;
}

void HeldTextStore::remove(const FilePath& file) {
    {
        const std::lock_guard lock(kept_->writtenLock);
        std::erase_if(kept_->written,
                      [&](const auto& record) { return record.first.filename() == file.filename(); });
    }
    removeQuietly(file);
}

void HeldTextStore::takeUpUnfinished(Seconds age) {
    try {
        for (const std::string& name : files().list(kept_->directory)) {
            const FilePath file = kept_->directory / name;
            const auto info = name.starts_with(temporaryPrefix) ? files().linkInfo(file) : std::nullopt;
            if (!info || clock_.now() - info->modified <= age) continue;
            if (decoded(files().read(file))) {
                files().move(file, kept_->directory / (digest(name) + std::string(fileExtension)));
            } else {
                files().remove(file);
            }
        }
    } catch (const Error&) {  // the next start tries again
    }
}

void HeldTextStore::discardEverythingKept() {
    kept_->discardEverything();
}

void HeldTextStore::discardEverythingKeptThisRun() {
    Registry& registry = Registry::shared();
    std::vector<std::shared_ptr<Kept>> stores;
    {
        const std::lock_guard lock(registry.registryLock);
        stores = registry.stores;
    }
    for (const auto& store : stores) store->discardEverything();
}

std::string HeldTextStore::digest(std::string_view text) {
    return sha256Hex(text).substr(0, digestDigits);
}

}  // namespace vesk
