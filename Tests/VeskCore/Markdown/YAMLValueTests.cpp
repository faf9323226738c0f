#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <random>

#include "VeskCore/Markdown/YAMLValue.h"

namespace vesk {

// What a failed comparison prints.
std::string shown(const YAMLValue& value) {
    if (const auto* items = value.listValue()) {
        std::string text = "[";
        for (const auto& item : *items) text += (text.size() > 1 ? ", " : "") + shown(item);
        return text + "]";
    }
    static const char* const kinds[] = {"string", "number", "bool", "date", "list", "raw", "null"};
    return kinds[value.value.index()] + ("(" + value.stringValue().value_or("") + ")");
}

void PrintTo(const YAMLValue& value, std::ostream* out) {
    *out << shown(value);
}

namespace {

YAMLValue text(std::string_view content) {
    return YAMLValue::string(content);
}

YAMLValue raw(std::string_view content) {
    return YAMLValue::raw(content);
}

YAMLValue list(std::vector<YAMLValue> items) {
    return YAMLValue::list(std::move(items));
}

TEST(YAMLScalar, ParsesEachKindOfScalar) {
    struct Row {
        std::string_view input;
        YAMLValue expected;
    };
    const Row rows[] = {
        {"", {}},
        {" \t\u3000", {}},
        {"plain words ", text("plain words")},
        {R"("a \"b\" \\ \n\t\r \q \é")", text("a \"b\" \\ \n\t\r q é")},
        {R"("open\")", text("open\\")},
        {"\"", text("\"")},
        {"''", text("")},
        {"'it''s'", text("it's")},
        {"'a\"", text("'a\"")},
        {"[ ]", list({})},
        {"[", text("[")},
        {"[a, \"x, y\", d]", list({text("a"), text("x, y"), text("d")})},
        {"[x, [y, 1]]", list({text("x"), list({text("y"), YAMLValue::number(1)})})},
        {"[a, , b, ]", list({text("a"), {}, text("b")})},
        {"[{a: 1, b: 2}, c]", list({raw("{a: 1, b: 2}"), text("c")})},
        {"[don't, x]", list({text("don't, x")})},
        {"[a], b]", list({text("a], b")})},
        {" {a: 1} ", raw("{a: 1}")},
        {"&anchor x", raw("&anchor x")},
        {"*alias", raw("*alias")},
        {"!tag x", raw("!tag x")},
        {"TRUE", YAMLValue::boolean(true)},
        {"Yes", YAMLValue::boolean(true)},
        {"no", YAMLValue::boolean(false)},
        {"on", text("on")},
        {"N", text("N")},
        {"Null", {}},
        {"~", {}},
        {"-12.5e1", YAMLValue::number(-125)},
        {"+5.", YAMLValue::number(5)},
        {"1,000", text("1,000")},
        {"1_000", text("1_000")},
        {"0x10", text("0x10")},
        {"0X1p3", text("0X1p3")},
        {"nan", text("nan")},
        {"inf", text("inf")},
        {"1e999", text("1e999")},
        {"12 34", text("12 34")},
        {"2024-02-30", text("2024-02-30")},
        {"2024-2-03x", text("2024-2-03x")},
        {"2024-01-01 10:00:00", text("2024-01-01 10:00:00")},
        {"2024-01-01T25:00:00", text("2024-01-01T25:00:00")},
    };
    for (const Row& row : rows) EXPECT_EQ(YAMLScalar::parse(row.input), row.expected) << row.input;
}

TEST(YAMLScalar, ReadsDatesInTheDevicesZone) {
    const auto instant = [](std::string_view input) { return YAMLScalar::parse(input).dateValue(); };
    const DateFormat reading("yyyy-MM-dd'T'HH:mm:ss", deviceTimeZone());
    EXPECT_EQ(instant("2024-02-29"), reading.parse("2024-02-29T00:00:00"));
    EXPECT_EQ(instant(" 2024-02-29T08:05:09.75+02:00 "), reading.parse("2024-02-29T08:05:09"));
    EXPECT_EQ(text("2024-02-29").dateValue(), reading.parse("2024-02-29T00:00:00"));
    EXPECT_EQ(YAMLScalar::emit(YAMLScalar::parse("2024-02-29T08:05:09Z")), "2024-02-29");
}

