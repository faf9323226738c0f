#include <gtest/gtest.h>

#include "Program.h"
#include "VeskCore/Support/Json.h"

namespace vesk::test {
namespace {

TEST(EditorInspectTest, AnswersWithWhatTheEditorsReadersSee) {
    const struct {
        std::string name, text, expected;
    } rows[] = {
        {"blocks", "- [x] a\n```c\nx\n```\n", R"([
            {"kind": {"task": {"done": true}}, "lineRange": {"location": 0, "length": 1}, "indent": 0, "content": "a"},
            {"kind": {"code": {"language": "c"}}, "lineRange": {"location": 1, "length": 3}, "indent": 0,
             "content": "x"},
            {"kind": {"blank": {}}, "lineRange": {"location": 4, "length": 1}, "indent": 0, "content": ""}])"},
        {"spans", "\xF0\x9F\x98\x80 **b**\r\n## c", R"([
            {"range": {"location": 5, "length": 1}, "style": {"bold": {}},
             "markers": [{"location": 3, "length": 2}, {"location": 6, "length": 2}]},
            {"range": {"location": 10, "length": 4}, "style": {"heading": {"level": 2}},
             "markers": [{"location": 10, "length": 3}]}])"},
        {"tables", "a\n:-|", "[]"},
        {"tables", "|a\\||\n|:-:|", R"([{"range": {"location": 0, "length": 11}, "alignments": ["center"],
            "isColumnPadded": true, "rows": [
            {"kind": "header", "line": {"location": 0, "length": 5}, "fullLine": {"location": 0, "length": 6},
             "cells": [{"column": 0, "slot": {"location": 1, "length": 3}, "content": {"location": 1, "length": 3},
                        "escapes": [{"location": 2, "length": 1}]}],
             "pipes": [{"location": 0, "length": 1}, {"location": 4, "length": 1}]},
            {"kind": "delimiter", "line": {"location": 6, "length": 5}, "fullLine": {"location": 6, "length": 5},
             "cells": [{"column": 0, "slot": {"location": 7, "length": 3}, "content": {"location": 7, "length": 3},
                        "escapes": []}],
             "pipes": [{"location": 6, "length": 1}, {"location": 10, "length": 1}]}]}])"},
        {"embeds", "x <img src=a.png width=30>\n", R"([{"range": {"location": 2, "length": 24},
            "lineRange": {"location": 0, "length": 27}, "target": "a.png", "maxWidth": 30, "maxHeight": null,
            "alt": null}])"},
        {"outline", "---\n# n\n---\n# A\n",
         R"([{"level": 1, "text": "A", "range": {"location": 12, "length": 3},
            "line": 3}])"},
        {"highlight", "> a", R"([
            {"range": {"location": 0, "length": 2},
             "font": {"family": "body", "size": 0.001, "weight": "regular", "italic": false}, "color": "clear",
             "background": null, "strikethrough": false, "underline": false, "baselineOffset": 0, "indent": 16,
             "hidden": true},
            {"range": {"location": 2, "length": 1},
             "font": {"family": "body", "size": 14, "weight": "regular", "italic": false}, "color": "faint",
             "background": null, "strikethrough": false, "underline": false, "baselineOffset": 0, "indent": 16,
             "hidden": false}])"},
        {"highlight", "", "[]"},
    };
    const Program program;
    for (const auto& row : rows) {
        const Ran ran = program.runPlain({"inspect", row.name, "-"}, row.text);
        ASSERT_EQ(ran.status, 0) << row.name << ": " << ran.err;
        EXPECT_EQ(Json::parse(ran.out), Json::parse(row.expected)) << row.name << ": " << ran.out;
    }
}

TEST(EditorInspectTest, HighlightsAroundACaretAndUnderATitle) {
    const Program program;
    const auto hidden = [&](std::vector<std::string> options) {
        options.insert(options.begin(), {"inspect", "highlight", "-"});
        const Ran ran = program.runPlain(options, "# A\n*b*\n");
        EXPECT_EQ(ran.status, 0) << ran.err;
        std::string places;
        const Json runs = Json::parse(ran.out);
        for (const Json& run : *runs.asArray()) {
            if (!*run.boolean("hidden")) continue;
            const Json& range = *run.find("range");
            places += std::to_string(*range.integer("location")) + "+" +
                      std::to_string(*range.integer("length")) + " ";
        }
        return places;
    };
    EXPECT_EQ(hidden({}), "0+2 4+1 6+1 ");
    EXPECT_EQ(hidden({"--caret", "4"}), "0+2 ");
    EXPECT_EQ(hidden({"--caret", "8"}), "0+2 4+1 6+1 ");
    EXPECT_EQ(hidden({"--title", "a"}), "0+5 6+1 ");
    EXPECT_EQ(hidden({"--title", "a", "--caret", "0"}), "4+1 6+1 ");

    const Ran behind = program.runPlain({"inspect", "highlight", "-", "--caret", "9"}, "# A\n*b*\n");
    EXPECT_EQ(behind.status, 1);
    EXPECT_EQ(behind.err, "vesk: The caret can't stand behind the text's end, which is at 8.\n");
    EXPECT_EQ(program.runPlain({"inspect", "highlight", "-", "--caret", "-1"}, "x").status, 2);
}

TEST(EditorInspectTest, TellsOnlyWhatStandsAtTheCaret) {
    const Program program;
    const std::string text = "# A\n**b** c\n\n## D\ne ![](f.png)\n\n# G\n|h|\n|-|\n";
    const struct {
        std::string name, caret, field;
        std::vector<std::int64_t> expected;
    } rows[] = {
        {"outline", "22", "line", {0, 3}},
        {"outline", "99999", "line", {}},
        {"spans", "5", "", {6}},
        {"spans", "11", "", {}},
        {"blocks", "3", "lineRange", {0}},
        {"blocks", "4", "lineRange", {1}},
        {"blocks", "41", "lineRange", {7}},
        {"embeds", "20", "", {20}},
        {"embeds", "4", "", {}},
        {"tables", "38", "", {36}},
        {"tables", "20", "", {}},
    };
    for (const auto& row : rows) {
        const Ran ran = program.runPlain({"inspect", row.name, "-", "--caret", row.caret}, text);
        ASSERT_EQ(ran.status, row.caret.size() > 2 ? 1 : 0) << row.name << ": " << ran.err;
        if (ran.status != 0) continue;
        std::vector<std::int64_t> found;
        const Json answer = Json::parse(ran.out);
        for (const Json& item : *answer.asArray())
            found.push_back(row.field == "line"
                                ? *item.integer("line")
                                : *item.find(row.field.empty() ? "range" : row.field)->integer("location"));
        EXPECT_EQ(found, row.expected) << row.name << " at " << row.caret << ": " << ran.out;
    }
}

}  // namespace
}  // namespace vesk::test
