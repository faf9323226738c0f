#include <gtest/gtest.h>

#include "VeskCore/Brain/Filing/JunkDetector.h"
#include "VeskCore/Brain/VaultOrganiser.h"

namespace vesk::test {
namespace {

FilingCandidate note(std::string path, std::string title, std::string_view body, int modified = 0,
                     std::string hash = {}) {
    return {.path = std::move(path),
            .title = std::move(title),
            .excerpt = VaultOrganiser::excerpt(body),
            .contentHash = hash.empty() ? std::string(body) : std::move(hash),
            .modified = timeFromSecondsSince1970(modified)};
}

std::string ruleName(const std::optional<JunkVerdict>& verdict) {
    if (!verdict) return "";
    if (std::holds_alternative<JunkVerdict::Duplicate>(verdict->rule)) return "duplicate";
    switch (std::get<JunkVerdict::Plain>(verdict->rule)) {
        case JunkVerdict::Plain::empty:
            return "empty";
        case JunkVerdict::Plain::hashtagsOnly:
            return "hashtags";
        case JunkVerdict::Plain::bareCode:
            return "code";
        case JunkVerdict::Plain::linkOnly:
            return "link";
    }
    return "?";
}

TEST(JunkDetector, FindsWhatHoldsNothing) {
    const std::string words(2000, 'x'), tags = [] {
        std::string all;
        for (int i = 0; i < 400; ++i) all += "#tag ";
        return all;
    }();
    const struct {
        const char* name;
        std::string title, body, expected;
    } rows[] = {
        {"an address as a file name", "https---example.org-page", "", "link"},
        {"in brackets", "<http://example.org", "\n \n", "link"},
        {"bare links below", "www.example.org",
         "https://a.org, [www.b.org](https://b.org/x).\n<http://c.org>", "link"},
        {"a word of comment", "www.example.org", "https://a.org good", ""},
        {"a link text is a comment", "www.example.org", "[read this](https://a.org)", ""},
        {"a link below a title", "Boats", "https://a.org", ""},
        {"letters and digits", "IMG_0042", "", "code"},
        {"digits alone", "2024-05-01 (2)", "", "code"},
        {"too few digits", "abcdef1", "", "empty"},
        {"two in five", "abc12", "", "code"},
        {"30 digits", "123456789012345678901234567890", "", "empty"},
        {"24 digits", "123456789012345678901234", "", "code"},
        {"other signs", "12+13", "", "empty"},
        {"two words", "Second draft", "", "empty"},
        {"three words", "Call the plumber", "", ""},
        {"three words in quotes", "“Call” (the) plumber!", "", ""},
        {"two words and a number", "Call plumber 2", "", "empty"},
        {"the title as a heading", "Second draft", "\n\n## second DRAFT\n\n", "empty"},
        {"seven signs are no heading", "Second draft", "####### Second draft", "empty"},
        {"the title and more", "Second draft", "# Second draft\nOf what?", ""},
        {"two tags", "Boats", "#sea #harbour;", "hashtags"},
        {"a linked tag", "Boats", "[#sea](x://y) #harbour,", "hashtags"},
        {"a tag with a space is a link", "Boats", "[#sea side](x://y)", ""},
        {"a word between", "Boats", "#sea and #harbour", ""},
        {"a heading is no tag", "Boats", "## sea", ""},
        {"a lone sign", "Boats", "#", ""},
        {"tags to where it was cut", "Boats", tags, "hashtags"},
        {"an ellipsis of one's own", "Boats", "#sea …", ""},
        {"much text", "Boats", words, ""},
        {"not UTF-8 at the end", "Boats \xff", "\xfe", ""},
    };
    for (const auto& row : rows)
        EXPECT_EQ(ruleName(JunkDetector::verdict(note("n.md", row.title, row.body))), row.expected)
            << row.name;
    EXPECT_EQ(JunkDetector::verdict(note("n.md", "www.a.org", ""))->reason, "A link, and nothing about it");
    EXPECT_EQ(JunkDetector::verdict(note("n.md", "42", ""))->reason,
              "A bare number or code, and nothing about it");
    EXPECT_EQ(JunkDetector::verdict(note("n.md", "Hm", ""))->reason, "Nothing in it but the title");
    EXPECT_EQ(JunkDetector::verdict(note("n.md", "Hm", "#a"))->reason, "Only hashtags");
}

TEST(JunkDetector, KeepsTheOldestOfEqualTexts) {
    const std::vector<FilingCandidate> candidates{note("c.md", "C", "same", 3), note("b.md", "B", "same", 1),
                                                  note("a.md", "A", "same", 1), note("d.md", "D", "other", 9),
                                                  note("e.md", "E", "", 1),     note("f.md", "F", "", 2)};
    auto found = JunkDetector::classify(candidates, {});
    EXPECT_EQ(found.size(), 4U);
    EXPECT_FALSE(found.contains("a.md")) << "the oldest, and of two the first by path";
    EXPECT_EQ(found.at("b.md").reason, "The same text as a.md");
    EXPECT_EQ(found.at("c.md").rule,
              (std::variant<JunkVerdict::Duplicate, JunkVerdict::Plain>(JunkVerdict::Duplicate{"a.md"})));
    EXPECT_EQ(ruleName(found.at("f.md")), "empty") << "rather than a duplicate";

    found = JunkDetector::classify(candidates, {{"same", {"Work/Z.md", "Home/Y.md"}}});
    for (const char* path : {"a.md", "b.md", "c.md"})
        EXPECT_EQ(found.at(path).reason, "The same text as Home/Y.md") << path;
}

TEST(JunkDetector, ReadsHostileTextOnce) {
    // Any of them takes minutes where each sign is compared with all that follow.
    for (const std::string_view piece : {"[", "](", "[#a", "[a](", "]("}) {
        std::string text;
        while (text.size() < 2'000'000) text += piece;
        FilingCandidate candidate = note("n.md", "www.a.org", "");
        candidate.excerpt = text;
        EXPECT_FALSE(JunkDetector::verdict(candidate)) << piece;
    }
}

}  // namespace
}  // namespace vesk::test
