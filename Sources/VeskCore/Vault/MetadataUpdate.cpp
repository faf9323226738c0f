#include "VeskCore/Vault/MetadataUpdate.h"

#include <algorithm>

#include "VeskCore/Support/PathText.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Vault/UbiquityStatus.h"
#include "VeskCore/Vault/Vault.h"

namespace vesk {

namespace {

std::optional<std::string_view> belowPrefix(std::string_view path, const std::vector<std::string>& prefixes) {
    for (const std::string_view prefix : prefixes) {
        if (!path.starts_with(prefix)) continue;
        const std::string_view rest = path.substr(prefix.size());
        // "/vault 2" doesn't lie in "/vault".
        if (rest.empty() || rest.front() == '/' || prefix.ends_with('/')) return rest;
    }
    return {};
}

bool isIgnored(std::string_view component) {
    return Vault::ignoredDirectories().contains(component);
}

void take(MetadataUpdate& update, std::string_view rest, bool comesOrGoes) {
    auto components = pathComponents(rest);
    if (components.empty()) return;
    const std::string_view last = components.back();
    components.pop_back();
    const bool isOutOfSight = std::any_of(components.begin(), components.end(), [](std::string_view folder) {
        return folder.starts_with('.') || isIgnored(folder);
    });
    if (isOutOfSight || isIgnored(last)) return;
    const auto logical = UbiquityStatus::logicalName(last);
    const std::string name = logical ? *logical : std::string(last);
    if (name.starts_with('.')) return;
    if (Vault::indexedKind(name) == IndexedKind::note) {
        update.notes.insert(joinedPath(join(components, "/"), name));
    } else if (comesOrGoes && !logical && pathExtension(name).empty()) {
        update.foldersChanged = true;
    }
}

}  // namespace

std::optional<MetadataUpdate> MetadataUpdate::read(const std::vector<std::string>& changed,
                                                   const std::vector<std::string>& added,
                                                   const std::vector<std::string>& removed,
                                                   const std::vector<std::string>& prefixes) {
    if (prefixes.empty()) return {};
    MetadataUpdate update;
    const auto takeAll = [&](const std::vector<std::string>& paths, bool comesOrGoes) {
        for (const std::string& path : paths) {
            const auto rest = belowPrefix(path, prefixes);
            if (!rest) return false;
            take(update, *rest, comesOrGoes);
        }
        return true;
    };
    if (!takeAll(changed, false) || !takeAll(added, true) || !takeAll(removed, true)) return {};
    return update;
}

}  // namespace vesk
