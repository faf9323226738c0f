// Starting the window from another program.
#pragma once

#include <vector>

#include "VeskCore/Platform/FileSystem.h"

namespace vesk {

/// Starts `vesk-desktop`, the one beside this program or else on the PATH, with what it is to open, and
/// doesn't wait for it. One that runs already is handed the same. Throws SystemError.
void startDesktop(const std::vector<FilePath>& open);

}  // namespace vesk
