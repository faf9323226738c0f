#include "DesktopWorld.h"

#include <fcntl.h>
#include <gio/gio.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <iostream>
#include <map>
#include <set>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace vesk::test {
namespace {

using namespace std::chrono_literals;
constexpr auto deadline = 45s;
constexpr auto pause = 15ms;
constexpr auto rest = 100ms;

int exitStatus(int status) {
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

/// A child that goes with this process. `descriptor` is handed on as number 3.
pid_t spawn(std::vector<std::string> words, std::vector<std::string> variables, int descriptor,
            const std::string& log) {
    std::vector<char*> argv, envp;
    for (auto& word : words) argv.push_back(word.data());
    for (auto& variable : variables) envp.push_back(variable.data());
    argv.push_back(nullptr);
    envp.push_back(nullptr);
    const pid_t pid = fork();
    if (pid != 0) return pid;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (descriptor >= 0) dup2(descriptor, 3);
    const int out = open(log.empty() ? "/dev/null" : log.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
    dup2(out, 1);
    dup2(out, 2);
    execvpe(argv[0], argv.data(), envp.data());
    _exit(127);
}

/// The first line that a child writes to its descriptor 3.
std::string firstLine(const std::function<pid_t(int)>& start, pid_t& child) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC)) throw std::runtime_error("pipe");
    child = start(ends[1]);
    close(ends[1]);
    std::string line;
    char letter = 0;
    while (read(ends[0], &letter, 1) == 1 && letter != '\n') line += letter;
    close(ends[0]);
    if (line.empty()) throw std::runtime_error("a helper program didn't start");
    return line;
}

/// One for the test program.
class Screen {
public:
    Screen() {
        const std::vector<std::string> plain{"PATH=/usr/bin:/bin", "HOME=" + home_.path().string()};
        display = ":" + firstLine(
                            [&](int out) {
                                return spawn({"Xvfb", "-displayfd", "3", "-screen", "0", "1280x800x24",
                                              "-nolisten", "tcp", "-noreset"},
                                             plain, out, "");
                            },
                            server_);
        auto variables = plain;
        variables.push_back("DISPLAY=" + display);
        variables.push_back("XDG_RUNTIME_DIR=" + home_.path().string());
        bus = firstLine(
            [&](int out) {
                return spawn({"dbus-daemon", "--session", "--nofork", "--print-address=3"}, variables, out,
                             "");
            },
            daemon_);
    }
    ~Screen() {
        for (const pid_t child : {daemon_, server_}) {
            ::kill(child, SIGTERM);
            waitpid(child, nullptr, 0);
        }
    }
    std::string display, bus;
    std::string runtime() const { return home_.path().string(); }

    /// The accessibility bus, which the session bus starts when it is asked for.
    GDBusConnection* accessibility() {
        if (accessibility_) return accessibility_;
        auto* session = connect(bus);
        GVariant* answer = g_dbus_connection_call_sync(
            session, "org.a11y.Bus", "/org/a11y/bus", "org.a11y.Bus", "GetAddress", nullptr,
            G_VARIANT_TYPE("(s)"), G_DBUS_CALL_FLAGS_NONE, 10000, nullptr, nullptr);
        if (!answer) throw std::runtime_error("no accessibility bus");
        const char* address = nullptr;
        g_variant_get(answer, "(&s)", &address);
        accessibility_ = connect(address);
        g_variant_unref(answer);
        return accessibility_;
    }

private:
    static GDBusConnection* connect(const std::string& address) {
        auto* connection = g_dbus_connection_new_for_address_sync(
            address.c_str(),
            static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                              G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
            nullptr, nullptr, nullptr);
        if (!connection) throw std::runtime_error("no bus at " + address);
        return connection;
    }

    ScratchFolder home_;
    pid_t server_ = -1, daemon_ = -1;
    GDBusConnection* accessibility_ = nullptr;
};

Screen& screen() {
    static Screen one;
    return one;
}

GVariant* call(const std::string& bus, const std::string& path, const char* interface, const char* method,
               GVariant* arguments, const char* type) {
    return g_dbus_connection_call_sync(screen().accessibility(), bus.c_str(), path.c_str(), interface, method,
                                       arguments, type ? G_VARIANT_TYPE(type) : nullptr,
                                       G_DBUS_CALL_FLAGS_NONE, 3000, nullptr, nullptr);
}

