// The one-shot actions on a note or a selection.
#pragma once

#include <array>
#include <optional>
#include <string_view>

namespace vesk {

enum class QuickAction { summarise, tighten, clarify, deepen, actionItems, whatAmIMissing };

inline constexpr std::array allQuickActions{QuickAction::summarise,   QuickAction::tighten,
                                            QuickAction::clarify,     QuickAction::deepen,
                                            QuickAction::actionItems, QuickAction::whatAmIMissing};

std::string_view rawValue(QuickAction action);
std::optional<QuickAction> quickAction(std::string_view rawValue);
std::string_view title(QuickAction action);
/// Whether the reply is meant to take the text's place.
bool rewritesNote(QuickAction action);
/// The whole system prompt.
std::string_view instruction(QuickAction action);

}  // namespace vesk
