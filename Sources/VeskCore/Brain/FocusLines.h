// The few lines of the retrieved passages that hold a question's rarest words, for models that lose them in
// the rest. Pure; any thread.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "VeskCore/Index/RetrievedChunk.h"

namespace vesk::FocusLines {

struct Line {
    std::string title;  ///< the note's
    std::string text;
    bool operator==(const Line&) const = default;
};

/// The words that tell this question from another, each once, in order.
std::vector<std::string> keywords(std::string_view question);
/// Whether the question asks for a single fact.
bool isLookup(std::string_view question);
std::vector<Line> extract(std::string_view question, const std::vector<RetrievedChunk>& chunks,
                          std::size_t maxLines, std::size_t maxLineLength);
/// The lines in words for the model; none where they would help little.
std::optional<std::string> block(std::string_view question, const std::vector<RetrievedChunk>& chunks);

}  // namespace vesk::FocusLines
