#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "VeskCore/Markdown/FrontmatterDoc.h"
#include "VeskCore/Support/Text.h"

namespace vesk {
namespace {

using Texts = std::vector<std::string>;

YAMLValue text(std::string_view content) {
    return YAMLValue::string(content);
}

YAMLValue texts(const Texts& contents) {
    std::vector<YAMLValue> items;
    for (const auto& content : contents) items.push_back(text(content));
    return YAMLValue::list(std::move(items));
}

/// The slots of a block, each as its lines joined with "/", an entry with its key and kind before them.
Texts slotsOf(std::string_view block) {
    static const char* const kinds[] = {"string", "number", "bool", "date", "list", "raw", "null"};
    Texts shown;
    for (const auto& slot : FrontmatterDoc::parseSlots(split(block, '\n'))) {
        if (const auto* entry = std::get_if<FrontmatterDoc::Entry>(&slot.value)) {
            shown.push_back(entry->key + " " + kinds[entry->value.value.index()] + " <" +
                            join(entry->rawLines, "/") + ">");
        } else {
            shown.push_back("<" + std::get<FrontmatterDoc::Passthrough>(slot.value).line + ">");
        }
    }
    return shown;
}

TEST(FrontmatterDoc, FindsTheBlockBetweenItsFences) {
    struct Row {
        std::string_view name, input, body;
        Texts keys;
        bool hasFrontmatter;
        std::string_view written;
    };
    const Row rows[] = {
        {"no block", "a\n---\nb: 1\n---\n", "a\n---\nb: 1\n---\n", {}, false, "a\n---\nb: 1\n---\n"},
        {"empty", "", "", {}, false, ""},
        {"unclosed", "---\na: 1\n", "---\na: 1\n", {}, false, "---\na: 1\n"},
        {"fence alone", "---", "---", {}, false, "---"},
        {"four dashes", "----\na: 1\n---\n", "----\na: 1\n---\n", {}, false, "----\na: 1\n---\n"},
        {"closed", "---\na: 1\n---\nb\n", "b\n", {"a"}, true, "---\na: 1\n---\nb\n"},
        {"no newline at the end", "---\na: 1\n---\nb", "b", {"a"}, true, "---\na: 1\n---\nb"},
        {"closed at the end", "---\na: 1\n---", "", {"a"}, true, "---\na: 1\n---"},
        {"newline at the end", "---\na: 1\n---\n", "", {"a"}, true, "---\na: 1\n---\n"},
        {"blank lines for a body", "---\na: 1\n---\n\n\n", "\n\n", {"a"}, true, "---\na: 1\n---\n\n\n"},
        {"odd fences", " ---\t\na: 1\n ...\u00A0\nb", "b", {"a"}, true, "---\na: 1\n---\nb"},
        {"no keys", "---\n---\nbody", "body", {}, true, "body"},
        {"only a comment", "---\n# c\n---\nbody", "body", {}, true, "---\n# c\n---\nbody"},
        {"CR LF", "---\r\na: 1\r\n---\r\nb\r\n", "b\r\n", {"a"}, true, "---\r\na: 1\r\n---\r\nb\r\n"},
        {"CR LF without a block", "a\nb\r\n", "a\nb\r\n", {}, false, "a\nb\r\n"},
        {"mixed ends",
         "---\na: 1\n---\nb\r\nc\nd",
         "b\r\nc\r\nd",
         {"a"},
         true,
         "---\r\na: 1\r\n---\r\nb\r\nc\r\nd"},
        {"two CRs",
         "---\r\na: 1\r\r\n---\r\n\r\r\n",
         "\r\r\n",
         {"a"},
         true,
         "---\r\na: 1\r\r\n---\r\n\r\r\n"},
        {"CR alone", "---\ra: 1\r---\r", "---\ra: 1\r---\r", {}, false, "---\ra: 1\r---\r"},
        {"CR at the end", "---\na: 1\n---\r", "---\na: 1\n---\r", {}, false, "---\na: 1\n---\r"},
        {"CR and spaces", "---\r \na: 1\n---\n", "---\r \na: 1\n---\n", {}, false, "---\r \na: 1\n---\n"},
    };
    for (const Row& row : rows) {
        const FrontmatterDoc doc(row.input);
        EXPECT_EQ(doc.body(), row.body) << row.name;
        EXPECT_EQ(doc.keys(), row.keys) << row.name;
        EXPECT_EQ(doc.hasFrontmatter(), row.hasFrontmatter) << row.name;
        EXPECT_EQ(doc.serialized(), row.written) << row.name;
    }
}

TEST(FrontmatterDoc, FindsTheColonBehindAKey) {
    struct Row {
        std::string_view line;
        std::optional<std::size_t> expected;
    };
    const Row rows[] = {
        {"a: b", 1},
        {"a:", 1},
        {"a:\tb", 1},
        {"a:b: c", 3},
        {"scheme://x", {}},
        {"\"a: b\": c", 6},
        {"'a\": b': c: d", 7},
        {"it's: b", {}},
        {": x", 0},
        {"a", {}},
        {"", {}},
    };
    for (const Row& row : rows) EXPECT_EQ(FrontmatterDoc::keyColonIndex(row.line), row.expected) << row.line;
}

TEST(FrontmatterDoc, CutsTheBlockIntoSlots) {
    struct Row {
        std::string_view block;
        Texts expected;
    };
    const Row rows[] = {
        {"# c\n\n  x: 1\nwords\nk: v", {"<# c>", "<>", "<  x: 1>", "<words>", "k string <k: v>"}},
        {"a:\n  b: 1\n\n  c: 2\nd: e", {"a raw <a:/  b: 1/\n  c: 2>", "d string <d: e>"}},
        {"a: ignored\n- x\n-\n -  y\nb: 2", {"a list <a: ignored/- x/-/ -  y>", "b number <b: 2>"}},
        {"a:\n- x\n\n\n  - y\n\nb:", {"a list <a:/- x///  - y>", "<>", "b null <b:>"}},
        {"a:\n- x\n\n-\nb:", {"a list <a:/- x>", "<>", "<->", "b null <b:>"}},
        {"a:\n\n  b: 1\nc: 2", {"a null <a:>", "<>", "<  b: 1>", "c number <c: 2>"}},
        {"a: |\n  one\n  - two\n- three: 3", {"a raw <a: |/  one/  - two>", "- three number <- three: 3>"}},
        {"a:\n- x\n\tmore\n - y\n- z", {"a raw <a:/- x/\tmore/ - y>", "<- z>"}},
        {"a:\n-x\nb: - c", {"a null <a:>", "<-x>", "b string <b: - c>"}},
        {"a: 1\n# c\n  b: 2\na: 2", {"a number <a: 1>", "<# c>", "<  b: 2>", "a number <a: 2>"}},
        {"\u00A0a\u00A0: b\n- x", {"a list <\u00A0a\u00A0: b/- x>"}},
    };
    for (const Row& row : rows) {
        Texts expected = row.expected;
        for (auto& slot : expected) slot = replaceAll(slot, "1/\n", "1//");
        EXPECT_EQ(slotsOf(row.block), expected) << row.block;
    }
    const auto doc = FrontmatterDoc("---\na:\n  b: 1\n\n  - c\nl:\n- \"x: y\"\n-\n- [1, 2]\n---\n");
    EXPECT_EQ(doc["a"], YAMLValue::raw("  b: 1\n\n  - c"));
    EXPECT_EQ(doc["l"], YAMLValue::list({text("x: y"), {}, YAMLScalar::parse("[1, 2]")}));
}

TEST(FrontmatterDoc, SetsAKeyAndLeavesTheOthersAlone) {
    struct Row {
        std::string_view name, block;
        std::optional<YAMLValue> value;
        std::string_view expected;  // with the key "k" set
    };
    const Row rows[] = {
        {"replaces in place", "a: 1\nk: 2\nb: 3\n", text("v"), "a: 1\nk: v\nb: 3\n"},
        {"one of three stays", "k: 1\na: 1\nk: 2\n# c\nk: 3\n", text("v"), "k: v\na: 1\n# c\n"},
        {"goes below stray items", "d:\n  z: 1\n- x\n# c\n", text("v"), "d:\n  z: 1\n- x\nk: v\n# c\n"},
        {"a list goes below stray lines", "d: 1\n\n  x\n\n", texts({"v"}), "d: 1\n\n  x\nk:\n  - v\n\n"},
        {"text stays above stray lines", "d: 1\n\n  x\n", text("v"), "d: 1\nk: v\n\n  x\n"},
        {"removes all", "k: 1\n# c\n\nk:\n  - 2\na: 1\n", {}, "# c\n\na: 1\n"},
        {"goes above a comment", "a: 1\n\n# end\n", text("v"), "a: 1\nk: v\n\n# end\n"},
        {"goes below comments alone", "# c\n", text("v"), "# c\nk: v\n"},
        {"quotes", "a: 1\n", text("yes"), "a: 1\nk: \"yes\"\n"},
        {"null", "k: 1\n", YAMLValue(), "k:\n"},
        {"a new list is a block", "a: 1\n", texts({"x", "a: b"}), "a: 1\nk:\n  - x\n  - \"a: b\"\n"},
        {"a new empty list", "a: 1\n", texts({}), "a: 1\nk: []\n"},
        {"a block stays a block", "k:\n- x\na: 1\n", texts({"y"}), "k:\n  - y\na: 1\n"},
        {"an emptied block", "k:\n- x\n", texts({}), "k: []\n"},
        {"an inline list stays inline", "k: [x]\n", texts({"y, z", "[a"}), "k: [\"y, z\", \"[a\"]\n"},
        {"a list that one line would not give back", "k: [x]\n", texts({"a\",\n", "b"}),
         "k:\n  - \"a\\\",\\n\"\n  - b\n"},
        {"a list for a mapping", "k:\n  a: 1\n", texts({"y"}), "k: [y]\n"},
        {"text for a block", "k:\n- x\n", text("v"), "k: v\n"},
        {"raw on one line", "a: 1\n", YAMLValue::raw("{b: 1}"), "a: 1\nk: {b: 1}\n"},
        {"raw of lines", "a: 1\n", YAMLValue::raw("  b: 1\n  c: 2"), "a: 1\nk:\n  b: 1\n  c: 2\n"},
        {"raw of one indented line", "a: 1\n", YAMLValue::raw("  b: 1"), "a: 1\nk:\n  b: 1\n"},
    };
    for (const Row& row : rows) {
        for (const std::string_view end : {"\n", "\r\n"}) {
            const auto whole = [&](std::string_view block) {
                return replaceAll("---\n" + std::string(block) + "---\nbody\n", "\n", end);
            };
            FrontmatterDoc doc(whole(row.block));
            doc.set("k", row.value);
            EXPECT_EQ(doc.serialized(), whole(row.expected)) << row.name;
            EXPECT_EQ(doc["k"], row.value) << row.name;
            EXPECT_EQ(FrontmatterDoc(doc.serialized()).slots(), doc.slots()) << row.name;
        }
    }
}

TEST(FrontmatterDoc, MakesAndDropsABlock) {
    FrontmatterDoc doc("body\n");
    doc.set("k", text("v"));
    EXPECT_TRUE(doc.hasFrontmatter());
    EXPECT_EQ(doc.serialized(), "---\nk: v\n---\nbody\n");
    doc.remove("k");
    EXPECT_TRUE(doc.hasFrontmatter());
    EXPECT_EQ(doc.serialized(), "body\n");

    FrontmatterDoc empty("");
    empty.set("k", text("v"));
    EXPECT_EQ(empty.serialized(), "---\nk: v\n---");
    FrontmatterDoc windows("a\r\n");
    windows.set("k", texts({"v"}));
    EXPECT_EQ(windows.serialized(), "---\r\nk:\r\n  - v\r\n---\r\na\r\n");
}

TEST(FrontmatterDoc, TakesTheFirstOfDuplicateKeys) {
    const FrontmatterDoc doc("---\nk: 1\na: x\nk: 2\n---\n");
    EXPECT_EQ(doc.keys(), (Texts{"k", "a", "k"}));
    EXPECT_EQ(doc["k"], YAMLValue::number(1));
    EXPECT_EQ(doc["b"], std::nullopt);
    EXPECT_EQ(doc.properties(),
              (std::map<std::string, YAMLValue>{{"a", text("x")}, {"k", YAMLValue::number(1)}}));
}

class RandomNotes {
public:
    explicit RandomNotes(unsigned seed) : random_(seed) {}

