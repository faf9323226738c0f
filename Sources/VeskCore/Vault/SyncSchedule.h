// When a refresh of the vault runs, and whether it may ask the sync provider. Pure; any thread.
#pragma once

#include <optional>
#include <set>
#include <string>
#include <variant>

#include "VeskCore/Support/Time.h"
#include "VeskCore/Vault/SyncTrigger.h"

namespace vesk {

struct SyncRequest {
    SyncTrigger trigger = SyncTrigger::poll;
    bool touchesOpenNote = false;
    std::set<std::string> notes;  ///< relative paths
    TimePoint lastArrival;        ///< of the latest event that fed the request

    /// One request out of two; of equal strength the other names it.
    SyncRequest merged(const SyncRequest& other) const;
    bool operator==(const SyncRequest&) const = default;
};

namespace SyncSchedule {

inline constexpr Seconds pushDebounce{2.0};
inline constexpr Seconds pushFloor{10.0};
inline constexpr Seconds pollGap{5.0};
inline constexpr Seconds foregroundGap{30.0};

struct State {
    bool inFront = false, passRunning = false;
    std::optional<TimePoint> lastPassEnded, lastForegroundPass, lastPushPass;
    bool askedThisForeground = false;
};

struct Decision {
    struct Run {
        bool asks = false;
        bool operator==(const Run&) const = default;
    };
    struct Wait {
        Seconds time{0};
        bool operator==(const Wait&) const = default;
    };
    enum class Plain {
        coalesce,  ///< merged into what follows the pass that runs
        skip,
    };
    std::variant<Run, Wait, Plain> value = Plain::skip;
    bool operator==(const Decision&) const = default;
};

Decision decide(const SyncRequest& request, const State& state, TimePoint now);
/// Whether asks under way end when the user leaves: for the background, or for something else.
bool leavingCancels(AskClass asks, bool background);

}  // namespace SyncSchedule
}  // namespace vesk
