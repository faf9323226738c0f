#include <gtest/gtest.h>

#include "VeskCore/Brain/FocusLines.h"

namespace vesk::test {
namespace {

using Strings = std::vector<std::string>;

RetrievedChunk chunk(std::string path, std::string title, std::string text) {
    return {
        .notePath = std::move(path), .noteTitle = std::move(title), .ordinal = 0, .text = std::move(text)};
}

TEST(FocusLineWords, TellQuestionsApart) {
    struct Row {
        std::string_view question;
        Strings keywords;
        bool isLookup;
    };
    const Row rows[] = {
        {"What is my ABN?", {"abn"}, true},
        {"what’s Anna's phone number", {"anna", "phone"}, true},
        {"Wi-Fi password, WI-FI!", {"wi", "fi", "password"}, true},
        {"x y z", {}, false},
        {"the of and", {}, false},
        {"ma\u0308rz 東京", {"ma\u0308rz", "東京"}, true},
        {"red green blue black white", {"red", "green", "blue", "black", "white"}, false},
        {"Summarise garden", {"summarise", "garden"}, false},
        {"Why did roses die", {"roses", "die"}, false},
        {"list roses", {"list", "roses"}, false},
        {"listing roses", {"listing", "roses"}, true},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(FocusLines::keywords(row.question), row.keywords) << row.question;
        EXPECT_EQ(FocusLines::isLookup(row.question), row.isLookup) << row.question;
    }
}

Strings shown(const std::vector<FocusLines::Line>& lines) {
    Strings all;
    for (const auto& line : lines) all.push_back(line.title + ": " + line.text);
    return all;
}

TEST(FocusLine, ComesFromTheRarestWordAndFromTitles) {
    const std::vector<RetrievedChunk> chunks{
        chunk("a.md", "Passport", "# Passport\n\n![p](p.png)\nNumber 123\npassport again\nelse"),
        chunk("a.md", "Passport", "Renewal in May"),
        chunk("b.md", "Renewal list", "Renewal list > attachments\nfirst line\nrenewal of the car"),
        chunk("c.md", "Cars", "| renewal | x |\n| --- | --- |\nunrenewal\nRENEWAL of the car\nrenewal!"),
    };
    // "renewal" is in three passages, "passport" in two.
    EXPECT_EQ(shown(FocusLines::extract("passport renewal", chunks, 10, 200)),
              (Strings{"Passport: # Passport", "Passport: passport again"}));
    EXPECT_EQ(shown(FocusLines::extract("renewal", chunks, 10, 200)),
              (Strings{"Passport: Renewal in May", "Renewal list: Renewal list > attachments",
                       "Renewal list: first line", "Renewal list: renewal of the car",
                       "Cars: | renewal | x |", "Cars: renewal!"}));
    EXPECT_EQ(shown(FocusLines::extract("renewal", chunks, 2, 7)),
              (Strings{"Passport: Renewal…", "Renewal list: first l…"}));
    EXPECT_TRUE(FocusLines::extract("the", chunks, 10, 200).empty());
    EXPECT_TRUE(FocusLines::extract("renewal", {}, 10, 200).empty());
}

TEST(FocusLine, MakesABlockOfAFewLines) {
    const auto lines = [](int count) {
        std::string text;
        for (int i = 0; i < count; ++i) text += "abn " + std::to_string(i) + "\n";
        return std::vector{chunk("a.md", "T", text)};
    };
    EXPECT_EQ(
        FocusLines::block("What is my ABN?", lines(1)),
        "Lines in the excerpts above that mention the question's key words (abn):\n- T: abn 0\nIf the "
        "answer is in these lines, read it out from them, with the note's title. When the question asks "
        "for the user's own (\"my\"), a line labelled with a company, fund or other organisation's name "
        "is that organisation's value, not the user's — prefer the line without such a label.");
    EXPECT_TRUE(FocusLines::block("What is my ABN?", lines(8)));
    EXPECT_FALSE(FocusLines::block("What is my ABN?", lines(9)));
    EXPECT_FALSE(FocusLines::block("What is my ABN?", lines(0)));
    EXPECT_FALSE(FocusLines::block("Explain my ABN", lines(1)));
}

}  // namespace
}  // namespace vesk::test
