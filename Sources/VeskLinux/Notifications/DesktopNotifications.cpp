#include "VeskLinux/Notifications/DesktopNotifications.h"

#include <gio/gio.h>
#include <glib-unix.h>
#include <sys/inotify.h>
#include <sys/timerfd.h>

#include <algorithm>
#include <array>
#include <mutex>
#include <set>
#include <thread>

#include "VeskCore/Support/Text.h"
#include "VeskLinux/KeptFile.h"

namespace vesk {

using namespace linuxfiles;

namespace {

constexpr std::string_view logCategory = "notifications";
constexpr const char* name = "org.freedesktop.Notifications";
constexpr const char* objectPath = "/org/freedesktop/Notifications";
constexpr const char* applicationName = "Vesk";
constexpr const char* applicationID = "com.tarnlight.vesk";
constexpr int callTimeout = 5000;      // milliseconds
constexpr unsigned soon = 500;         // milliseconds
constexpr unsigned lookInterval = 60;  // seconds: for what no event tells
constexpr int neverExpires = 0;
constexpr guchar normalUrgency = 1;

struct NoSessionBus final : Error {
    std::string description() const override {
        return "There is no session bus here, so reminders can't ring.";
    }
};

struct Unref {
    void operator()(GObject* object) const { g_object_unref(object); }
    void operator()(GVariant* value) const { g_variant_unref(value); }
    void operator()(GMainContext* context) const { g_main_context_unref(context); }
    void operator()(GMainLoop* loop) const { g_main_loop_unref(loop); }
    void operator()(GCancellable* cancellable) const { g_object_unref(cancellable); }
    void operator()(GDBusConnection* connection) const { g_object_unref(connection); }
};
template <class T>
using Owned = std::unique_ptr<T, Unref>;

/// As D-Bus carries it: valid UTF-8 without NUL.
std::string sayable(const std::string& text) {
    auto clean = decodedText(text);
    std::erase(clean, '\0');
    return clean;
}

/// A server with "body-markup" reads the body as markup, any other as it stands.
std::string bodyFor(const std::string& text, const std::set<std::string>& capabilities) {
    const auto clean = sayable(text);
    if (!capabilities.contains("body-markup")) return clean;
    std::string escaped;
    for (const char letter : clean) {
        switch (letter) {
            case '&':
                escaped += "&amp;";
                break;
            case '<':
                escaped += "&lt;";
                break;
            case '>':
                escaped += "&gt;";
                break;
            default:
                escaped += letter;
        }
    }
    return escaped;
}

}  // namespace

/// One thread with a main loop of its own: the bus, the timer and the store's folder are its events.
class DesktopNotifications::Worker {
public:
    Worker(const Setting& setting, PendingNotifications& store, const Clock& clock, Log& log)
        : setting_(setting),
          store_(store),
          clock_(clock),
          log_(log),
          context_(g_main_context_new()),
          loop_(g_main_loop_new(context_.get(), FALSE)),
          cancel_(g_cancellable_new()),
          thread_([this] { run(); }) {}

    ~Worker() {
        g_cancellable_cancel(cancel_.get());
        post([this] { g_main_loop_quit(loop_.get()); });
        thread_.join();
    }

    void post(std::function<void()> job) {
        GSource* source = g_idle_source_new();
        g_source_set_priority(source, G_PRIORITY_DEFAULT);
        g_source_set_callback(
            source,
            [](gpointer data) -> gboolean {
                (*static_cast<std::function<void()>*>(data))();
                return G_SOURCE_REMOVE;
            },
            new std::function<void()>(std::move(job)),
            [](gpointer data) { delete static_cast<std::function<void()>*>(data); });
        g_source_attach(source, context_.get());
        g_source_unref(source);
    }
    void look() {
        post([this] { lookNow(); });
    }

    void setOnResponse(std::function<void(const NotificationResponse&)> handler) {
        {
            const std::lock_guard guard(handlerLock_);
            onResponse_ = std::move(handler);
        }
        look();
    }

    /// Any thread. Takes the notifications off the screen; one that a server before this one showed is gone.
    void close(const std::vector<ShownNotification>& shown) {
        post([this, shown] {
            if (!connect()) return;
            const auto server = serverNow();
            for (const auto& notification : shown)
                if (notification.server == server)
                    call(name, objectPath, name, "CloseNotification",
                         g_variant_new("(u)", notification.number), nullptr);
        });
    }

