// A title for a note that has none: what is asked of a model, and what may be taken from its reply. Pure.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "VeskCore/Brain/BrainRequest.h"

namespace vesk::NoteTitler {

extern const std::string_view instructions;
inline constexpr std::size_t maxExcerptCharacters = 1500;
inline constexpr std::size_t maxTitleLength = 80;  ///< characters

/// The note's words without its frontmatter and marks.
std::string excerpt(std::string_view text);
bool hasEnoughText(std::string_view text);
std::string userMessage(std::string_view excerpt);
/// What a model is asked for a title.
BrainRequest request(std::string_view excerpt);
/// A title that makes a file name; none if the reply holds none.
std::optional<std::string> parse(std::string_view reply);

}  // namespace vesk::NoteTitler
