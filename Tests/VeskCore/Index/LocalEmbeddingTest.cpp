#include <gtest/gtest.h>

#include <cmath>
#include <map>

#include "Support/Fakes.h"
#include "VeskCore/Index/LocalEmbedding.h"
#include "VeskCore/Support/BrainError.h"
#include "VeskNLGuard/VeskNLGuard.h"

namespace vesk::test {

namespace {

/// A model of two dimensions that knows the sentences it is told, and throws on "bad".
class ScriptedModel final : public SentenceEmbedding {
public:
    explicit ScriptedModel(std::map<std::string, std::vector<double>, std::less<>> known)
        : known_(std::move(known)) {}
    int dimension() const override { return 2; }
    std::optional<std::vector<double>> vector(std::string_view sentence) override {
        if (sentence.starts_with("bad")) throw 42;  // not even an exception type of ours
        auto found = known_.find(sentence);
        return found == known_.end() ? std::nullopt : std::optional(found->second);
    }

private:
    std::map<std::string, std::vector<double>, std::less<>> known_;
};

class ScriptedSource final : public SentenceEmbeddingSource {
public:
    std::unique_ptr<SentenceEmbedding> sentenceEmbedding(std::string_view language) override {
        if (language != "en") return nullptr;
        return std::make_unique<ScriptedModel>(std::map<std::string, std::vector<double>, std::less<>>{
            {"East.", {3, 0}}, {"North.", {0, 4}}, {"Odd.", {1, 2, 3}}, {"Whole. Text.", {0, -2}}});
    }
};

class LocalEmbeddingTest : public ::testing::Test {
protected:
    using Vector = std::vector<float>;
    Vector embed(const std::string& text) { return local.embed({text}, {}).front(); }
    std::string failure(LocalEmbedding& provider) {
        try {
            provider.embed({"East."}, {});
        } catch (const BrainError& error) {
            return error.description();
        }
        return "";
    }
    ScriptedSource source;
    LocalEmbedding local{"en", source};
};

TEST_F(LocalEmbeddingTest, SumsTheSentencesAndBringsTheSumToUnitLength) {
    struct {
        const char* text;
        Vector expected;
    } cases[] = {
        {"East.", {1, 0}},
        {"East. North. East.", {6 / std::sqrt(52.0F), 4 / std::sqrt(52.0F)}},
        {"  East. \n\n Unknown. Odd.", {1, 0}},
        {"Whole. Text.", {0, -1}},
        {"Unknown.", {0, 0}},
        {"", {0, 0}},
        {" \n ", {0, 0}},
    };
    for (const auto& c : cases) {
        Vector vector = embed(c.text);
        ASSERT_EQ(vector.size(), 2U) << c.text;
        EXPECT_FLOAT_EQ(vector[0], c.expected[0]) << c.text;
        EXPECT_FLOAT_EQ(vector[1], c.expected[1]) << c.text;
    }
    EXPECT_EQ(local.id(), "nl-sentence-en@2");
    EXPECT_EQ(local.displayName(), "On-device (Apple NaturalLanguage)");
    EXPECT_EQ(local.maxChunkCharacters(), 1500);
}

TEST_F(LocalEmbeddingTest, EightFailuresInARowSwitchItOffForGood) {
    // Each text asks twice: for its sentence, then for the whole.
    embed("bad 1");
    embed("bad 2");
    embed("bad 3");
    EXPECT_EQ(embed("bad 4. East."), (Vector{1, 0})) << "seven failures and a result";
    embed("Unknown.");
    for (int i = 0; i < 3; ++i) embed("bad");
    EXPECT_EQ(embed("East."), (Vector{1, 0})) << "six are too few";
    for (int i = 0; i < 3; ++i) embed("bad");
    EXPECT_EQ(local.embed({"bad", "East."}, {}), (std::vector<Vector>{{0, 0}, {0, 0}}));
    EXPECT_EQ(failure(local),
              "On-device semantic search stopped responding and has been switched off for this session. "
              "Keyword search "
              "is unaffected. Restarting Vesk re-enables it.");
    EXPECT_TRUE(local.isConfigured());
}

TEST_F(LocalEmbeddingTest, WithoutAModelItSaysForWhichLanguage) {
    LocalEmbedding german("de", source);
    EXPECT_FALSE(german.isConfigured());
    EXPECT_EQ(german.id(), "nl-sentence-de@0");
    EXPECT_EQ(failure(german),
              "macOS has no text model for German, so semantic search is off for these notes. Everything "
              "else in Vesk "
              "still works, and keyword search is unaffected.");
    std::stop_source stop;
    stop.request_stop();
    EXPECT_THROW(local.embed({"East."}, stop.get_token()), BrainError);
}

/// Notes what it is told to expect and what it is asked.
class ListeningModel final : public SentenceEmbedding {
public:
    ListeningModel(std::vector<std::string>& expected, std::vector<std::string>& asked)
        : expected_(expected), asked_(asked) {}
    int dimension() const override { return 1; }
    void expect(std::span<const std::string_view> sentences) override {
        expected_.assign(sentences.begin(), sentences.end());
        throw 42;  // a failure to prepare is none of the model
    }
    std::optional<std::vector<double>> vector(std::string_view sentence) override {
        asked_.emplace_back(sentence);
        return std::vector<double>{1};
    }

private:
    std::vector<std::string>& expected_;
    std::vector<std::string>& asked_;
};

TEST_F(LocalEmbeddingTest, TellsTheModelWhichSentencesItIsAskedForNext) {
    struct Source final : SentenceEmbeddingSource {
        std::unique_ptr<SentenceEmbedding> sentenceEmbedding(std::string_view) override {
            return std::make_unique<ListeningModel>(expected, asked);
        }
        std::vector<std::string> expected, asked;
    } listening;
    LocalEmbedding provider("en", listening);
    const std::string withNul("One\0two. ", 9);
    for (int i = 0; i < 9; ++i) {
        listening.asked.clear();
        EXPECT_EQ(provider.embed({withNul + "  Three!\n\nFour"}, {}), (std::vector<Vector>{{1}}));
        EXPECT_EQ(listening.expected,
                  (std::vector<std::string>{std::string("One\0two.", 8), "Three!", "Four"}));
        // What stands behind a NUL is text all the same.
        EXPECT_EQ(listening.asked, (std::vector<std::string>{"One two.", "Three!", "Four"}));
    }
}

TEST_F(LocalEmbeddingTest, TheGuardLetsNothingThrough) {
    ScriptedModel model({{"Odd.", {1, 2, 3}}});
    struct {
        void* model;
        const char* text;
        std::size_t size;
        bool threw;
    } cases[] = {{&model, "Odd.", 3, false}, {&model, "bad", 0, true},    {&model, "Unknown.", 0, false},
                 {&model, "", 0, false},     {&model, nullptr, 0, false}, {nullptr, "Odd.", 0, false}};
    for (const auto& c : cases) {
        bool threw = !c.threw;
        double values[2] = {0, 0};
        EXPECT_EQ(VeskNLSafeVector(c.model, c.text, values, 2, &threw), c.size);
        EXPECT_EQ(threw, c.threw);
        EXPECT_EQ(values[1], c.size == 0 ? 0 : 2);
    }
}

}  // namespace

}  // namespace vesk::test
