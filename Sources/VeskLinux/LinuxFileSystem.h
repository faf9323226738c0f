// The files of a Linux machine.
#pragma once

#include "VeskCore/Platform/FileSystem.h"

namespace vesk {

/// Stateless; any thread. Writes are durable: written, fsynced, renamed, and the folder fsynced. Where the
/// last of these fails, the change stands but may not outlast a power cut, and SystemError says so ("fsync").
/// A file of writeNew has its bytes on stable storage; its name is sure to be there once replace or move has
/// put it in its place. The creation date that survives saves is kept in the extended attribute
/// "user.vesk.created" (decimal microseconds since 1970). Attributes are the item's own: those of a symbolic
/// link's target are not reached through the link.
class LinuxFileSystem final : public FileSystem {
public:
    std::optional<FileInfo> info(const FilePath& path) const override;
    std::optional<FileInfo> linkInfo(const FilePath& path) const override;
    bool isWritable(const FilePath& path) const override;
    std::optional<FilePath> realPath(const FilePath& path) const override;
    std::vector<std::string> list(const FilePath& folder) const override;
    void walk(const FilePath& root, const std::function<WalkStep(const WalkEntry&)>& visit) const override;
    std::string read(const FilePath& path, std::optional<std::size_t> limit = {}) const override;
    void createDirectories(const FilePath& path) override;
    void writeNew(const FilePath& path, std::string_view bytes) override;
    void replace(const FilePath& target, const FilePath& temporary) override;
    bool exchange(const FilePath& target, const FilePath& temporary) override;
    void carryMetadata(const FilePath& target, const FilePath& temporary) override;
    void move(const FilePath& from, const FilePath& to) override;
    void remove(const FilePath& path) override;
    void removeTree(const FilePath& path) override;
    void setCreationDate(const FilePath& path, TimePoint created) override;
    std::optional<std::string> attribute(const FilePath& path, std::string_view name) const override;
    void setAttribute(const FilePath& path, std::string_view name, std::string_view value) override;
    FilePath applicationSupportDirectory() const override;
};

}  // namespace vesk
