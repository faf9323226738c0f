// A vault: a folder of plain files that belongs to the user. What can be said of it without an index: which
// files are notes, how they are called, where the data beside them lives, how a note is made, renamed or
// moved. The files are the truth; nothing here caches them. Immutable values; any thread. Whole-folder walks
// are for workers.
#pragma once

#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "VeskCore/Markdown/FrontmatterDoc.h"
#include "VeskCore/Platform/FileSystem.h"
#include "VeskCore/Support/Time.h"
#include "VeskCore/Vault/SyncProvider.h"
#include "VeskCore/Vault/VaultWriteError.h"

namespace vesk {

/// One note file.
struct Note {
    std::string relativePath;  ///< its identity: "/" separators, no leading "/"
    std::string path;          ///< absolute; a FilePath would weigh ten times as much, and lists are long
    std::string title;
    TimePoint modified, created;
    std::int64_t size = 0;  ///< bytes

    /// The last component with every ".md" in it removed.
    std::string name() const;
    /// The relative path of its folder, "/" for the vault's root.
    std::string folder() const;
    bool operator==(const Note&) const = default;
};

/// What kind of indexed file a path is by its extension.
enum class IndexedKind { note, page, stylesheet };
std::string_view rawValue(IndexedKind kind);

/// A saved page or stylesheet: listed, indexed and shown, never edited.
struct VaultDocument {
    std::string relativePath;
    std::string path;  ///< absolute
    IndexedKind kind = IndexedKind::page;
    TimePoint modified;
    std::int64_t size = 0;

    std::string fileName() const;
    std::string folder() const;  ///< empty at the top
    bool operator==(const VaultDocument&) const = default;
};

/// Something about the folder that the user should know.
struct VaultWarning {
    enum class Severity { info, warning, critical };
    std::string code;  ///< its identity in lists
    std::string title, detail;
    Severity severity = Severity::info;
    bool operator==(const VaultWarning&) const = default;
};

class Vault {
public:
    using ExtensionSet = std::set<std::string, std::less<>>;

    /// The root is standardised; without a provider it is detected.
    explicit Vault(const FilePath& root, std::optional<SyncProvider> provider = {});

    const FilePath& root() const { return root_; }
    SyncProvider provider() const { return provider_; }

    // The fixed sets; extensions are lower-case
    static const ExtensionSet& noteExtensions();
    static const ExtensionSet& pageExtensions();
    static const ExtensionSet& stylesheetExtensions();
    static const ExtensionSet& documentExtensions();
    static const ExtensionSet& attachmentExtensions();
    static const ExtensionSet& ignoredDirectories();
    static constexpr std::string_view untitledName = "Untitled";
    static constexpr std::string_view attachmentsFolder = "Attachments";

    static std::optional<IndexedKind> indexedKind(std::string_view path);
    static bool isDocument(std::string_view path);
    static bool isSameKind(std::string_view a, std::string_view b);
    /// True if the target has an extension that isn't a note's: a link to it opens the file.
    static bool isNonNoteFileTarget(std::string_view target);

    // Locations

    /// <root>/.vesk: the per-vault data that travels with the vault.
    FilePath supportDirectory() const;
    /// <Application Support>/Vesk/Indexes/<key>: never syncs.
    FilePath perDeviceDirectory() const;
    FilePath indexPath() const;
    FilePath absolutePath(std::string_view relativePath) const;
    /// None for a path outside the root, and for the root itself.
    std::optional<std::string> relativePath(const FilePath& path) const;
    /// Makes both folders and the ".nosync" file; throws.
    void ensureSupportDirectory() const;

    /// True if symbolic links lead from the path, or from where it would be made, out of the vault.
    bool leadsOutside(std::string_view relativePath) const;

    // Listing and checks

    /// Notes in enumeration order, stubs without a real note first. Unreadable folders are passed over. Reads
    /// no contents.
    std::vector<Note> enumerateNotes() const;
    std::pair<std::vector<Note>, std::vector<VaultDocument>> enumerateNotesAndDocuments() const;
    std::vector<VaultDocument> enumerateDocuments() const;
    std::vector<std::string> enumerateAttachments() const;
    /// Also true for a name that only its stub holds, in an iCloud vault.
    bool isNameTaken(const FilePath& path) const;
    /// One file under two spellings of its name.
    static bool isSameItem(const FilePath& a, const FilePath& b);
    /// Throws VaultWriteError (notMaterialised), after asking for the bytes, for a file that only its stub
    /// holds.
    void requireMaterialisedForMove(const FilePath& path) const;
    std::vector<VaultWarning> diagnose() const;
    /// Notes that look like a sync service's conflict copies.
    std::vector<FilePath> conflictFiles() const;
    /// Notes without local bytes, counted up to `limit`.
    int countEvicted(int limit) const;

