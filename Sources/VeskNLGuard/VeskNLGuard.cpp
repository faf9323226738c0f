#include "VeskNLGuard/VeskNLGuard.h"

#include <algorithm>

#include "VeskCore/Platform/SentenceEmbedding.h"

extern "C" size_t VeskNLSafeVector(void* embedding, const char* string, double* values, size_t capacity,
                                   bool* threw) {
    *threw = false;
    if (embedding == nullptr || string == nullptr || *string == '\0') return 0;
    try {
        auto vector = static_cast<vesk::SentenceEmbedding*>(embedding)->vector(string);
        if (!vector) return 0;
        std::copy_n(vector->begin(), std::min(vector->size(), capacity), values);
        return vector->size();
    } catch (...) {
        *threw = true;
        return 0;
    }
}
