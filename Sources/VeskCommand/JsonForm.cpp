#include "VeskCommand/JsonForm.h"

#include "VeskCore/Support/DateFormat.h"
#include "VeskCore/Support/Match.h"
#include "VeskCore/Support/Url.h"

namespace vesk::command {
namespace {

/// A tagged union's case with its payload.
Json tagged(std::string_view name, std::initializer_list<Json::Member> payload = {}) {
    return Json::object({{std::string(name), Json::object(payload)}});
}

std::string_view caseName(VaultWarning::Severity severity) {
    switch (severity) {
        case VaultWarning::Severity::info:
            return "info";
        case VaultWarning::Severity::warning:
            return "warning";
        case VaultWarning::Severity::critical:
            return "critical";
    }
    return "";
}

}  // namespace

Json toJson(TextRange range) {
    return Json::object({{"location", range.location}, {"length", range.length}});
}

Json toJson(TimePoint time) {
    return Json(iso8601(time));
}

Json toJson(const FilePath& path) {
    return Json("file://" + addingPercentEncoding(path.string(), "/"));
}

Json toJson(const std::string& text) {
    return Json(text);
}

Json toJson(const Note& note) {
    return Json::object({{"relativePath", note.relativePath},
                         {"url", toJson(note.path)},
                         {"title", note.title},
                         {"modified", toJson(note.modified)},
                         {"created", toJson(note.created)},
                         {"size", note.size}});
}

Json toJson(const VaultDocument& document) {
    return Json::object({{"relativePath", document.relativePath},
                         {"url", toJson(document.path)},
                         {"kind", rawValue(document.kind)},
                         {"modified", toJson(document.modified)},
                         {"size", document.size}});
}

Json toJson(const VaultWarning& warning) {
    return Json::object({{"code", warning.code},
                         {"title", warning.title},
                         {"detail", warning.detail},
                         {"severity", caseName(warning.severity)}});
}

Json toJson(const YAMLValue& value) {
    return match(
        value,
        [](const YAMLValue::String& it) {
            return tagged("string", {{"text", it.text}});
        },
        [](const YAMLValue::Number& it) {
            return tagged("number", {{"number", it.number}});
        },
        [](const YAMLValue::Bool& it) {
            return tagged("bool", {{"bool", it.boolean}});
        },
        [](const YAMLValue::Date& it) {
            return tagged("date", {{"instant", toJson(it.instant)}});
        },
        [](const YAMLValue::List& it) {
            return tagged("list", {{"items", toJson(it.items)}});
        },
        [](const YAMLValue::Raw& it) {
            return tagged("raw", {{"text", it.text}});
        },
        [](const YAMLValue::Null&) { return tagged("null"); });
}

Json toJson(const FrontmatterDoc& doc) {
    Json::Array slots;
    for (const auto& slot : doc.slots()) {
        slots.push_back(match(
            slot,
            [](const FrontmatterDoc::Entry& entry) {
                return tagged("entry", {{"key", entry.key},
                                        {"value", toJson(entry.value)},
                                        {"rawLines", toJson(entry.rawLines)}});
            },
            [](const FrontmatterDoc::Passthrough& it) {
                return tagged("passthrough", {{"line", it.line}});
            }));
    }
    return Json::object({{"slots", Json(std::move(slots))},
                         {"hasFrontmatter", doc.hasFrontmatter()},
                         {"body", doc.body()},
                         {"lineEnding", doc.lineEnding()},
                         {"trailingNewline", doc.trailingNewline()}});
}

Json toJson(const NoteScan& scan) {
    Json::Array wikilinks, links, headings, tasks;
    for (const auto& link : scan.wikilinks) {
        wikilinks.push_back(Json::object({{"target", link.target},
                                          {"heading", link.heading},
                                          {"blockID", link.blockID},
                                          {"alias", link.alias},
                                          {"isEmbed", link.isEmbed},
                                          {"range", toJson(link.range)}}));
    }
    for (const auto& link : scan.markdownLinks) {
        links.push_back(Json::object({{"text", link.text}, {"url", link.url}, {"isImage", link.isImage}}));
    }
    for (const auto& heading : scan.headings) {
        headings.push_back(
            Json::object({{"level", heading.level}, {"text", heading.text}, {"line", heading.line}}));
    }
    for (const auto& task : scan.tasks) {
        tasks.push_back(Json::object({{"text", task.text}, {"done", task.done}, {"line", task.line}}));
    }
    return Json::object({{"title", scan.title},
                         {"wikilinks", Json(std::move(wikilinks))},
                         {"markdownLinks", Json(std::move(links))},
                         {"tags", toJson(scan.tags)},
                         {"headings", Json(std::move(headings))},
                         {"tasks", Json(std::move(tasks))},
                         {"blockIDs", toJson(scan.blockIDs)},
                         {"wordCount", scan.wordCount},
                         {"excerpt", scan.excerpt}});
}

Json toJson(const HTMLExtract& extract) {
    Json::Array headings;
    for (const auto& heading : extract.headings) {
        headings.push_back(Json::object({{"level", heading.level}, {"text", heading.text}}));
    }
    return Json::object(
        {{"title", extract.title}, {"text", extract.text}, {"headings", Json(std::move(headings))}});
}

Json toJson(const IndexedChunk& chunk) {
    return Json::object({{"notePath", chunk.notePath}, {"ordinal", chunk.ordinal}, {"text", chunk.text}});
}

Json toJson(const ReindexSummary& summary) {
    return Json::object({{"indexed", summary.indexed},
                         {"unchanged", summary.unchanged},
                         {"removed", summary.removed},
                         {"pending", toJson(summary.pending)},
                         {"stale", toJson(summary.stale)},
                         {"documentsIndexed", summary.documentsIndexed},
                         {"documentsUnchanged", summary.documentsUnchanged},
                         {"pendingDocuments", toJson(summary.pendingDocuments)},
                         {"duration", summary.duration}});
}

Json toJson(const SearchHit& hit) {
    return Json::object({{"notePath", hit.notePath},
                         {"title", hit.title},
                         {"snippet", hit.snippet},
                         {"matchRanges", toJson(hit.matchRanges)},
                         {"score", hit.score},
                         {"mode", rawValue(hit.mode)},
                         {"chunkOrdinal", hit.chunkOrdinal}});
}

Json toJson(const RetrievedChunk& chunk) {
    return Json::object({{"notePath", chunk.notePath},
                         {"noteTitle", chunk.noteTitle},
                         {"ordinal", chunk.ordinal},
                         {"text", chunk.text},
                         {"score", chunk.score}});
}

Json toJson(const NoteIndex::TaskRow& task) {
    return Json::object(
        {{"notePath", task.notePath}, {"line", task.line}, {"text", task.text}, {"done", task.done}});
}

}  // namespace vesk::command
