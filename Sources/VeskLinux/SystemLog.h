// The log in the system's journal, through syslog(3).
#pragma once

#include <string>

#include "VeskCore/Support/Log.h"

namespace vesk {

/// Lines go to the facility "user" under the program's name. Private arguments are left out. One at a time:
/// the connection is the process's.
class SystemLog final : public Log {
public:
    explicit SystemLog(const char* program);
    ~SystemLog() override;
    void write(LogLevel level, std::string_view category, std::string_view message) override;
    bool showsPrivate() const override { return false; }

private:
    std::string program_;
};

}  // namespace vesk
