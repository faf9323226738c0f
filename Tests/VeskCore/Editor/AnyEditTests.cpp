// Every command on random notes and selections.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <map>
#include <random>

#include "AnyCommand.h"
#include "MarkedText.h"
#include "VeskCore/Editor/EditorLines.h"
#include "VeskCore/Editor/FindReplace.h"
#include "VeskCore/Editor/Folding.h"
#include "VeskCore/Editor/LinkAt.h"
#include "VeskCore/Editor/MarkdownSpans.h"
#include "VeskCore/Editor/NoteFormat.h"
#include "VeskCore/Support/Characters.h"
#include "VeskCore/Support/Utf16Map.h"

namespace vesk::test {
namespace {

class RandomNotes {
public:
    explicit RandomNotes(unsigned seed) : random_(seed) {}

    std::size_t below(std::size_t limit) {
        return std::uniform_int_distribution<std::size_t>(0, limit - 1)(random_);
    }

    std::u16string note() {
        static constexpr const char16_t* starts[] = {
            u"",     u"- ",      u"  - ",      u"1. ",   u"2) ",      u"  7. ", u"- [ ] ", u"- [x] ", u"> ",
            u"# ",   u"> [!T] ", u"| ",        u"a|b",   u"-|-",      u"```",   u"~~~ c",  u"---",    u"    ",
            u"\t- ", u"1. ",     u"| a | b |", u"|-|-|", u"| \\| |x", u"> - ",  u"9. "};
        static constexpr const char16_t* words[] = {
            u"word",   u"**bold**", u"*it*",     u"`co`",
            u"==hi==", u"~~no~~",   u"[[l|a]]",  u"[t](u)",
            u"#tag",   u"e\u0301t", u"😀",        u"👨‍👩‍👧",
            u"日本",   u"🇩🇪",       u"\\|",      u"|",
            u"*",      u"`",        u"**",       u"==",
            u"“q”",    u"5",        u"[ ]",      u" ",
            u"\t",     u"한글",     u"<b>x</b>", u"https://a.b/c",
            u"न्द्र",    u"ไทยำ"};
        static constexpr const char16_t* ends[] = {u"\n", u"\n", u"\n", u"\n", u"\r\n", u"\r", u"\u2028"};
        std::u16string text;
        if (below(4) == 0) text = u"---\ntags: [a]\n---\n";
        const std::size_t lines = below(9);
        for (std::size_t i = 0; i < lines; ++i) {
            text += starts[below(std::size(starts))];
            for (std::size_t n = below(5); n > 0; --n) {
                text += words[below(std::size(words))];
                if (below(2) == 0) text += u" ";
            }
            if (i + 1 < lines || below(2) == 0) text += ends[below(std::size(ends))];
        }
        return text;
    }

private:
    std::mt19937 random_;
};

/// The offsets between the characters of a text.
std::vector<std::size_t> boundaries(std::u16string_view text) {
    const std::string bytes = utf8(text);
    const Utf16Map map(bytes);
    std::vector<std::size_t> offsets;
    for (const std::size_t byte : characterBoundaries(bytes)) offsets.push_back(map.utf16FromByte(byte));
    return offsets;
}

bool holds(const std::vector<std::size_t>& sorted, std::size_t offset) {
    return std::binary_search(sorted.begin(), sorted.end(), offset);
}

/// How many of each unit a text has, those of `without` left out.
std::map<char16_t, int> counts(std::u16string_view text, std::u16string_view without) {
    std::map<char16_t, int> result;
    for (const char16_t unit : text) {
        if (without.find(unit) == without.npos) ++result[unit];
    }
    return result;
}

/// True if every unit of `before` outside `takes` is still there, as often as it was.
bool keepsAll(std::u16string_view before, std::u16string_view after, std::u16string takes, bool renumbers) {
    if (renumbers) takes += u"0123456789";
    const auto now = counts(after, takes);
    for (const auto& [unit, count] : counts(before, takes)) {
        const auto found = now.find(unit);
        if (found == now.end() || found->second < count) return false;
    }
    return true;
}

bool isSubsequence(std::u16string_view part, std::u16string_view whole) {
    std::size_t matched = 0;
    for (const char16_t unit : whole) {
        if (matched < part.size() && unit == part[matched]) ++matched;
    }
    return matched == part.size();
}

TEST(AnyEdit, StaysInTheTextAndLosesNothingButItsSigns) {
    constexpr unsigned seed = 20240601;
    RandomNotes notes(seed);
    for (int round = 0; round < 2500; ++round) {
        const std::u16string text = notes.note();
        const auto places = boundaries(text);
        std::size_t from = places[notes.below(places.size())], to = places[notes.below(places.size())];
        if (notes.below(2) == 0) to = from;
        const TextRange selection{std::min(from, to), std::max(from, to) - std::min(from, to)};
        for (const AnyCommand& command : anyCommands()) {
            const auto edit = command.run(text, selection);
            if (!edit) continue;
            const std::string context = std::string(command.name) + ", seed " + std::to_string(seed) +
                                        " round " + std::to_string(round) + ": " +
                                        MarkedText::marked(text, selection);
            ASSERT_LE(edit->range.end(), text.size()) << context;
            ASSERT_TRUE(holds(places, edit->range.location) && holds(places, edit->range.end())) << context;
            const std::u16string after = edit->applied(text);
            const auto placesAfter = boundaries(after);
            ASSERT_TRUE(holds(placesAfter, edit->selection.location) &&
                        holds(placesAfter, edit->selection.end()))
                << context << "\n"
                << MarkedText::marked(after, edit->selection);
            if (command.onlyAdds) {
                ASSERT_TRUE(isSubsequence(text, after)) << context << "\n" << utf8(after);
            } else if (command.takes != u"*") {
                ASSERT_TRUE(keepsAll(text, after, std::u16string(command.takes), command.renumbers))
                    << context << "\n"
                    << utf8(after);
            }
            const auto frontmatter = MarkdownSpans::frontmatterRange(text);
            if (frontmatter && selection.location >= frontmatter->end()) {
                ASSERT_TRUE(MarkdownSpans::frontmatterRange(after)) << context << "\n" << utf8(after);
            }
        }
    }
}

/// What Return, Backspace, links, tasks and kinds may take is told apart by what is left of the words.
TEST(AnyEdit, KeepsTheWordsOfEveryLine) {
    constexpr unsigned seed = 7;
    RandomNotes notes(seed);
    const std::u16string letters = u"ABCDEFGHJK";
    for (int round = 0; round < 3000; ++round) {
        std::u16string text = notes.note();
        // Letters that no sign has, put where no marker is.
        std::u16string marked;
        for (const char16_t unit : text) {
            marked += unit;
            if (unit == u'w') marked += letters[notes.below(letters.size())];
        }
        const auto places = boundaries(marked);
        const std::size_t caret = places[notes.below(places.size())];
        for (const AnyCommand& command : anyCommands()) {
            const std::string_view name = command.name;
            if (name.starts_with("delete ")) continue;  // a row or column with its text is meant
            const auto edit = command.run(marked, {caret, 0});
            if (!edit) continue;
            const std::u16string after = edit->applied(marked);
            for (const char16_t letter : letters) {
                ASSERT_GE(std::count(after.begin(), after.end(), letter),
                          std::count(marked.begin(), marked.end(), letter))
                    << name << ", seed " << seed << " round " << round << ": "
                    << MarkedText::marked(marked, {caret, 0}) << "\n"
                    << utf8(after);
            }
        }
    }
}

TEST(AnyEdit, TogglesBack) {
    using namespace EditingCommands;
    constexpr unsigned seed = 99;
    RandomNotes notes(seed);
    const std::array styles{InlineStyle::bold, InlineStyle::italic, InlineStyle::code, InlineStyle::highlight,
                            InlineStyle::strikethrough};
    int tried = 0;
    for (int round = 0; round < 3000; ++round) {
        // A word without the signs around it, anywhere in a note: as a selection and with the caret in it.
        std::u16string text = notes.note();
        const std::size_t line = text.find(u"word ");
        if (line == text.npos) continue;
        const TextRange word{line, 4};
        for (const InlineStyle style : styles) {
            for (const TextRange selection : {word, TextRange{word.location + 2, 0}}) {
                const auto on = toggle(style, text, selection);
                if (!on || on->replacement.size() <= on->range.length) continue;
                const std::u16string once = on->applied(text);
                // Only where the line has none of the signs is there nothing for them to merge with.
                const TextRange around = EditorLines::lineRange(text, word);
                const bool free = EditorLines::piece(text, around).find_first_of(u"*`=~") == text.npos;
                if (!free) continue;
                ++tried;
                const auto off = toggle(style, once, on->selection);
                ASSERT_TRUE(off) << utf8(once);
                ASSERT_EQ(utf8(off->applied(once)), utf8(text)) << "seed " << seed << " round " << round;
                ASSERT_EQ(off->selection, selection);
            }
        }
    }
    EXPECT_GT(tried, 100);
}

TEST(AnyEdit, FormattingTwiceChangesNothingMore) {
    constexpr unsigned seed = 4711;
    RandomNotes notes(seed);
    for (int round = 0; round < 2500; ++round) {
        const std::u16string text = notes.note();
        const std::u16string once = NoteFormat::formatted(text);
        ASSERT_EQ(utf8(NoteFormat::formatted(once)), utf8(once))
            << "seed " << seed << " round " << round << ": " << utf8(text);
        ASSERT_TRUE(keepsAll(text, once, u" \t|-:", true)) << utf8(text) << "\n" << utf8(once);
    }
}

TEST(AnyEdit, TakesHostileTextInItsStride) {
    const auto repeated = [](std::u16string_view piece, std::size_t times) {
        std::u16string text;
        for (std::size_t i = 0; i < times; ++i) text += piece;
        return text;
    };
    std::u16string rows = u"|a|b|\n|-|-|\n" + repeated(u"|x|`y`|\n", 10'000);
    const std::u16string texts[] = {
        repeated(u"*", 1'000'000),
        repeated(u"[", 100'000) + repeated(u"]", 100'000),
        rows,
        repeated(u"1. a\n", 50'000),
        repeated(u"> ", 100'000),
        repeated(u"a `", 100'000),
        repeated(u"  - ", 50'000),
        repeated(u"```\n", 50'000),
    };
    for (const std::u16string& text : texts) {
        for (const TextRange selection : {TextRange{0, text.size()}, TextRange{text.size() / 2, 0}}) {
            for (const AnyCommand& command : anyCommands()) {
                if (const auto edit = command.run(text, selection)) {
                    EXPECT_LE(edit->range.end(), text.size()) << command.name;
                }
            }
            LinkAt::at(text, selection.location);
        }
        Fold::folds(text);
        const std::u16string once = NoteFormat::formatted(text);
        EXPECT_TRUE(NoteFormat::formatted(once) == once);
        EXPECT_TRUE(Finder({text.substr(0, text.size() / 2)}).all(text).complete);
    }
}

}  // namespace
}  // namespace vesk::test
