#include "Support/NotificationServer.h"

#include <gio/gio.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "Support/Scratch.h"

namespace vesk::test {
namespace {

using namespace std::chrono_literals;

constexpr const char* interfaceXml =
    "<node><interface name='org.freedesktop.Notifications'>"
    "<method name='GetCapabilities'><arg type='as' direction='out'/></method>"
    "<method name='Notify'><arg type='s' direction='in'/><arg type='u' direction='in'/>"
    "<arg type='s' direction='in'/><arg type='s' direction='in'/><arg type='s' direction='in'/>"
    "<arg type='as' direction='in'/><arg type='a{sv}' direction='in'/><arg type='i' direction='in'/>"
    "<arg type='u' direction='out'/></method>"
    "<method name='CloseNotification'><arg type='u' direction='in'/></method>"
    "<signal name='ActionInvoked'><arg type='u'/><arg type='s'/></signal>"
    "<signal name='NotificationClosed'><arg type='u'/><arg type='u'/></signal>"
    "</interface></node>";
constexpr const char* path = "/org/freedesktop/Notifications";
constexpr const char* name = "org.freedesktop.Notifications";
constexpr guint32 byThePerson = 2, byACall = 3;

const ScratchFolder& busFolder() {
    static const ScratchFolder folder;
    return folder;
}

}  // namespace

bool eventually(const std::function<bool()>& condition) {
    const auto end = std::chrono::steady_clock::now() + 15s;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) return false;
        usleep(5000);
    }
    return true;
}

PrivateBus::PrivateBus() {
    const auto config = busFolder().write(
        "bus.conf",
        "<!DOCTYPE busconfig PUBLIC '-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN' "
        "'http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd'>\n"
        "<busconfig><type>session</type><listen>unix:dir=/tmp</listen><policy context='default'>"
        "<allow send_destination='*' eavesdrop='true'/><allow eavesdrop='true'/><allow own='*'/>"
        "</policy></busconfig>\n");
    int ends[2];
    if (pipe(ends)) throw std::runtime_error("pipe");
    daemon_ = fork();
    if (daemon_ == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        dup2(ends[1], 3);
        // It complains where it may not raise its limits.
        if (!freopen("/dev/null", "w", stderr)) _exit(127);
        const auto option = "--config-file=" + config.string();
        execlp("dbus-daemon", "dbus-daemon", option.c_str(), "--nofork", "--print-address=3", nullptr);
        _exit(127);
    }
    close(ends[1]);
    char letter = 0;
    while (read(ends[0], &letter, 1) == 1 && letter != '\n') address_ += letter;
    close(ends[0]);
    if (address_.empty()) throw std::runtime_error("the bus didn't start");
    setenv("DBUS_SESSION_BUS_ADDRESS", address_.c_str(), 1);
}

PrivateBus::~PrivateBus() {
    ::kill(daemon_, SIGTERM);
    waitpid(daemon_, nullptr, 0);
}

struct NotificationServer::Inside {
    std::vector<std::string> capabilities;
    mutable std::mutex lock;
    std::vector<ShownCall> shown;
    std::vector<std::uint32_t> closed;
    GMainContext* context = g_main_context_new();
    GMainLoop* loop = g_main_loop_new(context, FALSE);
    GDBusConnection* bus = nullptr;
    std::uint32_t last = 0;
    std::mutex readyLock;
    std::condition_variable readyChanged;
    bool isReady = false;
    std::thread thread;

    void run(const std::string& address) {
        g_main_context_push_thread_default(context);
        bus = g_dbus_connection_new_for_address_sync(
            address.c_str(),
            static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                              G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
            nullptr, nullptr, nullptr);
        GDBusNodeInfo* info = g_dbus_node_info_new_for_xml(interfaceXml, nullptr);
        static const GDBusInterfaceVTable table{
            [](GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar* method,
               GVariant* arguments, GDBusMethodInvocation* invocation,
               gpointer self) { static_cast<Inside*>(self)->called(method, arguments, invocation); },
            nullptr,
            nullptr,
            {nullptr}};
        if (bus && info)
            g_dbus_connection_register_object(bus, path, info->interfaces[0], &table, this, nullptr, nullptr);
        if (bus) {
            GVariant* answer = g_dbus_connection_call_sync(
                bus, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "RequestName",
                g_variant_new("(su)", name, 4U), nullptr, G_DBUS_CALL_FLAGS_NONE, 5000, nullptr, nullptr);
            if (answer) g_variant_unref(answer);
        }
        {
            const std::lock_guard guard(readyLock);
            isReady = true;
        }
        readyChanged.notify_all();
        g_main_loop_run(loop);
        if (info) g_dbus_node_info_unref(info);
        if (bus) {
            g_dbus_connection_close_sync(bus, nullptr, nullptr);
            g_object_unref(bus);
        }
        g_main_context_pop_thread_default(context);
    }

