#include "VeskLinux/SystemLog.h"

#include <syslog.h>

namespace vesk {

namespace {

int priority(LogLevel level) {
    switch (level) {
        case LogLevel::debug:
            return LOG_DEBUG;
        case LogLevel::info:
            return LOG_INFO;
        case LogLevel::notice:
            return LOG_NOTICE;
        case LogLevel::error:
            return LOG_ERR;
    }
    return LOG_ERR;
}

}  // namespace

SystemLog::SystemLog(const char* program) : program_(program) {
    // openlog keeps the pointer.
    ::openlog(program_.c_str(), LOG_PID, LOG_USER);
}

SystemLog::~SystemLog() {
    ::closelog();
}

void SystemLog::write(LogLevel level, std::string_view category, std::string_view message) {
    // A line of the log is one line; beyond a few kilobytes the system cuts it in its own way.
    std::string line = std::string(category) + ": " + std::string(message.substr(0, 4096));
    for (char& c : line) {
        if (c == '\n' || c == '\r' || c == '\0') c = ' ';
    }
    ::syslog(priority(level), "%s", line.c_str());
}

}  // namespace vesk