std::string property(const std::string& bus, const std::string& path, const char* interface,
                     const char* name) {
    GVariant* answer = call(bus, path, "org.freedesktop.DBus.Properties", "Get",
                            g_variant_new("(ss)", interface, name), "(v)");
    if (!answer) return "";
    GVariant* value = nullptr;
    g_variant_get(answer, "(v)", &value);
    std::string text;
    if (g_variant_is_of_type(value, G_VARIANT_TYPE_STRING)) text = g_variant_get_string(value, nullptr);
    if (g_variant_is_of_type(value, G_VARIANT_TYPE_INT32)) text = std::to_string(g_variant_get_int32(value));
    g_variant_unref(value);
    g_variant_unref(answer);
    return text;
}

bool hasState(const Control& control, guint32 state) {
    GVariant* answer =
        call(control.bus, control.path, "org.a11y.atspi.Accessible", "GetState", nullptr, "(au)");
    if (!answer) return false;
    GVariant* words = g_variant_get_child_value(answer, 0);
    guint32 low = 0;
    g_variant_get_child(words, 0, "u", &low);
    g_variant_unref(words);
    g_variant_unref(answer);
    return (low & state) != 0;
}
constexpr guint32 checked = 1U << 4, pressed = 1U << 20, selected = 1U << 23, sensitive = 1U << 24;

constexpr const char* root = "/org/a11y/atspi/accessible/root";

std::vector<std::pair<std::string, std::string>> childrenOf(const std::string& bus, const std::string& path) {
    std::vector<std::pair<std::string, std::string>> list;
    GVariant* answer = call(bus, path, "org.a11y.atspi.Accessible", "GetChildren", nullptr, "(a(so))");
    if (!answer) return list;
    GVariantIter* children = nullptr;
    g_variant_get(answer, "(a(so))", &children);
    const char *childBus = nullptr, *childPath = nullptr;
    while (g_variant_iter_next(children, "(&s&o)", &childBus, &childPath))
        list.emplace_back(childBus, childPath);
    g_variant_iter_free(children);
    g_variant_unref(answer);
    return list;
}

/// The controls of one program. The names and roles of those that were asked for before come from its cache
/// in one call; who is whose child, and hidden or not, the cache doesn't know for certain.
class Look {
public:
    explicit Look(const std::string& bus) : bus_(bus) {
        GVariant* answer = call(bus, "/org/a11y/atspi/cache", "org.a11y.atspi.Cache", "GetItems", nullptr,
                                "(a((so)(so)(so)iiassusau))");
        if (!answer) return;
        GVariantIter* items = nullptr;
        g_variant_get(answer, "(a((so)(so)(so)iiassusau))", &items);
        while (GVariant* one = g_variant_iter_next_value(items)) {
            const char *path = nullptr, *name = nullptr;
            guint32 role = 0;
            g_variant_get(one, "((&s&o)(so)(so)iias&susau)", nullptr, &path, nullptr, nullptr, nullptr,
                          nullptr, nullptr, nullptr, nullptr, &name, &role, nullptr, nullptr);
            known_[path] = {name, role};
            g_variant_unref(one);
        }
        g_variant_iter_free(items);
        g_variant_unref(answer);
    }

    /// What is hidden isn't among the children.
    void collect(const std::string& path, std::vector<Control>& found, int depth = 0) const {
        constexpr int deepest = 60;
        if (depth > deepest) return;
        for (const auto& child : childrenOf(bus_, path)) {
            Control control{bus_, child.second, "", ""};
            const auto known = known_.find(control.path);
            if (known != known_.end()) {
                control.name = known->second.first;
                control.role = roleName(known->second.second, control.path);
            } else {
                control.name = property(bus_, control.path, "org.a11y.atspi.Accessible", "Name");
                control.role = askedRole(control.path);
            }
            found.push_back(control);
            if (control.role != "label" && control.role != "image") collect(control.path, found, depth + 1);
        }
    }

private:
    std::string askedRole(const std::string& path) const {
        GVariant* role = call(bus_, path, "org.a11y.atspi.Accessible", "GetRoleName", nullptr, "(s)");
        if (!role) return "";
        const char* name = nullptr;
        g_variant_get(role, "(&s)", &name);
        std::string copy = name;
        g_variant_unref(role);
        return copy;
    }
    std::string roleName(guint32 role, const std::string& path) const {
        static std::map<guint32, std::string> names;
        auto& name = names[role];
        if (name.empty()) name = askedRole(path);
        return name;
    }

