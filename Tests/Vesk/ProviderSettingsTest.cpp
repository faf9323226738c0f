#include <gtest/gtest.h>

#include "Support/ModelCalls.h"
#include "Vesk/AI/ProviderSettings.h"
#include "VeskCore/Support/VirtualTime.h"

namespace vesk::test {
namespace {

class ProviderSettingsTest : public ::testing::Test {
protected:
    void SetUp() override {
        settings->onChanged = [this] { ++changes; };
        problems = settings->problem.subscribe([this](const std::string& words) { said.push_back(words); });
    }
    std::optional<std::string> masked(BrainProviderID id) const {
        for (const auto& key : settings->state->keys)
            if (key.provider == id) return key.masked;
        return "no row";
    }

    ModelWorld world;
    VirtualTime time;
    MemoryUserDefaults defaults;
    BrainProviders providers{world.transport, world.secrets, defaults, time, time};
    std::shared_ptr<ProviderSettings> settings =
        ProviderSettings::make(providers, world.secrets, defaults, time, time);
    int changes = 0;
    std::vector<std::string> said;
    Subscription problems;
};

TEST_F(ProviderSettingsTest, KeepsKeysInTheKeyringAndShowsTheirEndsAlone) {
    settings->refresh();
    time.settle();
    EXPECT_EQ(masked(BrainProviderID::anthropic), std::nullopt);
    settings->setKey(BrainProviderID::anthropic, "  sk-test-0123456789abcdef\n");
    settings->setKey(BrainProviderID::gemini, " ");
    time.settle();
    EXPECT_EQ(world.keychain.get("anthropic"), "sk-test-0123456789abcdef");
    EXPECT_EQ(masked(BrainProviderID::anthropic), "sk-test…cdef");
    EXPECT_EQ(masked(BrainProviderID::gemini), std::nullopt);
    EXPECT_EQ(changes, 1);
    settings->removeKey(BrainProviderID::anthropic);
    time.settle();
    EXPECT_EQ(world.keychain.get("anthropic"), std::nullopt);
    EXPECT_EQ(masked(BrainProviderID::anthropic), std::nullopt);
    EXPECT_EQ(changes, 2);
    EXPECT_TRUE(said.empty());
}

TEST_F(ProviderSettingsTest, SaysSoWhenTheKeyringRefuses) {
    world.secrets.unreachable = true;
    settings->setKey(BrainProviderID::openai, "sk-test");
    settings->removeKey(BrainProviderID::gemini);
    time.settle();
    EXPECT_EQ(said, (std::vector<std::string>{std::string(ProviderSettings::keyNotKept),
                                              std::string(ProviderSettings::keyNotRemoved)}));
    EXPECT_EQ(changes, 0);
}

TEST_F(ProviderSettingsTest, TellsWhatRunsOnThisMachine) {
    world.server.answer("/v1/models", ModelServer::reply(200, R"({"data":[{"id":"a"},{"id":"b"}]})"));
    world.server.answer("/v1/models", ModelServer::reply(200, R"({"data":[]})"));
    settings->refresh();
    EXPECT_TRUE(settings->state->checking);
    time.settle();
    EXPECT_FALSE(settings->state->checking);
    std::vector<std::string> states;
    for (const auto& server : settings->state->servers) states.push_back(server.state);
    EXPECT_EQ(states,
              (std::vector<std::string>{
                  "Connected · 2 models", "Running, but no models loaded",
                  "This Mac can't run Apple Intelligence. Vesk's other providers still work: add a key in "
                  "Settings → AI, or run a model locally with Ollama."}));
}

TEST_F(ProviderSettingsTest, TakesAddressesOrSaysWhatIsWrong) {
    using Words = std::optional<std::string>;
    EXPECT_EQ(settings->setCustom("models.example.com/v1/chat/completions/", " house "), Words());
    EXPECT_EQ(settings->customAddress(), "https://models.example.com/v1");
    EXPECT_EQ(settings->customModel(), "house");
    EXPECT_EQ(settings->setCustom("https://", ""), Words("“https://” is no address of a server."));
    EXPECT_EQ(settings->customAddress(), "https://models.example.com/v1") << "a bad one changes nothing";
    EXPECT_EQ(settings->setCustom("", "house"), Words());
    EXPECT_EQ(settings->customAddress(), "");

    EXPECT_EQ(settings->setOnDevice("example.com", "", ""), Words("“example.com” is not on this machine."));
    EXPECT_EQ(settings->setOnDevice("127.0.0.1:9", "m", "12x"),
              Words("“12x” is no number of tokens. It is 512 or more."));
    EXPECT_EQ(settings->onDeviceAddress(), "");
    EXPECT_EQ(settings->setOnDevice("127.0.0.1:9", "m", "8192"), Words());
    EXPECT_EQ(settings->onDeviceAddress(), "http://127.0.0.1:9/v1");
    EXPECT_EQ(settings->onDeviceContext(), 8192);
    EXPECT_EQ(settings->setOnDevice(" ", "m", "8192"), Words());
    EXPECT_EQ(settings->onDeviceContext(), std::nullopt);
    EXPECT_EQ(settings->onDeviceModel(), "");
    time.settle();
}

}  // namespace
}  // namespace vesk::test
