#include <gtest/gtest.h>

#include <random>
#include <thread>

#include "SearchFixture.h"
#include "VeskCore/Support/VectorMath.h"

namespace vesk::test {

namespace {

using Vector = std::vector<float>;

Strings places(const std::vector<NoteIndex::Neighbour>& neighbours) {
    Strings result;
    for (const auto& n : neighbours) result.push_back(n.path + "#" + std::to_string(n.ordinal));
    return result;
}

class NearestChunksTest : public ::testing::Test {
protected:
    void add(const std::string& path, Vector vector, std::string_view provider = "p") {
        fixture.note(path, "text of " + path);
        fixture.embed(path, 0, std::move(vector), provider);
    }
    Strings nearest(const Vector& query, int limit = 10, const std::optional<std::string>& provider = "p",
                    double minimum = 0) {
        return places(fixture.index->nearestChunks(query, provider, limit, minimum));
    }
    /// As the table by itself says, from an index that hasn't been asked before.
    Strings inTable(const Vector& query, int limit = 10) {
        const NoteIndex fresh(fixture.index->file(), fixture.time, fixture.log);
        return places(fresh.nearestChunks(query, "p", limit, 0));
    }

    SearchFixture fixture;
    std::mt19937 random{20260705};
};

TEST_F(NearestChunksTest, MemoryAndTableAgreeAlsoWhereHalfPrecisionCannotTell) {
    std::normal_distribution<float> element;
    const auto vector = [&](float spread) {
        Vector result(24, 1);
        for (auto& x : result) x += spread * element(random);
        return result;
    };
    fixture.index->transaction([&] {
        for (int i = 0; i < 400; ++i) {
            // Many that differ by less than half precision shows, some that are equal, some far away.
            add(std::to_string(i) + ".md", i % 5 == 0 ? Vector(24, 1) : vector(i % 3 == 0 ? 1e-4F : 1));
        }
    });
    for (int limit : {1, 3, 30, 399, 1000}) {
        const auto query = vector(.5F);
        const auto first = nearest(query, limit);
        EXPECT_EQ(nearest(query, limit), first) << limit;
        EXPECT_EQ(inTable(query, limit), first) << limit;
        const auto found = fixture.index->nearestChunks(query, "p", limit, 0);
        for (std::size_t i = 1; i < found.size(); ++i) EXPECT_GE(found[i - 1].score, found[i].score);
    }
}

TEST_F(NearestChunksTest, FollowsEveryChangeOfTheRows) {
    add("east.md", {1, 0});
    add("north.md", {0, 1});
    const Vector query{2, 1};
    ASSERT_EQ(nearest(query), (Strings{"east.md#0", "north.md#0"}));  // from the table
    ASSERT_EQ(nearest(query), (Strings{"east.md#0", "north.md#0"}));  // into memory

    const struct {
        const char* name;
        std::function<void()> change;
        Strings expected;
    } steps[] = {
        {"a new passage",
         [&] {
             add("between.md", {2, 1});
         },
         {"between.md#0", "east.md#0", "north.md#0"}},
        {"a new vector",
         [&] {
             fixture.embed("east.md", 0, {0, 5});
         },
         {"between.md#0", "east.md#0", "north.md#0"}},
        {"a vector of another provider",
         [&] {
             fixture.embed("north.md", 0, {0, 1}, "q");
         },
         {"between.md#0", "east.md#0"}},
        {"a vector of another size",
         [&] {
             fixture.embed("east.md", 0, {1, 0, 0});
         },
         {"between.md#0"}},
        {"a changed text", [&] { fixture.note("between.md", "another text"); }, {}},
        {"vectors again",
         [&] {
             fixture.embed("between.md", 0, {1, 1});
             fixture.embed("north.md", 0, {2, 1});
             fixture.embed("east.md", 0, {0, 1});
         },
         {"north.md#0", "between.md#0", "east.md#0"}},
        {"a note removed", [&] { fixture.index->removeNote("north.md"); }, {"between.md#0", "east.md#0"}},
        {"a write that is taken back",
         [&] {
             try {
                 fixture.index->transaction([&] {
                     fixture.index->removeNote("east.md");
                     fixture.embed("between.md", 0, {-1, -1});
                     // In the middle the rows are as they will not stay.
                     EXPECT_EQ(nearest(query), Strings{});
                     throw std::runtime_error("taken back");
                 });
             } catch (const std::runtime_error&) {
             }
         },
         {"between.md#0", "east.md#0"}},
        {"zeros",
         [&] {
             fixture.embed("east.md", 0, {0, 0});
         },
         {"between.md#0"}},
        {"a statement of another's own", [&] { fixture.index->exec("UPDATE chunks SET vector = NULL"); }, {}},
        {"the table emptied at one blow",
         [&] {
             fixture.embed("between.md", 0, {1, 1});
             EXPECT_EQ(nearest(query), Strings{"between.md#0"});
             fixture.index->exec("DELETE FROM chunks");
         },
         {}},
    };
    for (const auto& step : steps) {
        step.change();
        EXPECT_EQ(nearest(query), step.expected) << step.name;
        EXPECT_EQ(inTable(query), step.expected) << step.name;
    }
}

TEST_F(NearestChunksTest, SeesWhatAnotherProcessWrote) {
    add("a.md", {1, 0});
    nearest({1, 1});
    ASSERT_EQ(nearest({1, 1}), Strings{"a.md#0"});
    {
        NoteIndex other(fixture.index->file(), fixture.time, fixture.log);
        other.storeEmbeddings({{.notePath = "a.md", .ordinal = 0, .vector = {-1, 0}}}, "p");
    }
    EXPECT_EQ(nearest({1, 1}), Strings{});
    EXPECT_EQ(nearest({-1, 0}), Strings{"a.md#0"});
}

TEST_F(NearestChunksTest, ManyChangesAtOnceAreFollowedToo) {
    add("first.md", {1, 0});
    nearest({1, 1});
    nearest({1, 1});
    fixture.index->transaction([&] {
        for (int i = 0; i < 21'000; ++i) {
            fixture.index->run("INSERT INTO chunks (note_path, ordinal, text) VALUES ('x.md', ?, '')",
                               {SQLValue::integer(i)});
        }
        fixture.embed("x.md", 20'500, {1, 1});
    });
    EXPECT_EQ(nearest({1, 1}), (Strings{"x.md#20500", "first.md#0"}));
}

TEST_F(NearestChunksTest, OddVectorsAreNoNeighbours) {
    const float infinite = std::numeric_limits<float>::infinity(),
                none = std::numeric_limits<float>::quiet_NaN();
    add("huge.md", {3e38F, 3e38F});
    add("tiny.md", {1e-40F, 1e-40F});
    add("infinite.md", {infinite, 0});
    add("none.md", {none, 1});
    add("usual.md", {1, 0});
    for (const Vector& query : {Vector{1, 1}, Vector{1e-30F, 1e-30F}, Vector{2e38F, 2e38F}}) {
        for (int turn = 0; turn < 2; ++turn) {
            EXPECT_EQ(nearest(query), (Strings{"huge.md#0", "tiny.md#0", "usual.md#0"}));
        }
    }
    for (const Vector& query : {Vector{none, 1}, Vector{0, 0}, Vector{}, Vector{1}})
        EXPECT_EQ(nearest(query), Strings{});
    // What has no length has a cosine of 0, which counts where less is asked for.
    fixture.embed("usual.md", 0, {0, 0});
    EXPECT_EQ(nearest({1, -1}, 10, "p", -0.5), (Strings{"huge.md#0", "tiny.md#0", "usual.md#0"}));
}

TEST_F(NearestChunksTest, ReadersAndAWriterInSeveralThreads) {
    for (int i = 0; i < 60; ++i) add(std::to_string(i) + ".md", {static_cast<float>(i + 1), 1});
    std::vector<std::thread> threads;
    std::atomic<int> wrong = 0;
    for (int t = 0; t < 3; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 60; ++i) {
                if (fixture.index->nearestChunks(Vector{1, 0}, "p", 5, 0).size() != 5) ++wrong;
            }
        });
    }
    for (int i = 0; i < 30; ++i) fixture.embed("0.md", 0, {static_cast<float>(100 + i), 1});
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(nearest({1, 0}, 1), Strings{"0.md#0"});
}

}  // namespace

}  // namespace vesk::test