    std::string bus_;
    std::map<std::string, std::pair<std::string, guint32>> known_;
};

}  // namespace

DesktopWorld::DesktopWorld() {
    screen();
}

DesktopWorld::~DesktopWorld() {
    if (program_ > 0 && !hasEnded()) kill();
}

const std::string& DesktopWorld::sessionBus() {
    return screen().bus;
}

std::string DesktopWorld::busServices() {
    return screen().runtime() + "/dbus-1/services";
}

std::vector<std::string> DesktopWorld::environment() const {
    const auto root = home.path().string();
    return {"PATH=/usr/bin:/bin",
            "HOME=" + root,
            "XDG_DATA_HOME=" + root + "/data",
            "XDG_CONFIG_HOME=" + root + "/config",
            "XDG_CACHE_HOME=" + root + "/cache",
            "XDG_RUNTIME_DIR=" + screen().runtime(),
            "DISPLAY=" + screen().display,
            "DBUS_SESSION_BUS_ADDRESS=" + screen().bus,
            "GDK_BACKEND=x11",
            "GSK_RENDERER=cairo",
            "GSETTINGS_BACKEND=memory",
            "GTK_A11Y=atspi",
            "ASAN_OPTIONS=detect_leaks=0",
            "TZ=UTC",
            "LC_ALL=C.UTF-8"};
}

pid_t DesktopWorld::launch(const std::vector<std::string>& words, const std::vector<std::string>& more,
                           const std::string& log) const {
    auto whole = environment();
    for (const auto& variable : more) {
        const auto name = variable.substr(0, variable.find('=') + 1);
        std::erase_if(whole, [&](const std::string& known) { return known.starts_with(name); });
        if (variable.back() != '=') whole.push_back(variable);
    }
    return spawn(words, whole, -1, log);
}

void DesktopWorld::start(const std::string& note) {
    // What a failed story left would take the new start for its own.
    if (program_ > 0 && !hasEnded()) kill();
    std::vector<std::string> words{VESK_DESKTOP, vault.path().string()};
    if (!note.empty()) words.push_back((vault / note).string());
    status_.reset();
    program_ = launch(words, variables, (home / "output").string());
    if (!until([&] { return shows("Note text") || (note.empty() && !controls().empty()) || hasEnded(); }))
        throw std::runtime_error("no window:\n" + output());
    if (hasEnded()) throw std::runtime_error("it ended:\n" + output());
    focusWindow();
}

void DesktopWorld::startBare(const std::vector<std::string>& arguments) {
    status_.reset();
    std::vector<std::string> words{VESK_DESKTOP};
    words.insert(words.end(), arguments.begin(), arguments.end());
    program_ = launch(words, variables, (home / "output").string());
    focusWindow();
}

void DesktopWorld::prepareFullDisk() {
    variables = {std::string("LD_PRELOAD=") + VESK_FAULT_SHIM, "VESK_FAULT_UNDER=" + vault.path().string(),
                 "VESK_FAULT_AT=1", "VESK_FAULT_HOW=" + std::to_string(ENOSPC) + "+",
                 "VESK_FAULT_WHILE=" + (home / "full").string()};
}

void DesktopWorld::fillDisk(bool full) const {
    if (full) {
        home.write("full", "");
    } else {
        std::filesystem::remove(home / "full");
    }
}

int DesktopWorld::startAgain(const std::vector<std::string>& arguments, const std::vector<std::string>& more,
                             std::string* said) const {
    std::vector<std::string> words{VESK_DESKTOP};
    words.insert(words.end(), arguments.begin(), arguments.end());
    const auto log = (home / "again").string();
    int status = 0;
    waitpid(launch(words, more, log), &status, 0);
    if (said) *said = home.read("again");
    return exitStatus(status);
}

bool DesktopWorld::hasEnded() {
    if (status_) return true;
    int status = 0;
    if (waitpid(program_, &status, WNOHANG) != program_) return false;
    status_ = exitStatus(status);
    return true;
}

