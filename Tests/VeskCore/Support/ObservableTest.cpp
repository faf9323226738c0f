#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "VeskCore/Support/Observable.h"

namespace vesk {
namespace {

TEST(EventStreamTest, SubscribersHearInTheOrderTheyCame) {
    EventStream<std::string, int> stream;
    std::string heard;
    auto first = stream.subscribe([&](const std::string& s, int i) { heard += "1" + s + std::to_string(i); });
    auto second = stream.subscribe([&](const std::string& s, int) { heard += "2" + s; });
    stream.send("a", 7);
    first.cancel();
    stream.send("b", 8);
    second = Subscription();
    stream.send("c", 9);
    EXPECT_EQ(heard, "1a72a2b");
}

TEST(EventStreamTest, HandlersMayChangeTheSubscriptions) {
    EventStream<int> stream;
    std::string heard;
    Subscription self, later, added;
    self = stream.subscribe([&](int value) {
        heard += "s" + std::to_string(value);
        self.cancel();
        later.cancel();
    });
    later = stream.subscribe([&](int) { heard += "later"; });
    auto adding = stream.subscribe([&](int value) {
        if (value == 1) added = stream.subscribe([&](int v) { heard += "n" + std::to_string(v); });
    });
    stream.send(1);
    stream.send(2);
    EXPECT_EQ(heard, "s1n2");
}

TEST(EventStreamTest, ASendInsideAHandlerIsHeardAtOnce) {
    EventStream<int> stream;
    std::string heard;
    auto first = stream.subscribe([&](int value) {
        heard += "a" + std::to_string(value);
        if (value < 3) stream.send(value + 1);
    });
    auto second = stream.subscribe([&](int value) { heard += "b" + std::to_string(value); });
    stream.send(1);
    EXPECT_EQ(heard, "a1a2a3b3b2b1");
}

TEST(EventStreamTest, TheStreamMayGoAwayInsideAHandler) {
    auto stream = std::make_unique<EventStream<int>>();
    std::string heard;
    auto first = stream->subscribe([&](int) {
        heard += "first";
        stream.reset();
    });
    auto second = stream->subscribe([&](int) { heard += "second"; });
    stream->send(1);
    EXPECT_EQ(heard, "first");
    second.cancel();  // outlives its stream
}

TEST(EventStreamTest, AHandlerMayOwnASubscriptionToTheSameStream) {
    EventStream<int> stream;
    int heard = 0;
    auto inner = std::make_shared<Subscription>(stream.subscribe([&](int) { ++heard; }));
    auto outer = stream.subscribe([inner](int) {});
    inner.reset();
    stream.send(1);
    outer.cancel();  // ends the inner one with it
    stream.send(2);
    EXPECT_EQ(heard, 1);
    auto last = std::make_shared<Subscription>(stream.subscribe([&](int) { ++heard; }));
    *last = stream.subscribe([last](int) {});  // a circle, which the stream's end breaks
}

TEST(ObservableTest, TellsOfAssignments) {
    Observable<int> number(1);
    std::vector<int> heard;
    auto subscription = number.subscribe([&](int value) { heard.push_back(value); });
    number.set(1);
    number.setIfChanged(1);
    number.setIfChanged(2);
    number.modify([](int& value) { value *= 10; });
    EXPECT_EQ(heard, (std::vector<int>{1, 2, 20}));
    EXPECT_EQ(number.get(), 20);
}

TEST(ObservableTest, AHandlerMayAssignOrDestroyWhatItWatches) {
    auto number = std::make_unique<Observable<int>>(0);
    std::string heard;
    auto first = number->subscribe([&](const int& value) {
        heard += "a" + std::to_string(value);
        if (value == 1) number->set(2);
    });
    auto second = number->subscribe([&](const int& value) {
        heard += "b" + std::to_string(value);
        if (value == 3) number.reset();
    });
    auto third = number->subscribe([&](const int&) { heard += "c"; });
    number->set(1);
    number->set(3);
    EXPECT_EQ(heard, "a1a2b2cb2ca3b3");
}

}  // namespace
}  // namespace vesk