    void emit(const char* signal, GVariant* arguments) const {
        g_dbus_connection_emit_signal(bus, nullptr, path, name, signal, arguments, nullptr);
        g_dbus_connection_flush_sync(bus, nullptr, nullptr);
    }

    void called(const std::string& method, GVariant* arguments, GDBusMethodInvocation* invocation) {
        if (method == "GetCapabilities") {
            GVariantBuilder list;
            g_variant_builder_init(&list, G_VARIANT_TYPE("as"));
            for (const auto& one : capabilities) g_variant_builder_add(&list, "s", one.c_str());
            return g_dbus_method_invocation_return_value(invocation, g_variant_new("(as)", &list));
        }
        if (method == "CloseNotification") {
            guint32 number = 0;
            g_variant_get(arguments, "(u)", &number);
            {
                const std::lock_guard guard(lock);
                closed.push_back(number);
            }
            emit("NotificationClosed", g_variant_new("(uu)", number, byACall));
            return g_dbus_method_invocation_return_value(invocation, nullptr);
        }
        ShownCall call;
        const char *application = nullptr, *icon = nullptr, *title = nullptr, *body = nullptr;
        GVariantIter *actions = nullptr, *hints = nullptr;
        g_variant_get(arguments, "(&su&s&s&sasa{sv}i)", &application, &call.replaces, &icon, &title, &body,
                      &actions, &hints, &call.timeout);
        call.application = application;
        call.title = title;
        call.body = body;
        const char* text = nullptr;
        while (g_variant_iter_next(actions, "&s", &text)) call.actions.emplace_back(text);
        GVariant* value = nullptr;
        while (g_variant_iter_next(hints, "{&sv}", &text, &value)) {
            char* printed = g_variant_print(value, FALSE);
            call.hints[text] = printed;
            g_free(printed);
            g_variant_unref(value);
        }
        g_variant_iter_free(actions);
        g_variant_iter_free(hints);
        {
            const std::lock_guard guard(lock);
            call.number = call.replaces != 0 ? call.replaces : ++last;
            shown.push_back(call);
        }
        g_dbus_method_invocation_return_value(invocation, g_variant_new("(u)", call.number));
    }
};

NotificationServer::NotificationServer(const std::string& bus, std::vector<std::string> capabilities)
    : inside_(std::make_unique<Inside>()) {
    inside_->capabilities = std::move(capabilities);
    inside_->thread = std::thread([this, bus] { inside_->run(bus); });
    std::unique_lock guard(inside_->readyLock);
    inside_->readyChanged.wait(guard, [this] { return inside_->isReady; });
}

NotificationServer::~NotificationServer() {
    GSource* end = g_idle_source_new();
    g_source_set_callback(
        end,
        [](gpointer loop) -> gboolean {
            g_main_loop_quit(static_cast<GMainLoop*>(loop));
            return G_SOURCE_REMOVE;
        },
        inside_->loop, nullptr);
    g_source_attach(end, inside_->context);
    g_source_unref(end);
    inside_->thread.join();
    g_main_loop_unref(inside_->loop);
    g_main_context_unref(inside_->context);
}

std::vector<ShownCall> NotificationServer::shown() const {
    const std::lock_guard guard(inside_->lock);
    return inside_->shown;
}

std::vector<std::uint32_t> NotificationServer::closed() const {
    const std::lock_guard guard(inside_->lock);
    return inside_->closed;
}

void NotificationServer::press(std::uint32_t number, const std::string& action) {
    inside_->emit("ActionInvoked", g_variant_new("(us)", number, action.c_str()));
    inside_->emit("NotificationClosed", g_variant_new("(uu)", number, byThePerson));
}

void NotificationServer::dismiss(std::uint32_t number) {
    inside_->emit("NotificationClosed", g_variant_new("(uu)", number, byThePerson));
}

}  // namespace vesk::test
