// Small files that several processes of one user share: taking turns, and what becomes of a damaged one.
#pragma once

#include "VeskCore/Platform/FileSystem.h"
#include "VeskLinux/Descriptor.h"

namespace vesk::linuxfiles {

/// Waits for the lock that the file stands for; held as long as the descriptor. On a file system without
/// locks it doesn't wait: what is kept without a turn is better than what isn't kept. Throws SystemError.
Descriptor waitForTurn(const FilePath& lock);
/// The same without waiting: none (an empty descriptor) if somebody else holds it.
Descriptor takeIfFree(const FilePath& lock);
/// Renames a damaged file to "….damaged" (then "….damaged-2") and answers with the new path.
FilePath putAside(FileSystem& files, const FilePath& damaged);
/// The file's path with an ending after its whole name.
FilePath besides(const FilePath& file, std::string_view ending);

}  // namespace vesk::linuxfiles
