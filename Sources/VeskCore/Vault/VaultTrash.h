// The vault's own trash: the folder ".trash" at its root. A trashed note stays in the vault, with an
// attribute that tells where it came from. Any thread; calls block.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "VeskCore/Vault/Vault.h"

namespace vesk {

struct TrashedNote {
    std::string trashPath;  ///< below ".trash"; its identity
    FilePath path;
    std::optional<std::string> origin;  ///< the vault-relative path it came from
    TimePoint trashedAt;

    /// The last component, without extension for anything that isn't a page or stylesheet.
    std::string name() const;
    bool operator==(const TrashedNote&) const = default;
};

/// A vault seen from its trash. Failures are VaultWriteError and SystemError.
class VaultTrash {
public:
    explicit VaultTrash(Vault vault) : vault_(std::move(vault)) {}

    FilePath folder() const;
    /// Returns the path in the trash, ".trash/…".
    std::string trashNote(std::string_view path) const;
    void trashFolder(std::string_view path) const;
    /// Newest first, and the number of other items.
    std::pair<std::vector<TrashedNote>, int> trashedNotes() const;
    /// Returns the vault-relative path it was restored to.
    std::string restore(const TrashedNote& note) const;
    bool holdsNote(std::string_view path) const;
    static std::optional<TrashedNote> trashedNote(std::string_view matchingPath,
                                                  const std::vector<TrashedNote>& list);
    /// Puts text that has nowhere else to go in the trash, as the note at `path` would lie there.
    std::string keepInTrash(std::string_view text, std::string_view path) const;
    /// The text of the trashed note that was at `path`; none if the trash doesn't hold it or its bytes can't
    /// be had.
    std::optional<std::string> trashedText(std::string_view path) const;
    /// keepInTrash() for text that a trashed note may not have got any more: nothing is written if the
    /// trashed file holds it. Returns the path written.
    std::optional<std::string> keepMissingText(std::string_view text, std::string_view path) const;
    void empty() const;
    /// "Delete 3 notes and 1 other item forever?"
    static std::string emptyPrompt(const std::vector<TrashedNote>& notes, int otherItems);

private:
    FilePath restoreTarget(const TrashedNote& note) const;

    Vault vault_;
};

}  // namespace vesk
