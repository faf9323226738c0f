#include "VeskCore/Brain/PlanPaths.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>

#include "VeskCore/Support/Error.h"
#include "VeskCore/Support/Localised.h"
#include "VeskCore/Support/Match.h"
#include "VeskCore/Support/PathText.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Vault/Vault.h"

namespace vesk::PlanPaths {

namespace {

using Op = VaultOperation;

constexpr std::size_t longestPath = 4096, longestName = 255;  // bytes, of what the system takes

/// A folder's components in the vault; hidden and ignored ones hold no notes that can be seen.
bool isHidden(std::string_view component) {
    return (component.starts_with('.') && component != "..") ||
           Vault::ignoredDirectories().contains(component);
}

std::string hidden(std::string_view path) {
    return localised("\"{}\" is inside a hidden folder, where notes can't be seen.", path);
}

/// What the system itself says of a path that it can't take.
std::optional<std::string> impossible(std::string_view path) {
    const auto components = pathComponents(path);
    const bool isTooLong = path.size() > longestPath ||
                           std::any_of(components.begin(), components.end(), [](std::string_view component) {
                               return component.size() > longestName;
                           });
    if (isTooLong) return SystemError(ENAMETOOLONG, "open", std::string(lastComponent(path))).description();
    if (path.find('\0') != path.npos) {
        return SystemError(EINVAL, "open", replaceAll(path, std::string_view("\0", 1), " ")).description();
    }
    return std::nullopt;
}

}  // namespace

std::string outside(std::string_view path) {
    return localised("\"{}\" is outside the vault.", path);
}

std::optional<std::string> unsafeNote(std::string_view path) {
    if (auto reason = impossible(path)) return reason;
    const auto components = pathComponents(path);
    if (std::any_of(components.begin(), components.end(), isHidden)) return hidden(path);
    if (path.starts_with('/') || components.empty() ||
        std::find(components.begin(), components.end(), "..") != components.end()) {
        return outside(path);
    }
    if (Vault::isDocument(path)) {
        return "Vesk leaves web pages and stylesheets where they are. A page finds its styles and pictures "
               "by "
               "where it sits.";
    }
    return std::nullopt;
}

std::optional<std::string> unsafeFolder(std::string_view path) {
    const auto refused = [](std::string reason) { return "Vesk won't do that — " + std::move(reason); };
    if (path.empty()) return refused("that names the whole vault, not a folder inside it.");
    if (auto reason = impossible(path)) return reason;
    const auto components = split(path, '/');
    for (const auto component : components) {
        if (component.empty() || component == "." || component == "..") {
            return refused(localised("\"{}\" isn't a usable folder path.", path));
        }
    }
    if (components.front().starts_with('.')) {
        return refused(localised("\"{}\" is one of Vesk's own folders.", path));
    }
    if (std::any_of(components.begin(), components.end(), isHidden)) return hidden(path);
    return std::nullopt;
}

std::optional<std::string> notANote(std::string_view path) {
    if (Vault::indexedKind(path) == IndexedKind::note) return std::nullopt;
    return localised("\"{}\" isn't a note.", path);
}

std::vector<std::string> folders(const VaultOperation& operation) {
    if (const auto* it = std::get_if<Op::CreateFolder>(&operation.value)) return {it->path};
    if (const auto* it = std::get_if<Op::RenameFolder>(&operation.value)) return {it->from, it->to};
    if (const auto* it = std::get_if<Op::TrashFolder>(&operation.value)) return {it->path};
    return {};
}

std::string clean(std::string_view path) {
    return join(pathComponents(path), "/");
}

VaultOperation mapped(const VaultOperation& operation,
                      const std::function<std::string(const std::string&)>& at) {
    VaultOperation result = operation;
    const auto one = [&](auto& it) { it.path = at(it.path); };
    const auto two = [&](auto& it) {
        it.from = at(it.from);
        it.to = at(it.to);
    };
    match(
        result, [&](Op::CreateNote& it) { one(it); }, [&](Op::UpdateNote& it) { one(it); },
        [&](Op::RenameNote& it) { two(it); }, [&](Op::SetProperty& it) { one(it); },
        [&](Op::RemoveProperty& it) { one(it); }, [&](Op::TrashNote& it) { one(it); },
        [&](Op::CreateFolder& it) { one(it); }, [&](Op::RenameFolder& it) { two(it); },
        [&](Op::TrashFolder& it) { one(it); });
    return result;
}

std::string listed(const std::vector<std::string>& paths) {
    return paths.empty() ? "(no notes in this folder)" : join(paths, "\n");
}

std::string counted(std::size_t count, std::string_view noun) {
    return fmt::format("{} {}{}", count, noun, count == 1 ? "" : "s");
}

std::string otherFiles(std::size_t count) {
    return localised("(and {})", counted(count, "non-note file"));
}

}  // namespace vesk::PlanPaths
