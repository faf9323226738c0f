#include "VeskCore/Support/Url.h"

#include "VeskCore/Support/Text.h"

namespace vesk {

namespace {

int hexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

bool isUnreserved(char c) {
    return isAsciiAlphanumeric(c) || c == '-' || c == '.' || c == '_' || c == '~';
}

}  // namespace

std::optional<std::string> removingPercentEncoding(std::string_view text) {
    std::string decoded;
    decoded.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            decoded.push_back(text[i]);
            continue;
        }
        if (text.size() - i < 3) return std::nullopt;
        const int high = hexValue(text[i + 1]);
        const int low = hexValue(text[i + 2]);
        if (high < 0 || low < 0) return std::nullopt;
        decoded.push_back(static_cast<char>(high * 16 + low));
        i += 2;
    }
    if (!isValidUtf8(decoded)) return std::nullopt;
    return decoded;
}

std::string addingPercentEncoding(std::string_view text, std::string_view allowed) {
    static constexpr std::string_view digits = "0123456789ABCDEF";
    std::string encoded;
    encoded.reserve(text.size());
    for (const char c : text) {
        if (isUnreserved(c) || allowed.find(c) != std::string_view::npos) {
            encoded.push_back(c);
            continue;
        }
        const auto byte = static_cast<unsigned char>(c);
        encoded.push_back('%');
        encoded.push_back(digits[byte >> 4U]);
        encoded.push_back(digits[byte & 0xFU]);
    }
    return encoded;
}

}  // namespace vesk
