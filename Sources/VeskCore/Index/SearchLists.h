// Small steps that the kinds of search share.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string_view>
#include <utility>
#include <vector>

#include "VeskCore/Vault/Vault.h"

namespace vesk {

inline bool isStylesheetPath(std::string_view path) {
    return Vault::indexedKind(path) == IndexedKind::stylesheet;
}

/// The list with stylesheets behind everything else, each side in its order. `path` gives an entry's path.
template <class Entry, class Path>
std::vector<Entry> stylesheetsLast(std::vector<Entry> list, const Path& path) {
    std::stable_partition(list.begin(), list.end(),
                          [&](const Entry& entry) { return !isStylesheetPath(path(entry)); });
    return list;
}

/// The first `limit` entries; none for a limit below 1.
template <class Entry>
void truncate(std::vector<Entry>& list, int limit) {
    const std::size_t wanted = limit > 0 ? static_cast<std::size_t>(limit) : 0;
    if (list.size() > wanted) list.erase(list.begin() + static_cast<std::ptrdiff_t>(wanted), list.end());
}

}  // namespace vesk
