#include "VeskCore/Support/Ensure.h"

#include <cstdio>
#include <cstdlib>

namespace vesk {

void failEnsure(const char* expression, const char* file, int line, const char* function) {
    std::fprintf(stderr, "%s:%d: %s: broken assumption: %s\n", file, line, function, expression);
    std::abort();
}

}  // namespace vesk
