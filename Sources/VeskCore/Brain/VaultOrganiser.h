// Filing notes through the conversation: what a model is asked, and which of its operations are filing. Pure.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "VeskCore/Brain/VaultPlan.h"

namespace vesk::VaultOrganiser {

inline constexpr std::size_t perNoteCharacters = 1200;
inline constexpr std::string_view transcriptLabel = "Organise my notes";

/// The plan with only new folders and moves of notes that keep their names, and how many operations went.
std::pair<VaultPlan, int> filingOnly(VaultPlan plan);
/// The system prompt for filing one note.
std::string fileNoteInstructions();
std::string fileNoteUserMessage(std::string_view notePath, const std::vector<std::string>& folders);
std::string folderList(const std::vector<std::string>& folders);
/// The beginning of a note's body.
std::string excerpt(std::string_view body);

}  // namespace vesk::VaultOrganiser
