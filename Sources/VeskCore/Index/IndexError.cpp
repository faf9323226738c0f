#include "VeskCore/Index/IndexError.h"

#include "VeskCore/Support/Match.h"

namespace vesk {

std::string IndexError::description() const {
    return match(
        value,
        [](const CannotOpen& failure) {
            return "Vesk couldn't open its search index (" + failure.detail + "). Quit Vesk and delete " +
                   failure.path + " — the index is only a cache and rebuilds itself from your notes.";
        },
        [](const Sql& failure) {
            return "The search index rejected a change (" + failure.detail +
                   "). Rebuilding the index from Settings → Index clears this without touching your notes.";
        });
}

}  // namespace vesk
