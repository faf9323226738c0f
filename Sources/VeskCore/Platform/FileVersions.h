// The versions of a file that a sync provider holds as unresolved.
#pragma once

#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "VeskCore/Platform/FileSystem.h"

namespace vesk {

/// One version; what it names may vanish at any time.
class FileVersion {
public:
    virtual ~FileVersion() = default;
    virtual std::string identifier() const = 0;  ///< lasting, unlike any other version's
    virtual std::optional<TimePoint> modified() const = 0;
    virtual std::optional<std::string> deviceName() const = 0;
    /// The version's bytes; throws.
    virtual std::string read() const = 0;
    /// Puts this version in the place of the file; throws.
    virtual void replaceItem(const FilePath& path) = 0;
    virtual void markResolved() = 0;
};

/// Any thread; calls block.
class FileVersions {
public:
    virtual ~FileVersions() = default;
    /// None or empty without a conflict; in the provider's order.
    virtual std::vector<std::shared_ptr<FileVersion>> unresolvedConflictVersions(
        const FilePath& path) const = 0;
    /// The items below `root` that may have such versions, for one who asks about many; none if each has to
    /// be asked for.
    virtual std::optional<std::set<FilePath>> conflictedItems(const FilePath& root) const {
        static_cast<void>(root);
        return {};
    }
    virtual std::shared_ptr<FileVersion> currentVersion(const FilePath& path) const = 0;
    /// Lets go of every version but the current one; throws.
    virtual void removeOtherVersions(const FilePath& path) = 0;
};

/// A machine whose providers keep no versions.
class NoFileVersions final : public FileVersions {
public:
    std::vector<std::shared_ptr<FileVersion>> unresolvedConflictVersions(const FilePath&) const override {
        return {};
    }
    std::shared_ptr<FileVersion> currentVersion(const FilePath&) const override { return nullptr; }
    void removeOtherVersions(const FilePath&) override {}
};

}  // namespace vesk
