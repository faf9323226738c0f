// Against a real keyring daemon on a D-Bus session of the test's own. Each use is a process of its own:
// libsecret keeps its connection as long as a process lives.
#include <csignal>
#include <cstdlib>
#include <memory>

#include "Processes.h"
#include "Support/Scratch.h"
#include "VeskLinux/SecretServiceStore.h"

namespace vesk::test {
namespace {

/// The first line that a command prints; none if it fails.
std::optional<std::string> output(const std::string& command) {
    std::FILE* pipe = ::popen(command.c_str(), "r");
    std::string text;
    char buffer[512];
    while (pipe && std::fgets(buffer, sizeof buffer, pipe)) text += buffer;
    if (!pipe || ::pclose(pipe) != 0) return {};
    return text.substr(0, text.find('\n'));
}

/// Suites of this ending run before all others: the children need GLib, whose threads a fork leaves behind
/// once another test has started them.
class SecretServiceStoreDeathTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (!output("command -v gnome-keyring-daemon && command -v dbus-daemon && command -v gdbus")) {
            GTEST_SKIP() << "gnome-keyring-daemon, dbus-daemon or gdbus is not installed";
        }
        // Nothing of the desktop that the test may run on: neither its keyring nor a prompt on its screen.
        for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY"}) ::unsetenv(name);
        for (const char* name :
             {"HOME", "XDG_DATA_HOME", "XDG_CONFIG_HOME", "XDG_CACHE_HOME", "XDG_RUNTIME_DIR"}) {
            ::setenv(name, folder.path().c_str(), 1);
        }
        const auto bus =
            output("dbus-daemon --session --fork --print-address=1 --print-pid=1 2>/dev/null | tr '\\n' ' '");
        ASSERT_TRUE(bus);
        const auto blank = bus->find(' ');
        ASSERT_NE(blank, std::string::npos);
        ::setenv("DBUS_SESSION_BUS_ADDRESS", bus->substr(0, blank).c_str(), 1);
        busProcess = static_cast<pid_t>(std::strtol(bus->c_str() + blank, nullptr, 10));
        ASSERT_GT(busProcess, 1);
        ASSERT_TRUE(output("printf test | gnome-keyring-daemon --unlock --components=secrets 2>/dev/null"));
        ASSERT_TRUE(output("gdbus wait --session --timeout 30 org.freedesktop.secrets"));
    }
    void TearDown() override {
        // The keyring daemon goes with its bus.
        if (busProcess > 1) ::kill(busProcess, SIGTERM);
    }

    ScratchFolder folder;
    pid_t busProcess = 0;
};

/// The words of the SecretStoreError that `body` throws, else "".
std::string refusal(const std::function<void()>& body) {
    try {
        body();
    } catch (const SecretStoreError& error) {
        return error.description();
    }
    return "";
}

TEST_F(SecretServiceStoreDeathTest, KeepsSecretsByServiceAndAccountForOtherProcesses) {
    const std::string bytes("\0\xFF\0k", 4);
    inChild([&] {
        SecretServiceStore store;
        EXPECT_EQ(store.get("service", "anthropic"), std::nullopt);
        store.add("service", "anthropic", "first");
        store.add("service", "anthropic", "sk-ä");
        store.add("service", "gemini", bytes);
        store.add("other", "anthropic", "else");
        store.add("service", "empty", "");
    });
    inChild([&] {
        SecretServiceStore store;
        EXPECT_EQ(store.get("service", "anthropic"), "sk-ä");
        EXPECT_EQ(store.get("service", "gemini"), bytes);
        EXPECT_EQ(store.get("other", "anthropic"), "else");
        EXPECT_EQ(store.get("service", "empty"), "");
        store.remove("service", "anthropic");
        store.remove("service", "anthropic");
        EXPECT_EQ(store.get("service", "anthropic"), std::nullopt);
        EXPECT_EQ(store.get("other", "anthropic"), "else");
        EXPECT_EQ(refusal([&] { store.get("service", std::string_view("a\0b", 3)); }),
                  "The keyring can't keep an entry under this name.");
        EXPECT_EQ(refusal([&] { store.add("service", "\xFF", "x"); }),
                  "The keyring can't keep an entry under this name.");
    });
}

TEST_F(SecretServiceStoreDeathTest, SaysThatTheKeyringIsLockedWhenItStaysSo) {
    inChild([] { SecretServiceStore().add("service", "anthropic", "key"); });
    ASSERT_TRUE(
        output("gdbus call --session --dest org.freedesktop.secrets --object-path /org/freedesktop/secrets "
               "--method org.freedesktop.Secret.Service.Lock "
               "\"['/org/freedesktop/secrets/collection/login']\""));
    inChild([] {
        SecretServiceStore store;
        const std::string words = "The desktop's keyring is locked. Unlock it and try again.";
        EXPECT_EQ(refusal([&] { store.get("service", "anthropic"); }), words);
        EXPECT_EQ(refusal([&] { store.remove("service", "anthropic"); }), words);
        EXPECT_EQ(refusal([&] { store.add("service", "anthropic", "new"); }), words);
    });
}

TEST_F(SecretServiceStoreDeathTest, SaysThatThereIsNoKeyringToReach) {
    ::setenv("DBUS_SESSION_BUS_ADDRESS", ("unix:path=" + (folder / "no bus").native()).c_str(), 1);
    inChild([] {
        SecretServiceStore store;
        const std::string words = "The desktop's keyring (Secret Service) can't be reached: ";
        EXPECT_EQ(refusal([&] { store.get("service", "a"); }).substr(0, words.size()), words);
        EXPECT_EQ(refusal([&] { store.add("service", "a", "x"); }).substr(0, words.size()), words);
        EXPECT_EQ(refusal([&] { store.remove("service", "a"); }).substr(0, words.size()), words);
    });
}

}  // namespace
}  // namespace vesk::test
