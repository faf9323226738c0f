#include "VeskCommand/Terminal.h"

#include <fmt/core.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "VeskCore/Support/Characters.h"
#include "VeskCore/Support/Error.h"
#include "VeskCore/Support/Text.h"

namespace vesk::command {

Terminal::Terminal(std::FILE* stream) : stream_(stream), isTerminal_(isatty(fileno(stream)) == 1) {
    const char* noColour = std::getenv("NO_COLOR");
    const char* term = std::getenv("TERM");
    colour_ = isTerminal_ && (!noColour || !*noColour) && term && std::string_view(term) != "dumb";
}

std::string Terminal::styled(std::string_view text, Tone tone) const {
    if (!colour_ || tone == Tone::plain || text.empty()) return std::string(text);
    const char* code = "";
    switch (tone) {
        case Tone::plain:
            break;
        case Tone::strong:
            code = "1";
            break;
        case Tone::faint:
            code = "2";
            break;
        case Tone::good:
            code = "32";
            break;
        case Tone::warning:
            code = "33";
            break;
        case Tone::bad:
            code = "31";
            break;
        case Tone::match:
            code = "1;33";
            break;
    }
    return fmt::format("\x1b[{}m{}\x1b[0m", code, text);
}

void Terminal::print(std::string_view text) const {
    std::fwrite(text.data(), 1, text.size(), stream_);
}

void Terminal::line(std::string_view text) const {
    print(text);
    print("\n");
}

std::string printable(std::string_view text) {
    const std::string repaired = repairedUtf8(text);
    std::string shown;
    shown.reserve(repaired.size());
    for (std::size_t offset = 0; offset < repaired.size();) {
        const std::size_t start = offset;
        const char32_t codePoint = nextCodePoint(repaired, offset);
        if (codePoint == U'\n') {
            shown += "\\n";
        } else if (codePoint == U'\t') {
            shown += "\\t";
        } else if (codePoint < 0x20 || (codePoint >= 0x7f && codePoint < 0xa0)) {
            shown += fmt::format("\\x{:02x}", static_cast<unsigned>(codePoint));
        } else {
            shown.append(repaired, start, offset - start);
        }
    }
    return shown;
}

ProgressLine::ProgressLine(std::string label, Clock& clock, bool always)
    : label_(std::move(label)), clock_(clock), always_(always) {}

ProgressLine::~ProgressLine() {
    finish();
}

void ProgressLine::update(int completed, int total, std::string_view detail) {
    if (total <= 0) return;
    if (!terminal_.isTerminal()) {
        const int tenth = static_cast<int>(10.0 * completed / total);
        if (!always_ || tenth == lastTenth_) return;
        lastTenth_ = tenth;
        terminal_.line(fmt::format("{} {}/{}", label_, completed, total));
        return;
    }
    const auto now = clock_.monotonic();
    if (drawn_ && completed < total && now - lastDrawn_ < std::chrono::milliseconds(80)) return;
    lastDrawn_ = now;
    drawn_ = true;
    constexpr int width = 24;
    const int filled = static_cast<int>(static_cast<long long>(width) * completed / total);
    std::string bar;
    for (int i = 0; i < width; ++i) bar += i < filled ? "█" : "░";
    const std::string shown = printable(detail);
    terminal_.print(
        fmt::format("\r\x1b[K{} {} {}/{}  {}", label_, bar, completed, total, characterPrefix(shown, 40)));
    std::fflush(stderr);
}

void ProgressLine::finish() {
    if (drawn_) {
        terminal_.print("\r\x1b[K");
        std::fflush(stderr);
    }
    drawn_ = false;
}

std::string readStandardInput() {
    std::string text;
    char buffer[65536];
    for (;;) {
        const auto got = ::read(STDIN_FILENO, buffer, sizeof buffer);
        if (got > 0) {
            text.append(buffer, static_cast<std::size_t>(got));
        } else if (got == 0) {
            return text;
        } else if (errno != EINTR) {
            throw SystemError(errno, "read", "standard input");
        }
    }
}

std::string readSecret(std::string_view prompt) {
    const bool terminal = isatty(STDIN_FILENO) == 1;
    termios former{};
    if (terminal) {
        tcgetattr(STDIN_FILENO, &former);
        termios silent = former;
        silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &silent);
        std::fwrite(prompt.data(), 1, prompt.size(), stderr);
        std::fflush(stderr);
    }
    std::string line;
    for (char c = 0; ::read(STDIN_FILENO, &c, 1) == 1 && c != '\n';) line += c;
    if (terminal) {
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &former);
        std::fwrite("\n", 1, 1, stderr);
    }
    return std::string(trim(line));
}

}  // namespace vesk::command
