// Carrying out the operations that were ticked, each looked at once more.
#include <cerrno>
#include <map>
#include <set>
#include <utility>

#include "VeskCore/Brain/PlanPaths.h"
#include "VeskCore/Brain/VaultPlanExecutor.h"
#include "VeskCore/Markdown/FrontmatterDoc.h"
#include "VeskCore/Platform/FilePlatform.h"
#include "VeskCore/Platform/TrashFormat.h"
#include "VeskCore/Support/Localised.h"
#include "VeskCore/Support/Match.h"
#include "VeskCore/Support/PathText.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"
#include "VeskCore/Vault/AtomicWrite.h"
#include "VeskCore/Vault/VaultTrash.h"

namespace vesk::VaultPlanExecutor {

namespace {

using Op = VaultOperation;
using Disk = ForeignEdit::Disk;

FileSystem& files() {
    return *FilePlatform::current().files;
}

/// The vault moved on: the operation is left, and the run goes on.
class Skip : public Error {
public:
    explicit Skip(std::string words) : reason(std::move(words)) {}
    std::string description() const override { return reason; }
    std::string reason;
};

/// The operation can't be done.
class Failure : public Error {
public:
    explicit Failure(std::string words) : reason(std::move(words)) {}
    std::string description() const override { return reason; }
    std::string reason;
};

std::string changedMeanwhile(std::string_view path) {
    return localised("{} changed while you were reviewing — ask again for a fresh proposal", path);
}

class Run {
public:
    Run(const Vault& vault, const Write& write) : vault_(vault), write_(write) {}

    Report apply(const std::vector<Preview>& previews) && {
        for (const auto& preview : previews) {
            if (preview.isBlocked()) {
                report_.skipped.push_back({preview.description, preview.issue->message});
                continue;
            }
            try {
                requireSafe(preview.operation);
                match(preview.operation, [&](const auto& it) { perform(it, preview); });
                report_.applied.push_back(preview.description);
            } catch (const Skip& skip) {
                report_.skipped.push_back({preview.description, skip.reason});
            } catch (const std::exception&) {
                report_.failed.push_back({preview.description, describe(std::current_exception())});
            }
        }
        return std::move(report_);
    }

private:
    void requireSafe(const VaultOperation& operation) const {
        for (const auto& path : operation.notePaths()) {
            if (auto reason = PlanPaths::unsafeNote(path)) throw Failure(*reason);
            requireReachedInside(path);
        }
        for (const auto& path : PlanPaths::folders(operation)) {
            if (auto reason = PlanPaths::unsafeFolder(path)) throw Failure(*reason);
            requireReachedInside(path);
        }
    }
    /// A folder above may have become a link during the review: then not even the looking happens.
    void requireReachedInside(std::string_view path) const {
        if (vault_.leadsOutside(parentFolder(path))) throw Failure(PlanPaths::outside(path));
    }
    /// No link may lead from where something is written or moved out of the vault.
    void requireInside(std::string_view path) const {
        if (vault_.leadsOutside(path)) throw Failure(PlanPaths::outside(path));
    }

    // Looking

    FilePath at(std::string_view path) const { return vault_.absolutePath(path); }

    bool isThere(std::string_view path) const { return vault_.isNameTaken(at(path)); }

    bool isFolder(std::string_view path) const {
        const auto info = files().linkInfo(at(path));
        return info && info->kind == FileKind::directory;
    }

    /// Something has the name, or one that another device may take for it. `besides` is the item that is to
    /// get it.
    bool isTaken(std::string_view path, std::string_view besides = {}) const {
        if (isThere(path) && (besides.empty() || !Vault::isSameItem(at(path), at(besides)))) return true;
        const auto wanted = lastComponent(path);
        try {
            for (const auto& name : files().list(at(parentFolder(path)))) {
                if (isSameName(name, wanted) && joinedPath(parentFolder(path), name) != besides) return true;
            }
        } catch (const Error&) {  // no such folder yet
        }
        return false;
    }
    static bool isSameName(const std::string& name, std::string_view wanted) {
        if (isAscii(name) && isAscii(wanted)) return asciiEqualsIgnoringCase(name, wanted);
        return equalsIgnoringCase(decodedText(name), wanted);
    }

