#include <gtest/gtest.h>

#include <string>

#include "VeskCore/Markdown/HTMLText.h"

namespace vesk {
namespace {

TEST(CSSText, LaysOutARuleOnALine) {
    struct Row {
        std::string_view name, css, expected;
    };
    const Row rows[] = {
        {"rules", "a{color:red}\n\n.b ,\n c  { margin : 0;\n  padding:1px }",
         "a { color:red }\n.b , c { margin : 0; padding:1px }"},
        {"statements", "@charset 'utf-8';@import url(a.css) screen;a{}",
         "@charset 'utf-8';\n@import url(a.css) screen;\na { }"},
        {"rules in a rule", "@media print{a{b:c}d{e:f}}g{}",
         "@media print {\na { b:c }\nd { e:f }\n}\ng { }"},
        {"declarations before a rule", ".a{b:c;&:hover{d:e}f:g}", ".a { b:c;\n&:hover { d:e }\nf:g }"},
        {"comments", "/* x */a/**/{b:/* ; } */c}/* open {", "a { b: c }"},
        {"comment signs in a string", "a{content:'/* x */ }'}", "a { content:'/* x */ }' }"},
        {"escapes", "a{content:\"\\\"}\";b:\\}}", "a { content:\"\\\"}\";b:\\} }"},
        {"an address is kept", "a{b:url( x;y{z.png )}", "a { b:url( x;y{z.png ) }"},
        {"inline data", "a{b:url(data:image/png;base64,AA==) c}", "a { b: c }"},
        {"inline data in quotes", "a{b:URL( \"data:image/svg+xml,<svg a='(x)'>\" )}", "a { b: }"},
        {"inline data, quote left open", "a{b:url('data:x)}\nc{}", "a { b: }\nc { }"},
        {"inline data left open", "a{b:url(data:AAAA", "a { b:"},
        {"data elsewhere", "a{content:'data:x'}", "a { content:'data:x' }"},
        {"unbalanced", "}a{b:c}}{", "}\na { b:c }\n}\n{"},
        {"a string left open ends with its line", "a{b:'c\n}d{}", "a { b:'c }\nd { }"},
        {"nothing", " \n ", ""},
    };
    for (const Row& row : rows) EXPECT_EQ(CSSText::indexable(row.css), row.expected) << row.name;
}

// Each of these would take minutes if any step looked at the rest of the stylesheet again and again.
TEST(CSSText, HostileStylesheetsTakeLinearTime) {
    for (std::string_view piece :
         {"{", "}", "/*", "/", "a{", "url(", "url('", "url(\"a)", "'\n", "\\", "url(data:", ";", "a{b;"}) {
        std::string css;
        while (css.size() < 2'000'000) css += piece;
        EXPECT_LE(CSSText::indexable(css).size(), 3 * css.size()) << piece;
    }
}

}  // namespace
}  // namespace vesk
