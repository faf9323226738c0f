#include <gtest/gtest.h>

#include <optional>
#include <stdexcept>

#include "Support/Fakes.h"
#include "VeskCore/Index/DocumentIndexQueue.h"
#include "VeskCore/Support/VirtualTime.h"

namespace vesk::test {

namespace {

class DocumentIndexQueueTest : public ::testing::Test {
protected:
    using Outcome = DocumentIndexQueue::Outcome;
    using Outcomes = DocumentIndexQueue::Outcomes;
    using Plain = Outcome::Plain;

    std::unique_ptr<DocumentIndexQueue> queue() {
        return std::make_unique<DocumentIndexQueue>(
            [this](const std::string& path) {
                EXPECT_FALSE(std::exchange(running, true)) << "two at the same time";
                time.sleep(std::chrono::milliseconds(10), {});
                ran.push_back(path);
                running = false;
                if (path == "bad.html") throw std::runtime_error("no");
                return Outcome{Plain::indexed};
            },
            time, time);
    }
    std::function<void(Outcomes)> into(std::optional<Outcomes>& result) {
        return [&result](Outcomes outcomes) { result = std::move(outcomes); };
    }

    VirtualTime time;
    bool running = false;
    std::vector<std::string> ran;
};

TEST_F(DocumentIndexQueueTest, FoldsRequestsForAPathThatStillWaits) {
    auto documents = queue();
    std::optional<Outcomes> first, second, third;
    documents->enqueue({"a.html", "b.html"}, into(first));
    documents->enqueue({"b.html"}, into(second));
    time.runToRest(std::chrono::seconds(10));
    EXPECT_EQ(documents->requests(), 3);
    EXPECT_EQ(documents->runs(), 2);
    EXPECT_EQ(first, (Outcomes{{"a.html", {Plain::indexed}}, {"b.html", {Plain::indexed}}}));
    EXPECT_EQ(second, (Outcomes{{"b.html", {Plain::indexed}}}));
    // Once it has ended it runs again.
    documents->enqueue({"b.html", "bad.html"}, into(third));
    time.runToRest(std::chrono::seconds(10));
    EXPECT_EQ(documents->runs(), 4);
    EXPECT_EQ(third->at("bad.html"), Outcome{Outcome::Pending{"couldn't be indexed"}});
}

TEST_F(DocumentIndexQueueTest, AnEmptySetIsAnsweredOnTheNextTurn) {
    auto documents = queue();
    std::optional<Outcomes> result;
    documents->enqueue({}, into(result));
    EXPECT_FALSE(result);
    time.settle();
    EXPECT_EQ(result, Outcomes{});
}

TEST_F(DocumentIndexQueueTest, DroppingItLetsTheRunsEndAndTellsNobody) {
    auto documents = queue();
    std::optional<Outcomes> result;
    documents->enqueue({"a.html", "b.html"}, into(result));
    documents.reset();
    time.runToRest(std::chrono::seconds(10));
    EXPECT_EQ(ran.size(), 2U);
    EXPECT_FALSE(result);
}

TEST_F(DocumentIndexQueueTest, RunsOnTheRealIndex) {
    PlatformFixture platform;
    NullLog log;
    platform.vaultFolder.write("p.html", "<p>words");
    Vault vault(platform.vaultFolder.path(), SyncProvider::none);
    auto index = std::make_shared<NoteIndex>(vault, time, log);
    DocumentIndexQueue documents(index, vault, time, time);
    std::optional<Outcomes> result;
    documents.enqueue({"p.html", "gone.css"}, into(result));
    time.settle();
    EXPECT_EQ(result, (Outcomes{{"p.html", {Plain::indexed}}, {"gone.css", {Plain::vanished}}}));
    EXPECT_EQ(index->documentCount(), 1);
}

}  // namespace

}  // namespace vesk::test
