#include "VeskCore/Brain/VaultPlan.h"

#include "VeskCore/Support/Characters.h"
#include "VeskCore/Support/Localised.h"
#include "VeskCore/Support/Match.h"
#include "VeskCore/Support/PathText.h"

namespace vesk {

namespace {

using Op = VaultOperation;

/// Rather than a move.
bool isRename(std::string_view from, std::string_view to) {
    return parentFolder(from) == parentFolder(to);
}

}  // namespace

std::string_view VaultOperation::op() const {
    return match(
        value, [](const CreateNote&) { return "create"; }, [](const UpdateNote&) { return "update"; },
        [](const RenameNote&) { return "rename"; }, [](const SetProperty&) { return "set_property"; },
        [](const RemoveProperty&) { return "remove_property"; }, [](const TrashNote&) { return "trash"; },
        [](const CreateFolder&) { return "create_folder"; },
        [](const RenameFolder&) { return "rename_folder"; },
        [](const TrashFolder&) { return "trash_folder"; });
}

std::vector<std::string> VaultOperation::notePaths() const {
    using Paths = std::vector<std::string>;
    return match(
        value, [](const CreateNote& it) { return Paths{it.path}; },
        [](const UpdateNote& it) { return Paths{it.path}; },
        [](const RenameNote& it) {
            return Paths{it.from, it.to};
        },
        [](const SetProperty& it) { return Paths{it.path}; },
        [](const RemoveProperty& it) { return Paths{it.path}; },
        [](const TrashNote& it) { return Paths{it.path}; }, [](const CreateFolder&) { return Paths(); },
        [](const RenameFolder&) { return Paths(); }, [](const TrashFolder&) { return Paths(); });
}

std::string VaultOperation::describedForReview() const {
    return match(
        value,
        [](const CreateNote& it) {
            return localised("Create {} ({} characters)", it.path, characterCount(it.content));
        },
        [](const UpdateNote& it) {
            return localised("Rewrite {} ({} characters)", it.path, characterCount(it.content));
        },
        [](const RenameNote& it) {
            return localised(isRename(it.from, it.to) ? marked("Rename {} → {}") : marked("Move {} → {}"),
                             it.from, it.to);
        },
        [](const SetProperty& it) { return localised("Set {}: {} on {}", it.key, it.value, it.path); },
        [](const RemoveProperty& it) { return localised("Remove {} from {}", it.key, it.path); },
        [](const TrashNote& it) { return localised("Move {} to the vault's trash", it.path); },
        [](const CreateFolder& it) { return localised("Create the folder {}/", it.path); },
        [](const RenameFolder& it) {
            return localised(isRename(it.from, it.to) ? marked("Rename the folder {}/ → {}/")
                                                      : marked("Move the folder {}/ → {}/"),
                             it.from, it.to);
        },
        [](const TrashFolder& it) {
            return localised("Move the folder {}/ and everything in it to the vault's trash", it.path);
        });
}

std::optional<std::string> VaultOperation::riskNote() const {
    using Risk = std::optional<std::string>;
    return match(
        value, [](const CreateNote&) { return Risk(); },
        [](const UpdateNote&) { return Risk(localised("Replaces the whole note.")); },
        [](const RenameNote&) {
            return Risk(localised("Changes the note's path, so links by path need updating."));
        },
        [](const SetProperty&) { return Risk(); }, [](const RemoveProperty&) { return Risk(); },
        [](const TrashNote&) { return Risk(localised("Recoverable from the vault's .trash folder.")); },
        [](const CreateFolder&) { return Risk(); },
        [](const RenameFolder&) { return Risk(localised("Moves every note inside the folder with it.")); },
        [](const TrashFolder&) {
            return Risk(localised(
                "Takes the folder and every note inside it. Recoverable from the vault's .trash folder."));
        });
}

std::string VaultPlanError::description() const {
    return match(
        value,
        [](const Malformed& malformed) {
            return localised("The model's plan couldn't be read: {}", malformed.detail);
        },
        [](const NoPlanFound&) -> std::string {
            return localised(
                "The model didn't return a plan Vesk could act on. Ask again, or try a model with stronger "
                "instruction-following.");
        });
}

}  // namespace vesk
