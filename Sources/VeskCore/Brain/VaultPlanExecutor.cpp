#include "VeskCore/Brain/VaultPlanExecutor.h"

#include <algorithm>
#include <cerrno>

#include "VeskCore/Brain/PlanCensus.h"
#include "VeskCore/Brain/PlanPaths.h"
#include "VeskCore/Brain/VaultPlanner.h"
#include "VeskCore/Markdown/FrontmatterDoc.h"
#include "VeskCore/Reminders/NoteReminder.h"
#include "VeskCore/Support/Localised.h"
#include "VeskCore/Support/Match.h"
#include "VeskCore/Support/PathText.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"
#include "VeskCore/Vault/AtomicWrite.h"

namespace vesk::VaultPlanExecutor {

namespace {

using Op = VaultOperation;
/// Why an operation can't be done; none if it can.
using Blocked = std::optional<std::string>;

std::string missingNote(std::string_view path) {
    return localised("The note {} doesn't exist.", path);
}

std::string nameTaken(std::string_view path) {
    return localised("A note is already called {}.", path);
}

std::string unreadable(std::string_view path) {
    return localised("Vesk couldn't read {} to show what would change.", path);
}

using PlanPaths::counted;

bool isRemoved(const FrontmatterDoc& doc, std::string_view key) {
    return !doc[key].has_value();
}

/// Names that read back as themselves in a line of their own.
bool canBeKey(const std::string& key) {
    const auto slots = FrontmatterDoc::parseSlots({key + ": x"});
    const auto* entry = slots.empty() ? nullptr : std::get_if<FrontmatterDoc::Entry>(&slots.front().value);
    return key.find_first_of("\r\n") == std::string::npos && entry && entry->key == key &&
           entry->value == YAMLValue::string("x");
}

/// What a plan's text is as a value: never anything that could reach beyond its own key.
YAMLValue yamlValue(std::string_view key, std::string_view value) {
    if (value.find_first_of("\r\n") != value.npos) return YAMLValue::string(value);
    if ((key == "tags" || key == "tag" || key == "aliases") && value.find(',') != value.npos) {
        std::vector<YAMLValue> items;
        for (const auto part : split(trimCharacters(trim(value), "[]"), ',')) {
            if (!trim(part).empty()) items.push_back(YAMLValue::string(trim(part)));
        }
        return YAMLValue::list(std::move(items));
    }
    auto parsed = YAMLScalar::parse(value);
    return std::holds_alternative<YAMLValue::Raw>(parsed.value) ? YAMLValue::string(value) : parsed;
}

/// Walks a plan, keeping the census as each operation would leave it.
class Validation {
public:
    Validation(const VaultPlan& plan, const Vault& vault, const std::optional<std::string>& limitToNote,
               const std::vector<std::string>& forbiddenFolders)
        : plan_(plan), vault_(vault), census_(vault), limit_(limitToNote) {
        for (const auto& folder : forbiddenFolders) {
            if (auto clean = VaultPlanner::normaliseFolder(folder); !clean.empty()) {
                forbidden_.push_back(std::move(clean));
            }
        }
    }

    std::vector<Preview> previews() {
        std::vector<Preview> made;
        for (std::size_t i = 0; i < plan_.operations.size(); ++i) {
            made.push_back(preview(static_cast<int>(i), plan_.operations[i]));
        }
        return made;
    }

private:
    Preview preview(int id, const VaultOperation& operation) {
        Preview made{.id = id,
                     .operation = operation,
                     .description = operation.describedForReview(),
                     .before = {},
                     .after = {},
                     .issue = {},
                     .annotation = annotation(operation)};
        if (made.annotation)
            for (auto& alternative : made.annotation->alternatives) judge(alternative, id);
        if (auto blocked = judge(operation, made)) made.issue = issue(id, std::move(*blocked));
        return made;
    }

    Blocked judge(const VaultOperation& operation, Preview& made) {
        if (auto blocked = lexicallyBlocked(operation)) return blocked;
        made.operation = spelled(operation);
        made.description = made.operation.describedForReview();
        return match(made.operation, [&](const auto& it) { return check(it, made); });
    }