    std::string pick(const Texts& from) { return from[random_() % from.size()]; }
    /// Lines that a block can hold, none of them a fence.
    Texts block() {
        static const Texts lines{
            "a: 1",    "b:",     "c: [x, 'y']", "a: \"q\"", "- x",         "  - y", "  z: 1",
            "",        "  ",     "# c",         "plain",    "d: {e: f}",   "-",     "\t- t",
            "e: a\rb", " ... x", "\"a: b\": c", "é: ü",     "f:  spaced  "};
        Texts made;
        for (auto count = random_() % 9; count > 0; --count) made.push_back(pick(lines));
        return made;
    }
    std::string body() {
        std::string made;
        for (auto count = random_() % 5; count > 0; --count)
            made += pick({"\n", "words", "---", "a: b", " "});
        return made;
    }
    Texts items() {
        Texts made;
        for (auto count = random_() % 4; count > 0; --count) {
            std::string item;
            for (auto length = random_() % 5; length > 0; --length)
                item += pick({"a", ",", "\"", "'", "\n", "\r", "[", "]", ": ", " #", " ", "\\", "1", "-"});
            made.push_back(item);
        }
        return made;
    }
    std::mt19937& engine() { return random_; }

private:
    std::mt19937 random_;
};

TEST(FrontmatterDoc, WritesRandomNotesAsTheyWere) {
    const auto seed = std::random_device{}();
    SCOPED_TRACE(seed);
    RandomNotes notes(seed);
    for (int round = 0; round < 20000; ++round) {
        auto lines = notes.block();
        if (lines.empty()) lines.push_back("# c");  // a block of nothing goes with its fences
        auto note = "---\n" + join(lines, "\n") + "\n---";
        if (round % 4 != 0) note += "\n" + notes.body();
        if (round % 2 != 0) note = replaceAll(note, "\n", "\r\n");
        ASSERT_EQ(FrontmatterDoc(note).serialized(), note);
    }
}

bool isStray(const FrontmatterDoc::Slot& slot) {
    const auto* it = std::get_if<FrontmatterDoc::Passthrough>(&slot.value);
    return it && !it->line.empty() &&
           std::string_view(" \t-").find(it->line.front()) != std::string_view::npos;
}

TEST(FrontmatterDoc, ChangesOnlyTheLinesOfTheKeyThatIsSet) {
    const auto seed = std::random_device{}();
    SCOPED_TRACE(seed);
    RandomNotes notes(seed);
    const auto others = [](const FrontmatterDoc& doc) {
        auto slots = doc.slots();
        std::erase_if(slots, [](const FrontmatterDoc::Slot& slot) {
            const auto* entry = std::get_if<FrontmatterDoc::Entry>(&slot.value);
            return entry && entry->key == "a";
        });
        return slots;
    };
    for (int round = 0; round < 20000; ++round) {
        const auto note = "---\n" + join(notes.block(), "\n") + "\n---\n" + notes.body();
        const FrontmatterDoc before(note);
        auto after = before;
        const auto contents = notes.items();
        const auto value = contents.size() == 1 ? text(contents.front()) : texts(contents);
        after.set("a", value);
        ASSERT_EQ(others(after), others(before)) << note;
        ASSERT_EQ(after.body(), before.body());
        ASSERT_EQ(FrontmatterDoc(after.serialized()).serialized(), after.serialized());
        // A stray line below may cling to a key that stood above it before.
        const bool clear =
            !before["a"] || std::none_of(before.slots().begin(), before.slots().end(), isStray);
        ASSERT_TRUE(!clear || FrontmatterDoc(after.serialized())["a"] == value) << note << after.serialized();
    }
}

TEST(FrontmatterDoc, ReadsHugeBlocksInLinearTime) {
    std::string blanks = "---\na:\n- x\n" + std::string(400'000, '\n') + "- y\nb: 1\n---\n";
    EXPECT_EQ(FrontmatterDoc(blanks)["a"], texts({"x", "y"}));
    std::string keys = "---\n";
    for (int i = 0; i < 100'000; ++i) keys += "k: [[[[\n\n";
    keys += "---\n";
    FrontmatterDoc doc(keys);
    EXPECT_EQ(doc.serialized(), keys);
    doc.remove("k");
    EXPECT_EQ(doc.slots().size(), 100'000U);
}

}  // namespace
}  // namespace vesk
