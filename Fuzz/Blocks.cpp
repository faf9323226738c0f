// Lines and blocks of any text: what a command makes of a line is what it was asked for, moving a block there
// and back gives the text again, and no command loses a character.
#include <algorithm>
#include <cstdint>

#include "VeskCore/Editor/BlockModel.h"
#include "VeskCore/Editor/EditorLines.h"
#include "VeskCore/Editor/Outline.h"
#include "VeskCore/Support/Ensure.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"

using namespace vesk;
using Kind = MarkdownBlock::Kind;

namespace {

void checkLine(std::u16string_view line) {
    const BlockModel::Classified block = BlockModel::classify(line);
    VESK_ENSURE(BlockModel::isParagraph(line) == (block.kind == Kind{Kind::Plain::paragraph}));
    VESK_ENSURE(block.content.empty() ||
                (block.content.data() >= line.data() &&
                 block.content.data() + block.content.size() <= line.data() + line.size()));
    const int level = BlockModel::indentLevel(line);
    VESK_ENSURE(BlockModel::indentLevel(BlockModel::indent(line)) == level + 1);
    VESK_ENSURE(BlockModel::indentLevel(BlockModel::outdent(line)) == std::max(level - 1, 0));

    const Kind kinds[] = {{Kind::Heading{3}}, {Kind::Ordered{7}}, {Kind::Task{true}}, {Kind::Plain::bullet}};
    for (const Kind& kind : kinds) {
        const std::u16string turned = BlockModel::turnInto(line, kind, 7);
        if (block.content.empty()) continue;
        // An item whose text begins with a box is a task.
        const Kind now = BlockModel::classify(turned).kind;
        VESK_ENSURE(now == kind || (kind == kinds[3] && std::holds_alternative<Kind::Task>(now.value)));
        VESK_ENSURE(BlockModel::indentLevel(turned) == level);
    }
    if (const auto next = BlockModel::continuation(line)) {
        VESK_ENSURE(!BlockModel::shouldExitList(line) && BlockModel::indentLevel(*next) == level);
        VESK_ENSURE(BlockModel::classify(*next).content.empty());
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::u16string text = utf16(decodedText(std::string(reinterpret_cast<const char*>(data), size)));
    for (std::size_t at = 0; at < text.size();) {
        const EditorLines::Line line = EditorLines::lineFrom(text, at);
        checkLine(EditorLines::piece(text, line.content));
        VESK_ENSURE(BlockModel::classify(EditorLines::piece(text, line.content)) ==
                    BlockModel::classify(EditorLines::piece(text, line.full)));
        at = line.full.end();
    }
    for (const OutlineHeading& heading : outline(text)) {
        VESK_ENSURE(heading.level >= 1 && heading.level <= 6 && heading.range.end() <= text.size());
    }

    const auto blocks = BlockModel::blocks(text);
    std::size_t lines = 0;
    for (const MarkdownBlock& block : blocks) {
        VESK_ENSURE(block.lineRange.location == lines && !block.lineRange.empty());
        lines = block.lineRange.end();
    }
    VESK_ENSURE(lines == static_cast<std::size_t>(std::count(text.begin(), text.end(), u'\n')) + 1);

    const std::u16string numbered = BlockModel::renumberOrderedLists(text);
    VESK_ENSURE(BlockModel::renumberOrderedLists(numbered) == numbered);
    for (std::size_t i = 0; i < std::min<std::size_t>(blocks.size(), 4); ++i) {
        const std::size_t line = blocks[blocks.size() * i / 4].lineRange.location;
        if (const auto copied = BlockModel::duplicateBlock(text, line)) {
            VESK_ENSURE(copied->text.size() >= text.size());
        }
        if (auto moved = BlockModel::moveBlock(text, line, false)) {
            std::u16string before = text;
            std::sort(before.begin(), before.end());
            std::sort(moved->text.begin(), moved->text.end());
            VESK_ENSURE(moved->text == before);
        }
    }
    return 0;
}
