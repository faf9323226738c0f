// Closed questions for models that only talk: what they are asked to reply, and what is read out of the
// reply.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "VeskCore/Brain/Choice.h"

namespace vesk::ChoiceParser {

/// The form of the reply, in words for the model.
std::string replyInstructions(const std::vector<ChoiceSlot>& slots);

/// The picks in a reply that may be prose around JSON, fenced JSON or, for a single slot, a choice by itself.
/// Slots without a pick are left out. Throws ChoiceError (unparseable) if there is no pick at all.
ChoiceAnswer parse(std::string_view reply, const std::vector<ChoiceSlot>& slots);

/// The member of `choices` that a loosely spelled value means.
std::optional<std::string> match(std::string_view value, const std::vector<std::string>& choices);

}  // namespace vesk::ChoiceParser
