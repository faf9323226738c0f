// What waits to ring, what rang and what was answered, as one JSON file that the window and the notification
// service share: $XDG_STATE_HOME/vesk/notifications.json (else ~/.local/state).
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "VeskCore/Platform/FileSystem.h"
#include "VeskCore/Platform/NotificationService.h"
#include "VeskCore/Support/Log.h"
#include "VeskCore/Support/Time.h"

namespace vesk {

/// A request that waits. It rings at the first date of its trigger after `armed`: the moment that it was
/// made, or that it rang last. Kept by that rather than by the date, so that it follows the device to another
/// zone.
struct WaitingNotification {
    NotificationRequest request;
    TimePoint armed;
    bool operator==(const WaitingNotification&) const = default;
};

/// A notification that is, or was, on the screen.
struct ShownNotification {
    std::string identifier;
    std::uint32_t number = 0;  ///< the notification server's own
    std::string server;        ///< which run of the server gave the number
    std::map<std::string, std::string> userInfo;
    bool operator==(const ShownNotification&) const = default;
};

struct NotificationState {
    std::vector<WaitingNotification> waiting;
    std::vector<ShownNotification> shown;
    std::vector<NotificationCategory> categories;
    std::vector<NotificationResponse> responses;  ///< answers that nobody has carried out yet
    bool operator==(const NotificationState&) const = default;

    /// Takes the place of a request of the same identifier. One that only says it otherwise keeps its turn,
    /// so that a ring that is due isn't lost.
    void add(const NotificationRequest& request, TimePoint now);
    void remove(const std::string& identifier);
    /// What has to ring by now, the longest due first.
    std::vector<WaitingNotification> due(TimePoint now, const Calendar& calendar) const;
    /// The requests that are still to come. One that is due and doesn't repeat counts as rung already.
    std::vector<NotificationRequest> toCome(TimePoint now, const Calendar& calendar) const;
    /// Of those that are due and don't repeat.
    std::vector<std::string> overdue(TimePoint now, const Calendar& calendar) const;
    /// When the next one rings.
    std::optional<TimePoint> nextRing(TimePoint now, const Calendar& calendar) const;
    /// Says that a request rang: it is over, or waits for its next date. Nothing happens to one that has been
    /// replaced meanwhile.
    void rang(const WaitingNotification& notification, const ShownNotification& shown, TimePoint now);
    /// A clock that was ahead by more than an hour and was set back leaves requests waiting for that date.
    bool followsClockBack(TimePoint now);
    /// The answer to what is shown under the number; none if it isn't known (any more).
    std::optional<NotificationResponse> answer(std::uint32_t number, const std::string& server,
                                               const std::string& action, TimePoint now);
};

/// Any thread and process: changes take turns by a lock beside the file and are written atomically. A file
/// that can't be parsed is put aside and the log told; a single entry that can't be read is left out.
class PendingNotifications {
public:
    PendingNotifications(FilePath folder, FileSystem& files, Log& log);
    static FilePath defaultFolder();

    /// Nothing for a file that isn't there or is damaged. Throws SystemError.
    NotificationState read() const;
    /// Throws SystemError when it can't be stored.
    void change(const std::function<void(NotificationState&)>& body);
    const FilePath& folder() const { return folder_; }

private:
    FilePath folder_, file_;
    FileSystem& files_;
    Log& log_;
};

}  // namespace vesk
