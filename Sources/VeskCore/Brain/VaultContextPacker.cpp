#include "VeskCore/Brain/VaultContextPacker.h"

#include <algorithm>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "VeskCore/Markdown/FrontmatterDoc.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Vault/AtomicWrite.h"

namespace vesk::VaultContextPacker {

namespace {

constexpr int roomyWindow = 8192;
constexpr int smallReserve = 1024, smallMargin = 512;
constexpr int leastBudget = 2000;
constexpr int bytesPerToken = 3;
constexpr int tokensPerPassage = 100;
constexpr int leastPassages = 400;
constexpr int allowedOverlong = 2000;  // bytes of a document that its length may overstate

struct Totals {
    int notes = 0;
    std::int64_t bytes = 0;
};

/// Runs a query whose failure leaves what was read so far.
void read(const NoteIndex& index, const std::string& sql, const SQLBindings& bindings,
          const std::function<void(const Row&)>& row) {
    try {
        index.query(sql, bindings, row);
    } catch (const Error&) {
    }
}

Totals totals(const NoteIndex& index) {
    Totals found;
    read(index,
         "SELECT COUNT(*), COALESCE(SUM(size), 0) FROM notes WHERE " + Vault::sqlIsNote("relative_path"), {},
         [&](const Row& row) {
             found = {.notes = static_cast<int>(row.integer(0)), .bytes = row.integer(1)};
         });
    return found;
}

/// The note's text as it can be had now; none if it can't.
std::optional<std::string> noteText(const Vault& vault, const std::string& path) {
    try {
        return AtomicWrite::read(vault.absolutePath(path));
    } catch (const Error&) {  // not here yet, and asked for, or not readable
        return std::nullopt;
    }
}

void addNotes(VaultContext& context, const Vault& vault, const NoteIndex& index,
              const std::stop_token& stop) {
    std::vector<std::pair<std::string, std::string>> rows;
    read(index,
         "SELECT relative_path, title FROM notes WHERE " + Vault::sqlIsNote("relative_path") +
             " ORDER BY modified DESC",
         {}, [&](const Row& row) { rows.emplace_back(row.text(0), row.text(1)); });
    for (std::size_t i = 0; i < rows.size() && !stop.stop_requested(); ++i) {
        auto& [path, title] = rows[i];
        const auto text = noteText(vault, path);
        if (!text) {
            context.undelivered.push_back(path);
            continue;
        }
        const FrontmatterDoc doc(*text);
        const auto body = trim(doc.body());
        if (body.empty()) continue;
        context.estimatedTokens += estimatedTokens(body);
        context.chunks.push_back({.notePath = std::move(path),
                                  .noteTitle = std::move(title),
                                  .ordinal = static_cast<int>(i),
                                  .text = std::string(body),
                                  .score = 1});
    }
}

void addDocuments(VaultContext& context, const NoteIndex& index, const std::string& condition, int budget,
                  int& included, int& leftOut) {
    struct Document {
        std::string path, title;
        std::int64_t length = 0;
    };
    std::vector<Document> documents;
    read(index,
         "SELECT n.relative_path, n.title, length(t.body) FROM notes n\n"
         "JOIN note_text t ON t.note_path = n.relative_path\n"
         "WHERE " +
             condition +
             " AND EXISTS (SELECT 1 FROM chunks c WHERE c.note_path = n.relative_path)\n"
             "ORDER BY n.modified DESC, n.relative_path",
         {}, [&](const Row& row) {
             documents.push_back({row.text(0), row.text(1), row.integer(2)});
         });
    for (auto& document : documents) {
        const auto rough = std::max<std::int64_t>(document.length - allowedOverlong, 0) / bytesPerToken;
        std::optional<std::string> body;
        if (context.estimatedTokens + rough <= budget) {
            read(index, "SELECT body FROM note_text WHERE note_path = ?", {SQLValue::text(document.path)},
                 [&](const Row& row) { body = row.text(0); });
        }
        const int tokens = body ? estimatedTokens(*body) : 0;
        if (!body || context.estimatedTokens + tokens > budget) {
            ++leftOut;
            continue;
        }
        context.chunks.push_back({.notePath = std::move(document.path),
                                  .noteTitle = std::move(document.title),
                                  .ordinal = static_cast<int>(context.chunks.size()),
                                  .text = std::move(*body),
                                  .score = 1});
        context.estimatedTokens += tokens;
        ++included;
    }
}

VaultContext wholeVault(const Vault& vault, const NoteIndex& index, int budget, const std::stop_token& stop) {
    VaultContext context;
    addNotes(context, vault, index, stop);
    context.coverage = {VaultContext::Coverage::Whole{static_cast<int>(context.chunks.size())}};
    addDocuments(context, index, Vault::sqlIsPage("n.relative_path"), budget, context.pageCount,
                 context.pagesLeftOut);
    addDocuments(context, index, Vault::sqlIsStylesheet("n.relative_path"), budget, context.stylesheetCount,
                 context.stylesheetsLeftOut);
    return context;
}

VaultContext bestPassages(std::vector<RetrievedChunk> hits, const NoteIndex& index, int budget,
                          int totalNotes) {
    VaultContext context;
    std::set<std::string> notes, pages, stylesheets;
    for (auto& hit : hits) {
        const int tokens = estimatedTokens(hit.text);
        if (context.estimatedTokens + tokens > budget) break;
        context.estimatedTokens += tokens;
        switch (Vault::indexedKind(hit.notePath).value_or(IndexedKind::note)) {
            case IndexedKind::note:
                notes.insert(hit.notePath);
                break;
            case IndexedKind::page:
                pages.insert(hit.notePath);
                break;
            case IndexedKind::stylesheet:
                stylesheets.insert(hit.notePath);
                break;
        }
        context.chunks.push_back(std::move(hit));
    }
    try {
        for (auto& [path, reason] : index.pendingNotes()) context.undelivered.push_back(std::move(path));
    } catch (const Error&) {  // nothing is known of them
    }
    if (context.chunks.empty()) {
        context.coverage = {VaultContext::Coverage::Empty{
            "Nothing in the vault matched closely enough to send, and it is too large to include whole."}};
        return context;
    }
    context.coverage = {VaultContext::Coverage::Partial{.includedNotes = static_cast<int>(notes.size()),
                                                        .totalNotes = totalNotes}};
    context.pageCount = static_cast<int>(pages.size());
    context.stylesheetCount = static_cast<int>(stylesheets.size());
    return context;
}

}  // namespace

int budget(int window, int maxOutput) {
    const bool isRoomy = window >= roomyWindow;
    const int reserve = isRoomy ? std::min(maxOutput, window / 8) : std::min(maxOutput, smallReserve);
    const int margin = isRoomy ? window / 16 : smallMargin;
    return std::max(static_cast<int>((static_cast<double>(window) - reserve - margin) * 0.85), leastBudget);
}

int estimatedTokens(std::string_view text) {
    std::size_t ascii = 0, others = 0;
    for (std::size_t offset = 0; offset < text.size();) {
        const auto end = asciiRunEnd(text, offset);
        ascii += end - offset;
        for (offset = end; offset < text.size() && static_cast<unsigned char>(text[offset]) >= 0x80;) {
            nextCodePoint(text, offset);
            ++others;
        }
    }
    return static_cast<int>(others + ascii / bytesPerToken);
}

VaultContext pack(const Vault& vault, const NoteIndex& index, const SearchEngine& search,
                  std::string_view query, std::span<const float> embedding, int budgetTokens,
                  std::stop_token stop) {
    const auto [notes, bytes] = totals(index);
    if (notes == 0 && index.documentCount() < 1) {
        return {.chunks = {},
                .coverage = {VaultContext::Coverage::Empty{"This vault has no notes yet."}},
                .undelivered = {}};
    }
    if (budgetTokens >= bytes / bytesPerToken) {
        auto context = wholeVault(vault, index, budgetTokens, stop);
        if (notes > 0 || !context.chunks.empty()) return context;
    }
    const int limit =
        budgetTokens < leastPassages * tokensPerPassage ? leastPassages : budgetTokens / tokensPerPassage;
    return bestPassages(search.retrieveSync(query, embedding, limit), index, budgetTokens, notes);
}

}  // namespace vesk::VaultContextPacker
