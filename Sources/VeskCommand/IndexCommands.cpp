#include <fmt/core.h>

#include "VeskCommand/CommandSupport.h"
#include "VeskCommand/Commands.h"
#include "VeskCommand/EmbeddingSupport.h"
#include "VeskCommand/JsonForm.h"
#include "VeskCore/Index/LocalEmbedding.h"
#include "VeskCore/Support/DateFormat.h"

namespace vesk::command {
namespace {

void index(const CommandContext& context, bool alwaysProgress, bool embedsToo) {
    const Vault vault = context.vault();
    auto noteIndex = context.openIndex(vault, false);
    ReindexSummary summary;
    {
        ProgressLine progress("Indexing", context.clock, alwaysProgress);
        summary = noteIndex->fullReindex(
            vault, [&](const IndexProgress& step) { progress.update(step.completed, step.total, step.path); },
            context.stop);
    }
    const auto embedded =
        embedsToo ? std::optional(embedWaiting(context, *noteIndex, alwaysProgress)) : std::nullopt;
    if (context.json) {
        Json answer = toJson(summary);
        if (embedded) answer.set("embedded", *embedded);
        context.answer(answer);
        return;
    }
    context.out.line(fmt::format("{} indexed, {} unchanged, {} removed in {:.2f} s", summary.indexed,
                                 summary.unchanged, summary.removed, summary.duration));
    if (summary.documentsIndexed + summary.documentsUnchanged > 0) {
        context.out.line(fmt::format("{} web pages and stylesheets indexed, {} unchanged",
                                     summary.documentsIndexed, summary.documentsUnchanged));
    }
    if (embedded) context.out.line(fmt::format("{} passages were given their vector", *embedded));
    const auto pending = summary.pending.size() + summary.pendingDocuments.size();
    if (pending > 0) {
        context.out.line(context.out.styled(fmt::format("{} couldn't be read:", pending), Tone::warning));
        for (const auto& path : summary.pending) context.out.line("  " + printable(path));
        for (const auto& path : summary.pendingDocuments) context.out.line("  " + printable(path));
    }
}

Json pendingJson(const std::vector<std::pair<std::string, std::string>>& rows) {
    Json array = Json::array();
    for (const auto& [path, reason] : rows) {
        array.append(Json::object({{"relativePath", path}, {"reason", reason}}));
    }
    return array;
}

void status(const CommandContext& context) {
    const Vault vault = context.vault();
    const auto noteIndex = context.openIndex(vault, true);
    const LocalEmbedding embedding("en", context.embeddings);
    std::optional<TimePoint> last;
    noteIndex->query("SELECT last_full_reindex FROM schema_version WHERE last_full_reindex IS NOT NULL", {},
                     [&](const Row& row) { last = timeFromSecondsSince1970(row.real(0)); });
    const auto pendingNotes = noteIndex->pendingNotes();
    const auto pendingDocuments = noteIndex->pendingDocuments();
    const int waiting = embedding.isConfigured() ? noteIndex->waitingChunkCount(embedding.id())
                                                 : noteIndex->chunkCount() - noteIndex->embeddedChunkCount();
    const std::string absence =
        embedding.isConfigured() ? std::string() : context.embeddings.absenceReason("en");
    if (context.json) {
        context.answer(
            Json::object({{"vault", toJson(vault.root())},
                          {"index", toJson(noteIndex->file())},
                          {"provider", rawValue(vault.provider())},
                          {"keywordBackend", rawValue(noteIndex->keywordBackend())},
                          {"noteCount", noteIndex->noteCount()},
                          {"documentCount", noteIndex->documentCount()},
                          {"chunkCount", noteIndex->chunkCount()},
                          {"embeddedChunkCount", noteIndex->embeddedChunkCount()},
                          {"waitingChunkCount", waiting},
                          {"embeddingProvider", embedding.isConfigured() ? Json(embedding.id()) : Json()},
                          {"embeddingAbsence", absence.empty() ? Json() : Json(absence)},
                          {"lastFullReindex", last ? toJson(*last) : Json()},
                          {"pendingNotes", pendingJson(pendingNotes)},
                          {"pendingDocuments", pendingJson(pendingDocuments)}}));
        return;
    }
    const auto row = [&](std::string_view name, const std::string& value) {
        context.out.line(context.out.styled(fmt::format("{:<16}", name), Tone::faint) + value);
    };
    row("Vault", printable(vault.root().string()));
    row("Kept in sync by", std::string(displayName(vault.provider())));
    row("Search", std::string(displayName(noteIndex->keywordBackend())));
    row("Notes", fmt::format("{}", noteIndex->noteCount()));
    row("Web pages", fmt::format("{}", noteIndex->documentCount()));
    row("Passages", fmt::format("{}, {} with a vector, {} waiting for one", noteIndex->chunkCount(),
                                noteIndex->embeddedChunkCount(), waiting));
    row("Sentence model", embedding.isConfigured() ? embedding.id() : printable(absence));
    row("Last indexed", last ? mediumDateShortTime(*last, deviceTimeZone(), "en_GB") : std::string("never"));
    for (const auto& [path, reason] : pendingNotes) row("Pending", printable(path) + ": " + reason);
    for (const auto& [path, reason] : pendingDocuments) row("Pending", printable(path) + ": " + reason);
}

}  // namespace

void addIndexCommands(CLI::App& program, CommandContext& context) {
    {
        auto* command = addCommand(program, "index", "Bring the search index up to date with the notes",
                                   "  vesk index\n  vesk index --embed\n  vesk index --json | jq .indexed");
        auto progress = std::make_shared<bool>(false);
        auto embeds = std::make_shared<bool>(false);
        command->add_flag("--embed", *embeds, "Give every passage its vector too, for semantic search");
        command->add_flag("--progress", *progress, "Show progress also where standard error is no terminal");
        answersWithData(command, context);
        command->callback([&context, progress, embeds] { index(context, *progress, *embeds); });
    }
    {
        auto* command =
            addCommand(program, "status", "What the index holds and what it waits for", "  vesk status");
        answersWithData(command, context);
        command->callback([&context] { status(context); });
    }
}

}  // namespace vesk::command
