#include "VeskCore/Brain/QuickAction.h"

#include "VeskCore/Brain/NoteRefinement.h"
#include "VeskCore/Support/Localised.h"

namespace vesk {

std::string_view rawValue(QuickAction action) {
    switch (action) {
        case QuickAction::summarise:
            return "summarise";
        case QuickAction::tighten:
            return "tighten";
        case QuickAction::clarify:
            return "clarify";
        case QuickAction::deepen:
            return "deepen";
        case QuickAction::actionItems:
            return "actionItems";
        case QuickAction::whatAmIMissing:
            return "whatAmIMissing";
    }
    return {};
}

std::optional<QuickAction> quickAction(std::string_view raw) {
    for (const auto action : allQuickActions) {
        if (rawValue(action) == raw) return action;
    }
    return std::nullopt;
}

std::string_view title(QuickAction action) {
    switch (action) {
        case QuickAction::summarise:
            return marked("Summarise");
        case QuickAction::tighten:
            return marked("Tighten");
        case QuickAction::clarify:
            return NoteRefinement::title(NoteRefinementKind::clarify);
        case QuickAction::deepen:
            return NoteRefinement::title(NoteRefinementKind::deepen);
        case QuickAction::actionItems:
            return marked("Extract action items");
        case QuickAction::whatAmIMissing:
            return marked("What am I missing?");
    }
    return {};
}

bool rewritesNote(QuickAction action) {
    return action == QuickAction::tighten || action == QuickAction::clarify || action == QuickAction::deepen;
}

std::string_view instruction(QuickAction action) {
    switch (action) {
        case QuickAction::summarise:
            return "Summarise the text the user gives you in at most five bullet points. Use their words "
                   "where you"
                   " can. Add nothing that isn't in the text.";
        case QuickAction::tighten:
            return "Rewrite the text the user gives you to be shorter and clearer. Keep every fact, every "
                   "Markdown"
                   " structure, every heading level, every link and every list marker. Change wording, never "
                   "meaning. Reply with the rewritten Markdown and nothing else — no preamble, no code "
                   "fence.";
        case QuickAction::clarify:
            return NoteRefinement::instruction(NoteRefinementKind::clarify);
        case QuickAction::deepen:
            return NoteRefinement::instruction(NoteRefinementKind::deepen);
        case QuickAction::actionItems:
            return "List every action, commitment or follow-up in the text the user gives you as Markdown "
                   "task "
                   "items (`- [ ] `). One line each, starting with a verb. If there are none, say so in one "
                   "sentence and list nothing.";
        case QuickAction::whatAmIMissing:
            return "Read the text the user gives you and name the gaps: unanswered questions, missing "
                   "evidence, "
                   "decisions with no owner, claims with nothing behind them. Be specific and brief. Do not "
                   "rewrite the text.";
    }
    return {};
}

}  // namespace vesk
