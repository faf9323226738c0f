#include "VeskCore/Vault/VaultBookmarks.h"

#include <algorithm>

#include "VeskCore/Platform/FilePlatform.h"

namespace vesk {

VaultBookmarks::VaultBookmarks(UserDefaults& defaults, const Bookmarks& bookmarks, std::string key)
    : defaults_(defaults), bookmarks_(bookmarks), key_(std::move(key)) {}

Json::Array VaultBookmarks::entries() const {
    auto stored = defaults_.value(key_);
    if (!stored || !stored->asArray()) return {};
    Json::Array found;
    for (const auto& entry : *stored->asArray()) {
        if (entry.asObject()) found.push_back(entry);
    }
    return found;
}

void VaultBookmarks::store(const FilePath& folder) {
    auto data = bookmarks_.make(folder);
    if (!data) return;
    auto kept = entries();
    const auto address = standardised(folder);
    std::erase_if(kept, [&](const Json& entry) {
        auto resolved = bookmarks_.resolve(entry);
        return resolved && standardised(resolved->path) == address;
    });
    kept.insert(kept.begin(), std::move(*data));
    if (kept.size() > limit) kept.resize(limit);
    defaults_.set(key_, Json(std::move(kept)));
}

std::optional<FilePath> VaultBookmarks::openable(const FilePath& path) const {
    auto info = FilePlatform::current().files->info(path);
    if (!info || info->kind != FileKind::directory || bookmarks_.isInTrash(path)) return {};
    return path;
}

VaultBookmarks::Restored VaultBookmarks::restoreMostRecent() {
    const auto remembered = entries();
    if (remembered.empty()) return {Restored::NothingRemembered{}};
    const auto& first = remembered.front();
    auto resolved = bookmarks_.resolve(first);
    if (!resolved) {
        auto path = bookmarks_.path(first);
        return {Restored::Unavailable{path ? std::optional(path->string()) : std::nullopt}};
    }
    if (!openable(resolved->path)) return {Restored::Unavailable{resolved->path.string()}};
    if (resolved->stale) store(resolved->path);
    return {Restored::Vault{resolved->path}};
}

std::vector<FilePath> VaultBookmarks::olderVaultsThatOpen(std::size_t most) const {
    const auto remembered = entries();
    std::vector<FilePath> found;
    for (std::size_t i = 1; i < remembered.size() && found.size() < most; ++i) {
        auto resolved = bookmarks_.resolve(remembered[i]);
        if (!resolved || !openable(resolved->path)) continue;
        auto address = standardised(resolved->path);
        if (std::find(found.begin(), found.end(), address) == found.end())
            found.push_back(std::move(address));
    }
    return found;
}

}  // namespace vesk
