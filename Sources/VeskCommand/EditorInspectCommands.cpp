#include <algorithm>
#include <limits>

#include "VeskCommand/CommandSupport.h"
#include "VeskCommand/EditorJson.h"
#include "VeskCommand/Inspection.h"
#include "VeskCore/Editor/BlockModel.h"
#include "VeskCore/Editor/MarkdownHighlighter.h"
#include "VeskCore/Editor/MarkdownSpans.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"

namespace vesk::command {
namespace {

/// The text as it stands, so that offsets are those of the file.
std::u16string textOf(const CommandContext& context, const std::string& typed) {
    return utf16(decodedText(inspectedBytes(context, typed)));
}

/// Keeps what the highlighter gives.
class StyledText : public AttributedText {
public:
    explicit StyledText(std::u16string text) : text_(std::move(text)) {}

    std::u16string_view text() const override { return text_; }
    std::vector<AttributeRun> attributes(TextRange) const override { return runs; }
    void setAttributes(TextRange, const std::vector<AttributeRun>& given, bool) override { runs = given; }
    void clearSpellingMarks(TextRange) override {}
    void setDidEdit(DidEdit) override {}

    std::vector<AttributeRun> runs;

private:
    std::u16string text_;
};

struct Options {
    std::optional<std::size_t> caret;
    std::optional<std::string> title;
};

void requireInside(std::u16string_view text, const Options& options) {
    if (!options.caret || *options.caret <= text.size()) return;
    throw CommandError("The caret can't stand behind the text's end, which is at " +
                       std::to_string(text.size()) + ".");
}

bool touches(std::size_t caret, TextRange range) {
    return range.location <= caret && caret <= range.end();
}
template <class Item>
bool touches(std::size_t caret, const Item& item) {
    return touches(caret, item.range);
}
bool touches(std::size_t caret, const MarkdownSpans::Span& span) {
    const auto at = [&](TextRange marker) { return touches(caret, marker); };
    return touches(caret, span.range) || std::any_of(span.markers.begin(), span.markers.end(), at);
}

/// With a caret only what it touches.
template <class Item>
Json touched(std::vector<Item> items, std::optional<std::size_t> caret) {
    if (caret) std::erase_if(items, [&](const Item& item) { return !touches(*caret, item); });
    return arrayOf(items);
}

Json blocksAt(const std::u16string& text, std::optional<std::size_t> caret) {
    auto blocks = BlockModel::blocks(text);
    if (!caret) return arrayOf(blocks);
    const auto line = std::count(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(*caret), u'\n');
    std::erase_if(blocks, [&](const MarkdownBlock& block) {
        return !block.lineRange.contains(static_cast<std::size_t>(line));
    });
    return arrayOf(blocks);
}

/// With a caret the headings that it stands under, the outermost first.
Json outlineAt(const std::u16string& text, std::optional<std::size_t> caret) {
    const auto headings = outline(text);
    if (!caret) return arrayOf(headings);
    std::vector<OutlineHeading> above;
    for (const auto& heading : headings) {
        if (heading.range.location > *caret) break;
        std::erase_if(above, [&](const OutlineHeading& other) { return other.level >= heading.level; });
        above.push_back(heading);
    }
    return arrayOf(above);
}

Json highlighted(std::u16string source, const Options& options) {
    const std::size_t length = source.size();
    StyledText text(std::move(source));
    MarkdownHighlighter highlighter;
    highlighter.titleHeading = options.title;
    if (options.caret) highlighter.reveal(TextRange{*options.caret, 0}, text);
    highlighter.highlight(text, {0, length}, false);
    return arrayOf(text.runs);
}

}  // namespace

void addEditorInspections(CLI::App& inspect, CommandContext& context) {
    using Answer = std::function<Json(const std::u16string&, const Options&)>;
    const auto add = [&](const std::string& name, const std::string& description, const std::string& caret,
                         const Answer& answer) {
        auto options = std::make_shared<Options>();
        auto* command =
            addInspection(inspect, context, name, description, "  vesk inspect " + name + " Note.md",
                          [&context, answer, options](const std::string& file) {
                              const auto text = textOf(context, file);
                              requireInside(text, *options);
                              return answer(text, *options);
                          });
        command->add_option("--caret", options->caret, caret + ", in UTF-16 units")
            ->check(CLI::Range(0, std::numeric_limits<int>::max()));
        return std::pair(command, options);
    };
    const std::string touching = "Only what touches this place";
    add("blocks", "The blocks that the editor's commands move and change", "Only the block at this place",
        [](const std::u16string& text, const Options& options) { return blocksAt(text, options.caret); });
    add("spans", "The styled stretches of a note, with their syntax characters", touching,
        [](const std::u16string& text, const Options& options) {
            const auto frontmatter = MarkdownSpans::frontmatterRange(text);
            return touched(MarkdownSpans::spans(text, {}, false, frontmatter), options.caret);
        });
    add("tables", "Where the tables, rows, cells and pipes stand", touching,
        [](const std::u16string& text, const Options& options) {
            return touched(MarkdownTable::tables(text, {}, MarkdownSpans::frontmatterRange(text)),
                           options.caret);
        });
    add("embeds", "The images that the editor shows in place", touching,
        [](const std::u16string& text, const Options& options) {
            return touched(MarkdownSpans::imageEmbeds(text), options.caret);
        });
    add("outline", "The headings that the editor lists", "Only the headings that this place stands under",
        [](const std::u16string& text, const Options& options) { return outlineAt(text, options.caret); });
    const auto [highlight, options] =
        add("highlight", "The attributes that the editor gives to each stretch of a note",
            "Where the caret stands",
            [](const std::u16string& text, const Options& given) { return highlighted(text, given); });
    highlight->add_option("--title", options->title,
                          "The note's title: a first heading that repeats it is hidden");
}

}  // namespace vesk::command
