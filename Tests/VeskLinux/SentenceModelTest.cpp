#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <thread>

#include "Support/Scratch.h"
#include "VeskCore/Support/Text.h"
#include "VeskLinux/SentenceModel/SentenceModel.h"
#include "VeskLinux/SentenceModel/SentenceModelSource.h"
#include "VeskLinux/SentenceModel/Tokeniser.h"

namespace vesk::test {

namespace {

using namespace sentencemodel;
using Vector = std::vector<double>;

std::optional<FilePath> installedModel() {
    for (const auto& path : SentenceModelSource::defaultLocations()) {
        if (std::filesystem::exists(path)) return path;
    }
    return {};
}

double cosine(const Vector& a, const Vector& b) {
    double dot = 0, squaresA = 0, squaresB = 0;
    for (std::size_t i = 0; i < a.size(); ++i) {
        dot += a[i] * b[i];
        squaresA += a[i] * a[i];
        squaresB += b[i] * b[i];
    }
    return dot / std::sqrt(squaresA * squaresB);
}

/// The largest distance of two vectors' elements.
double distance(const Vector& a, const Vector& b) {
    if (a.size() != b.size()) return INFINITY;
    double most = 0;
    for (std::size_t i = 0; i < a.size(); ++i) most = std::max(most, std::abs(a[i] - b[i]));
    return most;
}

class SentenceModelTest : public ::testing::Test {
protected:
    void SetUp() override {
        const auto path = installedModel();
        if (!path) GTEST_SKIP() << "the sentence model isn't installed: run scripts/sentence-model";
        file = *path;
    }
    Vector vector(SentenceModel& model, std::string_view text) {
        auto found = model.vector(text);
        return found ? *found : Vector();
    }

