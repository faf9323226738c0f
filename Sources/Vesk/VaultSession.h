// The object that lives exactly as long as one open vault. It owns the vault's index, search, watcher,
// embedder, held-text store and document queue; turns file changes into index changes; is the one door
// through which the editor saves; and publishes what the interface shows of the vault.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

#include "VeskCore/Index/DocumentIndexQueue.h"
#include "VeskCore/Index/LocalEmbedding.h"
#include "VeskCore/Index/NoteIndex.h"
#include "VeskCore/Index/SearchEngine.h"
#include "VeskCore/Platform/FileEvents.h"
#include "VeskCore/Platform/FileVersions.h"
#include "VeskCore/Platform/SentenceEmbedding.h"
#include "VeskCore/Platform/UserDefaults.h"
#include "VeskCore/Reminders/NoteReminder.h"
#include "VeskCore/Support/Executors.h"
#include "VeskCore/Support/Log.h"
#include "VeskCore/Support/Observable.h"
#include "VeskCore/Vault/ConflictResolver.h"
#include "VeskCore/Vault/ForeignEdit.h"
#include "VeskCore/Vault/HeldTextStore.h"
#include "VeskCore/Vault/Vault.h"
#include "VeskCore/Watch/FileWatcher.h"

namespace vesk {

/// The seams that a session stands on; all outlive it.
struct SessionServices {
    Clock& clock;
    MainQueue& mainQueue;
    Background& background;
    Log& log;
    UserDefaults& defaults;
    FileEventSource& fileEvents;
    FileVersions& fileVersions;
    SentenceEmbeddingSource& embeddings;
    std::function<Calendar()> calendar;  ///< asked anew each time: the device may travel
};

/// A save or read met a file whose newer version is still on its way.
class NewerVersionDownloading : public Error {
public:
    explicit NewerVersionDownloading(std::string path) : relativePath(std::move(path)) {}
    std::string description() const override;
    std::string relativePath;
};

/// What a worker needs to search a vault; keeps it open while it works, also once the session is gone.
struct SearchAccess {
    Vault vault;
    std::shared_ptr<NoteIndex> index;
    std::shared_ptr<const SearchEngine> search;
    std::shared_ptr<LocalEmbedding> embedder;
};

/// Main thread only. Tasks of its own hold it weakly: made as a shared_ptr by the workspace, stopped once,
/// then dropped.
class VaultSession : public std::enable_shared_from_this<VaultSession> {
public:
    /// Throws what the support folder or the index throws.
    static std::shared_ptr<VaultSession> make(const Vault& vault, const SessionServices& services);
    ~VaultSession();
    VaultSession(const VaultSession&) = delete;
    VaultSession& operator=(const VaultSession&) = delete;

    void start();
    void stop();

    const Vault& vault() const { return vault_; }
    NoteIndex& index() { return *index_; }
    /// For jobs, which may outlive the session; it is closed when the session stops.
    std::shared_ptr<const NoteIndex> indexForJobs() const { return index_; }
    const SearchEngine& search() const { return *search_; }
    LocalEmbedding& embedder() { return *embedder_; }
    SearchAccess searchAccess() const { return {vault_, index_, search_, embedder_}; }
    HeldTextStore& heldText() { return heldText_; }
    ForeignEdit::Departures& departures() { return departures_; }

    // What the interface watches

    Observable<bool> indexing;
    Observable<double> indexProgress;  ///< 0 to 1
    Observable<std::string> status;
    Observable<std::vector<NoteConflict>> conflicts;
    Observable<std::vector<std::string>> pendingDownload;  ///< arrival order
    Observable<std::vector<std::string>> pendingDocuments;
    EventStream<std::set<std::string>> documentChanges;
    Observable<int> embeddedChunks;
    Observable<std::vector<NoteReminder::Reminder>> reminders;
    Observable<std::set<std::string>> flaggedNotes;
    Observable<int> diskRevision;
    EventStream<> changed;  ///< something about the session changed as a whole

    // Set by the workspace before start()

    std::function<void()> onExternalChange;
    std::function<void(const std::string&)> onNoteWritten;
    std::function<void()> onPendingDrained;

    /// What the workspace's latest listing holds, for the status line.
    void setListedNotes(std::vector<std::string> paths);

    // What held-text recovery did, read once right after start()

    struct RecoveredText {
        std::string copy;
        std::optional<std::string> goneFolder;
        bool reminderLeftOff = false;
        bool operator==(const RecoveredText&) const = default;
    };
    struct ReleasedText {
        std::string note;
        HeldTextStore::Recovery recovery;
        bool operator==(const ReleasedText&) const = default;
    };
    const std::vector<RecoveredText>& recoveredHeldText() const { return recoveredHeldText_; }
    const std::vector<ReleasedText>& releasedHeldText() const { return releasedHeldText_; }
    const std::vector<std::string>& heldTextKeptInTrash() const { return heldTextKeptInTrash_; }
    /// The three lists in the words the user reads, those without entries left out.
    std::vector<VaultWarning> heldTextWarnings() const;

    // Saving

