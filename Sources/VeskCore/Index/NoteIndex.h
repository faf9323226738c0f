// The SQLite cache of one vault: note rows, searchable text, properties, links, tags, tasks, headings,
// passages with their vectors, and the files that could not be read. The notes on disk are the truth; the
// file may be thrown away at any moment and is rebuilt from them.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <span>
#include <stop_token>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <variant>
#include <vector>

#include "VeskCore/Index/Chunker.h"
#include "VeskCore/Index/FilingLedger.h"
#include "VeskCore/Index/IndexError.h"
#include "VeskCore/Index/Sqlite.h"
#include "VeskCore/Markdown/FrontmatterDoc.h"
#include "VeskCore/Markdown/NoteScan.h"
#include "VeskCore/Reminders/NoteReminder.h"
#include "VeskCore/Support/Log.h"
#include "VeskCore/Support/Time.h"
#include "VeskCore/Vault/Vault.h"

namespace vesk {

enum class KeywordBackend { fts5, likeScan };
std::string_view rawValue(KeywordBackend backend);
std::string_view displayName(KeywordBackend backend);

struct IndexProgress {
    int completed = 0, total = 0;
    std::string path;  ///< empty at the end
};

struct ReindexSummary {
    int indexed = 0, unchanged = 0, removed = 0;
    std::vector<std::string> pending, stale;
    int documentsIndexed = 0, documentsUnchanged = 0;
    std::vector<std::string> pendingDocuments;
    double duration = 0;  ///< seconds
};

/// Any thread may call any operation; one recursive lock guards the connection. A full reindex holds one
/// transaction for its notes, so other writers wait for it. Operations throw IndexError unless told
/// otherwise.
class NoteIndex : public FilingLedger {
public:
    struct DocumentStamp {
        double modified = 0;  ///< seconds since 1970
        std::int64_t size = 0;
        std::string hash;
        bool operator==(const DocumentStamp&) const = default;
    };
    struct PreparedDocument {
        VaultDocument document;
        std::string title, hash;
        int wordCount = 0;
        std::string excerpt, body;
        std::vector<std::string> chunks;
    };
    struct DocumentIndexOutcome {
        struct Pending {
            std::string reason;
            bool operator==(const Pending&) const = default;
        };
        enum class Plain { indexed, unchanged, vanished };
        std::variant<Pending, Plain> value = Plain::unchanged;
        bool operator==(const DocumentIndexOutcome&) const = default;
    };
    struct TaskRow {
        std::string notePath;
        int line = 0;
        std::string text;
        bool done = false;
        bool operator==(const TaskRow&) const = default;
    };
    using Progress = std::function<void(const IndexProgress&)>;

    /// Opens or makes the vault's index, after Vault::ensureSupportDirectory(). A file that is unusable or of
    /// another version is replaced by an empty one. `clock` and `log` outlive the index.
    NoteIndex(const Vault& vault, Clock& clock, Log& log);
    /// `best` limits what is taken of the keyword backends that SQLite offers.
    NoteIndex(const FilePath& file, Clock& clock, Log& log, KeywordBackend best = KeywordBackend::fts5);
    ~NoteIndex() override;
    NoteIndex(const NoteIndex&) = delete;
    NoteIndex& operator=(const NoteIndex&) = delete;

    /// Where the index of a vault at this folder lies.
    static FilePath indexLocation(const FilePath& vaultRoot);
    /// Later operations throw IndexError (cannotOpen).
    void close();
    const FilePath& file() const { return file_; }
    KeywordBackend keywordBackend() const;

    // SQL layer

    void exec(std::string_view sql);
    /// A write through the cache of prepared statements.
    void run(std::string_view sql, const SQLBindings& bindings = {});
    void query(std::string_view sql, const SQLBindings& bindings,
               const std::function<void(const Row&)>& row) const;
    /// Runs the body in a transaction; inside one it just runs. What the body throws rolls back and goes on.
    void transaction(const std::function<void()>& body);

    // Writing notes

    /// True if rows were rewritten, false if the content was unchanged.
    bool reindex(const Note& note, const NoteScan& scan, const FrontmatterDoc& doc);
    /// The same from the note's whole text: hashed first, parsed and scanned only if it changed.
    bool reindexText(const Note& note, std::string_view text);
    void removeNote(std::string_view path);
    /// Reads every note and document that changed. `progress` is called on the calling thread. Stopping rolls
    /// the notes back and throws OperationCancelled.
    ReindexSummary fullReindex(const Vault& vault, const Progress& progress = {}, std::stop_token stop = {});
    /// Resolves the links of one note, or of all; the number of rows updated.
    int resolveLinks(const std::optional<std::string>& from = {});
    void recordPending(std::string_view path, std::string_view reason);

    // Writing documents

