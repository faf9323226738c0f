// `vesk`: the vault from a terminal. Installs the platform, hands the seams to the commands, turns failures
// into words and exit statuses: 0 done, 1 failed, 2 wrong usage.
#include <cstdio>
#include <cstdlib>
#include <exception>

#include "VeskCommand/CommandSupport.h"
#include "VeskCommand/Commands.h"
#include "VeskCore/Platform/FilePlatform.h"
#include "VeskLinux/Cld2LanguageRecogniser.h"
#include "VeskLinux/ConflictFileVersions.h"
#include "VeskLinux/CurlTransport.h"
#include "VeskLinux/FileUserDefaults.h"
#include "VeskLinux/InotifyEventSource.h"
#include "VeskLinux/Interrupts.h"
#include "VeskLinux/LinuxFileSystem.h"
#include "VeskLinux/Notifications/DesktopNotifications.h"
#include "VeskLinux/Notifications/DesktopStart.h"
#include "VeskLinux/PathBookmarks.h"
#include "VeskLinux/SecretServiceStore.h"
#include "VeskLinux/SentenceModel/SentenceModelSource.h"
#include "VeskLinux/SystemLog.h"
#include "VeskLinux/SystemVersion.h"

namespace {

constexpr int failed = 1;
constexpr int wrongUsage = 2;

}  // namespace

int main(int argc, char** argv) {
    using namespace vesk;

    LinuxFileSystem files;
    PlainCoordination coordination;
    NoUbiquity ubiquity;
    FilePlatformInstallation installation(
        {.files = &files, .coordination = &coordination, .ubiquity = &ubiquity});
    Interrupts interrupts;
    SystemLog log("vesk");
    SystemClock clock;
    FileUserDefaults defaults(FileUserDefaults::defaultLocation(), files, log);
    PathBookmarks bookmarks(files);
    SecretServiceStore secrets;
    // For trying out a model service of one's own: every request goes there, on this machine alone.
    const char* standIn = std::getenv("VESK_MODEL_SERVER");
    CurlTransport transport(standIn ? standIn : "");
    SentenceModelSource embeddings;
    Cld2LanguageRecogniser languages;
    ConflictFileVersions versions(files, Calendar::system().timeZone);

    command::CommandContext context{
        .clock = clock,
        .log = log,
        .defaults = defaults,
        .bookmarks = bookmarks,
        .secrets = secrets,
        .transport = transport,
        .embeddings = embeddings,
        .languages = languages,
        .fileVersions = versions,
        .fileEvents =
            [&log](const Vault& vault) {
                // What happens in the trash is told too.
                auto unseen = Vault::ignoredDirectories();
                unseen.erase(".trash");
                return std::make_unique<InotifyEventSource>(vault.perDeviceDirectory(), std::move(unseen),
                                                            log);
            },
        .notificationService =
            [&](auto trouble) { return DesktopNotifications::service(files, clock, log, trouble); },
        .openWindow = startDesktop,
        .stop = interrupts.token(),
        .systemVersion = systemVersion(),
        .vaultOption = {}};

    CLI::App program(
        "Your notes are a folder of Markdown files. vesk reads, writes, indexes and searches them.", "vesk");
    program.set_version_flag("--version", "vesk " VESK_VERSION);
    program
        .add_option("--vault", context.vaultOption,
                    "The folder of notes; else VESK_VAULT, else the last one used")
        ->type_name("DIR");
    // One is needed all the same; asked for below, so that a word that is no command is named in the message.
    program.require_subcommand(0, 1);
    program.fallthrough();
    program.footer("Exit status: 0 done, 1 failed with a message on standard error, 2 wrong usage.");
    command::addNoteCommands(program, context);
    command::addPropertyCommands(program, context);
    command::addIndexCommands(program, context);
    command::addEmbeddingCommands(program, context);
    command::addSearchCommands(program, context);
    command::addInspectCommands(program, context);
    command::addSessionCommands(program, context);
    command::addSaveCommands(program, context);
    command::addSafetyCommands(program, context);
    command::addFormatCommand(program, context);
    command::addKeyCommands(program, context);
    command::addProviderCommands(program, context);
    command::addAskCommands(program, context);
    command::addPlanCommands(program, context);
    command::addNotifyCommand(program, context);
    command::addGenerateCommand(program);

    try {
        program.parse(argc, argv);
        if (program.get_subcommands().empty()) throw CLI::RequiredError("A command");
    } catch (const CLI::ParseError& error) {
        return program.exit(error) == 0 ? 0 : wrongUsage;
    } catch (const std::exception&) {
        std::fflush(stdout);
        const command::Terminal err(stderr);
        err.line(err.styled("vesk: ", command::Tone::bad) +
                 command::printable(describe(std::current_exception())));
        return failed;
    }
    // A pipe that was closed early or a full disk behind standard output is a failure too.
    if (std::fflush(stdout) != 0 || std::ferror(stdout)) {
        std::perror("vesk: standard output");
        return failed;
    }
    return 0;
}
