#include "VeskCore/Brain/ChatStream.h"

#include "VeskCore/Brain/WireJson.h"
#include "VeskCore/Support/Characters.h"
#include "VeskCore/Support/Text.h"

namespace vesk {

namespace {

constexpr std::string_view endOfStream = "[DONE]";
constexpr std::size_t shownCharacters = 200;
constexpr std::string_view unexplained = "The provider reported an error but didn't say what it was.";

struct Chunk {
    std::string content, reasoning;
    std::optional<std::string> finishReason;
    std::optional<BrainEvent::Usage> usage;
    std::optional<std::string> error;
};

std::optional<Chunk> decode(std::string_view data) {
    const auto json = parsedJson(data);
    if (!json || !json->asObject()) return std::nullopt;
    bool readable = true;
    const WireObject object(&*json, readable);
    Chunk chunk;
    const auto* choices = object.array("choices");
    for (std::size_t i = 0; choices && i < choices->size(); ++i) {
        const WireObject choice(&(*choices)[i], readable);
        const auto delta = choice.object("delta");
        const auto *content = delta.text("content"), *reasoningContent = delta.text("reasoning_content"),
                   *reasoning = delta.text("reasoning"), *reason = choice.text("finish_reason");
        if (i > 0) continue;
        if (content) chunk.content = *content;
        if (reasoning) chunk.reasoning = *reasoning;
        if (reasoningContent && !reasoningContent->empty()) chunk.reasoning = *reasoningContent;
        if (reason) chunk.finishReason = *reason;
    }
    const auto usage = object.object("usage"), error = object.object("error");
    if (usage.isPresent()) {
        chunk.usage = BrainEvent::Usage{usage.integer("prompt_tokens").value_or(0),
                                        usage.integer("completion_tokens").value_or(0)};
    }
    if (error.isPresent()) {
        const auto* message = error.text("message");
        chunk.error = message && !message->empty() ? *message : std::string(unexplained);
    }
    // Another dialect may be readable JSON as well: what holds nothing of this one is none of its chunks.
    const bool hasContent = choices || chunk.usage || chunk.error;
    return readable && hasContent ? std::optional(std::move(chunk)) : std::nullopt;
}

}  // namespace

std::string ChatStream::explain(std::string_view body) {
    const auto json = parsedJson(body);
    const Json* error = json ? json->find("error") : nullptr;
    auto message = error ? error->string("message") : std::nullopt;
    return message && !trim(*message).empty() ? *message : std::string(unexplained);
}

void ChatStream::payload(std::string_view data, const Sink& sink) {
    if (data == endOfStream) {
        complete_ = enough_ = true;
        return;
    }
    auto chunk = decode(data);
    if (!chunk) {
        // Half a key behind the cut would no longer be known as one.
        if (!unrecognised_)
            unrecognised_ = std::string(characterPrefix(shown(repairedUtf8(data)), shownCharacters));
        return;
    }
    if (chunk->usage) sink({*chunk->usage});
    if (chunk->error) throw BrainError(BrainError::Unavailable{shown(*chunk->error)});
    if (!chunk->reasoning.empty()) {
        answered_ = true;
        sink({BrainEvent::Thinking{std::move(chunk->reasoning)}});
    }
    if (!chunk->content.empty()) {
        answered_ = true;
        sink({BrainEvent::Text{std::move(chunk->content)}});
    }
    if (chunk->finishReason) finishReason_ = std::move(chunk->finishReason);
}

void ChatStream::end(const Sink& sink) {
    if (!answered_ && unrecognised_) {
        throw BrainError(BrainError::Unavailable{
            displayName_ + ": it streamed no readable text. First unrecognised chunk: " + *unrecognised_});
    }
    if (!answered_ && !sawData_) {
        throw BrainError(BrainError::Unavailable{
            displayName_ + ": it sent no event-stream data. The server may not support `stream: true`."});
    }
    complete_ = true;
    sink({BrainEvent::Done{finishReason_}});
}

}  // namespace vesk
