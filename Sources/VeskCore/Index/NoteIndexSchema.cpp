// Opening the file, its tables, and the way out of a file that can't be used.
#include <sqlite3.h>

#include "VeskCore/Index/NoteIndexImplementation.h"
#include "VeskCore/Platform/FilePlatform.h"

namespace vesk {

namespace {

constexpr int schemaVersion = 2;
constexpr int busyMilliseconds = 5000;
// A passage with its vector fits into half a page, so that reading all of them follows no overflow chain,
// while a save still writes little.
constexpr int pageBytes = 8192;
// A save writes some dozens of pages; copying the log back waits for about fifty saves.
constexpr int checkpointPages = 4000;
constexpr std::string_view category = "index";

constexpr std::string_view tables[] = {
    R"(CREATE TABLE IF NOT EXISTS schema_version (
        id INTEGER PRIMARY KEY CHECK (id = 1), version INTEGER NOT NULL, created REAL NOT NULL,
        last_full_reindex REAL
    ))",
    R"(CREATE TABLE IF NOT EXISTS notes (
        relative_path TEXT PRIMARY KEY, name TEXT NOT NULL, title TEXT NOT NULL, folder TEXT NOT NULL,
        modified REAL NOT NULL, created REAL NOT NULL, size INTEGER NOT NULL,
        content_hash TEXT NOT NULL, word_count INTEGER NOT NULL, excerpt TEXT NOT NULL
    ))",
    R"(CREATE TABLE IF NOT EXISTS note_text (
        note_path TEXT PRIMARY KEY, title TEXT NOT NULL, body TEXT NOT NULL
    ))",
    R"(CREATE TABLE IF NOT EXISTS properties (
        note_path TEXT NOT NULL, key TEXT NOT NULL, value_text TEXT, value_num REAL,
        value_kind TEXT NOT NULL
    ))",
    R"(CREATE TABLE IF NOT EXISTS links (
        source_path TEXT NOT NULL, target_name TEXT NOT NULL, target_resolved_path TEXT, heading TEXT,
        block_id TEXT, alias TEXT, is_embed INTEGER NOT NULL DEFAULT 0
    ))",
    R"(CREATE TABLE IF NOT EXISTS tags (
        note_path TEXT NOT NULL, tag TEXT NOT NULL
    ))",
    R"(CREATE TABLE IF NOT EXISTS tasks (
        note_path TEXT NOT NULL, line INTEGER NOT NULL, text TEXT NOT NULL, done INTEGER NOT NULL
    ))",
    R"(CREATE TABLE IF NOT EXISTS headings (
        note_path TEXT NOT NULL, level INTEGER NOT NULL, text TEXT NOT NULL, line INTEGER NOT NULL
    ))",
    R"(CREATE TABLE IF NOT EXISTS chunks (
        note_path TEXT NOT NULL, ordinal INTEGER NOT NULL, text TEXT NOT NULL, vector BLOB,
        embed_provider TEXT, PRIMARY KEY (note_path, ordinal)
    ))",
    R"(CREATE TABLE IF NOT EXISTS pending_notes (
        relative_path TEXT PRIMARY KEY, reason TEXT NOT NULL, noticed REAL NOT NULL
    ))",
    R"(CREATE TABLE IF NOT EXISTS filing_decisions (
        note_path TEXT NOT NULL, content_hash TEXT NOT NULL, targets_hash TEXT NOT NULL,
        model_key TEXT NOT NULL, verdict TEXT NOT NULL, target TEXT, tier TEXT, reason TEXT,
        decided REAL NOT NULL, applied REAL,
        PRIMARY KEY (note_path, content_hash, targets_hash, model_key)
    ))",
    R"(CREATE TABLE IF NOT EXISTS note_vectors (
        note_path TEXT NOT NULL, content_hash TEXT NOT NULL, embed_provider TEXT NOT NULL,
        vector BLOB NOT NULL, PRIMARY KEY (note_path, content_hash, embed_provider)
    ))",
};

struct Index {
    std::string_view name, columns;
};
constexpr Index indexes[] = {
    {"idx_notes_folder", "notes(folder)"},
    {"idx_notes_name", "notes(name)"},
    {"idx_props_key", "properties(key, value_text)"},
    {"idx_props_path", "properties(note_path)"},
    {"idx_tags_tag", "tags(tag)"},
    {"idx_tags_path", "tags(note_path)"},
    {"idx_links_source", "links(source_path)"},
    {"idx_links_target", "links(target_name)"},
    {"idx_links_resolved", "links(target_resolved_path)"},
    {"idx_tasks_path", "tasks(note_path)"},
    {"idx_headings_path", "headings(note_path)"},
    {"idx_chunks_provider", "chunks(embed_provider)"},
};

