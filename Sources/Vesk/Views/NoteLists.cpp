#include "Vesk/Views/NoteLists.h"

#include <algorithm>
#include <set>

#include "VeskCore/Support/PathText.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"

namespace vesk::views {
namespace {

constexpr std::size_t mostRecent = 5;

SidebarRow noteRow(const Note& note, std::string_view section) {
    return {.kind = SidebarRow::Kind::note,
            .id = std::string(section) + note.relativePath,
            .path = note.relativePath,
            .title = decodedText(note.title)};
}

SidebarRow header(const char* id, const char* title) {
    return {.kind = SidebarRow::Kind::header, .id = id, .title = title};
}

std::string folderID(std::string_view folder) {
    return folder.empty() ? std::string("notes") : "folder:" + std::string(folder);
}

void sortByTitle(Sidebar::Rows& rows) {
    std::stable_sort(rows.begin(), rows.end(), [](const SidebarRow& a, const SidebarRow& b) {
        const bool aIsFolder = a.kind == SidebarRow::Kind::folder,
                   bIsFolder = b.kind == SidebarRow::Kind::folder;
        if (aIsFolder != bIsFolder) return aIsFolder;
        return localisedStandardCompare(a.title, b.title) < 0;
    });
}

}  // namespace

NoteLists NoteLists::read(const Vault& vault) {
    NoteLists lists;
    std::tie(lists.notes, lists.documents) = vault.enumerateNotesAndDocuments();
    std::tie(lists.trashed, lists.trashedOther) = VaultTrash(vault).trashedNotes();
    std::sort(lists.notes.begin(), lists.notes.end(), [](const Note& a, const Note& b) {
        return a.modified != b.modified ? a.modified > b.modified : a.relativePath < b.relativePath;
    });

    std::map<std::string, int> counts;
    std::set<std::string> folders;
    auto& below = lists.below;
    for (const auto& note : lists.notes) {
        std::string folder(parentFolder(note.relativePath));
        below[folderID(folder)].push_back(noteRow(note, "note:"));
        for (; !folder.empty(); folder = std::string(parentFolder(folder))) {
            folders.insert(folder);
            ++counts[folder];
        }
    }
    for (const auto& folder : folders) {
        below[folderID(parentFolder(folder))].push_back(
            {.kind = SidebarRow::Kind::folder,
             .id = folderID(folder),
             .path = folder,
             .title = decodedText(std::string(lastComponent(folder))),
             .detail = std::to_string(counts[folder]),
             .icon = "folder-symbolic",
             .hasChildren = true});
        lists.folders.push_back(folder);
    }
    for (auto& level : below) sortByTitle(level.second);

    Sidebar::Rows top;
    if (lists.notes.size() > mostRecent) {
        top.push_back(header("recent", "Recently Changed"));
        for (std::size_t index = 0; index < mostRecent; ++index)
            top.push_back(noteRow(lists.notes[index], "recent:"));
    }
    top.push_back(header("notes", "Notes"));
    const auto& root = below["notes"];
    top.insert(top.end(), root.begin(), root.end());
    if (lists.notes.empty())
        top.push_back({.kind = SidebarRow::Kind::placeholder, .id = "none", .title = "No notes yet"});
    if (!lists.documents.empty()) {
        top.push_back(header("documents-header", "Saved Pages"));
        for (const auto& document : lists.documents)
            top.push_back({.kind = SidebarRow::Kind::document,
                           .id = "document:" + document.relativePath,
                           .path = document.relativePath,
                           .title = decodedText(document.fileName()),
                           .icon = "text-html-symbolic"});
    }
    if (!lists.trashed.empty() || lists.trashedOther > 0) {
        top.push_back(header("trash-header", "Trash"));
        top.push_back(
            {.kind = SidebarRow::Kind::trash,
             .id = "trash",
             .title = "Trash",
             .detail = std::to_string(lists.trashed.size() + static_cast<std::size_t>(lists.trashedOther)),
             .icon = "user-trash-symbolic",
             .hasChildren = !lists.trashed.empty()});
        for (const auto& note : lists.trashed)
            below["trash"].push_back({.kind = SidebarRow::Kind::trashedNote,
                                      .id = "trashed:" + note.trashPath,
                                      .path = ".trash/" + note.trashPath,
                                      .title = decodedText(note.name())});
    }
    below[""] = std::move(top);

    std::vector<Completion::Candidate> candidates;
    candidates.reserve(lists.notes.size());
    for (const auto& note : lists.notes)
        candidates.push_back(
            {decodedText(note.title), secondsSince1970(note.modified) > 0
                                          ? static_cast<std::int64_t>(secondsSince1970(note.modified))
                                          : 0});
    lists.names = std::make_shared<const Completion::Candidates>(std::move(candidates));
    return lists;
}

const Note* NoteLists::note(const std::string& path) const {
    const auto found = std::find_if(notes.begin(), notes.end(),
                                    [&](const Note& candidate) { return candidate.relativePath == path; });
    return found == notes.end() ? nullptr : &*found;
}

}  // namespace vesk::views
