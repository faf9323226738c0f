// A display, a session bus and the program on them, driven by keys and clicks and read as a screen reader
// reads.
#pragma once

#include <sys/types.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "Support/Scratch.h"

namespace vesk::test {

/// What assistive technology is told of one control.
struct Control {
    std::string bus, path;  ///< its address on the accessibility bus
    std::string name, role;
};

/// Display and bus are made once for the test program; the home, the vault and the program are each test's
/// own.
class DesktopWorld {
public:
    DesktopWorld();
    ~DesktopWorld();
    DesktopWorld(const DesktopWorld&) = delete;
    DesktopWorld& operator=(const DesktopWorld&) = delete;

    ScratchFolder home, vault;

    /// Starts the program on the vault, with the note open if one is named, and waits for its window.
    void start(const std::string& note = "");
    /// Starts it and waits for no more than a window.
    void startBare(const std::vector<std::string>& arguments = {});
    /// What the next start has in its environment beside or in place of the usual; "NAME=" for without.
    std::vector<std::string> variables;
    /// From the next start on: while fillDisk(true) holds, nothing can be written into the vault.
    void prepareFullDisk();
    void fillDisk(bool full) const;
    /// Another start of the program while it runs, to its end; its exit status.
    int startAgain(const std::vector<std::string>& arguments,
                   const std::vector<std::string>& environment = {}, std::string* output = nullptr) const;
    /// Asks the program to end as Ctrl-C does and waits; its exit status.
    int end();
    /// Ends it as a power cut would.
    void kill();
    /// Holds the program while keys and files change, so that it meets them all at once.
    void whileItStands(const std::function<void()>& body) const;
    /// Of all that the test program starts.
    static const std::string& sessionBus();
    /// Where that bus looks for programs to start.
    static std::string busServices();
    /// What the program has in its environment.
    std::vector<std::string> environment() const;
    bool hasEnded();
    /// Waits for its end; none if it doesn't come.
    std::optional<int> waitForEnd();

    /// Gives the main window the keyboard, as a window manager does when a dialogue has gone.
    void focusWindow() const;
    void key(const std::string& keys) const;
    /// Letters that have a key.
    void type(const std::string& text) const;
    void clickAt(int x, int y, int button = 1) const;
    /// In the middle of a control; false if it doesn't come.
    bool click(const std::string& name, int button = 1) const;
    /// A dialogue has each of its buttons twice, the last for a window too narrow to have them side by side.
    /// True also if none has a place any more.
    void clickLast(const std::string& name) const;
    /// Presses on the one control, moves as a hand does and lets go over the other.
    bool drag(const std::string& from, const std::string& to) const;

    /// Looks again and again until the condition holds; false after a time that no slow machine needs.
    static bool until(const std::function<bool()>& condition);
    bool fileBecomes(const std::string& path, const std::string& text) const;

    std::vector<Control> controls() const;
    struct Area {
        int x = 0, y = 0, width = 0, height = 0;
    };
    /// Where the control stands on the screen; waits for it.
    std::optional<Area> areaOf(const std::string& name) const;
    /// The first control of the name, and of the role if one is given.
    std::optional<Control> control(const std::string& name, const std::string& role = "") const;
    /// Whether the control can be used; false if it isn't there.
    bool isEnabled(const std::string& name) const;
    /// Whether a button of the name is pressed in or a tab chosen.
    bool isOn(const std::string& name) const;
    /// Where the chosen row of a list stands; none if none is.
    std::optional<Area> areaOfChosenRow() const;
    std::string descriptionOf(const std::string& name) const;
    bool shows(const std::string& name) const { return control(name).has_value(); }
    /// Waits for the control and presses it; false if it doesn't come.
    bool press(const std::string& name) const;
    std::string textOf(const std::string& name) const;
    int caretOf(const std::string& name) const;
    bool setCaret(const std::string& name, int offset) const;

    /// For the report of a failure.
    std::string output() const;

private:
    struct Point {
        int x = 0, y = 0;
        bool operator==(const Point&) const = default;
    };
    static std::optional<Area> areaOf(const Control& control);
    static std::optional<Point> middleOf(const Control& control);
    std::optional<Point> middleOf(const std::string& name) const;
    int runTool(const std::vector<std::string>& words) const;
    void launchTool(const std::vector<std::string>& words) const;
    pid_t launch(const std::vector<std::string>& words, const std::vector<std::string>& more,
                 const std::string& log) const;

    pid_t program_ = -1;
    std::optional<int> status_;
};

}  // namespace vesk::test
