// Talking to the person at the terminal: colour where it is wanted, progress, passwords.
#pragma once

#include <chrono>
#include <cstdio>
#include <string>
#include <string_view>

#include "VeskCore/Support/Time.h"

namespace vesk::command {

enum class Tone { plain, strong, faint, good, warning, bad, match };

/// One of the two output streams. Colour only on a terminal without NO_COLOR (no-color.org) and with a TERM
/// other than "dumb".
class Terminal {
public:
    explicit Terminal(std::FILE* stream);

    bool isTerminal() const { return isTerminal_; }
    std::string styled(std::string_view text, Tone tone) const;
    void print(std::string_view text) const;
    void line(std::string_view text = {}) const;

private:
    std::FILE* stream_;
    bool isTerminal_ = false;
    bool colour_ = false;
};

/// Text from a file or a name without what could steer the terminal: control characters as escapes ("\n",
/// "\x1b"), ill-formed UTF-8 as U+FFFD.
std::string printable(std::string_view text);

/// A line on standard error that is redrawn while work goes on; nothing where standard error is no terminal,
/// unless `always`: then a line for every tenth part.
class ProgressLine {
public:
    ProgressLine(std::string label, Clock& clock, bool always);
    ~ProgressLine();
    void update(int completed, int total, std::string_view detail);
    void finish();

private:
    std::string label_;
    Clock& clock_;
    Terminal terminal_{stderr};
    bool always_;
    bool drawn_ = false;
    int lastTenth_ = -1;
    Duration lastDrawn_{};
};

/// All of standard input. Throws SystemError.
std::string readStandardInput();
/// One line, from the terminal without echo or from standard input where that is no terminal; without its
/// line end.
std::string readSecret(std::string_view prompt);

}  // namespace vesk::command
