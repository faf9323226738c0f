#include "VeskCore/Brain/BrainMessage.h"

namespace vesk {

std::string_view rawValue(BrainMessage::Role role) {
    switch (role) {
        case BrainMessage::Role::user:
            return "user";
        case BrainMessage::Role::assistant:
            return "assistant";
        case BrainMessage::Role::system:
            return "system";
    }
    return "";
}

std::optional<BrainMessage::Role> brainMessageRole(std::string_view raw) {
    using Role = BrainMessage::Role;
    for (Role role : {Role::user, Role::assistant, Role::system}) {
        if (rawValue(role) == raw) return role;
    }
    return std::nullopt;
}

Json toJson(const BrainMessage& message) {
    return Json::object({{"role", Json(rawValue(message.role))}, {"text", Json(message.text)}});
}

BrainMessage brainMessage(const Json& json) {
    const auto role = brainMessageRole(json.string("role").value_or(""));
    if (!role) throw JsonError("\"role\": expected \"user\", \"assistant\" or \"system\"");
    auto text = json.string("text");
    if (!text) throw JsonError("\"text\": expected a string");
    return {.role = *role, .text = std::move(*text)};
}

}  // namespace vesk