constexpr std::string_view fullTextTables[] = {
    "CREATE VIRTUAL TABLE IF NOT EXISTS notes_fts USING fts5(title, body, content='note_text', "
    "content_rowid='rowid', tokenize='unicode61 remove_diacritics 2')",
    "CREATE VIRTUAL TABLE IF NOT EXISTS notes_fts USING fts5(title, body, content='note_text', "
    "content_rowid='rowid', tokenize='unicode61')",
};

constexpr std::string_view triggers[] = {
    "CREATE TRIGGER IF NOT EXISTS note_text_ai AFTER INSERT ON note_text BEGIN "
    "INSERT INTO notes_fts(rowid, title, body) VALUES (new.rowid, new.title, new.body); END",
    "CREATE TRIGGER IF NOT EXISTS note_text_ad AFTER DELETE ON note_text BEGIN "
    "INSERT INTO notes_fts(notes_fts, rowid, title, body) VALUES ('delete', old.rowid, old.title, old.body); "
    "END",
    "CREATE TRIGGER IF NOT EXISTS note_text_au AFTER UPDATE ON note_text BEGIN "
    "INSERT INTO notes_fts(notes_fts, rowid, title, body) VALUES ('delete', old.rowid, old.title, old.body); "
    "INSERT INTO notes_fts(rowid, title, body) VALUES (new.rowid, new.title, new.body); END",
};

/// Whether a failure says something about this moment (another process at work, a full disk, a folder that
/// may not be written) and nothing against the file. Discarding would help nothing then, and would take the
/// file away under a process that is using it.
bool speaksOfCircumstances(const IndexError& error) {
    switch (error.code) {
        case SQLITE_BUSY:
        case SQLITE_LOCKED:
        case SQLITE_FULL:
        case SQLITE_READONLY:
        case SQLITE_CANTOPEN:
        case SQLITE_PERM:
        case SQLITE_NOMEM:
            return true;
        default:
            return false;
    }
}

/// A new file's journal mode is changed under a lock that SQLite takes without waiting for whoever else is
/// just making the same file, whatever the time-out says.
void setWriteAheadLog(SQLiteConnection& db) {
    constexpr int pause = 5;
    for (int waited = 0;; waited += pause) {
        try {
            return db.exec("PRAGMA journal_mode=WAL");
        } catch (const IndexError& error) {
            if (error.code != SQLITE_BUSY || waited >= busyMilliseconds) throw;
        }
        sqlite3_sleep(pause);
    }
}

}  // namespace

void NoteIndex::Implementation::openOrRebuild() {
    try {
        openConnection();
        if (storedVersion() != schemaVersion) {
            discardDatabaseFile();
            openConnection();
            owner.log_.line(LogLevel::notice, category, "Index schema mismatch; rebuilt an empty index.");
        }
        createSchema();
    } catch (const IndexError& error) {
        if (speaksOfCircumstances(error)) {
            closeConnection();
            throw;
        }
        owner.log_.line(LogLevel::error, category, "Index {} unusable ({}); discarding and rebuilding.",
                        {logPublic(owner.file_.filename().string()), logPrivate(error.description())});
        discardDatabaseFile();
        openConnection();
        createSchema();
    }
}

void NoteIndex::Implementation::openConnection() {
    try {
        FilePlatform::current().files->createDirectories(owner.file_.parent_path());
    } catch (const Error& error) {
        throw IndexError(IndexError::CannotOpen{owner.file_.string(), error.description()}, SQLITE_CANTOPEN);
    }
    db = std::make_unique<SQLiteConnection>(owner.file_.string());
    db->setBusyTimeout(busyMilliseconds);
    // Takes hold in a file that is still empty, before anything else is set.
    db->exec("PRAGMA page_size=" + std::to_string(pageBytes));
    setWriteAheadLog(*db);
    db->exec("PRAGMA synchronous=NORMAL");
    db->exec("PRAGMA temp_store=MEMORY");
    db->exec("PRAGMA cache_size=-" + std::to_string(usualCacheKibibytes));
    db->exec("PRAGMA wal_autocheckpoint=" + std::to_string(checkpointPages));
    db->setTriggersEnabled(false);
    sqlite3_update_hook(
        db->handle(),
        [](void* self, int, const char*, const char* table, sqlite3_int64 row) {
            if (std::string_view(table) == "chunks") static_cast<Implementation*>(self)->vectors.touched(row);
        },
        this);
    // What was read within the transaction was never so.
    sqlite3_rollback_hook(
        db->handle(), [](void* self) { static_cast<Implementation*>(self)->vectors.forget(); }, this);
    excludeFromBackup();
}