std::optional<int> DesktopWorld::waitForEnd() {
    until([&] { return hasEnded(); });
    return status_;
}

int DesktopWorld::end() {
    ::kill(program_, SIGTERM);
    return waitForEnd().value_or(-1);
}

void DesktopWorld::kill() {
    ::kill(program_, SIGKILL);
    waitForEnd();
}

void DesktopWorld::whileItStands(const std::function<void()>& body) const {
    ::kill(program_, SIGSTOP);
    body();
    ::kill(program_, SIGCONT);
}

int DesktopWorld::runTool(const std::vector<std::string>& words) const {
    int status = 0;
    waitpid(launch(words, {}, ""), &status, 0);
    return exitStatus(status);
}

void DesktopWorld::launchTool(const std::vector<std::string>& words) const {
    if (runTool(words) != 0) throw std::runtime_error(words.front() + " failed");
}

void DesktopWorld::focusWindow() const {
    // Its own waiting looks twice a second, and goes on for ever.
    if (!until([&] {
            return runTool({"xdotool", "search", "--onlyvisible", "--name", "Vesk", "windowfocus"}) == 0;
        }))
        throw std::runtime_error("no window has the keyboard");
}

void DesktopWorld::key(const std::string& keys) const {
    launchTool({"xdotool", "key", "--clearmodifiers", keys});
}

void DesktopWorld::type(const std::string& text) const {
    // For a letter without a key the tool changes the keyboard's map and changes it back, before a slow
    // program has read what the key meant.
    for (const char letter : text)
        if (letter != '\n' && (letter < ' ' || letter > '~'))
            throw std::runtime_error("no key for a letter of: " + text);
    launchTool({"xdotool", "type", "--delay", "4", "--", text});
}

void DesktopWorld::clickAt(int x, int y, int button) const {
    launchTool(
        {"xdotool", "mousemove", std::to_string(x), std::to_string(y), "click", std::to_string(button)});
}

std::optional<DesktopWorld::Area> DesktopWorld::areaOf(const Control& target) {
    constexpr guint32 inWindow = 1;
    GVariant* answer = call(target.bus, target.path, "org.a11y.atspi.Component", "GetExtents",
                            g_variant_new("(u)", inWindow), "((iiii))");
    if (!answer) return {};
    int x = 0, y = 0, width = 0, height = 0;
    g_variant_get(answer, "((iiii))", &x, &y, &width, &height);
    g_variant_unref(answer);
    if (width <= 0 || height <= 0) return {};
    return Area{x, y, width, height};
}

std::optional<DesktopWorld::Area> DesktopWorld::areaOf(const std::string& name) const {
    std::optional<Area> found;
    until([&] {
        for (const auto& target : controls())
            if (!found && target.name == name) found = areaOf(target);
        return found.has_value();
    });
    return found;
}

std::optional<DesktopWorld::Point> DesktopWorld::middleOf(const Control& control) {
    const auto area = areaOf(control);
    if (!area) return {};
    return Point{area->x + area->width / 2, area->y + area->height / 2};
}

std::optional<DesktopWorld::Point> DesktopWorld::middleOf(const std::string& name) const {
    // A list that is still making room moves its rows: a place counts once it has been met twice.
    std::optional<Point> found;
    until([&] {
        std::optional<Point> now;
        for (const auto& target : controls())
            if (!now && target.name == name) now = middleOf(target);
        const bool isAtRest = now && found == now;
        found = now;
        if (!isAtRest) std::this_thread::sleep_for(rest);
        return isAtRest;
    });
    return found;
}

bool DesktopWorld::click(const std::string& name, int button) const {
    const auto at = middleOf(name);
    if (at) clickAt(at->x, at->y, button);
    return at.has_value();
}

void DesktopWorld::clickLast(const std::string& name) const {
    std::optional<Point> at;
    for (const auto& target : controls())
        if (target.name == name)
            if (const auto place = middleOf(target)) at = place;
    if (at) clickAt(at->x, at->y);
}

