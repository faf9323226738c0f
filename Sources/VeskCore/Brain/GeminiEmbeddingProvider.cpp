#include "VeskCore/Brain/GeminiEmbeddingProvider.h"

#include <fmt/format.h>

#include <algorithm>

#include "VeskCore/Brain/GeminiAPI.h"
#include "VeskCore/Brain/ModelStream.h"
#include "VeskCore/Index/LocalEmbedding.h"
#include "VeskCore/Support/Characters.h"
#include "VeskCore/Support/Text.h"

namespace vesk {

namespace {

constexpr std::string_view model = "gemini-embedding-001";
constexpr std::size_t batchSize = 100;  // the most that the service takes at once
constexpr int retries = 2;
constexpr long long longestWait = 30;  // seconds

BrainError decoding(std::string detail) {
    return BrainError(BrainError::Decoding{std::move(detail)});
}

bool isWorthAnotherTry(int status) {
    return status == 429 || (status >= 500 && status <= 599);
}

/// The seconds that the service asks for; one, then two, where it doesn't say.
Duration pause(const HttpHead& head, int attempt) {
    const auto header = head.header("Retry-After");
    auto seconds = header ? parseInteger(trim(*header)) : std::nullopt;
    if (!seconds || *seconds < 0) seconds = attempt + 1;
    return std::chrono::seconds(std::min(*seconds, longestWait));
}

Json requestBody(const std::vector<std::string>& texts, std::size_t from, std::size_t to,
                 GeminiEmbeddingProvider::Task task, const GeminiEmbeddingProvider& provider) {
    Json::Array requests;
    for (std::size_t i = from; i < to; ++i) {
        const auto text = characterPrefix(texts[i], static_cast<std::size_t>(provider.maxChunkCharacters()));
        requests.push_back(Json::object(
            {{"model", "models/" + std::string(model)},
             {"content", Json::object({{"parts", Json::array({Json::object({{"text", text}})})}})},
             {"taskType",
              task == GeminiEmbeddingProvider::Task::query ? "RETRIEVAL_QUERY" : "RETRIEVAL_DOCUMENT"},
             {"outputDimensionality", provider.dimensions()}}));
    }
    return Json::object({{"requests", std::move(requests)}});
}

std::vector<std::vector<float>> vectors(std::string_view body, std::size_t wanted, std::size_t dimensions) {
    Json json;
    try {
        json = Json::parse(body);
    } catch (const JsonError& error) {
        throw decoding("the embeddings couldn't be read (" + error.description() + ")");
    }
    const Json* member = json.find("embeddings");
    const auto* embeddings = member ? member->asArray() : nullptr;
    if (!embeddings) throw decoding("the embeddings couldn't be read (\"embeddings\": expected an array)");
    if (embeddings->size() != wanted) {
        throw decoding(
            fmt::format("Gemini returned {} embeddings for {} chunks", embeddings->size(), wanted));
    }
    std::vector<std::vector<float>> result;
    for (const auto& embedding : *embeddings) {
        const Json* entries = embedding.find("values");
        const auto* values = entries ? entries->asArray() : nullptr;
        if (!values || values->size() != dimensions) {
            throw decoding("Gemini returned embeddings of an unexpected size; expected 768 values");
        }
        std::vector<double> vector;
        for (const auto& value : *values) {
            const auto number = value.asDouble();
            if (!number) throw decoding("the embeddings couldn't be read (\"values\": expected numbers)");
            vector.push_back(*number);
        }
        result.push_back(LocalEmbedding::normalised(vector));
    }
    return result;
}

}  // namespace

bool GeminiEmbeddingProvider::isConfigured() const {
    return keychain_.has(GeminiAPI::keychainAccount);
}

HttpReply GeminiEmbeddingProvider::sendWithRetry(const HttpRequest& request, const std::stop_token& stop) {
    for (int attempt = 0;; ++attempt) {
        auto reply = transport_.fetch(request, stop);
        if (reply.head.status >= 200 && reply.head.status <= 299) return reply;
        if (!isWorthAnotherTry(reply.head.status) || attempt == retries) {
            throw GeminiAPI::failure(reply.head.status, withoutSecret(reply.body, request.secret));
        }
        if (!clock_.sleep(pause(reply.head, attempt), stop)) throw BrainError(BrainError::Cancelled{});
    }
}

std::vector<std::vector<float>> GeminiEmbeddingProvider::embed(const std::vector<std::string>& texts,
                                                               Task task, std::stop_token stop) {
    std::vector<std::vector<float>> result;
    throwingBrainErrors(stop, GeminiAPI::unreachable, [&] {
        for (std::size_t from = 0; from < texts.size(); from += batchSize) {
            const auto to = std::min(from + batchSize, texts.size());
            auto request = GeminiAPI::post(std::string(model) + ":batchEmbedContents",
                                           requestBody(texts, from, to, task, *this), keychain_);
            request.allowsCompression = true;
            const auto reply = sendWithRetry(request, stop);
            for (auto& vector : vectors(reply.body, to - from, static_cast<std::size_t>(dimensions()))) {
                result.push_back(std::move(vector));
            }
        }
    });
    return result;
}

}  // namespace vesk
