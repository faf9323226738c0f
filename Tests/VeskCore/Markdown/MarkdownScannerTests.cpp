#include <gtest/gtest.h>

#include <random>

#include "VeskCore/Markdown/MarkdownScanner.h"
#include "VeskCore/Support/Characters.h"
#include "VeskCore/Support/Text.h"

namespace vesk {
namespace {

using Texts = std::vector<std::string>;
using Wikilink = NoteScan::Wikilink;
using Tasks = std::vector<NoteScan::TaskItem>;

std::string repeated(std::string_view text, std::size_t times) {
    std::string result;
    result.reserve(text.size() * times);
    for (std::size_t i = 0; i < times; ++i) result += text;
    return result;
}

NoteScan scanned(std::string_view body) {
    return MarkdownScanner::scan(body, true);
}

/// "!target|alias|#heading|^block@start+length", absent parts left out.
std::string shown(const Wikilink& link) {
    std::string text = (link.isEmbed ? "!" : "") + link.target;
    if (link.heading) text += " #" + *link.heading;
    if (link.blockID) text += " ^" + *link.blockID;
    if (link.alias) text += " |" + *link.alias;
    return text + " @" + std::to_string(link.range.location) + "+" + std::to_string(link.range.length);
}

Texts shown(const std::vector<Wikilink>& links) {
    Texts texts;
    for (const auto& link : links) texts.push_back(shown(link));
    return texts;
}

std::string shown(const NoteScan::MarkdownLink& link) {
    return (link.isImage ? "!" : "") + link.text + " -> " + link.url;
}

Texts markdownLinks(std::string_view line) {
    NoteScan scan;
    MarkdownScanner::extractMarkdownLinks(line, scan);
    Texts texts;
    for (const auto& link : scan.markdownLinks) texts.push_back(shown(link));
    return texts;
}

TEST(MarkdownScanner, ReadsWikilinks) {
    struct Row {
        std::string_view body;
        Texts expected;
    };
    const Row rows[] = {
        {"a [[Note#Section|shown]]", {"Note #Section |shown @2+22"}},
        {"[[Note#^abc]]", {"Note ^abc @0+13"}},
        {"[[ a # b | c ]]", {"a #b |c @0+15"}},
        {"[[a#^ b ]]", {"a ^ b  @0+10"}},
        {"[[a#b#^c]]", {"a#b ^c @0+10"}},
        {"[[a#b#c]]", {"a #b#c @0+9"}},
        {"[[x#]]", {"x # @0+6"}},
        {"[[#Section]]", {" #Section @0+12"}},
        {"[[#^b]]", {" ^b @0+7"}},
        {"[[|x]] [[ ]] [[]]", {}},
        {"[[a|]] [[a|b|c]]", {"a | @0+6", "a |b|c @7+9"}},
        {"[[a|b#c]]", {"a |b#c @0+9"}},
        {"![[a]] !![[b]]", {"!a @0+6", "!b @8+6"}},
        {"[[a [[b]] c]]", {"a [[b]] c @0+13"}},
        {"[[a [[b]] c", {"b @4+5"}},
        {"[[[a]]]", {"[a @0+6"}},
        {"[[[[a]]", {"a @2+5"}},
        {"[[[[]]]]", {"[[]] @0+8"}},
        {"[[link\nlink]]", {}},
        {"[[a]](b)", {"a @0+5"}},
        {"`[[a]]` [[b]]", {"b @8+5"}},
        {"`` [[a]] `[[b]]", {"a @3+5"}},
        {"# [[a]]", {}},
        {"é\n😀x\r\n[[a]]", {"a @7+5"}},
        {"e\u0301😀[[a😀]]", {"a😀 @2+6"}},
        {"[[\u0301a]] [[b]\u0301] c]]", {"b]\u0301] c @6+9"}},
    };
    for (const Row& row : rows) EXPECT_EQ(shown(scanned(row.body).wikilinks), row.expected) << row.body;
}

TEST(MarkdownScanner, ReadsMarkdownLinks) {
    struct Row {
        std::string_view line;
        Texts expected;
    };
    const Row rows[] = {
        {"[a](b) ![c](d)", {"a -> b", "!c -> d"}},
        {"![alt](a.png \"Title\")", {"!alt -> a.png"}},
        {"[a](b 'c')", {"a -> b 'c'"}},
        {"[a](x(y)z)", {"a -> x(y)z"}},
        {"[a](x(y", {}},
        {"[a](( [b](c)", {"b -> c"}},
        {"[a [b](c)", {"a [b -> c"}},
        {"[[a](b)", {}},
        {"[[[a](b)", {"a -> b"}},
        {"[](b) [a]() [a] (b)", {" -> b"}},
        {"[a]( \"t\")", {}},
        {"[a\\](b)](c)", {"a\\ -> b"}},
        {"[é](ü) [a]\u0301(b)", {"é -> ü"}},
    };
    for (const Row& row : rows) EXPECT_EQ(markdownLinks(row.line), row.expected) << row.line;
}

TEST(MarkdownScanner, ReadsTags) {
    struct Row {
        std::string_view body;
        Texts expected;
    };
    const Row rows[] = {
        {"#a #b/c #d-e_f #a", {"a", "b/c", "d-e_f"}},
        {"#A #a", {"A", "a"}},
        {"x#a &#b; a/#c", {}},
        {"(#a [#b {#c >#d ,#e ;#f \"#g '#h", {"a", "b", "c", "d", "e", "f", "g", "h"}},
        {"x\t#a\u3000#b", {"a", "b"}},
        {"#123 #2024-01 #1a #-/", {"1a"}},
        {"#a/ #b// #c.d", {"a", "b/", "c"}},
        {"##a #a#b", {"a"}},
        {"#über #日本 #e\u0301t #①x", {"über", "日本", "e\u0301t", "①x"}},
        {"#\u0301a a\u0301#b \u0301#c", {"c"}},
        {"\u0600(#a \u0600 #b é#c 😀#d\u3000#e", {"e"}},
        {"#a😀b", {"a"}},
        {"`#a` <span title=' #b'> #c </span>", {"c"}},
        {"## #a", {}},
        {"    #a\n\t#b\n    - #c\n\t12) #d", {"c", "d"}},
    };
    for (const Row& row : rows) EXPECT_EQ(scanned(row.body).tags, row.expected) << row.body;
    EXPECT_EQ(MarkdownScanner::scan("<i title=' #b'>", false).tags, Texts{"b"});
    NoteScan repeatedTags;
    MarkdownScanner::extractTags("#a #a", repeatedTags);
    EXPECT_EQ(repeatedTags.tags, (Texts{"a", "a"}));
}

TEST(MarkdownScanner, ReadsHeadingsAndTheTitle) {
    const auto scan =
        scanned("Under\n===\n## Two ##\r\n #  # One # \n# Second\n#tag\n#######\n#\n###### \u3000six\n#\tx");
    const std::vector<NoteScan::Heading> expected{
        {2, "Two", 2}, {1, "One", 3}, {1, "Second", 4}, {1, "", 7}, {6, "six", 8}};
    EXPECT_EQ(scan.headings, expected);
    EXPECT_EQ(scan.title, "One");
    EXPECT_EQ(scanned("#\n# a").title, "");
    EXPECT_EQ(scanned("## a\n===").title, std::nullopt);
    EXPECT_EQ(scanned("# [[a]] #t ^b words").wordCount, 0);
}

TEST(MarkdownScanner, ReadsTasks) {
    const auto scan = scanned(
        "- [ ] a\n* [x] b \n+ [-] c\n1. [ ] d\n23)  [X]e\n    - [ ] f\n- [] g\n- [ ]\n-[ ] h\n[ ] i\n- [é] "
        "j\n"
        "- [xx] k\n1.\t[ ] l\n٣. [ ] m\n```\n- [ ] n\n```\n-  [ ] o\n1.5 [ ] p\n- [ ](q)");
    const Tasks expected{{"a", false, 0},  {"b", true, 1},    {"c", true, 2}, {"d", false, 3},
                         {"e", true, 4},   {"f", false, 5},   {"", false, 7}, {"j", true, 10},
                         {"m", false, 13}, {"(q)", false, 19}};
    EXPECT_EQ(scan.tasks, expected);
}

TEST(MarkdownScanner, LeavesCodeOut) {
    struct Row {
        std::string_view body;
        Texts tags;
        int words;
    };
    const Row rows[] = {
        {"```\n#a\n```\n#b", {"b"}, 1},
        {"~~~\n#a\n```\n#b\n~~~~\n#c", {"c"}, 1},
        {"```x\n#a\n```cpp\n#b", {"b"}, 1},
        {"    ```\n#a\n  ```\n#b", {"b"}, 1},
        {"```\r\n#a\r\n```\r\n#b\r\n", {"b"}, 1},
        {"#a\n```\n#b\n", {"a"}, 1},
        {"``\n#a", {"a"}, 1},
        {"    #a\n   #b", {"b"}, 1},
        {"\u00A0\u00A0\u00A0\u00A0#a", {"a"}, 1},
        {"a `b c` d\n`e f", {}, 2},
        {"a\u00A0b\tc  d\r\n \r\n\r\n\u3000\n", {}, 4},
        {"a<b>c</b> <!-- x y --> d", {}, 3},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(scanned(row.body).tags, row.tags) << row.body;
        EXPECT_EQ(scanned(row.body).wordCount, row.words) << row.body;
    }
}

TEST(MarkdownScanner, ReadsBlockIdentifiers) {
    const auto scan = scanned("a ^b-1 \n^c\n a^d\na ^e f\na ^ü^g\na ^h_i\na ^\n- ^j\r\n^k ^l\na\t^m\n# x ^n");
    EXPECT_EQ(scan.blockIDs, (Texts{"b-1", "j", "l"}));
}

TEST(MarkdownScanner, MasksByCharacter) {
    EXPECT_EQ(MarkdownScanner::maskInlineCode("a`b\u0301😀`c`d"), "a    c  ");
    EXPECT_EQ(MarkdownScanner::maskInlineCode("a`\u0301b`c"), "a`\u0301b  ");
    EXPECT_EQ(MarkdownScanner::maskInlineCode("\u0600`a`b"), "\u0600`a  ");
    EXPECT_EQ(MarkdownScanner::maskInlineCode("a\r\n`b\r\nc`"), "a\r\n     ");
    EXPECT_EQ(MarkdownScanner::maskInlineCodeAndMarkup("é<b>😀`<i>é`</b>z"), "é   😀          z");
    EXPECT_EQ(MarkdownScanner::maskInlineCodeAndMarkup("1 < 2 `x`"), "1 < 2    ");
    EXPECT_EQ(MarkdownScanner::maskInlineCodeAndMarkup("a`\u0301<b>`c"), "a`\u0301     ");
}

TEST(MarkdownScanner, RemovesEmbedsAndLinkSyntax) {
    struct Row {
        std::string_view input, expected;
    };
    const Row rows[] = {
        {" a  b [c] [[d]] ", " a  b [c] [[d]] "},
        {"a ![[b]]  c", "a c"},
        {" [a](b)  ![c](d) e ", "a e"},
        {"![[a]", "![[a]"},
        {"  ![[a  ]( ", "  ![[a  ]( "},
        {"![[![[a]]b]]", "b]]"},
        {"!![[a]][[b]]", ""},
        {"[a](b(c)d)", "ad)"},
        {"[[a](b)", "[a"},
        {"[[a]](b)", "[[a]](b)"},
        {"[a [b](c)", "a [b"},
        {"[a]x[b](c)", "[a]xb"},
        {"[a](b [c](d)", "a"},
        {"![](a)", ""},
        {"a ![b](c) d\u3000", "a d"},
    };
    for (const Row& row : rows)
        EXPECT_EQ(MarkdownScanner::withoutEmbeds(row.input), row.expected) << row.input;
}

TEST(MarkdownScanner, PreviewsALineAsProse) {
    struct Row {
        std::string_view input, expected;
    };
    const Row rows[] = {
        {" words ", "words"},
        {"# a", ""},
        {"#tag first", ""},
        {"> a", ""},
        {"--- a", ""},
        {"-- a", "-- a"},
        {"- [ ] a", "a"},
        {"- [x] a", "a"},
        {"- [X] a", "[X] a"},
        {"- - a", "- a"},
        {"+ a", "a"},
        {"**a** __b__ ==c== *d*", "a b c *d*"},
        {"[[a]] [[b|c]] [[d|]] [[|]] [[e|f|g]]", "a c d  g"},
        {"[[a [[b]] c]] [[d", "a [[b c]] [[d"},
        {"- ![[a.png]]", ""},
        {"a **", "a"},
    };
    for (const Row& row : rows)
        EXPECT_EQ(MarkdownScanner::plainPreview(row.input), row.expected) << row.input;
    EXPECT_EQ(MarkdownScanner::plainPreview("> a", "b"), "a");
    EXPECT_EQ(MarkdownScanner::plainPreview("a", "# a"), "");
}

TEST(MarkdownScanner, TakesTheExcerptFromTheFirstProse) {
    struct Row {
        std::string body, expected;
    };
    const Row rows[] = {
        {"# h\n\n> q\n---\n```\ncode\n```\n    code\n", ""},
        {"# h\n\n- ![[a.png]]\n![b](c)\nfirst\nsecond", "first"},
        {"<b>\na <b>x</b>  y", "a x y"},
        {"`code`\n**bold** `code` [l](u)\n", "bold l"},
        {"<!-- # x -->\nshown", "shown"},
        {"<a>#b</a>\nshown", "#b"},
        {"  e\u0301\u0301" + repeated("e\u0301", 300), "e\u0301\u0301" + repeated("e\u0301", 199)},
        {repeated("word ", 100), repeated("word ", 40)},
    };
    for (const Row& row : rows) EXPECT_EQ(scanned(row.body).excerpt, row.expected) << row.body;
    EXPECT_EQ(MarkdownScanner::scan("<b>x</b>  y", false).excerpt, "<b>x</b>  y");
}

// The same rules written down literally, step by step and in quadratic time, over whole characters.
namespace literal {

using Characters = std::vector<std::string_view>;

bool pairAt(const Characters& text, std::size_t at, std::string_view c) {
    return at + 1 < text.size() && text[at] == c && text[at + 1] == c;
}

std::string joined(const Characters& text, std::size_t from, std::size_t to) {
    std::string result;
    for (; from < to; ++from) result += text[from];
    return result;
}

std::vector<Wikilink> wikilinks(std::string_view line) {
    const auto text = characters(line);
    std::vector<Wikilink> links;
    for (std::size_t i = 0; i + 1 < text.size();) {
        if (!pairAt(text, i, "[")) {
            ++i;
            continue;
        }
        std::size_t at = i + 2, depth = 0;
        bool closed = false;
        while (at < text.size() && !closed) {
            if (pairAt(text, at, "[")) {
                ++depth;
                at += 2;
            } else if (pairAt(text, at, "]")) {
                closed = depth == 0;
                if (!closed) --depth;
                at += 2;
            } else {
                ++at;
            }
        }
        if (!closed || at == i + 4) {
            i += 2;
            continue;
        }
        Wikilink link;
        link.isEmbed = i > 0 && text[i - 1] == "!";
        auto inner = joined(text, i + 2, at - 2);
        const auto cut = [&](std::string_view mark) -> std::optional<std::string> {
            const auto found = inner.find(mark);
            if (found == std::string::npos) return {};
            auto behind = inner.substr(found + mark.size());
            inner.resize(found);
            return behind;
        };
        const auto trimmed = [](const std::string& content) { return std::string(trimHorizontal(content)); };
        if (auto alias = cut("|")) link.alias = trimmed(*alias);
        if (auto block = cut("#^")) {
            link.blockID = *block;
        } else if (auto heading = cut("#")) {
            link.heading = trimmed(*heading);
        }
        link.target = trimmed(inner);
        const std::size_t start = link.isEmbed ? i - 1 : i;
        link.range = {start, at - start};
        if (!link.target.empty() || link.heading || link.blockID) links.push_back(link);
        i = at;
    }
    return links;
}

Texts markdownLinks(std::string_view line) {
    const auto text = characters(line);
    Texts links;
    for (std::size_t i = 0; i < text.size();) {
        if (text[i] != "[") {
            ++i;
            continue;
        }
        if (pairAt(text, i, "[")) {
            i += 2;
            continue;
        }
        std::size_t bracket = i + 1;
        while (bracket < text.size() && text[bracket] != "]") ++bracket;
        if (bracket + 1 >= text.size() || text[bracket + 1] != "(") {
            ++i;
            continue;
        }
        std::size_t end = bracket + 2, depth = 1;
        for (; end < text.size(); ++end) {
            if (text[end] == "(") ++depth;
            if (text[end] == ")" && --depth == 0) break;
        }
        if (end == text.size()) {
            ++i;
            continue;
        }
        auto url = joined(text, bracket + 2, end);
        if (const auto caption = url.find(" \""); caption != std::string::npos) url.resize(caption);
        const bool image = i > 0 && text[i - 1] == "!";
        if (!url.empty())
            links.push_back(shown(NoteScan::MarkdownLink{joined(text, i + 1, bracket), url, image}));
        i = end + 1;
    }
    return links;
}

std::string withoutEmbeds(const std::string& input) {
    constexpr auto none = std::string::npos;
    if (input.find("](") == none && input.find("![[") == none) return input;
    std::string text = input;
    for (auto open = text.find("![["); open != none; open = text.find("![[")) {
        const auto close = text.find("]]", open + 3);
        if (close == none) break;
        text.erase(open, close + 2 - open);
    }
    std::string out;
    for (std::size_t at = 0; at < text.size();) {
        const bool image = text.compare(at, 2, "![") == 0;
        const std::size_t open = at + (image ? 1 : 0);
        if (text[open] == '[' && text.compare(open + 1, 1, "[") != 0) {
            const auto bracket = text.find(']', open + 1);
            const bool called = bracket != none && text.compare(bracket + 1, 1, "(") == 0;
            const auto end = called ? text.find(')', bracket + 2) : none;
            if (end != none) {
                if (!image) out += text.substr(open + 1, bracket - open - 1);
                at = end + 1;
                continue;
            }
        }
        out += text[at++];
    }
    if (out == input) return input;
    while (out.find("  ") != none) out.erase(out.find("  "), 1);
    return std::string(trimHorizontal(out));
}

}  // namespace literal

TEST(MarkdownScanner, AgreesWithTheLiteralRulesOnRandomLines) {
    const auto seed = std::random_device{}();
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const Texts narrow{"[", "[[", "]", "]]", "(", ")", "!", "|", "#", " ", "a", "\\", "`", "](", "![["};
    Texts wide = narrow;
    wide.insert(wide.end(), {"\u0301", "é", "😀", "\u0600", "^", "\"", "[]", "\t"});
    for (int round = 0; round < 30000; ++round) {
        const auto& alphabet = round % 2 == 0 ? narrow : wide;
        std::string line;
        for (auto count = random() % 24; count > 0; --count) line += alphabet[random() % alphabet.size()];
        NoteScan scan;
        MarkdownScanner::extractWikilinks(line, 0, scan);
        ASSERT_EQ(shown(scan.wikilinks), shown(literal::wikilinks(line))) << line;
        ASSERT_EQ(markdownLinks(line), literal::markdownLinks(line)) << line;
        ASSERT_EQ(MarkdownScanner::withoutEmbeds(line), literal::withoutEmbeds(line)) << line;
    }
}

TEST(MarkdownScanner, IsLinearOnHostileLines) {
    const std::size_t count = 400'000;
    EXPECT_EQ(scanned(repeated("[[", count) + "a]]").wikilinks.size(), 1U);
    EXPECT_EQ(scanned(repeated("[[", count) + "a" + repeated("]]", count)).wikilinks.size(), 1U);
    EXPECT_EQ(scanned(repeated("[[]]", count)).wikilinks.size(), 0U);
    EXPECT_EQ(scanned(repeated("[](", count) + "a)").markdownLinks.size(), 1U);
    EXPECT_EQ(scanned(repeated("![", count) + "](").wordCount, 1);
    EXPECT_EQ(scanned(repeated("é[[", count) + "]]").wikilinks.size(), 0U);
    EXPECT_EQ(scanned(repeated("#a ", count)).tags, Texts{"a"});
    EXPECT_EQ(scanned(repeated("`<b ", count)).wordCount, static_cast<int>(count / 2));
    EXPECT_EQ(MarkdownScanner::withoutEmbeds(repeated("![[", count)).size(), 3 * count);
    EXPECT_EQ(MarkdownScanner::withoutEmbeds(repeated("![", count) + repeated("[a]]", count)).size(), 0U);
    EXPECT_EQ(MarkdownScanner::withoutEmbeds(repeated("[](", count)), repeated("[](", count));
    EXPECT_EQ(MarkdownScanner::plainPreview(repeated("[[a ", count)).size(), 4 * count - 1);
}

}  // namespace
}  // namespace vesk
