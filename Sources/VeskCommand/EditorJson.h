// The JSON form of what the editor's readers see, by the rules of JsonForm.h.
#pragma once

#include "VeskCommand/JsonForm.h"
#include "VeskCore/Editor/AttributedText.h"
#include "VeskCore/Editor/ImageEmbeds.h"
#include "VeskCore/Editor/MarkdownBlock.h"
#include "VeskCore/Editor/MarkdownTable.h"
#include "VeskCore/Editor/Outline.h"
#include "VeskCore/Markdown/MarkdownSpan.h"

namespace vesk::command {

Json toJson(const MarkdownBlock& block);
Json toJson(const MarkdownSpans::Span& span);
Json toJson(const MarkdownTable& table);
Json toJson(const ImageEmbed& embed);
Json toJson(const OutlineHeading& heading);
Json toJson(const AttributeRun& run);

/// A template, so that the overloads above are found where it is used.
template <class T>
Json arrayOf(const std::vector<T>& values) {
    Json::Array array;
    array.reserve(values.size());
    for (const T& value : values) array.push_back(toJson(value));
    return Json(std::move(array));
}

}  // namespace vesk::command
