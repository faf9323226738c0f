#include "VeskCore/Brain/GeminiAPI.h"

#include "VeskCore/Brain/BrainProviderID.h"
#include "VeskCore/Brain/WireJson.h"
#include "VeskCore/Support/Text.h"

namespace vesk::GeminiAPI {

HttpRequest post(const std::string& call, const Json& body, const Keychain& keychain) {
    const auto stored = keychain.get(keychainAccount);
    const auto key = trim(stored ? std::string_view(*stored) : std::string_view());
    if (key.empty()) {
        throw BrainError(BrainError::MissingAPIKey{std::string(displayName(BrainProviderID::gemini))});
    }
    return {.method = "POST",
            .url = std::string(modelsAddress) + call,
            .headers = {{"Content-Type", "application/json"}, {"x-goog-api-key", std::string(key)}},
            .body = body.dump(Json::Style::sortedCompact),
            .secret = std::string(key)};
}

BrainError failure(int status, std::string_view body) {
    const auto json = parsedJson(body);
    const Json* error = json ? json->find("error") : nullptr;
    const auto message = error ? error->string("message") : std::nullopt;
    if (message && !message->empty()) return BrainError(BrainError::Http{status, *message});
    const auto word = error ? error->string("status") : std::nullopt;
    return BrainError(BrainError::Http{status, word && !word->empty() ? *word : repairedUtf8(body)});
}

BrainError unreachable(const HttpError& error) {
    if (error.kind == HttpError::Kind::notHttp) {
        return BrainError(BrainError::Decoding{"the reply wasn't an HTTP response"});
    }
    return BrainError(BrainError::Unavailable{"Couldn't reach Gemini: " + error.description()});
}

}  // namespace vesk::GeminiAPI
