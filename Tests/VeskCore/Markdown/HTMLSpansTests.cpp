#include <gtest/gtest.h>

#include "VeskCore/Markdown/HTMLSpans.h"
#include "VeskCore/Support/Match.h"
#include "VeskCore/Support/Unicode.h"

namespace vesk {
namespace {

using MarkdownSpans::Style;

std::string described(const HTMLStyle& style) {
    std::string text;
    if (style.bold) text += " bold";
    if (style.italic) text += " italic";
    if (style.underline) text += " underline";
    if (style.strikethrough) text += " strike";
    if (style.monospace) text += " mono";
    if (style.baseline == HTMLStyle::Baseline::sub) text += " sub";
    if (style.baseline == HTMLStyle::Baseline::sup) text += " sup";
    if (style.scale != 1) text += " scale" + std::to_string(static_cast<int>(style.scale * 100));
    auto hex = [](const CSSColor& color) {
        std::string digits;
        for (double part : {color.red, color.green, color.blue}) {
            digits += "0123456789abcdef"[static_cast<int>(part * 15 + 0.5)];
        }
        return digits;
    };
    if (style.color) text += " #" + hex(*style.color);
    if (style.background) text += " on#" + hex(*style.background);
    return text.empty() ? text : text.substr(1);
}

// The spans as "style:text", an "m:" for hidden markup (which is its own marker), "i:" for inert text.
std::string described(std::u16string_view line, const HTMLSpans::LineScan& scan) {
    std::string result;
    for (const auto& span : scan.spans) {
        std::string style = match(
            span.style, [](const Style::Heading& heading) { return "h" + std::to_string(heading.level); },
            [](const Style::HtmlStyled& styled) { return described(styled.style); },
            [&](const Style::Plain& plain) -> std::string {
                switch (plain) {
                    case Style::Plain::highlight:
                        return "highlight";
                    case Style::Plain::link:
                        return "link";
                    case Style::Plain::htmlMarkup:
                        return span.markers == std::vector{span.range} ? "m" : "markup without its marker";
                    case Style::Plain::htmlInert:
                        return span.markers.empty() ? "i" : "inert with a marker";
                    default:
                        return "?";
                }
            },
            [](const Style::Callout&) { return std::string("?"); },
            [](const Style::Task&) { return std::string("?"); },
            [](const Style::Table&) { return std::string("?"); });
        if (!result.empty()) result += " | ";
        result += style + ":" + utf8(line.substr(span.range.location, span.range.length));
    }
    return result;
}

// Inline code as the callers find it.
std::vector<TextRange> codeRanges(std::u16string_view line) {
    std::vector<TextRange> ranges;
    std::size_t open;
    for (std::size_t at = 0; (open = line.find(u'`', at)) != line.npos;) {
        const std::size_t close = line.find(u'`', open + 1);
        if (close == line.npos) break;
        ranges.push_back({open, close + 1 - open});
        at = close + 1;
    }
    return ranges;
}

HTMLSpans::LineScan scanned(std::u16string_view line) {
    return HTMLSpans::scan(line, line.size(), codeRanges(line));
}

TEST(HTMLSpans, StylesTheTextBetweenTagsOfOneLine) {
    struct Row {
        std::string_view name, input, expected;
    };
    const Row rows[] = {
        {"pair", "a <b>x</b>", "m:<b> | bold:x | m:</b>"},
        {"no close tag", "<b>x", "i:<b>"},
        {"no open tag", "x</b>", "i:</b>"},
        {"upper case", "<STRONG>x</Strong>", "m:<STRONG> | bold:x | m:</Strong>"},
        {"nested", "<b><i>x</i></b>", "m:<b> | bold:<i>x</i> | m:<i> | italic:x | m:</i> | m:</b>"},
        {"misnested", "<b>x<i>y</b>z</i>", "m:<b> | bold:x<i>y | m:<i> | italic:y</b>z | m:</b> | m:</i>"},
        {"one of two open", "<b>x<b>y</b>", "i:<b> | m:<b> | bold:y | m:</b>"},
        {"empty pair", "<b></b>", "m:<b> | m:</b>"},
        {"self-closing opens nothing", "<b/>x</b>", "i:<b/> | i:</b>"},
        {"strike and underline", "<del>a</del><ins>b</ins>",
         "m:<del> | strike:a | m:</del> | m:<ins> | underline:b | m:</ins>"},
        {"code", "<kbd>^C</kbd>", "m:<kbd> | mono:^C | m:</kbd>"},
        {"heading", "<h3>x</h3>", "m:<h3> | h3:x | m:</h3>"},
        {"mark", "<mark>x</mark>", "m:<mark> | highlight:x | m:</mark>"},
        {"subscript", "H<sub>2</sub>O", "m:<sub> | sub scale75:2 | m:</sub>"},
        {"superscript", "x<sup>2</sup>", "m:<sup> | sup scale75:2 | m:</sup>"},
        {"small", "<small>x</small>", "m:<small> | scale85:x | m:</small>"},
        {"link", "<a href='x'>y</a>", "m:<a href='x'> | link:y | m:</a>"},
        {"anchor", "<a id=x>y</a>", "i:<a id=x> | i:</a>"},
        {"declared style", "<span style=\"color: red\">x</span>",
         "m:<span style=\"color: red\"> | #f00:x | m:</span>"},
        {"span without a style", "<span class=a>x</span>", "i:<span class=a> | i:</span>"},
        {"font colour", "<font color=blue>x</font>", "m:<font color=blue> | #00f:x | m:</font>"},
        {"a style goes before the font's colour",
         "<font color=blue style='color:lime;font-weight:600'>x</font>",
         "m:<font color=blue style='color:lime;font-weight:600'> | bold #0f0:x | m:</font>"},
        {"the first of repeated attributes counts", "<span style='color:red' STYLE='color:blue'>x</span>",
         "m:<span style='color:red' STYLE='color:blue'> | #f00:x | m:</span>"},
        {"references in a value", "<span style='font-family:&quot;Menlo&quot;'>x</span>",
         "m:<span style='font-family:&quot;Menlo&quot;'> | mono:x | m:</span>"},
        {"a greater-than sign in quotes", "<b title='>'>x</b>", "m:<b title='>'> | bold:x | m:</b>"},
        {"containers hide without a partner", "<div class=a>x", "m:<div class=a>"},
        {"picture", "<img src=a.png>", "m:<img src=a.png>"},
        {"void elements show", "a<br>b<br/>c<hr />", "i:<br> | i:<br/> | i:<hr />"},
        {"table tags show", "<td>a</td>", "i:<td> | i:</td>"},
        {"custom element", "<my-note>x</my-note>", "i:<my-note> | i:</my-note>"},
        {"comment", "a <!-- b -- c --> d", "m:<!-- b -- c -->"},
        {"comment over code", "<!-- `x` -->", "m:<!-- `x` -->"},
        {"empty comments", "<!--><!--->-->", "m:<!--> | m:<!--->"},
        {"tags in a comment", "<!-- <b>x</b> -->", "m:<!-- <b>x</b> -->"},
        {"declaration", "<!DOCTYPE html>", "m:<!DOCTYPE html>"},
        {"open comment", "<!-- x", ""},
        {"a comment that ends in code", "<!-- x `-->`", ""},
        {"inline code", "`<b>`x</b>", "i:</b>"},
        {"a tag runs into code", "<b `>`", ""},
        {"escaped", "\\<b>x\\\\<i>", "i:<i>"},
        {"comparison", "a < b and c > d", ""},
        {"addresses", "<https://example.org/a> <me@example.org>", ""},
        {"no HTML name", "List<String> <name>", ""},
        {"open tag", "<b x", ""},
        {"open quote", "<b x=\"y>", ""},
        {"sign in a tag", "<b <i>x", "i:<i>"},
        {"outside the basic plane", "😀<b>😀</b>", "m:<b> | bold:😀 | m:</b>"},
    };
    for (const Row& row : rows) {
        const std::u16string line = utf16(row.input);
        EXPECT_EQ(described(line, scanned(line)), row.expected) << row.name;
    }
}

TEST(HTMLSpans, MasksMarkupButNoTypedText) {
    struct Row {
        std::string_view input, masked;
        bool markupOnly;
    };
    const Row rows[] = {
        {"<!-- comment -->", "", true},
        {"  <div id='#a'> </div> ", "    ", true},
        {"<img src=x><br>", "", true},
        {"<b>x</b>", "x", false},
        {"x <br>", "x ", false},
        {"<a title='#tag'>#real</a> List<String> a < b", "#real List<String> a < b", false},
        {"<b>`<i>`</b>", "`<i>`", false},
        {"<name>", "<name>", false},
        {"plain", "plain", false},
        {"", "", false},
    };
    for (const Row& row : rows) {
        const std::u16string line = utf16(row.input);
        const auto scan = scanned(line);
        std::u16string rest = line;
        for (auto range = scan.mask.rbegin(); range != scan.mask.rend(); ++range)
            rest.erase(range->location, range->length);
        EXPECT_EQ(utf8(rest), row.masked) << row.input;
        EXPECT_EQ(scan.markupOnly, row.markupOnly) << row.input;
        EXPECT_EQ(HTMLSpans::markupRanges(line, codeRanges(line)), scan.mask) << row.input;
    }
}

TEST(HTMLSpans, ReadsAttributesWithTheirPlaces) {
    const std::u16string line = u"é <IMG Src = 'a&amp;b.png' alt=\"\" hidden width=40 src=c/>";
    const auto tokens = HTMLSpans::tokens(line, line.size(), {});
    ASSERT_EQ(tokens.size(), 1u);
    const auto& tag = std::get<HTMLSpans::Tag>(tokens[0]);
    EXPECT_EQ(tag.name, "img");
    EXPECT_EQ(tag.range, (TextRange{2, line.size() - 2}));
    EXPECT_FALSE(tag.selfClosing);  // the slash belongs to the unquoted value
    const std::vector<std::pair<std::string, std::string>> attributes{
        {"src", "a&b.png"}, {"alt", ""}, {"hidden", ""}, {"width", "40"}, {"src", "c/"}};
    EXPECT_EQ(tag.attributes, attributes);
    EXPECT_EQ(tag.valueRanges.size(), 3u);
    EXPECT_EQ(tag.valueRanges.at("src"), (TextRange{14, 11}));
    EXPECT_EQ(tag.valueRanges.at("width"), (TextRange{47, 2}));
    EXPECT_TRUE(std::get<HTMLSpans::Tag>(HTMLSpans::tokens(u"<br />", 6, {})[0]).selfClosing);
}

TEST(HTMLSpans, LeavesTheLineTerminatorOut) {
    const std::u16string line = u"<b>x</b>\n";
    const auto scan = HTMLSpans::scan(line, 8, {});
    EXPECT_EQ(described(line, scan), "m:<b> | bold:x | m:</b>");
    EXPECT_TRUE(HTMLSpans::scan(u"<br>\n", 4, {}).markupOnly);
}

TEST(HTMLSpans, ReadsDeclarationsOfAStyleAttribute) {
    struct Row {
        std::string_view input, expected;
    };
    const Row rows[] = {
        {"color: red", "#f00"},
        {"COLOR:RED !IMPORTANT;", "#f00"},
        {"color: red ! important", "#f00"},
        {"color: /* not blue; */ red", "#f00"},
        {"color: red; color: nonsense", "#f00"},
        {"background: #ff0 url(a b.png) no-repeat", "on#ff0"},
        {"background: left / 10px rgb(0, 0, 255)", "on#00f"},
        {"background-color:lime", "on#0f0"},
        {"font-weight: bold; font-style: oblique 10deg", "bold italic"},
        {"font-weight: 600", "bold"},
        {"font-weight: 599.5", "none"},
        {"font-weight: bold; font-weight: normal", "none"},
        {"text-decoration: underline dotted line-through", "underline strike"},
        {"text-decoration: underline; text-decoration: none; color: lime", "#0f0"},
        {"vertical-align: super", "sup"},
        {"vertical-align:sub", "sub"},
        {"font-family: 'SF Mono', serif", "mono"},
        {"font-family: serif, monospace", "none"},
        {"font-size: 30px; position: fixed", "none"},
        {"/* open color: red", "none"},
        {"", "none"},
        {";;:;", "none"},
    };
    for (const Row& row : rows) {
        const auto style = HTMLSpans::parseStyleAttribute(row.input);
        EXPECT_EQ(style ? described(*style) : "none", row.expected) << row.input;
    }
}

// Each of these would take minutes if any step looked at the rest of the line again and again.
TEST(HTMLSpans, HostileLinesTakeLinearTime) {
    const std::u16string_view pieces[] = {
        u"<",      u"<b>",         u"</b>",      u"<b><i></b></i>",
        u"<a ",    u"<a b=\"",     u"<a b='\"",  u"<!--",
        u"<!-- `", u"<!a",         u"<a b=' \"", u"\\",
        u"<b x ",  u"<a b='\" c=", u"`<b>`",     u"<span style='background:("};
    for (std::u16string_view piece : pieces) {
        std::u16string line;
        while (line.size() < 400'000) line += piece;
        const auto scan = scanned(line);
        EXPECT_LE(scan.spans.size(), line.size()) << utf8(piece);
    }
    std::u16string line(200'000, u' ');
    for (std::size_t i = 0; i < line.size(); i += 4) line.replace(i, 3, u"<b>");
    EXPECT_EQ(scanned(line).mask.size(), 50'000u);
}

}  // namespace
}  // namespace vesk
