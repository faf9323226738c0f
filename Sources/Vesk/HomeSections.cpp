#include "Vesk/HomeSections.h"

#include <algorithm>

#include "VeskCore/Support/PathText.h"
#include "VeskCore/Vault/RecentlyChanged.h"

namespace vesk {

HomeSections::HomeSections(const std::vector<NoteReminder::Reminder>& reminders,
                           const std::vector<Note>& notesByRecency, const UnfiledNotes& waiting) {
    for (const auto& reminder : reminders) {
        if (comingUp.size() == comingUpLimit) break;
        if (drawn.insert(reminder.path).second) comingUp.push_back(reminder);
    }
    unfiled = waiting.excluding(drawn);
    for (const Note& note : unfiled.candidates) drawn.insert(note.relativePath);
    recent = RecentlyChanged::pick(notesByRecency, drawn);
    for (const Note& note : recent) drawn.insert(note.relativePath);
}

std::optional<HomeSections::Section> HomeSections::section(std::string_view path) const {
    const auto is = [&](const Note& note) { return note.relativePath == path; };
    if (!drawn.contains(std::string(path))) return {};
    if (std::any_of(comingUp.begin(), comingUp.end(), [&](const auto& row) { return row.path == path; }))
        return Section::comingUp;
    if (std::any_of(unfiled.candidates.begin(), unfiled.candidates.end(), is)) return Section::unfiled;
    if (std::any_of(recent.begin(), recent.end(), is)) return Section::recent;
    return {};
}

std::optional<HomeSections::Section> HomeSections::sectionHighlighting(
    std::string_view path, const std::set<std::string>& expandedFolders) const {
    bool isInTree = !parentFolder(path).empty();
    for (auto folder = parentFolder(path); !folder.empty(); folder = parentFolder(folder))
        isInTree = isInTree && expandedFolders.contains(std::string(folder));
    if (isInTree) return {};
    return section(path);
}

}  // namespace vesk
