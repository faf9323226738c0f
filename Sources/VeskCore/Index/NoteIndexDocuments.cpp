// Saved pages and stylesheets, prepared outside the lock and written like notes.
#include "VeskCore/Index/NoteIndexImplementation.h"
#include "VeskCore/Markdown/HTMLText.h"
#include "VeskCore/Markdown/MarkdownScanner.h"
#include "VeskCore/Platform/FilePlatform.h"
#include "VeskCore/Support/Characters.h"
#include "VeskCore/Support/Parallel.h"
#include "VeskCore/Support/PathText.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Vault/AtomicWrite.h"
#include "VeskCore/Vault/UbiquityStatus.h"

namespace vesk {

namespace {

constexpr int documentMaxChunks = 200;
constexpr std::size_t writesPerTransaction = 50;
constexpr std::size_t documentsAhead = 6;
constexpr std::size_t stylesheetExcerptCharacters = 200;

std::string hashPrefix() {
    return "doc" + std::to_string(HTMLText::version) + ":";
}

bool isLarge(const VaultDocument& document) {
    return document.size > static_cast<std::int64_t>(HTMLText::maxRawBytes);
}

std::string readData(const VaultDocument& document) {
    return AtomicWrite::readData(document.path,
                                 isLarge(document) ? HTMLText::titlePrefixBytes : HTMLText::maxRawBytes);
}

/// Of a document too large to be read whole, only the title.
void prepareTitleOnly(NoteIndex::PreparedDocument& prepared, std::string_view data) {
    const VaultDocument& document = prepared.document;
    if (document.kind == IndexedKind::page) {
        std::string text =
            HTMLText::decode(HTMLText::withoutPartialUTF8(data.substr(0, HTMLText::titlePrefixBytes)));
        if (auto title = HTMLText::extract(text, true).title) prepared.title = *title;
    }
    prepared.hash =
        hashPrefix() +
        NoteIndex::contentHash("title only\n" + std::to_string(document.size) + "\n" +
                               shortestDecimal(secondsSince1970(document.modified)) + "\n" + prepared.title);
    prepared.body = prepared.title;
}

bool matches(const NoteIndex::DocumentStamp& stamp, const VaultDocument& document) {
    return stamp.modified == secondsSince1970(document.modified) && stamp.size == document.size &&
           stamp.hash.starts_with(hashPrefix());
}

/// What a worker made of one document; neither of the two if its stamp matches.
struct ReadDocument {
    std::string_view pendingReason;
    bool stale = false;
    std::optional<NoteIndex::PreparedDocument> prepared;
};

}  // namespace

NoteIndex::PreparedDocument NoteIndex::prepared(const VaultDocument& document, std::string_view data) {
    PreparedDocument prepared{.document = document, .title = document.fileName()};
    if (isLarge(document)) {
        prepareTitleOnly(prepared, data);
        return prepared;
    }
    std::string text = HTMLText::decode(data);
    prepared.hash = hashPrefix() + contentHash(text);
    if (document.kind == IndexedKind::page) {
        HTMLExtract extract = HTMLText::extract(text, true);
        prepared.body = HTMLText::capped(extract.text, HTMLText::maxPageTextBytes);
        NoteScan scan = MarkdownScanner::scan(prepared.body, false);
        prepared.wordCount = scan.wordCount;
        prepared.excerpt = scan.excerpt;
        std::string_view title = trim(extract.title ? std::string_view(*extract.title) : std::string_view());
        if (!title.empty()) prepared.title = title;
    } else {
        prepared.body = HTMLText::capped(CSSText::indexable(text), CSSText::maxStylesheetTextBytes);
        prepared.excerpt = characterPrefix(prepared.body, stylesheetExcerptCharacters);
    }
    prepared.chunks = Chunker::chunks(prepared.body, Chunker::defaultMaxCharacters, documentMaxChunks);
    return prepared;
}

bool NoteIndex::write(const PreparedDocument& document) {
    bool rewritten = false;
    transaction([&] { rewritten = implementation_->write(document); });
    return rewritten;
}

bool NoteIndex::reindex(const VaultDocument& document, std::string_view data) {
    return write(prepared(document, data));
}

bool NoteIndex::Implementation::write(const PreparedDocument& prepared) {
    const VaultDocument& document = prepared.document;
    std::string_view path = document.relativePath;
    double modified = secondsSince1970(document.modified);
    auto stored = storedHash(path);
    if (stored == prepared.hash) {
        write("UPDATE notes SET modified = ?, size = ? WHERE relative_path = ?", modified, document.size,
              path);
        deletePending(path);
        return false;
    }
    StoredChunks chunks;
    if (stored) {
        chunks = storedChunks(path);
        deleteDetails(path);
    }
    deletePending(path);
    std::string folder = document.folder();
    writeNotesRow(path, document.fileName(), prepared.title, folder.empty() ? "/" : folder, modified,
                  modified, document.size, prepared.hash, prepared.wordCount, prepared.excerpt);
    writeText(path, prepared.title, prepared.body, stored.has_value());
    writeChunks(path, prepared.chunks, chunks, document.kind == IndexedKind::page);
    return true;
}

std::unordered_map<std::string, NoteIndex::DocumentStamp> NoteIndex::Implementation::storedDocumentStamps()
    const {
    std::unordered_map<std::string, DocumentStamp> stamps;
    read("SELECT relative_path, modified, size, content_hash FROM notes WHERE " +
             sqlIsDocument("relative_path"),
         [&](const Row& row) {
             stamps.emplace(row.text(0), DocumentStamp{row.real(1), row.integer(2), row.text(3)});
         });
    return stamps;
}

std::optional<NoteIndex::DocumentStamp> NoteIndex::Implementation::storedStamp(std::string_view path) {
    std::optional<DocumentStamp> stamp;
    readCached(
        "SELECT modified, size, content_hash FROM notes WHERE relative_path = ?",
        [&](const Row& row) {
            stamp = DocumentStamp{row.real(0), row.integer(1), row.text(2)};
        },
        path);
    return stamp;
}

void NoteIndex::Implementation::reindexDocuments(std::size_t notesBefore,
                                                 const std::vector<VaultDocument>& documents,
                                                 const std::unordered_map<std::string, DocumentStamp>& stamps,
                                                 FullReindex& run) {
    std::vector<DocumentWrite> waiting;
    auto flush = [&] {
        if (waiting.empty()) return;
        transaction([&] {
            for (const DocumentWrite& item : waiting) {
                if (item.prepared) {
                    ++(write(*item.prepared) ? run.summary.documentsIndexed : run.summary.documentsUnchanged);
                } else {
                    addPending(item.path, item.reason);
                }
            }
        });
        waiting.clear();
    };
    parallelOrdered<ReadDocument>(
        documents.size(), documentsAhead, parallelWorkers(),
        [&](std::size_t i) {
            const VaultDocument& document = documents[i];
            ReadDocument result;
            UbiquityState status = UbiquityStatus::of(document.path);
            if (auto reason = pendingReason(status)) {
                result.pendingReason = *reason;
                result.stale = status == UbiquityState::stale;
                return result;
            }
            auto stamp = stamps.find(document.relativePath);
            if (stamp != stamps.end() && matches(stamp->second, document)) return result;
            try {
                result.prepared = prepared(document, readData(document));
            } catch (const Error&) {
                result.pendingReason = "couldn't be read";
            }
            return result;
        },
        [&](std::size_t i, ReadDocument result) {
            const VaultDocument& document = documents[i];
            run.checkStop();
            run.report(static_cast<int>(notesBefore + i), document.relativePath);
            if (result.stale) UbiquityStatus::requestDownload(document.path);
            if (!result.pendingReason.empty()) {
                run.summary.pendingDocuments.push_back(document.relativePath);
                waiting.push_back({.path = document.relativePath, .reason = result.pendingReason});
            } else if (result.prepared) {
                waiting.push_back({.prepared = std::move(result.prepared)});
            } else {
                ++run.summary.documentsUnchanged;
            }
            if (waiting.size() >= writesPerTransaction) flush();
        });
    flush();
}

NoteIndex::DocumentIndexOutcome NoteIndex::indexDocument(std::string_view relativePath, const Vault& vault) {
    using Outcome = DocumentIndexOutcome;
    auto kind = Vault::indexedKind(relativePath);
    if (!kind || *kind == IndexedKind::note) return {Outcome::Plain::unchanged};

    auto pending = [&](std::string_view reason) -> Outcome {
        try {
            recordPending(relativePath, reason);
        } catch (const Error&) {
            // The outcome tells it all the same.
        }
        return {Outcome::Pending{std::string(reason)}};
    };
    FilePath path = vault.absolutePath(relativePath);
    auto file = [&]() -> std::optional<FileInfo> {
        auto info = FilePlatform::current().files->info(path);
        return info && info->kind != FileKind::directory ? info : std::nullopt;
    };
    try {
        if (vault.isInsideSavedPageFolder(relativePath)) return {Outcome::Plain::vanished};
        UbiquityState status = UbiquityStatus::of(path);
        if (auto reason = pendingReason(status)) {
            if (status == UbiquityState::stale) UbiquityStatus::requestDownload(path);
            return pending(*reason);
        }
        auto info = file();
        if (!info) return {Outcome::Plain::vanished};
        VaultDocument document{.relativePath = std::string(relativePath),
                               .path = path,
                               .kind = *kind,
                               .modified = info->modified,
                               .size = static_cast<std::int64_t>(info->size)};
        auto stamp = implementation_->storedStamp(relativePath);
        if (stamp && matches(*stamp, document)) {
            implementation_->deletePending(relativePath);
            return {Outcome::Plain::unchanged};
        }
        std::string data;
        try {
            data = readData(document);
        } catch (const Error& error) {
            if (!file()) return {Outcome::Plain::vanished};
            bool evicted = dynamic_cast<const VaultWriteError*>(&error) != nullptr ||
                           UbiquityStatus::isEvictionError(std::current_exception());
            return pending(evicted ? "not downloaded from iCloud" : "couldn't be read");
        }
        return {reindex(document, data) ? Outcome::Plain::indexed : Outcome::Plain::unchanged};
    } catch (const std::exception&) {
        return {Outcome::Pending{"couldn't be indexed"}};
    }
}

}  // namespace vesk
