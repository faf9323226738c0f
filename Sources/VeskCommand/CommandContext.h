// What every command is given: the seams, the vault and how to answer.
#pragma once

#include <functional>
#include <initializer_list>
#include <memory>
#include <optional>
#include <span>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

#include "VeskCommand/Terminal.h"
#include "VeskCore/Platform/Bookmarks.h"
#include "VeskCore/Platform/FileEvents.h"
#include "VeskCore/Platform/FileVersions.h"
#include "VeskCore/Platform/HttpTransport.h"
#include "VeskCore/Platform/LanguageRecogniser.h"
#include "VeskCore/Platform/NotificationService.h"
#include "VeskCore/Platform/SecretStore.h"
#include "VeskCore/Platform/SentenceEmbedding.h"
#include "VeskCore/Platform/UserDefaults.h"
#include "VeskCore/Support/Json.h"
#include "VeskCore/Support/Log.h"
#include "VeskCore/Support/Time.h"
#include "VeskCore/Vault/Vault.h"

namespace vesk {
class NoteIndex;
}

namespace vesk::command {

/// A command that can't do what was asked, in words for the user. Ends the program with exit status 1.
class CommandError : public Error {
public:
    explicit CommandError(std::string words) : words_(std::move(words)) {}
    std::string description() const override { return words_; }

private:
    std::string words_;
};

/// Throws for a path that names no note: CommandError, or VaultWriteError for a saved page or stylesheet.
void requireNote(const std::string& path);

/// Borrowed from main, which fills it in before a command runs.
struct CommandContext {
    Clock& clock;
    Log& log;
    UserDefaults& defaults;
    const Bookmarks& bookmarks;
    SecretStore& secrets;
    HttpTransport& transport;
    SentenceEmbeddingSource& embeddings;
    LanguageRecogniser& languages;
    FileVersions& fileVersions;
    std::function<std::unique_ptr<FileEventSource>(const Vault&)> fileEvents;
    /// The notification service of this person's session; none if it runs already. `onTrouble` hears, on
    /// another thread, why nothing rings, and whether that is for good. Throws Error.
    std::function<std::unique_ptr<NotificationService>(
        std::function<void(const std::string& words, bool isOver)> onTrouble)>
        notificationService;
    /// Starts the window, or raises it, with the files or folders to open. Throws Error.
    std::function<void(const std::vector<FilePath>&)> openWindow;
    std::stop_token stop;
    std::string systemVersion;  ///< of the operating system: "12.5.0"

    std::string vaultOption;  ///< --vault
    bool json = false;        ///< --json

    Terminal out{stdout};
    Terminal err{stderr};

    /// By --vault, VESK_VAULT or the last vault used, in this order; remembered as the last one. Throws
    /// CommandError when there is none, or none that can be opened.
    Vault vault() const;
    /// The same without looking at the folder: for `diagnose`.
    Vault namedVault() const;
    /// A path that the user typed: relative to the vault, or below the current folder when that lies in the
    /// vault. Throws VaultWriteError (outsideVault).
    std::string notePath(const Vault& vault, std::string_view typed) const;

    /// Opens the vault's index. With `mustExist` a vault that was never indexed is an error that says what to
    /// do.
    std::unique_ptr<NoteIndex> openIndex(const Vault& vault, bool mustExist) const;
    /// Brings an index that exists up to date with notes that this program wrote, moved or moved away. A
    /// failure is dropped, since the index is only a cache.
    void notesChanged(const Vault& vault, std::initializer_list<std::string_view> paths) const noexcept;
    void notesChanged(const Vault& vault, std::span<const std::string> paths) const noexcept;

    /// One JSON document on standard output.
    void answer(const Json& document) const;
    /// A remark on standard error.
    void remark(std::string_view text) const;
};

}  // namespace vesk::command
