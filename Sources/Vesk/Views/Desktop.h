// The desktop application: one instance for the user, one window, one open vault. Puts the application
// objects and the widgets together.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "VeskCore/Brain/BrainProviders.h"
#include "VeskCore/Platform/Bookmarks.h"
#include "VeskCore/Platform/FileEvents.h"
#include "VeskCore/Platform/FileVersions.h"
#include "VeskCore/Platform/LanguageRecogniser.h"
#include "VeskCore/Platform/NotificationService.h"
#include "VeskCore/Platform/SecretStore.h"
#include "VeskCore/Platform/SentenceEmbedding.h"
#include "VeskCore/Platform/UserDefaults.h"
#include "VeskCore/Support/Executors.h"
#include "VeskCore/Support/Log.h"
#include "VeskCore/Support/Time.h"
#include "VeskCore/Vault/Vault.h"

namespace vesk::views {

/// What main hands over; all outlive the application.
struct DesktopSeams {
    Clock& clock;
    MainQueue& mainQueue;
    Background& background;
    Log& log;
    UserDefaults& defaults;
    const Bookmarks& bookmarks;
    SecretStore& secrets;
    const BrainProviders& providers;
    SentenceEmbeddingSource& embeddings;
    LanguageRecogniser& languages;
    FileVersions& fileVersions;
    NotificationService& notifications;
    std::function<std::unique_ptr<FileEventSource>(const Vault&)> fileEvents;
    /// Gives the system back what the program's heap doesn't use. On a worker.
    std::function<void()> trimMemory;
    std::stop_token stop;
    std::string version;        ///< of the program
    std::string systemVersion;  ///< of the operating system: "12.5.0"
};

/// Runs until the last window has gone; the program's exit status.
int runDesktop(const DesktopSeams& seams, int argc, char** argv);

}  // namespace vesk::views
