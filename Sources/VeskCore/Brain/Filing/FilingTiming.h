// How long a question to a provider takes, as this user's own passes have shown.
#pragma once

#include "VeskCore/Brain/BrainProviderID.h"
#include "VeskCore/Brain/Filing/FilingOutcome.h"
#include "VeskCore/Platform/UserDefaults.h"

namespace vesk::FilingTiming {

/// In seconds.
double perCallEstimate(BrainProviderID provider, bool batching, const UserDefaults& defaults);
/// A short pass teaches nothing.
void remember(const FilingReport& report, BrainProviderID provider, UserDefaults& defaults);

}  // namespace vesk::FilingTiming