    FilePath file;
};

constexpr double allowed = 6e-4;  // half floats instead of floats

struct Reference {
    const char* text;
    std::vector<std::uint16_t> ids;
    std::vector<double> first, last;
};
const std::vector<Reference>& references() {
    static const std::vector<Reference> list{
        {"The quick brown fox jumps over the lazy dog.",
         {9, 2280, 3744, 1394, 152, 2009, 7, 132, 9, 6266, 959, 6},
         {-0.0108, -0.0479, 0.0403, -0.0165, -0.0047, 0.0646, 0.0456, -0.0537},
         {-0.0017, -0.0332, 0.0140, 0.0220}},
        {"  How do I\trenew my\n passport? ",
         {140, 64, 103, 137, 2664, 69, 1244, 1151, 54},
         {-0.0383, -0.0453, 0.0507, -0.0568, 0.0494, -0.0281, 0.0489, 0.0360},
         {0.0146, -0.0360, 0.0343, 0.0257}},
        {"Grandma's recipe: mix flour, butter and two eggs, then bake for 40 minutes.",
         {3123, 252, 13, 7, 5716, 57, 2680, 7160, 8, 4688, 12, 174, 2876, 7, 8, 126, 6866, 22, 1543, 1003, 6},
         {-0.0555, 0.0575, -0.0489, 0.0181, -0.0131, 0.0589, 0.0215, -0.0497},
         {-0.0254, -0.0630, -0.0628, -0.0046}},
    };
    return list;
}

TEST_F(SentenceModelTest, GivesTheReferenceIdsAndVectorsWithEveryInstructionSet) {
    for (const Kernels& kernels : availableKernels()) {
        SentenceModel model(file, kernels);
        std::vector<Vector> vectors;
        for (const auto& reference : references()) {
            SCOPED_TRACE(std::string(kernels.name) + ": " + reference.text);
            EXPECT_EQ(pieceIds(prepared(reference.text), model.file()), reference.ids);
            vectors.push_back(vector(model, reference.text));
            ASSERT_EQ(vectors.back().size(), 512U);
            for (std::size_t i = 0; i < reference.first.size(); ++i)
                EXPECT_NEAR(vectors.back()[i], reference.first[i], allowed);
            for (std::size_t i = 0; i < reference.last.size(); ++i)
                EXPECT_NEAR(vectors.back()[508 + i], reference.last[i], allowed);
            EXPECT_NEAR(cosine(vectors.back(), vectors.back()), 1, 1e-12);
        }
        EXPECT_NEAR(cosine(vectors[0], vectors[1]), .1063, allowed);
        EXPECT_NEAR(cosine(vectors[0], vectors[2]), .2578, allowed);
        EXPECT_NEAR(cosine(vectors[1], vectors[2]), .0213, allowed);
    }
}

std::string manySentences(int count) {
    static const char* const words[] = {"river",      "passport", "ünïcode", "Kuchen",
                                        "2024-05-01", "why?",     "e.g.",    "λόγος"};
    std::string text;
    for (int i = 0; i < count; ++i)
        text += std::string(words[(i * 7 + i / 5) % 8]) + (i % 9 == 8 ? ". " : " ");
    return text;
}

TEST_F(SentenceModelTest, InstructionSetsAgreeAtEveryLength) {
    const auto kernels = availableKernels();
    SentenceModel fastest(file, kernels.front(), 1);
    for (std::size_t other = 1; other < kernels.size(); ++other) {
        SentenceModel model(file, kernels[other], 1);
        for (int words : {1, 2, 5, 12, 13, 31, 64, 97, 140, 300}) {
            const auto text = manySentences(words);
            EXPECT_LT(distance(vector(fastest, text), vector(model, text)), 2e-5)
                << kernels[other].name << words;
        }
    }
}

TEST_F(SentenceModelTest, SentencesWorkedOnTogetherHaveTheVectorsTheyHaveAlone) {
    SentenceModel together(file, availableKernels().front(), 3), alone(file, availableKernels().front(), 1);
    std::vector<std::string> texts;
    for (int i = 0; i < 150; ++i) texts.push_back(manySentences(i % 40 * (i % 7 == 0 ? 5 : 1)));
    std::vector<std::string_view> views(texts.begin(), texts.end());
    together.expect(views);
    for (std::size_t i = 0; i < texts.size(); ++i) {
        EXPECT_LT(distance(vector(together, texts[i]), vector(alone, texts[i])), 2e-5) << i;
        if (i != 70) continue;
        // Something else in between.
        EXPECT_LT(distance(vector(together, "another one"), vector(alone, "another one")), 2e-5);
    }
}

TEST_F(SentenceModelTest, WhiteSpaceAndCaseDontCount) {
    SentenceModel model(file);
    const auto plain = vector(model, "water the plants on tuesday");
    for (const char* text :
         {"  Water the\tplants on\n\nTuesday ", "WATER THE PLANTS ON TUESDAY",
          "water\u00a0the\u2003plants on tuesday\r\n", "ｗａｔｅｒ the plants on tuesday"}) {
        EXPECT_LT(distance(vector(model, text), plain), 1e-6) << text;
    }
    for (const char* text : {"", " ", "\n\t \u3000"}) EXPECT_EQ(model.vector(text), std::nullopt) << text;
}

TEST_F(SentenceModelTest, UnknownTextIsOnePieceAndTheLastOfEqualPiecesCounts) {
    SentenceModel model(file);
    struct {
        const char* text;
        std::vector<std::uint16_t> ids;
    } cases[] = {
        {"", {}}, {"😀", {0}}, {"😀🏳️‍🌈😀", {0}}, {"”5", {4464}}, {"a", {11}},
    };
    for (const auto& c : cases) {
        auto ids = pieceIds(prepared(c.text), model.file());
        // The mark of a word's start stands alone before what no piece begins with.
        if (ids.size() == c.ids.size() + 1) ids.erase(ids.begin());
        EXPECT_EQ(ids, c.ids) << c.text;
    }
}

TEST_F(SentenceModelTest, TakesAnyText) {
    std::string scripts;
    for (char32_t block = 0; block < 0x30000; block += 0x40) {
        if (block < 0xD800 || block > 0xDFFF) appendCodePoint(scripts, block);
    }
    struct {
        const char* name;
        std::string text;
    } cases[] = {
        {"one character", "x"},
        {"one mark", "."},
        {"a hundred thousand without a space", std::string(100'000, 'x')},
        {"the same of what no piece knows",
         [] {
             std::string text;
             while (text.size() < 100'000) text += "😀é";
             return text;
         }()},
        {"every script", scripts},
        {"a surrogate", "caf\xed\xa0\x80 au lait"},
        {"Latin 1", "caf\xe9 cr\xe8me"},
        {"an unfinished character", "caf\xc3"},
        {"control characters", std::string("a\x01\x00\x7f"
                                           "b",
                                           5)},
        {"a combining mark by itself", "\u0301"},
        {"expands in normalisation", std::string(3000, ' ') + "\ufdfa"},
    };
    SentenceModel model(file);
    for (const auto& c : cases) {
        const auto found = vector(model, c.text);
        ASSERT_EQ(found.size(), 512U) << c.name;
        EXPECT_GT(cosine(found, found), .9999) << c.name;  // neither zero nor without value
    }
}

TEST_F(SentenceModelTest, ALongSentenceKeepsItsMeaning) {
    SentenceModel model(file);
    std::string recipe;
    for (int i = 0; i < 60; ++i) recipe += "stir the flour and the melted butter into the dough, ";
    EXPECT_GT(pieceIds(prepared(recipe), model.file()).size(), 2 * mostTokens);
    const auto cooking = vector(model, "how to bake a cake"),
               money = vector(model, "the bank raised its interest rates");
    EXPECT_GT(cosine(vector(model, recipe), cooking), cosine(vector(model, recipe), money) + .2);
}

TEST_F(SentenceModelTest, ModelsInSeveralThreadsAgree) {
    SentenceModel model(file);
    const auto text = manySentences(80);
    const auto expected = vector(model, text);
    std::vector<double> distances(4, 1);
    std::vector<std::thread> threads;
    for (auto& result : distances) {
        threads.emplace_back([&] {
            SentenceModel own(file, availableKernels().front(), 2);
            result = 0;
            for (int i = 0; i < 5; ++i) result = std::max(result, distance(vector(own, text), expected));
        });
    }
    for (auto& thread : threads) thread.join();
    for (double found : distances) EXPECT_LT(found, 2e-5);
}

void change(const FilePath& path, std::uintmax_t offset, char exclusiveOr) {
    std::fstream stream(path, std::ios::in | std::ios::out | std::ios::binary);
    stream.seekg(static_cast<std::streamoff>(offset));
    const char old = static_cast<char>(stream.get());
    stream.seekp(static_cast<std::streamoff>(offset));
    stream.put(static_cast<char>(old ^ exclusiveOr));
}

TEST_F(SentenceModelTest, ADamagedFileGivesNoModelAndSaysWhy) {
    const auto size = std::filesystem::file_size(file);
    struct {
        const char* name;
        std::function<void(const FilePath&)> damage;
        std::string reason;
    } cases[] = {
        {"whole", [](const FilePath&) {}, ""},
        {"cut short", [&](const FilePath& p) { std::filesystem::resize_file(p, size - 1); },
         "is damaged: it has"},
        {"cut in the header", [](const FilePath& p) { std::filesystem::resize_file(p, 100); },
         "is no sentence model"},
        {"empty", [](const FilePath& p) { std::filesystem::resize_file(p, 0); }, "is no sentence model"},
        {"longer", [&](const FilePath& p) { std::filesystem::resize_file(p, size + 64); },
         "is damaged: it has"},
        {"another kind of file", [](const FilePath& p) { change(p, 3, 1); }, "is no sentence model"},
        {"another version", [](const FilePath& p) { change(p, 8, 3); },
         "is of version 2, and this program reads version 1"},
        {"a bit of the checksum", [](const FilePath& p) { change(p, 20, 4); },
         "is damaged: its checksum differs"},
        {"a bit of a size", [](const FilePath& p) { change(p, 72, 1); }, "is damaged: its checksum differs"},
        {"a bit between the parts", [](const FilePath& p) { change(p, 120, 1); },
         "is damaged: its checksum differs"},
        {"a bit of the weights", [&](const FilePath& p) { change(p, size / 2, 16); },
         "is damaged: its checksum differs"},
        {"the last bit", [&](const FilePath& p) { change(p, size - 1, 1); },
         "is damaged: its checksum differs"},
    };
    ScratchFolder folder;
    for (const auto& c : cases) {
        const auto path = folder.path() / "sentence-en.model";
        std::filesystem::remove(path);
        std::filesystem::copy_file(file, path);
        c.damage(path);
        SentenceModelSource source({folder.path() / "elsewhere.model", path, file});
        EXPECT_EQ(source.sentenceEmbedding("en") == nullptr, !c.reason.empty()) << c.name;
        const auto reason = source.absenceReason("en");
        EXPECT_EQ(reason.empty(), c.reason.empty()) << c.name << ": " << reason;
        if (!c.reason.empty()) {
            EXPECT_TRUE(reason.starts_with("The sentence model " + path.string() + " " + c.reason)) << reason;
        }
    }
}

TEST_F(SentenceModelTest, AFileThatIsCutWhileItIsInUseIsAFailureAndNoCrash) {
    ScratchFolder folder;
    const auto path = folder.path() / "sentence-en.model";
    std::filesystem::copy_file(file, path);
    SentenceModel model(path);
    EXPECT_EQ(vector(model, "before").size(), 512U);
    std::filesystem::resize_file(path, 4096);
    EXPECT_THROW(model.vector("after"), UnusableModel);
}

TEST(SentenceModelSourceTest, SaysWhyThereIsNone) {
    ScratchFolder folder;
    std::filesystem::create_directory(folder.path() / "sentence-en.model");
    struct {
        std::vector<FilePath> files;
        const char *language, *reason;
    } cases[] = {
        {{}, "en", "The sentence model isn't installed."},
        {{folder.path() / "none"}, "en", "The sentence model isn't installed."},
        {{folder.path() / "none"}, "de", "There is no sentence model for German."},
    };
    for (const auto& c : cases) {
        SentenceModelSource source(c.files);
        EXPECT_EQ(source.sentenceEmbedding(c.language), nullptr);
        EXPECT_EQ(source.absenceReason(c.language), c.reason);
    }
    SentenceModelSource source({folder.path() / "sentence-en.model"});
    EXPECT_EQ(source.sentenceEmbedding("en"), nullptr);
    EXPECT_TRUE(source.absenceReason("en").ends_with("sentence-en.model is no file."));
}

}  // namespace

}  // namespace vesk::test
