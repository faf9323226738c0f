#include <gtest/gtest.h>

#include "VeskCore/Brain/Filing/FilingHintSource.h"
#include "VeskCore/Brain/Filing/FilingHints.h"
#include "VeskCore/Index/IndexFixture.h"
#include "VeskCore/Support/Executors.h"
#include "VeskCore/Vault/AtomicWrite.h"

namespace vesk::test {
namespace {

using Folders = std::vector<std::string>;

std::vector<FilingHint> hints(const Folders& folders) {
    std::vector<FilingHint> made;
    for (const auto& folder : folders) made.push_back({.path = {}, .title = {}, .folder = folder});
    return made;
}

FilingPoolNote pooled(std::string path, std::vector<float> vector) {
    return {.path = path, .title = path, .folder = "F", .vector = std::move(vector)};
}

TEST(FilingHints, VoteByMoreThanHalf) {
    const struct {
        Folders folders;
        std::optional<std::string> expected;
    } rows[] = {
        {{}, std::nullopt},
        {{"A"}, "A"},
        {{"A", "B"}, std::nullopt},
        {{"A", "A", "B", "B"}, std::nullopt},
        {{"B", "A", "B", "B"}, "B"},
        {{"A", "A", "B", "B", "C"}, std::nullopt},
        {{"C", "A", "A", "B", "A"}, "A"},
    };
    for (const auto& row : rows) EXPECT_EQ(FilingHints::vote(hints(row.folders)), row.expected);
}

TEST(FilingHints, NearestFirstAndThenByPath) {
    const std::vector<FilingPoolNote> pool{
        pooled("z", {1, 0}),  pooled("far", {0, 1}),  pooled("a", {2, 0}),       pooled("self", {1, 0}),
        pooled("other", {1}), pooled("zero", {0, 0}), pooled("against", {-1, 0})};
    const std::vector<float> vector{3, 0};
    const auto paths = [&](int k) {
        Folders found;
        for (const auto& hint : FilingHints::neighbours(vector, "self", pool, k)) found.push_back(hint.path);
        return found;
    };
    EXPECT_EQ(paths(99), (Folders{"a", "z", "far", "other", "zero", "against"}));
    EXPECT_EQ(paths(2), (Folders{"a", "z"}));
    EXPECT_EQ(paths(0), Folders{});
    EXPECT_EQ(FilingHints::neighbours({}, "", pool, 5).size(), 0U);
    EXPECT_NEAR(FilingHints::neighbours(vector, "self", pool, 1).front().score, 1, 1e-12);
}

TEST(FilingHints, ComparesWithNotesThatHaveAHome) {
    OrganiseSettings settings;
    settings.protectedFolders = {"Private"};
    FilingTaxonomy taxonomy = FilingTaxonomy::detect({}, {}, settings);
    std::vector<FilingPoolNote> notes;
    for (const char* path :
         {"Top.md", "Inbox/A.md", "Work/B.md", "Private/C.md", "Daily/D.md", "Work/Tmp/E.md"})
        notes.push_back(pooled(path, {1}));
    notes.push_back(pooled("Work/Unplaced.md", {}));
    const auto pool = FilingHints::pool(notes, taxonomy);
    ASSERT_EQ(pool.size(), 1U);
    EXPECT_EQ(pool.front().path, "Work/B.md");
    EXPECT_EQ(pool.front().folder, "Work");
}

TEST(FilingHints, SaysWhenThereIsTooLittleToCompareWith) {
    const auto shortfall = [](int notes, int folders) {
        std::vector<FilingPoolNote> pool;
        for (int i = 0; i < notes; ++i) {
            pool.push_back(pooled("n", {1}));
            pool.back().folder = std::to_string(i % folders);
        }
        return FilingHints::poolShortfall(pool).value_or("");
    };
    EXPECT_EQ(shortfall(0, 1), "there are no filed notes to compare against");
    EXPECT_EQ(
        shortfall(9, 3),
        "too few filed notes to compare against — 9 so far, and hints need at least 10 across 2 folders");
    EXPECT_EQ(shortfall(10, 1),
              "too few filed notes to compare against — all 10 are in one folder, and hints need at least 2");
    EXPECT_EQ(shortfall(10, 2), "");
}

class FilingHintSources : public IndexFixture {
protected:
    std::shared_ptr<NoteIndex> shared = std::shared_ptr<NoteIndex>(open());
    FakeSentenceEmbeddings embeddings;
    FakeLanguageRecogniser languages;
    int embedded = 0;

