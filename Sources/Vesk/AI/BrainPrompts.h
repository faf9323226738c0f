// What a model is told before a question, by what the question is about. Pure.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Vesk/AI/BrainSession.h"

namespace vesk::BrainPrompts {

inline constexpr std::size_t longestText = 24'000;  ///< characters of one note that a model is given

/// `lean` leaves out what a small model can't honour.
std::string system(AIScope about, const std::optional<VaultContext::Coverage>& coverage, bool lean);
extern const std::string_view generalKnowledge;

/// A text by its paragraphs, cut at longestText.
std::vector<RetrievedChunk> chunks(std::string_view text, const std::optional<Note>& note,
                                   std::string_view label);

}  // namespace vesk::BrainPrompts
