#include "VeskCore/Brain/Filing/FilingTiming.h"

namespace vesk::FilingTiming {

namespace {

constexpr std::size_t fewestCalls = 5;
constexpr double usualBatch = 1.5, usualNote = 0.5;  // seconds

std::string key(BrainProviderID provider) {
    return "vesk.organise.secondsPerCall." + std::string(rawValue(provider));
}

}  // namespace

double perCallEstimate(BrainProviderID provider, bool batching, const UserDefaults& defaults) {
    const auto known = defaults.number(key(provider));
    return known && *known > 0 ? *known : batching ? usualBatch : usualNote;
}

void remember(const FilingReport& report, BrainProviderID provider, UserDefaults& defaults) {
    const auto mean = report.meanCallSeconds();
    if (report.callSeconds.size() >= fewestCalls && mean && *mean > 0) defaults.set(key(provider), *mean);
}

}  // namespace vesk::FilingTiming
