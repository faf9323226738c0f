// Random histories of edits and caret moves: whatever happened, the text is styled as a new highlighter would
// style all of it, and no character changed. VESK_HIGHLIGHTER_EDITS sets how many edits are made.
#include <gtest/gtest.h>

#include <cstdlib>
#include <random>

#include "StyledText.h"
#include "VeskCore/Editor/MarkdownHighlighter.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"

namespace vesk {
namespace {

using test::InMemoryAttributedText;

class History {
public:
    explicit History(std::uint64_t seed) : seed_(seed), random_(seed) {
        storage_.setDidEdit([this](TextRange edited, std::ptrdiff_t delta) {
            highlighter_.didProcessEditing(storage_, edited, delta);
        });
        dress(highlighter_);
    }

    /// False once the styles differ; the failure is then reported.
    bool run(std::size_t edits) {
        for (std::size_t i = 0; i < edits; ++i) {
            if (pick(40) == 0) change({0, text_.size()}, document());
            change(somewhere(), pick(4) == 0 ? u"" : piece());
            if (!check("edit")) return false;
            if (pick(3) == 0) {
                highlighter_.reveal(pick(8) == 0 ? std::nullopt : std::optional(somewhere()), storage_);
                if (!check("reveal")) return false;
            }
        }
        return true;
    }

private:
    static void dress(MarkdownHighlighter& highlighter) {
        highlighter.titleHeading = "ab";
        highlighter.gridLayout = [](const MarkdownTable& table) {
            return table.columnCount() % 2 == 0 ? std::optional(MarkdownTableGrid::Layout{}) : std::nullopt;
        };
    }

    std::size_t pick(std::size_t count) {
        return std::uniform_int_distribution<std::size_t>(0, count - 1)(random_);
    }

    std::u16string piece() {
        static const std::u16string_view pieces[] = {
            u"a",
            u"ab",
            u" ",
            u"\n",
            u"\n",
            u"\r",
            u"\r\n",
            u"\u2028",
            u"\u2029",
            u"\u0085",
            u"```",
            u"`",
            u"~~~",
            u"~~",
            u"---",
            u"-",
            u"...",
            u"|",
            u"|",
            u"a|b",
            u"-|-",
            u"\n-|-\n",
            u"\\",
            u"# ",
            u"## ",
            u"- ",
            u"- [x] ",
            u"- [ ] ",
            u"> ",
            u"> [!a]",
            u"1. ",
            u"***",
            u"**",
            u"*",
            u"==",
            u"[[",
            u"]]",
            u"![a](b)",
            u"#tag",
            u"<b>",
            u"</b>",
            u"<!--",
            u"-->",
            u"<br>",
            u"\t",
            u"    ",
            u"\u00E9\U0001F600",
            u"\x0B",
            u"\n```\n",
            u"\n---\n",
            u"# ab\n",
            u"a | b\n--- | ---\nc | d\n",
            u"x|y|z\n-|-|-\n1|2|3\n",
        };
        if (pick(400) == 0) return std::u16string(4990 + pick(12), pick(2) ? u'x' : u'`');
        std::u16string result(pieces[pick(std::size(pieces))]);
        if (pick(3) == 0) result += pieces[pick(std::size(pieces))];
        return result;
    }

    std::u16string document() {
        std::u16string result;
        if (pick(2)) result = u"---\n";
        if (pick(4) == 0) result += u"k: v\n";
        if (pick(4) == 0) result += u"---\n";
        if (pick(2)) result += u"\n# AB\n";
        for (std::size_t i = pick(40); i > 0; --i) result += piece();
        return result;
    }

    TextRange somewhere() {
        const std::size_t start = pick(text_.size() + 1);
        if (pick(20) == 0) return {start, text_.size() - start};
        const std::size_t longest =
            pick(20) == 0 ? text_.size() - start : std::min<std::size_t>(text_.size() - start, 4);
        return {start, pick(2) ? 0 : pick(longest + 1)};
    }

    void change(TextRange range, const std::u16string& replacement) {
        before_ = text_;
        range_ = range;
        text_.replace(range.location, range.length, replacement);
        storage_.edit(range, replacement);
    }

    bool check(const char* after) {
        InMemoryAttributedText whole(text_);
        MarkdownHighlighter fresh;
        dress(fresh);
        fresh.reveal(highlighter_.revealRange(), whole);
        fresh.highlight(whole, {0, text_.size()}, false);
        if (storage_.text() == text_ && storage_.runs() == whole.runs()) return true;
        ADD_FAILURE() << "seed " << seed_ << ", after an " << after << " of " << range_.location << "+"
                      << range_.length << "\nbefore: " << words(before_) << "\nnow: " << words(text_)
                      << "\nhas:   " << shown(storage_) << "\nwants: " << shown(whole);
        return false;
    }

    static std::string words(const std::u16string& text) { return testing::PrintToString(utf8(text)); }

    std::uint64_t seed_;
    std::mt19937_64 random_;
    InMemoryAttributedText storage_;
    MarkdownHighlighter highlighter_;
    std::u16string text_, before_;
    TextRange range_;
};

TEST(MarkdownHighlighterHistory, StylesEditsAsItStylesTheWhole) {
    const char* asked = std::getenv("VESK_HIGHLIGHTER_EDITS");
    const auto edits = static_cast<std::size_t>(parseInteger(asked ? asked : "20000").value_or(0));
    constexpr std::size_t each = 500;
    for (std::uint64_t seed = 1; seed <= (edits + each - 1) / each; ++seed) {
        if (!History(seed).run(each)) return;
    }
}

}  // namespace
}  // namespace vesk
