#include "VeskCore/Platform/Ubiquity.h"

#include <cerrno>

namespace vesk {

void NoUbiquity::startDownload(const FilePath& path) {
    throw SystemError(ENOTSUP, "download", path.native());
}

}  // namespace vesk
