#include <gtest/gtest.h>

#include <random>

#include "VeskCore/Editor/MarkdownSpans.h"
#include "VeskCore/Support/Match.h"
#include "VeskCore/Support/Unicode.h"

namespace vesk {
namespace {

using MarkdownSpans::Span;
using MarkdownSpans::Style;
using Spans = std::vector<Span>;

std::string shown(const Style& style) {
    constexpr std::string_view names[] = {"bold",  "italic", "strike", "highlight",  "code",
                                          "fence", "block",  "link",   "tag",        "quote",
                                          "list",  "rule",   "front",  "htmlMarkup", "htmlInert"};
    constexpr std::string_view rows[] = {"header", "delimiter", "body"};
    return match(
        style, [](const Style::Heading& s) { return "h" + std::to_string(s.level); },
        [](const Style::Callout& s) { return "callout-" + s.type; },
        [](const Style::Task& s) { return std::string(s.done ? "done" : "open"); },
        [](const Style::HtmlStyled&) { return std::string("html"); },
        [&](const Style::Table& s) { return std::string(rows[static_cast<std::size_t>(s.kind)]); },
        [&](const Style::Plain& s) { return std::string(names[static_cast<std::size_t>(s)]); });
}

std::string shown(TextRange range) {
    return std::to_string(range.location) + "+" + std::to_string(range.length);
}

/// "style location+length [marker marker]", separated by "; ".
std::string shown(const Spans& spans) {
    std::string text;
    for (const Span& span : spans) {
        text += (text.empty() ? "" : "; ") + shown(span.style) + " " + shown(span.range);
        for (std::size_t i = 0; i < span.markers.size(); ++i)
            text += (i ? " " : " [") + shown(span.markers[i]);
        if (!span.markers.empty()) text += "]";
    }
    return text;
}

Spans styled(std::u16string_view text) {
    return MarkdownSpans::spans(text, {}, false, MarkdownSpans::frontmatterRange(text));
}

TEST(MarkdownSpans, StylesLines) {
    struct Row {
        std::u16string_view text;
        std::string expected;
    };
    const Row rows[] = {
        {u" ## ab\n", "h2 0+7 [0+4]"},
        {u"> q", "quote 0+3 [0+2]"},
        {u">q", "quote 0+2 [0+1]"},
        {u"> [!TIP] t", "callout-TIP 0+10 [0+8]"},
        {u"---x\n***\n", "rule 5+4"},
        {u"\t- b\r\n", "list 0+3 [0+3]"},
        {u"-\r\n", "list 0+1 [0+1]"},
        {u"007. b", "list 0+5 [0+5]"},
        {u" - [x] #t", "done 0+7; tag 7+2"},
        {u"- [ ]", "open 0+5"},
        {u"**bold `code` more**", "code 7+6 [7+1 12+1]"},
        {u"`a``b` ``", "code 0+3 [0+1 2+1]; code 3+3 [3+1 5+1]"},
        {u"***x***", "bold 3+1 [1+2 4+2]"},
        {u"*a* b *c**", "italic 1+1 [0+1 2+1]"},
        {u"**b** ~~s~~ ==h==", "bold 2+1 [0+2 3+2]; strike 8+1 [6+2 9+2]; highlight 14+1 [12+2 15+2]"},
        {u"**a*b**", ""},
        {u"![[n|x]] [[a]", "link 3+3 [0+3 6+2]"},
        {u"[[[x]]]", "link 2+2 [0+2 4+2]"},
        {u"[a](b) [](c) [d]()", "link 1+1 [0+1 2+4]; link 8+0 [7+1 8+4]"},
        {u"<b>x</b>", "htmlMarkup 0+3 [0+3]; html 3+1; htmlMarkup 4+4 [4+4]"},
        {u"<!-- *a* -->\n", "htmlMarkup 0+12 [0+12]; htmlMarkup 0+13"},
        {u"<a href=\"#x\">y</a>", "htmlMarkup 0+13 [0+13]; link 13+1; htmlMarkup 14+4 [14+4]"},
        {u"---\nk: *v*\n...\n*a*",
         "front 0+4 [0+4]; front 4+7 [4+7]; front 11+4 [11+4]; italic 16+1 [15+1 17+1]"},
        {u"---\n*a*", "rule 0+4; italic 5+1 [4+1 6+1]"},
        {u"~~~\n*a*\n```\n*b*", "fence 0+4 [0+4]; block 4+4; fence 8+4 [8+4]; italic 13+1 [12+1 14+1]"},
        {u"a\u2028# b\u0085*c*\rd", "h1 2+4 [2+2]; italic 7+1 [6+1 8+1]"},
        {u"|*a*|\n|-|\n|`\\|`|\nx",
         "header 0+5 [0+1 4+1]; italic 2+1 [1+1 3+1]; delimiter 6+3 [6+3]; body 10+6 [10+1 15+1 12+1]; "
         "code 11+4 [11+1 14+1]"},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(shown(styled(row.text)), row.expected) << utf8(row.text);
    }
}

TEST(MarkdownSpans, FindsTagsBetweenWords) {
    struct Row {
        std::u16string_view text;
        std::string expected;
    };
    const Row rows[] = {
        {u"a#tag /#tag #1a", ""},
        {u"#a-b/\u00E9_1.", "tag 0+8"},
        {u"\u00E9#x \u0661#x \u203F#x \u0301#x \U00010400#x", ""},
        {u"\u00BD#x \U0001F600#y", "tag 1+2; tag 6+2"},
    };
    for (const Row& row : rows) EXPECT_EQ(shown(styled(row.text)), row.expected) << utf8(row.text);
}

TEST(MarkdownSpans, LeavesLongLinesPlainAndKeepsTheFenceOverThem) {
    const std::u16string fence = u"```" + std::u16string(4996, u'x') + u"\n";
    EXPECT_EQ(shown(styled(fence)), "fence 0+5000 [0+5000]");
    const std::u16string longer = u"```" + std::u16string(4997, u'x') + u"\n";
    EXPECT_EQ(shown(styled(longer + u"*a*")), "italic 5002+1 [5001+1 5003+1]");
    EXPECT_EQ(shown(styled(u"```\n" + longer + u"a")), "fence 0+4 [0+4]; block 5005+1");
    EXPECT_FALSE(MarkdownSpans::isInsideFence(longer, longer.size()));
    EXPECT_TRUE(MarkdownSpans::isInsideFence(u"---\n```\n---\n~~~\nx", 16, TextRange{0, 12}));
}

TEST(MarkdownSpans, KeepsAnImageTagOfACellReadable) {
    EXPECT_EQ(shown(MarkdownSpans::inlineSpans(u"<IMG src=a.png>", 10)), "htmlInert 10+15");
}

TEST(MarkdownSpans, StyleARangeAsTheyStyleTheWhole) {
    constexpr std::u16string_view parts[] = {u"```",    u"~~~",   u"|",      u"a|b\n-|-\n", u"\n",    u"\r\n",
                                             u"\r",     u"---\n", u"**",     u"*",          u"`",     u"# ",
                                             u"- [ ] ", u"> ",    u"\u2028", u"[[x]]",      u"#t ",   u"<br>",
                                             u"\\",     u"    ",  u"x",      u"\u0085",     u"[a](b)"};
    constexpr unsigned seed = 4711;
    std::mt19937 random(seed);
    for (int round = 0; round < 1500; ++round) {
        std::u16string text;
        for (std::size_t i = 0, count = random() % 24; i < count; ++i)
            text += parts[random() % std::size(parts)];
        const auto frontmatter = MarkdownSpans::frontmatterRange(text);
        const Spans whole = styled(text);
        const std::size_t start = random() % (text.size() + 1);
        const TextRange range{start, random() % (text.size() - start + 1)};
        // The lines of the range, told by another way than the reader's own.
        const auto startsLine = [&](std::size_t at) {
            if (at == 0 || at >= text.size()) return true;
            if (text[at - 1] == u'\r' && text[at] == u'\n') return false;
            return std::u16string_view(u"\n\r\u0085\u2028\u2029").find(text[at - 1]) !=
                   std::u16string_view::npos;
        };
        std::size_t first = start, last = range.empty() ? start + 1 : range.end();
        if (range.empty() && start == text.size() && !text.empty() &&
            std::u16string_view(u"\n\r\u0085\u2028\u2029").find(text.back()) == std::u16string_view::npos) {
            --first;
        }
        if (first < text.size()) {
            while (!startsLine(first)) --first;
        }
        while (!startsLine(last)) ++last;
        Spans expected;
        for (const Span& span : whole) {
            // An empty link's text has no unit, but its line has.
            const std::size_t at = span.markers.empty()
                                       ? span.range.location
                                       : std::min(span.range.location, span.markers[0].location);
            if (at >= first && at < last) expected.push_back(span);
        }
        const bool inFence = MarkdownSpans::isInsideFence(text, start, frontmatter);
        ASSERT_EQ(shown(MarkdownSpans::spans(text, range, inFence, frontmatter)), shown(expected))
            << "seed " << seed << " range " << shown(range) << "\n"
            << utf8(text);
    }
}

}  // namespace
}  // namespace vesk
