// The inside of NoteIndex, shared by the files that implement it.
#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "VeskCore/Index/LinkLookup.h"
#include "VeskCore/Index/NoteIndex.h"
#include "VeskCore/Index/NoteRows.h"
#include "VeskCore/Index/VectorCache.h"
#include "VeskCore/Vault/UbiquityStatus.h"

namespace vesk {

/// Lets maps with std::string keys be searched by a view.
struct StringHash {
    using is_transparent = void;
    std::size_t operator()(std::string_view text) const { return std::hash<std::string_view>()(text); }
};
/// Content hashes by path.
using StoredHashes = std::unordered_map<std::string, std::string, StringHash, std::equal_to<>>;

inline constexpr int usualCacheKibibytes = 16384;

/// Why a file in this state can't be read now, in the words shown for it; none if it can.
std::optional<std::string_view> pendingReason(UbiquityState status);
/// The SQL condition for a page or a stylesheet.
std::string sqlIsDocument(std::string_view column);

/// A blob to bind in place.
struct Bytes {
    std::string_view view;
};

/// Every member function takes `lock`, or is called with it held.
struct NoteIndex::Implementation {
    struct StoredChunk {
        std::int64_t ordinal = 0;
        std::string text, vector, provider;
    };
    using StoredChunks = std::vector<StoredChunk>;  // by ordinal

    Implementation(NoteIndex& index, KeywordBackend bestBackend) : owner(index), best(bestBackend) {}

    // Opening (NoteIndexSchema.cpp)

    void openOrRebuild();
    void openConnection();
    void closeConnection();
    void discardDatabaseFile();
    void createSchema();
    void createSchemaStatements();
    void createIndexes();
    void dropIndexes();
    KeywordBackend createFullText();
    int storedVersion();
    void excludeFromBackup();

    // Statements

    SQLiteConnection& connection() const;
    Statement& cached(std::string_view sql);
    void transaction(const std::function<void()>& body);
    /// A write with its parameters; text is bound in place.
    template <class... Values>
    void write(std::string_view sql, const Values&... values) {
        std::lock_guard guard(lock);
        Statement& statement = cached(sql);
        statement.reset();
        int index = 0;
        (bind(statement, ++index, values), ...);
        finish(statement);
    }
    /// A read with its parameters; `row` is called for every row.
    template <class... Values>
    void read(std::string_view sql, const std::function<void(const Row&)>& row,
              const Values&... values) const {
        std::lock_guard guard(lock);
        Statement statement(connection().handle(), sql);
        int index = 0;
        (bind(statement, ++index, values), ...);
        while (statement.step()) row(Row(statement.handle()));
    }
    /// A read through the cache; not from inside its own `row`.
    template <class... Values>
    void readCached(std::string_view sql, const std::function<void(const Row&)>& row,
                    const Values&... values) {
        std::lock_guard guard(lock);
        Statement& statement = cached(sql);
        statement.reset();
        int index = 0;
        (bind(statement, ++index, values), ...);
        try {
            while (statement.step()) row(Row(statement.handle()));
        } catch (...) {
            statement.reset();
            throw;
        }
        statement.reset();
    }
    template <class... Values>
    std::int64_t number(std::string_view sql, const Values&... values) const {
        std::int64_t result = 0;
        read(
            sql, [&](const Row& row) { result = row.integer(0); }, values...);
        return result;
    }
    int count(const std::string& sql) const;  // 0 on failure
    static void finish(Statement& statement);
    /// Around a statement of a caller's own, which may change what the lookup was built from, or the texts.
    void foreignWrite(std::string_view sql, const std::function<void()>& body);

    static void bind(Statement& statement, int index, std::string_view text) {
        statement.bindText(index, text);
    }
    static void bind(Statement& statement, int index, const std::string& text) {
        statement.bindText(index, text);
    }
    static void bind(Statement& statement, int index, const std::optional<std::string>& text) {
        text ? statement.bindText(index, *text) : statement.bindNull(index);
    }
    static void bind(Statement& statement, int index, const std::optional<double>& number) {
        number ? statement.bindDouble(index, *number) : statement.bindNull(index);
    }
    static void bind(Statement& statement, int index, std::integral auto number) {
        statement.bindInt(index, static_cast<std::int64_t>(number));
    }
    static void bind(Statement& statement, int index, double number) { statement.bindDouble(index, number); }
    static void bind(Statement& statement, int index, Bytes bytes) { statement.bindBlob(index, bytes.view); }
    static void bind(Statement& statement, int index, std::nullptr_t) { statement.bindNull(index); }

    // Rows (NoteIndexWriting.cpp)

