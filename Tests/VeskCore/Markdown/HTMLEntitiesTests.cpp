#include <gtest/gtest.h>

#include <algorithm>

#include "VeskCore/Markdown/HTMLEntities.h"
#include "VeskCore/Markdown/HTMLEntityTable.h"

namespace vesk {
namespace {

TEST(HTMLEntities, DecodesReferencesInText) {
    struct Row {
        std::string_view name, input, expected;
    };
    const Row rows[] = {
        {"named", "a &lt; b &amp;&amp; c", "a < b && c"},
        {"names are case-sensitive", "&Eacute;&eacute;&EACUTE;", "Éé&EACUTE;"},
        {"two code points", "&NotEqualTilde;", "\xE2\x89\x82\xCC\xB8"},
        {"the longest name", "&CounterClockwiseContourIntegral;", "\xE2\x88\xB3"},
        {"beyond the basic plane", "&Afr;", "\xF0\x9D\x94\x84"},
        {"legacy without semicolon", "&amp &ampx &copy2020 &nbsp", "& &x ©2020 \u00A0"},
        {"a full name goes before its legacy prefix", "&copysr;&ltimes;", "℗⋉"},
        {"an unknown name with a legacy prefix", "&ltfoo;", "<foo;"},
        {"not legacy here", "&eacute &AMP &foo", "&eacute &AMP &foo"},
        {"unknown stays", "&foo; &; & &#; &#x; &#xg; &", "&foo; &; & &#; &#x; &#xg; &"},
        {"decimal and hexadecimal", "&#65;&#x42;&#X43;&#x1F600;", "ABC😀"},
        {"numbers without semicolon", "&#65B&#x41G", "AB\x41G"},
        {"Windows-1252 numbers", "&#128;&#150;&#x99;&#129;", "€–™\u0081"},
        {"what is no character", "&#0;&#xD800;&#x110000;&#99999999999999999999999;", "����"},
        {"the result is not read again", "&amp;lt;", "&lt;"},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(HTMLEntities::decode(row.input, /*inAttribute=*/false), row.expected) << row.name;
    }
}

TEST(HTMLEntities, LeavesQueryParametersInAttributesAlone) {
    struct Row {
        std::string_view input, expected;
    };
    const Row rows[] = {
        {"?a=1&copy=2&reg2&lt", "?a=1&copy=2&reg2<"},
        {"?a=1&copy;=2", "?a=1©=2"},
        {"&amp b", "& b"},
    };
    for (const Row& row : rows)
        EXPECT_EQ(HTMLEntities::decode(row.input, /*inAttribute=*/true), row.expected);
}

TEST(HTMLEntities, TableIsSortedSoThatEveryNameIsFound) {
    for (const auto& entry : HTMLEntities::namedReferences) {
        const auto found = HTMLEntities::scalar(entry.name);
        ASSERT_TRUE(found) << entry.name;
        EXPECT_EQ(found->data(), entry.text) << entry.name;
    }
    EXPECT_EQ(HTMLEntities::scalar("hellip"), U"…");
    EXPECT_EQ(HTMLEntities::scalar("zwnj"), U"\u200C");
    EXPECT_FALSE(HTMLEntities::scalar(""));
}

}  // namespace
}  // namespace vesk
