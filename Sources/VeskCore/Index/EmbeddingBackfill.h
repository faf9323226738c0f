// Gives the passages that wait for a vector theirs, batch by batch.
#pragma once

#include <functional>
#include <stop_token>

#include "VeskCore/Index/EmbeddingProvider.h"
#include "VeskCore/Index/NoteIndex.h"

namespace vesk::EmbeddingBackfill {

/// So few that the index is never held for long, and that little is lost when the process ends in between.
inline constexpr int batch = 64;

/// Goes on until no passage waits, the provider gives nothing more, or a stop is requested. Each batch is
/// kept for good before the next begins: `stored` is told how many passages it had. Throws what the provider
/// (BrainError, cancelled when stopped within a batch) and the index throw.
void run(NoteIndex& index, EmbeddingProvider& provider, std::stop_token stop,
         const std::function<void(int)>& stored);

}  // namespace vesk::EmbeddingBackfill