    std::vector<std::string> notePaths(std::string_view folder) const {
        std::vector<std::string> paths;
        for (const auto& note : vault_.enumerateNotes()) {
            if (isAtOrBelow(note.relativePath, folder)) paths.push_back(note.relativePath);
        }
        return paths;
    }

    /// How many files a folder holds that are neither hidden nor notes. One with pages is left alone.
    std::size_t otherFiles(std::string_view folder) const {
        std::size_t count = 0;
        bool hasPages = false;
        files().walk(at(folder), [&](const WalkEntry& entry) {
            const auto name = entry.name();
            if (entry.isDirectory()) {
                const bool isSeen = !name.starts_with('.') && !Vault::ignoredDirectories().contains(name);
                return isSeen ? WalkStep::descend : WalkStep::skip;
            }
            hasPages = Vault::isDocument(name);
            if (!name.starts_with('.') && Vault::indexedKind(name) != IndexedKind::note) ++count;
            return hasPages ? WalkStep::stop : WalkStep::descend;
        });
        if (hasPages) throw Skip(std::string(PlanPaths::holdsPages));
        return count;
    }

    /// A folder that took a note's name is no note.
    bool isNoteThere(std::string_view path) const { return isThere(path) && !isFolder(path); }

    /// The note's text now.
    std::string currentText(const Preview& preview, const std::string& path) const {
        if (!preview.before) throw Failure(localised("couldn't read {} to check it hasn't changed", path));
        std::optional<std::string> text;
        try {
            text = CoordinatedIO::readForSave(at(path));
        } catch (const VaultWriteError& error) {
            if (error.kind != VaultWriteError::Kind::notMaterialised &&
                error.kind != VaultWriteError::Kind::notCurrent) {
                throw Failure(path + ": " + error.description());
            }
            throw Skip(localised(
                "a newer version of {} is still downloading from iCloud — ask again once it has arrived",
                path));
        } catch (const Error& error) {
            throw Failure(path + ": " + error.description());
        }
        if (!text) throw Skip(changedMeanwhile(path));
        return *text;
    }

    // Doing

    void createParents(std::string_view path) const {
        requireInside(path);
        files().createDirectories(at(parentFolder(path)));
    }

    /// Only over what was looked at.
    void writeOver(const std::string& text, const std::string& path, const Disk& expected,
                   const std::string& otherwise) const {
        requireInside(path);
        try {
            write_(text, at(path), expected);
        } catch (const ForeignEdit::DiskChangedMeanwhile&) {
            throw Skip(otherwise);
        }
    }

    void perform(const Op::CreateNote& it, const Preview&) const {
        constexpr auto appeared = "it appeared while you were reviewing";
        createParents(it.path);
        if (isTaken(it.path)) throw Skip(appeared);
        writeOver(it.content, it.path, {Disk::Plain::gone}, appeared);
    }

    void perform(const Op::UpdateNote& it, const Preview& preview) const {
        const auto current = currentText(preview, it.path);
        if (current != *preview.before) throw Skip(changedMeanwhile(it.path));
        writeOver(it.content, it.path, {Disk::Text{current}}, changedMeanwhile(it.path));
    }

    void perform(const Op::SetProperty& it, const Preview& preview) const {
        const auto current = unchangedText(preview, it.path);
        const auto set = setting(it.key, it.value, current);
        if (!set.text) throw Skip("couldn't read the note to change it");
        writeChange(current, *set.text, it.path);
    }

    void perform(const Op::RemoveProperty& it, const Preview& preview) const {
        const auto current = unchangedText(preview, it.path);
        writeChange(current, removing(it.key, current), it.path);
    }

    std::string unchangedText(const Preview& preview, const std::string& path) const {
        auto current = currentText(preview, path);
        if (FrontmatterDoc(current).serialized() != *preview.before) throw Skip(changedMeanwhile(path));
        return current;
    }
    void writeChange(const std::string& current, const std::string& text, const std::string& path) const {
        if (text != current) writeOver(text, path, {Disk::Text{current}}, changedMeanwhile(path));
    }