    /// Any thread: connections of their own, so that the worker may be in the middle of something.
    static bool busCanBeReached() { return Owned<GDBusConnection>(newConnection(nullptr)) != nullptr; }

    static bool serverCanBeReached() {
        const Owned<GDBusConnection> bus(newConnection(nullptr));
        if (!bus) return false;
        for (const char* method : {"ListNames", "ListActivatableNames"}) {
            const Owned<GVariant> answer(g_dbus_connection_call_sync(
                bus.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", method,
                nullptr, G_VARIANT_TYPE("(as)"), G_DBUS_CALL_FLAGS_NONE, callTimeout, nullptr, nullptr));
            if (!answer) continue;
            const Owned<GVariant> names(g_variant_get_child_value(answer.get(), 0));
            for (gsize index = 0; index < g_variant_n_children(names.get()); ++index) {
                const Owned<GVariant> one(g_variant_get_child_value(names.get(), index));
                if (std::string_view(g_variant_get_string(one.get(), nullptr)) == name) return true;
            }
        }
        return false;
    }

private:
    static GDBusConnection* newConnection(GCancellable* cancellable) {
        char* address = g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SESSION, cancellable, nullptr);
        if (!address) return nullptr;
        auto* bus = g_dbus_connection_new_for_address_sync(
            address,
            static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                              G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
            nullptr, cancellable, nullptr);
        g_free(address);
        return bus;
    }

