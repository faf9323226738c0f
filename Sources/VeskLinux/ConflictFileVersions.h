// The conflict files that sync services leave beside a note, seen as versions of it:
//   "plan.sync-conflict-20260314-091500-ABCDEFG.md"            (a service of the peer-to-peer kind)
//   "plan (Anna's conflicted copy 2026-03-14).md", "plan (conflicted copy 2026-03-14 091500).md"
#pragma once

#include <string>

#include "VeskCore/Platform/FileVersions.h"

namespace vesk {

/// Any thread; calls block. No text is ever destroyed: a version that is let go moves to the vault's trash,
/// from which it can be restored under its name beside the note, and a version that takes the note's place
/// changes places with it.
class ConflictFileVersions final : public FileVersions {
public:
    /// `timeZone` is where the times in the names were written: this machine's, since the service writes its
    /// own.
    ConflictFileVersions(FileSystem& files, std::string timeZone);

    /// By name. A version's identifier is its file's name; the device and, where it is told to the second,
    /// the time come from the name, else the time is the file's.
    std::vector<std::shared_ptr<FileVersion>> unresolvedConflictVersions(const FilePath& path) const override;
    std::optional<std::set<FilePath>> conflictedItems(const FilePath& root) const override;
    std::shared_ptr<FileVersion> currentVersion(const FilePath& path) const override;
    void removeOtherVersions(const FilePath& path) override;

private:
    FileSystem& files_;
    std::string timeZone_;
};

}  // namespace vesk
