// The log: sparing, for the person who looks for a fault. Note text never goes there.
#pragma once

#include <initializer_list>
#include <string>
#include <string_view>

namespace vesk {

enum class LogLevel { debug, info, notice, error };

/// An argument of a log line. A private one is shown as "<private>" wherever the log is kept.
struct LogArgument {
    std::string text;
    bool isPrivate = false;
};
LogArgument logPublic(std::string_view text);
LogArgument logPublic(long long number);
LogArgument logPrivate(std::string_view text);

/// Where log lines go. Safe on any thread.
class Log {
public:
    virtual ~Log() = default;
    virtual void write(LogLevel level, std::string_view category, std::string_view message) = 0;
    /// Whether private arguments are kept in clear text; false but in tests and by the user's wish.
    virtual bool showsPrivate() const { return false; }

    /// `format` has "{}" for each argument in turn.
    void line(LogLevel level, std::string_view category, std::string_view format,
              std::initializer_list<LogArgument> arguments = {});
};

/// Drops every line.
class NullLog final : public Log {
public:
    void write(LogLevel, std::string_view, std::string_view) override {}
    static NullLog& shared();
};

}  // namespace vesk
