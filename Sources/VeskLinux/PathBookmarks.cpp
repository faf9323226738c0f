#include "VeskLinux/PathBookmarks.h"

#include "VeskCore/Support/PathText.h"
#include "VeskCore/Support/Text.h"

namespace vesk {

std::optional<Json> PathBookmarks::make(const FilePath& path) const {
    const auto address = standardised(path);
    auto info = files_.info(address);
    // The settings are JSON, which can't carry a path that is not UTF-8.
    if (!info || !isValidUtf8(address.string())) return {};
    return Json::object({{"path", address.string()},
                         {"fileID", static_cast<std::int64_t>(info->fileID)},
                         {"device", static_cast<std::int64_t>(info->device)}});
}

std::optional<Bookmarks::Resolved> PathBookmarks::resolve(const Json& data) const {
    auto remembered = path(data);
    if (!remembered) return {};
    auto info = files_.info(*remembered);
    if (!info) return {};
    const bool same = data.integer("fileID") == static_cast<std::int64_t>(info->fileID) &&
                      data.integer("device") == static_cast<std::int64_t>(info->device);
    return Resolved{*remembered, !same};
}

std::optional<FilePath> PathBookmarks::path(const Json& data) const {
    auto text = data.string("path");
    if (!text || text->empty() || text->front() != '/') return {};
    return FilePath(*text);
}

bool PathBookmarks::isInTrash(const FilePath& path) const {
    const auto address = standardised(path).string();
    if (isAtOrBelow(address, (files_.applicationSupportDirectory() / "Trash").string())) return true;
    for (auto component : pathComponents(address)) {
        // The trash of another volume is ".Trash" or ".Trash-<uid>" at its top.
        if (component == ".Trash" || component == ".Trashes" || component.starts_with(".Trash-")) return true;
    }
    return false;
}

}  // namespace vesk
