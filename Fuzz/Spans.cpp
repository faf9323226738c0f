// Notes of any text in the editor: spans stand in the text, a range is styled as the whole is, blocks hold
// every line, and the commands on lists and blocks lose nothing.
#include <algorithm>
#include <cstdint>

#include "VeskCore/Editor/BlockModel.h"
#include "VeskCore/Editor/DictationFormatter.h"
#include "VeskCore/Editor/EditorLines.h"
#include "VeskCore/Editor/ImageEmbeds.h"
#include "VeskCore/Editor/MarkdownSpans.h"
#include "VeskCore/Editor/MarkdownTableGrid.h"
#include "VeskCore/Support/Ensure.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"

using namespace vesk;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::u16string text = utf16(decodedText(std::string(reinterpret_cast<const char*>(data), size)));
    const auto inText = [&](TextRange range) {
        return range.location <= text.size() && range.end() <= text.size();
    };
    const auto frontmatter = MarkdownSpans::frontmatterRange(text);
    const auto whole = MarkdownSpans::spans(text, {}, false, frontmatter);
    for (const auto& span : whole) {
        VESK_ENSURE(inText(span.range));
        for (const TextRange& marker : span.markers) VESK_ENSURE(inText(marker));
    }
    const std::size_t half = EditorLines::lineStart(text, text.size() / 2);
    auto halves = MarkdownSpans::spans(text, TextRange{0, half}, false, frontmatter);
    if (half == 0) halves.clear();
    const auto second =
        MarkdownSpans::spans(text, TextRange{half, text.size() - half},
                             MarkdownSpans::isInsideFence(text, half, frontmatter), frontmatter);
    halves.insert(halves.end(), second.begin(), second.end());
    VESK_ENSURE(halves == whole);

    for (const MarkdownTable& table : MarkdownTable::tables(text, {}, frontmatter)) {
        for (const auto& row : MarkdownTableGrid::cells(table, text)) {
            VESK_ENSURE(row.size() == table.columnCount());
            for (const auto& cell : row) {
                for (const auto& run : cell.runs) VESK_ENSURE(run.range.end() <= cell.text.size());
            }
        }
    }
    for (const ImageEmbed& embed : MarkdownSpans::imageEmbeds(text)) {
        VESK_ENSURE(inText(embed.range) && inText(embed.lineRange));
        const auto spelled = MarkdownSpans::spelledTarget(embed.target, "a.png", text);
        VESK_ENSURE(spelled && inText(*spelled));
    }

    std::size_t line = 0;
    for (const MarkdownBlock& block : BlockModel::blocks(text)) {
        VESK_ENSURE(block.lineRange.location == line && !block.lineRange.empty());
        line = block.lineRange.end();
    }
    const std::u16string numbered = BlockModel::renumberOrderedLists(text);
    VESK_ENSURE(BlockModel::renumberOrderedLists(numbered) == numbered);
    if (auto moved = BlockModel::moveBlock(text, line / 2, true)) {
        std::u16string before = text;
        std::sort(before.begin(), before.end());
        std::sort(moved->text.begin(), moved->text.end());
        VESK_ENSURE(moved->text == before);
    }
    DictationFormatter::markdown(text);
    return 0;
}
