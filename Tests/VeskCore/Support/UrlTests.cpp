#include <gtest/gtest.h>

#include "VeskCore/Support/Url.h"

namespace vesk {
namespace {

TEST(Url, RemovesPercentEncodingOrRefuses) {
    struct Row {
        std::string_view text;
        std::optional<std::string> expected;
    };
    const std::vector<Row> rows{
        {"", ""},
        {"a%20b", "a b"},
        {"%c3%A9", "é"},
        {"a+b", "a+b"},
        {"%2525", "%25"},
        {"%2F%00", std::string("/\0", 2)},
        {"é%20", "é "},
        {"%", std::nullopt},
        {"a%2", std::nullopt},
        {"%2g", std::nullopt},
        {"%g2", std::nullopt},
        {"%%20", std::nullopt},
        {"%+1", std::nullopt},
        {"%C3", std::nullopt},
        {"%ED%A0%80", std::nullopt},
    };
    for (const Row& row : rows) EXPECT_EQ(removingPercentEncoding(row.text), row.expected) << row.text;
}

TEST(Url, AddsPercentEncodingOutsideTheUnreservedAndTheAllowed) {
    EXPECT_EQ(addingPercentEncoding("aZ09-._~"), "aZ09-._~");
    EXPECT_EQ(addingPercentEncoding("a b/é%"), "a%20b%2F%C3%A9%25");
    EXPECT_EQ(addingPercentEncoding("a/b (1)", "/("), "a/b%20(1%29");
    EXPECT_EQ(addingPercentEncoding("[\x7F\n"), "%5B%7F%0A");
}

}  // namespace
}  // namespace vesk
