// What comes back from a model while it answers.
#pragma once

#include <optional>
#include <string>
#include <variant>

namespace vesk {

struct BrainEvent {
    /// A piece of the visible answer, to be appended.
    struct Text {
        std::string text;
        bool operator==(const Text&) const = default;
    };
    /// A piece of the model's summarised reasoning: shown apart or dropped, never part of the answer.
    struct Thinking {
        std::string text;
        bool operator==(const Thinking&) const = default;
    };
    /// The token counts so far; the last one holds.
    struct Usage {
        int inputTokens = 0, outputTokens = 0;
        bool operator==(const Usage&) const = default;
    };
    /// The reply is complete. The reason is the provider's own word ("max_tokens").
    struct Done {
        std::optional<std::string> stopReason;
        bool operator==(const Done&) const = default;
    };

    std::variant<Text, Thinking, Usage, Done> value;
    bool operator==(const BrainEvent&) const = default;
};

}  // namespace vesk
