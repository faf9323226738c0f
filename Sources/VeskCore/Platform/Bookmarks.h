// A remembered place: data from which a folder is found again, if it can be, also after it was renamed.
#pragma once

#include <optional>
#include <string>

#include "VeskCore/Platform/FileSystem.h"
#include "VeskCore/Support/Json.h"

namespace vesk {

/// Any thread.
class Bookmarks {
public:
    struct Resolved {
        FilePath path;
        bool stale = false;  ///< found, but the data no longer describes it well and is to be made anew
    };

    virtual ~Bookmarks() = default;
    /// Data that describes an item, or none if it can't be described.
    virtual std::optional<Json> make(const FilePath& path) const = 0;
    /// None if nothing can be found by the data.
    virtual std::optional<Resolved> resolve(const Json& data) const = 0;
    /// The path that the data was made for, for telling the user; none if the data is damaged.
    virtual std::optional<FilePath> path(const Json& data) const = 0;
    /// True if the item lies in the system's trash.
    virtual bool isInTrash(const FilePath& path) const = 0;
};

}  // namespace vesk
