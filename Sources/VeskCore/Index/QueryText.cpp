#include "VeskCore/Index/QueryText.h"

namespace vesk {

std::string ftsPhrase(std::string_view text) {
    std::string quoted = "\"";
    for (char c : text) {
        if (c == '"') quoted += '"';
        // SQLite reads a bound text up to its first NUL, which would leave the quote open.
        quoted += c == '\0' ? ' ' : c;
    }
    return quoted + "\"";
}

std::string ftsPrefix(std::string_view text) {
    return ftsPhrase(text) + "*";
}

std::string likeEscaped(std::string_view text) {
    std::string escaped;
    escaped.reserve(text.size());
    for (char c : text) {
        if (c == '\\' || c == '%' || c == '_') escaped += '\\';
        escaped += c;
    }
    return escaped;
}

}  // namespace vesk
