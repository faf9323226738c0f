#include "VeskCore/Vault/SyncSchedule.h"

#include <algorithm>

namespace vesk {

SyncRequest SyncRequest::merged(const SyncRequest& other) const {
    SyncRequest both = *this;
    if (strength(other.trigger) >= strength(trigger)) both.trigger = other.trigger;
    both.touchesOpenNote = touchesOpenNote || other.touchesOpenNote;
    both.notes.insert(other.notes.begin(), other.notes.end());
    both.lastArrival = std::max(lastArrival, other.lastArrival);
    return both;
}

namespace SyncSchedule {

namespace {

Decision running(bool asks) {
    return {Decision::Run{asks}};
}

bool isWithin(const std::optional<TimePoint>& since, TimePoint now, Seconds gap) {
    return since && Seconds(now - *since) < gap;
}

Decision onPush(const SyncRequest& request, const State& state, TimePoint now) {
    if (request.touchesOpenNote) return running(true);
    Seconds wait = pushDebounce - Seconds(now - request.lastArrival);
    if (state.lastPushPass) wait = std::max(wait, pushFloor - Seconds(now - *state.lastPushPass));
    if (wait > Seconds::zero()) return {Decision::Wait{wait}};
    return running(true);
}

}  // namespace

Decision decide(const SyncRequest& request, const State& state, TimePoint now) {
    if (state.passRunning) return {Decision::Plain::coalesce};
    if (!state.inFront && !runsOutOfFront(request.trigger)) return {Decision::Plain::skip};
    switch (request.trigger) {
        case SyncTrigger::adopt:
        case SyncTrigger::pull:
            return running(true);
        case SyncTrigger::foreground:
            // Every return to the front is a pass; only its asks are rationed.
            return running(!state.askedThisForeground &&
                           !isWithin(state.lastForegroundPass, now, foregroundGap));
        case SyncTrigger::poll:
            if (isWithin(state.lastPassEnded, now, pollGap)) return {Decision::Plain::skip};
            return running(true);
        case SyncTrigger::presenter:
        case SyncTrigger::metadata:
            return onPush(request, state, now);
    }
    return {Decision::Plain::skip};
}

bool leavingCancels(AskClass asks, bool background) {
    return background || asks == AskClass::automatic;
}

}  // namespace SyncSchedule
}  // namespace vesk