    void run() {
        g_main_context_push_thread_default(context_.get());
        timer_ = Descriptor(::timerfd_create(CLOCK_REALTIME, TFD_CLOEXEC | TFD_NONBLOCK));
        if (timer_) watch(timer_.get());
        changes_ = Descriptor(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
        if (changes_ && ::inotify_add_watch(changes_.get(), store_.folder().c_str(), IN_MOVED_TO) >= 0)
            watch(changes_.get());
        GSource* minute = g_timeout_source_new_seconds(lookInterval);
        attach(minute, [](gpointer self) -> gboolean {
            static_cast<Worker*>(self)->lookNow();
            return G_SOURCE_CONTINUE;
        });
        lookNow();
        g_main_loop_run(loop_.get());
        disconnect();
        for (GSource* source : sources_) {
            g_source_destroy(source);
            g_source_unref(source);
        }
        g_main_context_pop_thread_default(context_.get());
    }

    void attach(GSource* source, GSourceFunc handler) {
        g_source_set_callback(source, handler, this, nullptr);
        g_source_attach(source, context_.get());
        sources_.push_back(source);
    }

    /// Looks whenever the descriptor tells anything; what exactly it tells doesn't matter. A timer's read
    /// fails where the clock was set, which is a reason to look too.
    void watch(int descriptor) {
        GSource* source = g_unix_fd_source_new(descriptor, G_IO_IN);
        const GUnixFDSourceFunc handler = [](gint number, GIOCondition, gpointer self) -> gboolean {
            std::array<char, 4096> bytes{};
            while (::read(number, bytes.data(), bytes.size()) > 0) {
            }
            static_cast<Worker*>(self)->lookNow();
            return G_SOURCE_CONTINUE;
        };
        g_source_set_callback(source, G_SOURCE_FUNC(handler), this, nullptr);
        g_source_attach(source, context_.get());
        sources_.push_back(source);
    }

    void lookNow() {
        try {
            if (setting_.role == Role::window && !window_) {
                window_ = takeIfFree(lockFile("window.lock"));
                if (!window_) lookSoon();  // the service is carrying something out
            }
            if (!ringing_) ringing_ = takeIfFree(lockFile("ringing.lock"));
            // Also without the lock: whoever rings may have ended before the answer came.
            connect();
            if (ringing_) ringWhatIsDue();
            handResponsesOn();
            arm();
        } catch (const std::exception&) {
            told(describe(std::current_exception()));
        }
    }

    void lookSoon() {
        if (isLookingSoon_) return;
        isLookingSoon_ = true;
        GSource* source = g_timeout_source_new(soon);
        const GSourceFunc handler = [](gpointer self) -> gboolean {
            auto* worker = static_cast<Worker*>(self);
            worker->isLookingSoon_ = false;
            worker->lookNow();
            return G_SOURCE_REMOVE;
        };
        g_source_set_callback(source, handler, this, nullptr);
        g_source_attach(source, context_.get());
        g_source_unref(source);
    }

    /// Says once what keeps it from working, not every minute.
    void told(const std::string& words) {
        if (words == lastTold_) return;
        lastTold_ = words;
        log_.line(LogLevel::error, logCategory, "Notifications can't be kept: {}", {logPrivate(words)});
        if (setting_.onTrouble) setting_.onTrouble(words, false);
    }

    void nothingRings() { told("No notification server answers. What is due waits until one does."); }

    FilePath lockFile(const char* file) const { return store_.folder() / file; }

    void arm() {
        if (!timer_) return;
        const auto now = clock_.now();
        const auto next = store_.read().nextRing(now, setting_.calendar());
        itimerspec when{};
        if (next) {
            // By the distance, so that the date may be that of another clock than the device's.
            const auto real =
                std::chrono::duration_cast<Duration>(std::chrono::system_clock::now().time_since_epoch());
            const auto moment = real + std::max(*next - now, Duration{1});
            const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(moment);
            when.it_value.tv_sec = static_cast<time_t>(seconds.count());
            when.it_value.tv_nsec = static_cast<long>((moment - seconds).count() * 1000);
        } else {
            when.it_value.tv_sec = std::numeric_limits<int>::max();  // only to hear of a clock that is set
        }
        ::timerfd_settime(timer_.get(), TFD_TIMER_ABSTIME | TFD_TIMER_CANCEL_ON_SET, &when, nullptr);
    }

    // The bus

    bool connect() {
        if (bus_ && g_dbus_connection_is_closed(bus_.get())) disconnect();
        if (bus_) return true;
        const bool hadOne = !busName_.empty();
        bus_.reset(newConnection(cancel_.get()));
        if (!bus_) {
            if (hadOne && setting_.onTrouble)
                setting_.onTrouble("The session bus has gone. Reminders ring again in the next session.",
                                   true);
            return false;
        }
        g_signal_connect_swapped(bus_.get(), "closed",
                                 G_CALLBACK(+[](gpointer self) { static_cast<Worker*>(self)->look(); }),
                                 this);
        char* guid = g_strdup(g_dbus_connection_get_guid(bus_.get()));
        busName_ = guid ? guid : "";
        g_free(guid);
        signals_ = g_dbus_connection_signal_subscribe(
            bus_.get(), name, name, nullptr, objectPath, nullptr, G_DBUS_SIGNAL_FLAGS_NONE,
            [](GDBusConnection*, const gchar* sender, const gchar*, const gchar*, const gchar* signal,
               GVariant* arguments,
               gpointer self) { static_cast<Worker*>(self)->heard(sender, signal, arguments); },
            this, nullptr);
        // A server that comes back, or comes late, is given what waits.
        owner_ = g_bus_watch_name_on_connection(
            bus_.get(), name, G_BUS_NAME_WATCHER_FLAGS_NONE,
            [](GDBusConnection*, const gchar*, const gchar*, gpointer self) {
                static_cast<Worker*>(self)->look();
            },
            nullptr, this, nullptr);
        return true;
    }

    void disconnect() {
        if (!bus_) return;
        g_signal_handlers_disconnect_by_data(bus_.get(), this);
        g_bus_unwatch_name(owner_);
        g_dbus_connection_signal_unsubscribe(bus_.get(), signals_);
        g_dbus_connection_close_sync(bus_.get(), nullptr, nullptr);
        bus_.reset();
    }

    Owned<GVariant> call(const char* destination, const char* path, const char* interface, const char* method,
                         GVariant* arguments, const char* type, bool mayBeCutShort = true) {
        return Owned<GVariant>(g_dbus_connection_call_sync(bus_.get(), destination, path, interface, method,
                                                           arguments, type ? G_VARIANT_TYPE(type) : nullptr,
                                                           G_DBUS_CALL_FLAGS_NONE, callTimeout,
                                                           mayBeCutShort ? cancel_.get() : nullptr, nullptr));
    }

    std::string serverOf(const std::string& owner) const { return busName_ + owner; }

    /// Which run of which server; empty if there is none.
    std::string serverNow() {
        const auto answer = call("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                                 "GetNameOwner", g_variant_new("(s)", name), "(s)");
        if (!answer) return {};
        const char* owner = nullptr;
        g_variant_get(answer.get(), "(&s)", &owner);
        return serverOf(owner);
    }

    // Ringing

    void ringWhatIsDue() {
        const auto now = clock_.now();
        auto state = store_.read();
        if (state.followsClockBack(now)) {
            store_.change([&](NotificationState& all) { all.followsClockBack(now); });
            state = store_.read();
        }
        const auto due = state.due(now, setting_.calendar());
        // What knows its buttons only later would ring without them.
        if (due.empty() || state.categories.empty()) return;
        if (!bus_) return nothingRings();
        const auto answer = call(name, objectPath, name, "GetCapabilities", nullptr, "(as)");
        const auto server = answer ? serverNow() : std::string();
        if (server.empty()) return nothingRings();
        std::set<std::string> capabilities;
        const Owned<GVariant> list(g_variant_get_child_value(answer.get(), 0));
        for (gsize index = 0; index < g_variant_n_children(list.get()); ++index) {
            const Owned<GVariant> one(g_variant_get_child_value(list.get(), index));
            capabilities.insert(g_variant_get_string(one.get(), nullptr));
        }
        for (const auto& notification : due) {
            const auto& request = notification.request;
            std::uint32_t replaced = 0;
            for (const auto& old : state.shown)
                if (old.identifier == request.identifier && old.server == server) replaced = old.number;
            const auto number = show(request, replaced, state.categories, capabilities);
            if (!number) return nothingRings();  // it stays due
            lastTold_.clear();
            const ShownNotification shown{.identifier = request.identifier,
                                          .number = *number,
                                          .server = server,
                                          .userInfo = request.userInfo};
            store_.change([&](NotificationState& all) { all.rang(notification, shown, now); });
        }
    }

    std::optional<std::uint32_t> show(const NotificationRequest& request, std::uint32_t replaced,
                                      const std::vector<NotificationCategory>& categories,
                                      const std::set<std::string>& capabilities) {
        GVariantBuilder actions, hints;
        g_variant_builder_init(&actions, G_VARIANT_TYPE("as"));
        if (capabilities.contains("actions")) {
            g_variant_builder_add(&actions, "s", "default");
            g_variant_builder_add(&actions, "s", "Open");
            for (const auto& category : categories) {
                if (category.identifier != request.categoryIdentifier) continue;
                for (const auto& action : category.actions) {
                    g_variant_builder_add(&actions, "s", sayable(action.identifier).c_str());
                    g_variant_builder_add(&actions, "s", sayable(action.title).c_str());
                }
            }
        }
        g_variant_builder_init(&hints, G_VARIANT_TYPE("a{sv}"));
        g_variant_builder_add(&hints, "{sv}", "desktop-entry", g_variant_new_string(applicationID));
        g_variant_builder_add(&hints, "{sv}", "urgency", g_variant_new_byte(normalUrgency));
        g_variant_builder_add(&hints, "{sv}", "sound-name", g_variant_new_string("message"));
        if (!request.categoryIdentifier.empty())
            g_variant_builder_add(&hints, "{sv}", "category",
                                  g_variant_new_string(("x-" + sayable(request.categoryIdentifier)).c_str()));
        const auto answer =
            call(name, objectPath, name, "Notify",
                 g_variant_new("(susssasa{sv}i)", applicationName, replaced, applicationID,
                               sayable(request.title).c_str(), bodyFor(request.body, capabilities).c_str(),
                               &actions, &hints, neverExpires),
                 "(u)", false);  // what was shown has to be known, or it would ring again
        if (!answer) return {};
        guint32 number = 0;
        g_variant_get(answer.get(), "(u)", &number);
        return number;
    }

    // Answers

    void heard(const char* sender, const char* signal, GVariant* arguments) {
        const auto server = serverOf(sender ? sender : "");
        const std::string_view word = signal;
        try {
            if (word == "ActionInvoked" && g_variant_is_of_type(arguments, G_VARIANT_TYPE("(us)"))) {
                guint32 number = 0;
                const char* action = nullptr;
                g_variant_get(arguments, "(u&s)", &number, &action);
                // The window and the service both hear it; the first finds it among what is shown.
                store_.change([&](NotificationState& all) {
                    if (auto response = all.answer(number, server, action, clock_.now()))
                        all.responses.push_back(std::move(*response));
                });
                handResponsesOn();
            } else if (word == "NotificationClosed" &&
                       g_variant_is_of_type(arguments, G_VARIANT_TYPE("(uu)"))) {
                guint32 number = 0, reason = 0;
                g_variant_get(arguments, "(uu)", &number, &reason);
                store_.change([&](NotificationState& all) {
                    std::erase_if(all.shown, [&](const ShownNotification& shown) {
                        return shown.number == number && shown.server == server;
                    });
                });
            }
        } catch (const std::exception&) {
            told(describe(std::current_exception()));
        }
    }

    void handResponsesOn() {
        std::function<void(const NotificationResponse&)> handler;
        {
            const std::lock_guard guard(handlerLock_);
            handler = onResponse_;
        }
        if (!handler || store_.read().responses.empty()) return;
        switch (setting_.role) {
            case Role::window: {
                if (!window_) return;
                std::vector<NotificationResponse> responses;
                store_.change([&](NotificationState& all) { responses = std::exchange(all.responses, {}); });
                for (const auto& response : responses) handler(response);
                break;
            }
            case Role::service: {
                // Held meanwhile, so that a window which starts waits until it is done.
                const auto noWindow = takeIfFree(lockFile("window.lock"));
                if (!noWindow) return;
                for (const auto& response : store_.read().responses) {
                    try {
                        handler(response);
                    } catch (const std::exception&) {
                        told(describe(std::current_exception()));
                        continue;
                    }
                    store_.change([&](NotificationState& all) {
                        const auto done = std::find(all.responses.begin(), all.responses.end(), response);
                        if (done != all.responses.end()) all.responses.erase(done);
                    });
                }
                break;
            }
        }
    }

    const Setting& setting_;
    PendingNotifications& store_;
    const Clock& clock_;
    Log& log_;
    std::mutex handlerLock_;
    std::function<void(const NotificationResponse&)> onResponse_;
    Descriptor timer_, changes_, ringing_, window_;
    std::vector<GSource*> sources_;
    Owned<GMainContext> context_;
    Owned<GMainLoop> loop_;
    Owned<GCancellable> cancel_;
    Owned<GDBusConnection> bus_;
    std::string busName_, lastTold_;
    bool isLookingSoon_ = false;
    guint signals_ = 0, owner_ = 0;
    std::thread thread_;
};

DesktopNotifications::DesktopNotifications(Setting setting, FileSystem& files, const Clock& clock, Log& log)
    : setting_(std::move(setting)),
      clock_(clock),
      store_(setting_.folder, files, log),
      worker_(std::make_unique<Worker>(setting_, store_, clock, log)) {}

DesktopNotifications::~DesktopNotifications() = default;

std::unique_ptr<DesktopNotifications> DesktopNotifications::service(
    FileSystem& files, const Clock& clock, Log& log,
    std::function<void(const std::string& words, bool isOver)> onTrouble) {
    Setting setting{.role = Role::service, .onTrouble = std::move(onTrouble)};
    files.createDirectories(setting.folder);
    auto seat = takeIfFree(setting.folder / "service.lock");
    if (!seat) return nullptr;
    if (!Worker::busCanBeReached()) throw NoSessionBus();
    auto made = std::make_unique<DesktopNotifications>(std::move(setting), files, clock, log);
    made->seat_ = std::move(seat);
    return made;
}

NotificationPermission DesktopNotifications::permission() const {
    return Worker::serverCanBeReached() ? NotificationPermission::authorized : NotificationPermission::denied;
}

void DesktopNotifications::setCategories(const std::vector<NotificationCategory>& categories) {
    store_.change([&](NotificationState& all) { all.categories = categories; });
    worker_->look();
}

std::vector<NotificationRequest> DesktopNotifications::pendingRequests() const {
    return store_.read().toCome(clock_.now(), setting_.calendar());
}

std::vector<std::string> DesktopNotifications::overdueIdentifiers() const {
    return store_.read().overdue(clock_.now(), setting_.calendar());
}

void DesktopNotifications::add(const NotificationRequest& request) {
    store_.change([&](NotificationState& all) { all.add(request, clock_.now()); });
    worker_->look();
}

void DesktopNotifications::removePending(const std::vector<std::string>& identifiers) {
    store_.change([&](NotificationState& all) {
        for (const auto& identifier : identifiers) all.remove(identifier);
    });
    worker_->look();
}

void DesktopNotifications::removeDelivered(const std::vector<std::string>& identifiers) {
    std::vector<ShownNotification> gone;
    store_.change([&](NotificationState& all) {
        std::erase_if(all.shown, [&](const ShownNotification& shown) {
            const bool isGone =
                std::find(identifiers.begin(), identifiers.end(), shown.identifier) != identifiers.end();
            if (isGone) gone.push_back(shown);
            return isGone;
        });
    });
    if (!gone.empty()) worker_->close(gone);
}

void DesktopNotifications::setOnResponse(std::function<void(const NotificationResponse&)> onResponse) {
    worker_->setOnResponse(std::move(onResponse));
}

void DesktopNotifications::lookAgain() {
    worker_->look();
}

}  // namespace vesk
