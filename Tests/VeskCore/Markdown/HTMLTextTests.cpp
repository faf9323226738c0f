#include <gtest/gtest.h>

#include "VeskCore/Markdown/HTMLText.h"
#include "VeskCore/Support/Characters.h"
#include "VeskCore/Support/Text.h"

namespace vesk {
namespace {

std::string repeated(std::string_view text, std::size_t times) {
    std::string result;
    result.reserve(text.size() * times);
    for (std::size_t i = 0; i < times; ++i) result += text;
    return result;
}

struct Row {
    std::string_view name, page, expected;
};

template <std::size_t n>
void expectTexts(const Row (&rows)[n]) {
    for (const Row& row : rows) EXPECT_EQ(HTMLText::extract(row.page, true).text, row.expected) << row.name;
}

TEST(HTMLText, LaysOutBlocksAndInlineText) {
    const Row rows[] = {
        {"white space collapses", "  a \n\t b\r\n<b> c </b> d ", "a b c d"},
        {"tags join words", "un<b>break</b>able", "unbreakable"},
        {"paragraphs", "<p>a<p> b </p>\n<div>c</div>d", "a\n\nb\n\nc\n\nd"},
        {"line breaks", "a<br>b<BR/>c<hr>d", "a\nb\nc\n\nd"},
        {"lists", "<ul><li>a<li>b<ol><li>c</ol></ul>d", "- a\n- b\n- c\n\nd"},
        {"paragraph in an item", "<ul>\n <li>\n  <p>a</p>\n </li>\n <li></li><li><p>b</p></ul>",
         "- a\n\n- b"},
        {"table", "<table><tr><td>a</td> <td> b</td></tr>\n<tr><th>c<td><td>d</table>e",
         "a | b\nc |  | d\n\ne"},
        {"blocks in cells", "<tr><td><p>a</p></td><td>b</td></tr>", "a\n\n| b"},
        {"table in a cell", "<tr><td><table><tr><td>a</table><td>b", "a\n\n| b"},
        {"definitions", "<dl><dt>a<dd>b<dt>c</dl>", "a\nb\nc"},
        {"preformatted", "x<pre>\n a\r\n\n  b \n</pre>y", "x\n\n a\n\n  b\n\ny"},
        {"picture", "<p>see <img alt='a &amp;\n b' src=x> c<img src=y>", "see a & b c"},
        {"references", "a&nbsp;b &lt;i&gt; &#32; &copy 1 &foo;", "a\u00A0b <i> © 1 &foo;"},
        {"options", "<select><option>a<option>b</select>", "a\nb"},
        {"textarea", "a<textarea> b <i>&lt; </textarea>c", "a\nb <i><\nc"},
        {"plaintext", "a<plaintext>b <i>\n c", "a\n\nb <i>\n c"},
        {"signs that begin no tag", "1 < 2, a <3 </ b> <", "1 < 2, a <3 <"},
        {"null bytes", std::string_view("a\0b", 3), "ab"},
        {"ill-formed bytes", "a\xFF\xE2\x82z", "a\uFFFD\uFFFDz"},
        {"comments and declarations",
         "<!DOCTYPE html>a<!-- <p> --!>b<!-->c<?php x ?>d<![CDATA[ > ]]>e</>f<!---->g", "abcdefg"},
        {"an open tag at the end", "a<b title='", "a"},
        {"attributes without spaces", "<p title='>'class=\"x\"/>a</p title=b>c", "a\n\nc"},
        {"empty page", " <p> </p> ", ""},
    };
    expectTexts(rows);
}

TEST(HTMLText, LeavesOutWhatAPageDoesNotShow) {
    const Row rows[] = {
        {"script", "a<script>if (a</b) '</p>' <!-- </SCRIPT >b", "ab"},
        {"another element's end tag", "<style>x</script></styles></style>b", "b"},
        {"open script", "a<script>b<p>c", "a"},
        {"other raw elements", "<xmp>a</xmp><iframe>b</iframe><noembed>c</noembed><noframes>d</noframes>e",
         "e"},
        {"hidden", "a<div hidden>b<div>c</div>d</div>e", "ae"},
        {"hidden until found", "<div hidden='Until-Found'>a</div><div hidden=x>b</div>", "a"},
        {"hidden by style",
         "<p style='color:red; DISPLAY : none'>a</p><b style=\"visibility:\n hidden\">b</b>c", "c"},
        {"template and dialog",
         "<template>a<template>b</template></template><dialog>c</dialog><dialog open>d</dialog>", "d"},
        {"script in a hidden element", "<div hidden><script>'</div>'</script></div>a", "a"},
        {"hidden void element", "a<br hidden>b<input type=hidden hidden>c", "abc"},
        {"the next item ends a hidden one", "<ul><li hidden>a<ul><li>b</ul><li>c</ul>", "- c"},
        {"the list ends a hidden item", "<ul><li hidden>a</ul>b", "b"},
        {"cells of a hidden row", "<table><tr hidden><td>a<table><tr><td>b</table><tr><td>c</table>", "c"},
        {"a block ends a hidden paragraph", "<p hidden>a<b>b</b><div>c</div>", "c"},
        {"the parent ends a hidden paragraph", "<div><p hidden>a</div>b", "b"},
        {"a hidden option", "<select><option hidden>a<option>b</select>", "b"},
        {"first of repeated attributes", "<p style='' style='display:none'>a", "a"},
        {"drawing", "a<svg><title>b</title><style>c</style><g/><text>d</text><svg/></svg>e", "ae"},
        {"formula", "<math><mi>x</mi></math>a", "a"},
        {"a paragraph ends an open drawing", "<svg><g>a<p>b", "b"},
        {"drawing without content", "<svg hidden/>a<svg/>b", "ab"},
    };
    expectTexts(rows);
    constexpr std::string_view page = "a<noscript><b>b</b></noscript>c";
    EXPECT_EQ(HTMLText::extract(page, true).text, "ac");
    EXPECT_EQ(HTMLText::extract(page, false).text, "abc");
}

TEST(HTMLText, KeepsHeadingsApartAndEscapesWhatOnlyLooksLikeOne) {
    const HTMLExtract extract = HTMLText::extract(
        "x<h1> A <b>b</b><br>c </h1>y<h2></h2><h3><div>D</div></h3><ul><li><h4>E</h4>e</ul><h5>F<p>f</p></h5>"
        "<p># g</p><p>##</p><p>#h</p><p>--- -</p><p>- -</p><p>***</p><pre>  # i</pre><h6># j",
        true);
    EXPECT_EQ(extract.text,
              "x\n\n# A b c\n\ny\n\n### D\n\n#### E\n\ne\n\n##### F\n\nf\n\n\\# g\n\n\\##\n\n#h\n\n\\--- "
              "-\n\n- -\n\n"
              "\\***\n\n  \\# i\n\n###### # j");
    const std::vector<HTMLExtract::Heading> headings{{1, "A b c"}, {3, "D"}, {4, "E"}, {5, "F"}, {6, "# j"}};
    EXPECT_EQ(extract.headings, headings);
}

TEST(HTMLText, WrapsLongLinesAtASpace) {
    const std::string word(600, 'a');
    EXPECT_EQ(HTMLText::extract(word + " " + word + " b", true).text, word + "\n" + word + " b");

    const std::string solid(2'500, 'x');
    EXPECT_EQ(HTMLText::extract("<p>" + solid, true).text,
              solid.substr(0, 1'000) + "\n" + solid.substr(0, 1'000) + "\n" + solid.substr(0, 500));

    // A thousand characters of two bytes each fit; one more does not.
    EXPECT_EQ(HTMLText::extract(repeated("é", 1'000), true).text, repeated("é", 1'000));
    EXPECT_EQ(HTMLText::extract(repeated("é", 1'001), true).text, repeated("é", 1'000) + "\né");

    // What begins a line only by the wrapping must not become a heading either.
    const std::string text =
        HTMLText::extract("<h2>" + std::string(990, 'a') + " # " + std::string(990, 'b'), true).text;
    EXPECT_EQ(text, "## " + std::string(990, 'a') + " #\n" + std::string(990, 'b'));
    EXPECT_EQ(HTMLText::extract(std::string(999, 'a') + " ## b", true).text,
              std::string(999, 'a') + "\n\\## b");
    for (std::string_view line : split(HTMLText::extract(repeated("- ", 5'000), true).text, '\n')) {
        EXPECT_TRUE(line.starts_with("\\-") && characterCount(line) <= 1'000) << line;
    }
}

TEST(HTMLText, FindsTheTitle) {
    struct TitleRow {
        std::string_view name, page, expected;
    };
    const TitleRow rows[] = {
        {"decoded and collapsed", "<head><title> a &amp;\n <b> </title>", "a & <b>"},
        {"the first that is not empty", "<title></title><TITLE>a</Title><title>b</title>", "a"},
        {"not of a drawing", "<svg><title>a</title></svg><title>b</title>", "b"},
        {"cut off", "<title>a", "a"},
        {"never closed", "<title>a<body>b", "a"},
        {"none", "<p>a", "none"},
        {"in a comment", "<!-- <title>a</title> -->", "none"},
        {"Windows-1252", "<title>caf\xE9</title>", "café"},
        {"a character cut off", "<title>a</title>\xE2\x82", "a"},
    };
    for (const TitleRow& row : rows)
        EXPECT_EQ(HTMLText::title(row.page).value_or("none"), row.expected) << row.name;
    EXPECT_EQ(HTMLText::title(std::string(65'536, ' ') + "<title>a</title>"), std::nullopt);
    EXPECT_EQ(HTMLText::extract("<title>a<p>b</p>", true).text, "b");
}

TEST(HTMLText, DecodesTheCharsetsOfTheWeb) {
    using namespace std::string_view_literals;
    const Row rows[] = {
        {"UTF-8", "é", "é"},
        {"UTF-8 whatever it declares", "<meta charset=latin1>é", "<meta charset=latin1>é"},
        {"byte order mark", "\xEF\xBB\xBF\xC3\xA9\xFF", "é\uFFFD"},
        {"UTF-16 little endian", "\xFF\xFE\x61\0\x3D\xD8\x00\xDE"sv, "a😀"},
        {"UTF-16 big endian, cut off", "\xFE\xFF\0\x61\0"sv, "a\uFFFD"},
        {"undeclared", "\x80\xE9\x81", "€é\u0081"},
        {"ISO Latin 1 means Windows-1252", "<meta charset='ISO-8859-1'>\x93", "<meta charset='ISO-8859-1'>“"},
        {"declared UTF-8", "charset = \"utf-8\" \xE9", "charset = \"utf-8\" \uFFFD"},
        {"UTF-16 in ASCII is a lie", "charset=utf-16 \xE9", "charset=utf-16 \uFFFD"},
        {"Cyrillic", "text/html; charset=windows-1251\"\xCF", "text/html; charset=windows-1251\"П"},
        {"Japanese", "charset=Shift_JIS \x93\xFA", "charset=Shift_JIS 日"},
        {"Chinese", "charset=gb2312 \xD6\xD0", "charset=gb2312 中"},
        {"Korean", "charset=ks_c_5601-1987 \xC7\xD1", "charset=ks_c_5601-1987 한"},
        {"Turkish by its ISO name", "charset=iso-8859-9 \xFD", "charset=iso-8859-9 ı"},
        {"the first charset with a name", "charsets; charset=koi8-r \xD0", "charsets; charset=koi8-r п"},
        {"unknown", "charset=utf-7 +AGE- \xE9", "charset=utf-7 +AGE- é"},
    };
    for (const Row& row : rows) EXPECT_EQ(HTMLText::decode(row.page), row.expected) << row.name;
}

TEST(HTMLText, EveryCharsetOfTheWebHasItsConverter) {
    // A byte that these encodings read differently from Windows-1252.
    struct CharsetRow {
        std::string_view label, bytes, expected;
    };
    const CharsetRow rows[] = {
        {"ibm866", "\x80", "А"},       {"latin2", "\xB1", "ą"},       {"iso-8859-3", "\xA1", "Ħ"},
        {"l4", "\xA2", "ĸ"},           {"cyrillic", "\xB0", "А"},     {"arabic", "\xC7", "ا"},
        {"greek", "\xC1", "Α"},        {"logical", "\xE0", "א"},      {"latin6", "\xA1", "Ą"},
        {"iso-8859-13", "\xC0", "Ą"},  {"iso-8859-14", "\xA1", "Ḃ"},  {"l9", "\xA4", "€"},
        {"koi8-u", "\xA4", "є"},       {"macintosh", "\x80", "Ä"},    {"x-mac-cyrillic", "\x80", "А"},
        {"tis-620", "\xA1", "ก"},      {"windows-1250", "\xB9", "ą"}, {"windows-1253", "\xC1", "Α"},
        {"windows-1255", "\xE0", "א"}, {"windows-1256", "\xC7", "ا"}, {"windows-1257", "\xC0", "Ą"},
        {"windows-1258", "\xC3", "Ă"}, {"gb18030", "\xD6\xD0", "中"}, {"big5", "\xA4\xA4", "中"},
        {"euc-jp", "\xC6\xFC", "日"},  {"euc-kr", "\xC7\xD1", "한"},
    };
    for (const CharsetRow& row : rows) {
        const std::string page = "charset=" + std::string(row.label) + " " + std::string(row.bytes);
        EXPECT_EQ(HTMLText::decode(page),
                  "charset=" + std::string(row.label) + " " + std::string(row.expected));
    }
}

TEST(HTMLText, DropsOnlyASequenceThatTheEndCutsOff) {
    const std::pair<std::string_view, std::string_view> rows[] = {
        {"aé", "aé"},
        {"a\xC3", "a"},
        {"a\xE2\x82", "a"},
        {"a\xF0\x9F\x98", "a"},
        {"a\xF0", "a"},
        {"😀", "😀"},
        {"a\x82\x82", "a\x82\x82"},
        {"a\xFF", "a\xFF"},
        {"\x80\x80\x80\x80", "\x80\x80\x80\x80"},
        {"", ""},
    };
    for (const auto& [input, expected] : rows)
        EXPECT_EQ(HTMLText::withoutPartialUTF8(input), expected) << input;
}

TEST(HTMLText, CapsAtALineFeedOrACharacter) {
    struct CapRow {
        std::string_view text;
        std::size_t maxBytes;
        std::string_view expected;
    };
    const CapRow rows[] = {
        {"ab\ncd", 5, "ab\ncd"}, {"ab\ncd", 4, "ab"},  {"ab\ncd", 2, "ab"},
        {"ab\n\n\ncd", 5, "ab"}, {"abcdef", 3, "abc"}, {"aéé", 4, "aé"},
        {"e\u0301x", 2, ""},     {"ab\n", 2, "ab"},    {"", 0, ""},
        {"a\nb\nc", 3, "a\nb"},
    };
    for (const CapRow& row : rows)
        EXPECT_EQ(HTMLText::capped(row.text, row.maxBytes), row.expected) << row.text;

    const std::string page = repeated("<p>" + std::string(97, 'a') + "</p>", 3'000);
    const std::string text = HTMLText::extract(page, true).text;
    EXPECT_EQ(text.size(), 3'000u * 99 - 2);
    EXPECT_EQ(HTMLText::capped(text, HTMLText::maxPageTextBytes).size(), 2'584u * 99 + 97);
}

TEST(HTMLText, ScansNoMoreThanItsLimit) {
    std::string page(0x1000000 - 1, ' ');
    page.replace(0, 1, "a");
    EXPECT_EQ(HTMLText::extract(page + "é b", true).text, "a");
    EXPECT_EQ(HTMLText::extract(page + "b c", true).text, "a b");
}

// Each of these would take minutes if any step looked at the rest of the page again and again.
TEST(HTMLText, HostilePagesTakeLinearTime) {
    for (std::string_view piece : {"<",         "<a ",          "<title>",
                                   "<![cdata[", "<!",           "<!--",
                                   "<script",   "</",           "&",
                                   "&#",        "<h1>",         "<h1>a",
                                   "<li>",      "<td>",         "<td>a",
                                   "<svg>",     "<div hidden>", "<p hidden>a</p>",
                                   "<pre>\n",   "<ul>",         "<textarea>",
                                   "--",        "- ",           "#",
                                   "<a b='",    "\xCC\x81",     "<li hidden><ul>",
                                   "a<br>",     "<table>"}) {
        const std::string page = repeated(piece, 2'000'000 / piece.size());
        EXPECT_LE(HTMLText::extract(page, true).text.size(), 3 * page.size()) << piece;
        HTMLText::decode(page + "\xFF");
    }
}

}  // namespace
}  // namespace vesk
