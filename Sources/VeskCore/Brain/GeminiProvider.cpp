#include "VeskCore/Brain/GeminiProvider.h"

#include <algorithm>

#include "VeskCore/Brain/GeminiAPI.h"
#include "VeskCore/Brain/GeminiStream.h"
#include "VeskCore/Brain/QuotedChunks.h"
#include "VeskCore/Support/Text.h"

namespace vesk {

namespace {

constexpr std::size_t errorBodyLimit = std::size_t{64} << 10;

const std::vector<BrainModel>& catalogue() {
    static const std::vector<BrainModel> models{
        {.id = "gemini-3.7-flash",
         .displayName = "Gemini 3.7 Flash",
         .contextWindow = 1000000,
         .maxOutput = 65536,
         .inputPricePerMTok = 0.75,
         .outputPricePerMTok = 3.75,
         .note =
             "Default. Cached input $0.075 per M tokens. Introductory pricing: it rises to $1.50 in / $7.50 "
             "out on 1 January 2027."},
        {.id = "gemini-3.5-flash",
         .displayName = "Gemini 3.5 Flash",
         .contextWindow = 1000000,
         .maxOutput = 65536,
         .inputPricePerMTok = 1.50,
         .outputPricePerMTok = 9.00,
         .note = "The previous generation."},
        {.id = "gemini-3.5-flash-lite",
         .displayName = "Gemini 3.5 Flash Lite",
         .contextWindow = 1000000,
         .maxOutput = 65536,
         .inputPricePerMTok = 0.30,
         .outputPricePerMTok = 2.50,
         .note = "Cheapest. Cached input $0.03 per M tokens. Vesk uses it for titles and tags."},
    };
    return models;
}

Json content(std::optional<std::string_view> role, std::string_view text) {
    Json result = Json::object();
    if (role) result.set("role", *role);
    result.set("parts", Json::array({Json::object({{"text", text}})}));
    return result;
}

std::string systemInstruction(const BrainRequest& request) {
    std::string text = request.system.value_or("");
    const auto add = [&](std::string_view more) {
        if (!text.empty()) text += "\n\n";
        text += more;
    };
    for (const auto& message : request.messages) {
        if (message.role == BrainMessage::Role::system && !trim(message.text).empty()) add(message.text);
    }
    if (request.context.empty()) return text;
    add("Notes from the user's vault that may be relevant. Cite them by title when you use them, and say so "
        "when "
        "they don't cover the question.\n");
    if (RetrievedChunk::includesDocuments(request.context)) text += RetrievedChunk::documentsSentence;
    for (const auto& chunk : request.context) text += "\n" + quotedChunk(chunk);
    return text;
}

}  // namespace

bool GeminiProvider::isConfigured() const {
    return keychain_.has(GeminiAPI::keychainAccount);
}

std::vector<BrainModel> GeminiProvider::models() const {
    return catalogue();
}

Json GeminiProvider::encodeBody(const BrainRequest& request, const std::string& model) {
    Json::Array contents;
    for (const auto& message : request.messages) {
        if (message.role == BrainMessage::Role::system || trim(message.text).empty()) continue;
        contents.push_back(
            content(message.role == BrainMessage::Role::assistant ? "model" : "user", message.text));
    }
    if (contents.empty()) {
        throw BrainError(
            BrainError::Unavailable{"There's nothing to ask Gemini yet — write a message first."});
    }
    int limit = request.maxTokens;
    const auto row = std::find_if(catalogue().begin(), catalogue().end(),
                                  [&](const BrainModel& candidate) { return candidate.id == model; });
    if (row != catalogue().end()) limit = std::min(limit, row->maxOutput);
    Json generation = Json::object({{"maxOutputTokens", std::max(limit, 1)}});
    if (request.temperature) generation.set("temperature", *request.temperature);

    Json body =
        Json::object({{"contents", std::move(contents)}, {"generationConfig", std::move(generation)}});
    if (const auto system = systemInstruction(request); !system.empty()) {
        body.set("systemInstruction", content(std::nullopt, system));
    }
    return body;
}

std::string GeminiProvider::streamCall(const std::string& model) {
    const bool isPathPart = !model.empty() && model != "." && model != ".." &&
                            std::all_of(model.begin(), model.end(), [](char c) {
                                return isAsciiAlphanumeric(c) || c == '-' || c == '.' || c == '_' || c == '~';
                            });
    if (!isPathPart) {
        throw BrainError(
            BrainError::Unavailable{"\"" + model + "\" isn't a model name Vesk can send to Gemini."});
    }
    return model + ":streamGenerateContent?alt=sse";
}

void GeminiProvider::stream(const BrainRequest& request, const std::string& model, const Sink& sink,
                            std::stop_token stop) const {
    throwingBrainErrors(stop, GeminiAPI::unreachable, [&] {
        const auto target = streamCall(model);
        const auto call = GeminiAPI::post(target, encodeBody(request, model), keychain_);
        GeminiStream reply;
        const auto refused = readModelStream(
            transport_, call, [](int status) { return status >= 200 && status <= 299; }, errorBodyLimit,
            reply, sink, stop);
        if (refused) throw GeminiAPI::failure(refused->head.status, refused->body);
    });
}

}  // namespace vesk
