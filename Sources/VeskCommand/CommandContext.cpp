#include "VeskCommand/CommandContext.h"

#include <fmt/core.h>

#include <cstdlib>

#include "VeskCore/Index/NoteIndex.h"
#include "VeskCore/Platform/FilePlatform.h"
#include "VeskCore/Support/Match.h"
#include "VeskCore/Support/PathText.h"
#include "VeskCore/Vault/AtomicWrite.h"
#include "VeskCore/Vault/VaultBookmarks.h"

namespace vesk::command {
namespace {

FilePath absolute(std::string_view typed) {
    std::error_code ignored;
    const FilePath path{std::string(typed)};
    return standardised(path.is_absolute() ? path : std::filesystem::current_path(ignored) / path);
}

std::optional<Note> noteAt(const Vault& vault, std::string_view path) {
    const auto address = vault.absolutePath(path);
    auto info = FilePlatform::current().files->info(address);
    if (!info) return {};
    return Note{.relativePath = std::string(path),
                .path = address,
                .title = std::string(stem(path)),
                .modified = info->modified,
                .created = info->created,
                .size = static_cast<std::int64_t>(info->size)};
}

}  // namespace

void requireNote(const std::string& path) {
    AtomicWrite::refuseDocument(FilePath(path));
    if (Vault::indexedKind(path) != IndexedKind::note) {
        throw CommandError(fmt::format(
            "“{}” isn't a note: a note's name ends in .md, .markdown, .mdown or .txt.", printable(path)));
    }
}

Vault CommandContext::namedVault() const {
    if (!vaultOption.empty()) return Vault(absolute(vaultOption));
    if (const char* variable = std::getenv("VESK_VAULT"); variable && *variable)
        return Vault(absolute(variable));
    auto restored = VaultBookmarks(defaults, bookmarks).restoreMostRecent();
    return match(
        restored, [](const VaultBookmarks::Restored::Vault& last) { return Vault(last.path); },
        [](const VaultBookmarks::Restored::Unavailable& lost) -> Vault {
            throw CommandError(
                fmt::format("The last vault used, {}, can't be opened. Name another with --vault DIR.",
                            lost.path ? "“" + *lost.path + "”" : std::string("a folder that is gone")));
        },
        [](const VaultBookmarks::Restored::NothingRemembered&) -> Vault {
            throw CommandError("No vault is known yet. Name one with --vault DIR or in VESK_VAULT.");
        });
}

Vault CommandContext::vault() const {
    const Vault named = namedVault();
    const auto info = FilePlatform::current().files->info(named.root());
    if (!info)
        throw CommandError(fmt::format("Vault folder is missing: {} doesn't exist.", named.root().string()));
    if (info->kind != FileKind::directory) {
        throw CommandError(fmt::format("{} is a file. A vault is a folder.", named.root().string()));
    }
    // Only a vault that isn't the last one already is written down, so that reading commands leave the
    // settings alone.
    VaultBookmarks remembered(defaults, bookmarks);
    if (remembered.restoreMostRecent() !=
        VaultBookmarks::Restored{VaultBookmarks::Restored::Vault{named.root()}}) {
        remembered.store(named.root());
    }
    return named;
}

std::string CommandContext::notePath(const Vault& vault, std::string_view typed) const {
    const auto outside = [&] {
        return VaultWriteError(VaultWriteError::Kind::outsideVault, FilePath(std::string(typed)));
    };
    if (typed.starts_with('/')) {
        auto relative = vault.relativePath(absolute(typed));
        if (!relative) throw outside();
        return *relative;
    }
    const auto clean = standardised(FilePath("/") / std::string(typed)).string().substr(1);
    if (!Vault::leavesVault(typed) && FilePlatform::current().files->linkInfo(vault.absolutePath(clean)))
        return clean;
    // Typed in a folder of the vault, with the shell's completion of names there.
    if (auto here = vault.relativePath(absolute(typed));
        here && FilePlatform::current().files->linkInfo(vault.absolutePath(*here))) {
        return *here;
    }
    if (Vault::leavesVault(typed)) throw outside();
    return clean;
}

std::unique_ptr<NoteIndex> CommandContext::openIndex(const Vault& vault, bool mustExist) const {
    if (mustExist && !FilePlatform::current().files->exists(vault.indexPath())) {
        throw CommandError("This vault has no index yet. Run “vesk index” first.");
    }
    return std::make_unique<NoteIndex>(vault, clock, log);
}

void CommandContext::notesChanged(const Vault& vault,
                                  std::initializer_list<std::string_view> paths) const noexcept {
    const std::vector<std::string> all(paths.begin(), paths.end());
    notesChanged(vault, all);
}

void CommandContext::notesChanged(const Vault& vault, std::span<const std::string> paths) const noexcept {
    try {
        if (paths.empty() || !FilePlatform::current().files->exists(vault.indexPath())) return;
        auto index = openIndex(vault, true);
        for (const auto& path : paths) {
            auto note = noteAt(vault, path);
            auto text = note ? AtomicWrite::read(note->path) : std::nullopt;
            if (text) {
                index->reindexText(*note, *text);
            } else {
                index->removeNote(path);
            }
        }
        // A name that came or went changes where other notes' links lead.
        index->resolveLinks();
    } catch (const std::exception& failure) {
        log.line(LogLevel::notice, "command", "The index was left behind: {}", {logPrivate(failure.what())});
    }
}

void CommandContext::answer(const Json& document) const {
    out.line(document.dump(Json::Style::pretty));
}

void CommandContext::remark(std::string_view text) const {
    err.line(text);
}

}  // namespace vesk::command
