#include "Vesk/AI/BrainPrompts.h"

#include <algorithm>

#include "VeskCore/Brain/ChatRewrite.h"
#include "VeskCore/Brain/VaultPlanner.h"
#include "VeskCore/Support/Characters.h"
#include "VeskCore/Support/Text.h"

namespace vesk::BrainPrompts {

namespace {

constexpr std::string_view aboutTheVault =
    "\n\nDo not fill gaps from general knowledge. Cite the notes you use by their title as you go. Be "
    "concise; the answer is read in a narrow side panel. Never recite an inventory of the vault — its folder "
    "tree or a list of its notes — unless the user explicitly asks for that list; describing what you did or "
    "found beats enumerating what exists.\n\nNEVER invent a value. If the notes do not contain the number, "
    "identifier, date or fact that was asked for, say you could not find it — a guess presented as their own "
    "data is the worst answer you can give. Notes may embed images (`![](…)` lines); you cannot see inside "
    "an image, so when the answer likely lives in one, point to the note that holds the picture instead of "
    "guessing.\n\nWhen the user asks for THEIR OWN number or identifier — \"my ABN\", \"my account number\", "
    "\"my policy number\" — a value recorded under another organisation's name (a fund, a bank, a supplier, "
    "a client) is that organisation's identifier, not the user's. Prefer a value recorded without such "
    "attribution, and mention the other only to say whose it is.\n\n";

constexpr std::string_view aboutAPiece =
    "You answer questions about the piece of the user's note that you are given.\n\nWork only from that "
    "text. If it doesn't answer the question, say so — never invent a value the text does not contain. Be "
    "concise; the answer is read in a narrow side panel.\n";

std::string reminderInstructions(bool lean) {
    std::string text =
        "A note's reminder is set or removed with the bell in the toolbar, or removed with Remove Reminder "
        "in its menu in the sidebar. ";
    if (!lean)
        text +=
            "In a plan, remove a reminder with remove_property and the key \"remind\"; its \"repeat\" "
            "goes with it. ";
    return text + "Never say a reminder was set, moved or removed unless a plan that does it was applied.";
}

}  // namespace

const std::string_view generalKnowledge =
    "You are answering from general knowledge. The user's notes were searched and nothing relevant came "
    "back, and they have chosen to be answered anyway.\n\nSay plainly when you are unsure. Do not claim "
    "anything comes from their notes, and do not cite a note title — you have not been shown any. Be "
    "concise; the answer is read in a narrow side panel.";

std::string system(AIScope about, const std::optional<VaultContext::Coverage>& coverage, bool lean) {
    std::string text;
    switch (about) {
        case AIScope::vault:
            text = "You answer questions about the user's own Markdown notes.\n\n";
            text += coverage.value_or(VaultContext::Coverage{}).promptDescription();
            text += aboutTheVault;
            text += reminderInstructions(lean) + "\n";
            if (!lean) text += VaultPlanner::planningInstructions;
            break;
        case AIScope::note:
            text = aboutAPiece;
            text += "\n" + reminderInstructions(lean) + "\n";
            if (lean) {
                text += "\n";
            } else {
                text += ChatRewrite::instructions;
                text += "\n";
                text += ChatRewrite::noteFileInstructions;
            }
            break;
        case AIScope::selection:
            text = aboutAPiece;
            if (!lean) text += ChatRewrite::instructions;
            break;
    }
    return text;
}

std::vector<RetrievedChunk> chunks(std::string_view text, const std::optional<Note>& note,
                                   std::string_view label) {
    text = trim(text);
    if (text.empty()) return {};
    std::string title = note ? note->title : std::string();
    if (!label.empty()) title += (title.empty() ? "" : " — ") + std::string(label);
    const std::string path = note ? note->relativePath : "current note";
    std::vector<RetrievedChunk> result;
    std::size_t left = longestText;
    int ordinal = 0;
    for (std::size_t start = 0; start <= text.size() && left > 0; ++ordinal) {
        const std::size_t end = std::min(text.find("\n\n", start), text.size());
        const auto paragraph = characterPrefix(trim(text.substr(start, end - start)), left);
        start = end + 2;
        if (paragraph.empty()) continue;
        left -= std::min(left, characterCount(paragraph));
        result.push_back({.notePath = path,
                          .noteTitle = title,
                          .ordinal = ordinal,
                          .text = std::string(paragraph),
                          .score = 1});
    }
    return result;
}

}  // namespace vesk::BrainPrompts
