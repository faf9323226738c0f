#include <gtest/gtest.h>
#include <signal.h>

#include <cmath>

#include "Program.h"
#include "VeskCore/Index/Chunker.h"
#include "VeskCore/Index/Sqlite.h"
#include "VeskCore/Support/Json.h"

namespace vesk::test {

namespace {

class SemanticCommandTest : public ::testing::Test {
protected:
    void SetUp() override {
        program.vault.write("Garden/Tomatoes.md",
                            "# Tomatoes\n\nThe seedlings go outside after the last frost in May.\n");
        program.vault.write("House/Boiler.md",
                            "# Boiler\n\nThe fitter comes every October to check the heating.\n");
        program.vault.write("Papers/Passport.md",
                            "# Passport\n\nIt runs out in 2031; renewing it takes six weeks.\n");
        ASSERT_EQ(program.run({"index"}).status, 0);
    }
    Json status() const { return Json::parse(program.run({"status", "--json"}).out); }
    bool hasModel() const { return status().string("embeddingProvider").has_value(); }
    std::string firstPath(const std::vector<std::string>& arguments) const {
        const auto found = Json::parse(program.run(arguments).out);
        return found.asArray()->empty() ? "" : found.asArray()->front().string("notePath").value_or("");
    }
    /// Every passage's vector by its place.
    static std::map<std::string, std::string> vectors(const Program& of) {
        std::map<std::string, std::string> result;
        const SQLiteConnection connection(of.indexFile().string());
        Statement statement(connection.handle(), "SELECT note_path || '#' || ordinal, vector FROM chunks");
        while (statement.step()) {
            const Row row(statement.handle());
            result[row.text(0)] = row.blob(1);
        }
        return result;
    }

