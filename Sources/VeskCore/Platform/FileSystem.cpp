#include "VeskCore/Platform/FileSystem.h"

namespace vesk {

FilePath standardised(const FilePath& path) {
    FilePath normal = path.lexically_normal();
    // "a/b/" has an empty last element; the root alone has none to drop.
    if (!normal.has_filename() && normal.has_relative_path()) normal = normal.parent_path();
    return normal;
}

FilePath appending(const FilePath& root, std::string_view relativePath) {
    auto first = relativePath.find_first_not_of('/');
    if (first == std::string_view::npos) return root;
    return root / relativePath.substr(first);
}

}  // namespace vesk
