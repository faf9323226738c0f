#include "VeskCore/Vault/RecentlyChanged.h"

#include <algorithm>
#include <utility>

namespace vesk::RecentlyChanged {

std::vector<Note> byRecency(std::vector<Note> notes) {
    std::sort(notes.begin(), notes.end(), [](const Note& a, const Note& b) {
        return a.modified != b.modified ? a.modified > b.modified : a.relativePath < b.relativePath;
    });
    return notes;
}

std::vector<Note> pick(const std::vector<Note>& notesByRecency, const std::set<std::string>& hidden,
                       std::size_t most) {
    std::vector<Note> picked;
    for (const Note& note : notesByRecency) {
        if (picked.size() == most) break;
        if (!hidden.contains(note.relativePath)) picked.push_back(note);
    }
    return picked;
}

}  // namespace vesk::RecentlyChanged
