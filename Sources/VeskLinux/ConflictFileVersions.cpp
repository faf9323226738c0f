#include "VeskLinux/ConflictFileVersions.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <string_view>
#include <utility>

#include "VeskCore/Platform/TrashFormat.h"
#include "VeskCore/Support/DateFormat.h"
#include "VeskCore/Support/PathText.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Uuid.h"

namespace vesk {

namespace {

constexpr std::string_view peerMarker = ".sync-conflict-";
constexpr std::string_view copyMarker = "conflicted copy";
constexpr int maximumLostRaces = 100;

bool isDigits(std::string_view text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), isAsciiDigit);
}

/// What a conflict file's name tells.
struct ConflictName {
    std::string original;               ///< the name of the note
    std::optional<std::string> device;  ///< as the service calls it
    std::string date;                   ///< digits and hyphens, empty if there is none to the second
    const char* dateFormat = "";
};

std::string withTail(std::string_view stem, std::string_view extension) {
    return extension.empty() ? std::string(stem) : fmt::format("{}.{}", stem, extension);
}

/// "<stem>.sync-conflict-<yyyyMMdd>-<HHmmss>[-<device>]"
std::optional<ConflictName> peerName(std::string_view stem, std::string_view extension) {
    const std::size_t at = stem.rfind(peerMarker);
    if (at == stem.npos || at == 0) return {};
    const std::string_view rest = stem.substr(at + peerMarker.size());
    constexpr std::size_t dateLength = 15;
    if (rest.size() < dateLength || rest[8] != '-' || !isDigits(rest.substr(0, 8)) ||
        !isDigits(rest.substr(9, 6))) {
        return {};
    }
    ConflictName name{.original = withTail(stem.substr(0, at), extension),
                      .date = std::string(rest.substr(0, dateLength)),
                      .dateFormat = "yyyyMMdd-HHmmss"};
    const std::string_view device = rest.substr(dateLength);
    if (device.empty()) return name;
    if (device.size() < 2 || device.front() != '-' ||
        !std::all_of(device.begin() + 1, device.end(), isAsciiAlphanumeric)) {
        return {};
    }
    name.device = decodedText(std::string(device.substr(1)));
    return name;
}

/// The device in what stands before "conflicted copy".
std::optional<std::string> ownerOfCopy(std::string_view owner) {
    owner = trimHorizontal(owner);
    for (const std::string_view ending : {"'s", "’s"}) {
        if (owner.ends_with(ending)) owner.remove_suffix(ending.size());
    }
    if (owner.empty()) return {};
    return decodedText(std::string(owner));
}

/// "<stem> (<owner>'s conflicted copy <date>)": one reading for each " (" before the words, as a stem may
/// itself hold one.
std::vector<ConflictName> copyNames(std::string_view stem, std::string_view extension) {
    const std::size_t words = asciiLowercased(stem).rfind(copyMarker);
    if (words == stem.npos || !stem.ends_with(')')) return {};
    const std::string_view date =
        trimHorizontal(stem.substr(words + copyMarker.size(), stem.size() - 1 - words - copyMarker.size()));
    std::vector<ConflictName> names;
    for (std::size_t open = stem.find(" ("); open != stem.npos && open + 2 <= words;
         open = stem.find(" (", open + 1)) {
        if (open == 0) continue;
        names.push_back({.original = withTail(stem.substr(0, open), extension),
                         .device = ownerOfCopy(stem.substr(open + 2, words - open - 2)),
                         .date = std::string(date),
                         .dateFormat = "yyyy-MM-dd HHmmss"});
    }
    return names;
}

std::vector<ConflictName> readings(std::string_view fileName) {
    const std::string_view extension = pathExtension(fileName);
    if (fileName.find(peerMarker) != fileName.npos) {
        // Of a note without extension the marker itself looks like one.
        if (auto name = peerName(stem(fileName), extension)) return {std::move(*name)};
        if (auto name = peerName(fileName, {})) return {std::move(*name)};
    }
    return copyNames(stem(fileName), extension);
}

/// What the name tells beside the files of its folder, sorted: of several readings the one with the longest
/// name of a note that is there.
std::optional<ConflictName> readingAmong(const std::vector<std::string>& sortedNames,
                                         std::string_view fileName) {
    auto all = readings(fileName);
    for (auto name = all.rbegin(); name != all.rend(); ++name) {
        if (std::binary_search(sortedNames.begin(), sortedNames.end(), name->original))
            return std::move(*name);
    }
    return {};
}

/// The nearest folder above that is a vault; none if there is no such folder.
std::optional<FilePath> vaultAbove(const FileSystem& files, const FilePath& path) {
    for (FilePath folder = path.parent_path(); folder.has_relative_path(); folder = folder.parent_path()) {
        const auto support = files.linkInfo(folder / ".vesk");
        if (support && support->kind == FileKind::directory) return folder;
    }
    return {};
}

