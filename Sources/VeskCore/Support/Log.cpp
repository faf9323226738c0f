#include "VeskCore/Support/Log.h"

#include <fmt/format.h>

namespace vesk {

LogArgument logPublic(std::string_view text) {
    return {.text = std::string(text)};
}

LogArgument logPublic(long long number) {
    return {.text = fmt::to_string(number)};
}

LogArgument logPrivate(std::string_view text) {
    return {.text = std::string(text), .isPrivate = true};
}

void Log::line(LogLevel level, std::string_view category, std::string_view format,
               std::initializer_list<LogArgument> arguments) {
    std::string message;
    const bool clear = showsPrivate();
    for (const auto& argument : arguments) {
        auto place = format.find("{}");
        if (place == std::string_view::npos) break;
        message += format.substr(0, place);
        message += argument.isPrivate && !clear ? "<private>" : argument.text;
        format.remove_prefix(place + 2);
    }
    message += format;
    write(level, category, message);
}

NullLog& NullLog::shared() {
    static NullLog log;
    return log;
}

}  // namespace vesk
