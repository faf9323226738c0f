// One turn of a conversation with a model.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "VeskCore/Support/Json.h"

namespace vesk {

struct BrainMessage {
    /// A system message among the turns is a note to the model; each provider moves it to its system slot.
    enum class Role { user, assistant, system };

    Role role = Role::user;
    std::string text;
    bool operator==(const BrainMessage&) const = default;
};

std::string_view rawValue(BrainMessage::Role role);
std::optional<BrainMessage::Role> brainMessageRole(std::string_view rawValue);

/// {"role": …, "text": …}
Json toJson(const BrainMessage& message);
/// Throws JsonError if a key is missing or holds something else.
BrainMessage brainMessage(const Json& json);

}  // namespace vesk
