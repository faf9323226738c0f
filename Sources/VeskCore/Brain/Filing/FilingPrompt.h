// The closed question about a note: which of these folders does it belong in? Pure; any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "VeskCore/Brain/Choice.h"
#include "VeskCore/Brain/Filing/FilingCandidate.h"
#include "VeskCore/Brain/Filing/FilingHints.h"
#include "VeskCore/Brain/Filing/FilingTaxonomy.h"

namespace vesk::FilingPrompt {

/// The application asks in the measured form; the others serve to measure it by.
enum class InstructionForm { measured, generic, keep };
/// "measured", "generic", "keep".
std::string_view rawValue(InstructionForm form);

inline constexpr std::string_view slotName = "folder";
/// "note3" of 3.
std::string batchSlotName(std::size_t number);

ChoiceQuestion question(const FilingCandidate& candidate, const FilingTaxonomy& taxonomy,
                        const std::vector<FilingHint>& hints, const FilingAttempt& attempt,
                        InstructionForm form);
/// One slot for each note.
ChoiceQuestion batchQuestion(const std::vector<FilingCandidate>& candidates, const FilingTaxonomy& taxonomy,
                             const FilingAttempt& attempt, InstructionForm form);

std::string folderList(const std::vector<std::string>& targets);
/// What of the note's text is shown; none of a title alone.
std::optional<std::string> text(const FilingCandidate& candidate, const FilingAttempt& attempt);
std::string instructions(const std::vector<std::string>& targets, InstructionForm form);

}  // namespace vesk::FilingPrompt
