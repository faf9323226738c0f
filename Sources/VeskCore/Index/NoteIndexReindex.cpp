// Every note of a vault read, hashed, parsed and written: the workers do the first three, the caller's thread
// writes.
#include <set>

#include "VeskCore/Index/NoteIndexImplementation.h"
#include "VeskCore/Markdown/MarkdownScanner.h"
#include "VeskCore/Support/Parallel.h"
#include "VeskCore/Vault/AtomicWrite.h"
#include "VeskCore/Vault/UbiquityStatus.h"

namespace vesk {

namespace {

// A batch of notes changes hands at once: many small ones, or few large ones, so that a bounded number of
// batches bounds memory too.
constexpr std::size_t notesPerBatch = 32;
constexpr std::int64_t bytesPerBatch = 256 * 1024;
constexpr std::size_t batchesAhead = 6;

constexpr int bulkCacheKibibytes = 64 * 1024;
// Words gathered in memory before FTS5 writes them out, and its default.
constexpr int bulkFullTextBytes = 16 * 1024 * 1024;
constexpr int usualFullTextBytes = 1024 * 1024;

struct Batch {
    std::size_t first = 0, end = 0;
};

std::vector<Batch> batches(const std::vector<Note>& notes) {
    std::vector<Batch> result;
    std::int64_t bytes = 0;
    for (std::size_t i = 0; i < notes.size(); ++i) {
        bool full = result.empty() || i - result.back().first >= notesPerBatch || bytes >= bytesPerBatch;
        if (full) {
            result.push_back({i, i});
            bytes = 0;
        }
        result.back().end = i + 1;
        bytes += notes[i].size;
    }
    return result;
}

/// What a worker made of one note.
struct ReadNote {
    std::string_view pendingReason;  ///< empty unless the note could not be read
    bool stale = false;
    bool unchanged = false;
    bool hadRows = false;
    std::string hash;
    FrontmatterDoc doc;
    NoteScan scan;
    NoteRows rows;
};

ReadNote read(const Note& note, const StoredHashes& stored) {
    ReadNote result;
    UbiquityState status = UbiquityStatus::of(note.path);
    if (auto reason = pendingReason(status)) {
        result.pendingReason = *reason;
        result.stale = status == UbiquityState::stale;
        return result;
    }
    std::optional<std::string> text;
    try {
        text = AtomicWrite::read(note.path);
    } catch (const Error&) {
        // Listed as pending, as is a file that is gone.
    }
    if (!text) {
        result.pendingReason = "couldn't be read";
        return result;
    }
    auto known = stored.find(note.relativePath);
    result.hadRows = known != stored.end();
    if (serialisesToItself(*text)) result.hash = NoteIndex::contentHash(*text);
    result.unchanged = result.hadRows && known->second == result.hash;
    if (result.unchanged) return result;
    result.doc = FrontmatterDoc(*text);
    if (result.hash.empty()) {
        result.hash = NoteIndex::contentHash(result.doc.serialized());
        result.unchanged = result.hadRows && known->second == result.hash;
        if (result.unchanged) return result;
    }
    result.scan = MarkdownScanner::scan(result.doc.body(), true);
    result.rows = NoteRows::of(note, result.scan, result.doc);
    return result;
}

}  // namespace

std::optional<std::string_view> pendingReason(UbiquityState status) {
    switch (status) {
        case UbiquityState::placeholder:
            return "not downloaded from iCloud";
        case UbiquityState::downloading:
            return "downloading from iCloud";
        case UbiquityState::stale:
            return "a newer version is still in iCloud";
        case UbiquityState::materialised:
        case UbiquityState::notUbiquitous:
            return std::nullopt;
    }
    return std::nullopt;
}

ReindexSummary NoteIndex::fullReindex(const Vault& vault, const Progress& progress, std::stop_token stop) {
    return implementation_->fullReindex(vault, progress, stop);
}

/// Settings for writing much at once, put back at the end.
class NoteIndex::Implementation::BulkMode {
public:
    explicit BulkMode(Implementation& index) : index_(index) {
        index_.bulkMode = true;
        setCache(bulkCacheKibibytes);
        setFullTextBytes(bulkFullTextBytes);
    }
    ~BulkMode() {
        index_.bulkMode = false;
        try {
            setCache(usualCacheKibibytes);
            setFullTextBytes(usualFullTextBytes);
        } catch (const IndexError&) {
            // Both only weigh memory against speed.
        }
    }
    BulkMode(const BulkMode&) = delete;
    BulkMode& operator=(const BulkMode&) = delete;

private:
    void setCache(int kibibytes) {
        index_.connection().exec("PRAGMA cache_size=-" + std::to_string(kibibytes));
    }
    void setFullTextBytes(int bytes) {
        if (index_.owner.keywordBackend() != KeywordBackend::fts5) return;
        try {
            index_.write("INSERT INTO notes_fts(notes_fts, rank) VALUES ('hashsize', ?)", bytes);
        } catch (const IndexError&) {
            // An FTS5 that doesn't know the setting works with less memory.
        }
    }