    // Notes

    /// None if there is no file; throws what reading throws.
    std::optional<FrontmatterDoc> readNote(std::string_view relativePath) const;
    /// Throws VaultWriteError (outsideVault) also when a symbolic link leads out of the vault.
    void writeNote(const FrontmatterDoc& doc, std::string_view relativePath) const;
    /// The same for a note's whole text.
    void writeText(std::string_view text, std::string_view relativePath) const;
    /// Makes a note of that name, numbered if it is taken.
    Note createNote(std::string_view name, std::string_view folder, std::string_view content) const;
    /// Returns the new relative path; throws VaultWriteError (alreadyExists) if the name is held by another
    /// file.
    std::string renameNote(std::string_view relativePath, std::string_view newName) const;
    std::string moveNote(std::string_view relativePath, std::string_view folder) const;

    // Folders

    /// Every visible folder, empty or not, in the order of the walk.
    std::vector<std::string> emptyFolderPaths() const;
    /// Makes a folder of that name, numbered if it is taken, and returns its relative path.
    std::string createFolder(std::string_view name, std::string_view parent) const;
    /// Returns the new relative path; throws VaultWriteError (alreadyExists) if the name is held by another
    /// item.
    std::string renameFolder(std::string_view relativePath, std::string_view newName) const;

    static std::string sanitiseFilename(std::string_view name);
    /// True for a path that begins with "/" or "~" or has a ".." component.
    static bool leavesVault(std::string_view path);
    static bool isUntitled(std::string_view path);

    // Documents and attachments

    bool isInsideSavedPageFolder(std::string_view relativePath) const;
    /// For each "…_files" folder on the path: its parent folder and its stem.
    static std::vector<std::pair<std::string, std::string>> savedPageFolders(std::string_view path);
    static std::optional<std::string> logicalNoteName(std::string_view stubName);
    static std::optional<std::string> logicalDocumentName(std::string_view stubName);
    /// SQL conditions that tell a row's kind by a path column.
    static std::string sqlHasExtension(std::string_view column, const ExtensionSet& extensions);
    static std::string sqlIsNote(std::string_view column);
    static std::string sqlIsPage(std::string_view column);
    static std::string sqlIsStylesheet(std::string_view column);

    /// Puts an attachment under Attachments and returns its relative path; a taken name is numbered. `now` is
    /// shown in the calendar's zone in the name of a pasted file.
    std::string saveAttachment(std::string_view data, std::string_view extension,
                               const std::optional<std::string>& preferredStem, TimePoint now,
                               const Calendar& calendar,
                               const std::optional<std::string>& subfolder = {}) const;
    static std::string attachmentEmbed(std::string_view path);
    static std::string recordingLink(std::string_view path, std::string_view label);
    /// The note with the transcript put next to its recording's link; none if the link isn't there.
    static std::optional<std::string> noteWithTranscript(std::string_view transcript,
                                                         std::string_view recording, std::string_view label,
                                                         std::string_view note);

private:
    friend class VaultTrash;  // the same checks and free names, for the vault's own trash

    /// The address of a relative path; throws VaultWriteError (outsideVault) for one that leaves the vault.
    FilePath insidePath(std::string_view relativePath) const;
    /// The same for a note, which is never the root itself.
    FilePath notePath(std::string_view relativePath) const;
    /// The address of a folder that something is put into; "" and "/" are the root.
    FilePath folderPath(std::string_view folder) const;
    /// Throws VaultWriteError (outsideVault) if symbolic links lead from the path out of the real vault.
    void requireReallyInside(const FilePath& path) const;
    bool isRootOrBelow(const FilePath& path) const;
    /// Calls `place` with the first free of "<stem><tail>", "<stem> 2<tail>", … and returns that name.
    /// `place` fails with EEXIST where another process has taken the name meanwhile; then the next one is
    /// tried.
    std::string placeUnderFreeName(const FilePath& folder, std::string_view stem, std::string_view tail,
                                   const std::function<void(const FilePath&)>& place) const;
    std::string moveItem(const FilePath& from, const FilePath& to) const;

    FilePath root_;
    SyncProvider provider_;
};

}  // namespace vesk
