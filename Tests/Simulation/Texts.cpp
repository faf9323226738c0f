#include "Simulation/Texts.h"

#include <cstdlib>
#include <string_view>

namespace vesk::simulation {

namespace {

constexpr std::string_view fence = "---\n";

std::string withoutCarriageReturns(const std::string& text) {
    std::string plain;
    for (const char byte : text) {
        if (byte != '\r') plain += byte;
    }
    return plain;
}

/// Where the body begins, behind a frontmatter block and the blank line after it.
std::size_t bodyOf(const std::string& text) {
    if (!text.starts_with(fence)) return 0;
    const auto end = text.find("\n---\n", fence.size() - 1);
    if (end == std::string::npos) return 0;
    const auto body = end + 5;
    return body < text.size() && text[body] == '\n' ? body + 1 : body;
}

}  // namespace

std::string Texts::withCarriageReturns(const std::string& text) {
    std::string result;
    for (const char byte : withoutCarriageReturns(text)) {
        if (byte == '\n') result += '\r';
        result += byte;
    }
    return result;
}

std::string Texts::changed(const std::string& text, int style) {
    std::string result = withoutCarriageReturns(text);
    const auto body = bodyOf(result);
    const auto line = mark() + "\n";
    switch (std::abs(style) % 7) {
        case 0:
        case 1:
        case 2:
            return result + line;
        case 3:
            return result.insert(body, line);
        case 4: {  // the last line goes
            const auto last = result.size() < 2 ? std::string::npos : result.rfind('\n', result.size() - 2);
            result.resize(last == std::string::npos || last + 1 < body ? body : last + 1);
            return result + line;
        }
        case 5: {
            const auto key = "remind: 2031-0" + std::to_string(1 + next_ % 9) + "-15 09:00\n";
            return std::string(fence) + key + std::string(fence) + "\n" + result.substr(body);
        }
        default:
            if (body == 0) return std::string(fence) + "priority: high\n---\n\n" + result;
            return result.substr(body);
    }
}

}  // namespace vesk::simulation
