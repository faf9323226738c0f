// The frame around the platform's sentence model: nothing that the model throws gets past it.
#pragma once

#include <stdbool.h>
#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/// The vector of a NUL-terminated text by `embedding`, a vesk::SentenceEmbedding. Writes at most `capacity`
/// values and returns how many the vector has; 0 for no result, which is what an absent embedding and an
/// absent or empty text give. `threw` is set to whether the model threw.
size_t VeskNLSafeVector(void* embedding, const char* string, double* values, size_t capacity, bool* threw);

#ifdef __cplusplus
}
#endif
