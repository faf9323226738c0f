#include "VeskCore/Brain/GeminiStream.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <vector>

#include "VeskCore/Brain/GeminiAPI.h"
#include "VeskCore/Brain/WireJson.h"

namespace vesk {

namespace {

struct Part {
    std::string text;
    bool thought = false;
};

struct Chunk {
    std::vector<Part> parts;
    std::optional<std::string> finishReason, blockReason;
    std::optional<BrainEvent::Usage> usage;
    std::optional<int> errorCode;
};

int outputTokens(const WireObject& usage) {
    const auto sum = std::int64_t{usage.integer("candidatesTokenCount").value_or(0)} +
                     usage.integer("thoughtsTokenCount").value_or(0);
    return static_cast<int>(
        std::clamp<std::int64_t>(sum, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()));
}

std::optional<Chunk> decode(std::string_view data) {
    const auto json = parsedJson(data);
    if (!json || !json->asObject()) return std::nullopt;
    bool readable = true;
    const WireObject object(&*json, readable);
    Chunk chunk;
    const auto* candidates = object.array("candidates");
    for (std::size_t i = 0; candidates && i < candidates->size(); ++i) {
        const WireObject candidate(&(*candidates)[i], readable);
        const auto* reason = candidate.text("finishReason");
        const auto* parts = candidate.object("content").array("parts");
        if (i == 0 && reason) chunk.finishReason = *reason;
        for (std::size_t j = 0; parts && j < parts->size(); ++j) {
            const WireObject part(&(*parts)[j], readable);
            const auto* text = part.text("text");
            const bool thought = part.truth("thought");
            if (i == 0 && text) chunk.parts.push_back({.text = *text, .thought = thought});
        }
    }
    const auto usage = object.object("usageMetadata"), error = object.object("error");
    if (usage.isPresent()) {
        chunk.usage = BrainEvent::Usage{usage.integer("promptTokenCount").value_or(0), outputTokens(usage)};
    }
    if (const auto* reason = object.object("promptFeedback").text("blockReason")) chunk.blockReason = *reason;
    if (error.isPresent()) chunk.errorCode = error.integer("code").value_or(500);
    return readable ? std::optional(std::move(chunk)) : std::nullopt;
}

BrainError declined(const std::string& reason) {
    return BrainError(BrainError::Unavailable{
        "Gemini declined to answer this one (" + reason +
        "). Rewording the question, or narrowing the notes it draws on, usually clears it."});
}

}  // namespace

void GeminiStream::payload(std::string_view data, const Sink& sink) {
    auto chunk = decode(data);
    if (!chunk) return;
    if (chunk->errorCode) throw GeminiAPI::failure(*chunk->errorCode, shown(data));
    if (chunk->usage) usage_ = chunk->usage;
    for (auto& part : chunk->parts) {
        if (part.text.empty()) continue;
        if (part.thought) {
            sink({BrainEvent::Thinking{std::move(part.text)}});
        } else {
            wroteText_ = true;
            sink({BrainEvent::Text{std::move(part.text)}});
        }
    }
    if (chunk->finishReason) finishReason_ = std::move(chunk->finishReason);
    if (chunk->blockReason) throw declined(shown(*chunk->blockReason));
}

void GeminiStream::end(const Sink& sink) {
    if (usage_) sink({*usage_});
    if (!wroteText_) {
        if (finishReason_ == "MAX_TOKENS") {
            throw BrainError(
                BrainError::Unavailable{"Gemini spent its whole response budget thinking and had none left "
                                        "to answer with. Raising the "
                                        "response limit, or asking a narrower question, usually clears it."});
        }
        if (finishReason_ && finishReason_ != "STOP") throw declined(shown(*finishReason_));
        throw BrainError(BrainError::Decoding{"Gemini finished without writing an answer"});
    }
    complete_ = true;
    sink({BrainEvent::Done{finishReason_}});
}

}  // namespace vesk