TEST(YAMLScalar, EmitsWhatReadsBackAsTheSameValue) {
    struct Row {
        YAMLValue value;
        std::string_view expected;
    };
    const Row rows[] = {
        {text("plain: no#t quoted, [at] all's"), "\"plain: no#t quoted, [at] all's\""},
        {text("a:b#c, [d] e's"), "a:b#c, [d] e's"},
        {text(""), R"("")"},
        {text("yes"), R"("yes")"},
        {text("2024-02-29"), R"("2024-02-29")"},
        {text("12"), R"("12")"},
        {text("2024-02-30"), "2024-02-30"},
        {text(" a"), R"(" a")"},
        {text("a\u00A0"), "\"a\u00A0\""},
        {text("ends:"), R"("ends:")"},
        {text("a #b"), R"("a #b")"},
        {text("?a"), R"("?a")"},
        {text("-a"), R"("-a")"},
        {text("`a"), R"("`a")"},
        {text("a\\b\"c\nd\re"), R"("a\\b\"c\nd\re")"},
        {text("a\\b"), "a\\b"},
        {YAMLValue::number(5), "5"},
        {YAMLValue::number(-0.1), "-0.1"},
        {YAMLValue::number(999999999999999), "999999999999999"},
        {YAMLValue::number(1e15), "1000000000000000.0"},
        {YAMLValue::number(-1e15), "-1000000000000000.0"},
        {YAMLValue::number(1e300), "1e+300"},
        {YAMLValue::boolean(true), "true"},
        {raw("{a: b}"), "{a: b}"},
        {{}, ""},
        {list({}), "[]"},
        {list({text("a"), YAMLValue::number(2), list({text("b")})}), "[a, 2, [b]]"},
        {list({text("x, y"), text("[z]"), text("it's"), text("say \"hi\""), text("'\"")}),
         R"(["x, y", "[z]", "it's", 'say "hi"', '''"'])"},
        {list({{}, text("a"), {}}), "[, a, ~]"},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(YAMLScalar::emit(row.value), row.expected);
        EXPECT_EQ(YAMLScalar::parse(row.expected), row.value) << row.expected;
    }
}

TEST(YAMLScalar, QuotesWhatWouldReadAsSomethingElse) {
    for (const char first : std::string_view("[]{}>|*&!%@`#-?:,'\""))
        EXPECT_TRUE(YAMLScalar::needsQuoting(std::string(1, first) + "x")) << first;
    for (const char* input : {"a: b", "a:", "a # b", "a\nb", "a\rb", "no", "1.5", "~", " a", "a\t", ""})
        EXPECT_TRUE(YAMLScalar::needsQuoting(input)) << input;
    for (const char* input : {"a:b", "a#b", "a, b", "a'b", "on", "0x1F", "x-y", "<a>", "(a)", "\\"})
        EXPECT_FALSE(YAMLScalar::needsQuoting(input)) << input;
}

TEST(YAMLValue, GivesReadingsByKind) {
    const auto number = [](double value) { return YAMLValue::number(value).stringValue().value_or("none"); };
    EXPECT_EQ(number(1e15), "1000000000000000");
    EXPECT_EQ(number(-9223372036854775808.0), "-9223372036854775808");
    EXPECT_EQ(number(9223372036854775808.0), "9.223372036854776e+18");
    EXPECT_EQ(number(2.5), "2.5");
    EXPECT_EQ(number(std::numeric_limits<double>::infinity()), "inf");
    EXPECT_EQ(YAMLValue::boolean(false).stringValue(), "false");
    EXPECT_EQ(YAMLScalar::parse("2024-02-29T08:05:09").stringValue(), "2024-02-29");
    EXPECT_EQ(raw("*a").stringValue(), "*a");
    EXPECT_EQ(YAMLValue().stringValue(), std::nullopt);
    EXPECT_EQ(list({text("a")}).stringValue(), std::nullopt);

    EXPECT_EQ(text("1.5").doubleValue(), 1.5);
    EXPECT_EQ(YAMLValue::boolean(true).doubleValue(), 1);
    EXPECT_EQ(text("1.5 m").doubleValue(), std::nullopt);
    EXPECT_EQ(raw("1").doubleValue(), std::nullopt);

    for (const char* yes : {"true", "YES", "y", "On"}) EXPECT_EQ(text(yes).boolValue(), true) << yes;
    for (const char* no : {"False", "no", "N", "off"}) EXPECT_EQ(text(no).boolValue(), false) << no;
    EXPECT_EQ(text("maybe").boolValue(), std::nullopt);
    EXPECT_EQ(YAMLValue::number(1).boolValue(), std::nullopt);

    using Texts = std::vector<std::string>;
    EXPECT_EQ(YAMLValue().asStringList(), Texts{});
    EXPECT_EQ(text("a, b").asStringList(), Texts{"a, b"});
    EXPECT_EQ(YAMLScalar::parse("[a, [b], ~, 2, yes, {c: d}]").asStringList(),
              (Texts{"a", "2", "true", "{c: d}"}));
}

TEST(YAMLScalar, ReadsBackRandomTextsAloneAndInLists) {
    const auto seed = std::random_device{}();
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const std::vector<std::string> pieces{"a",  "1",      " ",  "\t",   "\n",       "\r",     "\"", "'",
                                          "\\", ",",      "[",  "]",    "{",        "}",      ":",  "#",
                                          "-",  "~",      "*",  "true", "2024-01-", "\u3000", "é",  "|",
                                          "&",  "\u0301", "''", "n",    "!",        "e5",     ".",  "yes"};
    const auto randomText = [&] {
        std::string made;
        for (auto count = random() % 7; count > 0; --count) made += pieces[random() % pieces.size()];
        return made;
    };
    for (int round = 0; round < 20000; ++round) {
        const auto value = text(randomText());
        const auto emitted = YAMLScalar::emit(value);
        ASSERT_EQ(YAMLScalar::parse(emitted), value) << emitted;
        ASSERT_EQ(emitted.find_first_of("\n\r"), std::string::npos);
        std::vector<YAMLValue> items;
        for (auto number = random() % 4; number > 0; --number) items.push_back(text(randomText()));
        const auto inlined = YAMLScalar::emit(list(items));
        const bool inlines = YAMLScalar::emitsInline({items});
        ASSERT_TRUE(!inlines || YAMLScalar::parse(inlined) == list(items)) << inlined;
        // Only a text with both a double quote and a line end can't stand between commas.
        const bool plain = std::none_of(items.begin(), items.end(), [](const YAMLValue& item) {
            const auto content = item.stringValue().value_or("");
            return content.find('"') != std::string::npos &&
                   content.find_first_of("\n\r") != std::string::npos;
        });
        ASSERT_TRUE(inlines || !plain) << inlined;
    }
}

TEST(YAMLScalar, KeepsVeryDeepListsAsText) {
    const std::size_t depth = 100'000;
    const auto deep = std::string(depth, '[') + "a, b" + std::string(depth, ']');
    auto value = YAMLScalar::parse(deep);
    EXPECT_EQ(YAMLScalar::emit(value), deep);
    while (const auto* items = value.listValue()) {
        ASSERT_EQ(items->size(), 1U);
        value = YAMLValue(items->front());
    }
    EXPECT_TRUE(std::holds_alternative<YAMLValue::Raw>(value.value));
    EXPECT_EQ(YAMLScalar::parse(std::string(depth, '[')), text(std::string(depth, '[')));
}

}  // namespace
}  // namespace vesk
