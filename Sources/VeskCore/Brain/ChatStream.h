// The chunks of a chat completion, as OpenAI, local servers and custom endpoints stream them.
#pragma once

#include <optional>
#include <string>

#include "VeskCore/Brain/ModelStream.h"

namespace vesk {

class ChatStream final : public ModelStream {
public:
    /// The name stands in front of what is said of a reply without an answer.
    explicit ChatStream(std::string displayName) : displayName_(std::move(displayName)) {}

    /// What an error reply says of itself, in words for the user.
    static std::string explain(std::string_view body);

protected:
    void payload(std::string_view data, const Sink& sink) override;
    void end(const Sink& sink) override;

private:
    std::string displayName_;
    std::optional<std::string> finishReason_, unrecognised_;
    bool answered_ = false;
};

}  // namespace vesk
