// What a save does when the file on disk is no longer what the editor loaded. Text is never lost: neither the
// user's typing nor the other device's version. Pure: reads, writes and existence tests are handed in.
#pragma once

#include <array>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "VeskCore/Support/Error.h"

namespace vesk {
class Json;
}

namespace vesk::ForeignEdit {

inline constexpr std::string_view conflictMarker = "(conflict from another device";
inline constexpr std::string_view recoveredMarker = "(recovered";
inline constexpr std::array<std::string_view, 3> reminderKeys = {"remind", "repeat", "priority"};

/// What stands at a path.
struct Disk {
    struct Text {
        std::string text;
        bool operator==(const Text&) const = default;
    };
    enum class Plain {
        unreadable,  ///< there, but no current text could be had
        gone,
    };
    std::variant<Text, Plain> value = Plain::gone;
    bool operator==(const Disk&) const = default;
};

struct Decision {
    struct Merged {
        std::string text;
        bool operator==(const Merged&) const = default;
    };
    enum class Plain { write, alreadyOnDisk, diskWins, keepBoth, noteGone };
    std::variant<Merged, Plain> value = Plain::write;
    bool operator==(const Decision&) const = default;
};

/// What a save did.
struct Outcome {
    struct DiskWins {
        std::string text;
        bool operator==(const DiskWins&) const = default;
    };
    struct KeptBoth {
        std::string copyPath;
        bool operator==(const KeptBoth&) const = default;
    };
    struct Merged {
        std::string text;
        bool operator==(const Merged&) const = default;
    };
    struct FollowedMove {
        std::string to;
        std::shared_ptr<const Outcome> inner;
        bool operator==(const FollowedMove& other) const;
    };
    struct KeptAsCopy {
        std::string copyPath;
        bool operator==(const KeptAsCopy&) const = default;
    };
    enum class Plain { wrote, alreadyOnDisk, noteTrashed };
    std::variant<DiskWins, KeptBoth, Merged, FollowedMove, KeptAsCopy, Plain> value = Plain::wrote;
    bool operator==(const Outcome&) const = default;
};

/// The other version is safe in its copy, the note still holds `preservedText`, and the user's text is
/// unsaved.
class CopyKeptButSaveFailed : public Error {
public:
    CopyKeptButSaveFailed(std::string copy, std::string preserved, std::string reason)
        : copyPath(std::move(copy)), preservedText(std::move(preserved)), underlying(std::move(reason)) {}
    std::string description() const override;

    std::string copyPath, preservedText;
    std::string underlying;  ///< the description of what failed
};

/// Thrown by a write that finds, at the moment it would replace the file, another text there than the save
/// had read. The file holds `found` as if nothing had been tried; the save decides anew against it.
class DiskChangedMeanwhile : public Error {
public:
    explicit DiskChangedMeanwhile(Disk now) : found(std::move(now)) {}
    std::string description() const override { return "The file changed while it was being saved."; }
    Disk found;
};

/// A change of the three reminder keys, as it is stored.
struct ReminderKeyChange {
    std::map<std::string, std::string> written;  ///< key → emitted YAML scalar
    std::vector<std::string> removed;

    bool removesReminder() const;
    /// The text with the change made; the text itself, to the byte, if nothing differs.
    std::string applied(std::string_view text) const;
    /// {"written": {key: scalar}, "removed": [key]}
    Json json() const;
    static std::optional<ReminderKeyChange> fromJson(const Json& json);
    bool operator==(const ReminderKeyChange&) const = default;
};

/// The journal of where notes went while the application had them open. `at` values are ticks, not times.
class Departures {
public:
    struct Move {
        std::string from, to;
        int at = 0;
        bool operator==(const Move&) const = default;
    };
    struct Trashing {
        std::string path;
        int at = 0;
        bool operator==(const Trashing&) const = default;
    };
    struct Route {
        std::string path;
        int at = 0;
        bool operator==(const Route&) const = default;
    };

    void arrived(std::string_view path);
    /// A move that is told again (by the application, later by the watcher) counts once, unless something has
    /// come to `from` since.
    void moved(std::string_view from, std::string_view to);
    void trashed(std::string_view path);

    int since(std::string_view path) const;
    std::optional<Route> route(std::string_view path) const;
    std::optional<std::string> destination(std::string_view path) const;
    bool wasTrashed(std::string_view path) const;
    bool wasTrashed(std::string_view path, int after) const;

    /// A copy that follows no route.
    Departures notFollowing() const;
    bool operator==(const Departures&) const = default;

private:
    int clock_ = 0;
    std::vector<Move> moves_;
    std::vector<Trashing> trashings_;
    std::map<std::string, int, std::less<>> arrivals_;
    bool follows_ = true;
};

/// The effects of a save. `write` gets what the save has read at that path, so that the file can be exchanged
/// only for what was looked at; it may throw DiskChangedMeanwhile.
struct Effects {
    std::function<Disk(const std::string& path)> readDisk;
    std::function<void(const std::string& text, const std::string& path, const Disk& expected)> write;
    std::function<bool(const std::string& path)> exists;
};

/// Saves `text` at `path`. A text that comes in while it writes is decided about anew, a few times at most.
/// `baseline` is the text that the editor last knew the note to hold; none if it never had a trustworthy
/// copy. Throws what reading and writing throw, and CopyKeptButSaveFailed.
Outcome save(const std::string& text, const std::string& path, const std::optional<std::string>& baseline,
             const Effects& effects, const Departures& departures);
/// The same decision without effects and departures.
Decision decide(const std::optional<std::string>& baseline, const Disk& onDisk, const std::string& incoming);

/// Free sibling paths whose names fit a file system.
std::string conflictCopyPath(std::string_view path, const std::function<bool(const std::string&)>& exists);
std::string recoveredCopyPath(std::string_view path, const std::function<bool(const std::string&)>& exists);
bool isKeptCopy(std::string_view stem);
std::optional<std::string> originalStem(std::string_view keptCopyStem);
bool isConflictCopy(std::string_view stem);

/// The merge of a change of reminder keys on one side with any change on the other; none if both changed the
/// rest.
std::optional<std::string> foldReminderKeys(std::string_view baseline, std::string_view disk,
                                            std::string_view incoming);
/// The change of keys between two texts that are equal without them; none if they differ elsewhere or not at
/// all.
std::optional<ReminderKeyChange> reminderKeyChange(std::string_view from, std::string_view to);
/// The three keys' values as emitted scalars.
std::map<std::string, std::string> reminderKeyValues(std::string_view text);

struct LeavingDecision {
    struct Owe {
        ReminderKeyChange change;
        bool operator==(const Owe&) const = default;
    };
    enum class Plain { hold, keepCopy };
    std::variant<Owe, Plain> value = Plain::hold;
    bool operator==(const LeavingDecision&) const = default;
};
LeavingDecision leavingDecision(const std::optional<std::string>& baseline, std::string_view buffer,
                                bool heldForDownload, bool background, bool switchingVault);

}  // namespace vesk::ForeignEdit
