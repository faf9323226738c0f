#include "VeskCore/Brain/AnthropicStream.h"

#include <algorithm>
#include <cstdint>
#include <limits>

#include "VeskCore/Brain/WireJson.h"

namespace vesk {

namespace {

struct Usage {
    std::optional<int> inputTokens, outputTokens, cacheCreationInputTokens, cacheReadInputTokens;
};

/// One event, decoded as a whole before any of it counts.
struct StreamEvent {
    std::string type;
    Usage startUsage, usage;
    std::string deltaType, text, thinking;
    std::optional<std::string> stopReason;
    std::optional<std::string> errorType, errorMessage;
};

Usage usage(const WireObject& object) {
    return {.inputTokens = object.integer("input_tokens"),
            .outputTokens = object.integer("output_tokens"),
            .cacheCreationInputTokens = object.integer("cache_creation_input_tokens"),
            .cacheReadInputTokens = object.integer("cache_read_input_tokens")};
}

std::optional<std::string> copy(const std::string* text) {
    return text ? std::optional(*text) : std::nullopt;
}

std::optional<StreamEvent> decode(std::string_view data) {
    const auto json = parsedJson(data);
    if (!json || !json->asObject()) return std::nullopt;
    bool readable = true;
    const WireObject event(&*json, readable);
    const auto delta = event.object("delta"), error = event.object("error");
    const auto type = copy(event.text("type"));
    StreamEvent decoded{.type = type.value_or(""),
                        .startUsage = usage(event.object("message").object("usage")),
                        .usage = usage(event.object("usage")),
                        .deltaType = copy(delta.text("type")).value_or(""),
                        .text = copy(delta.text("text")).value_or(""),
                        .thinking = copy(delta.text("thinking")).value_or(""),
                        .stopReason = copy(delta.text("stop_reason")),
                        .errorType = copy(error.text("type")),
                        .errorMessage = copy(error.text("message"))};
    return type && readable ? std::optional(std::move(decoded)) : std::nullopt;
}

BrainError streamFailure(const StreamEvent& event) {
    if (event.errorType == "overloaded_error") {
        return BrainError(
            BrainError::Unavailable{"Claude is overloaded right now. Wait a moment and ask again."});
    }
    if (event.errorType == "rate_limit_error") {
        return BrainError(BrainError::Unavailable{
            "You've hit Anthropic's rate limit. Wait a minute, or switch to a smaller model."});
    }
    return BrainError(
        BrainError::Unavailable{"Claude stopped part-way through: " +
                                event.errorMessage.value_or("the connection ended without explanation")});
}

int sum(int a, int b) {
    return static_cast<int>(std::clamp<std::int64_t>(std::int64_t{a} + b, std::numeric_limits<int>::min(),
                                                     std::numeric_limits<int>::max()));
}

}  // namespace

void AnthropicStream::payload(std::string_view data, const Sink& sink) {
    if (complete_) return;
    auto event = decode(data);
    if (!event) return;
    if (event->type == "message_start") {
        inputTokens_ = sum(event->startUsage.inputTokens.value_or(0),
                           event->startUsage.cacheCreationInputTokens.value_or(0));
        sink({BrainEvent::Usage{inputTokens_, event->startUsage.outputTokens.value_or(0)}});
    } else if (event->type == "content_block_delta") {
        if (event->deltaType == "text_delta" && !event->text.empty()) {
            sink({BrainEvent::Text{event->text}});
        } else if (event->deltaType == "thinking_delta" && !event->thinking.empty()) {
            sink({BrainEvent::Thinking{event->thinking}});
        }
    } else if (event->type == "message_delta") {
        if (event->stopReason) stopReason_ = event->stopReason;
        if (event->usage.outputTokens) {
            sink({BrainEvent::Usage{inputTokens_, *event->usage.outputTokens}});
        }
    } else if (event->type == "error") {
        if (event->errorMessage) event->errorMessage = shown(*event->errorMessage);
        throw streamFailure(*event);
    } else if (event->type == "message_stop") {
        done(sink);
    }
}

void AnthropicStream::end(const Sink& sink) {
    if (!complete_) done(sink);
}

void AnthropicStream::done(const Sink& sink) {
    if (stopReason_ == "refusal") {
        throw BrainError(BrainError::Unavailable{
            "Claude declined to answer that. Rephrasing the question usually works."});
    }
    complete_ = true;
    sink({BrainEvent::Done{stopReason_}});
}

}  // namespace vesk
