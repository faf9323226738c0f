// The one JSON form of every answer: field names as the types have them in lowerCamelCase, absent optionals
// as null, a tagged union as an object with one key (the case's name) over an object of its payload, plain
// enumerations as case names, ranges as {"location", "length"}, dates as ISO 8601 in UTC with milliseconds.
#pragma once

#include <string>
#include <vector>

#include "VeskCore/Index/NoteIndex.h"
#include "VeskCore/Index/RetrievedChunk.h"
#include "VeskCore/Index/SearchEngine.h"
#include "VeskCore/Markdown/FrontmatterDoc.h"
#include "VeskCore/Markdown/HTMLText.h"
#include "VeskCore/Markdown/NoteScan.h"
#include "VeskCore/Support/Json.h"
#include "VeskCore/Vault/Vault.h"

namespace vesk::command {

Json toJson(TextRange range);
Json toJson(TimePoint time);
/// A file address, "file:///…".
Json toJson(const FilePath& path);
Json toJson(const Note& note);
Json toJson(const VaultDocument& document);
Json toJson(const VaultWarning& warning);
Json toJson(const YAMLValue& value);
Json toJson(const FrontmatterDoc& doc);
Json toJson(const NoteScan& scan);
Json toJson(const HTMLExtract& extract);
Json toJson(const IndexedChunk& chunk);
Json toJson(const ReindexSummary& summary);
Json toJson(const SearchHit& hit);
Json toJson(const RetrievedChunk& chunk);
Json toJson(const NoteIndex::TaskRow& task);

Json toJson(const std::string& text);

template <class T>
Json toJson(const std::vector<T>& values) {
    Json::Array array;
    array.reserve(values.size());
    for (const auto& value : values) array.push_back(toJson(value));
    return Json(std::move(array));
}

}  // namespace vesk::command
