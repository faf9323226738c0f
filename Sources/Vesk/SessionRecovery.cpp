// Text that an earlier run could not save, and what a crash left lying in the vault.
#include <algorithm>
#include <utility>

#include "Vesk/SessionTasks.h"
#include "VeskCore/Platform/FilePlatform.h"
#include "VeskCore/Support/Localised.h"
#include "VeskCore/Support/Match.h"
#include "VeskCore/Support/PathText.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Vault/AtomicWrite.h"
#include "VeskCore/Vault/VaultTrash.h"

namespace vesk {

namespace {

constexpr std::string_view temporaryPrefix = ".vesk-tmp-";
constexpr Seconds abandonedAfter{3600.0};

std::string quotedStem(std::string_view path) {
    return "“" + decodedText(std::string(stem(path))) + "”";
}

template <class Entries, class Name>
std::string joined(const Entries& entries, std::string_view separator, Name name) {
    std::string result;
    for (const auto& entry : entries) {
        const std::optional<std::string> part = name(entry);
        if (!part) continue;
        if (!result.empty()) result += separator;
        result += *part;
    }
    return result;
}

std::string recoveredDetail(const std::vector<VaultSession::RecoveredText>& recovered) {
    using Text = VaultSession::RecoveredText;
    const auto beside = joined(recovered, ", ", [](const Text& text) {
        return text.goneFolder ? std::nullopt : std::optional(quotedStem(text.copy));
    });
    const auto atTop = joined(recovered, "; ", [](const Text& text) {
        if (!text.goneFolder) return std::optional<std::string>();
        return std::optional(localised("{} at the top of the vault, because “{}” is no longer there",
                                       quotedStem(text.copy), decodedText(*text.goneFolder)));
    });
    const auto silenced = joined(recovered, ", ", [](const Text& text) {
        return text.reminderLeftOff ? std::optional(quotedStem(text.copy)) : std::nullopt;
    });
    std::string places;
    if (!beside.empty()) places = localised("{}, beside the note", beside);
    if (!beside.empty() && !atTop.empty()) places += "; ";
    std::string detail =
        localised("Vesk ended before your typing reached the note, so it was kept as {}.", places + atTop);
    if (!silenced.empty()) {
        detail += localised(
            " The reminder in {} was left off, so it doesn't ring; set it on the note if it is still wanted.",
            silenced);
    }
    return detail;
}

/// A save that was cut short may have left the only copy of a text: it goes to the trash before its file
/// goes. Bytes that are no text come from attachments, whose source is elsewhere.
void letGoOfTemporaryFile(const Vault& vault, const FilePath& file, std::string_view relativePath) {
    auto& files = *FilePlatform::current().files;
    const auto bytes = files.read(file);
    if (!bytes.empty() && isValidUtf8(bytes)) {
        const auto folder = relativePath.starts_with('.') ? std::string_view() : parentFolder(relativePath);
        VaultTrash(vault).keepInTrash(LineEndings::normalized(bytes),
                                      joinedPath(folder, "Unfinished save.md"));
    }
    files.remove(file);
}

std::vector<std::string> abandonedFiles(const Vault& vault, const Clock& clock, const std::stop_token& stop) {
    std::vector<std::string> abandoned;
    const auto visit = [&](const WalkEntry& entry) {
        if (stop.stop_requested()) return WalkStep::stop;
        if (!entry.name().starts_with(temporaryPrefix) || entry.isDirectory()) return WalkStep::descend;
        const auto info = entry.info();
        if (info && info->kind == FileKind::regular && clock.now() - info->modified > abandonedAfter)
            abandoned.emplace_back(entry.relativePath());
        return WalkStep::skip;
    };
    try {
        FilePlatform::current().files->walk(vault.root(), visit);
    } catch (const std::exception&) {  // what was found so far
    }
    return abandoned;
}

}  // namespace

void VaultSession::recoverHeldText() {
    heldText_.takeUpUnfinished(abandonedAfter);
    for (const auto& leftover : heldText_.leftovers(false)) {
        try {
            recover(leftover);
        } catch (const std::exception&) {  // its file stays for the next start
        }
    }
    if (!recoveredHeldText_.empty() || !heldTextKeptInTrash_.empty()) externalChange();
}

HeldTextStore::NoteOnDisk VaultSession::noteOnDisk(const HeldTextStore::Entry& entry) const {
    using NoteOnDisk = HeldTextStore::NoteOnDisk;
    const VaultTrash trash(vault_);
    if (entry.trashed) {
        return {NoteOnDisk::Gone{.inTrash = true, .trashedText = trash.trashedText(entry.relativePath)}};
    }
    try {
        if (auto text = CoordinatedIO::readForSave(vault_.absolutePath(entry.relativePath)))
            return {NoteOnDisk::Text{std::move(*text)}};
    } catch (const VaultWriteError& error) {
        if (error.kind == VaultWriteError::Kind::notCurrent) return {NoteOnDisk::NotCurrent{}};
        return {NoteOnDisk::Gone{}};
    } catch (const Error&) {
        if (UbiquityStatus::isEvictionError(std::current_exception())) return {NoteOnDisk::NotCurrent{}};
        return {NoteOnDisk::Gone{}};
    }
    return {NoteOnDisk::Gone{.inTrash = trash.holdsNote(entry.relativePath), .trashedText = {}}};
}

void VaultSession::recover(const HeldTextStore::Leftover& leftover) {
    using Recovery = HeldTextStore::Recovery;
    const auto& path = leftover.entry.relativePath;
    if (Vault::leavesVault(path)) return;
    const auto note = noteOnDisk(leftover.entry);
    const auto recovery = HeldTextStore::recovery(leftover.entry, note, services_.calendar());
    match(
        recovery,
        [&](const Recovery::KeepInTrash& kept) {
            VaultTrash(vault_).keepInTrash(kept.text, path);
            heldText_.remove(leftover.file);
            heldTextKeptInTrash_.push_back(path);
        },
        [&](const Recovery::ApplyKeys& keys) {
            const auto* disk = std::get_if<HeldTextStore::NoteOnDisk::Text>(&note.value);
            if (!disk) return;
            saveEditorText(keys.change.applied(disk->text), path, disk->text, true);
            heldText_.remove(leftover.file);
        },
        [&](const Recovery::Copy& copy) { recoverCopy(leftover, copy); },
        [&](Recovery::Plain plain) {
            switch (plain) {
                case Recovery::Plain::wait:
                    return;
                case Recovery::Plain::alreadyInNote:
                    heldText_.remove(leftover.file);
                    return;
                case Recovery::Plain::noteTrashed:
                case Recovery::Plain::onlyReminderKeys:
                    heldText_.remove(leftover.file);
                    releasedHeldText_.push_back({.note = path, .recovery = recovery});
                    return;
            }
        });
}

void VaultSession::recoverCopy(const HeldTextStore::Leftover& leftover,
                               const HeldTextStore::Recovery::Copy& copy) {
    const auto& note = leftover.entry.relativePath;
    std::string base = note;
    std::optional<std::string> goneFolder;
    if (const std::string folder(parentFolder(note)); !folder.empty()) {
        const auto info = FilePlatform::current().files->info(vault_.absolutePath(folder));
        if (!info || info->kind != FileKind::directory) {
            goneFolder = folder;
            base = std::string(lastComponent(note));
        }
    }
    const auto path = ForeignEdit::recoveredCopyPath(base, [&](const std::string& candidate) {
        return vault_.isNameTaken(vault_.absolutePath(candidate));
    });
    const ForeignEdit::Disk nothing{ForeignEdit::Disk::Plain::gone};
    write(copy.text, vault_.absolutePath(path), &nothing);
    heldText_.remove(leftover.file);
    recoveredHeldText_.push_back(
        {.copy = path, .goneFolder = std::move(goneFolder), .reminderLeftOff = copy.reminderLeftOff});
}

std::vector<VaultWarning> VaultSession::heldTextWarnings() const {
    using Severity = VaultWarning::Severity;
    std::vector<VaultWarning> warnings;
    if (!recoveredHeldText_.empty()) {
        warnings.push_back({.code = "recovered",
                            .title = localised("Text Vesk couldn't save last time is back"),
                            .detail = recoveredDetail(recoveredHeldText_),
                            .severity = Severity::warning});
    }
    if (!releasedHeldText_.empty()) {
        const auto names = joined(releasedHeldText_, ", ", [](const ReleasedText& text) {
            const auto* plain = std::get_if<HeldTextStore::Recovery::Plain>(&text.recovery.value);
            const bool keys = plain && *plain == HeldTextStore::Recovery::Plain::onlyReminderKeys;
            return keys ? std::optional(quotedStem(text.note)) : std::nullopt;
        });
        warnings.push_back(
            {.code = "released",
             .title = localised("Some text Vesk couldn't save last time was let go"),
             .detail = names.empty()
                           ? std::string()
                           : localised("A reminder change to {} wasn't saved; check its bell.", names),
             .severity = Severity::warning});
    }
    if (!heldTextKeptInTrash_.empty()) {
        const auto names = joined(heldTextKeptInTrash_, ", ",
                                  [](const std::string& path) { return std::optional(quotedStem(path)); });
        warnings.push_back({.code = "keptInTrash",
                            .title = localised("Text Vesk couldn't save last time is in the trash"),
                            .detail = localised("Typing in {} was put in the trash, where the note it was "
                                                "for is; restore it from Trash if you still want it.",
                                                names),
                            .severity = Severity::warning});
    }
    return warnings;
}

void VaultSession::sweepTemporaryFiles() {
    services_.background.run(Priority::utility,
                             [vault = vault_, &clock = services_.clock](const std::stop_token& stop) {
                                 for (const auto& path : abandonedFiles(vault, clock, stop)) {
                                     try {
                                         letGoOfTemporaryFile(vault, vault.absolutePath(path), path);
                                     } catch (const std::exception&) {  // the next start tries again
                                     }
                                 }
                             });
}

}  // namespace vesk
