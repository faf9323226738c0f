#include "VeskCore/Vault/ConflictResolver.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>

#include "VeskCore/Platform/FilePlatform.h"
#include "VeskCore/Support/Characters.h"
#include "VeskCore/Support/DateFormat.h"
#include "VeskCore/Support/Match.h"
#include "VeskCore/Support/PathText.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Vault/AtomicWrite.h"

namespace vesk {

namespace {

using Versions = std::vector<std::shared_ptr<FileVersion>>;

constexpr int maximumLostRaces = 100;
/// What a device's long name may take of a file name that would not fit otherwise.
constexpr std::size_t deviceBytesInLongNames = 100;
constexpr std::size_t maximumNameBytes = 255;

FileSystem& files() {
    return *FilePlatform::current().files;
}

std::optional<std::string> bytesOf(const FileVersion& version) {
    try {
        return version.read();
    } catch (const std::exception&) {
        return {};
    }
}

/// The version's text; none if it can't be read or is no UTF-8.
std::optional<std::string> textOf(const FileVersion& version) {
    auto bytes = bytesOf(version);
    if (!bytes || !isValidUtf8(*bytes)) return {};
    return bytes;
}

void takeContents(NoteConflict::Version& version, std::optional<std::string> bytes) {
    if (!bytes) return;
    version.byteSize = static_cast<std::int64_t>(bytes->size());
    if (isValidUtf8(*bytes)) version.text = std::move(bytes);
}

NoteConflict::Version described(const FileVersion& version) {
    NoteConflict::Version result{
        .identifier = version.identifier(),
        .modified = version.modified().value_or(distantPast()),
        .deviceName = version.deviceName(),
    };
    takeContents(result, bytesOf(version));
    return result;
}

NoteConflict::Version currentVersionOf(const FileVersions& versions, const FilePath& path) {
    if (const auto version = versions.currentVersion(path)) return described(*version);
    NoteConflict::Version result{.identifier = "current", .modified = distantPast()};
    try {
        takeContents(result, files().read(path));
    } catch (const Error&) {  // a version without contents
    }
    return result;
}

/// Writes a version's text beside its note and returns the copy's path.
std::string writeCopy(const Vault& vault, std::string_view path, const FileVersion& version, int index,
                      const std::string& text) {
    const auto isTaken = [&](const std::string& candidate) {
        return vault.isNameTaken(vault.absolutePath(candidate));
    };
    for (int lostRaces = 0;;) {
        std::string copy = ConflictResolver::keepBothCopyPath(path, version.deviceName(), index, isTaken);
        try {
            CoordinatedIO::createText(vault.absolutePath(copy), text);
            return copy;
        } catch (const SystemError& error) {
            if (error.code != EEXIST || ++lostRaces == maximumLostRaces) throw;
        }
    }
}

}  // namespace

bool NoteConflict::Version::looksEmpty() const {
    return !text || byteSize == 0 || trim(*text).empty();
}

std::string NoteConflict::Version::summary(std::string_view timeZone, std::string_view locale) const {
    std::string words = mediumDateShortTime(modified, timeZone, locale);
    if (deviceName) words += " · " + *deviceName;
    return words + (looksEmpty() ? std::string(" · empty") : fmt::format(" · {} bytes", byteSize));
}

bool NoteConflict::hasEmptyVersionRisk() const {
    const auto looksEmpty = [](const Version& version) { return version.looksEmpty(); };
    const auto empty =
        std::count_if(others.begin(), others.end(), looksEmpty) + (current.looksEmpty() ? 1 : 0);
    return empty > 0 && empty < static_cast<std::ptrdiff_t>(others.size()) + 1;
}

std::vector<NoteConflict> ConflictResolver::scan(const Vault& vault) const {
    std::vector<NoteConflict> found;
    if (vault.provider() == SyncProvider::none) return found;
    const auto candidates = versions_.conflictedItems(vault.root());
    if (candidates && candidates->empty()) return found;
    for (const Note& note : vault.enumerateNotes()) {
        if (candidates && !candidates->contains(note.path)) continue;
        if (auto conflict = this->conflict(note.path, note.relativePath))
            found.push_back(std::move(*conflict));
    }
    return found;
}

std::optional<NoteConflict> ConflictResolver::conflict(const FilePath& path,
                                                       std::string_view relativePath) const {
    const Versions unresolved = versions_.unresolvedConflictVersions(path);
    if (unresolved.empty()) return {};
    NoteConflict conflict{
        .relativePath = std::string(relativePath),
        .path = path,
        .current = currentVersionOf(versions_, path),
    };
    for (const auto& version : unresolved) conflict.others.push_back(described(*version));
    return conflict;
}

void ConflictResolver::resolve(const NoteConflict& conflict, const ConflictResolution& resolution,
                               const Vault& vault) const {
    const Versions unresolved = versions_.unresolvedConflictVersions(conflict.path);
    if (unresolved.empty()) return;
    match(
        resolution,
        [&](const ConflictResolution::KeepOther& other) {
            const auto chosen = std::find_if(unresolved.begin(), unresolved.end(), [&](const auto& version) {
                return version->identifier() == other.identifier;
            });
            if (chosen == unresolved.end()) {
                throw VaultWriteError(VaultWriteError::Kind::outsideVault, conflict.path);
            }
            (*chosen)->replaceItem(conflict.path);
        },
        [&](ConflictResolution::Plain plain) {
            if (plain == ConflictResolution::Plain::keepCurrent) return;
            int index = 0;
            for (const auto& version : unresolved) {
                ++index;
                if (const auto text = textOf(*version)) {
                    writeCopy(vault, conflict.relativePath, *version, index, *text);
                }
            }
        });
    for (const auto& version : unresolved) version->markResolved();
    versions_.removeOtherVersions(conflict.path);
}

ConflictResolver::KeepBothResult ConflictResolver::keepBothKeepingVersions(const FilePath& path,
                                                                           std::string_view relativePath,
                                                                           const Vault& vault) const {
    const Versions unresolved = versions_.unresolvedConflictVersions(path);
    if (unresolved.empty()) return {KeepBothResult::Plain::settled};
    std::vector<std::string> texts;
    for (const auto& version : unresolved) {
        auto text = textOf(*version);
        if (!text) return {KeepBothResult::Plain::waiting};
        texts.push_back(std::move(*text));
    }
    KeepBothResult::Kept kept;
    for (std::size_t i = 0; i < texts.size(); ++i) {
        kept.copies.push_back(
            writeCopy(vault, relativePath, *unresolved[i], static_cast<int>(i) + 1, texts[i]));
    }
    FilePlatform::current().coordination->writeForReplacing(path, [&] {
        for (const auto& version : unresolved) version->markResolved();
    });
    return {std::move(kept)};
}

std::string ConflictResolver::keepBothCopyPath(std::string_view path,
                                               const std::optional<std::string>& device, int index,
                                               const std::function<bool(const std::string&)>& isTaken) {
    std::string name = device ? Vault::sanitiseFilename(*device) : fmt::format("device {}", index);
    if (stem(path).size() + name.size() + std::string_view(" (conflict from ) 1000000.md").size() >
        maximumNameBytes) {
        name = std::string(characterPrefixFitting(name, deviceBytesInLongNames));
    }
    for (long number = 1;; ++number) {
        const std::string tail = number == 1 ? fmt::format(" (conflict from {}).md", name)
                                             : fmt::format(" (conflict from {}) {}.md", name, number);
        std::string candidate = joinedPath(parentFolder(path), fittingFileName(stem(path), tail));
        if (!isTaken(candidate)) return candidate;
    }
}

}  // namespace vesk
