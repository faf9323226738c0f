#include "VeskCore/Vault/UbiquityStatus.h"

#include <cerrno>
#include <exception>

#include "VeskCore/Platform/FilePlatform.h"
#include "VeskCore/Support/PathText.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Vault/AtomicWrite.h"

namespace vesk {

bool needsDownload(UbiquityState status) {
    switch (status) {
        case UbiquityState::stale:
        case UbiquityState::placeholder:
        case UbiquityState::downloading:
            return true;
        case UbiquityState::materialised:
        case UbiquityState::notUbiquitous:
            return false;
    }
    return false;
}

bool hasLocalContent(UbiquityState status) {
    switch (status) {
        case UbiquityState::materialised:
        case UbiquityState::stale:
        case UbiquityState::notUbiquitous:
            return true;
        case UbiquityState::placeholder:
        case UbiquityState::downloading:
            return false;
    }
    return false;
}

namespace UbiquityStatus {

namespace {

constexpr std::string_view stubPrefix = ".";
constexpr std::string_view stubSuffix = ".icloud";

bool stubExists(const FilePath& path) {
    return FilePlatform::current().files->linkInfo(stubPath(path)).has_value();
}

const SystemError* asSystemError(const std::exception& error) {
    return dynamic_cast<const SystemError*>(&error);
}

}  // namespace

UbiquityState of(const FilePath& path) {
    const FilePlatform& platform = FilePlatform::current();
    try {
        if (!platform.files->exists(path)) {
            return stubExists(path) && CoordinatedIO::needsCoordination(path) ? UbiquityState::placeholder
                                                                              : UbiquityState::notUbiquitous;
        }
        // Before the values: asking for those of a dataless file can bring its bytes.
        if (platform.ubiquity->isDataless(path)) return UbiquityState::placeholder;
        const auto values = platform.ubiquity->values(path).value_or(UbiquitySource::Values{});
        return classify(values.isUbiquitous, values.isDownloading, values.downloadingStatus);
    } catch (const std::exception&) {
        // What can't be asked is an ordinary file; the read that follows tells what is wrong with it.
        return UbiquityState::notUbiquitous;
    }
}

void startDownload(const FilePath& path) {
    UbiquitySource& ubiquity = *FilePlatform::current().ubiquity;
    try {
        ubiquity.startDownload(path);
    } catch (const std::exception&) {
        if (!stubExists(path)) throw;
        ubiquity.startDownload(stubPath(path));
    }
}

void requestDownload(const FilePath& path) noexcept {
    try {
        startDownload(path);
    } catch (...) {  // the caller reports that the bytes aren't here, whatever became of the request
    }
}

bool isEvictionError(const std::exception_ptr& error) {
    if (!error) return false;
    try {
        std::rethrow_exception(error);
    } catch (const std::exception& outer) {
        if (const SystemError* system = asSystemError(outer)) {
            if (system->code == EAGAIN) return true;
        }
        try {
            std::rethrow_if_nested(outer);
        } catch (const SystemError& inner) {
            return inner.code == EAGAIN;
        } catch (...) {
            return false;
        }
    } catch (...) {
        return false;
    }
    return false;
}

bool isDataless(const FilePath& path) {
    return FilePlatform::current().ubiquity->isDataless(path);
}

FilePath stubPath(const FilePath& path) {
    return path.parent_path() /
           (std::string(stubPrefix) + path.filename().native() + std::string(stubSuffix));
}

std::optional<std::string> logicalName(std::string_view stubName) {
    if (stubName.size() <= stubPrefix.size() + stubSuffix.size() || !stubName.starts_with(stubPrefix))
        return {};
    if (!asciiEqualsIgnoringCase(stubName.substr(stubName.size() - stubSuffix.size()), stubSuffix)) return {};
    stubName.remove_prefix(stubPrefix.size());
    stubName.remove_suffix(stubSuffix.size());
    if (stubName.starts_with('.')) return {};
    return std::string(stubName);
}

UbiquityState classify(bool isUbiquitous, bool isDownloading,
                       std::optional<UbiquitySource::DownloadingStatus> downloadingStatus) {
    if (!isUbiquitous) return UbiquityState::notUbiquitous;
    if (isDownloading) return UbiquityState::downloading;
    if (downloadingStatus == UbiquitySource::DownloadingStatus::notDownloaded)
        return UbiquityState::placeholder;
    if (downloadingStatus == UbiquitySource::DownloadingStatus::downloaded) return UbiquityState::stale;
    return UbiquityState::materialised;
}

void withoutMaterialising(const std::function<void()>& body) {
    FilePlatform::current().ubiquity->withoutMaterialising(body);
}

int materialiseAll(const FilePath& folder, const std::set<std::string, std::less<>>& extensions) {
    int requests = 0;
    const auto request = [&requests](const FilePath& path) {
        try {
            startDownload(path);
            ++requests;
        } catch (const std::exception&) {  // this file stays owed; the others are still asked for
        }
    };
    const auto isWanted = [&extensions](std::string_view name) {
        return extensions.contains(lowercasedExtension(name));
    };
    FilePlatform::current().files->walk(folder, [&](const WalkEntry& entry) {
        const std::string_view name = entry.name();
        if (entry.isDirectory()) return name.starts_with('.') ? WalkStep::skip : WalkStep::descend;
        const FilePath path = appending(folder, entry.relativePath());
        if (const auto logical = logicalName(name)) {
            if (isWanted(*logical)) request(path.parent_path() / *logical);
        } else if (isWanted(name) && needsDownload(of(path))) {
            request(path);
        }
        return WalkStep::descend;
    });
    return requests;
}

}  // namespace UbiquityStatus
}  // namespace vesk