    /// The greater of the note's own revision and that of everything.
    int diskRevisionOf(std::string_view path) const;
    /// Throws NewerVersionDownloading, ForeignEdit::CopyKeptButSaveFailed and what reading and writing throw.
    ForeignEdit::Outcome saveEditorText(const std::string& text, const std::string& path,
                                        const std::optional<std::string>& baseline,
                                        bool waitingForNewerVersion);
    /// The editor has met this text in the note. While the watcher takes all that happens to the note for
    /// the echo of a write, another text than that is looked at once more in the end: the written one may
    /// come back unheard.
    void textShown(const std::string& path, std::string_view text);
    /// Throws NewerVersionDownloading and what reading throws.
    ForeignEdit::Disk editorDisk(const std::string& path);
    /// The session's own write of a whole file. With `expected` the file is replaced only while it holds
    /// that.
    void write(const std::string& text, const FilePath& path, const ForeignEdit::Disk* expected = nullptr);
    void awaitCurrentVersion(const std::string& path);
    /// A name that an editor's unsaved text is going to take: no copy gets it.
    void reserveName(const std::string& path) { reservedNames_.insert(path); }

    // What the application does to notes

    void noteMoved(const std::string& from, const std::string& to);
    void notesMoved(const std::map<std::string, std::string>& moves);
    void notesTrashed(const std::vector<std::string>& paths);
    /// One that is asked for while one runs follows it, so that it sees everything that was there when asked.
    void rebuildIndex(std::function<void()> done = {});
    void rebuildAfterBulkChange();
    void downloadAllPending();
    void indexDocuments(const std::set<std::string>& paths);
    void documentListReloaded(const std::vector<VaultDocument>& documents);
    /// `done` is called on a later turn of the main queue, if the session still lives then. A search by
    /// meaning alone finds nothing where there is no model; one by both goes by the words there.
    void searchNotes(std::string query, int limit, std::function<void(std::vector<SearchHit>)> done,
                     SearchHit::Mode mode = SearchHit::Mode::hybrid);
    void notesChanged(const std::vector<std::string>& paths);
    void refreshReminders(bool force);
    void refreshConflicts();

    /// One batch from the watcher; public for tests of its decisions.
    void apply(const std::vector<FileChange>& changes);

private:
    VaultSession(const Vault& vault, const SessionServices& services);
    struct Tasks;

    // SessionIndexing
    void beginReindex();
    void reindexEnded(std::optional<ReindexSummary> summary);
    void refreshStatusLine();
    void startEmbeddingBackfill();
    void embeddingEnded(std::uint64_t number);
    void refreshFlagged();

    // SessionChanges
    void wireWatcher();
    void rescanned();
    void reindexOne(const std::string& path, const std::string* written);
    void removeFromIndex(const std::string& path);
    bool isIndexBusy() const;
    void payIndex();
    bool reindexNote(const std::string& path, const std::string* written);
    void documentsIndexed(const DocumentIndexQueue::Outcomes& outcomes);
    void publishRevision();
    void announce(const std::string& path);
    void externalChange() const;
    static bool isNoteLike(std::string_view path);
    /// Indexes a note's text as the note stands on the disk; throws what the index throws.
    static void indexText(NoteIndex& index, const Vault& vault, const std::string& path,
                          const std::string& text, TimePoint now);

    // SessionSaving
    ForeignEdit::Outcome saveOrKeepCopy(const std::string& text, const std::string& path,
                                        const std::optional<std::string>& baseline,
                                        bool waitingForNewerVersion);
    void noteOutcome(const ForeignEdit::Outcome& outcome, const std::string& path);
    enum class Echo;
    static Echo echoOf(const Vault& vault, const FilePath& file, const std::optional<std::string>& wrote);
    void recheckAfterEchoWindow(const std::string& path, const std::optional<std::string>& wrote);
    void recheckEnded(const std::string& path, std::uint64_t number, Echo echo);
    void versionRound(const std::string& path);
    void versionLooked(const std::string& path, std::uint64_t number, bool here);

    // SessionPolling
    void parkPending(const std::string& path);
    void removePending(const std::set<std::string>& paths);
    struct Arrivals;
    static Arrivals indexArrivals(const std::vector<std::string>& paths, const Vault& vault, NoteIndex& index,
                                  const Clock& clock, const std::stop_token& stop);
    void startPendingPoll();
    void pendingRound();
    void pendingArrived(const Arrivals& arrivals);
    void startDocumentPoll();
    void documentRound();

    // SessionRecovery
    void recoverHeldText();
    void recover(const HeldTextStore::Leftover& leftover);
    void recoverCopy(const HeldTextStore::Leftover& leftover, const HeldTextStore::Recovery::Copy& copy);
    HeldTextStore::NoteOnDisk noteOnDisk(const HeldTextStore::Entry& entry) const;
    void sweepTemporaryFiles();

    Vault vault_;
    SessionServices services_;
    std::shared_ptr<NoteIndex> index_;
    std::shared_ptr<const SearchEngine> search_;
    std::unique_ptr<FileWatcher> watcher_;
    std::shared_ptr<LocalEmbedding> embedder_;
    HeldTextStore heldText_;
    std::set<std::string, std::less<>> reservedNames_;
    DocumentIndexQueue documentIndexQueue_;
    ForeignEdit::Departures departures_;
    std::optional<std::vector<std::string>> listedNotes_;
    std::vector<RecoveredText> recoveredHeldText_;
    std::vector<ReleasedText> releasedHeldText_;
    std::vector<std::string> heldTextKeptInTrash_;
    std::unique_ptr<Tasks> tasks_;
};

}  // namespace vesk
