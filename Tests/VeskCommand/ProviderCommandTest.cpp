#include <gtest/gtest.h>

#include <fstream>

#include "Program.h"
#include "Support/ModelServer.h"
#include "VeskCore/Support/Json.h"

namespace vesk::test {
namespace {

/// A home whose every request goes to a scripted server.
class ProviderCommands : public testing::Test {
protected:
    Program program;
    ModelServer server;
    Ran run(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), "providers");
        return program.runPlain(arguments, "", {"VESK_MODEL_SERVER=" + server.address()});
    }
    void serveOneModel() {
        server.answer("/v1/models", ModelServer::reply(200, R"({"data":[{"id":"qwen3"}]})"));
    }
};

TEST_F(ProviderCommands, ListProvidersWithModelsAndPrices) {
    serveOneModel();
    const auto listed = Json::parse(run({"--json"}).out);
    EXPECT_EQ(listed.string("activeProviderID"), "ollama");
    EXPECT_EQ(listed.string("activeModelID"), "qwen3");
    const auto& options = *listed.find("options")->asArray();
    ASSERT_EQ(options.size(), 6u);
    EXPECT_EQ(options[0].boolean("isReady"), true);
    const auto& claude = options[3];
    EXPECT_EQ(claude.string("blockedReason"), "No API key for Claude (Anthropic). Add one in Settings → AI.");
    EXPECT_EQ(
        (*claude.find("models")->asArray())[1],
        Json::parse(R"({"id": "claude-sonnet-5", "displayName": "Claude Sonnet 5", "contextWindow": 1000000,
                "maxOutput": 128000, "inputPricePerMTok": 2, "outputPricePerMTok": 10,
                "priceLabel": "$2 in / $10 out per M tokens",
                "note": "Everyday driver — most of Opus's quality for a fraction of the cost."})"));
    const auto text = run({}).out;
    EXPECT_NE(text.find("Ollama (local)  ready\n* qwen3  Free · runs locally\n"), std::string::npos) << text;
    for (const auto& request : server.requests())
        EXPECT_TRUE(request.headers.at("host").starts_with("127.0.0.1:"));
}

TEST_F(ProviderCommands, KeepTheChoice) {
    serveOneModel();
    EXPECT_EQ(run({"use", "lmstudio"}).status, 0);
    EXPECT_EQ(Json::parse(run({"--json"}).out).string("activeProviderID"), "lmstudio");
    const auto keyless = run({"use", "anthropic", "claude-haiku-4-5"});
    EXPECT_EQ(keyless.status, 0);
    EXPECT_EQ(keyless.err, "No API key for Claude (Anthropic). Add one in Settings → AI.\n");
    EXPECT_EQ(Json::parse(run({"--json"}).out).string("activeProviderID"), "ollama")
        << "as long as it isn't ready";
    EXPECT_EQ(run({"use", "anthropic", "claude-1"}).err,
              "vesk: Claude (Anthropic) has no model “claude-1”.\n");
    EXPECT_EQ(run({"use", "custom"}).err,
              "vesk: The custom endpoint has no address yet. Give it one with “vesk providers custom”.\n");
    EXPECT_EQ(run({"use", "nobody"}).status, 2);
}

TEST_F(ProviderCommands, NameServersOfOnesOwn) {
    serveOneModel();
    EXPECT_EQ(run({"custom", "models.example.com/v1/chat/completions", "--model", "house"}).out,
              "https://models.example.com/v1\n");
    EXPECT_EQ(run({"on-device", "127.0.0.1:8080", "--context", "8192"}).out, "http://127.0.0.1:8080/v1\n");
    EXPECT_EQ(run({"on-device", "192.0.2.1:80"}).err, "vesk: “192.0.2.1:80” is not on this machine.\n");
    EXPECT_EQ(run({"custom", "///"}).err, "vesk: “///” is no address of a server.\n");
    EXPECT_EQ(run({"custom"}).status, 2);
    const auto options = *Json::parse(run({"--json", "--services"}).out).find("options")->asArray();
    ASSERT_EQ(options.size(), 7u);
    EXPECT_EQ(options[2].boolean("isReady"), true);
    EXPECT_EQ((*options[2].find("models")->asArray())[0].integer("contextWindow"), 8192);
    ASSERT_EQ(options[6].find("models")->asArray()->size(), 2u);
    EXPECT_EQ((*options[6].find("models")->asArray())[1].find("inputPricePerMTok")->isNull(), true);
    EXPECT_EQ(run({"custom", "--forget"}).status, 0);
    EXPECT_EQ(Json::parse(run({"--json"}).out).find("options")->asArray()->size(), 6u);
}

TEST_F(ProviderCommands, RefuseAStandInBeyondThisMachine) {
    const auto ran = program.runPlain({"providers", "--json"}, "", {"VESK_MODEL_SERVER=192.0.2.1:80"});
    EXPECT_EQ((*Json::parse(ran.out).find("options")->asArray())[0].boolean("isReady"), false);
    EXPECT_TRUE(server.requests().empty());
}

TEST_F(ProviderCommands, ConnectToNothingButThisMachine) {
    serveOneModel();
    EXPECT_EQ(run({"custom", "127.0.0.1:1", "--model", "house"}).status, 0);
    const auto trace = program.home / "trace";
    const auto ran = program.runTraced("connect,sendto,sendmsg,sendmmsg", trace, {"providers", "--services"},
                                       {"VESK_MODEL_SERVER=" + server.address()});
    ASSERT_EQ(ran.status, 0) << ran.err;
    std::ifstream lines(trace);
    int connected = 0;
    for (std::string line; std::getline(lines, line);) {
        if (line.find("sa_family=AF_INET") == std::string::npos) continue;
        ++connected;
        EXPECT_TRUE(line.find("inet_addr(\"127.0.0.1\")") != std::string::npos ||
                    line.find("inet_pton(AF_INET6, \"::1\"") != std::string::npos)
            << line;
    }
    EXPECT_GT(connected, 0);
}

}  // namespace
}  // namespace vesk::test
