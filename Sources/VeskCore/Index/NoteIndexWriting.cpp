// The rows of one note: written, carried over, removed.
#include <algorithm>

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

constexpr std::string_view insertLink = R"(INSERT INTO links
    (source_path, target_name, target_resolved_path, heading, block_id, alias, is_embed)
VALUES (?, ?, NULL, ?, ?, ?, ?))";
constexpr std::string_view upsertChunk =
    R"(INSERT INTO chunks (note_path, ordinal, text, vector, embed_provider)
VALUES (?, ?, ?, ?, ?)
ON CONFLICT(note_path, ordinal) DO UPDATE SET
    text = excluded.text, vector = excluded.vector, embed_provider = excluded.embed_provider)";

bool holds(const Row& row, int column, std::string_view text) {
    return row.textView(column) == text;
}
bool holds(const Row& row, int column, const std::optional<std::string>& text) {
    return row.isNull(column) ? !text : text && row.textView(column) == *text;
}
bool holds(const Row& row, int column, const std::optional<double>& number) {
    return row.isNull(column) ? !number : number && row.real(column) == *number;
}

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
    transaction([&] {
        implementation_->writeNote(note, hash, rows, scan, doc.body(), stored.has_value(),
                                   stored.has_value());
    });
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
                                          const NoteScan& scan, std::string_view body, bool hadRows,
                                          bool hasText) {
    std::string_view path = note.relativePath;
    deletePending(path);
    writeNotesRow(path, note.name(), rows.title, note.folder(), secondsSince1970(note.modified),
                  secondsSince1970(note.created), note.size, hash, scan.wordCount, scan.excerpt);
    writeText(path, rows.title, body, hasText);
    bool otherProperties = writeProperties(path, rows.properties, hadRows);
    if (!hadRows || otherProperties) unsettleLinks();
    writeTags(path, rows.tags, hadRows);
    if (lookup.isBuilt()) {
        std::vector<LinkLookup::Alias> aliases;
        for (const auto& row : rows.properties) {
            if (isAliasKey(row.key) && row.text) aliases.push_back({row.key, *row.text});
        }
        if (Vault::indexedKind(path) == IndexedKind::note) lookup.addNote(path);
        lookup.setAliases(path, std::move(aliases));
    }
    writeLinks(path, rows.links, hadRows);
    writeTasks(path, scan.tasks, hadRows);
    writeHeadings(path, scan.headings, hadRows);
    writeChunks(path, rows.chunks, hadRows ? storedChunks(path) : StoredChunks{}, true);
}

bool NoteIndex::Implementation::writeProperties(std::string_view path,
                                                const std::vector<NoteRows::Property>& rows, bool hadRows) {
    auto equal = [&](const Row& stored, std::size_t i) {
        const auto& row = rows[i];
        return holds(stored, 0, std::string_view(row.key)) && holds(stored, 1, row.text) &&
               holds(stored, 2, row.number) && holds(stored, 3, row.kind);
    };
    if (hadRows) {
        if (stands("SELECT key, value_text, value_num, value_kind FROM properties WHERE note_path = ? ORDER "
                   "BY rowid",
                   path, rows.size(), equal)) {
            return false;
        }
        write("DELETE FROM properties WHERE note_path = ?", path);
    }
    for (const auto& row : rows) write(insertProperty, path, row.key, row.text, row.number, row.kind);
    return true;
}

void NoteIndex::Implementation::writeTags(std::string_view path, const std::vector<std::string>& tags,
                                          bool hadRows) {
    auto equal = [&](const Row& stored, std::size_t i) {
        return holds(stored, 0, std::string_view(tags[i]));
    };
    if (hadRows) {
        if (stands("SELECT tag FROM tags WHERE note_path = ? ORDER BY rowid", path, tags.size(), equal))
            return;
        write("DELETE FROM tags WHERE note_path = ?", path);
    }
    for (const auto& tag : tags) write("INSERT INTO tags (note_path, tag) VALUES (?, ?)", path, tag);
}

void NoteIndex::Implementation::writeLinks(std::string_view path, const std::vector<NoteRows::Link>& links,
                                           bool hadRows) {
    auto equal = [&](const Row& stored, std::size_t i) {
        const auto& link = links[i];
        return holds(stored, 0, std::string_view(link.target)) && holds(stored, 1, link.heading) &&
               holds(stored, 2, link.blockID) && holds(stored, 3, link.alias) &&
               (stored.integer(4) != 0) == link.isEmbed;
    };
    bool same = hadRows && stands(
                               "SELECT target_name, heading, block_id, alias, is_embed FROM links "
                               "WHERE source_path = ? ORDER BY rowid",
                               path, links.size(), equal);
    if (!same) {
        if (hadRows) write("DELETE FROM links WHERE source_path = ?", path);
        for (const auto& link : links) {
            write(insertLink, path, link.target, link.heading, link.blockID, link.alias, link.isEmbed);
        }
    } else if (bulkMode) {
        write("UPDATE links SET target_resolved_path = NULL WHERE source_path = ?", path);
    }
    if (!bulkMode) resolveLinksOf(path, true);
}

