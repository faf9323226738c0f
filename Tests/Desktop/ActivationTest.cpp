#include <gio/gio.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iostream>

#include "DesktopWorld.h"

namespace vesk::test {
namespace {

constexpr const char* text = "Note text";
constexpr const char* id = "com.tarnlight.vesk";

/// The window as the desktop opens it: over the session bus, which starts the program if it doesn't run.
class ActivationTest : public ::testing::Test, public DesktopWorld {
protected:
    void SetUp() override {
        GError* error = nullptr;
        bus_ = g_dbus_connection_new_for_address_sync(
            sessionBus().c_str(),
            static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                              G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
            nullptr, nullptr, &error);
        ASSERT_TRUE(bus_) << error->message;
        GVariantBuilder known;
        g_variant_builder_init(&known, G_VARIANT_TYPE("a{ss}"));
        for (const auto& variable : environment()) {
            const auto at = variable.find('=');
            g_variant_builder_add(&known, "{ss}", variable.substr(0, at).c_str(),
                                  variable.substr(at + 1).c_str());
        }
        ASSERT_TRUE(
            ask("org.freedesktop.DBus", "UpdateActivationEnvironment", g_variant_new("(a{ss})", &known)));
        std::filesystem::create_directories(busServices());
        std::ofstream(service_) << "[D-BUS Service]\nName=" << id << "\nExec=\"" << VESK_DESKTOP
                                << "\" --gapplication-service\n";
    }
    void TearDown() override {
        std::filesystem::remove(service_);
        if (isRunning()) {
            act("quit");
            EXPECT_TRUE(until([&] { return !isRunning(); }));
        }
        g_clear_object(&bus_);
    }

    bool ask(const char* whom, const char* method, GVariant* arguments) const {
        const bool isBus = std::string(whom) == "org.freedesktop.DBus";
        GError* error = nullptr;
        GVariant* answer = g_dbus_connection_call_sync(
            bus_, whom, isBus ? "/org/freedesktop/DBus" : "/com/tarnlight/vesk",
            isBus ? "org.freedesktop.DBus" : "org.freedesktop.Application", method, arguments, nullptr,
            G_DBUS_CALL_FLAGS_NONE, 30000, nullptr, &error);
        if (!answer) std::cerr << method << ": " << error->message << "\n";
        g_clear_error(&error);
        if (answer) g_variant_unref(answer);
        return answer != nullptr;
    }
    bool act(const char* action) const {
        return ask(id, "ActivateAction", g_variant_new("(sava{sv})", action, nullptr, nullptr));
    }
    bool open(const std::string& file) const {
        const auto address = "file://" + file;
        const char* const addresses[] = {address.c_str(), nullptr};
        return ask(id, "Open", g_variant_new("(^asa{sv})", addresses, nullptr));
    }
    bool isRunning() const {
        GVariant* answer = g_dbus_connection_call_sync(
            bus_, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "NameHasOwner",
            g_variant_new("(s)", id), G_VARIANT_TYPE("(b)"), G_DBUS_CALL_FLAGS_NONE, 30000, nullptr, nullptr);
        if (!answer) return false;
        gboolean is = FALSE;
        g_variant_get(answer, "(b)", &is);
        g_variant_unref(answer);
        return is != FALSE;
    }

private:
    GDBusConnection* bus_ = nullptr;
    std::string service_ = busServices() + "/" + id + ".service";
};

TEST_F(ActivationTest, StartsForWhoeverOpensShowsOrBeginsANote) {
    vault.write("Plan.md", "One\n");
    vault.write("Far away.md", "Two\n");
    ASSERT_FALSE(isRunning());
    ASSERT_TRUE(open((vault / "Plan.md").string()));
    ASSERT_TRUE(until([&] { return textOf(text) == "One\n"; }));
    // The one that runs is asked the next time.
    ASSERT_TRUE(open((vault / "Far%20away.md").string()));
    EXPECT_TRUE(until([&] { return textOf(text) == "Two\n"; }));
    ASSERT_TRUE(act("quit"));
    ASSERT_TRUE(until([&] { return !isRunning(); }));

    ASSERT_TRUE(ask(id, "Activate", g_variant_new("(a{sv})", nullptr)));
    EXPECT_TRUE(until([&] { return shows("Plan") && shows("Far away"); })) << "the vault of the last time";
    ASSERT_TRUE(act("quit"));
    ASSERT_TRUE(until([&] { return !isRunning(); }));

    ASSERT_TRUE(act("new-note"));
    EXPECT_TRUE(until([&] { return vault.exists("Untitled.md") && shows(text); }));
}

}  // namespace
}  // namespace vesk::test
