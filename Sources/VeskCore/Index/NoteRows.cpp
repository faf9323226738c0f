#include "VeskCore/Index/NoteRows.h"

#include <set>

#include "VeskCore/Index/Chunker.h"
#include "VeskCore/Index/NoteIndex.h"
#include "VeskCore/Support/Match.h"
#include "VeskCore/Support/PathText.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"

namespace vesk {

namespace {

/// The row of one value that is no list; the kind "null" for a list inside a list.
NoteRows::Property property(const std::string& key, const YAMLValue& value) {
    NoteRows::Property row{.key = key, .text = value.stringValue(), .number = {}, .kind = {}};
    match(
        value, [&](const YAMLValue::String&) { row.kind = "string"; },
        [&](const YAMLValue::Number& number) {
            row.kind = "number";
            row.number = number.number;
        },
        [&](const YAMLValue::Bool& boolean) {
            row.kind = "bool";
            row.number = boolean.boolean ? 1 : 0;
        },
        [&](const YAMLValue::Date& date) {
            row.kind = "date";
            row.number = secondsSince1970(date.instant);
        },
        [&](const YAMLValue::List&) { row.kind = "list"; }, [&](const YAMLValue::Raw&) { row.kind = "raw"; },
        [&](const YAMLValue::Null&) { row.kind = "null"; });
    return row;
}

std::vector<NoteRows::Property> properties(const FrontmatterDoc& doc) {
    std::vector<NoteRows::Property> rows;
    for (const auto& [key, value] : doc.properties()) {
        if (const auto* items = value.listValue()) {
            for (const YAMLValue& item : *items) {
                rows.push_back(property(key, item));
                rows.back().kind = "list";
            }
        } else {
            rows.push_back(property(key, value));
        }
    }
    return rows;
}

std::vector<std::string> tags(const NoteScan& scan, const FrontmatterDoc& doc) {
    std::vector<std::string> result;
    std::set<std::string> seen;
    auto add = [&](std::string_view tag) {
        tag = trim(tag);
        tag.remove_prefix(std::min(tag.find_first_not_of('#'), tag.size()));
        while (tag.ends_with('/')) tag.remove_suffix(1);
        if (!tag.empty() && seen.insert(normalisedNfc(lowercased(tag))).second) result.emplace_back(tag);
    };
    for (const std::string& tag : scan.tags) add(tag);
    for (std::string_view key : {"tags", "tag"}) {
        auto value = doc[key];
        if (!value) continue;
        for (const std::string& tag : value->asStringList()) add(tag);
    }
    return result;
}

std::vector<NoteRows::Link> links(const Note& note, const NoteScan& scan) {
    std::vector<NoteRows::Link> rows;
    for (const auto& link : scan.wikilinks) {
        if (Vault::isNonNoteFileTarget(link.target)) continue;
        std::string target =
            link.target.empty() ? std::string(lastComponent(note.relativePath)) : link.target;
        rows.push_back({std::move(target), link.heading, link.blockID, link.alias, link.isEmbed});
    }
    for (const auto& link : scan.markdownLinks) {
        auto target = NoteIndex::internalLinkTarget(link.url);
        if (!target || Vault::isNonNoteFileTarget(target->first)) continue;
        std::optional<std::string> alias;
        if (!link.text.empty()) alias = link.text;
        rows.push_back({std::move(target->first), std::move(target->second), std::nullopt, std::move(alias),
                        link.isImage});
    }
    return rows;
}

std::string resolvedTitle(const Note& note, const NoteScan& scan, const FrontmatterDoc& doc) {
    if (auto value = doc["title"]) {
        auto text = value->stringValue();
        if (text && !trim(*text).empty()) return std::string(trim(*text));
    }
    if (scan.title && !trim(*scan.title).empty()) return std::string(trim(*scan.title));
    return note.name();
}

}  // namespace

NoteRows NoteRows::of(const Note& note, const NoteScan& scan, const FrontmatterDoc& doc) {
    return {.title = resolvedTitle(note, scan, doc),
            .properties = vesk::properties(doc),
            .tags = vesk::tags(scan, doc),
            .links = vesk::links(note, scan),
            .chunks = Chunker::chunks(doc.body())};
}

bool serialisesToItself(std::string_view text) {
    auto firstEnd = text.find('\n');
    std::string_view first = text.substr(0, firstEnd);
    if (first.ends_with('\r')) first.remove_suffix(1);
    if (trimHorizontal(first) != "---") return true;  // no block: all of it is body
    if (firstEnd != 3) return false;                  // blanks around the fence, or nothing below it
    // The fence as it is written, alone on its line.
    auto close = text.find("\n---", firstEnd);
    while (close != text.npos && close + 4 < text.size() && text[close + 4] != '\n') {
        close = text.find("\n---", close + 1);
    }
    if (close == text.npos || close == firstEnd)
        return false;  // none, or a block without lines, which vanishes
    std::string_view block = text.substr(firstEnd + 1, close - firstEnd - 1);
    // Another spelling of the closing fence further up would end the block there.
    for (std::string_view line : split(block, '\n')) {
        auto trimmed = trimHorizontal(line);
        if (trimmed == "---" || trimmed == "...") return false;
    }
    std::string_view rest = text.substr(close + 4);
    if (rest == "\n\n") return false;  // one empty line below the block is not kept
    return text.find("\r\n") == text.npos;
}

}  // namespace vesk
