// The rows of one note: written, carried over, removed.
#include "VeskCore/Index/NoteIndexImplementation.h"
#include "VeskCore/Markdown/MarkdownScanner.h"

namespace vesk {

namespace {

constexpr std::string_view upsertNote = R"(INSERT INTO notes
    (relative_path, name, title, folder, modified, created, size, content_hash, word_count, excerpt)
VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?)
ON CONFLICT(relative_path) DO UPDATE SET
    name = excluded.name, title = excluded.title, folder = excluded.folder, modified = excluded.modified,
    created = excluded.created, size = excluded.size, content_hash = excluded.content_hash,
    word_count = excluded.word_count, excerpt = excluded.excerpt)";
constexpr std::string_view insertProperty =
    "INSERT INTO properties (note_path, key, value_text, value_num, value_kind) VALUES (?, ?, ?, ?, ?)";

bool isAliasKey(std::string_view key) {
    return key == "alias" || key == "aliases";
}

}  // namespace

bool NoteIndex::reindex(const Note& note, const NoteScan& scan, const FrontmatterDoc& doc) {
    std::string hash = contentHash(doc.serialized());
    std::lock_guard guard(implementation_->lock);
    auto stored = implementation_->storedHash(note.relativePath);
    if (stored == hash) {
        implementation_->deletePending(note.relativePath);
        return false;
    }
    NoteRows rows = NoteRows::of(note, scan, doc);
    transaction([&] { implementation_->writeNote(note, hash, rows, scan, doc.body(), stored.has_value()); });
    return true;
}

bool NoteIndex::reindexText(const Note& note, std::string_view text) {
    if (serialisesToItself(text)) {
        std::lock_guard guard(implementation_->lock);
        if (implementation_->storedHash(note.relativePath) == contentHash(text)) {
            implementation_->deletePending(note.relativePath);
            return false;
        }
    }
    FrontmatterDoc doc(text);
    return reindex(note, MarkdownScanner::scan(doc.body(), true), doc);
}

void NoteIndex::removeNote(std::string_view path) {
    transaction([&] { implementation_->removeNote(path); });
}

void NoteIndex::recordPending(std::string_view path, std::string_view reason) {
    implementation_->addPending(path, reason);
}

std::optional<std::string> NoteIndex::Implementation::storedHash(std::string_view path) {
    std::optional<std::string> hash;
    readCached(
        "SELECT content_hash FROM notes WHERE relative_path = ?", [&](const Row& row) { hash = row.text(0); },
        path);
    return hash;
}

void NoteIndex::Implementation::writeNote(const Note& note, std::string_view hash, const NoteRows& rows,
                                          const NoteScan& scan, std::string_view body, bool hadRows) {
    std::string_view path = note.relativePath;
    StoredVectors vectors;
    if (hadRows) {
        vectors = storedVectors(path);
        deleteDetails(path);
    }
    deletePending(path);
    writeNotesRow(path, note.name(), rows.title, note.folder(), secondsSince1970(note.modified),
                  secondsSince1970(note.created), note.size, hash, scan.wordCount, scan.excerpt);
    writeText(path, rows.title, body, hadRows);
    for (const auto& row : rows.properties) {
        write(insertProperty, path, row.key, row.text, row.number, row.kind);
    }
    for (const auto& tag : rows.tags) write("INSERT INTO tags (note_path, tag) VALUES (?, ?)", path, tag);
    if (lookup.isBuilt()) {
        std::vector<LinkLookup::Alias> aliases;
        for (const auto& row : rows.properties) {
            if (isAliasKey(row.key) && row.text) aliases.push_back({row.key, *row.text});
        }
        if (Vault::indexedKind(path) == IndexedKind::note) lookup.addNote(path);
        lookup.setAliases(path, std::move(aliases));
    }
    writeLinks(note, rows);
    for (const auto& task : scan.tasks) {
        write("INSERT INTO tasks (note_path, line, text, done) VALUES (?, ?, ?, ?)", path, task.line,
              task.text, task.done);
    }
    for (const auto& heading : scan.headings) {
        write("INSERT INTO headings (note_path, level, text, line) VALUES (?, ?, ?, ?)", path, heading.level,
              heading.text, heading.line);
    }
    writeChunks(path, rows.chunks, vectors);
}

