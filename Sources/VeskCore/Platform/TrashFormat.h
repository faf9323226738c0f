// How a vault's own trash lies on the disk, for all who put something into it.
#pragma once

#include <string_view>

namespace vesk {

/// The folder at the vault's root.
inline constexpr std::string_view trashFolderName = ".trash";
/// The extended attribute of a trashed file with the vault-relative path that it came from: its bytes, no
/// terminator.
inline constexpr std::string_view trashOriginAttribute = "com.vesk.trash-origin";

}  // namespace vesk