    Program program;
};

#define VESK_NEEDS_MODEL() \
    if (!hasModel()) GTEST_SKIP() << "the sentence model isn't installed: run scripts/sentence-model"

TEST_F(SemanticCommandTest, FindsByMeaningWhatSharesNoWord) {
    VESK_NEEDS_MODEL();
    ASSERT_EQ(program.run({"index", "--embed"}).status, 0);
    const auto told = status();
    EXPECT_EQ(told.string("embeddingProvider"), "nl-sentence-en@512");
    EXPECT_EQ(told.integer("embeddedChunkCount"), 3);
    EXPECT_EQ(told.integer("waitingChunkCount"), 0);
    EXPECT_TRUE(told.find("embeddingAbsence")->isNull());

    const struct {
        const char *query, *path;
    } rows[] = {
        {"when should I plant vegetables", "Garden/Tomatoes.md"},
        {"who repairs the radiators", "House/Boiler.md"},
        {"travel document expires", "Papers/Passport.md"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(firstPath({"search", row.query, "--mode", "semantic", "--json"}), row.path);
        EXPECT_EQ(firstPath({"search", row.query, "--mode", "hybrid", "--json"}), row.path);
        EXPECT_EQ(firstPath({"retrieve", row.query, "--json"}), row.path);
    }
}

TEST_F(SemanticCommandTest, PrintsVectorsOfTexts) {
    VESK_NEEDS_MODEL();
    const auto answer = Json::parse(
        program.run({"embed", "--json", "The quick brown fox jumps over the lazy dog.", "-", ""}, "caf\xe9\n")
            .out);
    EXPECT_EQ(answer.string("provider"), "nl-sentence-en@512");
    EXPECT_EQ(answer.integer("dimensions"), 512);
    const auto& list = *answer.find("embeddings")->asArray();
    ASSERT_EQ(list.size(), 3U);
    EXPECT_EQ(list[1].string("text"), "café\n");
    const double lengths[] = {1, 1, 0};
    for (std::size_t i = 0; i < list.size(); ++i) {
        const auto& values = *list[i].find("vector")->asArray();
        ASSERT_EQ(values.size(), 512U);
        double squares = 0;
        for (const auto& value : values) squares += *value.asDouble() * *value.asDouble();
        EXPECT_NEAR(squares, lengths[i], 1e-5);
    }
    EXPECT_NEAR(*list[0].find("vector")->asArray()->front().asDouble(), -0.0108, 6e-4);
}

TEST_F(SemanticCommandTest, AKilledBackfillGoesOnWhereItStopped) {
    VESK_NEEDS_MODEL();
    for (int i = 0; i < 220; ++i) {
        program.vault.write(
            "Many/" + std::to_string(i) + ".md",
            "Entry " + std::to_string(i) + " tells of the weather on day " + std::to_string(i * 7) + ".");
    }
    ASSERT_EQ(program.run({"index"}).status, 0);
    const std::vector<std::string> embedding{"index", "--embed", "--progress"};

    EXPECT_EQ(program.runAndSignal(embedding, "Embedding 64/223", SIGKILL).status, 128 + SIGKILL);
    const auto afterKill = status();
    EXPECT_GE(afterKill.integer("embeddedChunkCount"), 64);
    EXPECT_EQ(*afterKill.integer("embeddedChunkCount") + *afterKill.integer("waitingChunkCount"), 223);
    const auto first = vectors(program);

    // From here on the model isn't asked for what has its vector: the count shows that the rest alone is
    // left.
    const auto left = std::to_string(*afterKill.integer("waitingChunkCount"));
    if (left != "0") {
        const auto interrupted = program.runAndSignal(embedding, "Embedding 0/" + left, SIGINT);
        // The request may come too late for this little work.
        if (interrupted.status != 0) {
            EXPECT_EQ(interrupted.status, 1);
            EXPECT_NE(interrupted.err.find("Stopped: "), std::string::npos) << interrupted.err;
            EXPECT_NE(interrupted.err.find("“vesk index --embed” goes on from here."), std::string::npos);
        }
    }
    ASSERT_EQ(program.run({"index", "--embed"}).status, 0);
    EXPECT_EQ(status().integer("waitingChunkCount"), 0);
    const auto all = vectors(program);
    for (const auto& [place, vector] : first) {
        if (vector.empty()) continue;
        EXPECT_EQ(all.at(place), vector) << place;
    }

    // As if nothing had happened in between.
    Program other;
    std::filesystem::copy(program.vault.path(), other.vault.path(), std::filesystem::copy_options::recursive);
    ASSERT_EQ(other.run({"index", "--embed"}).status, 0);
    EXPECT_EQ(vectors(other), all);
}

TEST_F(SemanticCommandTest, OnlyChangedPassagesAreEmbeddedAgain) {
    VESK_NEEDS_MODEL();
    EXPECT_EQ(Json::parse(program.run({"index", "--embed", "--json"}).out).integer("embedded"), 3);
    EXPECT_EQ(Json::parse(program.run({"index", "--embed", "--json"}).out).integer("embedded"), 0);
    program.vault.write(
        "House/Boiler.md",
        "# Boiler\n\nThe fitter comes every October to check the heating.\n\n## Cost\n\n140 a year.\n");
    const auto before = vectors(program);
    EXPECT_EQ(Json::parse(program.run({"index", "--embed", "--json"}).out).integer("embedded"), 1);
    const auto after = vectors(program);
    EXPECT_EQ(after.at("House/Boiler.md#0"), before.at("House/Boiler.md#0"));
    EXPECT_EQ(after.at("House/Boiler.md#1").size(), 2048U);
}

TEST_F(SemanticCommandTest, WithoutAModelEverythingElseWorks) {
    // A file that is no model where the program looks first.
    program.home.write("data/vesk/sentence-en.model", "not a model");
    const auto told = status();
    EXPECT_TRUE(told.find("embeddingProvider")->isNull());
    EXPECT_EQ(told.integer("waitingChunkCount"), 3);
    const auto reason = told.string("embeddingAbsence").value_or("");
    EXPECT_TRUE(reason.starts_with("The sentence model ")) << reason;
    EXPECT_TRUE(reason.ends_with("sentence-en.model is no sentence model.")) << reason;
    EXPECT_NE(program.run({"status"}).out.find("is no sentence model."), std::string::npos);

    const std::string words =
        "macOS has no text model for English, so semantic search is off for these notes. Everything else in "
        "Vesk still "
        "works, and keyword search is unaffected. " +
        reason + "\n";
    EXPECT_EQ(program.run({"search", "fitter", "--mode", "hybrid", "--json"}).err, words);
    EXPECT_EQ(firstPath({"search", "fitter", "--mode", "hybrid", "--json"}), "House/Boiler.md");
    EXPECT_EQ(firstPath({"retrieve", "fitter", "--json"}), "House/Boiler.md");
    for (const std::vector<std::string>& command :
         {std::vector<std::string>{"search", "fitter", "--mode", "semantic"},
          {"embed", "fitter"},
          {"index", "--embed"}}) {
        const auto ran = program.run(command);
        EXPECT_EQ(ran.status, 1);
        EXPECT_EQ(ran.err, "vesk: " + words);
    }
}

TEST_F(SemanticCommandTest, TellsTheLanguageOfAFile) {
    program.vault.write("de.md",
                        "---\ntitle: In English here\n---\nDer Heizkessel wird jeden Oktober überprüft.\n");
    EXPECT_EQ(Json::parse(program.run({"inspect", "language", "de.md"}).out),
              Json::parse(R"({"language": "de", "name": "German"})"));
    EXPECT_EQ(Json::parse(program.run({"inspect", "language", "-"}, "").out),
              Json::parse(R"({"language": null, "name": null})"));
}

}  // namespace

}  // namespace vesk::test
