// What a vault holds, by walks over its folder.
#include <functional>
#include <unordered_set>

#include "VeskCore/Platform/FilePlatform.h"
#include "VeskCore/Support/Localised.h"
#include "VeskCore/Support/PathText.h"
#include "VeskCore/Support/Pattern.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"
#include "VeskCore/Vault/ForeignEdit.h"
#include "VeskCore/Vault/UbiquityStatus.h"
#include "VeskCore/Vault/Vault.h"

namespace vesk {

namespace {

using NameSet = std::unordered_set<std::string>;

const FileSystem& files() {
    return *FilePlatform::current().files;
}

bool contains(std::string_view text, std::string_view part) {
    return text.find(part) != text.npos;
}

/// A file met by a walk. A stub stands for the file it names.
struct FoundFile {
    const WalkEntry& entry;
    std::string relativePath;
    bool isStub = false;

    std::string_view name() const { return lastComponent(relativePath); }
    /// None unless it is a regular file, or a link to one.
    std::optional<FileInfo> regularInfo() const {
        auto info = entry.info();
        if (!info || info->kind != FileKind::regular) return {};
        return info;
    }
};

/// Every file that isn't hidden or in a hidden or ignored folder, with the stubs of an iCloud vault under the
/// names that they stand for.
template <class Visit>
void visitFiles(const Vault& vault, Visit visit) {
    const bool hasStubs = vault.provider() == SyncProvider::iCloudDrive;
    files().walk(vault.root(), [&](const WalkEntry& entry) {
        const std::string_view name = entry.name();
        const bool isHidden = name.starts_with('.');
        if (entry.isDirectory()) {
            return isHidden || Vault::ignoredDirectories().contains(name) ? WalkStep::skip
                                                                          : WalkStep::descend;
        }
        if (!isHidden) {
            visit(FoundFile{entry, std::string(entry.relativePath()), false});
        } else if (hasStubs) {
            if (const auto logical = UbiquityStatus::logicalName(name)) {
                visit(FoundFile{entry, joinedPath(parentFolder(entry.relativePath()), *logical), true});
            }
        }
        return WalkStep::descend;
    });
}

/// Every note file outside hidden folders, hidden files left out. Ends when `visit` answers false.
template <class Visit>
void visitVisibleNotes(const Vault& vault, Visit visit) {
    files().walk(vault.root(), [&](const WalkEntry& entry) {
        const std::string_view name = entry.name();
        if (name.starts_with('.')) return WalkStep::skip;
        if (entry.isDirectory() || Vault::indexedKind(name) != IndexedKind::note) return WalkStep::descend;
        return visit(entry) ? WalkStep::descend : WalkStep::stop;
    });
}

/// Items of one kind in the order of the walk: the stubs without a real item first.
template <class Item>
class Gathered {
public:
    void add(Item item, bool isStub) { (isStub ? stubs_ : real_).push_back(std::move(item)); }
    std::vector<Item> take() {
        if (stubs_.empty()) return std::move(real_);
        NameSet held;
        for (const Item& item : real_) held.insert(item.relativePath);
        std::vector<Item> all;
        for (Item& item : stubs_) {
            if (!held.contains(item.relativePath)) all.push_back(std::move(item));
        }
        for (Item& item : real_) all.push_back(std::move(item));
        return all;
    }

private:
    std::vector<Item> stubs_, real_;
};

void addNote(Gathered<Note>& notes, const Vault& vault, const FoundFile& file) {
    const auto info = file.regularInfo();
    if (!info) return;
    Note note{
        .relativePath = file.relativePath,
        .path = vault.absolutePath(file.relativePath),
        .title = decodedText(std::string(stem(file.name()))),
        .modified = info->modified,
        .created = info->created,
        .size = static_cast<std::int64_t>(info->size),
    };
    notes.add(std::move(note), file.isStub);
}

bool isInFolderOfPage(std::string_view path, const NameSet& pages) {
    for (const auto& [parent, pageStem] : Vault::savedPageFolders(path)) {
        const std::string page = joinedPath(parent, pageStem);
        if (pages.contains(page + ".html") || pages.contains(page + ".htm")) return true;
    }
    return false;
}

/// Saved pages and stylesheets; each note file is handed to `noteFound`.
std::vector<VaultDocument> documentsOf(const Vault& vault,
                                       const std::function<void(const FoundFile&)>& noteFound) {
    Gathered<VaultDocument> gathered;
    NameSet pages;
    visitFiles(vault, [&](const FoundFile& file) {
        const auto kind = Vault::indexedKind(file.name());
        if (!kind) return;
        if (kind == IndexedKind::note) return noteFound(file);
        const auto info = file.regularInfo();
        if (!info) return;
        if (kind == IndexedKind::page) pages.insert(file.relativePath);
        VaultDocument document{
            .relativePath = file.relativePath,
            .path = vault.absolutePath(file.relativePath),
            .kind = *kind,
            .modified = info->modified,
            .size = static_cast<std::int64_t>(info->size),
        };
        gathered.add(std::move(document), file.isStub);
    });
    // By what was found rather than by the disk: a page still in the cloud keeps its folder out as well.
    std::vector<VaultDocument> documents = gathered.take();
    std::erase_if(documents, [&](const VaultDocument& document) {
        return isInFolderOfPage(document.relativePath, pages);
    });
    return documents;
}

bool looksLikeConflictCopy(const std::string& name) {
    static const Pattern numbered("\\s\\d+$");
    const std::string text = decodedText(std::string(stem(name)));
    return numbered.occursIn(text) || contains(lowercased(text), "conflicted copy") ||
           contains(text, "sync-conflict") || contains(text, ForeignEdit::conflictMarker);
}

}  // namespace

std::vector<Note> Vault::enumerateNotes() const {
    Gathered<Note> notes;
    visitFiles(*this, [&](const FoundFile& file) {
        if (indexedKind(file.name()) == IndexedKind::note) addNote(notes, *this, file);
    });
    return notes.take();
}

std::pair<std::vector<Note>, std::vector<VaultDocument>> Vault::enumerateNotesAndDocuments() const {
    Gathered<Note> notes;
    auto documents = documentsOf(*this, [&](const FoundFile& file) { addNote(notes, *this, file); });
    return {notes.take(), std::move(documents)};
}

std::vector<VaultDocument> Vault::enumerateDocuments() const {
    return documentsOf(*this, [](const FoundFile&) {});
}

std::vector<std::string> Vault::enumerateAttachments() const {
    std::vector<std::string> attachments;
    NameSet pages;
    visitFiles(*this, [&](const FoundFile& file) {
        if (indexedKind(file.name()) == IndexedKind::page) {
            if (file.regularInfo()) pages.insert(file.relativePath);
        } else if (!file.isStub && attachmentExtensions().contains(lowercasedExtension(file.name()))) {
            if (file.regularInfo()) attachments.push_back(file.relativePath);
        }
    });
    std::erase_if(attachments, [&](const std::string& path) { return isInFolderOfPage(path, pages); });
    return attachments;
}

std::vector<VaultWarning> Vault::diagnose() const {
    using Severity = VaultWarning::Severity;
    const std::string rootText = decodedText(root_.native());
    if (!files().exists(root_)) {
        return {{.code = "missing",
                 .title = localised("Vault folder is missing"),
                 .detail = localised("{} no longer exists.", rootText),
                 .severity = Severity::critical}};
    }
    std::vector<VaultWarning> warnings;
    if (!files().isWritable(root_)) {
        warnings.push_back({.code = "readonly",
                            .title = localised("Vault is read-only"),
                            .detail = localised("Vesk can't save changes to {}.", lastComponent(rootText)),
                            .severity = Severity::critical});
    }
    if (provider_ != SyncProvider::none && files().linkInfo(root_ / ".git")) {
        warnings.push_back(
            {.code = "double-sync",
             .title = localised("Two sync systems on one folder"),
             .detail =
                 localised("This vault is in {} and is also a Git repository. If both write at once, edits "
                           "can be lost. Consider one or the other.",
                           localised(displayName(provider_))),
             .severity = Severity::warning});
    }
    if (provider_ == SyncProvider::iCloudDrive && countEvicted(1) >= 1) {
        warnings.push_back(
            {.code = "evicted",
             .title = localised("Some notes aren't downloaded"),
             .detail =
                 localised("iCloud has moved the contents of some notes off this Mac (\"Optimize Mac "
                           "Storage\"). Vesk will download them on demand, but search and the graph stay "
                           "incomplete until it does."),
             .severity = Severity::warning});
    }
    if (const auto conflicts = conflictFiles(); !conflicts.empty()) {
        warnings.push_back(
            {.code = "conflicts",
             .title = localisedCount("{} possible conflict copy", "{} possible conflict copies",
                                     conflicts.size(), conflicts.size()),
             .detail = localised(
                 "Files like \"{}\" look like sync conflicts. Vesk can show you the differences and "
                 "let you merge or delete them.",
                 decodedText(conflicts.front().filename().native())),
             .severity = Severity::info});
    }
    return warnings;
}

std::vector<FilePath> Vault::conflictFiles() const {
    std::vector<FilePath> found;
    visitVisibleNotes(*this, [&](const WalkEntry& entry) {
        if (!looksLikeConflictCopy(std::string(entry.name()))) return true;
        const auto info = entry.info();
        if (info && info->kind == FileKind::regular) found.push_back(absolutePath(entry.relativePath()));
        return true;
    });
    return found;
}

int Vault::countEvicted(int limit) const {
    int count = 0;
    if (limit <= 0) return count;
    visitVisibleNotes(*this, [&](const WalkEntry& entry) {
        if (UbiquityStatus::of(absolutePath(entry.relativePath())) == UbiquityState::placeholder) ++count;
        return count < limit;
    });
    return count;
}

std::vector<std::string> Vault::emptyFolderPaths() const {
    std::vector<std::string> folders;
    files().walk(root_, [&](const WalkEntry& entry) {
        if (!entry.isDirectory()) return WalkStep::descend;
        if (entry.name().starts_with('.') || ignoredDirectories().contains(entry.name()))
            return WalkStep::skip;
        folders.emplace_back(entry.relativePath());
        return WalkStep::descend;
    });
    return folders;
}

}  // namespace vesk
