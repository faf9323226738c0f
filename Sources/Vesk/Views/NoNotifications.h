// Where there is no notification centre to ring at a date: nothing may be asked of it.
#pragma once

#include "VeskCore/Platform/NotificationService.h"

namespace vesk::views {

class NoNotifications final : public NotificationService {
public:
    NotificationPermission permission() const override { return NotificationPermission::denied; }
    void requestPermission() override {}
    void setCategories(const std::vector<NotificationCategory>&) override {}
    std::vector<NotificationRequest> pendingRequests() const override { return {}; }
    void add(const NotificationRequest&) override {}
    void removePending(const std::vector<std::string>&) override {}
    void removeDelivered(const std::vector<std::string>&) override {}
    void setOnResponse(std::function<void(const NotificationResponse&)>) override {}
};

}  // namespace vesk::views