    /// Never throws.
    DocumentIndexOutcome indexDocument(std::string_view relativePath, const Vault& vault);
    /// Pure; outside any lock.
    static PreparedDocument prepared(const VaultDocument& document, std::string_view data);
    bool write(const PreparedDocument& document);
    bool reindex(const VaultDocument& document, std::string_view data);

    // Reading

    std::optional<std::string> storedHash(std::string_view path) const;
    std::optional<std::string> title(std::string_view path) const;
    std::optional<std::string> body(std::string_view path) const;
    std::vector<IndexedChunk> chunks(std::string_view path) const;
    /// One passage as it is shown: under its note's title.
    struct TitledText {
        std::string title, text;
        bool operator==(const TitledText&) const = default;
    };
    std::optional<TitledText> passage(std::string_view path, int ordinal) const;
    std::vector<std::pair<std::string, int>> allTags() const;
    std::vector<std::string> backlinks(std::string_view path) const;
    std::vector<std::pair<std::string, std::optional<std::string>>> outgoingLinks(
        std::string_view path) const;
    std::vector<std::pair<std::string, int>> unresolvedLinks() const;
    /// By path and line.
    std::vector<TaskRow> tasks(bool openOnly) const;
    /// Previews of all notes by path, empty ones left out.
    std::map<std::string, std::string> excerpts() const;
    std::vector<std::pair<std::string, std::string>> pendingNotes() const;
    std::vector<std::pair<std::string, std::string>> pendingDocuments() const;
    std::pair<int, int> pendingCounts() const;

    /// The reminders of all notes by the date they next fire on, then by path. A kept copy beside its note
    /// has none.
    std::vector<NoteReminder::Reminder> reminders(const Calendar& calendar, TimePoint now) const;
    /// The paths of the notes that carry a flag.
    std::set<std::string> flaggedNotes() const;

    // Counters; 0 on any failure
    int noteCount() const;
    int documentCount() const;
    int chunkCount() const;
    int embeddedChunkCount() const;
    /// How many passages chunksNeedingEmbedding() has in all.
    int waitingChunkCount(std::string_view provider) const;

    // Embeddings

    bool embeddingProviderChanged(std::string_view id) const;
    std::vector<IndexedChunk> chunksNeedingEmbedding(std::string_view provider, int limit) const;
    /// One transaction; an empty vector is left out and counted in the log.
    void storeEmbeddings(const std::vector<ChunkEmbedding>& embeddings, std::string_view provider);
    int invalidateEmbeddings(std::string_view keeping);

    /// A passage by its place and its cosine with a vector.
    struct Neighbour {
        std::string path;
        int ordinal = 0;
        double score = 0;
    };
    /// The passages with the highest cosine above `minimumScore`, best first; of equal ones the row that was
    /// written first. Without a provider the vectors of all count. The first call reads the table; a second
    /// one takes all vectors into memory, a kilobyte each for 512 dimensions, and later ones stay there.
    std::vector<Neighbour> nearestChunks(std::span<const float> vector,
                                         const std::optional<std::string>& provider, int limit,
                                         double minimumScore) const;

    // The organiser

    std::map<FilingLedgerKey, FilingDecision> lookup(const std::vector<FilingLedgerKey>& keys) const override;
    void record(const Entries& entries) override;
    void markApplied(const std::map<std::string, std::string>& moves, std::string_view modelKey) override;
    void forgetDecisions(const std::vector<std::string>& paths, std::string_view modelKey) override;
    std::set<std::string> userPlaced(const std::vector<FilingLedgerKey>& keys) const override;
    /// Every note's path, name, content hash and body, by path, a few hundred at a time: others come in
    /// between.
    void noteTexts(const std::function<void(const std::string& path, const std::string& name,
                                            const std::string& hash, std::string_view body)>& note) const;
    struct NoteVector {
        std::string path, contentHash;
        std::vector<float> vector;
    };
    /// The vector of a whole note, if it was stored for this text.
    std::optional<std::vector<float>> noteVector(std::string_view path, std::string_view hash,
                                                 std::string_view provider) const;
    /// A note keeps one vector of each provider. One transaction.
    void storeNoteVectors(const std::vector<NoteVector>& vectors, std::string_view provider);
    /// Those of its passages that have one, in order.
    std::vector<std::vector<float>> chunkVectors(std::string_view path) const;
    bool hasChunkVectors() const;

    // Pure parts

    static std::string contentHash(std::string_view text);
    /// The name and heading an internal Markdown link leads to; none for an address or an anchor.
    static std::optional<std::pair<std::string, std::optional<std::string>>> internalLinkTarget(
        std::string_view url);
    static bool hasURIScheme(std::string_view url);
    static std::string linkKey(std::string_view text);
    static std::optional<std::string> pick(const std::vector<std::string>& candidates,
                                           std::string_view preferringFolder);

private:
    struct Implementation;
    friend struct Implementation;

    FilePath file_;
    Clock& clock_;
    Log& log_;
    std::unique_ptr<Implementation> implementation_;
};

}  // namespace vesk