void NoteIndex::Implementation::writeNotesRow(std::string_view path, std::string_view name,
                                              std::string_view title, std::string_view folder,
                                              double modified, double created, std::int64_t size,
                                              std::string_view hash, int wordCount,
                                              std::string_view excerpt) {
    write(upsertNote, path, name, title, folder, modified, created, size, hash, wordCount, excerpt);
}

void NoteIndex::Implementation::writeText(std::string_view path, std::string_view title,
                                          std::string_view body, bool replaces) {
    if (replaces) deleteText(path);
    write("INSERT INTO note_text (note_path, title, body) VALUES (?, ?, ?)", path, title, body);
    if (hasFullText()) {
        write("INSERT INTO notes_fts(rowid, title, body) VALUES (?, ?, ?)", db->lastInsertedRow(), title,
              body);
    }
}

void NoteIndex::Implementation::deleteText(std::string_view path) {
    if (hasFullText()) {
        readCached(
            "SELECT rowid, title, body FROM note_text WHERE note_path = ?",
            [&](const Row& row) {
                write("INSERT INTO notes_fts(notes_fts, rowid, title, body) VALUES ('delete', ?, ?, ?)",
                      row.integer(0), row.textView(1), row.textView(2));
            },
            path);
    }
    write("DELETE FROM note_text WHERE note_path = ?", path);
}

bool NoteIndex::Implementation::hasFullText() const {
    return owner.keywordBackend() == KeywordBackend::fts5;
}

NoteIndex::Implementation::StoredVectors NoteIndex::Implementation::storedVectors(std::string_view path) {
    StoredVectors vectors;
    readCached(
        "SELECT text, vector, embed_provider FROM chunks WHERE note_path = ? AND vector IS NOT NULL",
        [&](const Row& row) {
            vectors[row.text(0)] = {std::string(row.blob(1)), row.text(2)};
        },
        path);
    return vectors;
}

void NoteIndex::Implementation::writeChunks(std::string_view path, const std::vector<std::string>& chunks,
                                            const StoredVectors& vectors) {
    constexpr std::string_view sql =
        "INSERT INTO chunks (note_path, ordinal, text, vector, embed_provider) VALUES (?, ?, ?, ?, ?)";
    std::int64_t ordinal = 0;
    for (const std::string& text : chunks) {
        auto known = vectors.find(text);
        if (known == vectors.end()) {
            write(sql, path, ordinal++, text, nullptr, nullptr);
        } else {
            write(sql, path, ordinal++, text, Bytes{known->second.vector}, known->second.provider);
        }
    }
}

void NoteIndex::Implementation::deleteDetails(std::string_view path) {
    write("DELETE FROM properties WHERE note_path = ?", path);
    write("DELETE FROM links WHERE source_path = ?", path);
    write("DELETE FROM tags WHERE note_path = ?", path);
    write("DELETE FROM tasks WHERE note_path = ?", path);
    write("DELETE FROM headings WHERE note_path = ?", path);
    write("DELETE FROM chunks WHERE note_path = ?", path);
}

void NoteIndex::Implementation::deletePending(std::string_view path) {
    // A full reindex has emptied the table before.
    if (!bulkMode) write("DELETE FROM pending_notes WHERE relative_path = ?", path);
}

void NoteIndex::Implementation::removeNote(std::string_view path) {
    deleteDetails(path);
    deleteText(path);
    write("DELETE FROM notes WHERE relative_path = ?", path);
    write("DELETE FROM pending_notes WHERE relative_path = ?", path);
    write("DELETE FROM filing_decisions WHERE note_path = ?", path);
    write("DELETE FROM note_vectors WHERE note_path = ?", path);
    write("UPDATE links SET target_resolved_path = NULL WHERE target_resolved_path = ?", path);
    if (lookup.isBuilt()) lookup.remove(path);
}

void NoteIndex::Implementation::addPending(std::string_view path, std::string_view reason) {
    write("INSERT OR REPLACE INTO pending_notes (relative_path, reason, noticed) VALUES (?, ?, ?)", path,
          reason, secondsSince1970(owner.clock_.now()));
}

}  // namespace vesk
