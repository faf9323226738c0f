// A session bus of the test's own with a notification server that records what it is given, and presses what
// it shows.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace vesk::test {

/// A bus daemon that starts nothing by itself, as the session bus of this process. Goes with the object.
class PrivateBus {
public:
    PrivateBus();
    ~PrivateBus();
    PrivateBus(const PrivateBus&) = delete;
    PrivateBus& operator=(const PrivateBus&) = delete;
    const std::string& address() const { return address_; }

private:
    std::string address_;
    pid_t daemon_ = -1;
};

struct ShownCall {
    std::uint32_t number = 0, replaces = 0;
    std::string application, title, body;
    std::vector<std::string> actions;
    std::map<std::string, std::string> hints;  ///< as text
    std::int32_t timeout = 0;
};

/// Owns org.freedesktop.Notifications on a thread of its own, as long as it lives.
class NotificationServer {
public:
    explicit NotificationServer(const std::string& bus,
                                std::vector<std::string> capabilities = {"actions", "body", "body-markup"});
    ~NotificationServer();
    NotificationServer(const NotificationServer&) = delete;
    NotificationServer& operator=(const NotificationServer&) = delete;

    std::vector<ShownCall> shown() const;
    std::vector<std::uint32_t> closed() const;
    /// As a person presses a button; "default" for a tap. The notification closes with it.
    void press(std::uint32_t number, const std::string& action);
    /// As a person sends it away.
    void dismiss(std::uint32_t number);

private:
    struct Inside;
    std::unique_ptr<Inside> inside_;
};

/// Looks again and again until the condition holds; false after a time that no slow machine needs.
bool eventually(const std::function<bool()>& condition);

}  // namespace vesk::test
