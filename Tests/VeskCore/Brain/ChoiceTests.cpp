#include <gtest/gtest.h>

#include "Support/ModelCalls.h"
#include "VeskCore/Brain/BalancedJson.h"
#include "VeskCore/Brain/ChoiceParser.h"

namespace vesk::test {
namespace {

using Picks = std::map<std::string, std::string>;

const std::vector<std::string> folders{"Work", "Home/Garden", "Home/Kitchen", "Archive/Work Logs", "Ärzte"};

TEST(Choices, AreMatchedLoosely) {
    struct Row {
        std::string_view value;
        std::optional<std::string> expected;
    };
    const Row rows[] = {
        {"Work", "Work"},
        {" work\n", "Work"},
        {"Work/", "Work"},
        {"\"Work\"", "Work"},
        {"`home/garden/`", "Home/Garden"},
        {"“ÄRZTE”", "Ärzte"},
        {"Garden", "Home/Garden"},
        {"Elsewhere/kitchen", "Home/Kitchen"},
        {"Arch", "Archive/Work Logs"},
        {"Home", std::nullopt},
        {"Attic", std::nullopt},
        {"", std::nullopt},
        {"\"\"", std::nullopt},
        {"/", std::nullopt},
    };
    for (const auto& row : rows)
        EXPECT_EQ(ChoiceParser::match(row.value, folders), row.expected) << row.value;
}

TEST(Choices, AreReadOutOfReplies) {
    const std::vector<ChoiceSlot> one{{.name = "folder", .choices = folders}};
    const std::vector<ChoiceSlot> two{{.name = "1", .choices = folders}, {.name = "2", .choices = folders}};
    const struct {
        std::string name, reply;
        std::vector<ChoiceSlot> slots;
        std::optional<Picks> expected;
    } rows[] = {
        {"JSON", R"({"folder": "Work/"})", one, Picks{{"folder", "Work"}}},
        {"JSON in prose", R"(I'd say {"folder": "Home/Garden"}, because…)", one,
         Picks{{"folder", "Home/Garden"}}},
        {"a fence goes first", "Not {\"folder\": \"Work\"} but\n```json\n{\"folder\": \"Ärzte\"}\n```", one,
         Picks{{"folder", "Ärzte"}}},
        {"a fence without JSON", "{\"folder\": \"Work\"} ```\nnothing\n```", one, Picks{{"folder", "Work"}}},
        {"a brace in a string", R"({"why": "a } \" {", "folder": "Work"})", one, Picks{{"folder", "Work"}}},
        {"the last line that names one", "Work or Attic?\nGarden\nThat is all.", one,
         Picks{{"folder", "Home/Garden"}}},
        {"JSON without a pick, then a line", "{\"folder\": \"Attic\"}\nWork", one, Picks{{"folder", "Work"}}},
        {"some of several", R"({"1": "Work", "2": "Attic"})", two, Picks{{"1", "Work"}}},
        {"a line for several", "Work", two, std::nullopt},
        {"nothing", "", one, std::nullopt},
        {"never closed", "{\"folder\": \"Work", one, std::nullopt},
    };
    for (const auto& row : rows) {
        std::optional<Picks> picks;
        try {
            picks = ChoiceParser::parse(row.reply, row.slots).picks;
        } catch (const ChoiceError& error) {
            std::vector<std::string> names;
            for (const auto& slot : row.slots) names.push_back(slot.name);
            EXPECT_EQ(error, ChoiceError(ChoiceError::Unparseable{.slots = names, .raw = row.reply}));
        }
        EXPECT_EQ(picks, row.expected) << row.name;
    }
    EXPECT_EQ(ChoiceError(ChoiceError::Unparseable{.slots = {"1", "2"}, .raw = ""}).description(),
              "The model's answer didn't name a folder for 1, 2");
}

TEST(Choices, AreAskedOfAModelThatTalks) {
    /// Answers with a fixed text and notes the request.
    class Talking final : public BrainProvider {
    public:
        mutable BrainRequest seen;
        BrainProviderID id() const override { return BrainProviderID::gemini; }
        std::string displayName() const override { return "Talking"; }
        bool isConfigured() const override { return true; }
        std::vector<BrainModel> models() const override { return {}; }
        void stream(const BrainRequest& request, const std::string&, const Sink& sink,
                    std::stop_token) const override {
            seen = request;
            sink({BrainEvent::Thinking{"{\"folder\": \"Home\"}"}});
            sink({BrainEvent::Text{"{\"folder\": "}});
            sink({BrainEvent::Text{"\"Work\"}"}});
            sink({BrainEvent::Done{}});
        }
    };
    const Talking provider;
    const ChoiceQuestion one{.instructions = "File it.",
                             .prompt = "A note",
                             .slots = {{.name = "folder", .choices = {"Work", "Home"}}},
                             .temperature = 0.5};
    EXPECT_EQ(provider.choose(one, "m", {}).picks, (Picks{{"folder", "Work"}}));
    EXPECT_EQ(provider.seen,
              (BrainRequest{.system = "File it.\n\nReply with ONLY a JSON object, no prose: {\"folder\": "
                                      "\"<one of the folders, exactly as written>\"}.",
                            .messages = {{.role = BrainMessage::Role::user, .text = "A note"}},
                            .maxTokens = 320,
                            .temperature = 0.5}));
    EXPECT_EQ(ChoiceParser::replyInstructions({{.name = "1"}, {.name = "2"}}),
              "Reply with ONLY a JSON object, no prose: {\"1\": \"<folder>\", \"2\": \"<folder>\"}. Every "
              "value must be one of the folders exactly as written.");
    EXPECT_EQ(provider.preferredChoiceBatchSize(), 20);
}

}  // namespace
}  // namespace vesk::test
