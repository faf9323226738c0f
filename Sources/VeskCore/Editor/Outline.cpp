#include "VeskCore/Editor/Outline.h"

#include "VeskCore/Editor/BlockModel.h"
#include "VeskCore/Editor/EditorLines.h"
#include "VeskCore/Editor/MarkdownSpans.h"
#include "VeskCore/Support/Unicode.h"

namespace vesk {

std::vector<OutlineHeading> outline(std::u16string_view text) {
    std::vector<OutlineHeading> result;
    const auto frontmatter = MarkdownSpans::frontmatterRange(text);
    const std::size_t bodyStart = frontmatter ? frontmatter->end() : 0;
    bool inFence = false;
    std::size_t number = 0;
    for (std::size_t at = 0; at < text.size(); ++number) {
        const EditorLines::Line line = EditorLines::lineFrom(text, at);
        at = line.full.end();
        const std::u16string_view source = EditorLines::piece(text, line.full);
        if (at <= bodyStart || source.size() > MarkdownSpans::longLineLimit) continue;
        if (EditorLines::isFence(source)) inFence = !inFence;
        if (inFence || source.find(u'#') == source.npos) continue;
        const BlockModel::Classified block = BlockModel::classify(source);
        if (const auto* heading = std::get_if<MarkdownBlock::Kind::Heading>(&block.kind.value)) {
            const std::u16string_view shown = EditorLines::trimmed(block.content);
            result.push_back({heading->level, utf8(shown), line.content, number});
        }
    }
    return result;
}

}  // namespace vesk
