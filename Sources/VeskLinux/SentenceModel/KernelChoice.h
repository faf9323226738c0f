// Which kernels this processor can run.
#pragma once

#include <vector>

#include "VeskLinux/SentenceModel/Kernels.h"

namespace vesk::sentencemodel {

/// The fastest first; the last needs nothing.
std::vector<Kernels> availableKernels();

}  // namespace vesk::sentencemodel
