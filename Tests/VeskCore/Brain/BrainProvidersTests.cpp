#include <gtest/gtest.h>

#include "Support/ModelCalls.h"
#include "VeskCore/Brain/BrainProviders.h"
#include "VeskCore/Support/VirtualTime.h"

namespace vesk::test {
namespace {

/// "lmstudio: ready" or "lmstudio: why not", a row each.
std::vector<std::string> states(const std::vector<ProviderOption>& options) {
    std::vector<std::string> rows;
    for (const auto& option : options) {
        rows.push_back(std::string(rawValue(option.providerID)) + ": " +
                       option.blockedReason.value_or("ready"));
        EXPECT_EQ(option.isReady, !option.blockedReason);
        EXPECT_EQ(option.provider->id(), option.providerID);
    }
    return rows;
}

TEST(BrainProvidersOfAProgram, AreReadyOrSayWhyNot) {
    ModelWorld world;
    VirtualTime time;
    MemoryUserDefaults defaults;
    const BrainProviders providers(world.transport, world.secrets, defaults, time, time);
    EXPECT_EQ(
        states(providers.options()),
        (std::vector<std::string>{
            "lmstudio: Looking for LM Studio (local)…", "ollama: Looking for Ollama (local)…",
            "apple: This Mac can't run Apple Intelligence. Vesk's other providers still work: add a key in "
            "Settings → AI, or run a model locally with Ollama.",
            "anthropic: No API key for Claude (Anthropic). Add one in Settings → AI.",
            "gemini: No API key for Gemini (Google). Add one in Settings → AI.",
            "openai: No API key for OpenAI. Add one in Settings → AI."}));
    EXPECT_TRUE(world.server.requests().empty()) << "making providers does not wait";

    world.server.answer("/v1/models", ModelServer::reply(500, ""));
    time.settle();
    auto rows = states(providers.options());
    EXPECT_EQ(
        rows[0],
        "lmstudio: LM Studio's local server isn't answering. Open LM Studio → Developer → Start Server.");
    EXPECT_EQ(
        rows[1],
        "ollama: Ollama isn't answering. Start it from the menu bar, or run `ollama serve` in Terminal.");

    world.server.answer("/v1/models", ModelServer::reply(200, R"({"data":[]})"));
    world.server.answer("/v1/models", ModelServer::reply(200, R"({"data":[{"id":"qwen3"}]})"));
    for (const auto* account : {"anthropic", "gemini", "openai"}) world.keychain.set("k", account);
    CustomEndpoint(defaults).setBaseURL("https://models.example.com/v1");
    defaults.set(LocalServerModel::baseURLKey, Json("http://127.0.0.1:9/v1"));
    providers.probeLocalServers(true, {});  // the last scripted failure, then no model, then one
    providers.probeLocalServers(true, {});
    EXPECT_EQ(
        states(providers.options()),
        (std::vector<std::string>{
            "lmstudio: ready", "ollama: ready", "apple: ready", "anthropic: ready", "gemini: ready",
            "openai: ready", "custom: No model selected for Custom endpoint. Pick one in Settings → AI."}));
    CustomEndpoint(defaults).setModel("house-model");
    EXPECT_EQ(states(providers.options()).back(), "custom: ready");

    const auto options = providers.options();
    EXPECT_EQ(ProviderSelection::resolve(options, std::nullopt, std::nullopt, ""),
              (ProviderSelection::Selection{.providerID = BrainProviderID::ollama, .modelID = "qwen3"}));
    EXPECT_EQ(
        ProviderSelection::resolve(options, "custom", "house-model", ""),
        (ProviderSelection::Selection{.providerID = BrainProviderID::custom, .modelID = "house-model"}));
    EXPECT_EQ(
        world.transport.addresses(),
        (std::set<std::string>{"http://127.0.0.1:11434", "http://127.0.0.1:1234", "http://127.0.0.1:9"}))
        << "nothing but this machine is asked before the user asks";
    EXPECT_TRUE(providers.geminiEmbedding()->isConfigured());
}

TEST(BrainProvidersOfAProgram, TellAServerWithoutModels) {
    ModelWorld world;
    VirtualTime time;
    MemoryUserDefaults defaults;
    world.server.answer("/v1/models", ModelServer::reply(200, R"({"data":[]})"));
    const BrainProviders providers(world.transport, world.secrets, defaults, time, time);
    providers.probeLocalServers(false, {});
    const auto rows = states(providers.options());
    EXPECT_EQ(rows[0],
              "lmstudio: LM Studio (local) is running but has no model loaded. Load one and try again.");
    EXPECT_EQ(rows[1], "ollama: Ollama (local) is running but has no model loaded. Load one and try again.");
}

/// Notes how long each request would wait, and fails it.
class WaitingTransport final : public HttpTransport {
public:
    void send(const HttpRequest& request, const Sink&, std::stop_token) override {
        using std::chrono::duration_cast;
        using std::chrono::seconds;
        waits.push_back(std::to_string(duration_cast<seconds>(request.idleTimeout).count()) + " of " +
                        std::to_string(duration_cast<seconds>(request.totalTimeout).count()));
        throw HttpError(HttpError::Kind::timedOut);
    }
    std::vector<std::string> waits;
};

TEST(BrainProvidersOfAProgram, WaitAsLongAsTheirServicesMayTake) {
    const struct {
        BrainProviderID id;
        std::string waits;  ///< seconds without a byte, of seconds in all
        std::string failure;
    } rows[] = {
        {BrainProviderID::anthropic, "300 of 3600", "Couldn't reach Claude: The request timed out."},
        {BrainProviderID::gemini, "60 of 3600", "Couldn't reach Gemini: The request timed out."},
        {BrainProviderID::openai, "60 of 3600",
         "Couldn't reach api.openai.com. Check the internet connection and try again."},
        {BrainProviderID::ollama, "60 of 3600",
         "Ollama isn't answering on 127.0.0.1:11434. Start it from the menu bar app, or run `ollama serve` "
         "in Terminal."},
        {BrainProviderID::lmstudio, "60 of 3600",
         "LM Studio's local server isn't answering on 127.0.0.1:1234. Open LM Studio, go to the Developer "
         "tab and start the server."},
        {BrainProviderID::custom, "60 of 3600",
         "Couldn't reach models.example.com. Check the address, and whether the service needs an API key."},
    };
    WaitingTransport transport;
    MemorySecretStore secrets;
    Keychain keychain(secrets);
    VirtualTime time;
    MemoryUserDefaults defaults;
    for (const auto* account : {"anthropic", "gemini", "openai"}) keychain.set("k", account);
    CustomEndpoint(defaults).setBaseURL("https://models.example.com/v1");
    const BrainProviders providers(transport, secrets, defaults, time, time);
    for (const auto& row : rows) {
        const auto provider = providers.make(row.id);
        EXPECT_EQ(ask(*provider, question("q"), "m"), std::vector<std::string>{"failed: " + row.failure});
        EXPECT_EQ(transport.waits, std::vector<std::string>{row.waits}) << rawValue(row.id);
        transport.waits.clear();
    }
    providers.probeLocalServers(true, {});
    EXPECT_EQ(transport.waits, (std::vector<std::string>{"2 of 2", "2 of 2"})) << "a look at each server";
}

TEST(BrainProvidersOfAProgram, KeepWhatAServerTellsThatPlaysTheOnDeviceModelToo) {
    ModelWorld world;
    VirtualTime time;
    MemoryUserDefaults defaults;
    defaults.set(LocalServerModel::baseURLKey, Json(LocalServerProbe::lmStudioAddress));
    world.server.answer("/v1/models", ModelServer::reply(200, R"({"data":[{"id":"qwen3"}]})"));
    world.server.answer(
        "/api/v0/models",
        ModelServer::reply(200, R"({"data":[{"id":"qwen3","loaded_context_length":16384}]})"));
    const BrainProviders providers(world.transport, world.secrets, defaults, time, time);
    providers.probeLocalServers(true, {});
    EXPECT_EQ(providers.options().front().models.front().contextWindow, 16384);
    EXPECT_EQ(world.server.requests().size(), 3u) << "each server once, LM Studio for its further list";
}

}  // namespace
}  // namespace vesk::test
