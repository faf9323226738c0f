// The system's notification centre: requests that ring at a date, also when the program isn't running, and
// what the person did with one that rang.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "VeskCore/Support/Time.h"

namespace vesk {

/// A calendar date by its fields in the device's zone; absent ones match anything.
struct NotificationTrigger {
    std::optional<int> year, month, day, hour, minute, weekday;  ///< weekday 1 (Sunday) to 7
    bool repeats = false;
    bool operator==(const NotificationTrigger&) const = default;
};

struct NotificationRequest {
    std::string identifier;  ///< a request with the same one takes its place
    std::string title, subtitle, body;
    std::string threadIdentifier, categoryIdentifier;
    std::map<std::string, std::string> userInfo;
    NotificationTrigger trigger;
    bool operator==(const NotificationRequest&) const = default;
};

/// The buttons of a kind of notification, in the order shown.
struct NotificationCategory {
    struct Action {
        std::string identifier, title;
        bool operator==(const Action&) const = default;
    };
    std::string identifier;
    std::vector<Action> actions;
    bool operator==(const NotificationCategory&) const = default;
};

/// A notification was opened, or one of its buttons pressed.
struct NotificationResponse {
    std::string requestIdentifier;
    std::optional<std::string> action;  ///< none for a tap on the notification itself
    std::map<std::string, std::string> userInfo;
    std::optional<TimePoint> tappedAt = {};  ///< none for just now
    bool operator==(const NotificationResponse&) const = default;
};

enum class NotificationPermission { notDetermined, denied, authorized };

/// Any thread; calls may block and throw Error.
class NotificationService {
public:
    virtual ~NotificationService() = default;
    virtual NotificationPermission permission() const = 0;
    virtual void requestPermission() = 0;
    virtual void setCategories(const std::vector<NotificationCategory>& categories) = 0;
    virtual std::vector<NotificationRequest> pendingRequests() const = 0;
    /// Of requests that are due, don't repeat and were not shown yet, since nobody could show them. They are
    /// no longer pending, and ring as soon as somebody can.
    virtual std::vector<std::string> overdueIdentifiers() const { return {}; }
    virtual void add(const NotificationRequest& request) = 0;
    virtual void removePending(const std::vector<std::string>& identifiers) = 0;
    virtual void removeDelivered(const std::vector<std::string>& identifiers) = 0;
    /// Called on any thread. Set once, before anything rings.
    virtual void setOnResponse(std::function<void(const NotificationResponse&)> onResponse) = 0;
};

}  // namespace vesk
