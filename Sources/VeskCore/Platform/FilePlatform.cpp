#include "VeskCore/Platform/FilePlatform.h"

#include "VeskCore/Support/Ensure.h"

namespace vesk {

namespace {

FilePlatform installed;

}  // namespace

const FilePlatform& FilePlatform::current() {
    VESK_ENSURE(installed.files && installed.coordination && installed.ubiquity);
    return installed;
}

FilePlatformInstallation::FilePlatformInstallation(FilePlatform platform) : former_(installed) {
    VESK_ENSURE(platform.files && platform.coordination && platform.ubiquity);
    installed = platform;
}

FilePlatformInstallation::~FilePlatformInstallation() {
    installed = former_;
}

}  // namespace vesk
