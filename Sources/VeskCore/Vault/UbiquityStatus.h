// What state a file is in with its sync provider. Stands on the installed FilePlatform; any thread.
#pragma once

#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "VeskCore/Platform/FileSystem.h"
#include "VeskCore/Platform/Ubiquity.h"

namespace vesk {

enum class UbiquityState {
    materialised,   ///< a provider's item, current copy here
    stale,          ///< an older copy here, a newer one exists
    placeholder,    ///< no bytes here: a dataless file or a stub
    downloading,    ///< a download is under way
    notUbiquitous,  ///< not a provider's item
};

bool needsDownload(UbiquityState status);
bool hasLocalContent(UbiquityState status);

namespace UbiquityStatus {

/// Never materialises the file, never throws.
UbiquityState of(const FilePath& path);
/// Asks for the file or, failing that, for its stub; throws what the provider throws.
void startDownload(const FilePath& path);
/// The same with failures ignored: asking is all that can be done.
void requestDownload(const FilePath& path) noexcept;
/// True for the failure of reading a file whose bytes were just evicted (EAGAIN in this system's numbers,
/// 11).
bool isEvictionError(const std::exception_ptr& error);
bool isDataless(const FilePath& path);
/// The same folder, name ".<name>.icloud".
FilePath stubPath(const FilePath& path);
/// The name of the file that a stub stands for; none if it is no stub, or the stub of a hidden file.
std::optional<std::string> logicalName(std::string_view stubName);
UbiquityState classify(bool isUbiquitous, bool isDownloading,
                       std::optional<UbiquitySource::DownloadingStatus> downloadingStatus);
void withoutMaterialising(const std::function<void()>& body);
/// Requests a download of every file below `folder` with one of the extensions (lower-case) that needs one,
/// stubs included, hidden folders left out. Returns the number of requests; a failed one doesn't end the
/// walk.
int materialiseAll(const FilePath& folder, const std::set<std::string, std::less<>>& extensions);

}  // namespace UbiquityStatus
}  // namespace vesk
