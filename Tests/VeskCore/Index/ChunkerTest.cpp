#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "VeskCore/Index/Chunker.h"

namespace vesk::test {

namespace {

using Strings = std::vector<std::string>;

TEST(ChunkerTest, CutsABodyAtItsHeadings) {
    struct {
        const char* name;
        std::string body;
        Strings expected;
    } cases[] = {
        {"empty", "", {}},
        {"headings only", "# A\n## B\n\n   \n### C", {}},
        {"no heading", "one\n\ntwo  \n", {"one\n\ntwo"}},
        {"trail",
         "before\n# Top\nx\n## A\ny\n# Next ##\nz",
         {"before", "Top\n\nx", "Top > A\n\ny", "Next\n\nz"}},
        {"a level left out", "# Top\n### B\nx\n## C\ny", {"Top > B\n\nx", "Top > C\n\ny"}},
        {"a heading without text", "# Top\n##\nx", {"Top\n\nx"}},
        {"an indented heading", "  ## A\t\nx", {"A\n\nx"}},
        {"a heading in a fence", "```\n# no\n```\n# yes\nx", {"```\n# no\n```", "yes\n\nx"}},
        {"either marker closes a fence", "```\n~~~\n# yes\nx", {"```\n~~~", "yes\n\nx"}},
        {"no heading: a tag, a tab, seven", "#tag\n#\tx\n####### y", {"#tag\n#\tx\n####### y"}},
    };
    for (const auto& c : cases) EXPECT_EQ(Chunker::chunks(c.body), c.expected) << c.name;
}

TEST(ChunkerTest, CountsCharactersAndNeverSplitsALine) {
    EXPECT_EQ(Chunker::chunks("aaa\nbbb\nccc", 7, 500), (Strings{"aaa\nbbb", "ccc"}));
    EXPECT_EQ(Chunker::chunks("aaa\nbbbb\nc", 7, 500), (Strings{"aaa", "bbbb\nc"}));
    EXPECT_EQ(Chunker::chunks("👨‍👩‍👧👨‍👩‍👧👨‍👩‍👧\ne\u0301e\u0301e\u0301",
                              7, 500)
                  .size(),
              1U);
    EXPECT_EQ(Chunker::chunks("# H\n" + std::string(5000, 'x') + "\ny"),
              (Strings{"H\n\n" + std::string(5000, 'x'), "H\n\ny"}));
}

TEST(ChunkerTest, StopsAtTheLargestNumberOfPassages) {
    std::string body;
    for (int i = 0; i < 700; ++i) body += "# " + std::to_string(i) + "\ntext\n";
    auto chunks = Chunker::chunks(body);
    ASSERT_EQ(chunks.size(), 500U);
    EXPECT_EQ(chunks.back(), "499\n\ntext");
    EXPECT_EQ(Chunker::chunks(body, 1200, 0), Strings{});
}

TEST(VectorBlobTest, WritesLittleEndianFloatsAndIgnoresARemainder) {
    EXPECT_EQ(VectorBlob::encode(std::vector<float>{1.0F, -2.5F}),
              std::string("\x00\x00\x80\x3F\x00\x00\x20\xC0", 8));
    EXPECT_EQ(VectorBlob::decode(std::string_view("\x00\x00\x80\x3F\x00\x00\x20", 7)),
              std::vector<float>{1.0F});
    EXPECT_EQ(VectorBlob::decode("abc"), std::vector<float>{});
    EXPECT_EQ(VectorBlob::encode({}), "");
}

}  // namespace

}  // namespace vesk::test