bool DesktopWorld::drag(const std::string& from, const std::string& to) const {
    const auto start = middleOf(from), end = middleOf(to);
    if (!start || !end) return false;
    const auto move = [](int x, int y) -> std::vector<std::string> {
        return {"mousemove", "--sync", std::to_string(x), std::to_string(y), "sleep", "0.05"};
    };
    std::vector<std::string> words{"xdotool"};
    const auto add = [&](const std::vector<std::string>& more) {
        words.insert(words.end(), more.begin(), more.end());
    };
    add(move(start->x, start->y));
    add({"mousedown", "1"});
    constexpr int steps = 8;
    for (int step = 1; step <= steps; ++step)
        add(move(start->x + (end->x - start->x) * step / steps,
                 start->y + (end->y - start->y) * step / steps));
    add({"sleep", "0.1", "mouseup", "1"});
    launchTool(words);
    return true;
}

bool DesktopWorld::until(const std::function<bool()>& condition) {
    const auto end = std::chrono::steady_clock::now() + deadline;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::sleep_for(pause);
    }
    return true;
}

bool DesktopWorld::fileBecomes(const std::string& path, const std::string& text) const {
    return until([&] { return vault.exists(path) && vault.read(path) == text; });
}

std::vector<Control> DesktopWorld::controls() const {
    std::vector<Control> found;
    for (const auto& [bus, path] : childrenOf("org.a11y.atspi.Registry", root))
        Look(bus).collect(path, found);
    return found;
}

std::optional<Control> DesktopWorld::control(const std::string& name, const std::string& role) const {
    for (auto& candidate : controls())
        if (candidate.name == name && (role.empty() || candidate.role == role)) return candidate;
    return {};
}

bool DesktopWorld::isEnabled(const std::string& name) const {
    const auto found = control(name);
    return found && hasState(*found, sensitive);
}

bool DesktopWorld::isOn(const std::string& name) const {
    for (const auto& candidate : controls())
        if (candidate.name == name && hasState(candidate, checked | pressed | selected)) return true;
    return false;
}

std::optional<DesktopWorld::Area> DesktopWorld::areaOfChosenRow() const {
    for (const auto& candidate : controls())
        if (candidate.role == "list item" && hasState(candidate, selected)) return areaOf(candidate);
    return {};
}

std::string DesktopWorld::descriptionOf(const std::string& name) const {
    const auto found = control(name);
    return found ? property(found->bus, found->path, "org.a11y.atspi.Accessible", "Description") : "";
}

bool DesktopWorld::press(const std::string& name) const {
    return until([&] {
        // A dialogue has each of its buttons twice, for a wide and a narrow window, and one has a place.
        std::optional<Control> button;
        for (auto& candidate : controls())
            if (candidate.name == name && (!button || candidate.role == "button") && middleOf(candidate))
                button = candidate;
        if (!button) return false;
        GVariant* answer = call(button->bus, button->path, "org.a11y.atspi.Action", "DoAction",
                                g_variant_new("(i)", 0), "(b)");
        if (!answer) return false;
        gboolean done = FALSE;
        g_variant_get(answer, "(b)", &done);
        g_variant_unref(answer);
        return done != FALSE;
    });
}

std::string DesktopWorld::textOf(const std::string& name) const {
    const auto found = control(name);
    if (!found) return "";
    GVariant* answer =
        call(found->bus, found->path, "org.a11y.atspi.Text", "GetText", g_variant_new("(ii)", 0, -1), "(s)");
    if (!answer) return "";
    const char* text = nullptr;
    g_variant_get(answer, "(&s)", &text);
    std::string copy = text;
    g_variant_unref(answer);
    return copy;
}

int DesktopWorld::caretOf(const std::string& name) const {
    const auto found = control(name);
    if (!found) return -1;
    const auto offset = property(found->bus, found->path, "org.a11y.atspi.Text", "CaretOffset");
    return offset.empty() ? -1 : std::stoi(offset);
}

bool DesktopWorld::setCaret(const std::string& name, int offset) const {
    const auto found = control(name);
    if (!found) return false;
    GVariant* answer = call(found->bus, found->path, "org.a11y.atspi.Text", "SetCaretOffset",
                            g_variant_new("(i)", offset), "(b)");
    if (answer) g_variant_unref(answer);
    return answer != nullptr;
}

std::string DesktopWorld::output() const {
    return home.exists("output") ? home.read("output") : "";
}

}  // namespace vesk::test
