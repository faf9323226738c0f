#include "VeskLinux/Notifications/DesktopStart.h"

#include <glib.h>

#include <string>

#include "VeskLinux/Descriptor.h"

namespace vesk {

void startDesktop(const std::vector<FilePath>& open) {
    std::string program = "vesk-desktop";
    std::error_code ignored;
    const auto own = std::filesystem::read_symlink("/proc/self/exe", ignored);
    if (!own.empty() && ::access((own.parent_path() / program).c_str(), X_OK) == 0)
        program = (own.parent_path() / program).native();
    std::vector<std::string> words{program};
    for (const auto& path : open) words.push_back(path.native());
    std::vector<char*> arguments;
    for (auto& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    GError* failure = nullptr;
    // By way of a child that ends at once, so that nobody has to wait for the window.
    if (g_spawn_async(nullptr, arguments.data(), nullptr,
                      static_cast<GSpawnFlags>(G_SPAWN_SEARCH_PATH | G_SPAWN_STDOUT_TO_DEV_NULL), nullptr,
                      nullptr, nullptr, &failure))
        return;
    const bool isAbsent = g_error_matches(failure, G_SPAWN_ERROR, G_SPAWN_ERROR_NOENT);
    g_error_free(failure);
    linuxfiles::fail("start", program, isAbsent ? ENOENT : EIO);
}

}  // namespace vesk
