// `vesk-desktop`: the window. Installs the platform and hands the seams to the application. Exit status 1
// where there is no display.
#include <gtk/gtk.h>
#include <libintl.h>
#include <malloc.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "Vesk/Views/Desktop.h"
#include "Vesk/Views/GlibMainQueue.h"
#include "VeskCore/Platform/FilePlatform.h"
#include "VeskLinux/Cld2LanguageRecogniser.h"
#include "VeskLinux/ConflictFileVersions.h"
#include "VeskLinux/CurlTransport.h"
#include "VeskLinux/FileUserDefaults.h"
#include "VeskLinux/InotifyEventSource.h"
#include "VeskLinux/Interrupts.h"
#include "VeskLinux/LinuxFileSystem.h"
#include "VeskLinux/Notifications/DesktopNotifications.h"
#include "VeskLinux/PathBookmarks.h"
#include "VeskLinux/SecretServiceStore.h"
#include "VeskLinux/SentenceModel/SentenceModelSource.h"
#include "VeskLinux/SystemLog.h"
#include "VeskLinux/SystemVersion.h"

namespace {

constexpr unsigned workers = 4;

/// Words in other languages: beside the program, wherever it was installed.
std::filesystem::path words() {
    std::error_code error;
    const auto program = std::filesystem::read_symlink("/proc/self/exe", error);
    const auto beside = program.parent_path().parent_path() / "share/locale";
    return !error && std::filesystem::exists(beside, error) ? beside : VESK_LOCALES;
}

}  // namespace

int main(int argc, char** argv) {
    using namespace vesk;

    if (argc > 1 && std::strcmp(argv[1], "--version") == 0) {
        std::puts("vesk-desktop " VESK_VERSION);
        return 0;
    }
    bindtextdomain("vesk", words().c_str());
    bind_textdomain_codeset("vesk", "UTF-8");
    textdomain("vesk");
    Interrupts interrupts;
    if (!gtk_init_check()) {
        std::fputs(
            "vesk-desktop: there is no display to open a window on. From a terminal, “vesk” reads, writes "
            "and searches "
            "the notes.\n",
            stderr);
        return 1;
    }

    LinuxFileSystem files;
    PlainCoordination coordination;
    NoUbiquity ubiquity;
    FilePlatformInstallation installation(
        {.files = &files, .coordination = &coordination, .ubiquity = &ubiquity});
    SystemLog log("vesk-desktop");
    SystemClock clock;
    FileUserDefaults defaults(FileUserDefaults::defaultLocation(), files, log);
    PathBookmarks bookmarks(files);
    SecretServiceStore secrets;
    SentenceModelSource embeddings;
    Cld2LanguageRecogniser languages;
    ConflictFileVersions versions(files, Calendar::system().timeZone);
    // For trying out a model service of one's own: every request goes there, on this machine alone.
    const char* standIn = std::getenv("VESK_MODEL_SERVER");
    CurlTransport transport(standIn ? standIn : "");
    DesktopNotifications notifications({}, files, clock, log);
    views::GlibMainQueue mainQueue;
    std::unique_ptr<BrainProviders> providers;  // outlives the workers, which ask them
    ThreadPool pool(workers);
    providers = std::make_unique<BrainProviders>(transport, secrets, defaults, clock, pool);

    return views::runDesktop({.clock = clock,
                              .mainQueue = mainQueue,
                              .background = pool,
                              .log = log,
                              .defaults = defaults,
                              .bookmarks = bookmarks,
                              .secrets = secrets,
                              .providers = *providers,
                              .embeddings = embeddings,
                              .languages = languages,
                              .fileVersions = versions,
                              .notifications = notifications,
                              .fileEvents =
                                  [&log](const Vault& vault) {
                                      return std::make_unique<InotifyEventSource>(
                                          vault.perDeviceDirectory(), Vault::ignoredDirectories(), log);
                                  },
                              .trimMemory = [] { ::malloc_trim(0); },
                              .stop = interrupts.token(),
                              .version = VESK_VERSION,
                              .systemVersion = systemVersion()},
                             argc, argv);
}
