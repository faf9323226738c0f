// The one process-wide installation: files, coordination and ubiquity, which stand behind static functions
// (AtomicWrite, CoordinatedIO, UbiquityStatus, Vault). A program's main installs it before any thread starts;
// a test replaces it for its own length.
#pragma once

#include "VeskCore/Platform/FileCoordination.h"
#include "VeskCore/Platform/FileSystem.h"
#include "VeskCore/Platform/Ubiquity.h"

namespace vesk {

struct FilePlatform {
    FileSystem* files = nullptr;
    FileCoordination* coordination = nullptr;
    UbiquitySource* ubiquity = nullptr;

    /// What is installed. A programmer error if nothing is.
    static const FilePlatform& current();
};

/// Installs for its own lifetime and puts the former installation back after it. Borrows the three objects.
/// Not while other threads use the files.
class FilePlatformInstallation {
public:
    explicit FilePlatformInstallation(FilePlatform platform);
    ~FilePlatformInstallation();
    FilePlatformInstallation(const FilePlatformInstallation&) = delete;
    FilePlatformInstallation& operator=(const FilePlatformInstallation&) = delete;

private:
    FilePlatform former_;
};

}  // namespace vesk