    void perform(const Op::RenameNote& it, const Preview&) {
        const auto from = at(it.from), to = at(it.to);
        if (!isNoteThere(it.from)) {
            if (isThere(it.from) || !isNoteThere(it.to)) throw Skip(noLongerThere(it.from));
            // Another device, or the user, moved it there already; who saw that move told of it then.
            recordRename(it.from, it.to);
            return;
        }
        vault_.requireMaterialisedForMove(from);
        createParents(it.to);
        if (isTaken(it.to, it.from)) throw Skip(localised("{} now exists", it.to));
        moveUnlessTaken(from, to, localised("{} now exists", it.to));
        recordMove(it.from, it.to);
    }

    static void moveUnlessTaken(const FilePath& from, const FilePath& to, const std::string& otherwise) {
        try {
            CoordinatedIO::move(from, to);
        } catch (const SystemError& error) {
            if (error.code != EEXIST && error.code != ENOTEMPTY) throw;
            throw Skip(otherwise);
        }
    }

    static std::string noLongerThere(std::string_view path) {
        return localised("{} is no longer there", path);
    }

    void perform(const Op::TrashNote& it, const Preview&) {
        if (!isNoteThere(it.path)) throw Skip(noLongerThere(it.path));
        requireInside(trashFolderName);
        VaultTrash(vault_).trashNote(it.path);
        recordRemoval(it.path);
    }

    void perform(const Op::CreateFolder& it, const Preview&) const {
        if (isFolder(it.path)) throw Skip("it already exists");
        if (isThere(it.path)) throw Skip("a file is already called that");
        requireInside(it.path);
        files().createDirectories(at(it.path));
    }

    void perform(const Op::RenameFolder& it, const Preview&) {
        if (!isFolder(it.from)) throw Skip(noLongerThere(it.from + "/"));
        const auto taken = localised("{}/ now exists", it.to);
        if (isTaken(it.to, it.from)) throw Skip(taken);
        otherFiles(it.from);
        const auto notes = notePaths(it.from);
        createParents(it.to);
        moveUnlessTaken(at(it.from), at(it.to), taken);
        for (const auto& note : notes) recordMove(note, remapped(note, it.from, it.to));
    }

    void perform(const Op::TrashFolder& it, const Preview& preview) {
        if (!isFolder(it.path)) throw Skip(noLongerThere(it.path + "/"));
        const auto others = otherFiles(it.path);
        const auto notes = notePaths(it.path);
        const auto lines = splitLines(preview.before ? std::string_view(*preview.before) : "");
        const std::set<std::string_view> shown(lines.begin(), lines.end());
        bool isShown = others == 0 || shown.contains(PlanPaths::otherFiles(others));
        for (const auto& note : notes) isShown = isShown && shown.contains(note);
        if (!isShown) throw Skip(changedMeanwhile(it.path + "/"));
        requireInside(trashFolderName);
        VaultTrash(vault_).trashFolder(it.path);
        for (const auto& note : notes) recordRemoval(note);
    }

    // Telling

    void recordMove(const std::string& from, const std::string& to) {
        report_.departures.push_back({.from = from, .to = to});
        recordRename(from, to);
    }
    /// The report maps each path from before the run to the one after it.
    void recordRename(const std::string& from, const std::string& to) {
        auto first = from;
        if (const auto earlier = firstOf_.find(from); earlier != firstOf_.end()) {
            first = earlier->second;
            firstOf_.erase(earlier);
        }
        if (first == to) {
            report_.renamed.erase(first);  // back where it was
            return;
        }
        firstOf_.insert_or_assign(to, first);
        report_.renamed.insert_or_assign(first, to);
    }
    void recordRemoval(const std::string& path) {
        report_.departures.push_back({.from = path, .to = {}});
        report_.removed.insert(path);
    }

    const Vault& vault_;
    const Write& write_;
    Report report_;
    std::map<std::string, std::string> firstOf_;  // by a renamed note's present path, where it was first
};

}  // namespace

Report apply(const std::vector<Preview>& previews, const Vault& vault, const Write& write) {
    return Run(vault, write).apply(previews);
}

}  // namespace vesk::VaultPlanExecutor
