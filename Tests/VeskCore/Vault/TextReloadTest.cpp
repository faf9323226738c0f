#include <gtest/gtest.h>

#include <string>

#include "VeskCore/Vault/TextReload.h"

namespace vesk::test {
namespace {

TEST(TextReload, KeepsTheSelectionWithItsText) {
    const struct {
        const char* name;
        TextRange selection;
        std::u16string from, to;
        TextRange expected;
    } rows[] = {
        {"before the change", {1, 2}, u"abcXdef", u"abcYYdef", {1, 2}},
        {"behind the change", {5, 2}, u"abcXdef", u"abcYYdef", {6, 2}},
        {"across the change", {2, 3}, u"abcXdef", u"abcYYdef", {2, 4}},
        {"inside what became shorter", {4, 2}, u"aXXXXXXb", u"aYb", {2, 0}},
        {"the same text", {2, 1}, u"abc", u"abc", {2, 1}},
        {"from nothing", {0, 0}, u"", u"new", {0, 0}},
        {"to nothing", {1, 2}, u"old", u"", {0, 0}},
        {"past the end", {9, 9}, u"abc", u"abcd", {3, 0}},
        {"a length past every number", {1, static_cast<std::size_t>(-1)}, u"abc", u"abc", {1, 2}},
        {"the prefix ends inside a pair", {2, 0}, u"\xD83D\xDE00z", u"\xD83D\xDE01z", {2, 0}},
        {"the suffix begins inside a pair", {1, 0}, u"a\xD83D\xDE00", u"a\xD83C\xDE00", {1, 0}},
        {"a place inside a new pair steps back",
         {2, 1},
         u"aXYb",
         u"a\xD83D\xDE00\xD83D\xDE00"
         u"b",
         {1, 4}},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(TextReload::mapSelection(row.selection, row.from, row.to), row.expected) << row.name;
    }
}

}  // namespace
}  // namespace vesk::test
