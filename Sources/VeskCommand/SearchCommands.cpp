#include <fmt/core.h>

#include <algorithm>

#include "VeskCommand/CommandSupport.h"
#include "VeskCommand/Commands.h"
#include "VeskCommand/EmbeddingSupport.h"
#include "VeskCommand/JsonForm.h"
#include "VeskCore/Index/LinkQueries.h"
#include "VeskCore/Index/LocalEmbedding.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"

namespace vesk::command {
namespace {

/// The snippet with its matches marked for a terminal.
std::string shownSnippet(const CommandContext& context, const SearchHit& hit) {
    const auto units = utf16(hit.snippet);
    std::string shown;
    std::size_t at = 0;
    for (const auto& range : hit.matchRanges) {
        if (range.location < at || range.end() > units.size()) continue;
        shown += printable(utf8(std::u16string_view(units).substr(at, range.location - at)));
        shown += context.out.styled(
            printable(utf8(std::u16string_view(units).substr(range.location, range.length))), Tone::match);
        at = range.end();
    }
    shown += printable(utf8(std::u16string_view(units).substr(at)));
    // The line ends of the note are told by one blank each.
    shown = replaceAll(shown, "\\n", " ");
    while (shown.find("  ") != std::string::npos) shown = replaceAll(shown, "  ", " ");
    return shown;
}

struct QueryVector {
    std::vector<float> vector;
    std::string provider;
};

/// The query as a vector, or none with the reason in `why`.
std::optional<QueryVector> embedded(const CommandContext& context, const std::string& query,
                                    std::string& why) {
    LocalEmbedding embedding("en", context.embeddings);
    try {
        auto vectors = embedding.embed({query}, context.stop);
        return QueryVector{std::move(vectors.front()), embedding.id()};
    } catch (const Error& failure) {
        why = unavailableWords(context, embedding, failure);
        return {};
    }
}

void search(const CommandContext& context, const std::string& query, const std::string& mode, int limit) {
    const Vault vault = context.vault();
    const auto index = context.openIndex(vault, true);
    const SearchEngine engine(*index, context.log);
    std::vector<SearchHit> hits;
    if (mode == "keyword") {
        hits = engine.keyword(query, limit);
    } else {
        std::string why;
        const auto vector = embedded(context, query, why);
        if (!vector && mode == "semantic") throw CommandError(why);
        if (!vector) context.remark(why);
        if (mode == "semantic") {
            hits = engine.semantic(vector->vector, vector->provider, limit, 0);
        } else {
            hits = engine.hybrid(query,
                                 vector ? std::span<const float>(vector->vector) : std::span<const float>(),
                                 vector ? std::optional(vector->provider) : std::nullopt, limit);
        }
        if (hits.size() > static_cast<std::size_t>(limit)) hits.resize(static_cast<std::size_t>(limit));
    }
    if (context.json) {
        context.answer(toJson(hits));
        return;
    }
    if (hits.empty()) context.remark("Nothing found.");
    for (const auto& hit : hits) {
        context.out.line(context.out.styled(printable(hit.title), Tone::strong) + "  " +
                         context.out.styled(printable(hit.notePath), Tone::faint));
        const auto snippet = shownSnippet(context, hit);
        if (!snippet.empty()) context.out.line("    " + snippet);
    }
}

void retrieve(const CommandContext& context, const std::string& query, int limit) {
    const Vault vault = context.vault();
    const auto index = context.openIndex(vault, true);
    std::string why;
    const auto vector = embedded(context, query, why);
    const auto passages =
        SearchEngine(*index, context.log)
            .retrieveSync(query, vector ? std::span<const float>(vector->vector) : std::span<const float>(),
                          limit);
    if (context.json) {
        context.answer(toJson(passages));
        return;
    }
    if (passages.empty()) context.remark("Nothing found.");
    for (const auto& passage : passages) {
        context.out.line(context.out.styled(printable(passage.noteTitle), Tone::strong) + "  " +
                         context.out.styled(printable(passage.id()), Tone::faint));
        for (auto line : splitLines(passage.text)) context.out.line("    " + printable(line));
        context.out.line();
    }
}

Json mentionsJson(const LinkQueries& queries, const std::string& path, const UnlinkedMentionScan& scan) {
    Json mentions = Json::array();
    const auto name = queries.linkName(path);
    for (const auto& mention : scan.mentions) {
        const auto link = PendingLink::of(mention, name);
        mentions.append(Json::object({{"id", mention.id},
                                      {"source", mention.sourcePath},
                                      {"line", mention.line},
                                      {"column", mention.column},
                                      {"text", mention.matchedText},
                                      {"before", mention.context},
                                      {"after", link.previewAvailable ? Json(link.after) : Json()}}));
    }
    const auto list = [](const std::vector<std::string>& texts) {
        Json array = Json::array();
        for (const auto& text : texts) array.append(text);
        return array;
    };
    return Json::object({{"mentions", std::move(mentions)},
                         {"terms", list(scan.terms)},
                         {"skipped", list(scan.skipped)},
                         {"truncated", scan.truncated},
                         {"candidateNotes", scan.candidateNotes},
                         {"searchedNotes", scan.searchedNotes}});
}

void showMentions(const CommandContext& context, const UnlinkedMentionScan& scan) {
    context.out.line(context.out.styled("Mentioned without a link", Tone::strong));
    for (const auto& mention : scan.mentions)
        context.out.line("  " + printable(mention.sourcePath) + ": " + printable(trim(mention.context)));
    if (scan.truncated) context.remark("Only the first mentions are shown.");
    for (const auto& term : scan.skipped) context.remark("“" + term + "” is too short to look for.");
}

void links(const CommandContext& context, const std::string& typed, bool withMentions) {
    const Vault vault = context.vault();
    const auto index = context.openIndex(vault, true);
    const auto path = context.notePath(vault, typed);
    if (!index->storedHash(path)) {
        throw CommandError(fmt::format("“{}” isn't in the index.", printable(path)));
    }
    const LinkQueries queries(*index);
    std::optional<UnlinkedMentionScan> scan;
    if (withMentions) {
        scan = queries.unlinkedMentions(path, context.stop);
        if (scan->failure) throw CommandError(*scan->failure);
    }
    const auto backlinks = index->backlinks(path);
    const auto outgoing = index->outgoingLinks(path);
    if (context.json) {
        Json out = Json::array();
        for (const auto& [target, resolved] : outgoing) {
            out.append(Json::object({{"target", target}, {"resolved", resolved}}));
        }
        Json answer = Json::object({{"backlinks", toJson(backlinks)}, {"outgoingLinks", std::move(out)}});
        if (scan) answer.set("unlinked", mentionsJson(queries, path, *scan));
        context.answer(answer);
        return;
    }
    context.out.line(context.out.styled("Linked from", Tone::strong));
    for (const auto& source : backlinks) context.out.line("  " + printable(source));
    context.out.line(context.out.styled("Links to", Tone::strong));
    for (const auto& [target, resolved] : outgoing) {
        context.out.line("  " + printable(target) +
                         (resolved ? " → " + printable(*resolved) : std::string(" (no such note)")));
    }
    if (scan) showMentions(context, *scan);
}

}  // namespace

void addSearchCommands(CLI::App& program, CommandContext& context) {
    {
        auto* command =
            addCommand(program, "search", "Search the notes",
                       "  vesk search passport renewal\n  vesk search '\"exact words\" -without tag:travel "
                       "path:Work/ file:2026'\n"
                       "  vesk search 'line:(alpha beta)'        both words in one line\n"
                       "  vesk search -- -draft                  a query that begins with a hyphen");
        auto words = std::make_shared<std::vector<std::string>>();
        auto mode = std::make_shared<std::string>("keyword");
        auto limit = std::make_shared<int>(20);
        command->add_option("QUERY", *words, "Words, \"phrases\", -without, tag: path: file: line:")
            ->required();
        command->add_option("--mode", *mode, "How to search")
            ->check(CLI::IsMember({"keyword", "semantic", "hybrid"}))
            ->capture_default_str();
        command->add_option("--limit", *limit, "How many at the most")
            ->check(CLI::Range(1, 10000))
            ->capture_default_str();
        answersWithData(command, context);
        command->callback([&context, words, mode, limit] {
            search(context, decodedText(join(*words, " ")), *mode, *limit);
        });
    }
    {
        auto* command = addCommand(program, "retrieve", "The passages most worth quoting for a question",
                                   "  vesk retrieve 'when does my passport expire?' --limit 5");
        auto words = std::make_shared<std::vector<std::string>>();
        auto limit = std::make_shared<int>(12);
        command->add_option("QUERY", *words, "A question or words")->required();
        command->add_option("--limit", *limit, "How many at the most")
            ->check(CLI::Range(1, 10000))
            ->capture_default_str();
        answersWithData(command, context);
        command->callback(
            [&context, words, limit] { retrieve(context, decodedText(join(*words, " ")), *limit); });
    }
    {
        auto* command = addCommand(program, "tags", "All tags, the most used first", "  vesk tags");
        answersWithData(command, context);
        command->callback([&context] {
            const auto tags = context.openIndex(context.vault(), true)->allTags();
            if (context.json) {
                Json answer = Json::array();
                for (const auto& [tag, count] : tags)
                    answer.append(Json::object({{"tag", tag}, {"count", count}}));
                context.answer(answer);
                return;
            }
            for (const auto& [tag, count] : tags)
                context.out.line(fmt::format("{:>6}  #{}", count, printable(tag)));
        });
    }
    {
        auto* command = addCommand(program, "tasks", "The tasks in all notes", "  vesk tasks --open");
        auto open = std::make_shared<bool>(false);
        command->add_flag("--open", *open, "Only those that aren't done");
        answersWithData(command, context);
        command->callback([&context, open] {
            const auto tasks = context.openIndex(context.vault(), true)->tasks(*open);
            if (context.json) {
                context.answer(toJson(tasks));
                return;
            }
            std::string note;
            for (const auto& task : tasks) {
                if (task.notePath != note)
                    context.out.line(context.out.styled(printable(task.notePath), Tone::strong));
                note = task.notePath;
                context.out.line(fmt::format("  [{}] {}", task.done ? "x" : " ", printable(task.text)));
            }
        });
    }
    {
        auto* command = addCommand(program, "links", "Which notes link to a note, and where its links lead",
                                   "  vesk links Projects/Garden.md\n"
                                   "  vesk links Projects/Garden.md --mentions --json | jq .unlinked");
        auto mentions = std::make_shared<bool>(false);
        command->add_flag(
            "--mentions", *mentions,
            "Also where other notes name it without a link, with each line as a link would make it");
        auto path = std::make_shared<std::string>();
        command->add_option("PATH", *path, "The note's path in the vault")->required();
        answersWithData(command, context);
        command->callback([&context, path, mentions] { links(context, *path, *mentions); });
    }
    {
        auto* command = addCommand(program, "unresolved", "Links that lead to no note, the most used first",
                                   "  vesk unresolved");
        answersWithData(command, context);
        command->callback([&context] {
            const auto unresolved = context.openIndex(context.vault(), true)->unresolvedLinks();
            if (context.json) {
                Json answer = Json::array();
                for (const auto& [target, count] : unresolved) {
                    answer.append(Json::object({{"target", target}, {"count", count}}));
                }
                context.answer(answer);
                return;
            }
            for (const auto& [target, count] : unresolved)
                context.out.line(fmt::format("{:>6}  {}", count, printable(target)));
        });
    }
}

}  // namespace vesk::command