    Implementation& index_;
};

ReindexSummary NoteIndex::Implementation::fullReindex(const Vault& vault, const Progress& progress,
                                                      std::stop_token stop) {
    Duration start = owner.clock_.monotonic();
    // Plain references: clang 14 captures no structured binding.
    const auto listing = vault.enumerateNotesAndDocuments();
    const auto& notes = listing.first;
    const auto& documents = listing.second;
    FullReindex run{
        .total = static_cast<int>(notes.size() + documents.size()), .progress = progress, .stop = stop};

    std::unordered_map<std::string, DocumentStamp> stamps;
    if (!documents.empty()) stamps = storedDocumentStamps();
    transaction([&] {
        BulkMode bulk(*this);
        reindexNotes(notes, documents, run);
    });
    reindexDocuments(notes.size(), documents, stamps, run);

    run.report(run.total, "");
    ReindexSummary& summary = run.summary;
    summary.duration = std::chrono::duration<double>(owner.clock_.monotonic() - start).count();
    owner.log_.line(LogLevel::notice, "index",
                    "Full reindex: {} changed, {} unchanged, {} removed, {} pending; documents: {} changed, "
                    "{} unchanged, {} pending.",
                    {logPublic(summary.indexed), logPublic(summary.unchanged), logPublic(summary.removed),
                     logPublic(static_cast<long long>(summary.pending.size())),
                     logPublic(summary.documentsIndexed), logPublic(summary.documentsUnchanged),
                     logPublic(static_cast<long long>(summary.pendingDocuments.size()))});
    return std::move(summary);
}

void NoteIndex::Implementation::FullReindex::report(int completed, std::string_view path) const {
    if (progress) progress({completed, total, std::string(path)});
}

void NoteIndex::Implementation::FullReindex::checkStop() const {
    if (stop.stop_requested()) throw OperationCancelled();
}

void NoteIndex::Implementation::reindexNotes(const std::vector<Note>& notes,
                                             const std::vector<VaultDocument>& documents, FullReindex& run) {
    write("DELETE FROM pending_notes");
    StoredHashes stored;
    read("SELECT relative_path, content_hash FROM notes",
         [&](const Row& row) { stored.emplace(row.text(0), row.text(1)); });

    // Into empty tables rows go faster without indexes, which are then made from all rows at once. Rolled
    // back like everything else.
    const bool fresh = stored.empty();
    if (fresh) dropIndexes();

    auto take = [&](std::size_t i, const ReadNote& result) {
        const Note& note = notes[i];
        run.checkStop();
        run.report(static_cast<int>(i), note.relativePath);
        if (!result.pendingReason.empty()) {
            if (result.stale) {
                UbiquityStatus::requestDownload(note.path);
                run.summary.stale.push_back(note.relativePath);
            }
            addPending(note.relativePath, result.pendingReason);
            run.summary.pending.push_back(note.relativePath);
        } else if (result.unchanged) {
            ++run.summary.unchanged;
        } else {
            // The old text went with those of the whole batch.
            writeNote(note, result.hash, result.rows, result.scan, result.doc.body(), result.hadRows, false);
            ++run.summary.indexed;
        }
    };
    auto parts = batches(notes);
    parallelOrdered<std::vector<ReadNote>>(
        parts.size(), batchesAhead, parallelWorkers(),
        [&](std::size_t part) {
            std::vector<ReadNote> results;
            for (std::size_t i = parts[part].first; i < parts[part].end; ++i) {
                results.push_back(vesk::read(notes[i], stored));
            }
            return results;
        },
        [&](std::size_t part, std::vector<ReadNote> results) {
            std::vector<std::string_view> replaced;
            for (std::size_t i = 0; i < results.size(); ++i) {
                const bool isWritten = results[i].pendingReason.empty() && !results[i].unchanged;
                if (isWritten && results[i].hadRows)
                    replaced.push_back(notes[parts[part].first + i].relativePath);
            }
            deleteTexts(replaced);
            for (std::size_t i = 0; i < results.size(); ++i) take(parts[part].first + i, results[i]);
        });

    for (const Note& note : notes) stored.erase(note.relativePath);
    for (const VaultDocument& document : documents) stored.erase(document.relativePath);
    for (const auto& gone : stored) {
        run.checkStop();
        removeNote(gone.first);
        ++run.summary.removed;
    }
    const bool changed = run.summary.indexed > 0 || run.summary.removed > 0;
    if (changed || !linksAreSettled()) resolveAllLinks();
    if (fresh) createIndexes();
    write("UPDATE schema_version SET last_full_reindex = ? WHERE id = 1",
          secondsSince1970(owner.clock_.now()));
}

}  // namespace vesk
