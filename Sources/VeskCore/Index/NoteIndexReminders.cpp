// Reminders and flags, read from the properties of all notes.
#include <algorithm>
#include <unordered_set>

#include "VeskCore/Index/NoteIndexImplementation.h"
#include "VeskCore/Support/PathText.h"
#include "VeskCore/Support/Pattern.h"

namespace vesk {

namespace {

constexpr std::string_view reminderRows =
    "SELECT p.note_path, n.title, p.key, p.value_text FROM properties p\n"
    "JOIN notes n ON n.relative_path = p.note_path\n"
    "WHERE p.key IN (?, ?, ?) AND p.value_text IS NOT NULL\n"
    "  AND p.value_kind IN ('string', 'date', 'number', 'bool')\n"
    "ORDER BY p.note_path, p.rowid";
constexpr std::string_view flagRows =
    "SELECT note_path, value_text FROM properties\n"
    "WHERE key = ? AND value_text IS NOT NULL";

/// What one note says; the first value of a key holds.
struct ReminderRow {
    std::string path, title;
    std::optional<std::string> date, repeat, priority;
};

/// The path, without extension, of the note that one is a kept copy of.
std::optional<std::string> originalOfCopy(std::string_view path) {
    static const Pattern keptCopy(R"( \((recovered( \d+)?|conflict from .+)\)( \d+)*$)");
    const auto name = stem(path);
    // Most names have no bracket at all.
    if (name.find(" (") == name.npos) return {};
    const auto groups = keptCopy.firstGroups(name);
    // A name that isn't UTF-8 comes back repaired, with other bytes.
    if (!groups || !name.ends_with(groups->front())) return {};
    return joinedPath(parentFolder(path), name.substr(0, name.size() - groups->front().size()));
}

}  // namespace

std::vector<NoteReminder::Reminder> NoteIndex::reminders(const Calendar& calendar, TimePoint now) const {
    std::vector<ReminderRow> found;
    std::optional<std::unordered_set<std::string>> names;  // paths without extension
    const auto isCopyOfNote = [&](std::string_view path) {
        const auto original = originalOfCopy(path);
        if (!original) return false;
        if (!names) {
            names.emplace();
            for (std::string_view table : {"notes", "pending_notes"}) {
                implementation_->read(
                    "SELECT relative_path FROM " + std::string(table) + " WHERE " +
                        Vault::sqlIsNote("relative_path"),
                    [&](const Row& row) { names->emplace(deletingExtension(row.textView(0))); });
            }
        }
        return names->contains(*original);
    };
    std::vector<NoteReminder::Reminder> result;
    {
        std::lock_guard guard(implementation_->lock);
        implementation_->read(
            reminderRows,
            [&](const Row& row) {
                if (found.empty() || found.back().path != row.textView(0))
                    found.push_back({.path = row.text(0), .title = row.text(1)});
                auto& note = found.back();
                const auto key = row.textView(2);
                auto& value = key == NoteReminder::key         ? note.date
                              : key == NoteReminder::repeatKey ? note.repeat
                                                               : note.priority;
                if (!value) value = row.text(3);
            },
            NoteReminder::key, NoteReminder::repeatKey, NotePriority::key);
        for (auto& note : found) {
            const auto date = note.date ? NoteReminder::date(*note.date, calendar) : std::nullopt;
            if (!date || isCopyOfNote(note.path)) continue;
            result.push_back(
                {.path = std::move(note.path),
                 .title = std::move(note.title),
                 .date = *date,
                 .repeatRule = note.repeat ? NoteReminder::repeatFrom(*note.repeat) : std::nullopt,
                 .flagged = NotePriority::isFlagged(note.priority)});
        }
    }
    std::vector<std::pair<TimePoint, std::size_t>> order;
    for (std::size_t i = 0; i < result.size(); ++i) {
        const auto& it = result[i];
        order.emplace_back(NoteReminder::effectiveDate(it.date, it.repeatRule, now, calendar), i);
    }
    std::sort(order.begin(), order.end(), [&](const auto& left, const auto& right) {
        if (left.first != right.first) return left.first < right.first;
        return result[left.second].path < result[right.second].path;
    });
    std::vector<NoteReminder::Reminder> sorted;
    for (const auto& place : order) sorted.push_back(std::move(result[place.second]));
    return sorted;
}

std::set<std::string> NoteIndex::flaggedNotes() const {
    std::set<std::string> paths;
    implementation_->read(
        flagRows,
        [&](const Row& row) {
            if (NotePriority::isFlagged(row.text(1))) paths.insert(row.text(0));
        },
        NotePriority::key);
    return paths;
}

}  // namespace vesk
