#include "VeskCore/Vault/AskPlan.h"

#include <algorithm>

#include "VeskCore/Support/Match.h"
#include "VeskCore/Support/PathText.h"
#include "VeskCore/Vault/Vault.h"

namespace vesk {

namespace {

bool isAllowed(std::string_view folder) {
    const auto components = pathComponents(folder);
    if (components.empty() || components.front() == Vault::attachmentsFolder) return false;
    return std::none_of(components.begin(), components.end(), [](std::string_view component) {
        return component.starts_with('.') || Vault::ignoredDirectories().contains(component);
    });
}

/// Allowed folders, sorted, each once.
template <class Paths, class FolderOf>
std::vector<std::string> allowedFolders(const Paths& paths, FolderOf folderOf) {
    std::set<std::string> folders;
    for (const auto& path : paths) {
        const std::string_view folder = folderOf(path);
        if (isAllowed(folder)) folders.emplace(folder);
    }
    return {folders.begin(), folders.end()};
}

}  // namespace

AskPlan AskPlan::forTrigger(SyncTrigger trigger, int pollTick, int rotation,
                            const std::set<std::string>& notes) {
    switch (trigger) {
        case SyncTrigger::foreground:
        case SyncTrigger::adopt:
            return {.scope = {AskScope::All{rotation}}, .budget = Seconds(8.0)};
        case SyncTrigger::pull:
            return {.scope = {AskScope::All{rotation}}, .budget = Seconds(15.0)};
        case SyncTrigger::presenter:
        case SyncTrigger::metadata:
            return {.scope = {AskScope::Containing{notes}}};
        case SyncTrigger::poll:
            if (pollTick < 2 || pollTick % 4 == 0) return {.scope = {AskScope::All{rotation}}};
            return {.scope = {AskScope::RootOnly{}}};
    }
    return {};
}

std::vector<std::string> foldersToAsk(const std::vector<std::string>& folders, const AskScope& scope,
                                      std::size_t cap) {
    const std::size_t room = cap > 0 ? cap - 1 : 0;
    std::vector<std::string> asked{std::string()};
    match(
        scope, [](const AskScope::RootOnly&) {},
        [&](const AskScope::Containing& containing) {
            auto parents =
                allowedFolders(containing.notes, [](const std::string& note) { return parentFolder(note); });
            parents.resize(std::min(parents.size(), room));
            asked.insert(asked.end(), parents.begin(), parents.end());
        },
        [&](const AskScope::All& all) {
            const auto allowed =
                allowedFolders(folders, [](const std::string& folder) { return std::string_view(folder); });
            const std::size_t count = allowed.size();
            if (count == 0) return;
            const auto signedCount = static_cast<long long>(count);
            const auto first = count <= room ? 0 : (all.rotation % signedCount + signedCount) % signedCount;
            for (std::size_t i = 0; i < std::min(count, room); ++i) {
                asked.push_back(allowed[(static_cast<std::size_t>(first) + i) % count]);
            }
        });
    return asked;
}

}  // namespace vesk