    void SetUp() override {
        embeddings.throwsOn = [this](std::string_view) {
            ++embedded;
            return false;
        };
    }
    static FilingSubject subject(std::string path, std::string text, std::string hash = "h") {
        return {.path = std::move(path),
                .title = "T",
                .excerpt = std::move(text),
                .contentHash = std::move(hash)};
    }
};

TEST_F(FilingHintSources, EmbedsOnlyWhatChanged) {
    const auto pass = [&](const std::vector<FilingSubject>& subjects) {
        embedded = 0;
        return FreshHintSource(shared, embeddings, languages).vectors(subjects, {});
    };
    std::vector<FilingSubject> subjects;
    for (int i = 0; i < 70; ++i) subjects.push_back(subject("n" + std::to_string(i) + ".md", "about boats"));
    const auto first = pass(subjects);
    EXPECT_EQ(first.size(), 70U);
    EXPECT_EQ(embedded, 2 * 70) << "a title and a text each";
    EXPECT_EQ(pass(subjects), first);
    EXPECT_EQ(embedded, 0);

    subjects[3].contentHash = "changed";
    subjects[3].excerpt = "about gardens";
    const auto second = pass(subjects);
    EXPECT_EQ(embedded, 2);
    EXPECT_NE(second.at("n3.md"), first.at("n3.md"));
    EXPECT_EQ(rows(*shared, "SELECT COUNT(*) FROM note_vectors", 1), std::vector<std::string>{"70"})
        << "one vector of a note";
}

TEST_F(FilingHintSources, SpeaksTheLanguageOfMostNotes) {
    FreshHintSource source(shared, embeddings, languages);
    EXPECT_EQ(source.unavailableReason(), std::nullopt);
    languages.language = "de";
    EXPECT_TRUE(source.vectors({subject("a.md", "Boote und Segel")}, {}).empty());
    EXPECT_EQ(source.language(), "de");
    EXPECT_EQ(source.unavailableReason(), "your notes' language (German) has no on-device model");

    // Enough of the first notes to tell by; no text needs no telling.
    languages.asked.clear();
    EXPECT_EQ(FreshHintSource::dominantLanguage({}, languages), "en");
    EXPECT_EQ(FreshHintSource::dominantLanguage({{.title = " ", .excerpt = "\n"}}, languages), "en");
    EXPECT_TRUE(languages.asked.empty());
    std::vector<FilingSubject> many(40, subject("a.md", std::string(500, 'x')));
    many.insert(many.begin() + 20, subject("b.md", "never read"));
    EXPECT_EQ(FreshHintSource::dominantLanguage(many, languages), "de");
    EXPECT_EQ(languages.asked.back().size(), 20U * 201 - 1);
    languages.language.reset();
    EXPECT_EQ(FreshHintSource::dominantLanguage(many, languages), "en");
    EXPECT_EQ(FreshHintSource(shared, embeddings, languages, "en").vectors({subject("a.md", "x")}, {}).size(),
              1U);
}

TEST_F(FilingHintSources, StopsBetweenBatches) {
    std::stop_source stop = freshStopSource();
    embeddings.throwsOn = [&](std::string_view) {
        if (++embedded == 40) stop.request_stop();
        return false;
    };
    std::vector<FilingSubject> subjects;
    for (int i = 0; i < 200; ++i) subjects.push_back(subject("n" + std::to_string(i) + ".md", "about boats"));
    FreshHintSource source(shared, embeddings, languages);
    EXPECT_ANY_THROW(source.vectors(subjects, stop.get_token()));
    EXPECT_LE(embedded, 64);
}

TEST_F(FilingHintSources, TakeTheMeanOfTheIndexedPassages) {
    IndexHintSource source(shared);
    EXPECT_EQ(source.unavailableReason(), "the index has no embeddings yet");
    const auto insert = [&](const char* path, int ordinal, const std::vector<float>& vector) {
        shared->run(
            "INSERT INTO chunks (note_path, ordinal, text, vector) VALUES (?, ?, 't', ?)",
            {SQLValue::text(path), SQLValue::integer(ordinal), SQLValue::blob(VectorBlob::encode(vector))});
    };
    insert("a.md", 0, {1, 3});
    insert("a.md", 1, {3, 5});
    insert("a.md", 2, {9, 9, 9});
    EXPECT_EQ(source.unavailableReason(), std::nullopt);
    const std::map<std::string, std::vector<float>> expected{{"a.md", {2, 4}}};
    EXPECT_EQ(source.vectors({subject("a.md", ""), subject("b.md", "")}, {}), expected);
}

}  // namespace
}  // namespace vesk::test