/// Moves a file to the trash of its vault, as a note would lie there.
void moveToTrash(FileSystem& files, const FilePath& file) {
    if (!files.linkInfo(file)) return;
    const auto root = vaultAbove(files, file);
    // Without a trash nothing is let go.
    if (!root) throw SystemError(ENOENT, "trash", file.native());
    const FilePath trash = *root / trashFolderName;
    files.createDirectories(trash);
    const std::string name = file.filename().native();
    const std::string_view extension = pathExtension(name);
    int lostRaces = 0;
    for (long number = 1;; ++number) {
        const std::string tail =
            withTail(number == 1 ? std::string() : fmt::format(" {}", number), extension);
        const FilePath target = trash / fittingFileName(stem(name), tail);
        if (files.linkInfo(target)) continue;
        try {
            files.move(file, target);
        } catch (const SystemError& error) {
            if (error.code != EEXIST || ++lostRaces == maximumLostRaces) throw;
            continue;
        }
        try {
            files.setAttribute(target, trashOriginAttribute, file.lexically_relative(*root).native());
        } catch (const Error&) {  // it can still be restored, to the top of the vault
        }
        return;
    }
}

/// Either file of a conflict.
class ItemVersion : public FileVersion {
public:
    ItemVersion(FileSystem& files, FilePath file) : files_(files), file_(std::move(file)) {}

    std::string identifier() const override { return file_.filename().native(); }
    std::optional<TimePoint> modified() const override {
        try {
            const auto info = files_.info(file_);
            if (info) return info->modified;
        } catch (const Error&) {  // the caller has a date for what has none
        }
        return {};
    }
    std::optional<std::string> deviceName() const override { return {}; }
    std::string read() const override { return files_.read(file_); }
    void replaceItem(const FilePath&) override {}
    void markResolved() override {}

protected:
    FileSystem& files_;
    FilePath file_;
};

class ConflictFileVersion final : public ItemVersion {
public:
    ConflictFileVersion(FileSystem& files, FilePath file, ConflictName name, std::string_view timeZone)
        : ItemVersion(files, std::move(file)), name_(std::move(name)), timeZone_(timeZone) {}

    std::optional<TimePoint> modified() const override {
        const auto told = DateFormat(name_.dateFormat, timeZone_).parse(name_.date);
        return told ? told : ItemVersion::modified();
    }
    std::optional<std::string> deviceName() const override { return name_.device; }

    void replaceItem(const FilePath& path) override {
        files_.carryMetadata(path, file_);
        if (files_.exchange(path, file_)) return;
        // The note's text gets a file of its own first, which stays beside the note if the rest fails.
        const std::string name = file_.filename().native();
        const FilePath aside = path.parent_path() /
                               fittingFileName(stem(name), withTail(" " + randomUuid(), pathExtension(name)));
        files_.writeNew(aside, files_.read(path));
        files_.replace(path, file_);
        files_.move(aside, file_);
    }

    void markResolved() override { moveToTrash(files_, file_); }

private:
    ConflictName name_;
    std::string timeZone_;
};

}  // namespace

ConflictFileVersions::ConflictFileVersions(FileSystem& files, std::string timeZone)
    : files_(files), timeZone_(std::move(timeZone)) {}

std::vector<std::shared_ptr<FileVersion>> ConflictFileVersions::unresolvedConflictVersions(
    const FilePath& path) const {
    const FilePath folder = path.parent_path();
    std::vector<std::string> names;
    try {
        names = files_.list(folder);
    } catch (const Error&) {
        return {};
    }
    std::sort(names.begin(), names.end());
    std::vector<std::shared_ptr<FileVersion>> versions;
    for (const std::string& fileName : names) {
        auto name = readingAmong(names, fileName);
        if (!name || name->original != path.filename().native()) continue;
        const auto info = files_.linkInfo(folder / fileName);
        if (!info || info->kind != FileKind::regular) continue;
        versions.push_back(
            std::make_shared<ConflictFileVersion>(files_, folder / fileName, std::move(*name), timeZone_));
    }
    return versions;
}

std::optional<std::set<FilePath>> ConflictFileVersions::conflictedItems(const FilePath& root) const {
    std::set<FilePath> items;
    files_.walk(root, [&](const WalkEntry& entry) {
        if (entry.name().starts_with('.')) return WalkStep::skip;
        if (!entry.isDirectory()) {
            const FilePath folder = appending(root, entry.relativePath()).parent_path();
            for (const ConflictName& name : readings(entry.name())) items.insert(folder / name.original);
        }
        return WalkStep::descend;
    });
    return items;
}

std::shared_ptr<FileVersion> ConflictFileVersions::currentVersion(const FilePath& path) const {
    if (!files_.exists(path)) return nullptr;
    return std::make_shared<ItemVersion>(files_, path);
}

void ConflictFileVersions::removeOtherVersions(const FilePath& path) {
    for (const auto& version : unresolvedConflictVersions(path)) version->markResolved();
}

}  // namespace vesk
