#include "VeskCore/Brain/VaultOrganiser.h"

#include <algorithm>

#include "VeskCore/Brain/VaultPlanner.h"
#include "VeskCore/Support/Characters.h"
#include "VeskCore/Support/PathText.h"
#include "VeskCore/Support/Text.h"

namespace vesk::VaultOrganiser {

namespace {

bool isFiling(const VaultOperation& operation) {
    if (std::holds_alternative<VaultOperation::CreateFolder>(operation.value)) return true;
    const auto* rename = std::get_if<VaultOperation::RenameNote>(&operation.value);
    return rename && rename->from != rename->to && lastComponent(rename->from) == lastComponent(rename->to);
}

}  // namespace

std::pair<VaultPlan, int> filingOnly(VaultPlan plan) {
    const auto before = plan.operations.size();
    plan.operations.erase(std::remove_if(plan.operations.begin(), plan.operations.end(),
                                         [](const auto& operation) { return !isFiling(operation); }),
                          plan.operations.end());
    const auto dropped = static_cast<int>(before - plan.operations.size());
    return {std::move(plan), dropped};
}

std::string fileNoteInstructions() {
    return std::string(
               "You file one of the user's Markdown notes into the right folder. The user turn names the "
               "note "
               "and lists the vault's existing folders; the note's text is provided alongside.\n"
               "\n"
               "Propose exactly one \"rename\" of that note into the best existing folder — or into a new "
               "folder when nothing fits, which the rename creates on its own — or no operation at all when "
               "the note already sits in the right place. The filename never changes: only the folder part "
               "of "
               "the path does. This is filing ONLY — never \"update\", \"trash\", \"rename_folder\" or \""
               "trash_folder\". One sentence of explanation, then the plan.\n") +
           std::string(VaultPlanner::planningInstructions);
}

std::string folderList(const std::vector<std::string>& folders) {
    if (folders.empty()) return "The vault has no folders yet.";
    return "The vault's folders:\n" + join(folders, "\n");
}

std::string fileNoteUserMessage(std::string_view notePath, const std::vector<std::string>& folders) {
    return "File this note where it belongs: " + std::string(notePath) + "\n\n" + folderList(folders);
}

std::string excerpt(std::string_view body) {
    const auto text = trim(body);
    if (text.empty()) return "(empty note)";
    const auto prefix = characterPrefix(text, perNoteCharacters);
    return std::string(prefix) + (prefix.size() < text.size() ? "…" : "");
}

}  // namespace vesk::VaultOrganiser