    /// As if the move stood in the place of the operation that it is another choice for.
    void judge(PlanAnnotation::Alternative& alternative, int id) {
        Preview made{.id = id,
                     .operation = alternative.operation,
                     .description = {},
                     .before = {},
                     .after = {},
                     .issue = {},
                     .annotation = {}};
        const auto limit = limit_;
        const auto blocked = judge(alternative.operation, made);
        if (blocked) alternative.issue = issue(id, *blocked);
        limit_ = limit;
        alternative.operation = made.operation;
        const auto* move = std::get_if<Op::RenameNote>(&made.operation.value);
        if (move && !blocked) census_.moveNote(move->to, move->from);
    }

    static PlanIssue issue(int id, std::string blocked) {
        return {
            .severity = PlanIssue::Severity::blocking, .operationIndex = id, .message = std::move(blocked)};
    }

    std::optional<PlanAnnotation> annotation(const VaultOperation& operation) const {
        for (const auto& path : operation.notePaths()) {
            const auto found = plan_.annotations.find(path);
            if (found != plan_.annotations.end()) return found->second;
        }
        return std::nullopt;
    }

    // What the paths alone tell

    Blocked lexicallyBlocked(const VaultOperation& operation) const {
        for (const auto& path : operation.notePaths()) {
            if (auto reason = PlanPaths::unsafeNote(path)) return reason;
        }
        if (auto reason = outsideLimit(operation)) return reason;
        for (const auto& path : operation.notePaths()) {
            if (auto reason = forbidden(path)) return reason;
        }
        for (const auto& folder : PlanPaths::folders(operation)) {
            if (auto reason = PlanPaths::unsafeFolder(folder)) return reason;
            if (auto reason = forbidden(folder)) return reason;
        }
        return std::nullopt;
    }

    Blocked outsideLimit(const VaultOperation& operation) const {
        if (!limit_) return std::nullopt;
        const auto paths = operation.notePaths();
        if (paths.empty()) {
            return localised(
                "Folder changes can affect notes this conversation never saw — use Whole vault scope.");
        }
        // Where a rename leads is no other note.
        if (canonicallyEqual(PlanPaths::clean(paths.front()), *limit_)) return std::nullopt;
        return localised("This conversation was about one note — use Whole vault scope to change others.");
    }

    Blocked forbidden(std::string_view path) const {
        for (const auto& folder : forbidden_) {
            if (isAtOrBelow(caseFolded(PlanPaths::clean(path)), caseFolded(folder))) {
                return localised("{} is in {}/, which Vesk leaves alone.", path, folder);
            }
        }
        return std::nullopt;
    }

    VaultOperation spelled(const VaultOperation& operation) const {
        const auto at = [&](const std::string& path) { return census_.spelled(PlanPaths::clean(path)); };
        return PlanPaths::mapped(operation, at);
    }

    /// A link that leads elsewhere is no place of this vault.
    Blocked leadsOutside(std::string_view path) const {
        if (!vault_.leadsOutside(path)) return std::nullopt;
        return PlanPaths::outside(path);
    }

    /// A file is no folder that something could go into.
    Blocked belowFile(std::string_view path) const {
        const auto file = census_.fileAbove(path);
        if (!file) return std::nullopt;
        return census_.note(*file) ? nameTaken(*file) : localised("\"{}\" isn't a folder.", *file);
    }

    // What the vault tells

    Blocked check(const Op::CreateNote& it, Preview& preview) {
        if (census_.isTaken(it.path)) {
            return localised("{} already exists — Vesk won't overwrite it with a new note.", it.path);
        }
        if (auto reason = PlanPaths::notANote(it.path)) return reason;
        if (auto reason = leadsOutside(it.path)) return reason;
        if (auto reason = belowFile(it.path)) return reason;
        preview.after = it.content;
        census_.addNote(it.path, it.content);
        return std::nullopt;
    }

    Blocked check(const Op::UpdateNote& it, Preview& preview) {
        if (auto reason = read(it.path, preview)) return reason;
        preview.after = it.content;
        census_.setText(it.path, it.content);
        return std::nullopt;
    }

