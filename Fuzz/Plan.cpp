// Plans in models' replies: what is read says only what the checks before the disk can judge, and a property
// stays within its key. A note's text may stand behind a NUL.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "VeskCore/Brain/PlanPaths.h"
#include "VeskCore/Brain/VaultOrganiser.h"
#include "VeskCore/Brain/VaultPlanExecutor.h"
#include "VeskCore/Brain/VaultPlanner.h"
#include "VeskCore/Markdown/FrontmatterDoc.h"
#include "VeskCore/Reminders/NoteReminder.h"
#include "VeskCore/Support/PathText.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Vault/AtomicWrite.h"
#include "VeskCore/Vault/Vault.h"

namespace {

using namespace vesk;

void require(bool condition) {
    if (!condition) std::abort();
}

/// A path that passed stays in the vault, whoever joins it to the root.
void requireInside(std::string_view path) {
    require(!path.empty() && !path.starts_with('/') && path.find('\0') == path.npos);
    for (const auto component : pathComponents(path)) {
        require(component != ".." && !component.starts_with('.'));
    }
}

void requireSound(const VaultOperation& operation, const std::string& note) {
    require(isValidUtf8(operation.describedForReview()));
    for (const auto& path : operation.notePaths()) {
        if (!PlanPaths::unsafeNote(path)) {
            requireInside(path);
            require(!Vault::isDocument(path));
        }
    }
    for (const auto& path : PlanPaths::folders(operation)) {
        if (!PlanPaths::unsafeFolder(path)) requireInside(path);
    }
    const FrontmatterDoc before(note);
    const auto requireBody = [&](std::string_view key, const std::string& changed) {
        const FrontmatterDoc after(changed);
        // A reminder sees to it that the note ends with its line.
        const bool endsLine = key == NoteReminder::key && after.body() == before.body() + "\n";
        require(after.body() == before.body() || endsLine);
    };
    if (const auto* set = std::get_if<VaultOperation::SetProperty>(&operation.value)) {
        const auto setting = VaultPlanExecutor::setting(set->key, set->value, note);
        require(setting.text.has_value() != setting.refusal.has_value());
        if (setting.text && !before.body().empty()) requireBody(set->key, *setting.text);
    }
    if (const auto* gone = std::get_if<VaultOperation::RemoveProperty>(&operation.value)) {
        VaultPlanExecutor::removing(gone->key, note);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size > (1 << 16)) return 0;
    const auto text = repairedUtf8({reinterpret_cast<const char*>(data), size});
    const auto end = text.find('\0');
    const auto reply = text.substr(0, end);
    auto note = end == text.npos ? std::string("# A note\n\nWords.\n") : text.substr(end + 1);
    // As often as it takes: of "\r\r\n" a carriage return is left, which the next reader takes for another
    // end.
    while (note.find("\r\n") != note.npos) note = LineEndings::normalized(note);
    require(VaultPlanner::removingPlanJSON(reply).size() <= reply.size());
    try {
        const auto plan = VaultPlanner::parse(reply);
        require(!plan.operations.empty());
        for (const auto& operation : plan.operations) requireSound(operation, note);
        const auto [kept, dropped] = VaultOrganiser::filingOnly(plan);
        require(kept.operations.size() + static_cast<std::size_t>(dropped) == plan.operations.size());
    } catch (const VaultPlanError& error) {
        require(isValidUtf8(error.description()));
    }
    return 0;
}
