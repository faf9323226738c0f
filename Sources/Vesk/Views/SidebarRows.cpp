#include "Vesk/Views/SidebarRows.h"

#include <algorithm>

#include "Vesk/Views/CharmGlyphs.h"
#include "VeskCore/Support/Text.h"

namespace vesk::views {
namespace {

constexpr std::string_view folderPrefix = "folder:", reminderPrefix = "reminder:", unfiledPrefix = "unfiled:",
                           recentPrefix = "recent:", notePrefix = "note:", documentPrefix = "document:";

std::string rowID(std::string_view prefix, std::string_view path) {
    return std::string(prefix).append(path);
}

SidebarRow header(const char* id, const char* title) {
    return {.kind = SidebarRow::Kind::header, .id = id, .title = title};
}

SidebarRow noteRow(const Workspace& workspace, const Note& note, std::string_view section) {
    const auto& icons = workspace.noteIcons.get();
    SidebarRow row{.kind = SidebarRow::Kind::note,
                   .id = rowID(section, note.relativePath),
                   .path = note.relativePath,
                   .title = decodedText(note.title)};
    if (const auto icon = icons.find(note.relativePath); icon != icons.end()) {
        row.glyph = glyph(icon->second);
        if (row.glyph.empty()) row.icon = "starred-symbolic";
    }
    return row;
}

using Draft = std::optional<std::string>;

void addLevel(Sidebar::Rows& rows, const Workspace& workspace, const VaultTree::Node& node,
              const Draft& draftIn) {
    rows.reserve(rows.size() + node.children.size() + node.notes.size() + 1);
    if (draftIn == node.path)
        rows.push_back({.kind = SidebarRow::Kind::draft,
                        .id = "draft",
                        .title = _("New Folder"),
                        .icon = "folder-symbolic"});
    for (const auto& child : node.children) {
        const auto color = workspace.folderColor(child->path);
        const auto count = child->totalNoteCount();
        rows.push_back({.kind = SidebarRow::Kind::folder,
                        .id = folderRowID(child->path),
                        .path = child->path,
                        .title = decodedText(child->name),
                        .detail = count > 0 ? std::to_string(count) : std::string(),
                        .icon = "folder-symbolic",
                        .color = color ? std::string(rawValue(*color)) : std::string(),
                        .hasChildren = !child->children.empty() || !child->notes.empty() ||
                                       !child->documents.empty() || draftIn == child->path});
    }
    for (const auto& note : node.notes) rows.push_back(noteRow(workspace, note, notePrefix));
    for (const auto& document : node.documents)
        rows.push_back({.kind = SidebarRow::Kind::document,
                        .id = rowID(documentPrefix, document.relativePath),
                        .path = document.relativePath,
                        .title = decodedText(document.fileName()),
                        .icon = "text-x-generic-symbolic"});
}

Sidebar::Rows top(const Workspace& workspace, const SidebarState& state) {
    Sidebar::Rows rows;
    const auto& home = workspace.home.get();
    if (!home.comingUp.empty()) rows.push_back(header("coming-up", _("Coming Up")));
    for (const auto& reminder : home.comingUp)
        rows.push_back({.kind = SidebarRow::Kind::reminder,
                        .id = rowID(reminderPrefix, reminder.path),
                        .path = reminder.path,
                        .title = decodedText(reminder.title),
                        .icon = "alarm-symbolic"});
    const auto& waiting = home.unfiled.candidates;
    if (!waiting.empty()) {
        rows.push_back(header("unfiled", _("Not yet filed")));
        rows.back().detail = std::to_string(waiting.size());
    }
    for (const auto& note : waiting) rows.push_back(noteRow(workspace, note, unfiledPrefix));
    if (!waiting.empty())
        rows.push_back({.kind = SidebarRow::Kind::organise,
                        .id = "organise",
                        .title = _("Organise My Notes…"),
                        .icon = "folder-drag-accept-symbolic",
                        .help = state.canOrganise ? _("Organise My Notes — file these with the AI")
                                                  : _("Set up a provider in AI Settings… to organise")});
    if (!home.recent.empty()) rows.push_back(header("recent", _("Recently Changed")));
    for (const auto& note : home.recent) rows.push_back(noteRow(workspace, note, recentPrefix));
    rows.push_back(header("notes", _("Notes")));
    addLevel(rows, workspace, workspace.tree.get().root(), state.draftIn);
    if (workspace.notes.get().empty())
        rows.push_back({.kind = SidebarRow::Kind::placeholder, .id = "none", .title = _("No notes yet")});
    const auto& trashed = workspace.trashedNotes.get();
    const auto items =
        trashed.size() + static_cast<std::size_t>(std::max(0, workspace.trashedOtherItems.get()));
    if (items > 0) {
        rows.push_back(header("trash-header", ""));
        rows.push_back({.kind = SidebarRow::Kind::trash,
                        .id = "trash",
                        .title = _("Trash"),
                        .detail = std::to_string(items),
                        .icon = "user-trash-symbolic",
                        .hasChildren = !trashed.empty()});
    }
    return rows;
}

}  // namespace

std::string folderRowID(std::string_view folder) {
    return rowID(folderPrefix, folder);
}

std::string highlightedRowID(const Workspace& workspace, const std::string& path,
                             const std::set<std::string>& expanded) {
    std::set<std::string> folders;
    for (const auto& id : expanded)
        if (id.starts_with(folderPrefix)) folders.insert(id.substr(folderPrefix.size()));
    const auto section = workspace.home.get().sectionHighlighting(path, folders);
    if (!section) return rowID(Vault::isDocument(path) ? documentPrefix : notePrefix, path);
    switch (*section) {
        case HomeSections::Section::comingUp:
            return rowID(reminderPrefix, path);
        case HomeSections::Section::unfiled:
            return rowID(unfiledPrefix, path);
        case HomeSections::Section::recent:
            break;
    }
    return rowID(recentPrefix, path);
}

Sidebar::Rows sidebarRows(const Workspace& workspace, const std::string& id, const SidebarState& state) {
    if (id.empty()) return top(workspace, state);
    Sidebar::Rows rows;
    if (id == "trash") {
        for (const auto& note : workspace.trashedNotes.get())
            rows.push_back({.kind = SidebarRow::Kind::trashedNote,
                            .id = "trashed:" + note.trashPath,
                            .path = note.trashPath,
                            .title = decodedText(note.name())});
    } else if (id.starts_with(folderPrefix)) {
        if (const auto* node = workspace.tree.get().node(std::string_view(id).substr(folderPrefix.size())))
            addLevel(rows, workspace, *node, state.draftIn);
    }
    return rows;
}

}  // namespace vesk::views
