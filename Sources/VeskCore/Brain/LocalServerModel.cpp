#include "VeskCore/Brain/LocalServerModel.h"

#include <algorithm>
#include <limits>

#include "VeskCore/Brain/ChatStream.h"
#include "VeskCore/Brain/EndpointURL.h"
#include "VeskCore/Brain/WireJson.h"
#include "VeskCore/Support/Text.h"

namespace vesk {

namespace {

using Kind = GenerationError::Kind;

constexpr std::size_t errorBodyLimit = std::size_t{64} << 10;
constexpr std::size_t largestAnswer = std::size_t{1} << 20;

bool isSuccess(int status) {
    return status >= 200 && status <= 299;
}

GenerationError failure(int status, std::string_view body) {
    const auto words = ChatStream::explain(body);
    // Servers have no code in common for a prompt that doesn't fit; all of them name the context.
    const bool isTooMuch =
        (status == 400 || status == 413) && asciiLowercased(body).find("context") != std::string::npos;
    if (isTooMuch) return GenerationError(Kind::exceededContextWindowSize, words);
    if (status == 429 || status == 503) return GenerationError(Kind::rateLimited, words);
    return GenerationError(Kind::other, words);
}

GenerationError failure(const HttpError& error) {
    return GenerationError(error.kind == HttpError::Kind::cancelled ? Kind::cancelled : Kind::other,
                           error.description());
}

Json schemaJson(const GenerationSchema& schema) {
    Json properties = Json::object();
    Json::Array required;
    for (const auto& property : schema.properties) {
        Json::Array choices(property.anyOf.begin(), property.anyOf.end());
        properties.set(property.name, Json::object({{"type", "string"},
                                                    {"description", property.description},
                                                    {"enum", std::move(choices)}}));
        required.emplace_back(property.name);
    }
    return Json::object(
        {{"type", "json_schema"},
         {"json_schema", Json::object({{"name", schema.name},
                                       {"strict", true},
                                       {"schema", Json::object({{"type", "object"},
                                                                {"properties", std::move(properties)},
                                                                {"required", std::move(required)},
                                                                {"additionalProperties", false}})}})}});
}

/// The message of a reply that came as a whole.
Json wholeMessage(std::string_view body) {
    const auto json = parsedJson(body);
    const Json* member = json ? json->find("choices") : nullptr;
    const auto* choices = member ? member->asArray() : nullptr;
    const Json* message = choices && !choices->empty() ? choices->front().find("message") : nullptr;
    return message ? *message : Json();
}

}  // namespace

std::optional<std::string> LocalServerModel::baseURL() const {
    auto url = defaults_.string(baseURLKey);
    return url && EndpointURL::isLoopback(*url) ? url : std::nullopt;
}

std::string LocalServerModel::model(const std::string& url) const {
    const auto named = defaults_.string(modelKey).value_or("");
    if (!named.empty()) return named;
    const auto last = probes_->last(url);
    return last && !last->models.empty() ? last->models.front().id : "";
}

std::optional<SystemLanguageModel::Unavailability> LocalServerModel::unavailability() const {
    if (defaults_.string(baseURLKey).value_or("").empty()) return Unavailability::deviceNotEligible;
    const auto url = baseURL();
    if (!url) return Unavailability::other;
    probes_->start({.baseURL = *url});
    const auto last = probes_->last(*url);
    if (!last) return std::nullopt;
    if (!last->reachable) return Unavailability::other;
    if (model(*url).empty()) return Unavailability::modelNotReady;
    return std::nullopt;
}

std::optional<int> LocalServerModel::contextSize() const {
    const auto tokens = defaults_.number(contextSizeKey);
    if (!tokens || *tokens < 1 || *tokens > std::numeric_limits<int>::max()) return std::nullopt;
    return static_cast<int>(*tokens);
}

HttpRequest LocalServerModel::request(const std::string& instructions, const std::string& prompt,
                                      const GenerationOptions& options,
                                      const GenerationSchema* schema) const {
    const auto url = baseURL();
    if (!url) throw GenerationError(Kind::other, "no server on this machine is named");
    auto messages = Json::array();
    if (!instructions.empty()) {
        messages.append(Json::object({{"role", "system"}, {"content", instructions}}));
    }
    messages.append(Json::object({{"role", "user"}, {"content", prompt}}));
    Json body = Json::object({{"model", model(*url)},
                              {"messages", std::move(messages)},
                              {"max_tokens", options.maximumResponseTokens},
                              {"stream", schema == nullptr}});
    if (options.temperature) body.set("temperature", *options.temperature);
    if (schema) body.set("response_format", schemaJson(*schema));
    return {.method = "POST",
            .url = EndpointURL::appending(*url, "chat/completions"),
            .headers = {{"Content-Type", "application/json"},
                        {"Accept", schema ? "application/json" : "text/event-stream"}},
            .body = body.dump(Json::Style::sortedCompact),
            // The model may have to be loaded from the disk first.
            .idleTimeout = std::chrono::seconds(300)};
}

void LocalServerModel::streamResponse(const std::string& instructions, const std::string& prompt,
                                      const GenerationOptions& options,
                                      const std::function<void(const std::string&)>& onSnapshot,
                                      std::stop_token stop) {
    const auto call = request(instructions, prompt, options, nullptr);
    std::string snapshot;
    ChatStream reply("The server");
    try {
        const auto refused = readModelStream(
            transport_, call, isSuccess, errorBodyLimit, reply,
            [&](const BrainEvent& event) {
                const auto* text = std::get_if<BrainEvent::Text>(&event.value);
                if (!text) return;
                if (snapshot.size() + text->text.size() > largestAnswer) {
                    throw GenerationError(Kind::other, "the answer has no end");
                }
                snapshot += text->text;
                onSnapshot(snapshot);
            },
            stop);
        if (refused) throw failure(refused->head.status, refused->body);
    } catch (const HttpError& error) {
        throw failure(error);
    } catch (const BrainError& error) {
        const bool isStop = std::holds_alternative<BrainError::Cancelled>(error.value);
        throw GenerationError(isStop ? Kind::cancelled : Kind::other, error.description());
    }
}

std::map<std::string, std::string> LocalServerModel::respond(const std::string& instructions,
                                                             const std::string& prompt,
                                                             const GenerationSchema& schema,
                                                             const GenerationOptions& options,
                                                             std::stop_token stop) {
    auto call = request(instructions, prompt, options, &schema);
    call.maxBody = largestAnswer;
    HttpReply reply;
    try {
        reply = transport_.fetch(call, stop);
    } catch (const HttpError& error) {
        throw failure(error);
    }
    if (!isSuccess(reply.head.status)) throw failure(reply.head.status, reply.body);
    const auto message = wholeMessage(reply.body);
    if (const auto refusal = message.string("refusal"); refusal && !refusal->empty()) {
        throw GenerationError(Kind::refusal, *refusal);
    }
    const auto answer = parsedJson(message.string("content").value_or(""));
    std::map<std::string, std::string> values;
    for (const auto& property : schema.properties) {
        const auto value = answer ? answer->string(property.name) : std::nullopt;
        // A server that doesn't know the form lets the model answer as it likes.
        if (!value ||
            std::find(property.anyOf.begin(), property.anyOf.end(), *value) == property.anyOf.end()) {
            throw GenerationError(Kind::other, "the answer is none of the choices");
        }
        values[property.name] = *value;
    }
    return values;
}

}  // namespace vesk