    std::optional<std::string> storedHash(std::string_view path);
    /// Inside a transaction. `hadRows`: the path has rows; `hasText`: among them one in note_text.
    void writeNote(const Note& note, std::string_view hash, const NoteRows& rows, const NoteScan& scan,
                   std::string_view body, bool hadRows, bool hasText);
    void writeNotesRow(std::string_view path, std::string_view name, std::string_view title,
                       std::string_view folder, double modified, double created, std::int64_t size,
                       std::string_view hash, int wordCount, std::string_view excerpt);
    /// `replaces`: the path has a text, which goes first.
    // The words go into notes_fts by hand and this connection's triggers are off: with a trigger SQLite opens
    // a savepoint for each statement, and FTS5 writes its gathered words out at every savepoint.
    void writeText(std::string_view path, std::string_view title, std::string_view body, bool replaces);
    void deleteText(std::string_view path);
    /// By rowid, so that FTS5, which writes its words out where rowids turn back, gathers over all of them.
    void deleteTexts(const std::vector<std::string_view>& paths);
    bool hasFullText() const;
    // Rows that stand as they are to be stay untouched: a save mostly changes the text alone.
    /// False if they stand already.
    bool writeProperties(std::string_view path, const std::vector<NoteRows::Property>& rows, bool hadRows);
    void writeTags(std::string_view path, const std::vector<std::string>& tags, bool hadRows);
    void writeLinks(std::string_view path, const std::vector<NoteRows::Link>& links, bool hadRows);
    void writeTasks(std::string_view path, const std::vector<NoteScan::TaskItem>& tasks, bool hadRows);
    void writeHeadings(std::string_view path, const std::vector<NoteScan::Heading>& headings, bool hadRows);
    StoredChunks storedChunks(std::string_view path);
    /// A passage whose text had a vector takes it over.
    void writeChunks(std::string_view path, const std::vector<std::string>& chunks,
                     const StoredChunks& stored, bool keepsVectors);
    /// Whether a path's rows are `count` rows that `equal` accepts, with their place.
    template <class Equal>
    bool stands(std::string_view sql, std::string_view path, std::size_t count, const Equal& equal) {
        std::size_t i = 0;
        bool same = true;
        readCached(
            sql,
            [&](const Row& row) {
                same = same && i < count && equal(row, i);
                ++i;
            },
            path);
        return same && i == count;
    }
    /// Every row of the path but those of its text and its passages.
    void deleteDetails(std::string_view path);
    void deletePending(std::string_view path);
    void removeNote(std::string_view path);
    void addPending(std::string_view path, std::string_view reason);

    // Links (NoteIndexLinks.cpp)

    /// The lookup as the tables stand now.
    LinkLookup& currentLookup();
    void buildLookup();
    // The database's user_version is 1 while no note or alias has come, changed or gone since all links were
    // resolved: another pass would change nothing.
    bool linksAreSettled() const { return number("PRAGMA user_version") == 1; }
    void unsettleLinks();
    /// With `anew` a link that leads nowhere turns unresolved; else it stays as it is.
    int resolveLinksOf(std::string_view path, bool anew);
    int resolveAllLinks();

    // Vectors (NoteIndexVectors.cpp)

    std::vector<Neighbour> nearestInTable(std::span<const float> vector,
                                          const std::optional<std::string>& provider, int limit,
                                          double minimumScore) const;
    std::vector<Neighbour> nearestInMemory(std::span<const float> vector,
                                           const std::optional<std::string>& provider, int limit,
                                           double minimumScore);
    /// Brings the vectors in memory up to date: with the rows this connection wrote, or with all of them
    /// after another connection wrote.
    void refreshVectors();

    // All of a vault (NoteIndexReindex.cpp)

    class BulkMode;
    /// One full reindex on its way.
    struct FullReindex {
        int total = 0;
        const Progress& progress;
        std::stop_token stop;
        ReindexSummary summary;
        void report(int completed, std::string_view path) const;
        void checkStop() const;  // throws OperationCancelled
    };
    ReindexSummary fullReindex(const Vault& vault, const Progress& progress, std::stop_token stop);
    void reindexNotes(const std::vector<Note>& notes, const std::vector<VaultDocument>& documents,
                      FullReindex& run);

    // Documents (NoteIndexDocuments.cpp)

    /// A document to be written, or one that is pending.
    struct DocumentWrite {
        std::optional<PreparedDocument> prepared;
        std::string path;
        std::string_view reason;
    };
    void reindexDocuments(std::size_t notesBefore, const std::vector<VaultDocument>& documents,
                          const std::unordered_map<std::string, DocumentStamp>& stamps, FullReindex& run);
    bool write(const PreparedDocument& prepared);
    std::unordered_map<std::string, DocumentStamp> storedDocumentStamps() const;
    std::optional<DocumentStamp> storedStamp(std::string_view path);
    std::vector<std::pair<std::string, std::string>> pending(const std::string& clause) const;

    NoteIndex& owner;
    const KeywordBackend best;

    mutable std::recursive_mutex lock;  // guards the connection and everything down to the vectors
    std::unique_ptr<SQLiteConnection> db;
    int transactionDepth = 0;
    bool bulkMode = false;
    std::unordered_map<std::string, std::unique_ptr<Statement>, StringHash, std::equal_to<>> writeCache;
    LinkLookup lookup;
    std::int64_t lookupDataVersion = 0;
    VectorCache vectors;
    std::int64_t vectorsDataVersion = 0;
    bool askedForNearest = false;

    mutable std::mutex backendLock;  // guards the next alone
    KeywordBackend storedKeywordBackend = KeywordBackend::likeScan;
};

}  // namespace vesk
