// What a save did, in the JSON form of answers.
#pragma once

#include "VeskCore/Support/Json.h"
#include "VeskCore/Vault/ForeignEdit.h"

namespace vesk::command {

Json toJson(const ForeignEdit::Outcome& outcome);

}  // namespace vesk::command
