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

struct HighlightOptions {
    std::optional<std::size_t> caret;
    std::optional<std::string> title;
};

Json highlighted(std::u16string source, const HighlightOptions& options) {
    const std::size_t length = source.size();
    if (options.caret && *options.caret > length) {
        throw CommandError("The caret can't stand behind the text's end, which is at " +
                           std::to_string(length) + ".");
    }
    StyledText text(std::move(source));
    MarkdownHighlighter highlighter;
    highlighter.titleHeading = options.title;
    if (options.caret) highlighter.reveal(TextRange{*options.caret, 0}, text);
    highlighter.highlight(text, {0, length}, false);
    return arrayOf(text.runs);
}

}  // namespace

void addEditorInspections(CLI::App& inspect, CommandContext& context) {
    using Answer = std::function<Json(std::u16string)>;
    const auto add = [&](const std::string& name, const std::string& description, const Answer& answer) {
        return addInspection(
            inspect, context, name, description, "  vesk inspect " + name + " Note.md",
            [&context, answer](const std::string& file) { return answer(textOf(context, file)); });
    };
    add("blocks", "The blocks that the editor's commands move and change",
        [](const std::u16string& text) { return arrayOf(BlockModel::blocks(text)); });
    add("spans", "The styled stretches of a note, with their syntax characters",
        [](const std::u16string& text) {
            const auto frontmatter = MarkdownSpans::frontmatterRange(text);
            return arrayOf(MarkdownSpans::spans(text, {}, false, frontmatter));
        });
    add("tables", "Where the tables, rows, cells and pipes stand", [](const std::u16string& text) {
        return arrayOf(MarkdownTable::tables(text, {}, MarkdownSpans::frontmatterRange(text)));
    });
    add("embeds", "The images that the editor shows in place",
        [](const std::u16string& text) { return arrayOf(MarkdownSpans::imageEmbeds(text)); });
    add("outline", "The headings that the editor lists",
        [](const std::u16string& text) { return arrayOf(outline(text)); });

    auto options = std::make_shared<HighlightOptions>();
    auto* highlight = add("highlight", "The attributes that the editor gives to each stretch of a note",
                          [options](std::u16string text) { return highlighted(std::move(text), *options); });
    highlight->add_option("--caret", options->caret, "Where the caret stands, in UTF-16 units")
        ->check(CLI::Range(0, std::numeric_limits<int>::max()));
    highlight->add_option("--title", options->title,
                          "The note's title: a first heading that repeats it is hidden");
}

}  // namespace vesk::command
