#include <gtest/gtest.h>

#include <limits>

#include "VeskCore/Brain/BrainMessage.h"
#include "VeskCore/Brain/BrainModel.h"
#include "VeskCore/Brain/BrainProviderID.h"
#include "VeskCore/Brain/ProviderSelection.h"

namespace vesk {
namespace {

TEST(BrainMessages, AreStoredAsRoleAndText) {
    const BrainMessage message{.role = BrainMessage::Role::assistant, .text = "a \"b\""};
    EXPECT_EQ(toJson(message).dump(), R"({"role":"assistant","text":"a \"b\""})");
    EXPECT_EQ(brainMessage(Json::parse(R"({"text":"t","role":"system","more":1})")),
              (BrainMessage{.role = BrainMessage::Role::system, .text = "t"}));
    for (const auto* text : {R"({"role":"tool","text":"t"})", R"({"text":"t"})", R"({"role":"user"})",
                             R"({"role":"user","text":1})", "[]"}) {
        EXPECT_THROW(brainMessage(Json::parse(text)), JsonError) << text;
    }
}

TEST(BrainProviders, HaveTheirNamesAndProperties) {
    struct Row {
        std::string_view raw, name, shortName;
        bool needsKey, leavesDevice;
    };
    const Row rows[] = {
        {"anthropic", "Claude (Anthropic)", "Claude", true, true},
        {"gemini", "Gemini (Google)", "Gemini", true, true},
        {"openai", "OpenAI", "OpenAI", true, true},
        {"ollama", "Ollama (local)", "Ollama", false, false},
        {"lmstudio", "LM Studio (local)", "LM Studio", false, false},
        {"apple", "Apple Intelligence (on-device)", "Apple Intelligence", false, false},
        {"custom", "Custom endpoint", "Custom endpoint", false, true},
    };
    ASSERT_EQ(std::size(rows), allBrainProviderIDs.size());
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        const auto id = allBrainProviderIDs[i];
        EXPECT_EQ(rawValue(id), rows[i].raw);
        EXPECT_EQ(brainProviderID(rows[i].raw), id);
        EXPECT_EQ(displayName(id), rows[i].name);
        EXPECT_EQ(shortDisplayName(id), rows[i].shortName);
        EXPECT_EQ(needsAPIKey(id), rows[i].needsKey) << rows[i].raw;
        EXPECT_EQ(leavesDevice(id), rows[i].leavesDevice) << rows[i].raw;
    }
    EXPECT_EQ(brainProviderID("OpenAI"), std::nullopt);
    EXPECT_EQ(shortName("My server (home) (2)"), "My server");
}

TEST(BrainModels, ShowTheirPrices) {
    constexpr double infinite = std::numeric_limits<double>::infinity();
    struct Row {
        std::optional<double> input, output;
        std::optional<std::string> note;
        std::string_view expected;
    };
    const Row rows[] = {
        {5.0, 25.0, "note", "$5 in / $25 out per M tokens"},
        {0.15, 1234567.0, {}, "$0.15 in / $1.23457e+06 out per M tokens"},
        {0.0, 0.0, {}, "$0 in / $0 out per M tokens"},
        {{}, 25.0, "note", "Free · runs locally"},
        {5.0, {}, {}, "Free · runs locally"},
        {5.0, infinite, "Ask them", "Ask them"},
        {std::numeric_limits<double>::quiet_NaN(), 5.0, {}, "Pricing varies — check with the provider"},
    };
    for (const auto& row : rows) {
        const BrainModel model{
            .inputPricePerMTok = row.input, .outputPricePerMTok = row.output, .note = row.note};
        EXPECT_EQ(model.priceLabel(), row.expected);
    }
}

using ID = BrainProviderID;

ProviderOption option(ID id, bool isReady, std::vector<std::string> models = {"m"}) {
    ProviderOption result{.providerID = id, .isReady = isReady};
    for (auto& model : models) result.models.push_back({.id = std::move(model)});
    return result;
}

TEST(ProviderSelections, TakeTheChosenThenLocalThenPaid) {
    const std::vector<ProviderOption> all{
        option(ID::lmstudio, true), option(ID::ollama, true, {"o1", "o2"}),
        option(ID::apple, true),    option(ID::anthropic, true, {"c1", "c2"}),
        option(ID::gemini, true),   option(ID::openai, true)};
    auto ready = [&](std::initializer_list<ID> ids) {
        auto options = all;
        for (auto& entry : options)
            entry.isReady = std::find(ids.begin(), ids.end(), entry.providerID) != ids.end();
        return options;
    };
    struct Row {
        std::string_view name;
        std::vector<ProviderOption> options;
        std::optional<std::string> provider, model;
        std::string_view current;
        ProviderSelection::Selection expected;
    };
    const Row rows[] = {
        {"the choice", all, "anthropic", "c2", "c1", {ID::anthropic, "c2"}},
        {"a chosen model that is gone", all, "anthropic", "c9", "c2", {ID::anthropic, "c2"}},
        {"neither is there", all, "anthropic", "c9", "o2", {ID::anthropic, "c1"}},
        {"no choice", all, {}, "o2", "", {ID::ollama, "o1"}},
        {"without a choice the active model stays", all, {}, "o1", "o2", {ID::ollama, "o2"}},
        {"a choice that is no provider", all, "nonsense", {}, "", {ID::ollama, "o1"}},
        {"a choice that isn't ready",
         ready({ID::openai, ID::gemini}),
         "anthropic",
         "c1",
         "",
         {ID::gemini, "m"}},
        {"local servers in their order",
         ready({ID::apple, ID::lmstudio, ID::anthropic}),
         {},
         {},
         "",
         {ID::lmstudio, "m"}},
        {"the device before paid ones",
         ready({ID::openai, ID::apple, ID::anthropic}),
         {},
         {},
         "",
         {ID::apple, "m"}},
        {"a custom endpoint is only ever chosen", {option(ID::custom, true)}, {}, {}, "", {}},
        {"a chosen custom endpoint", {option(ID::custom, true, {})}, "custom", "m", "m", {ID::custom, ""}},
        {"nothing ready", ready({}), "ollama", "o1", "o1", {}},
        {"no options", {}, {}, {}, "x", {}},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(ProviderSelection::resolve(row.options, row.provider, row.model, row.current), row.expected)
            << row.name;
    }
}

}  // namespace
}  // namespace vesk