void NoteIndex::Implementation::writeTasks(std::string_view path,
                                           const std::vector<NoteScan::TaskItem>& tasks, bool hadRows) {
    auto equal = [&](const Row& stored, std::size_t i) {
        return stored.integer(0) == tasks[i].line && holds(stored, 1, std::string_view(tasks[i].text)) &&
               (stored.integer(2) != 0) == tasks[i].done;
    };
    if (hadRows) {
        if (stands("SELECT line, text, done FROM tasks WHERE note_path = ? ORDER BY rowid", path,
                   tasks.size(), equal)) {
            return;
        }
        write("DELETE FROM tasks WHERE note_path = ?", path);
    }
    for (const auto& task : tasks) {
        write("INSERT INTO tasks (note_path, line, text, done) VALUES (?, ?, ?, ?)", path, task.line,
              task.text, task.done);
    }
}

void NoteIndex::Implementation::writeHeadings(std::string_view path,
                                              const std::vector<NoteScan::Heading>& headings, bool hadRows) {
    auto equal = [&](const Row& stored, std::size_t i) {
        return stored.integer(0) == headings[i].level &&
               holds(stored, 1, std::string_view(headings[i].text)) && stored.integer(2) == headings[i].line;
    };
    if (hadRows) {
        if (stands("SELECT level, text, line FROM headings WHERE note_path = ? ORDER BY rowid", path,
                   headings.size(), equal)) {
            return;
        }
        write("DELETE FROM headings WHERE note_path = ?", path);
    }
    for (const auto& heading : headings) {
        write("INSERT INTO headings (note_path, level, text, line) VALUES (?, ?, ?, ?)", path, heading.level,
              heading.text, heading.line);
    }
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

void NoteIndex::Implementation::deleteTexts(const std::vector<std::string_view>& paths) {
    std::vector<std::pair<std::int64_t, std::string_view>> rows;
    for (std::string_view path : paths) {
        readCached(
            "SELECT rowid FROM note_text WHERE note_path = ?",
            [&](const Row& row) { rows.emplace_back(row.integer(0), path); }, path);
    }
    std::sort(rows.begin(), rows.end());
    for (const auto& row : rows) deleteText(row.second);
}

bool NoteIndex::Implementation::hasFullText() const {
    return owner.keywordBackend() == KeywordBackend::fts5;
}

NoteIndex::Implementation::StoredChunks NoteIndex::Implementation::storedChunks(std::string_view path) {
    StoredChunks chunks;
    readCached(
        "SELECT ordinal, text, vector, embed_provider FROM chunks WHERE note_path = ? ORDER BY ordinal",
        [&](const Row& row) {
            chunks.push_back({row.integer(0), row.text(1), std::string(row.blob(2)), row.text(3)});
        },
        path);
    return chunks;
}

void NoteIndex::Implementation::writeChunks(std::string_view path, const std::vector<std::string>& chunks,
                                            const StoredChunks& stored, bool keepsVectors) {
    std::unordered_map<std::string_view, const StoredChunk*> embedded;
    for (const StoredChunk& chunk : stored) {
        if (keepsVectors && !chunk.vector.empty()) embedded[chunk.text] = &chunk;
    }
    for (std::size_t i = 0; i < chunks.size(); ++i) {
        const std::string& text = chunks[i];
        auto ordinal = static_cast<std::int64_t>(i);
        auto known = embedded.find(text);
        const StoredChunk* source = known == embedded.end() ? nullptr : known->second;
        const StoredChunk* old = i < stored.size() && stored[i].ordinal == ordinal ? &stored[i] : nullptr;
        if (old != nullptr && old->text == text && old->vector == (source ? source->vector : std::string()) &&
            old->provider == (source ? source->provider : std::string())) {
            continue;
        }
        if (source == nullptr) {
            write(upsertChunk, path, ordinal, text, nullptr, nullptr);
        } else {
            write(upsertChunk, path, ordinal, text, Bytes{source->vector}, source->provider);
        }
    }
    if (stored.empty()) return;
    write("DELETE FROM chunks WHERE note_path = ? AND ordinal >= ?", path, chunks.size());
}

void NoteIndex::Implementation::deleteDetails(std::string_view path) {
    write("DELETE FROM properties WHERE note_path = ?", path);
    write("DELETE FROM links WHERE source_path = ?", path);
    write("DELETE FROM tags WHERE note_path = ?", path);
    write("DELETE FROM tasks WHERE note_path = ?", path);
    write("DELETE FROM headings WHERE note_path = ?", path);
}

void NoteIndex::Implementation::deletePending(std::string_view path) {
    // A full reindex has emptied the table before.
    if (!bulkMode) write("DELETE FROM pending_notes WHERE relative_path = ?", path);
}

void NoteIndex::Implementation::removeNote(std::string_view path) {
    deleteDetails(path);
    write("DELETE FROM chunks WHERE note_path = ?", path);
    deleteText(path);
    write("DELETE FROM notes WHERE relative_path = ?", path);
    write("DELETE FROM pending_notes WHERE relative_path = ?", path);
    write("DELETE FROM filing_decisions WHERE note_path = ?", path);
    write("DELETE FROM note_vectors WHERE note_path = ?", path);
    write("UPDATE links SET target_resolved_path = NULL WHERE target_resolved_path = ?", path);
    if (lookup.isBuilt()) lookup.remove(path);
    unsettleLinks();
}

void NoteIndex::Implementation::addPending(std::string_view path, std::string_view reason) {
    write("INSERT OR REPLACE INTO pending_notes (relative_path, reason, noticed) VALUES (?, ?, ?)", path,
          reason, secondsSince1970(owner.clock_.now()));
}

}  // namespace vesk
