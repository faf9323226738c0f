#include "VeskCore/Index/IndexError.h"

#include "VeskCore/Support/Localised.h"
#include "VeskCore/Support/Match.h"

namespace vesk {

std::string IndexError::description() const {
    return match(
        value,
        [](const CannotOpen& failure) {
            return localised(
                "Vesk couldn't open its search index ({}). Quit Vesk and delete {} — the index is only a "
                "cache and rebuilds itself from your notes.",
                failure.detail, failure.path);
        },
        [](const Sql& failure) {
            return localised(
                "The search index rejected a change ({}). Rebuilding the index from Settings → Index clears "
                "this without touching your notes.",
                failure.detail);
        });
}

}  // namespace vesk
