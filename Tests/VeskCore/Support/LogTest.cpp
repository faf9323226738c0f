#include <gtest/gtest.h>

#include "VeskCore/Support/Log.h"

namespace vesk {
namespace {

class OneLine final : public Log {
public:
    explicit OneLine(bool clear) : clear_(clear) {}
    void write(LogLevel, std::string_view, std::string_view message) override { text = message; }
    bool showsPrivate() const override { return clear_; }
    std::string text;

private:
    bool clear_;
};

TEST(LogTest, ArgumentsTakeTheirPlacesAndPrivateOnesStayHidden) {
    OneLine hidden(false), shown(true);
    for (Log* log : {static_cast<Log*>(&hidden), static_cast<Log*>(&shown)}) {
        log->line(LogLevel::error, "index", "Index {} unusable ({}); {} left.",
                  {logPublic("a{}b"), logPrivate("/home/x {}"), logPublic(-3)});
    }
    EXPECT_EQ(hidden.text, "Index a{}b unusable (<private>); -3 left.");
    EXPECT_EQ(shown.text, "Index a{}b unusable (/home/x {}); -3 left.");
    hidden.line(LogLevel::info, "index", "{} of {}", {logPublic(1)});
    EXPECT_EQ(hidden.text, "1 of {}");
    hidden.line(LogLevel::info, "index", "plain", {logPrivate("secret")});
    EXPECT_EQ(hidden.text, "plain");
}

}  // namespace
}  // namespace vesk
