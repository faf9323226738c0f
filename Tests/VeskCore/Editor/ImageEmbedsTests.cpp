#include <gtest/gtest.h>

#include "VeskCore/Editor/ImageEmbeds.h"
#include "VeskCore/Support/Unicode.h"
#include "VeskCore/Vault/Vault.h"

namespace vesk {
namespace {

/// "target location+length wWIDTH hHEIGHT 'alt'", separated by "; ".
std::string found(std::u16string_view text) {
    std::string result;
    for (const ImageEmbed& embed : MarkdownSpans::imageEmbeds(text)) {
        result += (result.empty() ? "" : "; ") + embed.target + " " + std::to_string(embed.range.location) +
                  "+" + std::to_string(embed.range.length);
        if (embed.maxWidth) result += " w" + std::to_string(*embed.maxWidth);
        if (embed.maxHeight) result += " h" + std::to_string(*embed.maxHeight);
        if (embed.alt) result += " '" + *embed.alt + "'";
    }
    return result;
}

TEST(ImageEmbeds, AreFound) {
    struct Row {
        std::u16string_view text;
        std::string expected;
    };
    const Row rows[] = {
        {u"a ![x](b.PNG) ![](c.jpg)", "b.PNG 2+11 'x'; c.jpg 14+10 ''"},
        {u"![x](<a b.png>)", "a b.png 0+15 'x'"},
        {u"![x](https://a/b.png) ![x](/etc/a.png) ![x](../a.png) ![x](a/../../b.png)", ""},
        {u"![x](%2e%2e/a.png) ![x](data:a.png) ![x](a.txt) ![x](c:a.png) ![x](a\u0007.png)", ""},
        {u"```\n![x](a.png)\n~~~\n![x](b.png)", "b.png 20+11 'x'"},
        {u"`![x](a.png)` <!-- ![x](b.png) <img src=c.png> -->", ""},
        {u"---\ni: ![x](a.png)\n---\n![x](b.png)", "b.png 23+11 'x'"},
        {u"<IMG SRC=\"a.png\" width=\"300px\" height=' 20 '>", "a.png 0+45 w300 h20"},
        {u"<img src=a&amp;b.png width=\"50%\" height=1234567 alt='x&lt;'>", "a&b.png 0+60 'x<'"},
        {u"<img alt=x> ![x](a.png \"title\")", ""},
        {u"<img src=a.png> ![](b.png) <img src=c.png>", "a.png 0+15; b.png 16+10 ''; c.png 27+15"},
    };
    for (const Row& row : rows) EXPECT_EQ(found(row.text), row.expected) << utf8(row.text);
}

TEST(ImageEmbeds, TakeEveryAttachmentOfAVault) {
    for (const auto& extension : Vault::attachmentExtensions()) {
        EXPECT_TRUE(MarkdownSpans::isEmbeddable("a." + std::string(extension))) << extension;
    }
}

TEST(ImageEmbeds, TellWhereTheTargetIsSpelled) {
    struct Row {
        std::u16string_view text;
        std::string_view target, newTarget;
        std::optional<TextRange> expected;
    };
    const Row rows[] = {
        {u"\n![a.png]( a.png )", "a.png", "b c.png", TextRange{11, 5}},
        {u"![x](<a b.png>)", "a b.png", "c.png", TextRange{6, 7}},
        {u"![x](<a b.png>)", "a b.png", "c>.png", std::nullopt},
        {u"![x](a.png)", "a.png", "a(1).png", std::nullopt},
        {u"![x](a.png)", "b.png", "c.png", std::nullopt},
        {u"<img data-src='z.png' SRC = \"a.png\">", "a.png", "b c.png", TextRange{29, 5}},
        {u"<img src=a.png>", "a.png", "b c.png", std::nullopt},
        {u"`![](a.png)` ![](a.png)", "a.png", "b.png", TextRange{17, 5}},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(MarkdownSpans::spelledTarget(row.target, row.newTarget, row.text), row.expected)
            << utf8(row.text);
    }
}

}  // namespace
}  // namespace vesk
