// A notification centre in memory.
#pragma once

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "VeskCore/Platform/NotificationService.h"

namespace vesk::test {

class FakeNotifications final : public NotificationService {
public:
    NotificationPermission allowed = NotificationPermission::notDetermined;
    int permissionRequests = 0;
    std::vector<NotificationCategory> categories;
    std::map<std::string, NotificationRequest> pending;
    std::vector<std::string> overdue;  ///< identifiers that nobody could show in time
    std::vector<std::string> removedDelivered;
    std::function<void(const NotificationResponse&)> onResponse;

    NotificationPermission permission() const override { return allowed; }
    void requestPermission() override {
        ++permissionRequests;
        allowed = NotificationPermission::authorized;
    }
    void setCategories(const std::vector<NotificationCategory>& all) override { categories = all; }
    std::vector<NotificationRequest> pendingRequests() const override {
        std::vector<NotificationRequest> requests;
        for (const auto& entry : pending) requests.push_back(entry.second);
        return requests;
    }
    std::vector<std::string> overdueIdentifiers() const override { return overdue; }
    void add(const NotificationRequest& request) override { pending[request.identifier] = request; }
    void removePending(const std::vector<std::string>& identifiers) override {
        for (const auto& identifier : identifiers) {
            pending.erase(identifier);
            std::erase(overdue, identifier);
        }
    }
    void removeDelivered(const std::vector<std::string>& identifiers) override {
        removedDelivered.insert(removedDelivered.end(), identifiers.begin(), identifiers.end());
    }
    void setOnResponse(std::function<void(const NotificationResponse&)> handler) override {
        onResponse = std::move(handler);
    }
};

}  // namespace vesk::test
