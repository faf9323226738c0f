// Text that could not be saved yet, outside the vault and outliving the process: one small JSON file per
// unsaved note.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "VeskCore/Support/Time.h"
#include "VeskCore/Vault/ForeignEdit.h"
#include "VeskCore/Vault/Vault.h"

namespace vesk {

/// Per vault and per device. keep() and discard() come from the main thread; the store's lock makes every
/// call safe.
class HeldTextStore {
public:
    struct Entry {
        std::string relativePath, text;
        TimePoint savedAt;
        bool trashed = false;
        std::optional<std::string> baseline;
        bool operator==(const Entry&) const = default;
    };
    struct Leftover {
        FilePath file;
        Entry entry;
    };
    struct NoteOnDisk {
        struct Text {
            std::string text;
            bool operator==(const Text&) const = default;
        };
        struct Gone {
            bool inTrash = false;
            /// What the trashed file holds, if it can be told.
            std::optional<std::string> trashedText;
            bool operator==(const Gone&) const = default;
        };
        struct NotCurrent {
            bool operator==(const NotCurrent&) const = default;
        };
        std::variant<Text, Gone, NotCurrent> value = NotCurrent{};
        bool operator==(const NoteOnDisk&) const = default;
    };
    struct Recovery {
        struct KeepInTrash {
            std::string text;
            bool operator==(const KeepInTrash&) const = default;
        };
        struct ApplyKeys {
            ForeignEdit::ReminderKeyChange change;
            bool operator==(const ApplyKeys&) const = default;
        };
        struct Copy {
            std::string text;
            bool reminderLeftOff = false;
            bool operator==(const Copy&) const = default;
        };
        enum class Plain { alreadyInNote, noteTrashed, onlyReminderKeys, wait };
        std::variant<KeepInTrash, ApplyKeys, Copy, Plain> value = Plain::wait;
        bool operator==(const Recovery&) const = default;
    };

    /// The folder of a vault: <Application Support>/Vesk/Held/<digest of the root>.
    static FilePath directoryFor(const FilePath& vaultRoot);
    /// Touches no disk.
    HeldTextStore(FilePath directory, Clock& clock);
    ~HeldTextStore();
    HeldTextStore(const HeldTextStore&) = delete;
    HeldTextStore& operator=(const HeldTextStore&) = delete;

    /// Holds a text; true if it lies on the disk now. Never throws: a disk that refuses leaves the text in
    /// the editor. A note that has moved since keeps its file, under its old path as well as its new one.
    bool keep(std::string_view text, std::string_view path, std::string_view owner,
              const std::optional<std::string>& baseline);
    /// Lets go of what this run holds for the note; the file of an earlier run stays for its recovery.
    void discard(std::string_view path, std::string_view owner);
    void markTrashed(const std::vector<std::string>& paths);
    void moved(std::string_view from, std::string_view to);
    /// Oldest first. Without `includingThisRun` only what earlier runs left.
    std::vector<Leftover> leftovers(bool includingThisRun) const;
    void remove(const FilePath& file);
    /// What a crash left half-way in the folder for longer than `age`: a whole text becomes a leftover,
    /// anything less goes.
    void takeUpUnfinished(Seconds age);
    void discardEverythingKept();
    /// discardEverythingKept() on every store that this process has made, those of closed vaults included.
    static void discardEverythingKeptThisRun();

    /// What becomes of a leftover. A trashed note's text is let go only if the trashed file holds it.
    static Recovery recovery(const Entry& entry, const NoteOnDisk& note, const Calendar& calendar);
    /// 32 lower-case hexadecimal digits.
    static std::string digest(std::string_view text);

    const FilePath& directory() const;

private:
    /// What this run has kept: outlives the store, so that it can still be let go when the application ends.
    struct Kept;
    struct Registry;

    std::shared_ptr<Kept> kept_;
    Clock& clock_;
};

}  // namespace vesk
