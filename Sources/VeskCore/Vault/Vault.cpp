#include "VeskCore/Vault/Vault.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>

#include "VeskCore/Platform/FilePlatform.h"
#include "VeskCore/Support/Characters.h"
#include "VeskCore/Support/Digest.h"
#include "VeskCore/Support/PathText.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"
#include "VeskCore/Vault/AtomicWrite.h"

namespace vesk {

namespace {

using Kind = VaultWriteError::Kind;

constexpr std::size_t maximumNameCharacters = 200;
constexpr std::size_t deviceKeyDigits = 16;
constexpr int maximumLostRaces = 100;

FileSystem& files() {
    return *FilePlatform::current().files;
}

/// What is left of `path` below `root`; none outside it, empty for the root itself.
std::optional<std::string_view> remainder(std::string_view path, std::string_view root) {
    if (!path.starts_with(root)) return {};
    path.remove_prefix(root.size());
    if (path.empty() || root.ends_with('/')) return path;
    if (path.front() != '/') return {};
    return path.substr(1);
}

bool hasParentComponent(std::string_view path) {
    const auto components = split(path, '/');
    return std::find(components.begin(), components.end(), "..") != components.end();
}

/// The address as the user should read it when the path leaves the vault.
FilePath addressOutside(const FilePath& root, std::string_view path) {
    return path.starts_with('/') || path.starts_with('~') ? FilePath(path)
                                                          : standardised(root / FilePath(path));
}

/// A name that the file system takes. A stem that is one huge character isn't cut down to nothing, which
/// would hide the file.
std::string fileName(std::string_view stem, std::string_view tail) {
    std::string name = fittingFileName(stem, tail);
    return name == tail ? fittingFileName(Vault::untitledName, tail) : name;
}

}  // namespace

std::string Note::name() const {
    return replaceAll(lastComponent(relativePath), ".md", "");
}

std::string Note::folder() const {
    const std::string_view parent = parentFolder(relativePath);
    return parent.empty() ? "/" : std::string(parent);
}

std::string VaultDocument::fileName() const {
    return std::string(lastComponent(relativePath));
}

std::string VaultDocument::folder() const {
    return std::string(parentFolder(relativePath));
}

Vault::Vault(const FilePath& root, std::optional<SyncProvider> provider)
    : root_(standardised(root)), provider_(provider ? *provider : detectSyncProvider(root_)) {}

FilePath Vault::supportDirectory() const {
    return root_ / ".vesk";
}

FilePath Vault::perDeviceDirectory() const {
    return files().applicationSupportDirectory() / "Vesk" / "Indexes" /
           sha256Hex(root_.native()).substr(0, deviceKeyDigits);
}

FilePath Vault::indexPath() const {
    return perDeviceDirectory() / "index.sqlite";
}

FilePath Vault::absolutePath(std::string_view relativePath) const {
    // One string taken apart once: listings make an address for every file of the vault.
    const std::size_t first = relativePath.find_first_not_of('/');
    if (first == relativePath.npos) return root_;
    return joinedPath(root_.native(), relativePath.substr(first));
}

std::optional<std::string> Vault::relativePath(const FilePath& path) const {
    const FilePath clean = standardised(path);
    const auto rest = remainder(clean.native(), root_.native());
    if (!rest || rest->empty()) return {};
    return std::string(*rest);
}

bool Vault::leadsOutside(std::string_view relativePath) const {
    try {
        requireReallyInside(absolutePath(relativePath));
        return false;
    } catch (const VaultWriteError&) {
        return true;
    }
}

void Vault::ensureSupportDirectory() const {
    files().createDirectories(supportDirectory());
    files().createDirectories(perDeviceDirectory());
    try {
        const FilePath marker = supportDirectory() / ".nosync";
        if (!files().exists(marker)) files().writeNew(marker, {});
    } catch (const Error&) {  // the marker only spares a sync service some work
    }
}

bool Vault::isNameTaken(const FilePath& path) const {
    // The item itself: a link that leads nowhere holds its name, too.
    if (files().linkInfo(path)) return true;
    return provider_ == SyncProvider::iCloudDrive && files().linkInfo(UbiquityStatus::stubPath(path));
}

bool Vault::isSameItem(const FilePath& a, const FilePath& b) {
    const auto left = files().linkInfo(a);
    const auto right = files().linkInfo(b);
    return left && right && left->fileID == right->fileID && left->device == right->device;
}

void Vault::requireMaterialisedForMove(const FilePath& path) const {
    if (files().linkInfo(path) || !isNameTaken(path)) return;
    UbiquityStatus::requestDownload(path);
    throw VaultWriteError(Kind::notMaterialised, path);
}

std::optional<FrontmatterDoc> Vault::readNote(std::string_view relativePath) const {
    const auto text = AtomicWrite::read(notePath(relativePath));
    if (!text) return {};
    return FrontmatterDoc(*text);
}

void Vault::writeNote(const FrontmatterDoc& doc, std::string_view relativePath) const {
    writeText(doc.serialized(), relativePath);
}

void Vault::writeText(std::string_view text, std::string_view relativePath) const {
    const FilePath path = notePath(relativePath);
    requireReallyInside(path);
    AtomicWrite::refuseDocument(path);
    CoordinatedIO::writeText(path, text, CoordinatedIO::needsCoordination(path));
}

Note Vault::createNote(std::string_view name, std::string_view folder, std::string_view content) const {
    const FilePath directory = folderPath(folder);
    files().createDirectories(directory);
    const std::string chosen =
        placeUnderFreeName(directory, sanitiseFilename(name), ".md",
                           [&](const FilePath& path) { CoordinatedIO::createText(path, content); });
    const FilePath path = directory / chosen;
    const auto info = files().info(path);
    const TimePoint now = SystemClock().now();
    return {
        .relativePath = relativePath(path).value_or(chosen),
        .path = path,
        .title = std::string(vesk::stem(chosen)),
        .modified = info ? info->modified : now,
        .created = info ? info->created : now,
        .size = static_cast<std::int64_t>(info ? info->size : content.size()),
    };
}

std::string Vault::renameNote(std::string_view relativePath, std::string_view newName) const {
    const FilePath from = notePath(relativePath);
    const std::string present = from.filename().native();
    const std::string clean = sanitiseFilename(newName);
    // A title shown to the user is the decoded name, so an untouched title changes nothing either.
    if (canonicallyEqual(clean, decodedText(std::string(stem(present))))) return std::string(relativePath);
    requireReallyInside(from.parent_path());
    const std::string_view extension = pathExtension(present);
    const std::string tail = extension.empty() ? std::string() : "." + std::string(extension);
    const FilePath to = from.parent_path() / fileName(clean, tail);
    requireMaterialisedForMove(from);
    return moveItem(from, to);
}

std::string Vault::moveNote(std::string_view relativePath, std::string_view folder) const {
    const FilePath from = notePath(relativePath);
    const FilePath directory = folderPath(folder);
    requireReallyInside(from.parent_path());
    requireMaterialisedForMove(from);
    const FilePath to = directory / from.filename();
    if (to == from) return std::string(relativePath);
    files().createDirectories(directory);
    return moveItem(from, to);
}

std::string Vault::createFolder(std::string_view name, std::string_view parent) const {
    const FilePath directory = folderPath(parent);
    const std::string wanted = sanitiseFilename(name);
    for (long number = 1;; ++number) {
        const std::string tail = number == 1 ? std::string() : fmt::format(" {}", number);
        const FilePath path = directory / fittingFileName(wanted, tail);
        if (isNameTaken(path)) continue;
        files().createDirectories(path);
        return relativePath(path).value_or(path.filename().native());
    }
}

std::string Vault::renameFolder(std::string_view relativePath, std::string_view newName) const {
    const FilePath from = notePath(relativePath);
    requireReallyInside(from.parent_path());
    const FilePath to = from.parent_path() / fittingFileName(sanitiseFilename(newName), "");
    if (to == from) return std::string(relativePath);
    return moveItem(from, to);
}

std::string Vault::sanitiseFilename(std::string_view name) {
    const std::string text = decodedText(std::string(name));
    std::string clean = replaceAll(trim(text), "\r\n", "-");
    // A NUL would end the name in the calls of the system.
    constexpr std::string_view forbidden("/:\\*?\"<>|\n\r\t\0", 13);
    std::replace_if(
        clean.begin(), clean.end(), [=](char c) { return forbidden.find(c) != forbidden.npos; }, '-');
    clean.erase(0, clean.find_first_not_of('.'));
    if (clean.empty()) return std::string(untitledName);
    return std::string(characterPrefix(clean, maximumNameCharacters));
}

bool Vault::leavesVault(std::string_view path) {
    return path.starts_with('/') || path.starts_with('~') || hasParentComponent(path);
}

bool Vault::isUntitled(std::string_view path) {
    std::string_view name = stem(path);
    if (!name.starts_with(untitledName)) return false;
    name.remove_prefix(untitledName.size());
    if (name.empty()) return true;
    if (!name.starts_with(' ')) return false;
    std::string number;
    for (std::size_t offset = 1; offset < name.size();) {
        const char32_t codePoint = nextCodePoint(name, offset);
        if (!isNewline(codePoint)) appendCodePoint(number, codePoint);
    }
    return !number.empty() && number.front() != '0' &&
           std::all_of(number.begin(), number.end(), isAsciiDigit);
}

FilePath Vault::insidePath(std::string_view relativePath) const {
    // The system's calls would take such a path for another, shorter one.
    if (relativePath.find('\0') != relativePath.npos) {
        throw SystemError(EINVAL, "open", std::string(relativePath));
    }
    // Nothing here expands a tilde, so a note of the vault whose own name begins with one can be worked with.
    const bool isOwnTildeName = relativePath.starts_with('~') && !hasParentComponent(relativePath) &&
                                files().linkInfo(absolutePath(split(relativePath, '/').front()));
    if (leavesVault(relativePath) && !isOwnTildeName) {
        throw VaultWriteError(Kind::outsideVault, addressOutside(root_, relativePath));
    }
    return standardised(absolutePath(relativePath));
}

FilePath Vault::notePath(std::string_view relativePath) const {
    FilePath path = insidePath(relativePath);
    if (!this->relativePath(path)) throw VaultWriteError(Kind::outsideVault, path);
    return path;
}

FilePath Vault::folderPath(std::string_view folder) const {
    // "/" is how a note names the root as its folder.
    FilePath path = folder.empty() || folder == "/" ? root_ : insidePath(folder);
    requireReallyInside(path);
    return path;
}

void Vault::requireReallyInside(const FilePath& path) const {
    const auto realRoot = files().realPath(root_);
    if (!realRoot) return;  // no vault, no links in it
    for (FilePath item = path; isRootOrBelow(item); item = item.parent_path()) {
        // What doesn't exist yet will stand in the nearest folder that does.
        if (const auto real = files().realPath(item)) {
            if (!remainder(real->native(), realRoot->native()))
                throw VaultWriteError(Kind::outsideVault, *real);
            return;
        }
    }
}

bool Vault::isRootOrBelow(const FilePath& path) const {
    return remainder(path.native(), root_.native()).has_value();
}

std::string Vault::placeUnderFreeName(const FilePath& folder, std::string_view stem, std::string_view tail,
                                      const std::function<void(const FilePath&)>& place) const {
    int lostRaces = 0;
    for (long number = 1;; ++number) {
        std::string name =
            fileName(stem, number == 1 ? std::string(tail) : fmt::format(" {}{}", number, tail));
        const FilePath path = folder / name;
        if (isNameTaken(path)) continue;
        try {
            place(path);
            return name;
        } catch (const SystemError& error) {
            if (error.code != EEXIST || ++lostRaces == maximumLostRaces) throw;
        }
    }
}

std::string Vault::moveItem(const FilePath& from, const FilePath& to) const {
    if (isNameTaken(to) && !isSameItem(from, to)) throw VaultWriteError(Kind::alreadyExists, to);
    try {
        CoordinatedIO::move(from, to);
    } catch (const SystemError& error) {
        // Taken since the look at it, or a second link to the same file.
        if (error.code == EEXIST) throw VaultWriteError(Kind::alreadyExists, to);
        throw;
    }
    return relativePath(to).value_or(to.filename().native());
}

}  // namespace vesk
