#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "Vesk/NoteHistory.h"

namespace vesk {
namespace {

using Names = std::vector<std::string>;

/// All that going back as far as it goes comes by.
Names wayBack(NoteHistory history) {
    Names way;
    while (const auto path = history.goBack()) way.push_back(*path);
    return way;
}

TEST(NoteHistory, LeadsBackAndForthUntilAnotherNoteIsShown) {
    NoteHistory history;
    EXPECT_FALSE(history.canGoBack());
    for (const char* path : {"a.md", "b.md", "b.md", "c.md"}) history.visit(path);
    EXPECT_EQ(wayBack(history), (Names{"b.md", "a.md"}));
    EXPECT_EQ(history.goBack(), "b.md");
    EXPECT_EQ(history.goBack(), "a.md");
    EXPECT_FALSE(history.canGoBack());
    EXPECT_EQ(history.goForward(), "b.md");
    history.visit("b.md");
    EXPECT_TRUE(history.canGoForward());
    history.visit("d.md");
    EXPECT_FALSE(history.canGoForward());
    EXPECT_EQ(wayBack(history), (Names{"b.md", "a.md"}));
}

TEST(NoteHistory, FollowsWhatMovesAndForgetsWhatGoes) {
    struct Row {
        const char* name;
        std::function<void(NoteHistory&)> change;
        Names way;
    };
    const Row rows[] = {
        {"a note renamed", [](auto& h) { h.moved("F/b.md", "n.md"); }, {"F/c.md", "n.md", "a.md"}},
        {"the shown one renamed", [](auto& h) { h.moved("a.md", "n.md"); }, {"F/c.md", "F/b.md", "n.md"}},
        {"its folder renamed", [](auto& h) { h.moved("F", "G/H"); }, {"G/H/c.md", "G/H/b.md", "a.md"}},
        {"a like-named folder", [](auto& h) { h.moved("F/b", "G"); }, {"F/c.md", "F/b.md", "a.md"}},
        {"one in between gone", [](auto& h) { h.removed("F/b.md"); }, {"F/c.md", "a.md"}},
        {"the folder gone", [](auto& h) { h.removed("F"); }, {}},
        {"the shown one gone", [](auto& h) { h.removed("a.md"); }, {"F/c.md", "F/b.md"}},
        {"nothing shown", [](auto& h) { h.leave(); }, {"a.md", "F/c.md", "F/b.md", "a.md"}},
    };
    for (const auto& row : rows) {
        NoteHistory history;
        for (const char* path : {"a.md", "F/b.md", "F/c.md", "a.md"}) history.visit(path);
        row.change(history);
        EXPECT_EQ(wayBack(history), row.way) << row.name;
    }
}

}  // namespace
}  // namespace vesk
