// Remembered places by path, with the item's identity to tell a folder of the same name from the one
// remembered.
#pragma once

#include "VeskCore/Platform/Bookmarks.h"

namespace vesk {

/// The data is {"path": …, "fileID": …, "device": …}. A folder that was renamed is not found by its identity:
/// Linux has no look-up by inode without privileges.
class PathBookmarks final : public Bookmarks {
public:
    explicit PathBookmarks(const FileSystem& files) : files_(files) {}
    std::optional<Json> make(const FilePath& path) const override;
    std::optional<Resolved> resolve(const Json& data) const override;
    std::optional<FilePath> path(const Json& data) const override;
    bool isInTrash(const FilePath& path) const override;

private:
    const FileSystem& files_;
};

}  // namespace vesk
