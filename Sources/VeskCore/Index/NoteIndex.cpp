// The connection's life, the statements, and what is read from the tables.
#include "VeskCore/Index/NoteIndex.h"

#include "VeskCore/Index/NoteIndexImplementation.h"
#include "VeskCore/Markdown/MarkdownScanner.h"
#include "VeskCore/Support/Digest.h"
#include "VeskCore/Support/Text.h"

namespace vesk {

std::string_view rawValue(KeywordBackend backend) {
    switch (backend) {
        case KeywordBackend::fts5:
            return "fts5";
        case KeywordBackend::likeScan:
            return "likeScan";
    }
    return {};
}

std::string_view displayName(KeywordBackend backend) {
    switch (backend) {
        case KeywordBackend::fts5:
            return "Full-text search (FTS5)";
        case KeywordBackend::likeScan:
            return "Basic search (this SQLite has no FTS5)";
    }
    return {};
}

NoteIndex::NoteIndex(const Vault& vault, Clock& clock, Log& log)
    : NoteIndex((vault.ensureSupportDirectory(), vault.indexPath()), clock, log) {}

NoteIndex::NoteIndex(const FilePath& file, Clock& clock, Log& log, KeywordBackend best)
    : file_(file), clock_(clock), log_(log), implementation_(std::make_unique<Implementation>(*this, best)) {
    implementation_->openOrRebuild();
}

NoteIndex::~NoteIndex() = default;

FilePath NoteIndex::indexLocation(const FilePath& vaultRoot) {
    return Vault(vaultRoot, SyncProvider::none).indexPath();
}

void NoteIndex::close() {
    std::lock_guard guard(implementation_->lock);
    implementation_->closeConnection();
}

KeywordBackend NoteIndex::keywordBackend() const {
    std::lock_guard guard(implementation_->backendLock);
    return implementation_->storedKeywordBackend;
}

std::string NoteIndex::contentHash(std::string_view text) {
    return sha256Hex(text);
}

// SQL layer

SQLiteConnection& NoteIndex::Implementation::connection() const {
    if (!db) throw IndexError(IndexError::CannotOpen{owner.file_.string(), "the index is closed"});
    return *db;
}

Statement& NoteIndex::Implementation::cached(std::string_view sql) {
    auto known = writeCache.find(sql);
    if (known == writeCache.end()) {
        auto statement = std::make_unique<Statement>(connection().handle(), sql, true);
        known = writeCache.emplace(sql, std::move(statement)).first;
    }
    return *known->second;
}

void NoteIndex::Implementation::finish(Statement& statement) {
    try {
        statement.finish();
    } catch (...) {
        statement.reset();
        throw;
    }
    statement.reset();
}

void NoteIndex::Implementation::foreignWrite(std::string_view sql, const std::function<void()>& body) {
    std::lock_guard guard(lock);
    SQLiteConnection& database = connection();
    auto names = [&](std::string_view table) { return sql.find(table) != sql.npos; };
    if (names("notes") || names("properties") || names("links")) {
        lookup.clear();
        unsettleLinks();
    }
    // SQLite tells of changed rows, but not when a table is emptied at one blow or its rows get new numbers.
    if (names("chunks") || names("VACUUM")) vectors.forget();
    if (!names("note_text")) return body();
    database.setTriggersEnabled(true);
    try {
        body();
    } catch (...) {
        database.setTriggersEnabled(false);
        throw;
    }
    database.setTriggersEnabled(false);
}

void NoteIndex::exec(std::string_view sql) {
    implementation_->foreignWrite(sql, [&] { implementation_->connection().exec(sql); });
}

void NoteIndex::run(std::string_view sql, const SQLBindings& bindings) {
    implementation_->foreignWrite(sql, [&] {
        Statement& statement = implementation_->cached(sql);
        statement.reset();
        statement.bind(bindings);
        Implementation::finish(statement);
    });
}

void NoteIndex::query(std::string_view sql, const SQLBindings& bindings,
                      const std::function<void(const Row&)>& row) const {
    std::lock_guard guard(implementation_->lock);
    Statement statement(implementation_->connection().handle(), sql);
    statement.bind(bindings);
    while (statement.step()) row(Row(statement.handle()));
}

void NoteIndex::transaction(const std::function<void()>& body) {
    implementation_->transaction(body);
}

void NoteIndex::Implementation::transaction(const std::function<void()>& body) {
    std::lock_guard guard(lock);
    if (transactionDepth > 0) return body();
    connection().exec("BEGIN IMMEDIATE");
    transactionDepth = 1;
    try {
        body();
        transactionDepth = 0;
        connection().exec("COMMIT");
    } catch (...) {
        transactionDepth = 0;
        lookup.clear();
        try {
            connection().exec("ROLLBACK");
        } catch (const IndexError&) {
            // SQLite has rolled back by itself, or the connection is closed; the first failure goes on.
        }
        throw;
    }
}

// Reading

std::optional<std::string> NoteIndex::storedHash(std::string_view path) const {
    return implementation_->storedHash(path);
}

std::optional<std::string> NoteIndex::title(std::string_view path) const {
    std::optional<std::string> title;
    implementation_->readCached(
        "SELECT title FROM notes WHERE relative_path = ?", [&](const Row& row) { title = row.text(0); },
        path);
    return title;
}

std::optional<std::string> NoteIndex::body(std::string_view path) const {
    std::optional<std::string> body;
    implementation_->readCached(
        "SELECT body FROM note_text WHERE note_path = ?", [&](const Row& row) { body = row.text(0); }, path);
    return body;
}

std::optional<NoteIndex::TitledText> NoteIndex::passage(std::string_view path, int ordinal) const {
    std::optional<TitledText> passage;
    implementation_->readCached(
        "SELECT n.title, c.text FROM chunks c\nJOIN notes n ON n.relative_path = c.note_path\n"
        "WHERE c.note_path = ? AND c.ordinal = ?",
        [&](const Row& row) {
            passage = {row.text(0), row.text(1)};
        },
        path, ordinal);
    return passage;
}

std::vector<IndexedChunk> NoteIndex::chunks(std::string_view path) const {
    std::vector<IndexedChunk> chunks;
    implementation_->readCached(
        "SELECT ordinal, text FROM chunks WHERE note_path = ? ORDER BY ordinal",
        [&](const Row& row) {
            chunks.push_back({std::string(path), static_cast<int>(row.integer(0)), row.text(1)});
        },
        path);
    return chunks;
}

std::vector<std::pair<std::string, int>> NoteIndex::allTags() const {
    std::vector<std::pair<std::string, int>> tags;
    implementation_->read(
        "SELECT tag, COUNT(DISTINCT note_path) FROM tags GROUP BY tag ORDER BY 2 DESC, 1 ASC",
        [&](const Row& row) { tags.emplace_back(row.text(0), static_cast<int>(row.integer(1))); });
    return tags;
}

std::vector<std::string> NoteIndex::backlinks(std::string_view path) const {
    std::vector<std::string> sources;
    implementation_->read(
        "SELECT DISTINCT source_path FROM links WHERE target_resolved_path = ? ORDER BY source_path",
        [&](const Row& row) { sources.push_back(row.text(0)); }, path);
    return sources;
}

std::vector<std::pair<std::string, std::optional<std::string>>> NoteIndex::outgoingLinks(
    std::string_view path) const {
    std::vector<std::pair<std::string, std::optional<std::string>>> links;
    implementation_->read(
        "SELECT target_name, target_resolved_path FROM links WHERE source_path = ?",
        [&](const Row& row) {
            std::optional<std::string> resolved;
            if (!row.isNull(1)) resolved = row.text(1);
            links.emplace_back(row.text(0), std::move(resolved));
        },
        path);
    return links;
}

std::vector<std::pair<std::string, int>> NoteIndex::unresolvedLinks() const {
    std::vector<std::pair<std::string, int>> links;
    implementation_->read(
        "SELECT target_name, COUNT(*) FROM links\nWHERE target_resolved_path IS NULL\n"
        "GROUP BY target_name ORDER BY 2 DESC, 1 ASC",
        [&](const Row& row) { links.emplace_back(row.text(0), static_cast<int>(row.integer(1))); });
    return links;
}

std::vector<NoteIndex::TaskRow> NoteIndex::tasks(bool openOnly) const {
    std::vector<TaskRow> tasks;
    implementation_->read(std::string("SELECT note_path, line, text, done FROM tasks") +
                              (openOnly ? " WHERE done = 0" : "") + " ORDER BY note_path, line",
                          [&](const Row& row) {
                              tasks.push_back({row.text(0), static_cast<int>(row.integer(1)), row.text(2),
                                               row.integer(3) != 0});
                          });
    return tasks;
}

std::map<std::string, std::string> NoteIndex::excerpts() const {
    std::map<std::string, std::string> excerpts;
    implementation_->read(
        "SELECT relative_path, excerpt FROM notes WHERE " + Vault::sqlIsNote("relative_path"),
        [&](const Row& row) {
            std::string plain = MarkdownScanner::withoutEmbeds(row.textView(1));
            std::string_view excerpt = trim(plain);
            if (!excerpt.empty()) excerpts.emplace(row.text(0), excerpt);
        });
    return excerpts;
}

std::string sqlIsDocument(std::string_view column) {
    return "(" + Vault::sqlIsPage(column) + " OR " + Vault::sqlIsStylesheet(column) + ")";
}

std::vector<std::pair<std::string, std::string>> NoteIndex::Implementation::pending(
    const std::string& clause) const {
    std::vector<std::pair<std::string, std::string>> rows;
    read("SELECT relative_path, reason FROM pending_notes WHERE " + clause + " ORDER BY relative_path",
         [&](const Row& row) { rows.emplace_back(row.text(0), row.text(1)); });
    return rows;
}

std::vector<std::pair<std::string, std::string>> NoteIndex::pendingNotes() const {
    return implementation_->pending(Vault::sqlIsNote("relative_path"));
}

std::vector<std::pair<std::string, std::string>> NoteIndex::pendingDocuments() const {
    return implementation_->pending(sqlIsDocument("relative_path"));
}

std::pair<int, int> NoteIndex::pendingCounts() const {
    std::pair<int, int> counts;
    auto sum = [](const std::string& clause) {
        return "COALESCE(SUM(CASE WHEN " + clause + " THEN 1 ELSE 0 END), 0)";
    };
    implementation_->read("SELECT " + sum(Vault::sqlIsNote("relative_path")) + ", " +
                              sum(sqlIsDocument("relative_path")) + " FROM pending_notes",
                          [&](const Row& row) {
                              counts = {static_cast<int>(row.integer(0)), static_cast<int>(row.integer(1))};
                          });
    return counts;
}

int NoteIndex::Implementation::count(const std::string& sql) const {
    try {
        return static_cast<int>(number(sql));
    } catch (const IndexError&) {
        return 0;
    }
}

int NoteIndex::noteCount() const {
    return implementation_->count("SELECT COUNT(*) FROM notes WHERE " + Vault::sqlIsNote("relative_path"));
}

int NoteIndex::documentCount() const {
    return implementation_->count("SELECT COUNT(*) FROM notes WHERE " + sqlIsDocument("relative_path"));
}

int NoteIndex::chunkCount() const {
    return implementation_->count("SELECT COUNT(*) FROM chunks WHERE NOT " +
                                  Vault::sqlIsStylesheet("note_path"));
}

int NoteIndex::embeddedChunkCount() const {
    return implementation_->count("SELECT COUNT(*) FROM chunks WHERE vector IS NOT NULL");
}

int NoteIndex::waitingChunkCount(std::string_view provider) const {
    try {
        return static_cast<int>(implementation_->number(
            "SELECT COUNT(*) FROM chunks WHERE (vector IS NULL OR embed_provider IS NOT ?) AND NOT " +
                Vault::sqlIsStylesheet("note_path"),
            provider));
    } catch (const IndexError&) {
        return 0;
    }
}

// Embeddings

bool NoteIndex::embeddingProviderChanged(std::string_view id) const {
    bool changed = false;
    implementation_->read(
        "SELECT 1 FROM chunks WHERE vector IS NOT NULL AND embed_provider IS NOT ? LIMIT 1",
        [&](const Row&) { changed = true; }, id);
    return changed;
}

std::vector<IndexedChunk> NoteIndex::chunksNeedingEmbedding(std::string_view provider, int limit) const {
    std::vector<IndexedChunk> chunks;
    const std::string isNote = Vault::sqlIsNote("note_path");
    const std::string clauses[] = {
        isNote,
        "NOT " + isNote + " AND NOT " + Vault::sqlIsStylesheet("note_path")};  // the second: saved pages
    for (const std::string& clause : clauses) {
        int wanted = limit - static_cast<int>(chunks.size());
        if (wanted <= 0) break;
        implementation_->read(
            "SELECT note_path, ordinal, text FROM chunks\nWHERE (vector IS NULL OR embed_provider IS NOT ?) "
            "AND " +
                clause + "\nORDER BY note_path, ordinal LIMIT ?",
            [&](const Row& row) {
                chunks.push_back({row.text(0), static_cast<int>(row.integer(1)), row.text(2)});
            },
            provider, wanted);
    }
    return chunks;
}

void NoteIndex::storeEmbeddings(const std::vector<ChunkEmbedding>& embeddings, std::string_view provider) {
    long long dropped = 0;
    transaction([&] {
        for (const ChunkEmbedding& embedding : embeddings) {
            if (embedding.vector.empty()) {
                ++dropped;
                continue;
            }
            std::string blob = VectorBlob::encode(embedding.vector);
            implementation_->write(
                "UPDATE chunks SET vector = ?, embed_provider = ? WHERE note_path = ? AND ordinal = ?",
                Bytes{blob}, provider, embedding.notePath, embedding.ordinal);
        }
    });
    if (dropped == 0) return;
    log_.line(LogLevel::error, "index", "Dropped {} empty vector(s) from {}; those chunks stay unembedded.",
              {logPublic(dropped), logPublic(provider)});
}

int NoteIndex::invalidateEmbeddings(std::string_view keeping) {
    int count = 0;
    transaction([&] {
        count = static_cast<int>(implementation_->number(
            "SELECT COUNT(*) FROM chunks WHERE vector IS NOT NULL AND embed_provider IS NOT ?", keeping));
        implementation_->write(
            "UPDATE chunks SET vector = NULL, embed_provider = NULL WHERE embed_provider IS NOT ?", keeping);
    });
    return count;
}

}  // namespace vesk
