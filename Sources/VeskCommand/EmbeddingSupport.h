// What several commands share about the sentence model.
#pragma once

#include <string>

#include "VeskCommand/CommandContext.h"
#include "VeskCore/Index/LocalEmbedding.h"
#include "VeskCore/Index/NoteIndex.h"

namespace vesk::command {

/// Why nothing could be embedded: what the provider says, and for a missing model why it is missing.
std::string unavailableWords(const CommandContext& context, const LocalEmbedding& embedding,
                             const Error& failure);

/// Gives all waiting passages their vectors and returns how many they were. Throws CommandError when stopped,
/// or without a model.
int embedWaiting(const CommandContext& context, NoteIndex& index, bool alwaysProgress);

}  // namespace vesk::command
