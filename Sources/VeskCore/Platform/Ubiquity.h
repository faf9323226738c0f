// What a sync provider says of a file: whether its bytes are here, and getting them. On a platform without a
// provider nothing is ubiquitous.
#pragma once

#include <functional>
#include <optional>

#include "VeskCore/Platform/FileSystem.h"

namespace vesk {

class UbiquitySource {
public:
    enum class DownloadingStatus { notDownloaded, downloaded, current, other };
    struct Values {
        bool isUbiquitous = false;
        bool isDownloading = false;
        std::optional<DownloadingStatus> downloadingStatus;
        bool operator==(const Values&) const = default;
    };

    virtual ~UbiquitySource() = default;
    /// Read afresh, never from a cache; none if they can't be read.
    virtual std::optional<Values> values(const FilePath& path) const = 0;
    /// A file whose bytes are not here although it looks ordinary. Never materialises it.
    virtual bool isDataless(const FilePath& path) const = 0;
    /// Asks the provider for the bytes and returns at once; throws if it refuses.
    virtual void startDownload(const FilePath& path) = 0;
    /// Runs `body` in a mode in which this thread's file access triggers no download.
    virtual void withoutMaterialising(const std::function<void()>& body) = 0;
};

/// A machine without a sync provider that it could ask.
class NoUbiquity final : public UbiquitySource {
public:
    std::optional<Values> values(const FilePath&) const override { return Values{}; }
    bool isDataless(const FilePath&) const override { return false; }
    void startDownload(const FilePath& path) override;  // throws ENOTSUP
    void withoutMaterialising(const std::function<void()>& body) override { body(); }
};

}  // namespace vesk
