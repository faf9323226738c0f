#include "VeskCore/Brain/OpenAICompatibleProvider.h"

#include <algorithm>

#include "VeskCore/Brain/ChatStream.h"
#include "VeskCore/Brain/EndpointURL.h"
#include "VeskCore/Brain/QuotedChunks.h"
#include "VeskCore/Support/Text.h"

namespace vesk {

namespace {

constexpr std::string_view openAIAddress = "https://api.openai.com/v1";
constexpr std::size_t errorBodyLimit = std::size_t{64} << 10;

/// The reasoning models take no temperature.
bool takesTemperature(std::string_view model) {
    const auto lowered = asciiLowercased(model);
    const std::string_view id(lowered);
    return !(id.starts_with("o1") || id.starts_with("o3") || id.starts_with("o4") || id.starts_with("gpt-5"));
}

Json wireMessages(const BrainRequest& request) {
    std::string system = request.system.value_or("");
    if (!request.context.empty()) {
        if (!system.empty()) system += "\n\n";
        system +=
            "Notes retrieved from the user's vault, most relevant first. Answer from them where they apply, "
            "and "
            "name the note you used.\n\n";
        if (RetrievedChunk::includesDocuments(request.context)) {
            system.append(RetrievedChunk::documentsSentence).append("\n\n");
        }
        for (std::size_t i = 0; i < request.context.size(); ++i) {
            if (i > 0) system += "\n\n";
            system += quotedChunk(request.context[i]);
        }
    }
    Json::Array messages;
    const auto add = [&](std::string_view role, std::string_view text) {
        messages.push_back(Json::object({{"role", role}, {"content", text}}));
    };
    if (!system.empty()) add("system", system);
    for (const auto& message : request.messages) add(rawValue(message.role), message.text);
    return Json(std::move(messages));
}

std::vector<BrainModel> openAIList(const std::vector<std::string>& ids) {
    auto models = ChatModels::openAIModels();
    for (const auto& id : ids) {
        const bool isListed = std::any_of(models.begin(), models.end(),
                                          [&](const BrainModel& model) { return model.id == id; });
        if (!isListed) models.push_back(ChatModels::openAIModel(id));
    }
    return models;
}

}  // namespace

OpenAICompatibleProvider::OpenAICompatibleProvider(HttpTransport& transport, Keychain keychain,
                                                   Settings settings)
    : transport_(transport),
      keychain_(keychain),
      id_(settings.id),
      displayName_(std::move(settings.displayName)),
      baseURL_(std::move(settings.baseURL)),
      keychainAccount_(std::move(settings.keychainAccount)),
      defaultModel_(std::move(settings.defaultModel)),
      usesOpenAIParameterRules_(settings.usesOpenAIParameterRules),
      requestsUsage_(settings.requestsUsage),
      unreachableAdvice_(std::move(settings.unreachableAdvice)),
      probes_(std::move(settings.probes)),
      knownModels_(std::move(settings.knownModels)) {
    if (probes_) probes_->start(server());
}

std::shared_ptr<OpenAICompatibleProvider> OpenAICompatibleProvider::openAI(HttpTransport& transport,
                                                                           Keychain keychain) {
    Settings settings{
        .id = BrainProviderID::openai,
        .displayName = "OpenAI",
        .baseURL = std::string(openAIAddress),
        .keychainAccount = "openai",
        .defaultModel = std::string(openAIDefaultModel),
        .usesOpenAIParameterRules = true,
        .requestsUsage = true,
        .unreachableAdvice = "Couldn't reach api.openai.com. Check the internet connection and try again.",
        .knownModels = ChatModels::openAIModels(),
    };
    return std::shared_ptr<OpenAICompatibleProvider>(
        new OpenAICompatibleProvider(transport, keychain, std::move(settings)));
}

std::shared_ptr<OpenAICompatibleProvider> OpenAICompatibleProvider::ollama(HttpTransport& transport,
                                                                           Keychain keychain,
                                                                           std::shared_ptr<ProbeCache> probes,
                                                                           std::string_view baseURL) {
    Settings settings{
        .id = BrainProviderID::ollama,
        .displayName = "Ollama (local)",
        .baseURL = std::string(baseURL),
        .unreachableAdvice = "Ollama isn't answering on " + EndpointURL::hostAndPort(std::string(baseURL)) +
                             ". Start it from the menu bar app, or run `ollama serve` in Terminal.",
        .probes = std::move(probes),
    };
    return std::shared_ptr<OpenAICompatibleProvider>(
        new OpenAICompatibleProvider(transport, keychain, std::move(settings)));
}

std::shared_ptr<OpenAICompatibleProvider> OpenAICompatibleProvider::lmStudio(
    HttpTransport& transport, Keychain keychain, std::shared_ptr<ProbeCache> probes,
    std::string_view baseURL) {
    Settings settings{
        .id = BrainProviderID::lmstudio,
        .displayName = "LM Studio (local)",
        .baseURL = std::string(baseURL),
        .unreachableAdvice = "LM Studio's local server isn't answering on " +
                             EndpointURL::hostAndPort(std::string(baseURL)) +
                             ". Open LM Studio, go to the Developer tab and start the server.",
        .probes = std::move(probes),
    };
    return std::shared_ptr<OpenAICompatibleProvider>(
        new OpenAICompatibleProvider(transport, keychain, std::move(settings)));
}

std::shared_ptr<OpenAICompatibleProvider> OpenAICompatibleProvider::custom(HttpTransport& transport,
                                                                           Keychain keychain,
                                                                           const CustomEndpoint& endpoint) {
    const auto baseURL = endpoint.baseURL();
    if (!baseURL) return nullptr;
    const auto model = endpoint.model();
    Settings settings{
        .id = BrainProviderID::custom,
        .displayName = std::string(vesk::displayName(BrainProviderID::custom)),
        .baseURL = *baseURL,
        .keychainAccount = std::string(CustomEndpoint::keychainAccount),
        .defaultModel = model,
        .unreachableAdvice = "Couldn't reach " + EndpointURL::host(*baseURL) +
                             ". Check the address, and whether the service needs an API key.",
    };
    if (!model.empty()) settings.knownModels.push_back(ChatModels::typedModel(model));
    return std::shared_ptr<OpenAICompatibleProvider>(
        new OpenAICompatibleProvider(transport, keychain, std::move(settings)));
}

std::optional<std::string> OpenAICompatibleProvider::key() const {
    const auto stored = keychainAccount_ ? keychain_.get(*keychainAccount_) : std::nullopt;
    const auto key = trim(stored ? std::string_view(*stored) : std::string_view());
    return key.empty() ? std::nullopt : std::optional(std::string(key));
}

ProbeCache::Server OpenAICompatibleProvider::server() const {
    return {.baseURL = baseURL_, .tellsLoadedModels = id_ == BrainProviderID::lmstudio};
}

std::optional<bool> OpenAICompatibleProvider::lastReachable() const {
    const auto last = probes_ ? probes_->last(baseURL_) : std::nullopt;
    return last ? std::optional(last->reachable) : std::nullopt;
}

bool OpenAICompatibleProvider::isConfigured() const {
    if (probes_) return lastReachable().value_or(false);
    return id_ == BrainProviderID::custom || (keychainAccount_ && keychain_.has(*keychainAccount_));
}

std::vector<BrainModel> OpenAICompatibleProvider::models() const {
    if (probes_) {
        const std::lock_guard guard(modelsLock_);
        if (!knownModels_.empty()) return knownModels_;
    }
    // A probe that another provider of this address made says as much.
    if (const auto last = probes_ ? probes_->last(baseURL_) : std::nullopt) return last->models;
    const std::lock_guard guard(modelsLock_);
    return knownModels_;
}

bool OpenAICompatibleProvider::isReachable(std::stop_token stop) const {
    if (probes_) return probes_->probe(server(), false, stop).reachable;
    return LocalServerProbe::modelIDs(transport_, baseURL_, key(), stop).has_value();
}

void OpenAICompatibleProvider::refresh(bool force, std::stop_token stop) {
    std::vector<BrainModel> models;
    if (probes_) {
        auto result = probes_->probe(server(), force, stop);
        if (!result.reachable) return;
        models = std::move(result.models);
    } else {
        const auto ids = LocalServerProbe::modelIDs(transport_, baseURL_, key(), stop);
        if (!ids) return;
        if (id_ == BrainProviderID::openai) {
            models = openAIList(*ids);
        } else {
            if (!defaultModel_.empty()) models.push_back(ChatModels::typedModel(defaultModel_));
            for (const auto& id : *ids) {
                if (id != defaultModel_) models.push_back(ChatModels::typedModel(id));
            }
        }
    }
    const std::lock_guard guard(modelsLock_);
    knownModels_ = std::move(models);
}

std::string OpenAICompatibleProvider::modelToAsk(const std::string& model) const {
    if (!model.empty()) return model;
    if (!defaultModel_.empty()) return defaultModel_;
    const auto known = models();
    if (!known.empty()) return known.front().id;
    throw BrainError(
        BrainError::Unavailable{"No model selected for " + displayName_ + ". Pick one in Settings → AI."});
}

Json OpenAICompatibleProvider::body(const BrainRequest& request, const std::string& model) const {
    int limit = request.maxTokens;
    const auto known = models();
    const auto row = std::find_if(known.begin(), known.end(),
                                  [&](const BrainModel& candidate) { return candidate.id == model; });
    if (row != known.end()) {
        limit = std::min(limit, row->maxOutput);
    } else if (usesOpenAIParameterRules_) {
        limit = std::min(limit, ChatModels::openAIModel(model).maxOutput);
    }
    limit = std::max(limit, 1);

    Json body = Json::object({{"model", model}, {"messages", wireMessages(request)}, {"stream", true}});
    body.set(usesOpenAIParameterRules_ ? "max_completion_tokens" : "max_tokens", limit);
    if (request.temperature && (!usesOpenAIParameterRules_ || takesTemperature(model))) {
        body.set("temperature", *request.temperature);
    }
    if (requestsUsage_) body.set("stream_options", Json::object({{"include_usage", true}}));
    return body;
}

BrainError OpenAICompatibleProvider::readable(const HttpError& error) const {
    using Kind = HttpError::Kind;
    if (error.kind == Kind::cannotConnect || error.kind == Kind::hostNotFound ||
        error.kind == Kind::timedOut) {
        return BrainError(BrainError::Unavailable{unreachableAdvice_});
    }
    if (error.kind == Kind::notHttp) {
        return BrainError(
            BrainError::Unavailable{displayName_ + ": the server replied with something that wasn't HTTP."});
    }
    return BrainError(BrainError::Unavailable{"Couldn't reach " + displayName_ + ": " + error.description()});
}

void OpenAICompatibleProvider::stream(const BrainRequest& request, const std::string& model, const Sink& sink,
                                      std::stop_token stop) const {
    throwingBrainErrors(
        stop, [this](const HttpError& error) { return readable(error); },
        [&] {
            const auto asked = modelToAsk(model);
            const auto secret = key();
            if (!secret && id_ == BrainProviderID::openai) {
                throw BrainError(BrainError::MissingAPIKey{displayName_});
            }
            HttpRequest call{
                .method = "POST",
                .url = EndpointURL::appending(baseURL_, "chat/completions"),
                .headers = {{"Content-Type", "application/json"}, {"Accept", "text/event-stream"}},
                .body = body(request, asked).dump(Json::Style::sortedCompact)};
            if (secret) {
                call.headers.push_back({"Authorization", "Bearer " + *secret});
                call.secret = *secret;
            }
            ChatStream reply(displayName_);
            const auto refused = readModelStream(
                transport_, call, [](int status) { return status >= 200 && status <= 299; }, errorBodyLimit,
                reply, sink, stop);
            if (refused) {
                throw BrainError(BrainError::Http{refused->head.status, ChatStream::explain(refused->body)});
            }
        });
}

}  // namespace vesk
