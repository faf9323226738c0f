#include "VeskCore/Support/PathText.h"

#include "VeskCore/Support/Characters.h"
#include "VeskCore/Support/Text.h"

namespace vesk {

namespace {

constexpr std::size_t maxFileNameBytes = 255;

std::string_view withoutTrailingSlashes(std::string_view path) {
    while (path.ends_with('/')) path.remove_suffix(1);
    return path;
}

bool containsBlank(std::string_view text) {
    for (std::size_t offset = 0; offset < text.size();) {
        if (isHorizontalSpace(nextCodePoint(text, offset))) return true;
    }
    return false;
}

/// The length of the extension of a single component together with its full stop, or 0.
std::size_t extensionLength(std::string_view component) {
    const std::size_t stop = component.rfind('.');
    if (stop == std::string_view::npos || stop == 0) return 0;
    const std::string_view extension = component.substr(stop + 1);
    return extension.empty() || containsBlank(extension) ? 0 : component.size() - stop;
}

}  // namespace

std::string_view lastComponent(std::string_view path) {
    path = withoutTrailingSlashes(path);
    const std::size_t slash = path.rfind('/');
    return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

std::string_view stem(std::string_view path) {
    const std::string_view component = lastComponent(path);
    return component.substr(0, component.size() - extensionLength(component));
}

std::string_view pathExtension(std::string_view path) {
    const std::string_view component = lastComponent(path);
    const std::size_t length = extensionLength(component);
    return length == 0 ? std::string_view() : component.substr(component.size() - length + 1);
}

std::string lowercasedExtension(std::string_view path) {
    return asciiLowercased(pathExtension(path));
}

std::string_view parentFolder(std::string_view path) {
    path = withoutTrailingSlashes(path);
    const std::size_t slash = path.rfind('/');
    return slash == std::string_view::npos ? std::string_view()
                                           : withoutTrailingSlashes(path.substr(0, slash));
}

std::string_view deletingExtension(std::string_view path) {
    path = withoutTrailingSlashes(path);
    return path.substr(0, path.size() - extensionLength(lastComponent(path)));
}

std::string joinedPath(std::string_view folder, std::string_view name) {
    if (folder.empty()) return std::string(name);
    if (name.empty()) return std::string(folder);
    std::string path(folder);
    if (!path.ends_with('/')) path.push_back('/');
    return path.append(name);
}

std::vector<std::string_view> pathComponents(std::string_view path) {
    return splitWords(path, "/");
}

bool isAtOrBelow(std::string_view path, std::string_view folder) {
    folder = withoutTrailingSlashes(folder);
    if (folder.empty()) return true;
    return path.starts_with(folder) && (path.size() == folder.size() || path[folder.size()] == '/');
}

std::string fittingFileName(std::string_view stem, std::string_view tail) {
    const std::size_t room = tail.size() < maxFileNameBytes ? maxFileNameBytes - tail.size() : 0;
    return std::string(characterPrefixFitting(stem, room)).append(tail);
}

}  // namespace vesk
