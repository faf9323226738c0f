#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "VeskCore/Support/Json.h"

namespace vesk {
namespace {

std::string failureOf(std::string_view text) {
    try {
        return "read as " + Json::parse(text).dump();
    } catch (const JsonError& error) {
        return error.description();
    }
}

TEST(JsonTest, TextsComeBack) {
    struct Row {
        const char* name;
        std::string text, expected;
    };
    const Row rows[] = {
        {"order of keys", R"({"b":1,"a":[true,false,null],"c":{}})",
         R"({"b":1,"a":[true,false,null],"c":{}})"},
        {"white space", " \r\n\t[ 1 , 2 ] \n", "[1,2]"},
        {"byte order mark", "\xEF\xBB\xBF[]", "[]"},
        {"numbers", "[0,-0,-1,1.5,1e2,0.1,-2.5e-3,1E+2]", "[0,0,-1,1.5,100,0.1,-0.0025,100]"},
        {"integers at the ends", "[9223372036854775807,-9223372036854775808]",
         "[9223372036854775807,-9223372036854775808]"},
        {"integers beyond", "[9223372036854775808,18446744073709551616]",
         "[9223372036854775808,18446744073709551616]"},
        {"whole doubles", "[3.0,9007199254740992.0,1e22,-0.0,1e100]", "[3,9007199254740992,1e+22,0,1e+100]"},
        {"shortest form", "[0.30000000000000004,5e-324,1.7976931348623157e308]",
         "[0.30000000000000004,5e-324,1.7976931348623157e+308]"},
        {"escapes", R"(["\"\\\/\b\f\n\r\t\u0000\u001F\u00e9\ud83d\ude00"])",
         "[\"\\\"\\\\/\\b\\f\\n\\r\\t\\u0000\\u001fé😀\"]"},
        {"separators stay", "[\"\xE2\x80\xA8\x7F\"]", "[\"\xE2\x80\xA8\x7F\"]"},
        {"the last of equal keys at the first's place", R"({"a":1,"b":2,"a":3,"b":4,"a":5})",
         R"({"a":5,"b":4})"},
        {"equal keys among many",
         R"({"a":1,"b":2,"c":3,"d":4,"e":5,"f":6,"g":7,"h":8,"i":9,"c":0,"j":1,"a":2})",
         R"({"a":2,"b":2,"c":0,"d":4,"e":5,"f":6,"g":7,"h":8,"i":9,"j":1})"},
        {"keys equal by an escape", R"({"\u0061":1,"a":2,"":3})", R"({"a":2,"":3})"},
        {"ill-formed UTF-8", "[\"a\xFFz\"]", "[\"a\xEF\xBF\xBDz\"]"},
        {"a value alone", "\"x\"", "\"x\""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        auto value = Json::parse(row.text);
        EXPECT_EQ(value.dump(), row.expected);
        EXPECT_EQ(Json::parse(row.expected).dump(), row.expected);
    }
}

TEST(JsonTest, FailuresTellTheirPlaceAndNotTheText) {
    struct Row {
        const char* name;
        std::string text, expected;
    };
    const Row rows[] = {
        {"nothing", "",
         "line 1, column 1: syntax error while parsing value - unexpected end of input; expected '[', "
         "'{', or a literal"},
        {"cut off", "{\n  \"secret\": \"abc",
         "line 2, column 16: syntax error while parsing value - invalid string: "
         "missing closing quote"},
        {"two values", "{}\n{}",
         "line 2, column 1: syntax error while parsing value - unexpected '{'; expected end of input"},
        {"trailing comma", "[1,]",
         "line 1, column 4: syntax error while parsing value - unexpected ']'; expected '[', "
         "'{', or a literal"},
        {"high surrogate alone", R"(["secret\ud83d"])",
         "line 1, column 15: syntax error while parsing value - invalid string: surrogate U+D800..U+DBFF "
         "must be "
         "followed by U+DC00..U+DFFF"},
        {"low surrogate alone", R"(["\ude00"])",
         "line 1, column 8: syntax error while parsing value - invalid string: surrogate U+DC00..U+DFFF must "
         "follow "
         "U+D800..U+DBFF"},
        {"too large", "[1,\n 1e999]", "line 2, column 6: number out of range"},
        {"NUL behind", std::string("{}\0{", 4), "line 1, column 3: a NUL character"},
    };
    for (const auto& row : rows) EXPECT_EQ(failureOf(row.text), row.expected) << row.name;
    for (const char* text :
         {"{",  "[",  "[1",  "{\"a\"", "{\"a\":", "{\"a\":1", "tru",    "-",       "1.",      "01",
          "+1", ".5", "NaN", "'a'",    "{a:1}",   "[1 2]",    "\"\t\"", "// x\n1", "\"\\x\"", "\"\\u12\""}) {
        EXPECT_THROW(Json::parse(text), JsonError) << text;
    }
}

TEST(JsonTest, NestingEndsAt512Levels) {
    auto nested = [](std::size_t levels) { return std::string(levels, '[') + std::string(levels, ']'); };
    EXPECT_EQ(Json::parse(nested(512)).dump(), nested(512));
    EXPECT_EQ(failureOf(nested(513)), "nested deeper than 512 levels");
    EXPECT_EQ(failureOf(std::string(10'000, '[')), "nested deeper than 512 levels");
    std::string objects;
    for (int i = 0; i < 10'000; ++i) objects += "{\"a\":";
    EXPECT_EQ(failureOf(objects), "nested deeper than 512 levels");
}

TEST(JsonTest, ManyKeysTakeLinearTime) {
    std::string text = "{";
    for (int i = 0; i < 200'000; ++i)
        text += "\"" + std::to_string(i % 150'000) + "\":" + std::to_string(i) + ",";
    text.back() = '}';
    auto value = Json::parse(text);
    ASSERT_EQ(value.asObject()->size(), 150'000U);
    EXPECT_EQ(value.asObject()->front(), Json::Member("0", 150'000));
    EXPECT_EQ(value.asObject()->back(), Json::Member("149999", 149'999));
}

TEST(JsonTest, StylesLayOutTheSameValue) {
    auto value = Json::object(
        {{"b", Json::array({1, "x/y"})}, {"é", Json::object()}, {"B", Json::array()}, {"a", nullptr}});
    EXPECT_EQ(value.dump(), R"({"b":[1,"x/y"],"é":{},"B":[],"a":null})");
    EXPECT_EQ(value.dump(Json::Style::sortedCompact, true), R"({"B":[],"a":null,"b":[1,"x\/y"],"é":{}})");
    EXPECT_EQ(value.dump(Json::Style::pretty),
              "{\n  \"b\": [\n    1,\n    \"x/y\"\n  ],\n  \"é\": {},\n  \"B\": [],\n"
              "  \"a\": null\n}");
    EXPECT_EQ(
        Json::object({{"b", 1}, {"a", Json::object({{"d", 1}, {"c", 2}})}}).dump(Json::Style::sortedPretty),
        "{\n  \"a\": {\n    \"c\": 2,\n    \"d\": 1\n  },\n  \"b\": 1\n}");
    EXPECT_EQ(Json::array({std::nan(""), std::numeric_limits<double>::infinity(), 0.5}).dump(),
              "[null,null,0.5]");
    EXPECT_EQ(Json("a\xC3").dump(), "\"a\xEF\xBF\xBD\"");
}

TEST(JsonTest, MembersAreReadByType) {
    auto value = Json::parse(R"({"text":"x","whole":3.0,"half":0.5,"large":1e300,"yes":true,"none":null})");
    EXPECT_EQ(value.string("text"), "x");
    EXPECT_EQ(value.string("whole"), std::nullopt);
    EXPECT_EQ(value.integer("whole"), 3);
    EXPECT_EQ(value.integer("half"), std::nullopt);
    EXPECT_EQ(value.integer("large"), std::nullopt);
    EXPECT_EQ(value.integer("yes"), std::nullopt);
    EXPECT_EQ(value.number("whole"), 3.0);
    EXPECT_EQ(value.number("text"), std::nullopt);
    EXPECT_EQ(value.boolean("yes"), true);
    EXPECT_EQ(value.boolean("whole"), std::nullopt);
    EXPECT_EQ(value.string("missing"), std::nullopt);
    EXPECT_TRUE(value.find("none")->isNull());
    EXPECT_EQ(Json(1).find("a"), nullptr);
    EXPECT_EQ(Json(9223372036854775808.0).asInt(), std::nullopt);
    EXPECT_EQ(Json(-9223372036854775808.0).asInt(), std::numeric_limits<std::int64_t>::min());
}

TEST(JsonTest, SetReplacesInPlaceAndMakesAnObjectOfNull) {
    Json value;
    value.set("a", 1);
    value.set("b", "x");
    value.set("a", std::optional<std::string>());
    EXPECT_EQ(value.dump(), R"({"a":null,"b":"x"})");
    Json list;
    list.append(1);
    list.append(value);
    EXPECT_EQ(list.dump(), R"([1,{"a":null,"b":"x"}])");
    list.set("a", 1);
    EXPECT_EQ(list.dump(), R"([1,{"a":null,"b":"x"}])");
}

}  // namespace
}  // namespace vesk