    Blocked check(const Op::RenameNote& it, Preview& preview) {
        const auto* note = census_.note(it.from);
        if (!note) return missingNote(it.from);
        if (it.from == it.to || census_.isTaken(it.to, it.from)) return nameTaken(it.to);
        if (auto reason = PlanPaths::notANote(it.to)) return reason;
        if (auto reason = leadsOutside(parentFolder(it.to))) return PlanPaths::outside(it.to);
        if (auto reason = belowFile(it.to)) return reason;
        preview.before = it.from;
        preview.after = it.to;
        if (limit_ && canonicallyEqual(*limit_, it.from)) limit_ = it.to;
        census_.moveNote(it.from, it.to);
        return std::nullopt;
    }

    Blocked check(const Op::SetProperty& it, Preview& preview) {
        if (auto reason = read(it.path, preview)) return reason;
        auto set = setting(it.key, it.value, *preview.before);
        if (!set.text) return set.refusal;
        return change(it.path, std::move(*set.text),
                      localised("{} already has {} set to that.", it.path, it.key), preview);
    }

    Blocked check(const Op::RemoveProperty& it, Preview& preview) {
        if (auto reason = read(it.path, preview)) return reason;
        return change(it.path, removing(it.key, *preview.before),
                      localised("{} has no {} to remove.", it.path, it.key), preview);
    }

    Blocked check(const Op::TrashNote& it, Preview& preview) {
        if (!census_.note(it.path)) return missingNote(it.path);
        read(it.path, preview);  // what can't be shown can go all the same
        census_.removeNote(it.path);
        return std::nullopt;
    }

    Blocked check(const Op::CreateFolder& it, Preview&) {
        if (census_.isTaken(it.path)) return localised("{}/ already exists.", it.path);
        if (auto reason = leadsOutside(it.path)) return reason;
        if (auto reason = belowFile(it.path)) return reason;
        census_.addFolder(it.path);
        return std::nullopt;
    }

    Blocked check(const Op::RenameFolder& it, Preview& preview) {
        if (!census_.isFolder(it.from)) return noFolder(it.from);
        if (it.to == it.from) return localised("{}/ is already called that.", it.from);
        if (isAtOrBelow(it.to, it.from)) return localised("{}/ can't be moved inside itself.", it.from);
        if (census_.note(it.to)) return nameTaken(it.to);
        if (census_.isTaken(it.to, it.from)) return localised("{}/ already exists.", it.to);
        if (auto reason = leadsOutside(parentFolder(it.to))) return PlanPaths::outside(it.to);
        if (auto reason = belowFile(it.to)) return reason;
        if (auto reason = holdsDocuments(it.from)) return reason;
        const auto notes = census_.notesUnder(it.from);
        const auto others = census_.otherFilesUnder(it.from);
        std::vector<std::string> moved;
        for (const auto& note : notes) moved.push_back(remapped(note, it.from, it.to));
        preview.before = PlanPaths::listed(notes);
        preview.after = PlanPaths::listed(moved);
        if (others > 0) {
            *preview.after += localised("\n({} move with it)", counted(others, "other file"));
        }
        census_.moveFolder(it.from, it.to);
        return std::nullopt;
    }

    Blocked check(const Op::TrashFolder& it, Preview& preview) {
        if (!census_.isFolder(it.path)) return noFolder(it.path);
        if (auto reason = holdsDocuments(it.path)) return reason;
        const auto notes = census_.notesUnder(it.path);
        const auto others = census_.otherFilesUnder(it.path);
        std::vector<std::string> parts;
        if (!notes.empty()) parts.push_back(counted(notes.size(), "note"));
        if (others > 0) parts.push_back(counted(others, "other file"));
        preview.description = parts.empty()
                                  ? localised("Move the empty folder {}/ to the vault's trash", it.path)
                                  : localised("Move the folder {}/ and its {} to the vault's trash", it.path,
                                              join(parts, " and "));
        preview.before = PlanPaths::listed(notes);
        if (others > 0) *preview.before += "\n" + PlanPaths::otherFiles(others);
        preview.after = "(moved to .trash)";
        census_.removeFolder(it.path);
        return std::nullopt;
    }

    static std::string noFolder(std::string_view path) {
        return localised("There's no folder called {}.", path);
    }

    Blocked holdsDocuments(std::string_view folder) const {
        if (!census_.holdsDocuments(folder)) return std::nullopt;
        return std::string(PlanPaths::holdsPages);
    }

