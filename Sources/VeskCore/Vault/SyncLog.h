// The sync machinery's flight recorder: a bounded log of events and of first sightings of notes. Values;
// pure.
#pragma once

#include <cstddef>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "VeskCore/Support/Time.h"
#include "VeskCore/Vault/FolderAsk.h"
#include "VeskCore/Vault/SyncTrigger.h"
#include "VeskCore/Vault/Vault.h"

namespace vesk {

struct SyncEvent {
    TimePoint at;
    std::string kind, detail;
    bool operator==(const SyncEvent&) const = default;
};

/// The first sighting of a note.
struct SyncArrival {
    std::string name, trigger;
    TimePoint seenAt;
    double latency = 0;  ///< seconds from the note's modification date
    bool afterPicker = false;
    bool operator==(const SyncArrival&) const = default;
};

/// When the system's folder picker was last open: it makes a provider look around.
struct PickerTimes {
    static constexpr Seconds afterWindow{30.0};
    static constexpr Seconds openLimit{600.0};

    std::optional<TimePoint> shown, dismissed;
    std::optional<std::string> outcome;

    bool covers(TimePoint date) const;
    bool operator==(const PickerTimes&) const = default;
};

struct SyncLog {
    static constexpr std::size_t eventLimit = 50;
    static constexpr std::size_t arrivalLimit = 20;

    std::vector<SyncEvent> events;
    std::vector<SyncArrival> arrivals;
    PickerTimes picker;

    void note(std::string_view kind, std::string_view detail, TimePoint at);
    void pickerShown(TimePoint at);
    void pickerDismissed(std::optional<bool> opened, TimePoint at);
    /// A pass that was woken by itself and found nothing leaves no event.
    void recordPass(SyncTrigger trigger, const std::vector<Note>& arrived, const std::vector<FolderAsk>& asks,
                    std::size_t notes, std::optional<std::size_t> changed, double seconds, bool applied,
                    TimePoint at);
    /// Takes over what an earlier run saved.
    void restore(const SyncLog& saved);

    /// JSON with ISO 8601 dates, pretty, keys sorted.
    std::string encoded() const;
    /// Empty for what can't be decoded.
    static SyncLog decoded(std::string_view text);
    /// A first listing shows nothing new.
    static std::vector<Note> newlyListed(const std::vector<Note>& notes,
                                         const std::optional<std::set<std::string>>& seen);
    bool operator==(const SyncLog&) const = default;
};

/// "0.25 s"
std::string syncSeconds(double seconds);

}  // namespace vesk
