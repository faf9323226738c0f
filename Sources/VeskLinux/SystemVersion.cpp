#include "VeskLinux/SystemVersion.h"

#include <fmt/format.h>
#include <glib.h>

#include <array>
#include <memory>

namespace vesk {

std::string systemVersion() {
    const std::unique_ptr<char, decltype(&g_free)> release(g_get_os_info(G_OS_INFO_KEY_VERSION_ID), g_free);
    std::array<guint64, 3> parts{};
    char* rest = release.get();
    for (auto& part : parts) {
        if (!rest || !g_ascii_isdigit(*rest)) break;
        part = g_ascii_strtoull(rest, &rest, 10);
        if (*rest == '.') ++rest;
    }
    return fmt::format("{}.{}.{}", parts[0], parts[1], parts[2]);
}

}  // namespace vesk