    /// The text that the note will hold by then goes into `before`.
    Blocked read(const std::string& path, Preview& preview) const {
        const auto* note = census_.note(path);
        if (!note) return missingNote(path);
        if (note->text) {
            preview.before = note->text;
            return std::nullopt;
        }
        if (auto reason = leadsOutside(*note->onDisk)) return reason;
        try {
            preview.before = CoordinatedIO::read(vault_.absolutePath(*note->onDisk));
        } catch (const Error&) {  // told below
        }
        if (!preview.before) return unreadable(path);
        return std::nullopt;
    }

    Blocked change(const std::string& path, std::string text, std::string unchanged, Preview& preview) {
        census_.setText(path, text);
        preview.before = FrontmatterDoc(*preview.before).serialized();
        preview.after = FrontmatterDoc(text).serialized();
        if (preview.before == preview.after) {
            preview.issue = PlanIssue{.severity = PlanIssue::Severity::warning,
                                      .operationIndex = preview.id,
                                      .message = std::move(unchanged)};
        }
        return std::nullopt;
    }

    const VaultPlan& plan_;
    const Vault& vault_;
    PlanCensus census_;
    std::optional<std::string> limit_;
    std::vector<std::string> forbidden_;
};

}  // namespace

Preview Preview::switchingTo(VaultOperation other, std::optional<PlanIssue> itsIssue) const {
    Preview switched = *this;
    switched.operation = std::move(other);
    switched.description = switched.operation.describedForReview();
    if (const auto* rename = std::get_if<Op::RenameNote>(&switched.operation.value)) {
        switched.before = rename->from;
        switched.after = rename->to;
    }
    switched.issue = std::move(itsIssue);
    return switched;
}

std::string Report::summary() const {
    auto text = localised("{} applied", applied.size());
    if (!skipped.empty()) text += localised(" · {} skipped", skipped.size());
    if (!failed.empty()) text += localised(" · {} failed", failed.size());
    return text;
}

std::vector<Preview> validate(const VaultPlan& plan, const Vault& vault,
                              const std::optional<std::string>& limitToNote,
                              const std::vector<std::string>& forbiddenFolders) {
    return Validation(plan, vault, limitToNote, forbiddenFolders).previews();
}

Setting setting(std::string_view key, std::string_view value, std::string_view text) {
    // A wall-clock time is the same in every zone; this one has no gaps that would move it.
    const Calendar calendar;
    FrontmatterDoc doc(text);
    if (key == NoteReminder::key) {
        const auto date = NoteReminder::date(value, calendar);
        if (!date) {
            return {.text = {},
                    .refusal = localised("“{}” isn't a time Vesk can read for a reminder, such as "
                                         "2026-09-18T09:00.",
                                         value)};
        }
        return {.text = NoteReminder::setting(date, text, calendar), .refusal = {}};
    }
    if (key == NoteReminder::repeatKey) {
        const auto repeat = NoteReminder::repeatFrom(value);
        if (!repeat) {
            return {.text = {},
                    .refusal = localised("Vesk repeats daily, weekdays, weekly, monthly or yearly, not “{}”.",
                                         value)};
        }
        if (isRemoved(doc, NoteReminder::key)) {
            return {.text = {}, .refusal = localised("That note has no reminder to repeat.")};
        }
        doc.set(key, YAMLValue::string(rawValue(*repeat)));
        return {.text = doc.serialized(), .refusal = {}};
    }
    if (!canBeKey(std::string(key))) {
        return {.text = {}, .refusal = localised("“{}” can't be a property's name.", key)};
    }
    doc.set(key, yamlValue(key, value));
    return {.text = doc.serialized(), .refusal = {}};
}

std::string removing(std::string_view key, std::string_view text) {
    FrontmatterDoc doc(text);
    if (isRemoved(doc, key)) return std::string(text);
    if (key == NoteReminder::key) return NoteReminder::setting(std::nullopt, text, Calendar());
    doc.remove(key);
    return doc.serialized();
}

std::string remapped(std::string_view path, std::string_view from, std::string_view to) {
    if (path == from) return std::string(to);
    if (!isAtOrBelow(path, from)) return std::string(path);
    return joinedPath(to, path.substr(from.empty() ? 0 : from.size() + 1));
}

}  // namespace vesk::VaultPlanExecutor
