#include "VeskCore/Support/Uuid.h"

#include <fmt/format.h>
#include <unistd.h>

#include <array>
#include <cstdint>

#include "VeskCore/Support/Ensure.h"

namespace vesk {

std::string randomUuid() {
    std::array<std::uint8_t, 16> bytes{};
    VESK_ENSURE(getentropy(bytes.data(), bytes.size()) == 0);
    bytes[6] = static_cast<std::uint8_t>((bytes[6] & 0x0F) | 0x40);  // version 4
    bytes[8] = static_cast<std::uint8_t>((bytes[8] & 0x3F) | 0x80);  // the variant of RFC 4122
    std::string text;
    text.reserve(36);
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) text += '-';
        fmt::format_to(std::back_inserter(text), "{:02X}", bytes[i]);
    }
    return text;
}

}  // namespace vesk
