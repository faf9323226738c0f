// Vault-relative paths as text: raw file-name bytes with "/" separators and no leading "/". The rules of a
// leading full stop and of several full stops are settled here:
//   "a.tar.gz"  → stem "a.tar", extension "gz"        ".hidden" → stem ".hidden", no extension
//   ".x.md"     → stem ".x", extension "md"           "name."   → stem "name.", no extension
//   "v1.2 notes" → stem "v1.2 notes", no extension: "2 notes" has a blank in it
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace vesk {

/// "b.md" of "a/b.md"; a trailing "/" does not count.
std::string_view lastComponent(std::string_view path);
/// The last component without its extension.
std::string_view stem(std::string_view path);
/// The extension as written, without the full stop; empty if there is none.
std::string_view pathExtension(std::string_view path);
/// The extension with ASCII letters lowered.
std::string lowercasedExtension(std::string_view path);
/// "a/b" of "a/b/c.md"; empty at the top.
std::string_view parentFolder(std::string_view path);
/// The path without the extension of its last component: "a/b" of "a/b.md".
std::string_view deletingExtension(std::string_view path);
/// `folder` "/" `name`, or `name` alone if the folder is empty.
std::string joinedPath(std::string_view folder, std::string_view name);
std::vector<std::string_view> pathComponents(std::string_view path);
/// True if `path` is `folder` or lies below it. The empty folder holds everything.
bool isAtOrBelow(std::string_view path, std::string_view folder);

/// A name that fits the 255 bytes of a file name: `stem` is cut at a character's edge so that `stem` + `tail`
/// takes at most 255 bytes. `tail` is the number, marker and extension, which are kept whole.
std::string fittingFileName(std::string_view stem, std::string_view tail);

}  // namespace vesk