void NoteIndex::Implementation::closeConnection() {
    writeCache.clear();
    lookup.clear();
    vectors.forget();
    db.reset();
    transactionDepth = 0;
}

void NoteIndex::Implementation::excludeFromBackup() {
    for (std::string_view suffix : {"", "-wal", "-shm"}) {
        try {
            FilePath path = owner.file_;
            path += suffix;
            FilePlatform::current().files->setAttribute(path, "xdg.robots.backup", "false");
        } catch (const Error&) {
            // A cache in a backup costs space and harms nothing.
        }
    }
}

void NoteIndex::Implementation::discardDatabaseFile() {
    closeConnection();
    for (std::string_view suffix : {"", "-wal", "-shm"}) {
        FilePath path = owner.file_;
        path += suffix;
        FilePlatform::current().files->remove(path);
    }
}

int NoteIndex::Implementation::storedVersion() {
    int version = schemaVersion;
    try {
        read("SELECT version FROM schema_version ORDER BY version DESC LIMIT 1",
             [&](const Row& row) { version = static_cast<int>(row.integer(0)); });
    } catch (const IndexError&) {
        // A new file has no such table; what else is wrong comes up when the tables are made.
    }
    return version;
}

void NoteIndex::Implementation::createSchema() {
    // On a complete file every statement is a check that only reads, so that opening it needs no turn among
    // the writers; where something is to be made, the turn is taken from the start.
    try {
        db->exec("BEGIN");
        createSchemaStatements();
        db->exec("COMMIT");
    } catch (const IndexError& error) {
        if (sqlite3_get_autocommit(db->handle()) == 0) db->exec("ROLLBACK");
        if (error.code != SQLITE_BUSY) throw;
        transaction([&] { createSchemaStatements(); });
    }
    owner.log_.line(LogLevel::info, category, "Index open, keyword backend: {}",
                    {logPublic(rawValue(owner.keywordBackend()))});
}

void NoteIndex::Implementation::createSchemaStatements() {
    for (std::string_view sql : tables) db->exec(sql);
    createIndexes();
    KeywordBackend backend = createFullText();
    if (number("SELECT COUNT(*) FROM schema_version") == 0) {
        read(
            "INSERT OR IGNORE INTO schema_version (id, version, created) VALUES (1, ?, ?)", [](const Row&) {},
            schemaVersion, secondsSince1970(owner.clock_.now()));
    }
    std::lock_guard guard(backendLock);
    storedKeywordBackend = backend;
}

void NoteIndex::Implementation::createIndexes() {
    for (const Index& index : indexes) {
        db->exec("CREATE INDEX IF NOT EXISTS " + std::string(index.name) + " ON " +
                 std::string(index.columns));
    }
}

void NoteIndex::Implementation::dropIndexes() {
    for (const Index& index : indexes) db->exec("DROP INDEX IF EXISTS " + std::string(index.name));
}

KeywordBackend NoteIndex::Implementation::createFullText() {
    constexpr std::string_view countTriggers =
        "SELECT COUNT(*) FROM sqlite_master WHERE type = 'trigger' AND name IN ('note_text_ai', "
        "'note_text_ad', "
        "'note_text_au')";
    std::int64_t present = number(countTriggers);
    bool usable = false;
    for (std::string_view sql : fullTextTables) {
        if (usable || best != KeywordBackend::fts5) break;
        try {
            db->exec(sql);
            // An existing table is passed over even by a SQLite that lacks its module.
            db->exec("SELECT rowid FROM notes_fts LIMIT 0");
            usable = true;
        } catch (const IndexError& error) {
            if (error.code != SQLITE_ERROR) throw;
        }
    }
    if (usable) {
        try {
            for (std::string_view sql : triggers) db->exec(sql);
        } catch (const IndexError& error) {
            if (error.code != SQLITE_ERROR) throw;
            usable = false;
        }
    }
    if (!usable) {
        // Triggers of an earlier run with full text would make every write fail.
        for (std::string_view name : {"note_text_ai", "note_text_ad", "note_text_au"}) {
            if (present > 0) db->exec("DROP TRIGGER IF EXISTS " + std::string(name));
        }
        owner.log_.line(LogLevel::notice, category,
                        "FTS5 unavailable (compile option reported {}); using LIKE search.",
                        {logPublic(SQLiteConnection::hasCompileOption("ENABLE_FTS5") ? 1 : 0)});
        return KeywordBackend::likeScan;
    }
    bool hasText = number("SELECT EXISTS (SELECT 1 FROM note_text)") != 0;
    if (present < 3 && hasText) db->exec("INSERT INTO notes_fts(notes_fts) VALUES ('rebuild')");
    return KeywordBackend::fts5;
}

}  // namespace vesk
