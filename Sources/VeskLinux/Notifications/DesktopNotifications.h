// Notifications over org.freedesktop.Notifications, at dates that this program itself waits for: a
// notification server shows at once what it is given and knows no dates.
#pragma once

#include <functional>
#include <memory>

#include "VeskLinux/Descriptor.h"
#include "VeskLinux/Notifications/PendingNotifications.h"

namespace vesk {

/// The window and the notification service each have one, over one store. Whichever holds the ringing lock
/// rings; the other takes over when it ends. An answer is stored before it is handed on: to the window where
/// there is one, else to the service. What came due while nobody ran, the device slept or no server was there
/// rings once, late.
class DesktopNotifications final : public NotificationService {
public:
    enum class Role {
        window,   ///< stands for the person's session as long as it lives
        service,  ///< carries out answers only while there is no window
    };
    struct Setting {
        Role role = Role::window;
        FilePath folder = PendingNotifications::defaultFolder();
        std::function<Calendar()> calendar = [] { return Calendar::system(); };  ///< read anew at each look
        /// Hears once, on the worker, what keeps it from ringing; `isOver` where it never will again.
        std::function<void(const std::string& words, bool isOver)> onTrouble = {};
    };

    DesktopNotifications(Setting setting, FileSystem& files, const Clock& clock, Log& log);
    ~DesktopNotifications() override;
    DesktopNotifications(const DesktopNotifications&) = delete;
    DesktopNotifications& operator=(const DesktopNotifications&) = delete;

    /// The person's one service; none if it runs already. It is over with the session whose bus it rings on:
    /// the next one's has another address. Throws Error where there is no session bus.
    static std::unique_ptr<DesktopNotifications> service(
        FileSystem& files, const Clock& clock, Log& log,
        std::function<void(const std::string& words, bool isOver)> onTrouble);

    /// Nobody asks the person here: authorized where a notification server runs or can be started, else
    /// denied.
    NotificationPermission permission() const override;
    void requestPermission() override {}
    void setCategories(const std::vector<NotificationCategory>& categories) override;
    std::vector<NotificationRequest> pendingRequests() const override;
    std::vector<std::string> overdueIdentifiers() const override;
    void add(const NotificationRequest& request) override;
    void removePending(const std::vector<std::string>& identifiers) override;
    void removeDelivered(const std::vector<std::string>& identifiers) override;
    /// The service's answer counts as carried out when the handler returns; one that throws is kept, for the
    /// window or the next minute.
    void setOnResponse(std::function<void(const NotificationResponse&)> onResponse) override;

    /// Looks at the clock and the store now; done on the worker.
    void lookAgain();

private:
    class Worker;
    linuxfiles::Descriptor seat_;
    Setting setting_;
    const Clock& clock_;
    mutable PendingNotifications store_;
    std::unique_ptr<Worker> worker_;
};

}  // namespace vesk
